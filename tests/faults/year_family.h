#pragma once
// What a meter family tells a faulty year: its meters, its misbehaviour, and the lines that its records must become,
// reckoned by the simulated meters' own tables.

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "config_service.h"
#include "sim_meter.h"

namespace faults {

/// A line of an archive file, the file as a path below the meter's folder on storage: "1/tc_archives/A1".
struct YearLine {
    std::string file;
    std::string text;  ///< without its end
};

struct YearRecord {
    int archive = 0;  ///< numbered as the family likes
    std::time_t time = 0;
    bool promised = false;  ///< must be in the files, whole, when it could be read
    std::vector<YearLine> lines = {};
};

class YearFamily {
  public:
    static constexpr std::time_t Hour = 3600;
    static constexpr int EventArchive = 4;  ///< of every family that has one

    virtual ~YearFamily() = default;

    virtual sim::MeterSettings settings() const = 0;
    /// Meters come into being here, with rings that are full by `now`; the time zone of the year is set.
    virtual void begin(std::time_t now) = 0;
    /// The meter of the year, or the one that hangs in its place for a while.
    virtual sim::SimMeter& meter(bool other) = 0;
    /// Random faults of answers, of both meters, until the next call. `rate` 0 ends them.
    virtual void misbehave(double rate, std::uint64_t seed) = 0;
    /// Answers cut at some length, likewise.
    virtual void cut_answers(double rate, std::uint64_t seed) = 0;
    /// What both meters have stored since the last call. Comes at each full hour at least.
    virtual std::vector<YearRecord> collect(std::time_t now) = 0;
    /// Time of the oldest record that the meter of the year still holds.
    virtual std::time_t oldest_held(int archive) = 0;
    /// The process: makes the driver, reads its settings, opens the line, and polls for ever.
    virtual void live(const std::string& uuid) = 0;

    /// Without them a disturbed answer is believed.
    virtual bool has_check_sums() const { return true; }
    /// Whether records may come late for a reason of the family's own.
    virtual bool is_held_up(std::time_t /*now*/) const { return false; }
    /// Files of this folder are the memory; those of a staging family are copied to `tc_tmp_archives`.
    virtual bool is_staging() const { return false; }
    /// Whether files that disagree are emptied.
    virtual bool throws_away() const { return false; }
};

/// "KM5", "VIST", "VISTmodbus", "SA94"; throws std::invalid_argument for another name.
std::unique_ptr<YearFamily> make_family(const std::string& name);
const std::vector<std::string>& family_names();

std::unique_ptr<YearFamily> make_km5_year();
std::unique_ptr<YearFamily> make_vist_year();
std::unique_ptr<YearFamily> make_modbus_year();
std::unique_ptr<YearFamily> make_sa94_year();

/// "%ld,%d,%f"
std::string year_line(std::time_t time, int quality, double value);
/// The other moment that the same local date names, in the hour that autumn repeats; `time` itself otherwise.
std::time_t twin_of(std::time_t time);

}  // namespace faults
