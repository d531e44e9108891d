// The meter's stored records: when they are looked for, where reading resumes, how a record becomes archive lines.

#include <algorithm>

#include "core/files.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "drivers/km5/km5.h"

namespace {

constexpr int MaxRetries = 20;
constexpr int HourSeconds = 3600;
constexpr int DaySeconds = 86400;
constexpr int FirstValuePosition = 13;  // of the fourteen floats in a record
constexpr std::uint8_t NoFirstRecordFlag = 0x80;

/// How long after the last look the next one is due, seconds. A daily record is looked for every hour, too.
double update_period(int type) {
    switch (type) {
        case ArchiveMonthly:
            return 2592000.0;
        case ArchiveYearly:
            return 31104000.0;
        default:
            return HourSeconds;
    }
}

const char* need_update_text(int type) {
    switch (type) {
        case ArchiveDaily:
            return "daily.";
        case ArchiveMonthly:
            return "monthly.";
        case ArchiveYearly:
            return "yearly.";
        case ArchiveErrors:
            return "errors.";
        default:
            return "hourly.";
    }
}

const char* type_text(int type) {
    switch (type) {
        case ArchiveHourly:
            return "Type: Hourly. ";
        case ArchiveDaily:
            return "Type: Daily. ";
        case ArchiveMonthly:
            return "Type: Monthly. ";
        case ArchiveYearly:
            return "Type: Yearly. ";
        case ArchiveErrors:
            return "Type: Errors. ";
        default:
            return "Type: NOT TYPE, WARNING, choose HOURLY";
    }
}

/// The date of a record's averages: one period before its totals.
std::tm average_tm(std::time_t rec_time, int type) {
    if (type == ArchiveHourly) return local_time(rec_time - HourSeconds);
    if (type != ArchiveDaily) return local_time(rec_time);
    std::tm tm = local_time(rec_time - DaySeconds);
    if (tm.tm_hour != 0 || tm.tm_min != 0 || tm.tm_sec != 0) {
        // Summer time changed in between.
        tm.tm_mday += 1;
        tm.tm_hour = tm.tm_min = tm.tm_sec = 0;
    }
    return tm;
}

}  // namespace

std::time_t& KM5::last_request(int type) {
    const auto s = static_cast<std::size_t>(subsystem);
    switch (type) {
        case ArchiveDaily:
            return last_request_DAY[s];
        case ArchiveMonthly:
            return last_request_MONTH[s];
        case ArchiveYearly:
            return last_request_YEAR[s];
        case ArchiveErrors:
            return last_request_ERROR[s];
        default:
            return last_request_HOUR[s];
    }
}

std::time_t& KM5::check_time(int type) {
    const auto s = static_cast<std::size_t>(subsystem);
    switch (type) {
        case ArchiveDaily:
            return check_time_DAY[s];
        case ArchiveMonthly:
            return check_time_MONTH[s];
        case ArchiveYearly:
            return check_time_YEAR[s];
        case ArchiveErrors:
            return check_time_ERROR[s];
        default:
            return check_time_HOUR[s];
    }
}

bool KM5::need_update_archives(int type) {
    enter_state("need update archives ? ");
    log_line(messages_log.get(), "Need update archives, type: ", need_update_text(type));
    const std::time_t now = gateway().now();
    std::time_t& checked = check_time(type);
    const std::time_t before = checked;
    const bool due = std::difftime(now, checked) > update_period(type);
    if (due) checked = now;
    log_line(messages_log.get(), "Now = ", now, ", last_request = ", before, ", fRes = ", int{due});
    return due;
}

int KM5::ask_bounds(int type, int position, const char* state, const char* begin_text, const char* result_text) {
    enter_state(state);
    log_line(messages_log.get(), "Archive : ", archive_type_name(type), begin_text);
    KM5_request req;
    init_request(req);
    req.cmd = CmdArchiveBounds;
    req.data[0] = static_cast<std::uint8_t>(type);
    if (!request(req, true)) return -1;
    if (position == 26) write_first_record_marker(answer_byte(5, req));
    const int value = answer_u16(position, req);
    log_line(messages_log.get(), "Archive : ", archive_type_name(type), result_text, value);
    return value;
}

int KM5::get_first_record_idx(int type) {
    return ask_bounds(type, 6, "get first record idx for archives", ". Get first record idx.", ". First record idx = ");
}

int KM5::get_last_record_idx(int type) {
    return ask_bounds(type, 16, "get last record idx for archives", ". Get last record idx.", ". Last record idx = ");
}

int KM5::get_record_count(int type) {
    return ask_bounds(type, 26, "get record count for archives", ". Get records count. ", ". Records count = ");
}

void KM5::write_first_record_marker(std::uint8_t flags) {
    overwrite_file(archive_path(uuid, subsystem + 1, "tc_archives", "_EXISTS_FIRST_RECORD"),
                   (flags & NoFirstRecordFlag) != 0 ? "0" : "1");
}

int KM5::get_string_by_date(int type, int day, int tm_mon, int tm_year, int hour) {
    enter_state("get string by date for archives");
    log_line(messages_log.get(), "Archive : ", archive_type_name(type), ". Get string number by date : ");
    KM5_request req;
    init_request(req);
    req.cmd = CmdIndexByDate;
    req.data[0] = static_cast<std::uint8_t>(type);
    int_to_bcd(&req.data[1], static_cast<std::uint32_t>(day), 1);
    // The month is coded first and raised afterwards, so October goes out as 0x0A. The meters know no other request.
    int_to_bcd(&req.data[2], static_cast<std::uint32_t>(tm_mon), 1);
    ++req.data[2];
    int_to_bcd(&req.data[3], static_cast<std::uint32_t>(std::max(tm_year - 100, 0)), 1);
    int_to_bcd(&req.data[4], static_cast<std::uint32_t>(hour), 1);
    if (!request(req, true)) return -1;
    const int idx = answer_u16(6, req);
    log_line(messages_log.get(), day, ".", tm_mon + 1, ".", tm_year + 1900, " at ", hour,
             ", string number at archive database => ", idx);
    return idx;
}

void KM5::log_bounds(const KM5_ring& ring, int count, std::time_t last) {
    UniLog* const log = messages_log.get();
    log_line(log, "First archive string: ", ring.begin);
    log_line(log, "Last archive string: ", ring.end);
    log_line(log, "First idx : ", ring.first_idx);
    log_line(log, "Last idx : ", ring.last_idx);
    log_line(log, "Records count : ", count);
    log_line(log, "Last_request_date: ", last);
}

bool KM5::read_indexed(KM5_request& req, std::uint8_t cmd, int type, int idx) {
    for (int retries = 0;; ++retries) {
        init_request(req);
        req.cmd = cmd;
        req.data[0] = static_cast<std::uint8_t>(type);
        for (int i = 0; i < 4; ++i) req.data[static_cast<std::size_t>(1 + i)] = static_cast<std::uint8_t>(idx >> 8 * i);
        if (request(req, true)) return true;
        if (retries >= MaxRetries) return false;
    }
}

bool KM5::is_from_the_future(int type, std::time_t rec_time) const {
    const double ahead = std::difftime(rec_time, gateway().now());
    return (type == ArchiveDaily && ahead > DaySeconds) || (type == ArchiveHourly && ahead > HourSeconds);
}

bool KM5::get_archives(int type) {
    enter_state("get archives");
    log_line(messages_log.get(), "Starts get archives. ");
    if (type == ArchiveHourly) get_error_archives();

    const char* const text = type_text(type);
    if (type < ArchiveHourly || type > ArchiveErrors) type = ArchiveHourly;
    std::time_t& last = last_request(type);
    if (type == ArchiveHourly) publish_item("_DriverStatus", int{StatusHourlyArchive});
    if (type == ArchiveDaily) publish_item("_DriverStatus", int{StatusDailyArchive});
    if (type == ArchiveErrors) publish_item("_DriverStatus", int{StatusErrorArchive});
    log_line(messages_log.get(), text);

    const int count = get_record_count(type);
    if (count == -1) return false;
    const int last_idx = get_last_record_idx(type);
    if (last_idx == -1) return false;
    const std::tm last_tm = local_time(last);
    log_line(messages_log.get(), "Last request date : ", date_text(last_tm));
    int first_idx = 0;
    if (last == 0) {
        first_idx = get_first_record_idx(type);
        log_line(messages_log.get(), "Get first record idx. First idx = ", first_idx);
    } else {
        first_idx = get_string_by_date(type, last_tm.tm_mday, last_tm.tm_mon, last_tm.tm_year, last_tm.tm_hour);
    }
    if (first_idx == -1) return false;

    KM5_ring ring(first_idx, last_idx, count);
    log_bounds(ring, count, last);
    close_default_files();
    std::tm newest_tm = last_tm;
    for (int idx = ring.begin; idx <= ring.end; idx = ring.next(idx)) {
        KM5_request req;
        if (!read_indexed(req, CmdArchiveRecord, type, idx)) return false;
        std::tm record_tm{};
        take_date_block(req, record_tm);
        record_tm.tm_isdst = -1;
        const std::time_t rec_time = make_time(record_tm);
        log_line(messages_log.get(), "Begin = ", ring.begin, ", end = ", ring.end, ", idx = ", idx, " ",
                 asctime_text(record_tm));
        if (rec_time <= last) {
            log_line(messages_log.get(), "last request day|hour(", last, ") > record day(", rec_time,
                     ") => continue\n");
        } else if (!is_from_the_future(type, rec_time)) {
            store_record(req, type, record_tm);
            newest_tm = record_tm;
            log_line(messages_log.get(), "Archives end: last_request_date: ", last, " => ", date_text(newest_tm));
        }
        pending_double.clear();
    }

    last = std::max(last, make_time(newest_tm));
    if (type == ArchiveHourly) get_error_archives();
    return true;
}

void KM5::store_record(const KM5_request& req, int type, std::tm record_tm) {
    using NamedValue = std::pair<std::string, float>;
    std::vector<NamedValue> totals;
    std::vector<NamedValue> averages;
    const KM5_model_table* const table = find_model_table(model);
    const bool heating = !system_type[static_cast<std::size_t>(subsystem)].starts_with("gvs");
    for (std::size_t k = 0; table != nullptr && k < table->params.size(); ++k) {
        const KM5_param& param = table->params[k];
        if (!param.enabled) continue;
        const float value = answer_float(FirstValuePosition + 4 * static_cast<int>(k), req);
        std::string name = param.name;
        if (param.integrating == 1) {
            totals.emplace_back(name, value);
            continue;
        }
        if (is_gvs() && name == "T2") name = "T3";
        if (is_gvs() && name == "P2") name = "P3";
        if (model == 7 && heating && (name == "T3" || name == "P3")) continue;
        averages.emplace_back(name, value);
    }

    const auto add = [this, type](const std::vector<NamedValue>& values) {
        for (const auto& [name, value] : values) add_value(archive_name_for_opc(name, type), value);
    };
    add(totals);
    log_line(messages_log.get(), "Archive date: ", date_text(record_tm));
    for (const auto& [name, value] : pending_double) log_line(messages_log.get(), name, " = ", value);
    flush_values(record_tm, type, QualityGood, subsystem + 1, 0);
    add(averages);
    flush_values(average_tm(make_time(record_tm), type), type, QualityGood, subsystem + 1, 0);
}

std::string KM5::archive_name_for_opc(const std::string& name, int type) {
    UniLog* const log = debug_log.get();
    const std::string result = type == ArchiveHourly  ? opc_name(opc_hourly_names, name)
                               : type == ArchiveDaily ? opc_name(opc_daily_names, name)
                                                      : name;
    const char* const kind = type == ArchiveHourly ? "Type: Hourly. " : type == ArchiveDaily ? "Type: Daily. " : "";
    log_line(log, "Convert archive driver name for OPC. ", kind, name, " -> ", result);
    return result;
}
