#include "drivers/km5/km5_progress.h"

#include <algorithm>
#include <array>

#include "drivers/km5/km5_tables.h"

namespace {

constexpr int FirstArchiveLead = 1800;  // the first archive pass comes this much earlier, seconds
constexpr double HourlyLagLimit = 14400.0;
constexpr double DailyLagLimit = 86400.0;

/// How long after the last look the next one is due, seconds. A daily record is looked for every hour, too.
constexpr std::array<double, 5> Periods = {3600.0, 3600.0, 2592000.0, 31104000.0, 3600.0};

}  // namespace

KM5Progress::KM5Progress(std::time_t born)
    : check_time_HOUR(born - FirstArchiveLead),
      check_time_DAY(born - FirstArchiveLead),
      check_time_MONTH(born),
      check_time_YEAR(born),
      check_time_ERROR(born) {}

std::time_t& KM5Progress::last_request(int type) {
    return *std::array{&last_request_HOUR, &last_request_DAY, &last_request_MONTH, &last_request_YEAR,
                       &last_request_ERROR}[archive_index(type)];
}

std::time_t& KM5Progress::check_time(int type) {
    return *std::array{&check_time_HOUR, &check_time_DAY, &check_time_MONTH, &check_time_YEAR,
                       &check_time_ERROR}[archive_index(type)];
}

void KM5Progress::load(ArchiveHolder& files, int n) {
    const auto raise = [&](std::time_t& last, const char* name) {
        last = std::max(last, files.last_record_time(name, n, "tc_archives"));
    };
    for (const char* name : daily_integrals) raise(last_request_DAY, name);
    for (const char* name : hourly_integrals) raise(last_request_HOUR, name);
    raise(last_request_ERROR, EventArchive);
}

bool KM5Progress::take_turn(int type, std::time_t now) {
    if (std::difftime(now, check_time(type)) <= Periods[archive_index(type)]) return false;
    check_time(type) = now;
    return true;
}

bool KM5Progress::is_behind(std::time_t meter_clock) const {
    // Lopsided on purpose: strict for the hour, not strict for the day.
    return std::difftime(meter_clock, last_request_HOUR) > HourlyLagLimit ||
           std::difftime(meter_clock, last_request_DAY) >= DailyLagLimit;
}
