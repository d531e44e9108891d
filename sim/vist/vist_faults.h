#pragma once
// The misbehaviour of a simulated VIST meter: what can go wrong with an answer, and when it does.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fault_script.h"
#include "sim_meter.h"

namespace sim {

/// A right answer, before anything happens to it: a text frame, or a packet.
struct VistReply {
    int network = 0;
    unsigned device = 0;
    std::string body;                                 ///< between the braces of a text frame
    std::optional<ByteVector> packet = std::nullopt;  ///< in the place of the text frame

    ByteVector bytes() const;
};

/// What happens to one answer. Make it with one of the functions below; narrow it to some commands with `on`.
struct VistFault {
    enum class Kind {
        None,         ///< a good answer, to count past in a script
        Silence,      ///< nothing is said
        Noise,        ///< `bytes` lie in front of a right answer, without a pause
        WrongSum,     ///< packets only: byte 4 is one too high
        WrongType,    ///< packets only: byte 5 is `number`; the sum is right for that
        WrongMagic,   ///< packets only: "HPX" in front
        WrongInner,   ///< archive packets only: the inner sum is one too high, and the outer one right for that
        Short,        ///< only the first `number` bytes come
        Trailing,     ///< `bytes` follow a right answer, without a pause
        OverLong,     ///< filled up to `number` bytes: a packet at its end, with a right sum, a text in its body
        Halved,       ///< half of the answer, `gap` seconds of silence, the rest
        WrongDevice,  ///< texts only: the frame head names device `number`
        Text,         ///< a text frame with the body `text`, in the place of any answer
        Raw,          ///< `bytes` in the place of any answer
    };
    Kind kind = Kind::None;
    ByteVector bytes = {};
    std::size_t number = 0;
    std::string text = {};
    double gap = 0.0;
    std::string only_command = {};                       ///< others are answered as if the fault were not there
    std::optional<unsigned> only_device = std::nullopt;  ///< the same for the selected virtual device

    /// `command` is a whole command or its first words: "/ARC/DLD", "/ARC/DLD +", "VDN".
    VistFault on(std::string command, std::optional<unsigned> device = std::nullopt) const;
    /// Whether the answer to `line` can suffer this.
    bool fits(std::string_view line, const VistReply& right) const;
};

VistFault vist_good();
VistFault vist_silence();
VistFault vist_noise(ByteVector bytes = {0x00, 0xFF, 0x55});
VistFault vist_wrong_sum();
/// The types in use are 10, 11, 12, 20, 21, 30, 31 and 33.
VistFault vist_wrong_type(std::uint8_t type = 99);
VistFault vist_wrong_magic();
VistFault vist_wrong_inner();
/// The first bytes of the answer; of a packet one less where its sum would be right by chance.
VistFault vist_short(std::size_t length);
VistFault vist_trailing(ByteVector bytes = {0x55});
VistFault vist_over_long(std::size_t length = 320);
/// A line counts as silent after 0.5 s.
VistFault vist_halved(double gap = 0.7);
VistFault vist_wrong_device(unsigned device);
/// The words in use are E:CMD, E:PARAM, E:NPAR and E:PWD.
VistFault vist_error(std::string word = "E:CMD");
/// Comes in the place of texts as well, unless `on` narrows it.
VistFault vist_text_for_packet(std::string body = "OK");
VistFault vist_raw(ByteVector bytes);

/// Whether `line` is `command`, or has more words behind it.
bool vist_begins(std::string_view line, std::string_view command);

/// The answer as it comes out of a meter with `fault`.
Answer vist_spoil(const VistReply& right, const VistFault& fault, double delay);

}  // namespace sim
