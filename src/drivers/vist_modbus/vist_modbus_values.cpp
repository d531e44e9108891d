// Register blocks into items. Nothing here can fail: data that make no sense are published as they are.

#include <cstdlib>

#include "core/local_time.h"
#include "core/text.h"
#include "drivers/vist/vist_packet.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"
#include "drivers/vist_modbus/modbus_frame.h"

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

struct StatusBit {
    int bit;
    std::uint32_t status;
};

constexpr StatusBit StatusBits[] = {
    {0, 0x2},       {1, 0x4},        {2, 0x8},     {3, 0x10},     {4, 0x20},      {5, 0x40},      {6, 0x80},
    {7, 0x100},     {8, 0x20000},    {9, 0x40000}, {10, 0x80000}, {11, 0x200000}, {12, 0x400000}, {13, 0x100000},
    {14, 0x800000}, {15, 0x1000000}, {24, 0x200},  {25, 0x4000},  {26, 0x800},    {30, 0x4000},   {31, 0x8000},
};

/// Text up to its zero byte.
std::string text_from(Bytes data, std::size_t at) {
    return text_at(data, at, data.size());
}

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

void HCD_VISTmodbus::process_main_config(Bytes data, const ModbusRequest& /*row*/) {
    publish_item("_DriverStatus", int{StatusDescription});
    const std::string firmware = text_from(data, FirmwareAt);
    const std::string serial = text_from(data, SerialAt);
    const int systems = u8_at(data, SystemsCountAt);
    log_line(log.get(), "Processing main config...");
    log_line(log.get(), "PO_ver: ", firmware);
    log_line(log.get(), "Name: ", text_from(data, NameAt));
    log_line(log.get(), "Serial_num: ", serial);
    log_line(log.get(), "Systems_count: ", systems);
    virtdev_count = systems;
    if (virtdev_count > HeatSystems) {
        log_line(log.get(), "Only the first ", int{HeatSystems}, " heat systems are served.");
        virtdev_count = HeatSystems;
    }
    publish_item("Firmware", firmware);
    publish_item("SerialNumber", serial);
    // The first two bytes of the name give way to "TC", whatever they are.
    put_item("VIST-TC" + text_from(data, NameAt + 2), uuid, "MeterModel", log.get(), 1);
    dev_serial = static_cast<int>(std::strtol(serial.c_str(), nullptr, 10));
    publish_tubes(data);
}

void HCD_VISTmodbus::publish_tubes(Bytes data) {
    const std::size_t base = TubesAt[selected_subsystem];
    for (int i = 0; i < 3; ++i) {
        const auto field = [&](std::size_t from) {
            return int{read_u16(data, base + from + 2 * static_cast<std::size_t>(i))};
        };
        log_line(log.get(), "DU: ", field(Diameters), " for system ", selected_subsystem);
        log_line(log.get(), "temper: ", field(TemperatureSettings));
        log_line(log.get(), "press: ", field(PressureSettings));
        publish_item(format_cut(16, "DN%d", i + 1), field(Diameters));
    }
}

void HCD_VISTmodbus::process_tc_specs(Bytes data, const ModbusRequest& /*row*/) {
    const std::uint32_t parameters = read_u32(data, ParametersAt);
    log_line(log.get(), "Processing tc specs...");
    log_line(log.get(), "System params: ", parameters);
    sub_name = utf8_of_cp1251(text_at(data, 0, NameLimit));
    log_line(log.get(), "System name: ", sub_name);
    publish_item("_HMsystem", sub_name);
    publish_formula(data, (parameters & WeightedBit) != 0);
    find_sensors(parameters);
    take_flow_limits(data);

    const std::uint32_t errors = read_u32(data, ErrorsAt);
    const std::uint32_t converted = convert_status(errors);
    log_line(log.get(), "Errors: ", errors);
    // A long of the gateway has 32 bits.
    pending_longs.emplace_back("ER", static_cast<std::int32_t>(converted));
    pending_longs.emplace_back("EG", static_cast<std::int32_t>(errors));
    pending_longs.emplace_back("SC", (converted & NotCounting) != 0 ? 0 : 1);
}

void HCD_VISTmodbus::publish_formula(Bytes data, bool weighted) {
    const auto field = [data](std::size_t at) { return int{u8_at(data, at)}; };
    log_line(log.get(), "fQ = ", field(vds::fQ));
    log_line(log.get(), "iG1 = ", field(vds::iG1));
    log_line(log.get(), "iG2 = ", field(vds::iG2));
    log_line(log.get(), "iG3 = ", field(vds::iG3));
    log_line(log.get(), "iT1 = ", field(vds::iT1));
    log_line(log.get(), "iT2 = ", field(vds::iT2));
    log_line(log.get(), "iT3 = ", field(vds::iT3));
    log_line(log.get(), "iT4 = ", field(vds::iT4));
    const std::string formula = heat_formula(data, 'T');
    log_line(log.get(), "Formula: ", formula);
    if (formula.empty()) return;
    publish_item("_WeightedValue", weighted && is_first_channel_formula(data) ? 1 : 0);
    publish_item("_Formula", formula);
}

void HCD_VISTmodbus::find_sensors(std::uint32_t parameters) {
    constexpr char Letters[] = {'Q', 'G', 'T', 'T', 'P', 'P', 0, 0};  // of each channel's eight bits
    for (int n = 0; n < 24; ++n) {
        if ((parameters >> n & 1) == 0) continue;
        const auto channel = static_cast<std::size_t>(n / 8);
        if (Letters[n % 8] == 'T') {
            log_line(log.get(), "Found temperature T", n / 8, "...");
            found_T[channel] = true;
        } else if (Letters[n % 8] == 'P') {
            log_line(log.get(), "Found pressure p", n / 8, "...");
            found_P[channel] = true;
        }
    }
}

void HCD_VISTmodbus::take_flow_limits(Bytes data) {
    for (int i = 0; i < 2; ++i) {
        const std::size_t channel = ChannelAt[i];
        const double upper = scale_down(read_u32(data, channel + UpperLimit), u8_at(data, channel + UpperExponent));
        pending_values.emplace_back(format_cut(16, "M%dmax", i + 1), upper);
        const double lower = upper / read_u16(data, channel + LowerDivisor);
        pending_values.emplace_back(format_cut(16, "M%dmin", i + 1), lower);
    }
}

void HCD_VISTmodbus::process_datetime(Bytes data, const ModbusRequest& /*row*/) {
    publish_item("_DriverStatus", int{StatusCurrentValues});
    std::tm clock = packet_time(data, 0);
    log_line(log.get(), "Current VIST date/time: ", date_text(clock));
    mdatetime = make_time(clock);
    pending_longs.emplace_back("MDateTime", mdatetime);
}

void HCD_VISTmodbus::process_array16(Bytes data, const ModbusRequest& row) {
    log_line(log.get(), "Processing 16 bit array (", std::string(1, row.kind), ")...");
    // Always four steps: behind a block of three stands the zeroed rest of the area, and its fourth value exists.
    for (std::size_t i = 0; i < 4; ++i) {
        const std::uint16_t w = read_u16(data, 2 * i);
        const auto name = [&] { return format_cut(16, "%c%d", row.kind, static_cast<int>(i) + 1); };
        switch (row.kind) {
            case 'T':
                pending_values.emplace_back(name(), w / 100.0);
                break;
            case 'P':
                pending_values.emplace_back(name(), w / 10.0);
                break;
            case '0':
                pointsGP[i] = w;
                log_line(log.get(), "Cashing pointsGP", static_cast<int>(i), ": ", int{w});
                break;
            case '1':
                log_line(log.get(), "Process MV pack ", static_cast<int>(i));
                pointsMV[i] = w;
                log_line(log.get(), "Cashing pointsMV", static_cast<int>(i), ": ", int{w});
                break;
            default:
                break;
        }
    }
}

void HCD_VISTmodbus::process_array32(Bytes data, const ModbusRequest& row) {
    log_line(log.get(), "Processing 32 bit array (", std::string(1, row.kind), ")...");
    for (std::size_t i = 0; i < 3; ++i) {
        const int number = static_cast<int>(i) + 1;
        const double r = read_u32(data, 4 * i);
        switch (row.kind) {
            case 'Q':
                pending_values.emplace_back(format_cut(16, "Q%d", number), scale_down(r, pointsGP[i]));
                break;
            case 'M':
                if (hasM[i]) pending_values.emplace_back(format_cut(16, "M%d", number), scale_down(r, pointsGP[i]));
                break;
            case 'V':
                dV[i] = static_cast<int>(r / SecondsOfHour);
                log_line(log.get(), "Cashing dV", static_cast<int>(i), ": ", dV[i]);
                pending_values.emplace_back(format_cut(16, "IQ%d", number), dV[i]);
                break;
            case 'G':
                dM[i] = static_cast<int>(r / SecondsOfHour);
                log_line(log.get(), "Cashing dM", static_cast<int>(i), ": ", dM[i]);
                pending_values.emplace_back(format_cut(16, "IM%d", number), dM[i]);
                break;
            case 'E':
                if (i != 0) break;
                dEnergy = static_cast<int>(r / EnergyDivisor);
                log_line(log.get(), "Cashing dEnergy", ": ", dEnergy);
                pending_values.emplace_back("IE1", dEnergy);
                break;
            default:
                break;
        }
    }
}
