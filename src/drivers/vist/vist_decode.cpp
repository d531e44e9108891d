#include "drivers/vist/vist_decode.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "core/text.h"

namespace vist {

namespace {

constexpr std::size_t FirmwareBytes = 64;
constexpr std::size_t ModelBytes = 128;
constexpr std::size_t TextsEnd = 300;  // no text of the meter's specials goes past this byte of the packet

// Offsets in the body of a virtual device's record.
constexpr std::size_t NameLimit = 20;
constexpr std::uint32_t WeightedBit = 0x2000000;
constexpr std::size_t FirstChannel = 16;
constexpr std::size_t ChannelBytes = 33;
constexpr std::size_t TemperatureDifference = 116;

// Offsets in a channel's block.
constexpr std::size_t UpperLimit = 5;
constexpr std::size_t LimitScale = 9;
constexpr std::size_t LowerLimit = 19;

constexpr std::size_t FirstDn = 12;  // in the body of the configuration

constexpr double ScaleDivisors[] = {1.0, 10.0, 100.0, 1000.0, 10000.0, 100000.0, 1000000.0};

constexpr int HeaderBytes = 7;
constexpr std::size_t ClockBytes = 6;
constexpr std::uint8_t LittleEndianBit = 0x80;  // of `enumer`
constexpr std::uint8_t BadPressureBits = 0xE0;
constexpr std::uint32_t ServiceBits = 0x4000 | 0x2 | 0x4 | 0x200 | 0x400 | 0x20000 | 0x40000;

// Offsets in a header packet.
constexpr std::size_t HeaderCrc = PacketBodyAt + 1;
constexpr std::size_t HeaderSummed = PacketBodyAt + 2;
constexpr std::size_t HeaderEnumer = PacketBodyAt + 4;
constexpr std::size_t HeaderMask = PacketBodyAt + 6;
constexpr std::size_t HeaderRecNum = PacketBodyAt + 10;
constexpr std::size_t HeaderRecNew = PacketBodyAt + 12;
constexpr std::size_t HeaderRecMax = PacketBodyAt + 14;
constexpr std::size_t HeaderTime = PacketBodyAt + 16;
constexpr std::size_t HeaderPrecision = PacketBodyAt + 58;

// Offsets in a record packet.
constexpr std::size_t RecordTime = PacketBodyAt;
constexpr std::size_t RecordCrc = PacketBodyAt + 6;
constexpr std::size_t RecordFields = PacketBodyAt + 7;

enum Divisor : int { ByPrecision0 = 0, ByPrecision1 = 1, ByPrecision2 = 2, ByPrecision3 = 3, By10 = 10, By100 = 100 };

/// One total of the header, in the order in which they are filed.
struct HeaderTotal {
    const char* name;
    std::size_t at;
    int bit;      ///< of the mask: the total is filed
    int divisor;  ///< Divisor
};

constexpr HeaderTotal HeaderTotals[] = {
    // name  at                   bit divisor
    {"A6", PacketBodyAt + 22, 1, ByPrecision0},  {"A8", PacketBodyAt + 26, 2, ByPrecision1},
    {"A10", PacketBodyAt + 30, 3, ByPrecision2}, {"A12", PacketBodyAt + 34, 4, ByPrecision0},
    {"A14", PacketBodyAt + 38, 5, ByPrecision1}, {"A16", PacketBodyAt + 42, 6, ByPrecision2},
    {"A1", PacketBodyAt + 50, 14, ByPrecision3}, {"A4", PacketBodyAt + 46, 7, By100},
};

/// The total of heat is a signed number of eight bytes, the others are unsigned ones of four.
std::size_t total_width(const HeaderTotal& total) {
    return total.divisor == ByPrecision3 ? 8 : 4;
}

/// How a record's field is decoded and filed.
enum class FieldKind { Skip, Unsigned, Signed, Temperature, Pressure, Status };

struct RecordField {
    std::size_t width;
    FieldKind kind;
    int divisor;
    const char* name;
};

// In the order of the mask bits, bit 0 first. A24 and A23 stand behind A26: the meter's order.
constexpr RecordField RecordFieldsByBit[] = {
    {1, FieldKind::Unsigned, By100, "A3"},
    {4, FieldKind::Unsigned, ByPrecision0, "A5"},
    {4, FieldKind::Unsigned, ByPrecision1, "A7"},
    {4, FieldKind::Unsigned, ByPrecision2, "A9"},
    {4, FieldKind::Unsigned, ByPrecision0, "A11"},
    {4, FieldKind::Unsigned, ByPrecision1, "A13"},
    {4, FieldKind::Unsigned, ByPrecision2, "A15"},
    {2, FieldKind::Temperature, By10, "A20"},
    {2, FieldKind::Temperature, By10, "A21"},
    {2, FieldKind::Temperature, By10, "A22"},
    {2, FieldKind::Skip, By10, ""},
    {1, FieldKind::Pressure, By10, "A17"},
    {1, FieldKind::Pressure, By10, "A18"},
    {1, FieldKind::Pressure, By10, "A19"},
    {4, FieldKind::Signed, ByPrecision3, "A2"},
    {4, FieldKind::Status, 0, "A28"},
    {1, FieldKind::Unsigned, By100, "A25"},
    {1, FieldKind::Unsigned, By100, "A26"},
    {1, FieldKind::Unsigned, By100, "A24"},
    {1, FieldKind::Unsigned, By100, "A23"},
    {3, FieldKind::Skip, 0, ""},
    {1, FieldKind::Skip, 0, ""},
    {1, FieldKind::Skip, 0, ""},
};

constexpr double TemperatureLimit = 500.0;

double divided(double value, int divisor, const std::array<std::uint8_t, 4>& precision) {
    if (divisor == By10) return value / 10.0;
    if (divisor == By100) return value / 100.0;
    return value / std::pow(10.0, precision[static_cast<std::size_t>(divisor)]);
}

std::uint32_t unsigned_at(Bytes bytes, std::size_t at, std::size_t width) {
    return width == 1 ? u8_at(bytes, at) : width == 2 ? le_u16(bytes, at) : le_u32(bytes, at);
}

int packet_size(Bytes packet) {
    return u8_at(packet, PacketSizeAt);
}

std::int32_t take_be_i32(PacketBuffer body, std::size_t at) {
    swap_bytes(body, at, 4);
    return static_cast<std::int32_t>(le_u32(body, at));
}

ChannelLimits decode_limits(PacketBuffer body, std::size_t block) {
    const std::int32_t upper = take_be_i32(body, block + UpperLimit);
    const std::int32_t lower = take_be_i32(body, block + LowerLimit);
    ChannelLimits limits{.scale = u8_at(body, block + LimitScale), .range = {}};
    if (limits.scale < std::size(ScaleDivisors)) {
        limits.range = {lower / ScaleDivisors[limits.scale], upper / ScaleDivisors[limits.scale]};
    }
    return limits;
}

void decode_status(Bytes packet, std::size_t at, CurrentValues& current) {
    std::array<std::uint8_t, 4> bits = four_at(packet, at);
    if (current.fSwap) std::reverse(bits.begin(), bits.end());
    current.EG = le_u32(bits, 0);
    for (std::size_t i = 0; i < 3; ++i) {
        if ((bits[i] & BadPressureBits) != 0) current.published &= ~(1U << (10 + i));
    }
    current.ER = convert_errors(bits, false);
    current.SC = (current.ER & ServiceBits) == 0;
}

}  // namespace

DeviceSpecials decode_specials(Bytes packet) {
    // Three texts, one behind the other; the first has at least one character.
    const Bytes texts = part_of(packet, 0, TextsEnd);
    const auto end_of_text = [texts](std::size_t at) {
        while (at < texts.size() && texts[at] != 0) ++at;
        return at;
    };
    const std::size_t second = end_of_text(PacketBodyAt + 1) + 1;
    const std::size_t third = end_of_text(second) + 1;
    return {.dev_serial = std::atoi(text_at(texts, third, TextsEnd).c_str()),
            .firmware = cut(text_at(texts, PacketBodyAt, TextsEnd), FirmwareBytes - 1),
            .model = cut(utf8_of_cp1251(text_at(texts, second, TextsEnd)), ModelBytes - 1)};
}

VirtualDevice decode_virtual_device(PacketBuffer body, bool fSwap) {
    VirtualDevice device;
    device.type = static_cast<std::uint32_t>(take_be_i32(body, VdsType));
    device.sub_name = utf8_of_cp1251(text_at(body, 0, NameLimit));
    if (fSwap) swap_bytes(body, TemperatureDifference, 2);
    device.dT = static_cast<std::int16_t>(le_u16(body, TemperatureDifference));
    for (std::size_t i = 0; i < device.channel_limits.size(); ++i) {
        device.channel_limits[i] = decode_limits(body, FirstChannel + ChannelBytes * i);
    }
    device.formula = heat_formula(body, 'H');
    device.weighted = (device.type & WeightedBit) != 0 && is_first_channel_formula(body);
    return device;
}

std::array<int, 3> decode_config(PacketBuffer body) {
    std::array<int, 3> diameters{};
    for (std::size_t i = 0; i < diameters.size(); ++i) {
        swap_bytes(body, FirstDn + 2 * i, 2);
        diameters[i] = static_cast<std::int16_t>(le_u16(body, FirstDn + 2 * i));
    }
    return diameters;
}

CurrentValues decode_values(PacketBuffer packet, bool moment, int sw_version, const std::array<double, 15>& values) {
    CurrentValues current;
    current.values = values;
    std::size_t at = PacketBodyAt;
    if (!moment && sw_version > LowestServedVersion) {
        // The version alone decides, so the packet read for a description gives its first bytes for a clock, too.
        current.clock = packet_time(packet, at);
        at += ClockBytes;
    }
    current.enumer = u8_at(packet, at++);
    current.fSwap = (current.enumer & LittleEndianBit) == 0;
    current.stored = four_at(packet, at);
    if (current.fSwap) swap_bytes(packet, at, 4);
    current.mask = current.published = le_u32(packet, at);
    current.left = static_cast<std::int32_t>(current.mask);
    at += 4;

    const auto take = [&](std::size_t first, std::size_t last, std::size_t width) {
        for (std::size_t slot = first; slot <= last; ++slot) {
            process_value(current.left, width, packet, at, current.values[slot], current.fSwap);
            current.left >>= 1;
        }
    };
    // The meter's size byte bounds nothing once it is above the fixed part; a packet shorter than its mask promises is
    // read into whatever stands in the buffer.
    const int size = u8_at(packet, PacketSizeAt);
    if (!moment) {
        if (size > 0) take(0, 6, 4);
        take(7, 7, 8);
    } else {
        if (size > HeaderBytes) {
            take(0, 5, 4);
            take(6, 9, 2);
            take(10, 12, 1);
        }
        take(13, 13, 4);
        decode_status(packet, at, current);
    }
    return current;
}

std::string clock_text(const std::tm& tm) {
    return format_cut(31, "%02d:%02d:%02d", tm.tm_hour, tm.tm_min, tm.tm_sec);
}

std::string day_text(const std::tm& tm) {
    return format_cut(31, "%02d:%02d:%02d", tm.tm_mday, tm.tm_mon + 1, tm.tm_year - 100);
}

InnerSum header_sum(Bytes packet) {
    return {.is = u8_at(packet, HeaderCrc),
            .should_be = checksum(part_of(packet, HeaderSummed, packet_size(packet) - 4))};
}

InnerSum record_sum(Bytes packet) {
    return {.is = u8_at(packet, RecordCrc),
            .should_be = checksum(part_of(packet, RecordFields, packet_size(packet) - 9))};
}

ArchiveHeader decode_header(PacketBuffer packet) {
    ArchiveHeader header;
    header.fSwapArch = (u8_at(packet, HeaderEnumer) & LittleEndianBit) == 0;
    if (header.fSwapArch) {
        swap_bytes(packet, HeaderMask, 4);
        for (const std::size_t at : {HeaderRecNum, HeaderRecNew, HeaderRecMax}) swap_bytes(packet, at, 2);
    }
    header.arch_mask = le_u32(packet, HeaderMask);
    header.good = header_sum(packet).holds();
    if (!header.good) return header;

    header.time = packet_time(packet, HeaderTime);
    header.ArchiveRecNum = static_cast<std::int16_t>(le_u16(packet, HeaderRecNum));
    header.ArchiveRecNew = static_cast<std::int16_t>(le_u16(packet, HeaderRecNew));
    header.ArchiveRecMax = static_cast<std::int16_t>(le_u16(packet, HeaderRecMax));
    header.arch_precision = four_at(packet, HeaderPrecision);
    for (const HeaderTotal& total : HeaderTotals) {
        const std::size_t width = total_width(total);
        if (header.fSwapArch) swap_bytes(packet, total.at, width);
        if ((header.arch_mask >> total.bit & 1) == 0) continue;
        const double raw = width == 8 ? static_cast<double>(static_cast<std::int64_t>(le_u64(packet, total.at)))
                                      : static_cast<double>(le_u32(packet, total.at));
        header.totals.push_back({total.name, divided(raw, total.divisor, header.arch_precision)});
    }
    return header;
}

std::optional<std::tm> decode_record_time(Bytes packet) {
    if (!record_sum(packet).holds()) return {};
    return packet_time(packet, RecordTime);
}

std::tm take_full_hour(PacketBuffer packet) {
    for (const std::size_t at : {RecordTime + 1, RecordTime + 2}) {
        if (at < packet.size()) packet[at] = 0;
    }
    return packet_time(packet, RecordTime);
}

ArchiveRecord decode_record(PacketBuffer packet, const ArchiveHeader& header) {
    ArchiveRecord record;
    std::size_t at = RecordFields;
    for (std::size_t bit = 0; bit < std::size(RecordFieldsByBit); ++bit) {
        if ((header.arch_mask >> bit & 1) == 0) continue;
        const RecordField& field = RecordFieldsByBit[bit];
        if (header.fSwapArch && field.kind != FieldKind::Skip) swap_bytes(packet, at, field.width);
        const std::uint32_t raw = unsigned_at(packet, at, field.width);
        const double value = divided(raw, field.divisor, header.arch_precision);
        switch (field.kind) {
            case FieldKind::Skip:
                break;
            case FieldKind::Unsigned:
                record.values.push_back({field.name, value});
                break;
            case FieldKind::Signed:
                record.values.push_back(
                    {field.name, divided(static_cast<std::int32_t>(raw), field.divisor, header.arch_precision)});
                break;
            case FieldKind::Temperature:
                record.measured.push_back({field.name, value, value < TemperatureLimit});
                break;
            case FieldKind::Pressure:
                record.measured.push_back({field.name, value, raw != 0});
                break;
            case FieldKind::Status:
                record.A28 = static_cast<int>(convert_errors(four_at(packet, at), true));
                break;
        }
        at += field.width;
    }
    return record;
}

}  // namespace vist
