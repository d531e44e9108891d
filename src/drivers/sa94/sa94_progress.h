#pragma once
// How far a meter's archives have been read. The archive files are the only memory of it: all of this is loaded from
// them, and nothing but the last energy totals is stored beside them.

#include <ctime>
#include <string>

#include "archive/archive_holder.h"

class SA94Progress {
  public:
    /// What the files of the meter `uuid`, which `files` reads, tell.
    void load(ArchiveHolder& files, const std::string& uuid);

    // Times of the newest stored records.
    std::time_t LastTimestampHourly = 0;
    std::time_t LastTimestampDaily = 0;
    std::time_t LastTimestampError = 0;
    std::time_t& last_timestamp(int archive_type);

    // When the hourly and error archives, and the daily one, were last due.
    std::time_t last_update_hourly = 0;
    std::time_t last_update_daily = 0;
    /// True once for each hour; any other archive is always due.
    bool needUpdateArchives(int archive_type);

    // The last totals that were not zero.
    double dPrevE = 0.0;
    double hPrevE = 0.0;
    /// A total of zero gives way to the last one that was not.
    static void carryEnergy(double& value, double& previous);
    void savePrevEnergy(int archive_type, double value) const;
    double loadPrevEnergy(int archive_type) const;

  private:
    std::string meter;
};
