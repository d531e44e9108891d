// When a heat system's archive is due, where in the meter's ring the reading begins, and the walk through it.

#include <algorithm>
#include <cstdio>

#include "core/files.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "core/text.h"
#include "driver/flag_files.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"

namespace {

constexpr double UpdateInterval = 3600.0;
constexpr int CheckLead = 3000;  // until a good pass moves the clock on, the next try comes after 600 seconds
constexpr std::int64_t HourSeconds = 3600;  // in 64 bits: sums of times may pass 32
constexpr int MaxRecordErrors = 4;
constexpr const char* HeaderNames[] = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};
constexpr const char* DataNames[] = {"A3", "A5", "A7", "A9", "A11", "A13", "A15", "A2"};

/// The gateway's time has 32 bits.
std::time_t in_32_bits(std::int64_t seconds) {
    return static_cast<std::int32_t>(seconds);
}

}  // namespace

bool HCD_VISTmodbus::need_update_archives(int system) {
    if (FlagFiles::instance().is_set(uuid, FlagFiles::ReportLock)) return false;
    std::time_t& last = last_hour_update[static_cast<std::size_t>(system)];
    const std::time_t now = gateway().now();
    const double elapsed = std::difftime(now, last);
    if (elapsed > UpdateInterval) {
        log_line(log.get(), "Need update archives");
        last = now - CheckLead;
        return true;
    }
    log_line(log.get(), "Archvie start read after ", static_cast<float>((UpdateInterval - elapsed) / 60.0), " minutes");
    return false;
}

std::time_t HCD_VISTmodbus::newest_of(std::span<const char* const> names, int system) {
    std::time_t newest = 0;
    for (const char* const name : names) newest = std::max(newest, last_record_time(name, system + 1, "tmp_archives"));
    return newest;
}

void HCD_VISTmodbus::resume_from_files() {
    for (int system = 0; system < HeatSystems; ++system) {
        const std::time_t newest = newest_of(DataNames, system);
        last_request_date[static_cast<std::size_t>(system)] = newest != 0 ? in_32_bits(newest + HourSeconds) : 0;
    }
}

bool HCD_VISTmodbus::get_archive() {
    const int s = selected_subsystem;
    std::time_t& last_data = last_request_date[static_cast<std::size_t>(s)];
    std::time_t& last_header = last_request_date_header[static_cast<std::size_t>(s)];
    publish_item("_DriverStatus", int{StatusHourlyArchive});
    log_line(log.get(), "Start get archive.. ");
    last_data = newest_of(DataNames, s);
    last_header = newest_of(HeaderNames, s);
    log_line(log.get(), "Read archive records...");
    log_line(log.get(), "Read archive header for ", s, " subsystem");
    if (!request_batch(tty_fd, std::span(&reqArchiveHeaderFile, 1), s, true)) return false;
    log_line(
        log.get(),
        format_cut(256, "Archive specs: mask = 0x%X, recs count = %d, next rec = %d, max recs count = %d. Time: %s",
                   arch_mask, recs_count, next_rec_index, max_records, date_text(header_tm).c_str()));
    arch_record_size = archive_record_size(arch_mask);

    const std::time_t header_date = record_time();
    const ArchiveStart start = place_start(header_date);
    log_line(log.get(), "archiveStartIndex = ", start.index);
    const bool ok = walk_archive(start);
    log_line(log.get(), "Determine get_archive() end.. ");
    log_line(log.get(), "header_date = ", header_date);
    const std::time_t delta_date = in_32_bits(last_data + HourSeconds);
    log_line(log.get(), "delta_date + 3600 = ", delta_date);
    const double difference = std::difftime(delta_date, last_header);
    log_line(log.get(), "difftime => ", difference);
    return ok && difference >= 0;
}

HCD_VISTmodbus::ArchiveStart HCD_VISTmodbus::place_start(std::time_t header_date) {
    UniLog* const out = log.get();
    const std::time_t last = last_request_date[static_cast<std::size_t>(selected_subsystem)];
    auto offsetIndex = static_cast<int>(in_32_bits(header_date - HourSeconds - last) / HourSeconds);
    if (offsetIndex > max_records) {
        log_line(out, "offsetIndex > max_records");
        int archiveStartIndex = next_rec_index;
        log_line(out, "archiveStartIndex = next_rec_index = ", archiveStartIndex);
        if (recs_count < max_records) {
            log_line(out, "recs_count( ", int{recs_count}, " ) < max_records( ", int{max_records}, " ) ");
            archiveStartIndex = 1;
        }
        return {archiveStartIndex, in_32_bits(header_date - recs_count * HourSeconds)};
    }
    log_line(out, "offsetIndex < max_records");
    const std::time_t startTimestamp = in_32_bits(header_date - offsetIndex * HourSeconds);
    log_line(out, "startTimestamp = ", startTimestamp);
    int archiveStartIndex = next_rec_index - offsetIndex;
    log_line(out, "Offset index = ", offsetIndex);
    if (archiveStartIndex <= 0) {
        offsetIndex -= next_rec_index;
        log_line(out, "offsetIndex -= arch_header_data.next_rec_index = ", offsetIndex);
        // The text says one name and the value comes from another; in a ring that has turned they are the same.
        archiveStartIndex = recs_count - offsetIndex;
        log_line(out, "archiveStartIndex = arch_header_data.max_records - offsetIndex = ", archiveStartIndex);
    }
    return {archiveStartIndex, startTimestamp};
}

bool HCD_VISTmodbus::walk_archive(ArchiveStart start) {
    record_tm = local_time(start.time);
    ModbusRequest row = reqArchiveRecordFile;
    row.count = static_cast<std::uint16_t>(start.index);
    int errors = 0;
    int read = 0;
    while (arch_continue && errors++ <= MaxRecordErrors && recs_count > read) {
        log_line(log.get(), "Requesting archive record #", int{row.count}, ", subsystem = ", selected_subsystem);
        if (!request_batch(tty_fd, std::span(&row, 1), selected_subsystem, false) || !record_ok) {
            log_line(log.get(), "Arch record FAIL, retry...");
            continue;
        }
        log_line(log.get(), "Arch record OK");
        errors = 0;
        ++read;
        row.count = row.count >= recs_count ? std::uint16_t{1} : static_cast<std::uint16_t>(row.count + 1);
        start.time = in_32_bits(start.time + HourSeconds);
        record_tm = local_time(start.time);
    }
    return errors <= MaxRecordErrors;
}

std::time_t HCD_VISTmodbus::last_stored_value(const std::string& name) const {
    constexpr std::size_t TailBytes = 1024;
    std::string line = end_of_file("/mnt/storage/" + default_folder + "/tc_archives/" + name, TailBytes);
    if (line.ends_with('\n')) line.pop_back();
    line.erase(0, line.rfind('\n') + 1);
    long time = 0;
    int quality = 0;
    int value = 0;
    return std::sscanf(line.c_str(), "%ld,%d,%d\n", &time, &quality, &value) >= 1 ? time : 0;
}
