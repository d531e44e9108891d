// The walk through the meter's archive: where reading resumes, which record is asked for, when the walk ends.
//
// The files are the memory of the walk: the last stored times are read back from them in every pass, so a restart
// neither loses nor repeats a record. The walk starts two records early, and a record is taken only if its time is
// above the last one stored.

#include "core/gateway.h"
#include "core/local_time.h"
#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int VISTMaxArchErrors = 4;
constexpr int ArchiveErrorBudget = VISTMaxArchErrors + 10;
constexpr int HourSeconds = VISTProgress::HourSeconds;

}  // namespace

bool HCD_VIST::need_update_archives(int subsystem) {
    log_line(log.get(), "Need update archives ?");
    const std::time_t now = gateway().now();
    VISTProgress& device = devices[static_cast<std::size_t>(subsystem)];
    if (std::difftime(now, device.last_hour_update) > HourSeconds) {
        log_line(log.get(), "Yes, curtm = ", now, ", last_hour_update = ", device.last_hour_update, ", return true");
        device.wait_from(now);
        return true;
    }
    log_line(log.get(), "No, curtm = ", now, ", return false");
    return false;
}

bool HCD_VIST::get_archives(int subsystem) {
    publish_item("_DriverStatus", int{StatusHourlyArchive});
    if (subsystem < 0 || subsystem >= MaxVirtualDevices) {
        log_line(log.get(), "WARNING! VIST network number is invalid.");
        return false;
    }
    selected_subsystem = subsystem;
    log_line(log.get(), "get_archives start");
    log_line(log.get(), "subsystem num = ", subsystem);
    progress().load(*this, subsystem + 1);
    log_line(log.get(), "Init last_request_archive_data");
    log_line(log.get(), "last_request_archive_data = ", progress().last_request_archive_data);
    log_line(log.get(), "last_request_archive_header = ", progress().last_request_archive_header);
    log_line(log.get(), "GetArchives for virt. device num ", subsystem);
    if (carried.virtdev_cnt == -1) {
        get_description();
        return true;
    }
    if (carried.sw_version < vist::LowestServedVersion) {
        log_line(log.get(), "Warning! Incompatible VIST SW version ", carried.sw_version);
        return false;
    }
    if (tc_sernum == 0xFFFFFFFF) {
        log_line(log.get(), "WARNING! VIST network number is invalid.");
        return has_reached_header();
    }
    log_line(log.get(), "Do request : Archive Header");
    if (!ask(vist::reqArchiveHeader, archheader)) {
        log_line(log.get(), "Archive header request: failure");
        return has_reached_header();
    }
    if (!flush_archive_header()) {
        log_line(log.get(), "Flush archive header: failure");
        return false;
    }
    return read_new_records() && has_reached_header();
}

bool HCD_VIST::read_new_records() {
    const std::time_t TC_oldestTimestamp = get_oldest_timestamp();
    if (TC_oldestTimestamp == 0) {
        log_line(log.get(), "Failure: No TColdestTimestamp - get_archives fail.");
        return false;
    }
    log_line(log.get(), "Oldest TC's archive record timestamp: ", TC_oldestTimestamp);
    log_line(log.get(), "Newest controller's archive record timestamp: ", progress().last_request_archive_data);
    log_line(log.get(), "Last request archive date = ", progress().last_request_archive_data);
    log_line(log.get(), "TC_oldestTimestamp = ", TC_oldestTimestamp);
    if (!select_record(TC_oldestTimestamp)) return false;
    if (!walk_archive()) return false;
    ask(vist::reqArchiveEnd, archheader);
    return true;
}

bool HCD_VIST::select_record(std::time_t oldest) {
    if (oldest - HourSeconds > progress().last_request_archive_data) {
        // The files are older than anything the meter still holds.
        log_line(log.get(), "perform: last_request_archive_data = 0");
        progress().last_request_archive_data = 0;
    }
    std::int32_t index = progress().hours_from(oldest);
    log_line(log.get(), "Index for request = ", index);
    index = VISTProgress::position(index, carried.header.ArchiveRecNum);
    if (index <= 0) return true;
    log_line(log.get(), "Selecting record(index) : ", index);
    if (!ask(vist::reqArchiveSetPosData, archheader, index)) {
        log_line(log.get(), "Failure: Selecting record fail.");
        return false;
    }
    log_line(log.get(), "Success: Selecting record.");
    return true;
}

bool HCD_VIST::walk_archive() {
    int Err_cnt = 0;
    bool ok = true;
    while (ok) {
        if (Err_cnt > ArchiveErrorBudget) {
            log_line(log.get(), "Err_cnt(", Err_cnt, ") > VISTMaxArchErrors+10(", ArchiveErrorBudget, ") => return");
            return false;
        }
        log_line(log.get(), "Do request next record");
        if (!ask(vist::reqArchiveNext, archheader)) {
            log_line(log.get(), "Failure: next record request");
            log_line(log.get(), "Archive retriving FAILED!", ArchiveErrorBudget);
            return true;
        }
        log_line(log.get(), "Success: next record request");
        int error = 0;
        ok = flush_archive_data(error);
        log_line(log.get(), "flush archive data end: ", ok ? "success" : "failure");
        if (error == 1) {
            log_line(log.get(), "ERROR_CRC_CALC");
            ++Err_cnt;
            log_line(log.get(), "Error count = ", Err_cnt, " of MaxErrors = ", ArchiveErrorBudget);
        }
    }
    return true;
}

bool HCD_VIST::has_reached_header() {
    const double difference = progress().past_header();
    log_line(log.get(), "Determine get_archives() end..");
    log_line(log.get(), "header_date = ", progress().last_request_archive_header);
    log_line(log.get(), "delta_date + 3600 = ",
             static_cast<long>(std::int64_t{progress().last_request_archive_data} + HourSeconds));
    log_line(log.get(), "difftime => ", difference);
    return difference >= 0;
}

std::time_t HCD_VIST::get_oldest_timestamp() {
    log_line(log.get(), "Start get timestamp oldest's record");
    for (int tries = 0; tries <= ArchiveErrorBudget; ++tries) {
        std::time_t oldest = 0;
        if (!ask(vist::reqArchiveSetOldPosition, archheader)) {
            log_line(log.get(), "Failure: do_request(pVISTdrv,reqArchiveSetOldPosition) fail");
        } else if (!ask(vist::reqArchiveCurrentData, archheader)) {
            log_line(log.get(), "Failure: do_request(pVISTdrv,reqArchiveCurrentData) fail");
        } else if (!getDateFromArchiveBuff(oldest)) {
            log_line(log.get(), "Failure: getDateFromArchiveBuff fail");
        } else {
            log_line(log.get(), "Success: oldest's record timestamp = ", oldest);
            return oldest;
        }
    }
    return 0;
}

bool HCD_VIST::flush_archive_header() {
    log_line(log.get(), "Start flush archive header");
    const vist::ArchiveHeader header = vist::decode_header(packet(archheader));
    if (!header.good) {
        log_line(log.get(), "Incoming CRC != calc CRC, return false");
        return false;
    }
    log_line(log.get(), "CRC ok");
    carried.header = header;
    std::tm tm = header.time;
    log_line(log.get(), "Archive header time: ", vist::clock_text(tm));
    log_line(log.get(), "Archive header date: ", vist::day_text(tm));
    const std::time_t ts = make_time(tm);
    if (progress().last_request_archive_header >= ts) {
        log_line(log.get(), "Current header timestamp is exists, return false");
        return false;
    }
    log_line(log.get(), "Ok, flush_archives. New max timestamp = ", ts);
    progress().last_request_archive_header = ts;
    for (const vist::ArchiveValue& total : header.totals) add_value(total.name, total.value);
    ArchiveHolder::flush_values(tm, 0, QualityGood, selected_subsystem + 1, VISTProgress::Staged);
    return true;
}

bool HCD_VIST::getDateFromArchiveBuff(std::time_t& out) {
    std::optional<std::tm> tm = vist::decode_record_time(packet(archheader));
    log_line(log.get(), tm ? "pRec->crc == calc_crc" : "pRec->crc != calc_crc");
    if (tm) out = make_time(*tm);
    return tm.has_value();
}

bool HCD_VIST::flush_archive_data(int& error) {
    error = 0;
    log_line(log.get(), "Start flush archive data");
    const PacketBuffer bytes = packet(archheader);
    if (!vist::decode_record_time(bytes)) {
        log_line(log.get(), "Incoming CRC != calc CRC  ==> error = error_crc_calc, return true");
        error = 1;
        ask(vist::reqArchivePrev, archheader);  // so that the next step brings the same record again
        return true;
    }
    log_line(log.get(), "CRC ok");

    std::tm tm = vist::take_full_hour(bytes);
    const std::time_t ts = make_time(tm);
    log_line(log.get(), "Archive record timestamp: ", ts);
    switch (progress().step_to(ts)) {
        case VISTProgress::Step::BehindHole:
            log_line(log.get(), "Record's timestamp less that coming record's timestamp ");
            log_line(log.get(), "return false");
            return false;
        case VISTProgress::Step::Stored:
            log_line(log.get(), "Current data timestamp is exists, return true");
            return true;
        case VISTProgress::Step::WrittenInThisPass:
            log_line(log.get(), "pVISTdrv->last_archive_record != current_timestamp, return true");
            log_line(log.get(), "Last request archive data = ", ts);
            return true;
        case VISTProgress::Step::New:
            break;
    }
    const vist::ArchiveRecord record = vist::decode_record(bytes, carried.header);
    for (const vist::ArchiveValue& value : record.values) add_value(value.name, value.value);
    if (record.A28) add_value("A28", *record.A28);
    for (const vist::ArchiveValue& value : record.measured) {
        add_value_q(value.name, value.value, value.good ? QualityGood : 0);
    }
    const std::tm covered = local_time(ts - HourSeconds);
    ArchiveHolder::flush_values(covered, 0, QualityGood, selected_subsystem + 1, VISTProgress::Staged);
    flush_values_q(covered, 0, selected_subsystem + 1, VISTProgress::Staged);
    return true;
}

bool HCD_VIST::get_archive_record_count() {
    const VISTReply reply = ask(vist::reqArchiveRecordCount);
    if (reply) log_line(log.get(), "RC = ", reply.ret_int);
    return reply.done;
}

bool HCD_VIST::getTimestampByRecordNum(int position, std::time_t& out) {
    for (int tries = 0; tries <= ArchiveErrorBudget; ++tries) {
        if (ask(vist::reqGetRecordByNum, archheader, position)) return getDateFromArchiveBuff(out);
    }
    return false;
}
