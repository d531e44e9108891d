#pragma once
// How far the archive of one virtual device has been read. The staged files are the memory of it: every pass loads the
// last stored times from them, so a restart neither loses nor repeats a record.

#include <cstdint>
#include <ctime>

#include "archive/archive_holder.h"

struct VISTProgress {
    static constexpr int HourSeconds = 3600;
    static constexpr int Staged = 1;

    /// What a record's time says.
    enum class Step { New, Stored, WrittenInThisPass, BehindHole };

    std::time_t last_request_archive_header = 0;  ///< newest header in the files
    std::time_t last_request_archive_data = 0;    ///< newest record stored
    std::time_t last_archive_record = 0;          ///< last record written in this pass
    std::time_t last_hour_update = 0;             ///< the clock of the rule: a pass is due an hour later
    bool archives_ok = true;                      ///< up to date

    /// Sets the clock of the rule back, so that a pass is due 600 seconds after `now`.
    void wait_from(std::time_t now) { last_hour_update = now - 3000; }
    /// Begins a pass with the times in the files of subsystem `n`.
    void load(ArchiveHolder& files, int n);
    /// Hours from the meter's oldest record to the newest one stored.
    std::int32_t hours_from(std::time_t oldest) const;
    /// Where the walk begins, counted back from the newest record: two records before the last stored one, at the
    /// oldest when that is not in the ring. Not above 0: where the meter stands.
    static std::int32_t position(std::int32_t index, int ArchiveRecNum);
    /// Moves on to a record of this time if it is new.
    Step step_to(std::time_t ts);
    /// Seconds by which the records have reached the header; negative: they have not.
    double past_header() const;
};
