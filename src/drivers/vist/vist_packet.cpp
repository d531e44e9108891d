#include "drivers/vist/vist_packet.h"

#include <algorithm>
#include <cstring>

#include "core/text.h"

namespace {

constexpr std::uint8_t Magic[] = {'H', 'P', 'T'};

// Status word of each bit, bit 0 first. The crossing of bits 3, 4 and 5 of the second byte is the meter's.
constexpr std::uint32_t StatusOf0[8] = {0x2, 0x4, 0x8, 0x10, 0x20, 0x40, 0x80, 0x100};
constexpr std::uint32_t StatusOf1[8] = {0x20000, 0x40000, 0x80000, 0x200000, 0x400000, 0x100000, 0x800000, 0x1000000};
constexpr std::uint32_t StatusOf3[8] = {0x200, 0x400, 0x800, 0x1000, 0x2000, 0, 0x10000, 0x8000};
constexpr std::uint8_t ArchiveOnlyBits = 0xC0;  // of the fourth byte

std::uint32_t status_of(std::uint8_t byte, const std::uint32_t (&words)[8]) {
    std::uint32_t status = 0;
    for (int bit = 0; bit < 8; ++bit) {
        if ((byte >> bit & 1) != 0) status |= words[bit];
    }
    return status;
}

/// A number of 1, 2, 4 or 8 bytes in the host's order.
double number_at(Bytes buffer, std::size_t at, std::size_t size) {
    switch (size) {
        case 1:
            return u8_at(buffer, at);
        case 2:
            return static_cast<std::int16_t>(le_u16(buffer, at));
        case 4:
            return static_cast<std::int32_t>(le_u32(buffer, at));
        default:
            return static_cast<double>(static_cast<std::int64_t>(le_u64(buffer, at)));
    }
}

}  // namespace

bool is_good_packet(Bytes received, std::uint8_t type) {
    return received.size() > PacketTypeAt && received[PacketCrcAt] == checksum(received.subspan(PacketTypeAt)) &&
           std::equal(std::begin(Magic), std::end(Magic), received.begin()) && received[PacketTypeAt] == type;
}

std::array<std::uint8_t, 4> four_at(Bytes bytes, std::size_t at) {
    return {u8_at(bytes, at), u8_at(bytes, at + 1), u8_at(bytes, at + 2), u8_at(bytes, at + 3)};
}

void swap_bytes(PacketBuffer buffer, std::size_t at, std::size_t width) {
    if (at > buffer.size() || width > buffer.size() - at) return;
    std::reverse(buffer.begin() + static_cast<std::ptrdiff_t>(at),
                 buffer.begin() + static_cast<std::ptrdiff_t>(at + width));
}

void process_value(std::int32_t mask, std::size_t size, PacketBuffer buffer, std::size_t& pointer, double& destination,
                   bool fSwap) {
    if ((mask & 1) == 0) {
        destination = AbsentValue;
        return;
    }
    if (fSwap) swap_bytes(buffer, pointer, size);
    destination = number_at(buffer, pointer, size);
    for (int scale = u8_at(buffer, pointer + size); scale > 0; --scale) destination /= 10.0;
    pointer += size + 1;
}

std::uint32_t convert_errors(std::span<const std::uint8_t, 4> status, bool for_archive) {
    const auto fourth = static_cast<std::uint8_t>(for_archive ? status[3] : status[3] & ~ArchiveOnlyBits);
    return status_of(status[0], StatusOf0) | status_of(status[1], StatusOf1) | status_of(fourth, StatusOf3);
}

std::tm packet_time(Bytes packet, std::size_t at) {
    std::tm tm{};
    tm.tm_hour = u8_at(packet, at);
    tm.tm_min = u8_at(packet, at + 1);
    tm.tm_sec = u8_at(packet, at + 2);
    tm.tm_mday = u8_at(packet, at + 3);
    tm.tm_mon = u8_at(packet, at + 4) - 1;
    tm.tm_year = u8_at(packet, at + 5) + 100;
    tm.tm_isdst = -1;
    return tm;
}

std::string heat_formula(Bytes record, char letter) {
    constexpr std::size_t FormulaBytes = 128;
    const auto n = [record](std::size_t at) { return u8_at(record, at) + 1; };
    const int G1 = n(vds::iG1), G2 = n(vds::iG2), G3 = n(vds::iG3);
    const int T1 = n(vds::iT1), T2 = n(vds::iT2), T3 = n(vds::iT3), T4 = n(vds::iT4);
    const char c = letter;
    switch (u8_at(record, vds::fQ)) {
        case 0:
            return format_cut(FormulaBytes, "Q = G%d * ( %c%d - %c%d )", G1, c, T1, c, T2);
        case 1:
            return format_cut(FormulaBytes, "Q = G%d * ( %c%d - %c%d) - G%d * ( %c%d - %c%d )", G1, c, T1, c, T3, G2, c,
                              T2, c, T4);
        case 2:
            return format_cut(FormulaBytes, "Q = G%d * ( %c%d - %c%d) + G%d * ( %c%d - %c%d )", G1, c, T1, c, T3, G2, c,
                              T2, c, T4);
        case 3:
            return format_cut(FormulaBytes, "Q = G%d * %c%d - G%d * %c%d - G%d * %c%d", G1, c, T1, G2, c, T2, G3, c,
                              T3);
        default:
            return "";
    }
}

bool is_first_channel_formula(Bytes record) {
    return u8_at(record, vds::fQ) == 0 && u8_at(record, vds::iG1) == 0 && u8_at(record, vds::iT1) == 0 &&
           u8_at(record, vds::iT2) == 1;
}

std::string utf8_of_cp1251(std::string_view text) {
    std::string utf8;
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        const auto put = [&utf8](int first, int second) {
            utf8 += static_cast<char>(first);
            utf8 += static_cast<char>(second);
        };
        if (byte >= 0xF0) {
            put(0xD1, byte - 0x70);
        } else if (byte >= 0xC0) {
            put(0xD0, byte - 0x30);
        } else if (byte == 0xB8) {
            put(0xD1, 0x91);
        } else if (byte == 0xA8) {
            put(0xD0, 0x81);
        } else {
            utf8 += c;
        }
    }
    return utf8;
}

std::string text_at(Bytes packet, std::size_t at, std::size_t limit) {
    if (at >= packet.size()) return "";
    const auto* const text = reinterpret_cast<const char*>(packet.data()) + at;
    return {text, ::strnlen(text, std::min(limit, packet.size() - at))};
}
