#pragma once
// The wire of the SA-94: requests of one to three bytes, answers of bare memory, and the three encodings of a value.
// There is no frame and no sum; the line's silence ends both.
//
//     request                              answer          bits, the highest first
//     11aaaaaa 0aaaaaaa 0aaaaaaa  connect  status byte     a: address, 20 bits
//     10100sss 0bbbbbbb           block    128 bytes       s: segment; b: block, 7 bits
//     10110111 01sssbbb 00bbbbbb  block    128 bytes       b: block, 9 bits; meters with large segments only
//     100ccccc                    value    4 bytes         c: code of the parameter, up to 15
//     00000001                    leave    nothing

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "sa94_types.h"

namespace sim {

enum class Sa94Kind : std::uint8_t { Connect, Block, Parameter, Disconnect };

/// A request, taken apart.
struct Sa94Question {
    Sa94Kind kind = Sa94Kind::Connect;
    std::uint32_t address = 0;   ///< of a Connect
    unsigned segment = 0;        ///< of a Block
    unsigned block = 0;          ///< of a Block
    unsigned code = 0;           ///< of a Parameter
    bool extended_form = false;  ///< of a Block

    bool operator==(const Sa94Question&) const = default;
};

/// Nothing for bytes that are no request, or more than one.
std::optional<Sa94Question> sa94_question(std::span<const std::uint8_t> bytes);

/// A number in the meter's floating point: a binary exponent above 2, then sign, and 23 bits of a mantissa that leaves
/// its leading one out. Throws std::invalid_argument for what has no exponent in it: from 2 to the 127 on, infinity,
/// NaN.
std::array<std::uint8_t, 4> sa94_float(float value);
float sa94_float_value(std::span<const std::uint8_t, 4> bytes);

/// Two decimal digits; throws std::invalid_argument for a number beyond 0..99.
std::uint8_t sa94_bcd(int number);
/// Never refuses: a nibble counts as it stands, so that 0xFF is 165.
int sa94_bcd_value(std::uint8_t byte);

}  // namespace sim
