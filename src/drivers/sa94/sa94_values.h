#pragma once
// The three encodings of an SA-94 meter: BCD bytes, floating point with the exponent in front, big-endian words.

#include "core/bytes.h"

/// High nibble times 10 plus low nibble, unchecked: erased memory gives 165.
constexpr int bcdToInt(std::uint8_t bcd) {
    return bcd_to_int(bcd);
}

/// The four bytes of a meter's float: exponent (two more than in IEEE 754), sign and mantissa, high byte first.
constexpr float decodeSaFloat(std::uint8_t b0, std::uint8_t b1, std::uint8_t b2, std::uint8_t b3) {
    const std::uint32_t e = b0 >= 2 ? b0 - 2U : 0U;
    const std::uint32_t sign = b1 & 0x80U;
    return std::bit_cast<float>(sign << 24 | e << 23 | (b1 & 0x7FU) << 16 | std::uint32_t{b2} << 8 | b3);
}

/// The float at the start of `bytes`.
constexpr float decodeSaFloat(Bytes bytes) {
    return decodeSaFloat(u8_at(bytes, 0), u8_at(bytes, 1), u8_at(bytes, 2), u8_at(bytes, 3));
}

/// Unsigned, high byte first.
constexpr float decodeWord(std::uint8_t high, std::uint8_t low) {
    return static_cast<float>(high << 8 | low);
}
