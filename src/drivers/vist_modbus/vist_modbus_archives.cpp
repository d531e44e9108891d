// When a heat system's archive is due, where in the meter's ring the reading begins, the walk through it, and what is
// filed on the way.

#include <cstdio>

#include "core/files.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "core/text.h"
#include "driver/flag_files.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"

using namespace vist_modbus;

namespace {

constexpr double UpdateInterval = 3600.0;
constexpr int MaxRecordErrors = 4;
constexpr int Staged = 1;
constexpr const char* VolumeTotals[] = {"A6", "A8", "A10"};
constexpr const char* MassTotals[] = {"A12", "A14", "A16"};

bool is_same_moment(const std::tm& a, const std::tm& b) {
    return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour && a.tm_mday == b.tm_mday &&
           a.tm_mon == b.tm_mon && a.tm_year == b.tm_year;
}

std::time_t time_of(std::tm tm) {
    return make_time(tm);
}

}  // namespace

bool HCD_VISTmodbus::need_update_archives(int system) {
    if (FlagFiles::instance().is_set(uuid, FlagFiles::ReportLock)) return false;
    std::time_t& last = progress.last_hour_update[static_cast<std::size_t>(system)];
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

bool HCD_VISTmodbus::get_archive(int system) {
    const auto s = static_cast<std::size_t>(system);
    publish_item("_DriverStatus", int{StatusHourlyArchive}, system);
    log_line(log.get(), "Start get archive.. ");
    progress.look_at_files(*this, system);
    log_line(log.get(), "Read archive records...");
    log_line(log.get(), "Read archive header for ", system, " subsystem");
    ArchiveHeader header;
    bool is_new = false;
    const auto take_header = [&](const ModbusRequest& /*row*/, Bytes data) {
        header = decode_header(data);
        is_new = process_archive_header(header, system);
    };
    if (!link.request_batch(line(), std::span(&reqArchiveHeaderFile, 1), system, true, take_header)) return false;
    log_line(
        log.get(),
        format_cut(256, "Archive specs: mask = 0x%X, recs count = %d, next rec = %d, max recs count = %d. Time: %s",
                   header.arch_mask, header.recs_count, header.next_rec_index, header.max_records,
                   date_text(header.header_tm).c_str()));
    const std::time_t header_date = time_of(header.header_tm);
    const ArchiveStart start = place_start(header, header_date, progress.last_request_date[s]);
    log_line(log.get(), "archiveStartIndex = ", start.index);
    const bool ok = !is_new || walk_archive(header, start, system);
    log_line(log.get(), "Determine get_archive() end.. ");
    log_line(log.get(), "header_date = ", header_date);
    const std::time_t delta_date = in_32_bits(progress.last_request_date[s] + HourSeconds);
    log_line(log.get(), "delta_date + 3600 = ", delta_date);
    const double difference = std::difftime(delta_date, progress.last_request_date_header[s]);
    log_line(log.get(), "difftime => ", difference);
    return ok && difference >= 0;
}

bool HCD_VISTmodbus::process_archive_header(const ArchiveHeader& header, int system) {
    const ArchiveSetup& has = carried.setup;
    const double c = header.C / 100.0;
    log_line(log.get(), "Processing archive header...");
    if (has.hasC) {
        log_line(log.get(), "set_worktime_value:",
                 format_cut(64, "%d -> %s", static_cast<int>(header.C), std::to_string(c).c_str()));
        publish_item("IT1", c, system);
    }
    const std::time_t header_date = time_of(header.header_tm);
    std::time_t& last = progress.last_request_date_header[static_cast<std::size_t>(system)];
    if (last >= header_date) return false;
    last = header_date;
    if (has.hasC) add_value("A4", c);
    if (has.hasE) add_value("A1", header.E);
    for (std::size_t i = 0; i < 3; ++i) {
        if (has.hasV[i]) add_value(VolumeTotals[i], header.V[i]);
        if (has.hasM[i]) add_value(MassTotals[i], header.M[i]);
    }
    flush_values(header.header_tm, 0, QualityGood, system + 1, Staged);
    return true;
}

HCD_VISTmodbus::ArchiveStart HCD_VISTmodbus::place_start(const ArchiveHeader& header, std::time_t header_date,
                                                         std::time_t last) {
    UniLog* const out = log.get();
    auto offsetIndex = static_cast<int>(in_32_bits(header_date - HourSeconds - last) / HourSeconds);
    if (offsetIndex > header.max_records) {
        log_line(out, "offsetIndex > max_records");
        int archiveStartIndex = header.next_rec_index;
        log_line(out, "archiveStartIndex = next_rec_index = ", archiveStartIndex);
        if (header.recs_count < header.max_records) {
            log_line(out, "recs_count( ", int{header.recs_count}, " ) < max_records( ", int{header.max_records}, " ) ");
            archiveStartIndex = 1;
        }
        return {archiveStartIndex, in_32_bits(header_date - header.recs_count * HourSeconds)};
    }
    log_line(out, "offsetIndex < max_records");
    const std::time_t startTimestamp = in_32_bits(header_date - offsetIndex * HourSeconds);
    log_line(out, "startTimestamp = ", startTimestamp);
    int archiveStartIndex = header.next_rec_index - offsetIndex;
    log_line(out, "Offset index = ", offsetIndex);
    if (archiveStartIndex <= 0) {
        offsetIndex -= header.next_rec_index;
        log_line(out, "offsetIndex -= arch_header_data.next_rec_index = ", offsetIndex);
        // The text says one name and the value comes from another; in a ring that has turned they are the same.
        archiveStartIndex = header.recs_count - offsetIndex;
        log_line(out, "archiveStartIndex = arch_header_data.max_records - offsetIndex = ", archiveStartIndex);
    }
    return {archiveStartIndex, startTimestamp};
}

bool HCD_VISTmodbus::walk_archive(const ArchiveHeader& header, ArchiveStart start, int system) {
    ModbusRequest row = reqArchiveRecordFile;
    row.count = static_cast<std::uint16_t>(start.index);
    row.record_size = header.arch_record_size;
    bool arch_continue = true;
    int errors = 0;
    int read = 0;
    while (arch_continue && errors++ <= MaxRecordErrors && header.recs_count > read) {
        log_line(log.get(), "Requesting archive record #", int{row.count}, ", subsystem = ", system);
        bool record_ok = false;
        const auto take_record = [&](const ModbusRequest& /*row*/, Bytes data) {
            const ArchiveRecord record = decode_record(data, header);
            record_ok = record.sum == record.crc;
            if (record_ok) {
                arch_continue = process_archive_record(record, header, local_time(start.time), system);
            } else {
                log_line(log.get(), "Archive record CRC FAIL:", int{record.sum}, " vs ", int{record.crc});
            }
        };
        link.request_batch(line(), std::span(&row, 1), system, false, take_record);
        if (!record_ok) {
            log_line(log.get(), "Arch record FAIL, retry...");
            continue;
        }
        log_line(log.get(), "Arch record OK");
        errors = 0;
        ++read;
        row.count = row.count >= header.recs_count ? std::uint16_t{1} : static_cast<std::uint16_t>(row.count + 1);
        start.time = in_32_bits(start.time + HourSeconds);
    }
    return errors <= MaxRecordErrors;
}

bool HCD_VISTmodbus::process_archive_record(const ArchiveRecord& record, const ArchiveHeader& header,
                                            const std::tm& record_tm, int system) {
    log_line(log.get(), is_same_moment(record_tm, header.header_tm)
                            ? "Archive record initialized earlier, integrators included"
                            : "Archive record initialized now, no integrators");
    log_line(log.get(), "Archive record date/time: ", date_text(record_tm));
    log_line(log.get(), "Data ready. Try write.");
    const std::time_t t = time_of(record_tm);
    std::time_t& last = progress.last_request_date[static_cast<std::size_t>(system)];
    log_line(log.get(), "last_request_date = ", last, ", arch_rawtime = ", t);
    if (t >= time_of(header.header_tm)) return false;
    last = t;
    log_line(log.get(), "flush_archives as ", t);
    for (const auto& [file, value, form, quality] : record.values) {
        if (form == ArchiveValue::Form::Number) add_value(file, value);
        if (form == ArchiveValue::Form::Whole) add_value(file, static_cast<int>(value));
        if (form == ArchiveValue::Form::WithQuality) add_value_q(file, value, quality);
    }
    flush_values(local_time(t), 0, QualityGood, system + 1, Staged);
    flush_values_q(local_time(t), 0, system + 1, Staged);
    return true;
}

std::time_t HCD_VISTmodbus::last_stored_value(const std::string& name) const {
    constexpr std::size_t TailBytes = 1024;
    std::string text = end_of_file("/mnt/storage/" + default_folder + "/tc_archives/" + name, TailBytes);
    if (text.ends_with('\n')) text.pop_back();
    text.erase(0, text.rfind('\n') + 1);
    long time = 0;
    int quality = 0;
    int value = 0;
    return std::sscanf(text.c_str(), "%ld,%d,%d\n", &time, &quality, &value) >= 1 ? time : 0;
}
