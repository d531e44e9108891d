#pragma once
// A meter of a faulty year with what is known of it: its records, its archive files, and what it is owed when.

#include <ctime>
#include <functional>
#include <optional>
#include <string>

#include "faults/archive_watch.h"
#include "faults/ledger.h"
#include "faults/year_meter.h"

namespace faults {

class WatchedMeter {
  public:
    /// `storage` is the gateway's storage. Of a meter that is not read nothing is owed.
    WatchedMeter(const std::string& storage, std::string its_uuid, YearMeter& its_meter, bool read);

    void take_new_records(std::time_t now);
    std::string memory_folder() const { return meter.is_staging() ? "tmp_archives" : "tc_archives"; }
    /// What the process has asked for since then may have been read, and was not written.
    void doubt_what_was_asked(std::time_t since);
    /// The same of what it has asked the other meter for: own records of that time are passed over.
    void doubt_what_another_was_asked(std::time_t since);
    /// The same of events only.
    void doubt_events_asked(std::time_t since);
    void process_is_gone() { ledger.process_is_gone(meter.throws_away()); }
    /// Throws BrokenInvariant when something is missing that was known by then.
    void look_for_missing(std::time_t known_by);

    const std::string uuid;
    YearMeter& meter;
    const bool is_read;
    Ledger ledger;
    ArchiveWatch archives;
    std::optional<std::time_t> calm_since;  ///< nothing while what is promised cannot be asked for

  private:
    void doubt(std::time_t since, const std::function<std::time_t(int)>& last_asked);

    std::optional<std::time_t> misdated_since_;
};

}  // namespace faults
