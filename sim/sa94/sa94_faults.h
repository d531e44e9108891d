#pragma once
// The misbehaviour of a simulated SA-94 meter: what can go wrong with an answer, and when it does.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "fault_script.h"
#include "sa94_wire.h"
#include "sim_meter.h"

namespace sim {

/// What happens to one answer. Make it with one of the functions below; narrow it to some requests with `on`.
struct Sa94Fault {
    enum class Kind {
        None,        ///< a good answer, to count past in a script
        Silence,     ///< the meter does not hear the request
        Lost,        ///< it hears and obeys, but the answer does not come
        Noise,       ///< `bytes` lie in front of a right answer, without a pause
        Short,       ///< only the first `number` bytes come
        Trailing,    ///< `bytes` follow a right answer, without a pause
        Garbled,     ///< `length` bytes, from byte `number` on, have the bits of `mask` turned over
        Late,        ///< a right answer, `gap` seconds later than it should come
        Halved,      ///< half of the answer, `gap` seconds of silence, the rest
        WrongBlock,  ///< blocks only: the one that lies `number` further on in the segment comes
        Raw,         ///< `bytes` in the place of any answer
    };
    Kind kind = Kind::None;
    ByteVector bytes = {};
    std::size_t number = 0;
    std::size_t length = 0;
    std::uint8_t mask = 0;
    double gap = 0.0;
    std::optional<Sa94Kind> only_kind = std::nullopt;   ///< others are answered as if the fault were not there
    std::optional<unsigned> only_which = std::nullopt;  ///< the same for the segment of a block, the code of a value
    std::optional<unsigned> only_block = std::nullopt;  ///< the same for the block

    Sa94Fault on(Sa94Kind request, std::optional<unsigned> segment_or_code = std::nullopt,
                 std::optional<unsigned> block = std::nullopt) const;
    /// Whether the answer to `request` can suffer this. A Disconnect has no answer, so only a Silence that was narrowed
    /// to it falls on it.
    bool fits(const Sa94Question& request) const;
};

Sa94Fault sa94_good();
Sa94Fault sa94_silence();
Sa94Fault sa94_lost();
Sa94Fault sa94_noise(ByteVector bytes = {0x00, 0xFF, 0x55});
Sa94Fault sa94_short(std::size_t length);
Sa94Fault sa94_single_byte();
Sa94Fault sa94_trailing(ByteVector bytes = {0x55});
Sa94Fault sa94_garbled(std::size_t from = 0, std::size_t length = 512, std::uint8_t mask = 0x5A);
/// A line counts as silent after 0.9 s: such an answer falls into the next exchange.
Sa94Fault sa94_late(double gap = 1.2);
Sa94Fault sa94_halved(double gap = 1.2);
Sa94Fault sa94_wrong_block(std::size_t further_on = 1);
Sa94Fault sa94_raw(ByteVector bytes);

/// The answer as it comes out of a meter with `fault`, but for a WrongBlock, which the meter chooses.
Answer sa94_spoil(const ByteVector& right, const Sa94Fault& fault, double delay);

}  // namespace sim
