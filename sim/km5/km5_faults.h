#pragma once
// The misbehaviour of a simulated KM5 meter: what can go wrong with an answer, and when it does.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "fault_script.h"
#include "sim_meter.h"

namespace sim {

/// What happens to one answer. Make it with one of the functions below; narrow it to some requests with `on`.
struct Km5Fault {
    enum class Kind {
        None,         ///< a good answer, to count past in a script
        Silence,      ///< nothing is said
        Noise,        ///< `bytes` lie in front of a right answer, without a pause
        WrongCs1,     ///< the last but one byte has its bits turned over
        WrongCs2,     ///< the last byte is one too high
        WrongEcho,    ///< byte 4 is `code`, or the command plus one; the sums are right for that
        Short,        ///< only the first `length` bytes come
        OverLong,     ///< the payload is filled up so that the whole has `length` bytes, with right sums at its end
        ErrorAnswer,  ///< address, `code` (or 0xF0) in the place of the echo, right sums: seven bytes
        Halved,       ///< half of the answer, `gap` seconds of silence, the rest
        Garbage,      ///< address and echo are right, the payload is `bytes` (or pseudo-random), the sums are right
        Erased,       ///< as Garbage, with a payload of 0xFF
    };
    Kind kind = Kind::None;
    ByteVector bytes = {};
    std::size_t length = 0;
    std::optional<std::uint8_t> code = std::nullopt;
    double gap = 0.0;
    std::optional<std::uint8_t> only_command = std::nullopt;  ///< other commands are answered as if it were not there
    std::optional<std::uint8_t> only_data0 = std::nullopt;    ///< the same for the first argument (page or archive)

    Km5Fault on(std::uint8_t command, std::optional<std::uint8_t> data0 = std::nullopt) const;
    bool fits(std::uint8_t command, std::uint8_t data0) const;
};

Km5Fault km5_good();
Km5Fault km5_silence();
Km5Fault km5_noise(ByteVector bytes = {0x00, 0xFF, 0x55});
Km5Fault km5_wrong_cs1();
Km5Fault km5_wrong_cs2();
Km5Fault km5_wrong_echo(std::optional<std::uint8_t> code = std::nullopt);
Km5Fault km5_short(std::size_t length);
Km5Fault km5_over_long(std::size_t length = 80);
/// The codes in use are 0xEF, 0xF0, 0xF1 and 0xFB.
Km5Fault km5_error(std::uint8_t code = 0xF0);
/// A line counts as silent after 0.6 s.
Km5Fault km5_halved(double gap = 0.7);
/// Without a payload: pseudo-random bytes, as many as the right answer has.
Km5Fault km5_garbage(ByteVector payload = {});
Km5Fault km5_erased();

using Km5Random = FaultRandom;

/// The bytes of `right` (a whole answer frame with right sums) as they come out of a meter with `fault`.
Answer km5_spoil(const ByteVector& right, const Km5Fault& fault, double delay, Km5Random& generator);

/// Puts both sums behind an answer: exclusive or and sum modulo 256 of all bytes so far.
void km5_append_sums(ByteVector& frame);

}  // namespace sim
