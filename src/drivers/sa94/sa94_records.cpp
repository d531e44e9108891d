// A block of memory into archive lines.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "core/file.h"
#include "core/files.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "core/text.h"
#include "drivers/sa94/sa94.h"
#include "drivers/sa94/sa94_values.h"

namespace {

constexpr double OldestRecord = 372.0 * DaySeconds;
constexpr double FarthestEvent = 2 * OldestRecord;
constexpr float LeastTemperature = -63.0F;
constexpr int EnergyTextBytes = 32;
constexpr std::size_t EnergyLimit = 512;  // longer than any double
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

const SA94Layout* find_layout(int archive_type, int firmware_id) {
    const auto& layouts = archive_type == HOURLY_DB ? HourlyLayouts : DailyLayouts;
    const auto row = std::find_if(layouts.begin(), layouts.end(),
                                  [firmware_id](const SA94Layout& layout) { return layout.id == firmware_id; });
    return row == layouts.end() ? nullptr : &*row;
}

/// At most 372 days old, and not of the future. An hourly record is judged by its date alone.
bool is_possible_date(int archive_type, std::time_t date) {
    const double ahead = std::difftime(date, gateway().now());
    return ahead <= static_cast<double>(archive_type == HOURLY_DB ? HourSeconds : DaySeconds) && ahead >= -OldestRecord;
}

std::string energy_path(const std::string& uuid, int archive_type) {
    const char* const name = archive_type == HOURLY_DB ? "_hPrevE" : archive_type == DAILY_DB ? "_dPrevE" : "";
    return *name == '\0' ? "" : archive_path(uuid, 1, ArchiveFolder, name);
}

}  // namespace

bool SA94::parseBlock(int archive_type, const SA94Request& request, int& position, std::time_t& newest) {
    UniLog* const log = log_debug.get();
    log_line(log, "Start block parsing");
    if (archive_type == ERROR_DB) return ErrorArchiveParsing(request, position, newest);
    const std::time_t last = last_timestamp(archive_type);
    log_line(log, archive_type == HOURLY_DB ? "Last timestamp HOURLY_DB: " : "Last timestamp DAILY_DB: ", last);
    for (int pos = position; pos < recordsPerBlock(archive_type); ++pos) {
        std::tm tm{};
        const Bytes record = record_at(archive_type, request, pos);
        log_line(log, "Position = ", pos);
        log->dump_packet(record);
        if (isNullRecord(archive_type, record)) {
            log_line(log, "Is null record");
            return false;
        }
        log_line(log, "Choice model");
        const SA94Layout* const layout = find_layout(archive_type, firmware_id);
        if (layout != nullptr && !collect_columns(archive_type, *layout, record, tm)) {
            clear_values();
            return true;
        }
        // Without a layout the time is that of no date at all, -1: the run ends here.
        const std::time_t t = time_of(tm);
        if (t <= last) {
            clear_values();
            return false;
        }
        write_record(archive_type, tm);
        newest = std::max(newest, t);
        clear_values();
    }
    position = 0;
    return true;
}

bool SA94::collect_columns(int archive_type, const SA94Layout& layout, Bytes record, std::tm& tm) {
    std::size_t offset = 0;
    for (const SA94Column& column : layout.columns) {
        const Bytes bytes = part_of(record, offset, column.size);
        offset += static_cast<std::size_t>(column.size);
        if (!column.active) continue;
        switch (column.kind) {
            case ColumnDate:
                tm = record_date(bytes);
                if (!is_possible_date(archive_type, time_of(tm))) return false;
                break;
            case ColumnHour:
                tm.tm_hour = bcdToInt(u8_at(bytes, 0));
                break;
            case ColumnFloat:
                add_value(column.name, scaled(decodeSaFloat(bytes), column.scale, column.operation));
                break;
            case ColumnWord:
                collect_word(column, bytes);
                break;
            default:
                break;
        }
    }
    return true;
}

void SA94::collect_word(const SA94Column& column, Bytes bytes) {
    const float value = scaled(decodeWord(u8_at(bytes, 0), u8_at(bytes, 1)), column.scale, column.operation);
    // A word has no sign, so the second test never holds; it is meant to stay.
    if (is_third_temperature(column.name) && (!support_t3 || value < LeastTemperature)) return;
    add_value(column.name, value);
}

void SA94::write_record(int archive_type, std::tm tm) {
    for (auto& [name, value] : pending_double) {
        if (archive_type == HOURLY_DB && name == EnergyHourly) {
            carryEnergy(value, hPrevE);
            savePrevEnergy(HOURLY_DB, hPrevE);
        } else if (archive_type == DAILY_DB && name == EnergyDaily) {
            carryEnergy(value, dPrevE);
            savePrevEnergy(DAILY_DB, dPrevE);
        }
        write_archive_line(archive_type, name, value, tm);
    }
    for (const auto& [name, value] : pending_int) write_archive_line(archive_type, name, value, tm);
}

void SA94::write_archive_line(int archive_type, const std::string& name, double value, std::tm tm) {
    const std::string item = renameArchiveItem(archive_type, name, firmware_id, status_byte);
    open_direct(item, 1, ArchiveFolder);
    // The meter dates a total by the start of its hour or day, the archive by the end.
    const std::time_t shift = archive_type == DAILY_DB ? DaySeconds : HourSeconds;
    const std::time_t stamp = is_shifted_name(item) ? shifted(time_of(tm), shift) : time_of(tm);
    log_line(log_debug.get(), "New archive record => ", item, " = ", value, ", ", asctime_text(stamp));
    write_direct(stamp, QualityGood, value);
    close_direct();
}

void SA94::carryEnergy(double& value, double& previous) {
    if (value == 0.0) {
        value = previous;
    } else {
        previous = value;
    }
}

void SA94::savePrevEnergy(int archive_type, double value) const {
    const std::string path = energy_path(uuid, archive_type);
    // Before the archive line that the value stands in for: once lost, a total of zero would be filed as zero.
    if (!path.empty()) overwrite_durably(path, format_cut(EnergyLimit, "%f", value));
}

double SA94::loadPrevEnergy(int archive_type) const {
    const std::string path = energy_path(uuid, archive_type);
    if (path.empty()) return 0.0;
    std::array<char, EnergyTextBytes> text{};
    File(path, O_RDONLY).read(std::span(text).first(text.size() - 1));
    *std::find(text.begin(), text.end() - 1, '\n') = '\0';  // of the first line
    return std::atof(text.data());
}

bool SA94::ErrorArchiveParsing(const SA94Request& request, int position, std::time_t& newest) {
    UniLog* const log = log_debug.get();
    log_line(log, "ErrorArchiveParsing start");
    log_line(log, "Position = ", position, ", recs_count = ", recordsPerBlock(ERROR_DB));
    for (int pos = position; pos < recordsPerBlock(ERROR_DB); ++pos) {
        const Bytes record = record_at(ERROR_DB, request, pos);
        if (isNullRecord(ERROR_DB, record)) {
            log_line(log, "isNullRecord");
            return false;
        }
        const int event = u8_at(record, 0);
        const bool started = event < 128;
        const int code = event % 128;
        const std::tm tm = record_tm_of(ERROR_DB, record);
        log_line(log, "Read record => ", code, " :: ", started ? "start" : "stop", " :: ", asctime_text(tm));
        const std::time_t t = time_of(tm);
        if (std::abs(std::difftime(t, gateway().now())) > FarthestEvent) {
            clear_values();
            return true;
        }
        add_value(ErrorItem, code);
        log_line(log, "LastTimestampError = ", LastTimestampError, ", new record time = ", t);
        if (t <= LastTimestampError) {
            clear_values();
            log_line(log, "New record time less LastTimestamp, return STOP");
            return false;
        }
        log_line(log, "Add New record");
        flush_values(tm, ERROR_DB, started ? QualityGood : 0, 1, 0);
        newest = std::max(newest, t);
        clear_values();
    }
    return true;
}
