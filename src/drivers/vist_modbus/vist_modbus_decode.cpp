#include "drivers/vist_modbus/vist_modbus_decode.h"

#include <algorithm>
#include <cstdlib>

#include "core/text.h"
#include "drivers/vist/vist_packet.h"
#include "drivers/vist_modbus/modbus_frame.h"

namespace {

struct StatusBit {
    int bit;
    std::uint32_t status;
};

constexpr StatusBit StatusBits[] = {
    {0, 0x2},       {1, 0x4},        {2, 0x8},     {3, 0x10},     {4, 0x20},      {5, 0x40},      {6, 0x80},
    {7, 0x100},     {8, 0x20000},    {9, 0x40000}, {10, 0x80000}, {11, 0x200000}, {12, 0x400000}, {13, 0x100000},
    {14, 0x800000}, {15, 0x1000000}, {24, 0x200},  {25, 0x4000},  {26, 0x800},    {30, 0x4000},   {31, 0x8000},
};

}  // namespace

double scale_down(double value, unsigned times) {
    for (unsigned i = 0; i < times; ++i) value /= 10.0;
    return value;
}

std::uint32_t convert_status(std::uint32_t word) {
    std::uint32_t result = 0;
    for (const auto& [bit, status] : StatusBits) {
        if ((word >> bit & 1) != 0) result |= status;
    }
    return result;
}

namespace vist_modbus {

namespace {

// Offsets in the main configuration.
constexpr std::size_t FirmwareAt = 4;
constexpr std::size_t NameAt = 25;
constexpr std::size_t SerialAt = 46;
constexpr std::size_t TubesAt[] = {105, 131, 157};  // by heat system
constexpr std::size_t SystemsCountAt = 197;
// From there.
constexpr std::size_t TemperatureSettings = 0;
constexpr std::size_t PressureSettings = 6;
constexpr std::size_t Diameters = 12;

// Offsets in the setup of a heat system.
constexpr std::size_t NameLimit = 80;
constexpr std::size_t ParametersAt = 12;
constexpr std::size_t ChannelAt[] = {16, 49};
constexpr std::size_t LowerDivisor = 3;  // in a channel's block
constexpr std::size_t UpperLimit = 5;
constexpr std::size_t UpperExponent = 9;
constexpr std::size_t ErrorsAt = 147;
constexpr std::uint32_t WeightedBit = 1U << 25;
constexpr std::uint32_t NotCounting = 0x4000;  // of the converted status

constexpr double SecondsOfHour = 3600.0;
constexpr double EnergyDivisor = 1200.0;

// The data of a file answer begin with its length and the reference type.
constexpr std::size_t FileHeadBytes = 2;

// Offsets in an archive header.
constexpr std::size_t MaskAt = 6;
constexpr std::size_t CountAt = 10;
constexpr std::size_t NextAt = 12;
constexpr std::size_t CapacityAt = 14;
constexpr std::size_t TimeAt = 16;
constexpr std::size_t VolumesAt = 22;
constexpr std::size_t MassesAt = 34;
constexpr std::size_t WorkTimeAt = 46;
constexpr std::size_t EnergyAt = 50;
constexpr std::size_t PrecisionAt = 58;

constexpr int NoTemperature = -1000;  // raw, of a sensor that gives none
constexpr int QualityBad = 0;
constexpr int QualityGood = 192;

// Bytes of a record's fields by mask bit.
constexpr std::uint8_t arch_field_size[] = {1, 4, 4, 4, 4, 4, 4, 2, 2, 2, 2, 1, 1, 1, 4, 4, 1, 1, 1, 1, 3, 1, 1};

enum class Field {
    Tenths,       // one byte, by 10
    Hundredths,   // one byte, by 100
    Long,         // signed, by a precision of the header
    Temperature,  // signed, by 10, with a mark for a sensor that gives none
    Status,
};

struct ArchiveField {
    std::size_t bit;  // of the mask
    Field field;
    const char* name;
    std::size_t precision = 0;
};

// As the table of the text dialect in its order only: signed numbers stand here where that one has unsigned ones.
constexpr ArchiveField ArchiveFields[] = {
    {0, Field::Hundredths, "A3"},   {1, Field::Long, "A5", 0},      {2, Field::Long, "A7", 1},
    {3, Field::Long, "A9", 2},      {4, Field::Long, "A11", 0},     {5, Field::Long, "A13", 1},
    {6, Field::Long, "A15", 2},     {7, Field::Temperature, "A20"}, {8, Field::Temperature, "A21"},
    {9, Field::Temperature, "A22"}, {10, Field::Temperature, "T4"}, {11, Field::Tenths, "A17"},
    {12, Field::Tenths, "A18"},     {13, Field::Tenths, "A19"},     {14, Field::Long, "A2", 3},
    {15, Field::Status, "A28"},     {16, Field::Hundredths, "A25"}, {17, Field::Hundredths, "A26"},
    {18, Field::Hundredths, "A24"}, {19, Field::Hundredths, "A23"}, {22, Field::Hundredths, "A27"},
};

constexpr std::size_t BitBehindUnread = 22;
constexpr std::size_t UnreadBytes = 4;  // of bits 20 and 21, passed over whether they are set or not

/// Text up to its zero byte.
std::string text_from(Bytes data, std::size_t at) {
    return text_at(data, at, data.size());
}

Bytes behind_file_head(Bytes data) {
    return data.subspan(std::min(FileHeadBytes, data.size()));
}

std::array<Tube, 3> tubes_at(Bytes data, std::size_t base) {
    std::array<Tube, 3> tubes{};
    for (std::size_t i = 0; i < tubes.size(); ++i) {
        const auto field = [&](std::size_t from) { return int{read_u16(data, base + from + 2 * i)}; };
        tubes[i] = {.DU = field(Diameters), .temper = field(TemperatureSettings), .press = field(PressureSettings)};
    }
    return tubes;
}

Values flow_limits(Bytes data) {
    Values limits;
    for (int i = 0; i < 2; ++i) {
        const std::size_t channel = ChannelAt[i];
        const double upper = scale_down(read_u32(data, channel + UpperLimit), u8_at(data, channel + UpperExponent));
        limits.emplace_back(format_cut(16, "M%dmax", i + 1), upper);
        limits.emplace_back(format_cut(16, "M%dmin", i + 1), upper / read_u16(data, channel + LowerDivisor));
    }
    return limits;
}

/// Bytes that a record with these fields has.
int record_size(std::uint32_t mask) {
    int size = 1;  // the check sum
    for (std::size_t bit = 0; bit < std::size(arch_field_size); ++bit) {
        if ((mask >> bit & 1) != 0) size += arch_field_size[bit];
    }
    return size;
}

ArchiveValue decode_field(Bytes record, std::size_t at, const ArchiveField& row, const ArchiveHeader& header) {
    switch (row.field) {
        case Field::Tenths:
            return {row.name, u8_at(record, at) / 10.0};
        case Field::Hundredths:
            return {row.name, u8_at(record, at) / 100.0};
        case Field::Long:
            return {row.name, scale_down(read_i32(record, at), header.arch_precision[row.precision])};
        case Field::Temperature: {
            const int raw = read_i16(record, at);
            return {row.name, raw / 10.0, ArchiveValue::Form::WithQuality,
                    raw == NoTemperature ? QualityBad : QualityGood};
        }
        case Field::Status:
            break;
    }
    return {row.name, static_cast<double>(convert_status(read_u32(record, at))), ArchiveValue::Form::Whole};
}

}  // namespace

MainConfig decode_main_config(Bytes data) {
    const std::string serial = text_from(data, SerialAt);
    return {.PO_ver = text_from(data, FirmwareAt),
            .Name = text_from(data, NameAt),
            .model = "VIST-TC" + text_from(data, NameAt + 2),
            .Serial_num = serial,
            .dev_serial = static_cast<int>(std::strtol(serial.c_str(), nullptr, 10)),
            .Systems_count = u8_at(data, SystemsCountAt),
            .tubes = {tubes_at(data, TubesAt[0]), tubes_at(data, TubesAt[1]), tubes_at(data, TubesAt[2])}};
}

SystemSetup decode_tc_specs(Bytes data) {
    const auto index = [data](std::size_t at) { return int{u8_at(data, at)}; };
    const std::uint32_t parameters = read_u32(data, ParametersAt);
    const std::uint32_t errors = read_u32(data, ErrorsAt);
    SystemSetup setup{
        .sub_name = utf8_of_cp1251(text_at(data, 0, NameLimit)),
        .parameters = parameters,
        .fQ = index(vds::fQ),
        .iG = {index(vds::iG1), index(vds::iG2), index(vds::iG3)},
        .iT = {index(vds::iT1), index(vds::iT2), index(vds::iT3), index(vds::iT4)},
        .formula = heat_formula(data, 'T'),
        .is_weighted = (parameters & WeightedBit) != 0 && is_first_channel_formula(data),
        .found_T = {},
        .found_P = {},
        .limits = flow_limits(data),
        .errors = errors,
        .status = convert_status(errors),
        .is_counting = (convert_status(errors) & NotCounting) == 0,
    };
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const std::uint32_t bits = parameters >> 8 * channel;  // Q, G, two T, two P, two of nothing
        setup.found_T[channel] = static_cast<int>((bits >> 2 & 1) + (bits >> 3 & 1));
        setup.found_P[channel] = static_cast<int>((bits >> 4 & 1) + (bits >> 5 & 1));
    }
    return setup;
}

Words decode_words(Bytes data) {
    return {read_u16(data, 0), read_u16(data, 2), read_u16(data, 4), read_u16(data, 6)};
}

Values decode_array16(Bytes data, char kind) {
    Values values;
    if (kind != 'T' && kind != 'P') return values;
    for (const std::uint16_t word : decode_words(data)) {
        const int number = static_cast<int>(values.size()) + 1;
        values.emplace_back(format_cut(16, "%c%d", kind, number), word / (kind == 'T' ? 100.0 : 10.0));
    }
    return values;
}

Values decode_array32(Bytes data, char kind, const Words& pointsGP, const std::array<bool, 3>& hasM) {
    Values values;
    for (std::size_t i = 0; i < 3; ++i) {
        const double r = read_u32(data, 4 * i);
        const auto add = [&](const char* name, double value) {
            values.emplace_back(format_cut(16, "%s%d", name, static_cast<int>(i) + 1), value);
        };
        switch (kind) {
            case 'Q':
                add("Q", scale_down(r, pointsGP[i]));
                break;
            case 'M':
                if (hasM[i]) add("M", scale_down(r, pointsGP[i]));
                break;
            case 'V':
                add("IQ", static_cast<int>(r / SecondsOfHour));
                break;
            case 'G':
                add("IM", static_cast<int>(r / SecondsOfHour));
                break;
            case 'E':
                if (i == 0) add("IE", static_cast<int>(r / EnergyDivisor));
                break;
            default:
                break;
        }
    }
    return values;
}

ArchiveSetup decode_archive_specs(Bytes data, int system) {
    // The blocks of the three systems are not aligned alike.
    const std::uint32_t spec_mask = read_u32(data, system == 1 ? 3 : 2);
    const auto has = [spec_mask](std::size_t bit) { return (spec_mask >> bit & 1) != 0; };
    return {.spec_mask = spec_mask,
            .hasV = {true, true, true},  // whatever bits 1 to 3 say
            .hasM = {has(4), has(5), has(6)},
            .hasC = has(0),
            .hasE = has(14)};
}

ArchiveHeader decode_header(Bytes data) {
    const Bytes block = behind_file_head(data);
    ArchiveHeader header;
    header.arch_mask = read_u32(block, MaskAt);
    header.arch_record_size = record_size(header.arch_mask);
    header.recs_count = read_u16(block, CountAt);
    header.next_rec_index = static_cast<std::uint16_t>(read_u16(block, NextAt) + 1);
    header.max_records = read_u16(block, CapacityAt);
    header.header_tm = packet_time(block, TimeAt);
    for (std::size_t i = 0; i < header.arch_precision.size(); ++i) {
        header.arch_precision[i] = u8_at(block, PrecisionAt + i);
    }
    for (std::size_t i = 0; i < 3; ++i) {
        const auto total = [&](std::size_t at) {
            return scale_down(read_u32(block, at + 4 * i), header.arch_precision[i]);
        };
        header.V[i] = total(VolumesAt);
        header.M[i] = total(MassesAt);
    }
    header.C = read_u32(block, WorkTimeAt);
    header.E = scale_down(static_cast<double>(read_u64(block, EnergyAt)), header.arch_precision[3]);
    return header;
}

ArchiveRecord decode_record(Bytes data, const ArchiveHeader& header) {
    const Bytes block = behind_file_head(data);
    ArchiveRecord record{
        .sum = checksum(part_of(block, 1, header.arch_record_size - 1)), .crc = u8_at(block, 0), .values = {}};
    std::size_t at = 1;
    for (const ArchiveField& row : ArchiveFields) {
        if (row.bit == BitBehindUnread) at += UnreadBytes;
        if ((header.arch_mask >> row.bit & 1) == 0) continue;
        record.values.push_back(decode_field(block, at, row, header));
        at += arch_field_size[row.bit];
    }
    return record;
}

}  // namespace vist_modbus
