#include "drivers/sa94/sa94_progress.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <span>

#include "core/file.h"
#include "core/files.h"
#include "core/gateway.h"
#include "core/text.h"
#include "drivers/sa94/sa94_archive.h"

namespace {

constexpr std::time_t FirstArchiveLead = 3000;  // the first archive pass comes this much earlier, seconds
constexpr double ArchiveInterval = 3600.0;
constexpr int EnergyTextBytes = 32;
constexpr std::size_t EnergyLimit = 512;  // longer than any double

constexpr const char* DailyItems[] = {"A29", "A32", "A34", "A40", "A42"};
constexpr const char* HourlyItems[] = {"A1", "A2",  "A3",  "A4",  "A5",  "A6",  "A7",  "A8",
                                       "A9", "A10", "A11", "A12", "A13", "A14", "A15", "A16"};

std::time_t recover_last_time(ArchiveHolder& files, std::span<const char* const> names, std::time_t shift) {
    std::time_t last = 0;
    for (const char* const name : names) {
        const std::time_t t = files.last_record_time(name, 1, ArchiveFolder);
        // The time as it stands in the file is compared with one that may have been shifted: not a plain maximum.
        if (last < t) last = ArchiveHolder::is_shifted_name(name) ? t - shift : t;
    }
    return last;
}

std::string energy_path(const std::string& uuid, int archive_type) {
    const char* const name = archive_type == HOURLY_DB ? "_hPrevE" : archive_type == DAILY_DB ? "_dPrevE" : "";
    return *name == '\0' ? "" : archive_path(uuid, 1, ArchiveFolder, name);
}

}  // namespace

void SA94Progress::load(ArchiveHolder& files, const std::string& uuid) {
    meter = uuid;
    last_update_hourly = last_update_daily = gateway().now() - FirstArchiveLead;
    LastTimestampDaily = recover_last_time(files, DailyItems, DaySeconds);
    LastTimestampHourly = recover_last_time(files, HourlyItems, HourSeconds);
    LastTimestampError = files.last_record_time(ErrorItem, 1, ArchiveFolder);
    dPrevE = loadPrevEnergy(DAILY_DB);
    hPrevE = loadPrevEnergy(HOURLY_DB);
}

std::time_t& SA94Progress::last_timestamp(int archive_type) {
    if (archive_type == HOURLY_DB) return LastTimestampHourly;
    return archive_type == DAILY_DB ? LastTimestampDaily : LastTimestampError;
}

bool SA94Progress::needUpdateArchives(int archive_type) {
    if (archive_type != HOURLY_DB && archive_type != DAILY_DB) return true;
    std::time_t& last_update = archive_type == HOURLY_DB ? last_update_hourly : last_update_daily;
    const std::time_t now = gateway().now();
    if (std::difftime(now, last_update) <= ArchiveInterval) return false;
    last_update = now;
    return true;
}

void SA94Progress::carryEnergy(double& value, double& previous) {
    if (value == 0.0) {
        value = previous;
    } else {
        previous = value;
    }
}

void SA94Progress::savePrevEnergy(int archive_type, double value) const {
    const std::string path = energy_path(meter, archive_type);
    // Before the archive line that the value stands in for: once lost, a total of zero would be filed as zero.
    if (!path.empty()) overwrite_durably(path, format_cut(EnergyLimit, "%f", value));
}

double SA94Progress::loadPrevEnergy(int archive_type) const {
    const std::string path = energy_path(meter, archive_type);
    if (path.empty()) return 0.0;
    std::array<char, EnergyTextBytes> text{};
    File(path, O_RDONLY).read(std::span(text).first(text.size() - 1));
    *std::find(text.begin(), text.end() - 1, '\n') = '\0';  // of the first line
    return std::atof(text.data());
}
