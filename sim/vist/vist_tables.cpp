// What stands where in a VIST meter, and what it comes up with by itself.

#include "vist_memory.h"

namespace sim {

namespace {

constexpr std::int64_t Year2000 = 946684800;
constexpr std::int64_t SecondsPerHour = 3600;

constexpr VistPresentRow Integrators[] = {
    // name, width, when unset; mask bit at the end of the row
    {"IT", 4, {12345, 0}},         // 0  hours
    {"IQ1", 4, {500125, 2}},       // 1
    {"IQ2", 4, {400250, 2}},       // 2
    {"IQ3", 4, {300375, 2}},       // 3
    {"IM1", 4, {490500, 2}},       // 4
    {"IM2", 4, {390625, 2}},       // 5
    {"IM3", 4, {290750, 2}},       // 6
    {"IE", 8, {123456789012, 6}},  // 7
};

constexpr VistPresentRow Moments[] = {
    // name, width, when unset; mask bit at the end of the row
    {"Q1", 4, {12500, 3}},  // 0
    {"Q2", 4, {11250, 3}},  // 1
    {"Q3", 4, {1375, 3}},   // 2
    {"M1", 4, {12125, 3}},  // 3
    {"M2", 4, {11000, 3}},  // 4
    {"M3", 4, {1250, 3}},   // 5
    {"T1", 2, {9550, 2}},   // 6
    {"T2", 2, {6025, 2}},   // 7
    {"T3", 2, {1050, 2}},   // 8
    {"T4", 2, {-725, 2}},   // 9
    {"P1", 1, {61, 1}},     // 10
    {"P2", 1, {42, 1}},     // 11
    {"P3", 1, {23, 1}},     // 12
    {"E", 4, {438750, 6}},  // 13
};

constexpr VistFieldRow Fields[VistRecordFields] = {
    // file, width, which precision, power, signed, doubtful; mask bit at the end of the row
    {"A3", 1, -1, 2, false, VistDoubt::Never},     // 0   hours worked
    {"A5", 4, 0, 0, false, VistDoubt::Never},      // 1   volumes
    {"A7", 4, 1, 0, false, VistDoubt::Never},      // 2
    {"A9", 4, 2, 0, false, VistDoubt::Never},      // 3
    {"A11", 4, 0, 0, false, VistDoubt::Never},     // 4   masses
    {"A13", 4, 1, 0, false, VistDoubt::Never},     // 5
    {"A15", 4, 2, 0, false, VistDoubt::Never},     // 6
    {"A20", 2, -1, 1, false, VistDoubt::From500},  // 7   temperatures
    {"A21", 2, -1, 1, false, VistDoubt::From500},  // 8
    {"A22", 2, -1, 1, false, VistDoubt::From500},  // 9
    {"", 2, -1, 1, false, VistDoubt::Never},       // 10  T4
    {"A17", 1, -1, 1, false, VistDoubt::AtZero},   // 11  pressures
    {"A18", 1, -1, 1, false, VistDoubt::AtZero},   // 12
    {"A19", 1, -1, 1, false, VistDoubt::AtZero},   // 13
    {"A2", 4, 3, 0, true, VistDoubt::Never},       // 14  energy
    {"A28", 4, -1, 0, false, VistDoubt::Never},    // 15  status
    {"A25", 1, -1, 2, false, VistDoubt::Never},    // 16  shares of the hour
    {"A26", 1, -1, 2, false, VistDoubt::Never},    // 17
    {"A24", 1, -1, 2, false, VistDoubt::Never},    // 18
    {"A23", 1, -1, 2, false, VistDoubt::Never},    // 19
    {"", 3, -1, 0, false, VistDoubt::Never},       // 20
    {"", 1, -1, 0, false, VistDoubt::Never},       // 21
    {"", 1, -1, 0, false, VistDoubt::Never},       // 22
};

constexpr VistTotalRow Totals[VistTotals] = {
    // file, mask bit, which precision, power
    {"A6", 1, 0, 0},   // volume 1
    {"A8", 2, 1, 0},   // volume 2
    {"A10", 3, 2, 0},  // volume 3
    {"A12", 4, 0, 0},  // mass 1
    {"A14", 5, 1, 0},  // mass 2
    {"A16", 6, 2, 0},  // mass 3
    {"A4", 7, -1, 2},  // hours worked
    {"A1", 14, 3, 0},  // energy
};

struct StatusBit {
    std::size_t byte;
    std::uint8_t mask;
    std::uint32_t shown;
    bool archive_only;
};

constexpr StatusBit StatusBits[] = {
    {0, 0x01, 0x00000002, false}, {0, 0x02, 0x00000004, false}, {0, 0x04, 0x00000008, false},
    {0, 0x08, 0x00000010, false}, {0, 0x10, 0x00000020, false}, {0, 0x20, 0x00000040, false},
    {0, 0x40, 0x00000080, false}, {0, 0x80, 0x00000100, false}, {1, 0x01, 0x00020000, false},
    {1, 0x02, 0x00040000, false}, {1, 0x04, 0x00080000, false}, {1, 0x08, 0x00200000, false},
    {1, 0x10, 0x00400000, false}, {1, 0x20, 0x00100000, false}, {1, 0x40, 0x00800000, false},
    {1, 0x80, 0x01000000, false}, {3, 0x01, 0x00000200, false}, {3, 0x02, 0x00000400, false},
    {3, 0x04, 0x00000800, false}, {3, 0x08, 0x00001000, false}, {3, 0x10, 0x00002000, false},
    {3, 0x40, 0x00010000, true},  {3, 0x80, 0x00008000, true},
};

std::int64_t hours_since_2000(std::time_t time) {
    return (static_cast<std::int64_t>(time) - Year2000) / SecondsPerHour;
}

}  // namespace

std::span<const VistPresentRow> vist_integrator_rows() {
    return Integrators;
}

std::span<const VistPresentRow> vist_moment_rows() {
    return Moments;
}

std::span<const VistFieldRow, VistRecordFields> vist_field_rows() {
    return Fields;
}

std::span<const VistTotalRow, VistTotals> vist_total_rows() {
    return Totals;
}

std::uint32_t vist_status_word(const std::array<std::uint8_t, 4>& status, bool for_archive) {
    std::uint32_t word = 0;
    for (const StatusBit& bit : StatusBits) {
        if (bit.archive_only && !for_archive) continue;
        if ((status.at(bit.byte) & bit.mask) != 0) word |= bit.shown;
    }
    return word;
}

std::int64_t vist_recorded_number(std::uint32_t serial, unsigned device, std::time_t record_time, std::size_t field) {
    constexpr std::int64_t LowestTemperature[] = {900, 500, 100, 50};
    constexpr std::int64_t LowestPressure[] = {60, 40, 20};
    constexpr std::int64_t HoursPerDay = 24;
    const std::int64_t hours = hours_since_2000(record_time);
    const std::int64_t hour_of_day = hours % HoursPerDay;
    const auto k = static_cast<std::int64_t>(field);
    const std::int64_t mixed = hours * 7 + serial % 1000 + device * 29LL;
    if (field == 0) return 100 - mixed % 10;
    if (field <= 6) return 1000 * k + mixed % 1000;
    if (field == 9 && hour_of_day == 5) return 6000;
    if (field <= 10) return LowestTemperature[field - 7] + mixed % 64;
    if (field == 12 && hour_of_day == 7) return 0;
    if (field <= 13) return LowestPressure[field - 11] + mixed % 16;
    if (field == 14) return mixed % 2000 - 500;
    if (field == VistStatusField) return hour_of_day == 3 ? 0x40000821 : 0;
    if (field <= 19) return 10 * (k - 15) + mixed % 10;
    return field == 20 ? 0x030201 : 0x44;
}

std::int64_t vist_recorded_total(std::uint32_t serial, unsigned device, std::time_t header_time, std::size_t total) {
    const std::int64_t rate = total + 1 < VistTotals ? static_cast<std::int64_t>(total) + 1 : 1'000'003;
    return hours_since_2000(header_time) * rate + serial % 1000 * 8LL + device * 3LL;
}

}  // namespace sim
