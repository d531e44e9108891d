// Who the meter is and how its virtual devices are set up.

#include <array>
#include <cstdlib>

#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int LowestServedVersion = 101;
constexpr int VdsRecordBytes = 151;
constexpr int ConfigBytes = 26;
constexpr std::size_t NameLimit = 20;
constexpr std::size_t FirmwareBytes = 64;
constexpr std::size_t ModelBytes = 128;
constexpr std::size_t TextsEnd = 300;  // no text of the meter's specials goes past this byte of the packet
constexpr std::uint32_t WeightedBit = 0x2000000;

// Offsets in the body of a virtual device's record.
constexpr std::size_t VdsType = 12;
constexpr std::size_t FirstChannel = 16;
constexpr std::size_t ChannelBytes = 33;
constexpr std::size_t Pt4 = 115;
constexpr std::size_t TemperatureDifference = 116;
constexpr std::size_t QPoint = 118;
constexpr std::size_t ReservedTwice = 131;  // "reserved", but its first two bytes are indices of the formulas
constexpr std::size_t ActiveErrors = 147;

// Offsets in a channel's block.
constexpr std::size_t UpperLimit = 5;
constexpr std::size_t LimitScale = 9;
constexpr std::size_t LowerLimit = 19;

constexpr std::size_t FirstDn = 12;  // in the body of the configuration

constexpr double ScaleDivisors[] = {1.0, 10.0, 100.0, 1000.0, 10000.0, 100000.0, 1000000.0};

std::int32_t take_be_i32(PacketBuffer body, std::size_t at) {
    swap_bytes(body, at, 4);
    return static_cast<std::int32_t>(le_u32(body, at));
}

}  // namespace

bool HCD_VIST::get_description() {
    selected_subsystem = 0;
    functions.vdn_num.device_num = static_cast<int>(tc_sernum);
    functions.vdn_num.virtdev_num = 0;
    const int network_number = functions.vdn_num.device_num;
    if (network_number == -1 || functions.vdn_num.virtdev_num == -1) {
        log_line(log.get(), "num.device_num = ", network_number, ", num.virtdev_num = ", functions.vdn_num.virtdev_num);
        return false;
    }
    log_line(log.get(), "Try to get description of TC VIST ", network_number, " ", functions.vdn_num.virtdev_num);

    // The two failure texts are crossed, and readers of these logs know them so.
    log_line(log.get(), "Try to get software version...");
    if (!functions.do_request(reqDevCRC)) {
        log_line(log.get(), "Try to get virtual device count for TC VIST FAIL");
        return false;
    }
    sw_version = functions.ret_int;
    log_line(log.get(), "VIST SW version: ", sw_version);
    if (sw_version < LowestServedVersion) {
        log_line(log.get(), "WARNING! Unsupported version!");
        return false;
    }

    log_line(log.get(), "Try to get virtual device count for TC VIST ", network_number);
    functions.current_buffer = -1;
    if (!functions.do_request(reqVirtDevCount)) {
        log_line(log.get(), "Try to get software version FAIL");
        return false;
    }
    virtdev_cnt = functions.ret_int;
    log_line(log.get(), "VIST virtual devices count: ", virtdev_cnt);
    if (virtdev_cnt > MaxVirtualDevices) {
        log_line(log.get(), "Only the first ", MaxVirtualDevices, " virtual devices are served.");
        virtdev_cnt = MaxVirtualDevices;
    }

    functions.current_buffer = functions.tempbuff;
    if (!take_device_specials()) return false;
    if (!functions.do_request(reqMomentG)) return true;
    flush_values(false, functions.tempbuff);  // for its byte order, which the device records share

    bool ok = true;
    for (selected_subsystem = 0; ok && selected_subsystem < virtdev_cnt; ++selected_subsystem) {
        ok = describe_virtual_device();
    }
    return ok;
}

bool HCD_VIST::take_device_specials() {
    log_line(log.get(), "Try to get device serial");
    if (!functions.do_request(reqDevSpecials)) {
        log_line(log.get(), "Try to get device serial FAIL");
        return false;
    }
    // Three texts, one behind the other; the first has at least one character.
    const PacketBuffer specials = packet(functions.tempbuff).first(TextsEnd);
    const auto end_of_text = [specials](std::size_t at) {
        while (at < specials.size() && specials[at] != 0) ++at;
        return at;
    };
    const std::size_t second = end_of_text(PacketBodyAt + 1) + 1;
    const std::size_t third = end_of_text(second) + 1;
    dev_serial = std::atoi(text_at(specials, third, TextsEnd).c_str());
    const bool ok = check_serial(static_cast<std::uint32_t>(dev_serial));
    model = cut(utf8_of_cp1251(text_at(specials, second, TextsEnd)), ModelBytes - 1);
    firmware = cut(text_at(specials, PacketBodyAt, TextsEnd), FirmwareBytes - 1);
    if (!ok) log_line(log.get(), "WARNING! Fail while compare serial numbers! Check device!");
    log_line(log.get(), "Try to get virtual device #", selected_subsystem, " name for TC VIST ",
             functions.vdn_num.device_num);
    return ok;
}

bool HCD_VIST::describe_virtual_device() {
    if (!functions.do_request(reqVirtDevSpecials)) {
        log_line(log.get(), "Try to get virtual device #", selected_subsystem, " FAIL");
        return false;
    }
    read_virtdev_specials(packet(functions.tempbuff).subspan(PacketBodyAt));
    if (!functions.do_request(reqVirtDevConfig)) {
        log_line(log.get(), "Try to get virtual device #", selected_subsystem, " configuration FAIL");
        return false;
    }
    read_virtdev_config(packet(functions.tempbuff).subspan(PacketBodyAt));
    return true;
}

void HCD_VIST::read_virtdev_specials(PacketBuffer body) {
    log->dump_packet(part_of(body, 0, VdsRecordBytes));
    log_line(log.get(), "VDS TYPE before bytes swap: ", static_cast<unsigned>(le_u32(body, VdsType)));
    swap_bytes(body, VdsType, 4);
    log_line(log.get(), "VDS TYPE after bytes swap: ", static_cast<unsigned>(le_u32(body, VdsType)));
    const bool weighted = (le_u32(body, VdsType) & WeightedBit) != 0;

    sub_name = utf8_of_cp1251(text_at(body, 0, NameLimit));
    log_line(log.get(), "HC OPC name of virtual device: ", sub_name);
    publish_item("_HMsystem", sub_name);

    if (fSwap) swap_bytes(body, TemperatureDifference, 2);
    for (int channel = 0; channel < 3; ++channel) publish_channel(body, channel);
    publish_formula(body, weighted);
    log_line(log.get(), "pvds->dT = ", int{static_cast<std::int16_t>(le_u16(body, TemperatureDifference))},
             ", pvds->qpoint = ", int{u8_at(body, QPoint)}, ", pvds->pt4 = ", int{u8_at(body, Pt4)});
}

void HCD_VIST::publish_channel(PacketBuffer body, int channel) {
    const std::size_t block = FirstChannel + ChannelBytes * static_cast<std::size_t>(channel);
    const std::int32_t upper = take_be_i32(body, block + UpperLimit);
    const std::int32_t lower = take_be_i32(body, block + LowerLimit);
    const std::uint8_t scale = u8_at(body, block + LimitScale);
    if (scale >= std::size(ScaleDivisors)) {
        log_line(log.get(), "Scale of channel limits is out of range: ", int{scale});
        return;
    }
    auto& [min, max] = channel_limits[static_cast<std::size_t>(channel)];
    min = lower / ScaleDivisors[scale];
    max = upper / ScaleDivisors[scale];
    publish_item(format_cut(16, "M%dmin", channel + 1), min);
    publish_item(format_cut(16, "M%dmax", channel + 1), max);
}

void HCD_VIST::publish_formula(PacketBuffer body, bool weighted) {
    const auto field = [body](std::size_t at) { return int{u8_at(body, at)}; };
    log_line(log.get(), "FORMULA: fQ = ", field(vds::fQ), ", iG1 = ", field(vds::iG1), ", iT1 = ", field(vds::iT1),
             ", iT2 = ", field(vds::iT2), ", iG2 = ", field(vds::iG2), ", iT3 = ", field(vds::iT3),
             ", fDV = ", field(125), ", iDV1 = ", field(126), ", iDV2 = ", field(127), ", fDG = ", field(128),
             ", iDG1 = ", field(129), ", iDG2 = ", field(130));
    std::string reserved;
    for (std::size_t at = ReservedTwice; at < ActiveErrors; ++at) reserved += std::to_string(field(at)) + " ";
    log_line(log.get(), "Reserver[16] ", reserved);
    log_line(log.get(), "activeErrors = ", static_cast<unsigned>(le_u32(body, ActiveErrors)));

    const std::string formula = heat_formula(body, 'H');
    log_line(log.get(), "Formula: ", formula);
    if (formula.empty()) return;
    publish_item("_WeightedValue", weighted && is_first_channel_formula(body) ? 1 : 0);
    publish_item("_Formula", formula);
}

void HCD_VIST::read_virtdev_config(PacketBuffer body) {
    log_line(log.get(), "Read Config");
    log->dump_packet(part_of(body, 0, ConfigBytes));
    for (int n = 1; n <= 3; ++n) {
        const std::size_t at = FirstDn + 2 * static_cast<std::size_t>(n - 1);
        swap_bytes(body, at, 2);
        const int value = static_cast<std::int16_t>(le_u16(body, at));
        log_line(log.get(), "Write: DN", n, " = ", value);
        publish_item(format_cut(16, "DN%d", n), value);
    }
}
