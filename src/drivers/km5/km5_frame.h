#pragma once
// Frames of the KM5 family: one request of 16 bytes, one answer of at most 72, ended by silence only. Plain functions
// from bytes to values; nothing here touches a line, a clock or a log. Positions in an answer count from 0.

#include <array>
#include <cstdint>
#include <vector>

#include "core/bytes.h"

/// Commands of the meter's protocol.
enum KM5_command : std::uint8_t {
    CmdIdentity = 0x00,        ///< 9: model index; 5..8: network address
    CmdStatus = 0x08,          ///< 4..11: status block
    CmdVersion = 0x09,         ///< 4..8: firmware version text; 11..14: type letters
    CmdReadEeprom = 0x0E,      ///< data: parameter number, length; 5..8: float
    CmdCurrent = 0x2C,         ///< data: page 0..8
    CmdArchiveBounds = 0x33,   ///< data: archive type; 5: flags; 6: first, 16: last index; 26: count
    CmdIndexByDate = 0x34,     ///< data: archive type, date; 6: index
    CmdErrorRecord = 0x37,     ///< data: archive type, index; 5: event code; 5..12: date block
    CmdArchiveRecord = 0x41,   ///< data: archive type, index; 5..12: date block; 13..68: fourteen floats
    CmdIntegralsNewer = 0x5F,  ///< data: 0; newer firmware
    CmdCurrentNewer = 0x7B,    ///< data: 0; newer firmware
};

/// Archive types of the meter's protocol.
enum KM5_archive : int {
    ArchiveHourly = 0,
    ArchiveDaily = 1,
    ArchiveMonthly = 2,
    ArchiveYearly = 3,
    ArchiveErrors = 4,
};

/// A meter's address on the line.
using KM5_netaddr = std::array<std::uint8_t, 4>;

constexpr std::size_t RequestBytes = 16;
constexpr std::size_t AnswerBytes = 72;

/// One exchange: the fields of the request, the frame as sent, the answer as received. Reused from one exchange to the
/// next; an answer that does not come leaves the bytes of the one before.
struct KM5_request {
    KM5_netaddr netaddr{};
    std::uint8_t cmd = 0;
    std::array<std::uint8_t, 9> data{};
    std::uint8_t CS1 = 0;
    std::uint8_t CS2 = 0;
    std::uint8_t RcvLng = 32;  ///< answer bytes received
    std::array<std::uint8_t, RequestBytes> send_buf{};
    std::array<std::uint8_t, AnswerBytes> recv_buf{};
};

/// The requests of one pass.
struct KM5_pack {
    std::vector<KM5_request> requests;
    std::uint32_t count() const { return static_cast<std::uint32_t>(requests.size()); }
};

void init_request(KM5_request& request);

/// Fills the frame and its check bytes. CS1 is the exclusive or of bytes 0..12, CS2 the sum of bytes 0..13: the two
/// stretches differ, as the meters want them.
void build_frame(KM5_request& request);

/// Copies the fields, check bytes included, into the frame.
void sync_send_buffer(KM5_request& request);

/// What is wrong with an answer, in the order of testing.
enum class AnswerFault { None, CS1, CS2, Command };

/// Tests an answer: both check bytes over everything in front of them, then the echo of the command.
AnswerFault find_fault(const KM5_request& request);

/// The meter answered with an error code; check bytes play no part in that.
bool isError(const KM5_request& request);

/// Copies the answer's fields `first` to `last`, counted from 1 at the command byte, which stands at position 4.
void answer_bytes(int first, int last, std::uint8_t* dst, const KM5_request& request);

/// Writes `value` as packed BCD into `size` bytes, little-endian.
void int_to_bcd(std::uint8_t* dst, std::uint32_t value, std::size_t size);

/// The firmware version out of its text: blanks, then a decimal number; 0 for a text without digits.
float parse_version(Bytes text);
