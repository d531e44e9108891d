// When the meter is polled, in which order its data are read, and what is remembered from one pass to the next.

#include <algorithm>

#include "core/files.h"
#include "core/gateway.h"
#include "core/text.h"
#include "drivers/km5/km5.h"

namespace {

constexpr double HourBorderSeconds = 300.0;  // silence after a probe that met the hour change
constexpr std::size_t LogCommandBytes = 256;
constexpr std::size_t TraceCommandBytes = 128;

}  // namespace

KM5::KM5(const std::string& meter, bool km56i, bool must_be_att)
    : isATT_mustbe(must_be_att),
      messages_log(open_meter_log(meter, "messages.txt")),
      debug_log(open_meter_log(meter, "debug.txt")),
      general_log(open_meter_log(meter, "general.txt")),
      link(
          debug_log.get(),
          [this](Bytes tx, ExchangeAnswer& rx, int rx_max) { send_receive(tx, rx, rx_max, use_pause_flag); },
          [this](bool connected) { setConnected(connected, uuid); }) {
    uuid = meter;
    carried.meter.km56i_mode = km56i;
    log_both("KM5 driver creating.");
    progress.fill(KM5Progress(gateway().now()));
    log_both("Forming driver names for OPC.");
    for (int& s = carried.subsystem; s < MaxSubsystems; ++s) KM5::set_uuid(meter);
    carried.subsystem = 0;
    log_both("subsystem_count = ", subsystem_count);
}

void KM5::set_uuid(const std::string& meter) {
    uuid = meter;
    enter_state("Set uuid");
    const int s = carried.subsystem;
    KM5Progress& here = progress_here();
    here.load(*this, s + 1);
    log_line(general_log.get(), "last_request_HOUR[", s, "] = ", here.last_request_HOUR);
    log_line(general_log.get(), "last_request_DAY[", s, "] = ", here.last_request_DAY);
    log_line(general_log.get(), "last_request_ERROR[", s, "] = ", here.last_request_ERROR);
}

void KM5::set_tty(int fd) {
    log_both("KM5::set_tty, tty_fd = ", fd);
    tty_fd = fd;
}

int KM5::get_netaddr_from_config() {
    if (tc_sernum == 0) {
        log_line(debug_log.get(), "tc_tmp_sernum = 0, ERROR.");
        return -1;
    }
    KM5_netaddr& netaddr = carried.netaddr;
    int_to_bcd(netaddr.data(), tc_sernum, netaddr.size());
    if (carried.meter.km56i_mode) {
        log_line(debug_log.get(), "Its KM5-6i, select subsystem");
        netaddr[3] = static_cast<std::uint8_t>((netaddr[3] & 0xF0) | carried.subsystem);
    }
    log_line(debug_log.get(), "Subsystem = ", carried.subsystem,
             ", netaddr = ", format_cut(12, "%X_%X_%X_%X", netaddr[0], netaddr[1], netaddr[2], netaddr[3]));
    return 1;
}

int KM5::served_subsystems() {
    if (subsystem_count <= MaxSubsystems) return subsystem_count;
    if (!told_of_extra_systems) {
        log_line(general_log.get(), "More than three systems configured: ", subsystem_count,
                 ", only the first three are read.");
        told_of_extra_systems = true;
    }
    return MaxSubsystems;
}

bool KM5::is_all_archives_ok() {
    const bool result = std::all_of(progress.begin(), progress.begin() + served_subsystems(),
                                    [](const KM5Progress& each) { return each.archives_ok; });
    log_both("KM5::is_all_archives_ok, fResult = ", result ? "true" : "false");
    return result;
}

bool KM5::is_update_due() {
    if (std::difftime(gateway().now(), last_update_time) < get_update_interval()) {
        if (!check_force_update(0)) return false;
        log_line(messages_log.get(), "Force update!");
        return true;
    }
    if (get_netaddr_from_config() == -1) return false;
    log_line(messages_log.get(), "Time of hour border.");
    log_line(messages_log.get(), "currentTime = ", gateway().now(), ", timeOfHourBorder = ", timeOfHourBorder);
    if (std::difftime(gateway().now(), timeOfHourBorder) < HourBorderSeconds) {
        log_line(messages_log.get(), "Return false");
        return false;
    }

    KM5_request req{.cmd = CmdCurrent};
    if (!request(req, false)) return false;
    const std::tm clock = km5::decode_date(req.recv_buf);
    log_line(messages_log.get(), "HeatMeter datetime => ", clock.tm_mday, ".", clock.tm_mon + 1, ".",
             clock.tm_year + 1900, " ", clock.tm_hour, ":", clock.tm_min, ":", clock.tm_sec);
    if (clock.tm_min >= 1 && clock.tm_min <= 56) {
        last_update_time = gateway().now();
        return true;
    }
    timeOfHourBorder = gateway().now();
    return false;
}

void KM5::run_main() {
    log_line(general_log.get(), "START: RUN_MAIN");
    if (carried.meter.km56i_mode) {
        enter_state("run main km56i");
        log_line(messages_log.get(), "Start main function, km5-6i");
        const int count = served_subsystems();
        for (int s = 0; s < count; ++s) {
            log_line(general_log.get(), "START ", s, "subsystem read");
            carried.subsystem = s;
            log_line(messages_log.get(), "Set subsystem = ", s);
            read_pass();
            log_line(general_log.get(), "END ", s, "subsystem read");
        }
    } else {
        enter_state("run main");
        log_line(messages_log.get(), "Start main function");
        carried.subsystem = 0;
        read_pass();
    }
    log_line(general_log.get(), "END: RUN_MAIN");
}

void KM5::read_pass() {
    publish_item("_DriverStatus", int{StatusIterationBegun});
    if (get_netaddr_from_config() == -1) {
        log_line(messages_log.get(), "Get all commands and has description: failure.");
        publish_item("_DriverStatus", int{StatusIterationOver});
        return;
    }
    get_all_current_values();
    log_line(messages_log.get(), "Get all commands and has description: success.");
    enter_state("Flush instant data");
    flush_instant_data();
    enter_state("End flush instant data");

    if (need_update_archives(ArchiveHourly)) {
        log_line(general_log.get(), "Need update hourly DB");
        get_archives(ArchiveHourly);
    }
    if (need_update_archives(ArchiveDaily)) {
        log_line(general_log.get(), "Need update daily DB");
        get_archives(ArchiveDaily);
    }
    compare_archive_times();
    publish_item("_DriverStatus", int{StatusIterationOver});
}

void KM5::compare_archive_times() {
    KM5Progress& here = progress_here();
    const int s = carried.subsystem;
    log_line(messages_log.get(), "Comapare archive times for regularing EXTDS");
    log_line(messages_log.get(), "param_MDateTime = ", carried.param_MDateTime);
    log_line(messages_log.get(), "last Hour request for ", s, " subsystem = ", here.last_request_HOUR);
    log_line(messages_log.get(), "last Day request for ", s, " subsystem = ", here.last_request_DAY);
    here.archives_ok = !here.is_behind(carried.param_MDateTime);
    if (!here.archives_ok) log_line(messages_log.get(), "Difftime very large. Need stop EXTDS");
    const char* const text = here.archives_ok ? "Archives are OK. Start EXTDS" : "Archives are not OK. Stop EXTDS";
    log_line(general_log.get(), text);
    log_both(text);
}

// What follows has no caller.

bool KM5::get_netaddr() {
    log_line(debug_log.get(), "Start get netaddr(auto recieve serial number)");
    KM5_request req{.cmd = CmdIdentity};
    if (!request(req, true)) return false;
    KM5_netaddr& netaddr = carried.netaddr;
    answer_bytes(2, 5, netaddr.data(), req);
    log_line(debug_log.get(), "Your network address: ",
             format_cut(12, "%.2X %.2X %.2X %.2X", netaddr[0], netaddr[1], netaddr[2], netaddr[3]));
    return true;
}

bool KM5::time_check(double period, std::time_t& stamp, bool update) {
    const std::time_t now = gateway().now();
    if (std::difftime(now, stamp) <= period) return false;
    if (update) stamp = now;
    return true;
}

bool KM5::need_update_error_archives() {
    log_line(messages_log.get(), "Need update error archives");
    return time_check(3600.0, progress_here().check_time_ERROR, false);
}

bool KM5::need_update_current() {
    const bool due = time_check(10.0, check_time_current, true);
    log_line(messages_log.get(), "Need update current values? ", due ? "Yes" : "No");
    return due;
}

bool KM5::need_update_info() {
    if (carried.meter.version == -1.0F || carried.meter.model == -1) check_time_info = 0;
    const bool due = time_check(3600.0, check_time_info, true);
    log_line(messages_log.get(), "Need update info? ", due ? "Yes" : "No");
    return due;
}

void KM5::km5log(const std::string& text) {
    const std::string line = std::to_string(gateway().now()) + " : " + text + "\n";
    const std::string path = operand_in_command(LogCommandBytes, "echo '" + line + "' >> ", "/mnt/storage/km5log");
    if (!path.empty()) append_file(path, line + "\n");
}

void KM5::km5trace(const std::string& text, int number) {
    const std::string line = text + " " + std::to_string(number) + ": " + std::to_string(gateway().now()) + "\n";
    const std::string path = operand_in_command(TraceCommandBytes, " echo '" + line + "' >> ", "/tmp/log");
    if (!path.empty()) append_file(path, line + "\n");
}
