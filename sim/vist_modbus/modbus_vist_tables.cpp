// What stands where in a VIST meter that speaks Modbus, and what it comes up with by itself.

#include "modbus_vist_memory.h"

namespace sim {

namespace {

constexpr std::int64_t Year2000 = 946684800;
constexpr std::int64_t SecondsPerHour = 3600;

constexpr ModbusVistValueRow Values[] = {
    // name, address, registers, when unset, per second
    {"GP1", 514, 1, 3, 0},     // decimals of Q1 and M1
    {"GP2", 515, 1, 3, 0},     // of Q2 and M2
    {"GP3", 516, 1, 3, 0},     // of Q3 and M3
    {"GP4", 517, 1, 6, 0},     // of the power
    {"T1", 518, 1, 9550, 0},   // 0.01 degrees
    {"T2", 519, 1, 6025, 0},   //
    {"T3", 520, 1, 1050, 0},   //
    {"T4", 521, 1, 725, 0},    //
    {"P1", 546, 1, 61, 0},     // 0.1 at
    {"P2", 547, 1, 42, 0},     //
    {"P3", 548, 1, 23, 0},     //
    {"Q1", 774, 2, 12500, 0},  // m3/h
    {"Q2", 776, 2, 11250, 0},  //
    {"Q3", 778, 2, 1375, 0},   //
    {"M1", 786, 2, 12125, 0},  // t/h
    {"M2", 788, 2, 11000, 0},  //
    {"M3", 790, 2, 1250, 0},   //
    {"MV1", 1026, 1, 2, 0},    // decimals of volume and mass
    {"MV2", 1027, 1, 1, 0},    //
    {"MV3", 1028, 1, 3, 0},    //
    {"MV4", 1029, 1, 4, 0},    // of energy
    {"V1", 1042, 2, 0, 12},    // volume of the current hour, 1/3600 m3
    {"V2", 1044, 2, 0, 11},    //
    {"V3", 1046, 2, 0, 2},     //
    {"G1", 1048, 2, 0, 12},    // mass of the current hour, 1/3600 t
    {"G2", 1050, 2, 0, 10},    //
    {"G3", 1052, 2, 0, 1},     //
    {"E1", 1076, 2, 0, 3},     // energy of the current hour, 1/1200 Gcal
    {"t1", 1078, 1, 0, 1},     // seconds worked in the current hour
};

constexpr ModbusVistFieldRow Fields[VistRecordFields] = {
    // file, width, which precision, power, signed; mask bit at the end of the row
    {"A3", 1, -1, 2, false},   // 0   hours worked
    {"A5", 4, 0, 0, true},     // 1   volumes
    {"A7", 4, 1, 0, true},     // 2
    {"A9", 4, 2, 0, true},     // 3
    {"A11", 4, 0, 0, true},    // 4   masses
    {"A13", 4, 1, 0, true},    // 5
    {"A15", 4, 2, 0, true},    // 6
    {"A20", 2, -1, 1, true},   // 7   temperatures
    {"A21", 2, -1, 1, true},   // 8
    {"A22", 2, -1, 1, true},   // 9
    {"T4", 2, -1, 1, true},    // 10
    {"A17", 1, -1, 1, false},  // 11  pressures
    {"A18", 1, -1, 1, false},  // 12
    {"A19", 1, -1, 1, false},  // 13
    {"A2", 4, 3, 0, true},     // 14  energy
    {"A28", 4, -1, 0, false},  // 15  status
    {"A25", 1, -1, 2, false},  // 16  shares of the hour
    {"A26", 1, -1, 2, false},  // 17
    {"A24", 1, -1, 2, false},  // 18
    {"A23", 1, -1, 2, false},  // 19
    {"", 3, -1, 0, false},     // 20
    {"", 1, -1, 0, false},     // 21
    {"A27", 1, -1, 2, false},  // 22
};

constexpr ModbusVistTotalRow Totals[VistTotals] = {
    // file, mask bit, always, which precision, power
    {"A6", 1, true, 0, 0},    // volume 1
    {"A8", 2, true, 1, 0},    // volume 2
    {"A10", 3, true, 2, 0},   // volume 3
    {"A12", 4, false, 0, 0},  // mass 1
    {"A14", 5, false, 1, 0},  // mass 2
    {"A16", 6, false, 2, 0},  // mass 3
    {"A4", 0, false, -1, 2},  // hours worked
    {"A1", 14, false, 3, 0},  // energy
};

struct StatusBit {
    unsigned bit;
    std::uint32_t shown;
};

constexpr StatusBit StatusBits[] = {
    {0, 0x00000002},  {1, 0x00000004},  {2, 0x00000008},  {3, 0x00000010},  {4, 0x00000020},  {5, 0x00000040},
    {6, 0x00000080},  {7, 0x00000100},  {8, 0x00020000},  {9, 0x00040000},  {10, 0x00080000}, {11, 0x00200000},
    {12, 0x00400000}, {13, 0x00100000}, {14, 0x00800000}, {15, 0x01000000}, {24, 0x00000200}, {25, 0x00004000},
    {26, 0x00000800}, {30, 0x00004000}, {31, 0x00008000},
};

std::int64_t hours_since_2000(std::time_t time) {
    return (static_cast<std::int64_t>(time) - Year2000) / SecondsPerHour;
}

}  // namespace

std::span<const ModbusVistValueRow> modbus_vist_value_rows() {
    return Values;
}

std::span<const ModbusVistFieldRow, VistRecordFields> modbus_vist_field_rows() {
    return Fields;
}

std::span<const ModbusVistTotalRow, VistTotals> modbus_vist_total_rows() {
    return Totals;
}

std::uint32_t modbus_vist_status(std::uint32_t word) {
    std::uint32_t shown = 0;
    for (const StatusBit& row : StatusBits) {
        if ((word >> row.bit & 1U) != 0) shown |= row.shown;
    }
    return shown;
}

std::int64_t modbus_vist_recorded_number(std::uint32_t serial, unsigned system, std::time_t record_time,
                                         std::size_t field) {
    constexpr std::int64_t LowestTemperature[] = {900, 500, 100, -30};
    constexpr std::int64_t LowestPressure[] = {60, 40, 20};
    constexpr std::int64_t HoursPerDay = 24;
    constexpr std::int64_t BrokenSensor = -1000;
    const std::int64_t hours = hours_since_2000(record_time);
    const std::int64_t hour_of_day = hours % HoursPerDay;
    const auto k = static_cast<std::int64_t>(field);
    const std::int64_t mixed = hours * 7 + serial % 1000 + system * 29LL;
    if (field == 0) return 100 - mixed % 10;
    if (field <= 6) return 1000 * k + mixed % 1000;
    if (field == 9 && hour_of_day == 5) return BrokenSensor;
    if (field <= 10) return LowestTemperature[field - 7] + mixed % 64;
    if (field <= 13) return LowestPressure[field - 11] + mixed % 16;
    if (field == 14) return mixed % 2000 - 500;
    if (field == ModbusVistStatusField) return hour_of_day == 3 ? 0x42000821 : 0;
    if (field <= 19) return 10 * (k - 15) + mixed % 10;
    if (field == 20) return 0x030201;
    return field == 21 ? 0x44 : 50 + mixed % 10;
}

std::uint64_t modbus_vist_recorded_total(std::uint32_t serial, unsigned system, std::time_t header_time,
                                         std::size_t total) {
    const std::uint64_t rate = total + 1 < VistTotals ? total + 1 : 1'000'003;
    const auto hours = static_cast<std::uint64_t>(hours_since_2000(header_time));
    return hours * rate + serial % 1000 * 8ULL + system * 3ULL;
}

}  // namespace sim
