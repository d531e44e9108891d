// The walk through the meter's archive: where reading resumes, which record is asked for, when the walk ends.
//
// The files are the memory of the walk: the last stored times are read back from them in every pass, so a restart
// neither loses nor repeats a record. The walk starts two records early, and a record is taken only if its time is
// above the last one stored.

#include <algorithm>
#include <array>
#include <limits>

#include "core/gateway.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int VISTMaxArchErrors = 4;
constexpr int ArchiveErrorBudget = VISTMaxArchErrors + 10;
constexpr int LowestServedVersion = 101;
constexpr int HourSeconds = 3600;
constexpr int CheckLead = 3000;  // sets the clock of the need-update rule back, so that it fires every 600 seconds
constexpr int Staged = 1;

const std::array<std::string, 8> HeaderNames = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};

// A27 is fed by no record field; an absent file counts as empty.
const std::array<std::string, 20> DataNames = {
    "A2",  "A3",  "A5",  "A7",  "A9",  "A11", "A13", "A15", "A20", "A21",
    "A22", "A17", "A18", "A19", "A28", "A25", "A26", "A27", "A24", "A23",
};

}  // namespace

bool HCD_VIST::need_update_archives(int subsystem) {
    log_line(log.get(), "Need update archives ?");
    const std::time_t now = gateway().now();
    std::time_t& last = last_hour_update[static_cast<std::size_t>(subsystem)];
    if (std::difftime(now, last) > HourSeconds) {
        log_line(log.get(), "Yes, curtm = ", now, ", last_hour_update = ", last, ", return true");
        last = now - CheckLead;
        return true;
    }
    log_line(log.get(), "No, curtm = ", now, ", return false");
    return false;
}

void HCD_VIST::resume_from_files() {
    const auto s = static_cast<std::size_t>(selected_subsystem);
    const int n = selected_subsystem + 1;
    last_request_archive_header[s] = check_integrity(HeaderNames.data(), HeaderNames.size(), n, Staged);
    last_request_archive_data[s] = check_integrity(DataNames.data(), DataNames.size(), n, Staged);
    // Records are filed one hour before their own time.
    constexpr std::time_t Latest = std::numeric_limits<std::int32_t>::max() - HourSeconds;
    if (last_request_archive_data[s] != 0) {
        last_request_archive_data[s] = std::min(last_request_archive_data[s], Latest) + HourSeconds;
    }
    log_line(log.get(), "Init last_request_archive_data");
    log_line(log.get(), "last_request_archive_data = ", last_request_archive_data[s]);
    log_line(log.get(), "last_request_archive_header = ", last_request_archive_header[s]);
    log_line(log.get(), "GetArchives for virt. device num ", selected_subsystem);
}

bool HCD_VIST::get_archives(int subsystem) {
    publish_item("_DriverStatus", int{StatusHourlyArchive});
    if (subsystem < 0 || subsystem >= MaxVirtualDevices) {
        log_line(log.get(), "WARNING! VIST network number is invalid.");
        return false;
    }
    selected_subsystem = subsystem;
    last_archive_record = 0;
    log_line(log.get(), "get_archives start");
    log_line(log.get(), "subsystem num = ", subsystem);
    resume_from_files();
    if (virtdev_cnt == -1) {
        get_description();
        return true;
    }
    if (sw_version < LowestServedVersion) {
        log_line(log.get(), "Warning! Incompatible VIST SW version ", sw_version);
        return false;
    }
    if (tc_sernum == 0xFFFFFFFF) {
        log_line(log.get(), "WARNING! VIST network number is invalid.");
        return has_reached_header();
    }
    functions.current_buffer = functions.archheader;
    log_line(log.get(), "Do request : Archive Header");
    if (!functions.do_request(reqArchiveHeader)) {
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
    const auto s = static_cast<std::size_t>(selected_subsystem);
    const std::time_t TC_oldestTimestamp = get_oldest_timestamp();
    if (TC_oldestTimestamp == 0) {
        log_line(log.get(), "Failure: No TColdestTimestamp - get_archives fail.");
        return false;
    }
    log_line(log.get(), "Oldest TC's archive record timestamp: ", TC_oldestTimestamp);
    log_line(log.get(), "Newest controller's archive record timestamp: ", last_request_archive_data[s]);
    log_line(log.get(), "Last request archive date = ", last_request_archive_data[s]);
    log_line(log.get(), "TC_oldestTimestamp = ", TC_oldestTimestamp);
    if (!select_record(TC_oldestTimestamp)) return false;
    if (!walk_archive()) return false;
    functions.do_request(reqArchiveEnd);
    return true;
}

bool HCD_VIST::select_record(std::time_t oldest) {
    std::time_t& last = last_request_archive_data[static_cast<std::size_t>(selected_subsystem)];
    if (oldest - HourSeconds > last) {
        // The files are older than anything the meter still holds.
        log_line(log.get(), "perform: last_request_archive_data = 0");
        last = 0;
    }
    auto index = static_cast<std::int32_t>((std::int64_t{last} - oldest) / HourSeconds);
    log_line(log.get(), "Index for request = ", index);
    // Positions count back from the newest record; the walk begins two records before the last stored one.
    const bool out_of_ring = static_cast<std::uint32_t>(index) > static_cast<std::uint32_t>(ArchiveRecNum - 2);
    index = out_of_ring ? ArchiveRecNum : static_cast<std::int32_t>(std::int64_t{ArchiveRecNum} - index + 2);
    if (index <= 0) return true;
    log_line(log.get(), "Selecting record(index) : ", index);
    if (!functions.do_request(reqArchiveSetPosData, index)) {
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
        if (!functions.do_request(reqArchiveNext)) {
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
    const auto s = static_cast<std::size_t>(selected_subsystem);
    const std::time_t header = last_request_archive_header[s];
    const std::int64_t data = std::int64_t{last_request_archive_data[s]} + HourSeconds;
    const auto difference = static_cast<double>(data - header);
    log_line(log.get(), "Determine get_archives() end..");
    log_line(log.get(), "header_date = ", header);
    log_line(log.get(), "delta_date + 3600 = ", static_cast<long>(data));
    log_line(log.get(), "difftime => ", difference);
    return difference >= 0;
}

std::time_t HCD_VIST::get_oldest_timestamp() {
    log_line(log.get(), "Start get timestamp oldest's record");
    for (int tries = 0; tries <= ArchiveErrorBudget; ++tries) {
        std::time_t oldest = 0;
        if (!functions.do_request(reqArchiveSetOldPosition)) {
            log_line(log.get(), "Failure: do_request(pVISTdrv,reqArchiveSetOldPosition) fail");
        } else if (!functions.do_request(reqArchiveCurrentData)) {
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

bool HCD_VIST::get_archive_record_count() {
    if (!functions.do_request(reqArchiveRecordCount)) return false;
    log_line(log.get(), "RC = ", functions.ret_int);
    return true;
}

bool HCD_VIST::getTimestampByRecordNum(int position, std::time_t& out) {
    for (int tries = 0; tries <= ArchiveErrorBudget; ++tries) {
        if (functions.do_request(reqGetRecordByNum, position)) return getDateFromArchiveBuff(out);
    }
    return false;
}
