// Who the meter is and how its virtual devices are set up.

#include <algorithm>

#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int ConfigBytes = 26;

// Offsets in the body of a virtual device's record, of fields that are only told in the log.
constexpr std::size_t Pt4 = 115;
constexpr std::size_t QPoint = 118;

}  // namespace

bool HCD_VIST::get_description() {
    selected_subsystem = 0;
    const int network_number = static_cast<int>(tc_sernum);
    if (network_number == -1) {
        log_line(log.get(), "num.device_num = ", network_number, ", num.virtdev_num = ", selected_subsystem);
        return false;
    }
    log_line(log.get(), "Try to get description of TC VIST ", network_number, " ", selected_subsystem);

    // The two failure texts are crossed, and readers of these logs know them so.
    log_line(log.get(), "Try to get software version...");
    const VISTReply version = ask(vist::reqDevCRC);
    if (!version) {
        log_line(log.get(), "Try to get virtual device count for TC VIST FAIL");
        return false;
    }
    carried.sw_version = version.ret_int;
    log_line(log.get(), "VIST SW version: ", carried.sw_version);
    if (carried.sw_version < vist::LowestServedVersion) {
        log_line(log.get(), "WARNING! Unsupported version!");
        return false;
    }

    log_line(log.get(), "Try to get virtual device count for TC VIST ", network_number);
    const VISTReply count = ask(vist::reqVirtDevCount);
    if (!count) {
        log_line(log.get(), "Try to get software version FAIL");
        return false;
    }
    log_line(log.get(), "VIST virtual devices count: ", count.ret_int);
    if (count.ret_int > MaxVirtualDevices) {
        log_line(log.get(), "Only the first ", MaxVirtualDevices, " virtual devices are served.");
    }
    carried.virtdev_cnt = std::min(count.ret_int, MaxVirtualDevices);

    if (!take_device_specials()) return false;
    if (!ask(vist::reqMomentG, tempbuff)) return true;
    flush_values(false, tempbuff);  // for its byte order, which the device records share

    bool ok = true;
    for (selected_subsystem = 0; ok && selected_subsystem < carried.virtdev_cnt; ++selected_subsystem) {
        ok = describe_virtual_device();
    }
    return ok;
}

bool HCD_VIST::take_device_specials() {
    log_line(log.get(), "Try to get device serial");
    if (!ask(vist::reqDevSpecials, tempbuff)) {
        log_line(log.get(), "Try to get device serial FAIL");
        return false;
    }
    carried.specials = vist::decode_specials(packet(tempbuff));
    const bool ok = check_serial(static_cast<std::uint32_t>(carried.specials.dev_serial));
    if (!ok) log_line(log.get(), "WARNING! Fail while compare serial numbers! Check device!");
    log_line(log.get(), "Try to get virtual device #", selected_subsystem, " name for TC VIST ",
             static_cast<int>(tc_sernum));
    return ok;
}

bool HCD_VIST::describe_virtual_device() {
    if (!ask(vist::reqVirtDevSpecials, tempbuff)) {
        log_line(log.get(), "Try to get virtual device #", selected_subsystem, " FAIL");
        return false;
    }
    read_virtdev_specials(packet(tempbuff).subspan(PacketBodyAt));
    if (!ask(vist::reqVirtDevConfig, tempbuff)) {
        log_line(log.get(), "Try to get virtual device #", selected_subsystem, " configuration FAIL");
        return false;
    }
    read_virtdev_config(packet(tempbuff).subspan(PacketBodyAt));
    return true;
}

void HCD_VIST::read_virtdev_specials(PacketBuffer body) {
    log->dump_packet(part_of(body, 0, vist::VdsRecordBytes));
    log_line(log.get(), "VDS TYPE before bytes swap: ", static_cast<unsigned>(le_u32(body, vist::VdsType)));
    const vist::VirtualDevice device = vist::decode_virtual_device(body, carried.fSwap);
    log_line(log.get(), "VDS TYPE after bytes swap: ", static_cast<unsigned>(device.type));
    carried.sub_name = device.sub_name;
    log_line(log.get(), "HC OPC name of virtual device: ", device.sub_name);
    publish_item("_HMsystem", device.sub_name);

    for (int n = 1; n <= 3; ++n) {
        const vist::ChannelLimits& limits = device.channel_limits[static_cast<std::size_t>(n - 1)];
        if (!limits.range) {
            log_line(log.get(), "Scale of channel limits is out of range: ", int{limits.scale});
            continue;
        }
        const auto& [min, max] = *limits.range;
        publish_item(format_cut(16, "M%dmin", n), min);
        publish_item(format_cut(16, "M%dmax", n), max);
    }

    const auto field = [body](std::size_t at) { return int{u8_at(body, at)}; };
    log_line(log.get(), "FORMULA: fQ = ", field(vds::fQ), ", iG1 = ", field(vds::iG1), ", iT1 = ", field(vds::iT1),
             ", iT2 = ", field(vds::iT2), ", iG2 = ", field(vds::iG2), ", iT3 = ", field(vds::iT3),
             ", fDV = ", field(125), ", iDV1 = ", field(126), ", iDV2 = ", field(127), ", fDG = ", field(128),
             ", iDG1 = ", field(129), ", iDG2 = ", field(130));
    std::string reserved;
    for (std::size_t at = vist::VdsReserved; at < vist::VdsActiveErrors; ++at) {
        reserved += std::to_string(field(at)) + " ";
    }
    log_line(log.get(), "Reserver[16] ", reserved);
    log_line(log.get(), "activeErrors = ", static_cast<unsigned>(le_u32(body, vist::VdsActiveErrors)));
    log_line(log.get(), "Formula: ", device.formula);
    if (!device.formula.empty()) {
        publish_item("_WeightedValue", device.weighted ? 1 : 0);
        publish_item("_Formula", device.formula);
    }
    log_line(log.get(), "pvds->dT = ", device.dT, ", pvds->qpoint = ", field(QPoint), ", pvds->pt4 = ", field(Pt4));
}

void HCD_VIST::read_virtdev_config(PacketBuffer body) {
    log_line(log.get(), "Read Config");
    log->dump_packet(part_of(body, 0, ConfigBytes));
    int n = 0;
    for (const int diameter : vist::decode_config(body)) {
        log_line(log.get(), "Write: DN", ++n, " = ", diameter);
        publish_item(format_cut(16, "DN%d", n), diameter);
    }
}
