// When the meter is asked for what, and what is remembered from one pass to the next.

#include <algorithm>
#include <map>
#include <utility>

#include "core/gateway.h"
#include "core/local_time.h"
#include "driver/flag_files.h"
#include "driver/line_settings.h"
#include "drivers/sa94/sa94.h"

namespace {

constexpr double HourlyLagLimit = 14400.0;
constexpr double DailyLagLimit = 86400.0;
constexpr unsigned WaitStepSeconds = 2;
constexpr const char* ExtdsSeconds = "7200";

int driver_status(int archive_type) {
    if (archive_type == HOURLY_DB) return StatusHourlyArchive;
    return archive_type == DAILY_DB ? StatusDailyArchive : StatusErrorArchive;
}

SA94Logs open_logs(const std::string& meter) {
    return {open_meter_log(meter, "messages.txt"), open_meter_log(meter, "debug.txt"),
            open_meter_log(meter, "general.txt")};
}

}  // namespace

SA94::SA94(const std::string& meter) : SA94(meter, open_logs(meter)) {}

SA94::SA94(const std::string& meter, SA94Logs meter_logs)
    : logs(std::move(meter_logs)),
      link([this](Bytes tx, ExchangeAnswer& rx) { send_receive(tx, rx, SA94Request::ResponseBytes, false); },
           [this](bool ok) { setConnected(ok, uuid); }, *logs.log_debug) {
    uuid = meter;
    set_tty_send(exchange_read_bytes, 0);
    logs.general("SA94::SA94");
    logs.general("UUID = ", uuid);
    stored.load(*this, uuid);
    logs.general("Last update hourly db : ", asctime_text(stored.last_update_hourly));
    logs.general("Last update daily db : ", asctime_text(stored.last_update_daily));
    const auto log_last = [this](const char* text, std::time_t time) {
        logs.general(text, time, " => ", asctime_text(time));
    };
    log_last("Last timestamp for DAILY_DB: ", stored.LastTimestampDaily);
    log_last("Last timestamp for HOURLY_DB: ", stored.LastTimestampHourly);
    log_last("Last timestamp for ERROR_DB: ", stored.LastTimestampError);
}

void SA94::open_tty() {
    logs.general("Open port: ", port_name, ", bauds: ", tc_baud, ", parity: ", tc_parity);
    tty_fd = gateway().open_port(port_name.c_str());
    if (tty_fd < 1) {
        logs.general("Opening port - FAILURE");
        return;
    }
    logs.general("Open port - Success");
    gateway().set_line(tty_fd, line_termios(LineOfSa94, tc_baud, tc_parity));
}

void SA94::run_main() {
    publish_item("_DriverStatus", int{StatusIterationBegun});
    logs.messages("Start main iteration");
    logs.messages("Start get description..");
    const bool ok = getDescription();
    logs.messages("getDescription = ", ok ? "Success" : "Failure");
    if (ok) {
        getCurrentParameters();
        checkArchiveLag();
        if (needUpdateArchives(HOURLY_DB)) {
            logs.both("Need update archives HOURLY_DB");
            getArchives(ERROR_DB);
            getArchives(HOURLY_DB);
        }
        if (needUpdateArchives(DAILY_DB)) {
            logs.both("Need update archives DAILY_DB");
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

bool SA94::checkArchiveLag() {
    const bool lag = std::difftime(carried.meter_time, stored.LastTimestampHourly) > HourlyLagLimit ||
                     std::difftime(carried.meter_time, stored.LastTimestampDaily) > DailyLagLimit;
    regulate_extds(!lag, ExtdsSeconds);
    return lag;
}

void SA94::getCurrentParameters() {
    publish_item("_DriverStatus", int{StatusCurrentValues});
    logs.messages("Get Current Parameters");
    SA94Request request = new_request();
    link.connect(request);
    std::map<std::string, float> current_values;
    const auto row = std::find_if(carried.parameters.begin(), carried.parameters.end(),
                                  [this](const auto& candidate) { return candidate.id == carried.firmware_id; });
    if (row != carried.parameters.end()) {
        std::tm clock{};
        for (SA94CurrentParameter& parameter : row->entries) {
            if (!parameter.active) continue;
            request.setReadParameter(parameter.code);
            link.Transact(request);  // a lost reply is all zeros, and so is the value
            const auto value = sa94::decode_parameter(parameter, request.response, clock);
            if (!value) continue;
            renameCurrentParameter(parameter.name, carried.firmware_id, meter_status.status_byte);
            if (!parameter.name.empty()) current_values[parameter.name] = *value;
        }
        const std::time_t t = make_time(clock);
        if (t > 0) {
            publish_item("MDateTime", static_cast<long>(t));
            carried.meter_time = t;
        }
    }
    link.disconnect(request);
    for (const auto& [name, value] : current_values) publish_item(name.c_str(), static_cast<double>(value));
}

bool SA94::getArchives(int archive_type) {
    logs.messages("Start getArchives");
    SA94Request request = new_request();
    if (!link.connect(request)) return false;
    logs.messages("Archives type : ");
    logs.messages(archive_word(archive_type));
    publish_item("_DriverStatus", driver_status(archive_type));
    std::time_t& last = stored.last_timestamp(archive_type);
    logs.both("*last_timestamp = ", last);
    std::time_t newest = last;
    int segment = 0;
    std::uint32_t block = 0;
    int position = 0;
    if (!find_start(archive_type, last, segment, block, position)) return false;
    if (segment < 2 || segment > 7) return false;  // the record stored last is not in the meter
    logs.messages("Start read archives from SA94");
    if (!walk(archive_type, segment, block, position, request, newest)) return false;
    last = std::max(last, newest);
    link.disconnect(request);
    return true;
}

bool SA94::find_start(int archive_type, std::time_t last, int& segment, std::uint32_t& block, int& position) const {
    if (last <= 0) {
        std::time_t ignored = 0;
        return getFirstRecordInfo(archive_type, ignored, segment, block);
    }
    if (!getRecordByTimestamp(archive_type, last, segment, block, position)) return false;
    // One record on, also from the oldest record of a meter that has none of this time any more.
    if (position != memory().recordsPerBlock(archive_type) - 1) {
        ++position;
        return true;
    }
    position = 0;
    if (block == memory().blocksPerSegment() - 1) {
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
        for (std::uint32_t block_index = block; block_index < memory().blocksPerSegment(); ++block_index) {
            logs.general("Segment = ", current, ", block = ", block_index);
            if (block_index < first_usable_block(archive_type)) continue;
            logs.debug("Read ", archive_word(archive_type), ", segment = ", current, ", block_index = ", block_index);
            if (!ReadArchiveRecord(request, current, block_index)) {
                logs.debug("ReadArchiveRecord false");
                return false;
            }
            if (isNullBlock(request.response)) return true;
            if (!parseBlock(archive_type, request, position, newest)) return true;
        }
    }
}
