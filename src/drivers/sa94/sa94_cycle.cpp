// When the meter is asked for what, and what is remembered from one pass to the next.

#include <algorithm>

#include "core/gateway.h"
#include "core/local_time.h"
#include "driver/flag_files.h"
#include "drivers/sa94/sa94.h"
#include "drivers/sa94/sa94_values.h"

namespace {

constexpr std::time_t FirstArchiveLead = 3000;  // the first archive pass comes this much earlier, seconds
constexpr double ArchiveInterval = 3600.0;
constexpr double HourlyLagLimit = 14400.0;
constexpr double DailyLagLimit = 86400.0;
constexpr unsigned WaitStepSeconds = 2;
constexpr const char* ExtdsSeconds = "7200";

constexpr const char* DailyItems[] = {"A29", "A32", "A34", "A40", "A42"};
constexpr const char* HourlyItems[] = {"A1", "A2",  "A3",  "A4",  "A5",  "A6",  "A7",  "A8",
                                       "A9", "A10", "A11", "A12", "A13", "A14", "A15", "A16"};

int driver_status(int archive_type) {
    if (archive_type == HOURLY_DB) return StatusHourlyArchive;
    return archive_type == DAILY_DB ? StatusDailyArchive : StatusErrorArchive;
}

}  // namespace

SA94::SA94(const std::string& meter)
    : log_messages(open_meter_log(meter, "messages.txt")),
      log_debug(open_meter_log(meter, "debug.txt")),
      log_general(open_meter_log(meter, "general.txt")) {
    UniLog* const log = log_general.get();
    uuid = meter;
    set_tty_send(exchange_read_bytes, 0);
    log_line(log, "SA94::SA94");
    log_line(log, "UUID = ", uuid);
    last_update_hourly = last_update_daily = gateway().now() - FirstArchiveLead;
    log_line(log, "Last update hourly db : ", asctime_text(last_update_hourly));
    log_line(log, "Last update daily db : ", asctime_text(last_update_daily));
    LastTimestampDaily = recover_last_time(DailyItems, DaySeconds);
    LastTimestampHourly = recover_last_time(HourlyItems, HourSeconds);
    LastTimestampError = last_record_time(ErrorItem, 1, ArchiveFolder);
    dPrevE = loadPrevEnergy(DAILY_DB);
    hPrevE = loadPrevEnergy(HOURLY_DB);
    const auto log_last = [log](const char* text, std::time_t time) {
        log_line(log, text, time, " => ", asctime_text(time));
    };
    log_last("Last timestamp for DAILY_DB: ", LastTimestampDaily);
    log_last("Last timestamp for HOURLY_DB: ", LastTimestampHourly);
    log_last("Last timestamp for ERROR_DB: ", LastTimestampError);
}

std::time_t SA94::recover_last_time(std::span<const char* const> names, std::time_t shift) {
    std::time_t last = 0;
    for (const char* const name : names) {
        const std::time_t t = last_record_time(name, 1, ArchiveFolder);
        // The time as it stands in the file is compared with one that may have been shifted: not a plain maximum.
        if (last < t) last = is_shifted_name(name) ? t - shift : t;
    }
    return last;
}

std::time_t& SA94::last_timestamp(int archive_type) {
    if (archive_type == HOURLY_DB) return LastTimestampHourly;
    return archive_type == DAILY_DB ? LastTimestampDaily : LastTimestampError;
}

void SA94::run_main() {
    UniLog* const log = log_messages.get();
    publish_item("_DriverStatus", int{StatusIterationBegun});
    log_line(log, "Start main iteration");
    log_line(log, "Start get description..");
    const bool ok = getDescription();
    log_line(log, "getDescription = ", ok ? "Success" : "Failure");
    if (ok) {
        getCurrentParameters();
        checkArchiveLag();
        if (needUpdateArchives(HOURLY_DB)) {
            log_both("Need update archives HOURLY_DB");
            getArchives(ERROR_DB);
            getArchives(HOURLY_DB);
        }
        if (needUpdateArchives(DAILY_DB)) {
            log_both("Need update archives DAILY_DB");
            getArchives(DAILY_DB);
        }
        waitNextPass();
    }
    publish_item("_DriverStatus", int{StatusIterationOver});
}

void SA94::waitNextPass() {
    const std::time_t start = gateway().now();
    std::time_t now = start;
    while (std::difftime(now, start) < get_update_interval() && !check_force_update(0)) {
        now = gateway().now();
        gateway().sleep(WaitStepSeconds);
    }
}

bool SA94::needUpdateArchives(int archive_type) {
    if (archive_type != HOURLY_DB && archive_type != DAILY_DB) return true;
    std::time_t& last_update = archive_type == HOURLY_DB ? last_update_hourly : last_update_daily;
    const std::time_t now = gateway().now();
    if (std::difftime(now, last_update) <= ArchiveInterval) return false;
    last_update = now;
    return true;
}

bool SA94::checkArchiveLag() {
    const bool lag = std::difftime(meter_time, LastTimestampHourly) > HourlyLagLimit ||
                     std::difftime(meter_time, LastTimestampDaily) > DailyLagLimit;
    regulate_extds(!lag, ExtdsSeconds);
    return lag;
}

void SA94::getCurrentParameters() {
    publish_item("_DriverStatus", int{StatusCurrentValues});
    log_line(log_messages.get(), "Get Current Parameters");
    SA94Request request = new_request();
    connect(request);
    const auto row = std::find_if(CurrentParameters.begin(), CurrentParameters.end(),
                                  [this](const SA94ParameterRow& candidate) { return candidate.id == firmware_id; });
    if (row != CurrentParameters.end()) {
        std::tm clock{};
        for (SA94CurrentParameter& parameter : row->entries) {
            if (!parameter.active) continue;
            request.setReadParameter(parameter.code);
            Transact(request, Attempts);  // a lost reply is all zeros, and so is the value
            if (parameter.kind == ParameterValue) renameCurrentParameter(parameter.name, firmware_id, status_byte);
            take_parameter(parameter, request, clock);
        }
        const std::time_t t = make_time(clock);
        if (t > 0) {
            publish_item("MDateTime", static_cast<long>(t));
            meter_time = t;
        }
    }
    disconnect(request);
    for (const auto& [name, value] : current_values) publish_item(name.c_str(), static_cast<double>(value));
    current_values.clear();
}

void SA94::take_parameter(const SA94CurrentParameter& parameter, const SA94Request& request, std::tm& clock) {
    const auto digits = [&request](std::size_t at) { return bcdToInt(request.response[at]); };
    if (parameter.kind == ParameterDate) {
        clock.tm_mday = digits(1);
        clock.tm_mon = digits(2) - 1;
        clock.tm_year = digits(3) + 100;
    } else if (parameter.kind == ParameterTime) {
        clock.tm_hour = digits(1);
        clock.tm_min = digits(2);
        clock.tm_sec = digits(3);
    } else if (!parameter.name.empty()) {
        current_values[parameter.name] = scaled(decodeSaFloat(request.response), parameter.scale, parameter.operation);
    }
}

bool SA94::getArchives(int archive_type) {
    log_line(log_messages.get(), "Start getArchives");
    SA94Request request = new_request();
    if (!connect(request)) return false;
    log_line(log_messages.get(), "Archives type : ");
    log_line(log_messages.get(), archive_word(archive_type));
    publish_item("_DriverStatus", driver_status(archive_type));
    std::time_t& last = last_timestamp(archive_type);
    log_both("*last_timestamp = ", last);
    std::time_t newest = last;
    int segment = 0;
    std::uint32_t block = 0;
    int position = 0;
    if (!find_start(archive_type, last, segment, block, position)) return false;
    if (segment < 2 || segment > 7) return false;  // the record stored last is not in the meter
    log_line(log_messages.get(), "Start read archives from SA94");
    if (!walk(archive_type, segment, block, position, request, newest)) return false;
    last = std::max(last, newest);
    disconnect(request);
    return true;
}

bool SA94::find_start(int archive_type, std::time_t last, int& segment, std::uint32_t& block, int& position) {
    if (last <= 0) {
        std::time_t ignored = 0;
        return getFirstRecordInfo(archive_type, ignored, segment, block);
    }
    if (!getRecordByTimestamp(archive_type, last, segment, block, position)) return false;
    // One record on, also from the oldest record of a meter that has none of this time any more.
    if (position != recordsPerBlock(archive_type) - 1) {
        ++position;
        return true;
    }
    position = 0;
    if (block == blocksPerSegment() - 1) {
        segment = otherSegment(segment);
        block = 0;
    } else {
        ++block;
    }
    return true;
}

bool SA94::walk(int archive_type, int segment, std::uint32_t block, int position, SA94Request& request,
                std::time_t& newest) {
    for (int current = segment;; current = otherSegment(current), block = 0) {
        for (std::uint32_t block_index = block; block_index < blocksPerSegment(); ++block_index) {
            log_line(log_general.get(), "Segment = ", current, ", block = ", block_index);
            if (block_index < first_usable_block(archive_type)) continue;
            log_line(log_debug.get(), "Read ", archive_word(archive_type), ", segment = ", current,
                     ", block_index = ", block_index);
            if (!ReadArchiveRecord(request, current, block_index)) {
                log_line(log_debug.get(), "ReadArchiveRecord false");
                return false;
            }
            if (isNullBlock(request.response)) return true;
            if (!parseBlock(archive_type, request, position, newest)) return true;
        }
    }
}
