// The meter's event log, read along with the hourly archive into the one file of events.

#include "core/gateway.h"
#include "core/local_time.h"
#include "drivers/km5/km5.h"

namespace {

constexpr double FutureSeconds = 3600.0;
constexpr int QualityStateClear = 0;

}  // namespace

bool KM5::get_error_archives() {
    publish_item("_DriverStatus", int{StatusErrorArchive});
    enter_state("get error archives");
    log_line(messages_log.get(), "Start get error archives. ");
    std::time_t& last = progress_here().last_request_ERROR;
    std::tm tm = local_time(last);

    const int count = get_record_count(ArchiveErrors);
    if (count == -1) return false;
    const int last_idx = get_last_record_idx(ArchiveErrors);
    if (last_idx == -1) return false;
    log_line(messages_log.get(), "Last request error[ ", carried.subsystem, " ] = ", last);
    int first_idx = 0;
    if (last != 0) {
        log_line(messages_log.get(), "last_request_ERROR[subsystem] != 0");
        first_idx = get_string_by_date(ArchiveErrors, tm.tm_mday, tm.tm_mon, tm.tm_year, tm.tm_hour);
    } else {
        log_line(messages_log.get(), "last_request_ERROR[subsystem] == 0");
        first_idx = get_first_record_idx(ArchiveErrors);
    }
    if (first_idx == -1) return false;

    KM5_ring ring = begin_walk(first_idx, last_idx, count, last);
    for (int idx = ring.begin; idx <= ring.end; idx = ring.next(idx)) {
        enter_state("get error archives");
        KM5_request req;
        if (!read_indexed(req, CmdErrorRecord, ArchiveErrors, idx)) break;
        KM5_event event = km5::decode_event(req.recv_buf);
        const std::time_t rec_time = make_time(event.date);
        if (rec_time > last && std::difftime(rec_time, gateway().now()) <= FutureSeconds) store_event(event);
        tm = event.date;
        clear_values();
    }

    enter_state("end error archives");
    // The date of the last event read, stored or not, also after a failure.
    const std::time_t newest = make_time(tm);
    if (newest > last) last = newest;
    log_line(messages_log.get(), "GetErrorArchives end.");
    return true;
}

void KM5::store_event(const KM5_event& event) {
    add_value(EventArchive, event.code);
    log_line(messages_log.get(), "GetErrorArchives: Hourly ER: ", event.code);
    log_line(messages_log.get(), "GetErrorArchives: Daily ER: ", event.code);
    flush_values(event.date, 1, event.state ? QualityGood : QualityStateClear, carried.subsystem + 1, 0);
}
