// A block of memory into archive lines.

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/gateway.h"
#include "core/local_time.h"
#include "drivers/sa94/sa94.h"

namespace {

constexpr double OldestRecord = 372.0 * DaySeconds;
constexpr double FarthestEvent = 2 * OldestRecord;
constexpr const char* EnergyHourly = "A1";
constexpr const char* EnergyDaily = "A29";

std::time_t time_of(std::tm tm) {
    return make_time(tm);
}

/// A time of the gateway stays in 32 bits.
std::time_t shifted(std::time_t time, std::time_t by) {
    constexpr std::time_t Latest = std::numeric_limits<std::int32_t>::max();
    return time > Latest - by ? Latest : time + by;
}

/// At most 372 days old, and not of the future. An hourly record is judged by its date alone.
bool is_possible_date(int archive_type, std::time_t date) {
    const double ahead = std::difftime(date, gateway().now());
    return ahead <= static_cast<double>(archive_type == HOURLY_DB ? HourSeconds : DaySeconds) && ahead >= -OldestRecord;
}

}  // namespace

bool SA94::parseBlock(int archive_type, const SA94Request& request, int& position, std::time_t& newest) {
    logs.debug("Start block parsing");
    if (archive_type == ERROR_DB) return ErrorArchiveParsing(request, position, newest);
    const std::time_t last = stored.last_timestamp(archive_type);
    logs.debug(archive_type == HOURLY_DB ? "Last timestamp HOURLY_DB: " : "Last timestamp DAILY_DB: ", last);
    for (int pos = position; pos < memory().recordsPerBlock(archive_type); ++pos) {
        const Bytes bytes = memory().record_at(archive_type, request.response, pos);
        logs.debug("Position = ", pos);
        logs.log_debug->dump_packet(bytes);
        if (memory().isNullRecord(archive_type, bytes)) {
            logs.debug("Is null record");
            return false;
        }
        logs.debug("Choice model");
        const SA94Layout* const layout = find_layout(archive_type, carried.firmware_id);
        const SA94Record record =
            layout == nullptr ? SA94Record{} : sa94::decode_record(bytes, *layout, meter_status.support_t3);
        if (layout != nullptr && !is_possible_date(archive_type, record.date)) return true;
        // Without a layout the time is that of no date at all, -1: the run ends here.
        const std::time_t t = time_of(record.tm);
        if (t <= last) return false;
        write_record(archive_type, record);
        newest = std::max(newest, t);
    }
    position = 0;
    return true;
}

void SA94::write_record(int archive_type, const SA94Record& record) {
    for (const auto& [name, number] : record.values) {
        double value = number;
        if (archive_type == HOURLY_DB && name == EnergyHourly) {
            SA94Progress::carryEnergy(value, stored.hPrevE);
            stored.savePrevEnergy(HOURLY_DB, stored.hPrevE);
        } else if (archive_type == DAILY_DB && name == EnergyDaily) {
            SA94Progress::carryEnergy(value, stored.dPrevE);
            stored.savePrevEnergy(DAILY_DB, stored.dPrevE);
        }
        write_archive_line(archive_type, name, value, record.tm);
    }
}

void SA94::write_archive_line(int archive_type, const std::string& name, double value, std::tm tm) {
    const std::string item = renameArchiveItem(archive_type, name, carried.firmware_id, meter_status.status_byte);
    open_direct(item, 1, ArchiveFolder);
    // The meter dates a total by the start of its hour or day, the archive by the end.
    const std::time_t shift = archive_type == DAILY_DB ? DaySeconds : HourSeconds;
    const std::time_t stamp = is_shifted_name(item) ? shifted(time_of(tm), shift) : time_of(tm);
    logs.debug("New archive record => ", item, " = ", value, ", ", asctime_text(stamp));
    write_direct(stamp, QualityGood, value);
    close_direct();
}

bool SA94::ErrorArchiveParsing(const SA94Request& request, int position, std::time_t& newest) {
    logs.debug("ErrorArchiveParsing start");
    logs.debug("Position = ", position, ", recs_count = ", memory().recordsPerBlock(ERROR_DB));
    for (int pos = position; pos < memory().recordsPerBlock(ERROR_DB); ++pos) {
        const Bytes record = memory().record_at(ERROR_DB, request.response, pos);
        if (memory().isNullRecord(ERROR_DB, record)) {
            logs.debug("isNullRecord");
            return false;
        }
        const SA94Event event = sa94::decode_event(record);
        logs.debug("Read record => ", event.code, " :: ", event.started ? "start" : "stop",
                   " :: ", asctime_text(event.tm));
        const std::time_t t = time_of(event.tm);
        if (std::abs(std::difftime(t, gateway().now())) > FarthestEvent) return true;
        logs.debug("LastTimestampError = ", stored.LastTimestampError, ", new record time = ", t);
        if (t <= stored.LastTimestampError) {
            logs.debug("New record time less LastTimestamp, return STOP");
            return false;
        }
        logs.debug("Add New record");
        add_value(ErrorItem, event.code);
        flush_values(event.tm, ERROR_DB, event.started ? QualityGood : 0, 1, 0);
        newest = std::max(newest, t);
    }
    return true;
}
