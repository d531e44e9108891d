#include "drivers/vist_modbus/vist_modbus_progress.h"

#include <algorithm>
#include <span>

namespace vist_modbus {

namespace {

constexpr const char* HeaderNames[] = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};
constexpr const char* DataNames[] = {"A3", "A5", "A7", "A9", "A11", "A13", "A15", "A2"};

std::time_t newest_of(ArchiveHolder& files, std::span<const char* const> names, int system) {
    std::time_t newest = 0;
    for (const char* const name : names) {
        newest = std::max(newest, files.last_record_time(name, system + 1, "tmp_archives"));
    }
    return newest;
}

}  // namespace

void Progress::begin(ArchiveHolder& files, std::time_t now) {
    last_hour_update.fill(now - CheckLead);
    archives_ok.fill(true);
    for (int system = 0; system < HeatSystems; ++system) {
        const std::time_t newest = newest_of(files, DataNames, system);
        last_request_date[static_cast<std::size_t>(system)] = newest != 0 ? in_32_bits(newest + HourSeconds) : 0;
    }
}

void Progress::look_at_files(ArchiveHolder& files, int system) {
    last_request_date[static_cast<std::size_t>(system)] = newest_of(files, DataNames, system);
    last_request_date_header[static_cast<std::size_t>(system)] = newest_of(files, HeaderNames, system);
}

}  // namespace vist_modbus
