// The meter's stored records: when they are looked for, where reading resumes, how a record becomes archive lines.

#include <algorithm>

#include "core/files.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "drivers/km5/km5.h"

namespace {

constexpr int MaxRetries = 20;
constexpr double HourSeconds = 3600.0;
constexpr double DaySeconds = 86400.0;

// By archive type.
constexpr std::array<const char*, 5> NeedUpdateTexts = {"hourly.", "daily.", "monthly.", "yearly.", "errors."};
constexpr std::array<const char*, 5> TypeTexts = {"Type: Hourly. ", "Type: Daily. ", "Type: Monthly. ",
                                                  "Type: Yearly. ", "Type: Errors. "};

bool is_from_the_future(int type, std::time_t rec_time) {
    const double ahead = std::difftime(rec_time, gateway().now());
    return (type == ArchiveDaily && ahead > DaySeconds) || (type == ArchiveHourly && ahead > HourSeconds);
}

}  // namespace

bool KM5::need_update_archives(int type) {
    enter_state("need update archives ? ");
    log_line(messages_log.get(), "Need update archives, type: ", NeedUpdateTexts[archive_index(type)]);
    const std::time_t now = gateway().now();
    const std::time_t before = progress_here().check_time(type);
    const bool due = progress_here().take_turn(type, now);
    log_line(messages_log.get(), "Now = ", now, ", last_request = ", before, ", fRes = ", int{due});
    return due;
}

bool KM5::ask_bounds(int type, const char* state, const char* begin_text, KM5_bounds& out) {
    enter_state(state);
    log_line(messages_log.get(), "Archive : ", archive_type_name(type), begin_text);
    KM5_request req{.cmd = CmdArchiveBounds, .data = {static_cast<std::uint8_t>(type)}};
    if (!request(req, true)) return false;
    out = km5::decode_bounds(req.recv_buf);
    return true;
}

int KM5::get_first_record_idx(int type) {
    KM5_bounds bounds{};
    if (!ask_bounds(type, "get first record idx for archives", ". Get first record idx.", bounds)) return -1;
    log_line(messages_log.get(), "Archive : ", archive_type_name(type), ". First record idx = ", bounds.first);
    return bounds.first;
}

int KM5::get_last_record_idx(int type) {
    KM5_bounds bounds{};
    if (!ask_bounds(type, "get last record idx for archives", ". Get last record idx.", bounds)) return -1;
    log_line(messages_log.get(), "Archive : ", archive_type_name(type), ". Last record idx = ", bounds.last);
    return bounds.last;
}

int KM5::get_record_count(int type) {
    KM5_bounds bounds{};
    if (!ask_bounds(type, "get record count for archives", ". Get records count. ", bounds)) return -1;
    overwrite_file(archive_path(uuid, carried.subsystem + 1, "tc_archives", "_EXISTS_FIRST_RECORD"),
                   bounds.has_first_record ? "1" : "0");
    log_line(messages_log.get(), "Archive : ", archive_type_name(type), ". Records count = ", bounds.count);
    return bounds.count;
}

int KM5::get_string_by_date(int type, int day, int tm_mon, int tm_year, int hour) {
    enter_state("get string by date for archives");
    log_line(messages_log.get(), "Archive : ", archive_type_name(type), ". Get string number by date : ");
    KM5_request req{.cmd = CmdIndexByDate, .data = {static_cast<std::uint8_t>(type)}};
    int_to_bcd(&req.data[1], static_cast<std::uint32_t>(day), 1);
    // The month is coded first and raised afterwards, so October goes out as 0x0A. The meters know no other request.
    int_to_bcd(&req.data[2], static_cast<std::uint32_t>(tm_mon), 1);
    ++req.data[2];
    int_to_bcd(&req.data[3], static_cast<std::uint32_t>(std::max(tm_year - 100, 0)), 1);
    int_to_bcd(&req.data[4], static_cast<std::uint32_t>(hour), 1);
    if (!request(req, true)) return -1;
    const int idx = km5::decode_index(req.recv_buf);
    log_line(messages_log.get(), day, ".", tm_mon + 1, ".", tm_year + 1900, " at ", hour,
             ", string number at archive database => ", idx);
    return idx;
}

KM5_ring KM5::begin_walk(int first_idx, int last_idx, int count, std::time_t last) {
    const KM5_ring ring(first_idx, last_idx, count);
    UniLog* const log = messages_log.get();
    log_line(log, "First archive string: ", ring.begin);
    log_line(log, "Last archive string: ", ring.end);
    log_line(log, "First idx : ", ring.first_idx);
    log_line(log, "Last idx : ", ring.last_idx);
    log_line(log, "Records count : ", count);
    log_line(log, "Last_request_date: ", last);
    close_default_files();
    return ring;
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

bool KM5::get_archives(int type) {
    enter_state("get archives");
    log_line(messages_log.get(), "Starts get archives. ");
    if (type == ArchiveHourly) get_error_archives();

    const bool unknown = type < ArchiveHourly || type > ArchiveErrors;
    if (unknown) type = ArchiveHourly;
    std::time_t& last = progress_here().last_request(type);
    if (type == ArchiveHourly) publish_item("_DriverStatus", int{StatusHourlyArchive});
    if (type == ArchiveDaily) publish_item("_DriverStatus", int{StatusDailyArchive});
    if (type == ArchiveErrors) publish_item("_DriverStatus", int{StatusErrorArchive});
    log_line(messages_log.get(), unknown ? "Type: NOT TYPE, WARNING, choose HOURLY" : TypeTexts[archive_index(type)]);

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

    KM5_ring ring = begin_walk(first_idx, last_idx, count, last);
    std::tm newest_tm = last_tm;
    for (int idx = ring.begin; idx <= ring.end; idx = ring.next(idx)) {
        KM5_request req;
        if (!read_indexed(req, CmdArchiveRecord, type, idx)) return false;
        KM5_record record = km5::decode_record(req.recv_buf);
        const std::time_t rec_time = make_time(record.date);
        log_line(messages_log.get(), "Begin = ", ring.begin, ", end = ", ring.end, ", idx = ", idx, " ",
                 asctime_text(record.date));
        if (rec_time <= last) {
            log_line(messages_log.get(), "last request day|hour(", last, ") > record day(", rec_time,
                     ") => continue\n");
        } else if (!is_from_the_future(type, rec_time)) {
            store_record(record, type);
            newest_tm = record.date;
            log_line(messages_log.get(), "Archives end: last_request_date: ", last, " => ", date_text(newest_tm));
        }
        pending_double.clear();
    }

    last = std::max(last, make_time(newest_tm));
    if (type == ArchiveHourly) get_error_archives();
    return true;
}

void KM5::store_record(const KM5_record& record, int type) {
    const auto add = [this, type](const std::vector<KM5_value>& values) {
        for (const auto& [name, value] : values) add_value(archive_name_for_opc(name, type), value);
    };
    const KM5_sorted sorted = km5::sort_record(record, carried.meter.model, is_hot_water());
    add(sorted.totals);
    log_line(messages_log.get(), "Archive date: ", date_text(record.date));
    for (const auto& [name, value] : pending_double) log_line(messages_log.get(), name, " = ", value);
    flush_values(record.date, type, QualityGood, carried.subsystem + 1, 0);
    add(sorted.averages);
    flush_values(km5::average_date(record.date, type), type, QualityGood, carried.subsystem + 1, 0);
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
