// When the meter is polled and in which order its data are read.

#include <algorithm>

#include "core/gateway.h"
#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int BufferCapacity = 80;
constexpr int BufferBytes = 300;
constexpr double LagLimit = 14400.0;

}  // namespace

HCD_VIST::Carried::Carried(UniLog* log) : buffers(BufferCapacity, log) {
    for (const char* name : {"@tempbuff", "@intbuff", "@mombuff", "@archheader"}) {
        buffers.CreateBuffer(name, BufferBytes);
    }
}

HCD_VIST::HCD_VIST(const std::string& meter)
    : log(open_meter_log(meter, "txt")),
      carried(log.get()),
      functions(this, log.get(),
                {.exchange = [this](Bytes command, ExchangeAnswer& answer,
                                    int most) { send_receive_locked(command, answer, most); },
                 .set_busy = [this](int flag) { set_busy(flag); },
                 .set_connected = [this](bool flag) { setConnected(flag, get_uuid()); }}) {
    uuid = meter;
    const std::time_t now = gateway().now();
    for (VISTProgress& device : devices) device.wait_from(now);
    setConnected(false, uuid);
}

VISTReply HCD_VIST::ask(std::span<const VISTRequest> rows, Buffer buffer, int rec_count) {
    // The configured serial number is the meter's network number.
    return functions.do_request(rows, {.device_num = static_cast<int>(tc_sernum),
                                       .virtdev_num = selected_subsystem,
                                       .virtdev_cnt = carried.virtdev_cnt,
                                       .current_buffer = packet(buffer),
                                       .rec_count = rec_count});
}

std::string HCD_VIST::get_log_name() {
    return format_cut(256, "%s(%s)", "VIST", carried.sub_name.c_str());
}

bool HCD_VIST::is_all_archives_ok() {
    log_line(log.get(), "Start is_all_archives_ok");
    return std::all_of(devices.begin(), devices.begin() + std::max(carried.virtdev_cnt, 0),
                       [](const VISTProgress& device) { return device.archives_ok; });
}

void HCD_VIST::run_main() {
    log_line(log.get(), "vist_run_main, uuid = ", uuid);
    log_line(log.get(), "dev: ", port_name, ", tty_fd = ", tty_fd, ", tc_baud = ", tc_baud,
             ", tc_parity = ", tc_parity);
    vist_cycle();
}

void HCD_VIST::vist_cycle() {
    FlushCurrentValues();
    if (carried.virtdev_cnt == -1) {
        log_line(log.get(), "EXIT");
        return;
    }
    for (selected_subsystem = 0; selected_subsystem < carried.virtdev_cnt; ++selected_subsystem) {
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
    const std::time_t data = progress().last_request_archive_data;
    const bool caught_up = std::difftime(carried.last_mdatetime, data) <= LagLimit;
    progress().archives_ok = caught_up;
    if (caught_up) {
        log_line(log.get(), "Actual Archives = TRUE;");
    } else {
        log_line(log.get(), "Actual Archives = FALSE; Difftime( MDateTime(", carried.last_mdatetime,
                 "), last request Hour(", data, ")) > 4 hour");
    }
}
