// The meter's event log, read along with the hourly archive into the one file of events.

#include "core/gateway.h"
#include "core/local_time.h"
#include "drivers/km5/km5.h"

namespace {

constexpr double FutureSeconds = 3600.0;
constexpr std::uint8_t StateBit = 0x80;
constexpr int QualityStateClear = 0;

}  // namespace

bool KM5::get_error_archives() {
    publish_item("_DriverStatus", int{StatusErrorArchive});
    enter_state("get error archives");
    log_line(messages_log.get(), "Start get error archives. ");
    std::time_t& last = last_request(ArchiveErrors);
    std::tm tm = local_time(last);

    const int count = get_record_count(ArchiveErrors);
    if (count == -1) return false;
    const int last_idx = get_last_record_idx(ArchiveErrors);
    if (last_idx == -1) return false;
    log_line(messages_log.get(), "Last request error[ ", subsystem, " ] = ", last);
    int first_idx = 0;
    if (last != 0) {
        log_line(messages_log.get(), "last_request_ERROR[subsystem] != 0");
        first_idx = get_string_by_date(ArchiveErrors, tm.tm_mday, tm.tm_mon, tm.tm_year, tm.tm_hour);
    } else {
        log_line(messages_log.get(), "last_request_ERROR[subsystem] == 0");
        first_idx = get_first_record_idx(ArchiveErrors);
    }
    if (first_idx == -1) return false;

    KM5_ring ring(first_idx, last_idx, count);
    log_bounds(ring, count, last);
    close_default_files();
    for (int idx = ring.begin; idx <= ring.end; idx = ring.next(idx)) {
        enter_state("get error archives");
        KM5_request req;
        if (!read_indexed(req, CmdErrorRecord, ArchiveErrors, idx)) break;
        take_date_block(req, tm);
        tm.tm_isdst = -1;
        const std::time_t rec_time = make_time(tm);
        if (rec_time > last && std::difftime(rec_time, gateway().now()) <= FutureSeconds) store_event(req, tm);
        clear_values();
    }

    enter_state("end error archives");
    // The date of the last event read, stored or not, also after a failure.
    const std::time_t newest = make_time(tm);
    if (newest > last) last = newest;
    log_line(messages_log.get(), "GetErrorArchives end.");
    return true;
}

void KM5::store_event(const KM5_request& req, const std::tm& tm) {
    const std::uint8_t raw = answer_byte(5, req);
    const int code = raw & ~StateBit;
    add_value(EventArchive, code);
    log_line(messages_log.get(), "GetErrorArchives: Hourly ER: ", code);
    log_line(messages_log.get(), "GetErrorArchives: Daily ER: ", code);
    flush_values(tm, 1, (raw & StateBit) != 0 ? QualityGood : QualityStateClear, subsystem + 1, 0);
}
