// When the meter is polled and in which order its data are read.

#include <algorithm>

#include "core/gateway.h"
#include "core/text.h"
#include "driver/flag_files.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"

namespace {

constexpr int CheckLead = 3000;  // the first archive pass comes 600 seconds after start
constexpr double LagLimit = 14400.0;

}  // namespace

HCD_VISTmodbus::HCD_VISTmodbus(const std::string& meter) : log(open_meter_log(meter, "txt")) {
    HCD_VISTmodbus::set_uuid(meter);
    archives_ok.fill(true);
    last_hour_update.fill(gateway().now() - CheckLead);
    resume_from_files();
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
    return format_cut(256, "%s(%s)", "VISTmodbus", sub_name.c_str());
}

bool HCD_VISTmodbus::is_all_archives_ok() {
    return std::all_of(archives_ok.begin(), archives_ok.begin() + virtdev_count,
                       [](bool caught_up) { return caught_up; });
}

void HCD_VISTmodbus::run_main() {
    log_line(log.get(), "In run_main...");
    virtdev_count = HeatSystems;
    for (int s = 0; s < virtdev_count; ++s) read_system(s);  // the count may change on the way
    log_line(log.get(), "VIST modbus run_main done.");
}

void HCD_VISTmodbus::read_system(int system) {
    selected_subsystem = system;
    publish_item("_DriverStatus", int{StatusIterationBegun});
    log_line(log.get(), "Start reading ", system, " heat_system");
    log_line(log.get(), "Virtdev count = ", virtdev_count);
    request_batch(tty_fd, reqSpecs, system, true);
    log_line(log.get(), "Requesting main data pack...");
    request_batch(tty_fd, reqValues, system, true);
    publish_pending();
    read_archive_if_due(system);
    compare_archive_times();
    publish_item("_DriverStatus", int{StatusIterationOver});
}

void HCD_VISTmodbus::publish_pending() {
    const auto publish_all = [this](auto& pending) {
        for (const auto& [name, value] : pending) {
            log_line(log.get(), name, " == ", value);
            publish_item(name, value);
        }
        pending.clear();
    };
    publish_all(pending_values);
    publish_all(pending_longs);
}

void HCD_VISTmodbus::read_archive_if_due(int system) {
    if (!need_update_archives(system)) return;
    FlagFiles::instance().set(uuid, FlagFiles::DriverLock);
    log_line(log.get(), "Start read archives");
    if (get_archive()) {
        copy_staged(system + 1, "tc_tmp_archives");
        last_hour_update[static_cast<std::size_t>(system)] = gateway().now();
    }
    FlagFiles::instance().clear(uuid, FlagFiles::DriverLock);
}

void HCD_VISTmodbus::compare_archive_times() {
    const auto s = static_cast<std::size_t>(selected_subsystem);
    archives_ok[s] = std::difftime(mdatetime, last_request_date[s]) <= LagLimit;
    log_line(log.get(), archives_ok[s] ? "Archives are actual: difftime(MDateTime, last_request_hour) < 4 hour"
                                       : "Difftime( MDateTime, last request Hour) > 4 hour");
}
