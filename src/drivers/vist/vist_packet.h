#pragma once
// Packets and texts of the VIST meter: plain functions from bytes to values; no line, no clock, no log.
//
// A binary packet is "HPT", size (bytes that follow it), check sum of everything behind itself, type, body. Decoders
// work on the 300 bytes of a named buffer: a packet shorter than it promises is read into what stands there.

#include <array>
#include <bit>
#include <cstdint>
#include <ctime>
#include <span>
#include <string>
#include <string_view>

#include "core/bytes.h"

using PacketBuffer = std::span<std::uint8_t>;

constexpr std::size_t PacketSizeAt = 3;
constexpr std::size_t PacketCrcAt = 4;
constexpr std::size_t PacketTypeAt = 5;
constexpr std::size_t PacketBodyAt = 6;

/// Check sum, magic and type of a packet as received.
bool is_good_packet(Bytes received, std::uint8_t type);

/// Four bytes as they stand.
std::array<std::uint8_t, 4> four_at(Bytes bytes, std::size_t at);

/// Reverses `width` bytes in place; nothing when they do not exist.
void swap_bytes(PacketBuffer buffer, std::size_t at, std::size_t width);

/// Value of a field that the packet does not hold: -123.333 in single precision, widened.
constexpr double AbsentValue = std::bit_cast<double>(std::uint64_t{0xC05ED54FE0000000});

/// One value of a presence-masked packet: a number of `size` bytes and a byte that tells how often it is divided by 10.
/// Size 1 is unsigned, sizes 2, 4 and 8 are signed. A value whose bit 0 in `mask` is clear is not in the packet, gives
/// AbsentValue, and `pointer` stays.
void process_value(std::int32_t mask, std::size_t size, PacketBuffer buffer, std::size_t& pointer, double& destination,
                   bool fSwap);

/// The meter's four status bytes as the system's status word; the third is not read.
std::uint32_t convert_errors(std::span<const std::uint8_t, 4> status, bool for_archive);

// Offsets in the record of a heat system, which the meter keeps alike behind both its protocols. Indices count from 0.
namespace vds {
constexpr std::size_t fQ = 119;
constexpr std::size_t iG1 = 120;
constexpr std::size_t iT1 = 121;
constexpr std::size_t iT2 = 122;
constexpr std::size_t iG2 = 123;
constexpr std::size_t iT3 = 124;
constexpr std::size_t iG3 = 131;
constexpr std::size_t iT4 = 132;
}  // namespace vds

/// The meter's formula of heat, every index counted from 1; empty for a selector that has none. `letter` stands for the
/// temperatures or heats.
std::string heat_formula(Bytes record, char letter);

/// The plain formula of channel 1 with temperatures 1 and 2.
bool is_first_channel_formula(Bytes record);

/// hour, minute, second, day, month, year since 2000, one byte each: local time of the meter.
std::tm packet_time(Bytes packet, std::size_t at);

/// Windows-1251 to UTF-8, Russian letters only; other bytes pass unchanged.
std::string utf8_of_cp1251(std::string_view text);

/// The text at `at`, up to its zero byte and at most `limit` bytes.
std::string text_at(Bytes packet, std::size_t at, std::size_t limit);
