// When the meter is polled and in which order its data are read.

#include <algorithm>

#include "core/gateway.h"
#include "core/text.h"
#include "driver/flag_files.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"

using namespace vist_modbus;

namespace {

constexpr double LagLimit = 14400.0;

}  // namespace

HCD_VISTmodbus::HCD_VISTmodbus(const std::string& meter)
    : log(open_meter_log(meter, "txt")), link(log.get(), [this](bool works) { setConnected(works, uuid); }) {
    HCD_VISTmodbus::set_uuid(meter);
    progress.begin(*this, gateway().now());
    log_line(log.get(), "VISTmodbus", " creating.");
    log_line(log.get(), "creating");
}

void HCD_VISTmodbus::set_uuid(const std::string& meter) {
    uuid = meter;
    default_folder = format_cut(150, "%s/%s", meter.c_str(), "default");
}

void HCD_VISTmodbus::set_tty(int fd) {
    tty_fd = fd;
    log_line(log.get(), "VISTmodbus::set_tty, tty_fd = ", tty_fd);
}

std::string HCD_VISTmodbus::get_log_name() {
    return format_cut(256, "%s(%s)", "VISTmodbus", carried.sub_name.c_str());
}

bool HCD_VISTmodbus::is_all_archives_ok() {
    const auto begin = progress.archives_ok.begin();
    return std::all_of(begin, begin + carried.virtdev_count, [](bool caught_up) { return caught_up; });
}

ModbusLine HCD_VISTmodbus::line() const {
    return {.fd = tty_fd, .slave = static_cast<int>(tc_sernum), .use_pause_flag = use_pause_flag};
}

void HCD_VISTmodbus::run_main() {
    log_line(log.get(), "In run_main...");
    carried.virtdev_count = HeatSystems;
    for (int s = 0; s < carried.virtdev_count; ++s) read_system(s);  // the count may change on the way
    log_line(log.get(), "VIST modbus run_main done.");
}

void HCD_VISTmodbus::read_system(int system) {
    publish_item("_DriverStatus", int{StatusIterationBegun}, system);
    log_line(log.get(), "Start reading ", system, " heat_system");
    log_line(log.get(), "Virtdev count = ", carried.virtdev_count);
    Pending pending;
    const auto take = [&](const ModbusRequest& row, Bytes data) { process(row, data, system, pending); };
    link.request_batch(line(), reqSpecs, system, true, take);
    log_line(log.get(), "Requesting main data pack...");
    link.request_batch(line(), reqValues, system, true, take);
    publish(pending, system);
    read_archive_if_due(system);
    compare_archive_times(system);
    publish_item("_DriverStatus", int{StatusIterationOver}, system);
}

void HCD_VISTmodbus::process(const ModbusRequest& row, Bytes data, int system, Pending& pending) {
    switch (row.process) {
        case ModbusProcess::MainConfig:
            return process_main_config(data, system);
        case ModbusProcess::TcSpecs:
            return process_tc_specs(data, system, pending);
        case ModbusProcess::ArchiveSetup:
            return process_archive_specs(data, system);
        case ModbusProcess::DateTime:
            return process_datetime(data, system, pending);
        case ModbusProcess::Array16:
            return process_array16(data, row.kind, pending);
        case ModbusProcess::Array32:
            return process_array32(data, row.kind, pending);
        default:
            break;  // archive files are asked for one by one
    }
}

void HCD_VISTmodbus::publish(const Pending& pending, int system) {
    const auto publish_all = [&](const auto& items) {
        for (const auto& [name, value] : items) {
            log_line(log.get(), name, " == ", value);
            publish_item(name, value, system);
        }
    };
    publish_all(pending.pending_values);
    publish_all(pending.pending_longs);
}

void HCD_VISTmodbus::read_archive_if_due(int system) {
    if (!need_update_archives(system)) return;
    FlagFiles::instance().set(uuid, FlagFiles::DriverLock);
    log_line(log.get(), "Start read archives");
    if (get_archive(system)) {
        copy_staged(system + 1, "tc_tmp_archives");
        progress.last_hour_update[static_cast<std::size_t>(system)] = gateway().now();
    }
    FlagFiles::instance().clear(uuid, FlagFiles::DriverLock);
}

void HCD_VISTmodbus::compare_archive_times(int system) {
    const auto s = static_cast<std::size_t>(system);
    const bool caught_up = std::difftime(carried.mdatetime, progress.last_request_date[s]) <= LagLimit;
    progress.archives_ok[s] = caught_up;
    log_line(log.get(), caught_up ? "Archives are actual: difftime(MDateTime, last_request_hour) < 4 hour"
                                  : "Difftime( MDateTime, last request Hour) > 4 hour");
}
