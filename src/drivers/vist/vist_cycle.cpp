// When the meter is polled and in which order its data are read.

#include <algorithm>

#include "core/gateway.h"
#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int BufferCapacity = 80;
constexpr int CheckLead = 3000;  // the first archive pass comes 600 seconds after start
constexpr double LagLimit = 14400.0;

}  // namespace

HCD_VIST::HCD_VIST(const std::string& meter)
    : log(open_meter_log(meter, "txt")), buffers(BufferCapacity, log.get()), functions(this) {
    uuid = meter;
    archives_ok.fill(true);
    last_hour_update.fill(gateway().now() - CheckLead);
    setConnected(false, uuid);
}

std::string HCD_VIST::get_log_name() {
    return format_cut(256, "%s(%s)", "VIST", sub_name.c_str());
}

bool HCD_VIST::is_all_archives_ok() {
    log_line(log.get(), "Start is_all_archives_ok");
    return std::all_of(archives_ok.begin(), archives_ok.begin() + std::max(virtdev_cnt, 0),
                       [](bool caught_up) { return caught_up; });
}

void HCD_VIST::run_main() {
    log_line(log.get(), "vist_run_main, uuid = ", uuid);
    log_line(log.get(), "dev: ", port_name, ", tty_fd = ", tty_fd, ", tc_baud = ", tc_baud,
             ", tc_parity = ", tc_parity);
    vist_cycle();
}

void HCD_VIST::vist_cycle() {
    FlushCurrentValues();
    if (virtdev_cnt == -1) {
        log_line(log.get(), "EXIT");
        return;
    }
    for (selected_subsystem = 0; selected_subsystem < virtdev_cnt; ++selected_subsystem) {
        publish_item("_DriverStatus", int{StatusIterationOver});
        if (need_update_archives(selected_subsystem)) {
            log_line(log.get(), "Runnig archives for subsystem ", selected_subsystem, ", stopping EXT DS");
            if (get_archives(selected_subsystem)) copy_staged(selected_subsystem + 1, "tc_tmp_archives");
        }
        compare_archive_times();
    }
    // Behind the last device: the end of the run shows in the directory after the meter's own.
    publish_item("_DriverStatus", int{StatusIterationOver});
}

void HCD_VIST::compare_archive_times() {
    const auto s = static_cast<std::size_t>(selected_subsystem);
    const std::time_t data = last_request_archive_data[s];
    archives_ok[s] = std::difftime(last_mdatetime, data) <= LagLimit;
    if (archives_ok[s]) {
        log_line(log.get(), "Actual Archives = TRUE;");
    } else {
        log_line(log.get(), "Actual Archives = FALSE; Difftime( MDateTime(", last_mdatetime, "), last request Hour(",
                 data, ")) > 4 hour");
    }
}
