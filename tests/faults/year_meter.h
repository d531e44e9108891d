#pragma once
// What a meter tells a faulty year: its settings, its misbehaviour, and the lines that its records must become,
// reckoned by the simulated meter's own tables.

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "config_service.h"
#include "sim_meter.h"
#include "support/stored_lines.h"

namespace faults {

class Dice;

/// A line of an archive file, the file as a path below the meter's folder on storage: "1/tc_archives/A1".
struct YearLine {
    std::string file;
    std::string text;            ///< without its end
    bool tells_progress = true;  ///< whether a process that starts learns from this file how far the meter was read
};

struct YearRecord {
    int archive = 0;  ///< see YearMeter::archive_number
    std::time_t time = 0;
    bool promised = false;  ///< must be in the files, whole, when it could be read
    std::vector<YearLine> lines = {};
};

/// One meter under a uuid, and the one that hangs in its place for a while.
class YearMeter {
  public:
    static constexpr std::time_t Hour = 3600;
    static constexpr int ClockAhead = 40;  ///< of each meter, seconds: its hour ends before the gateway's
    static constexpr int Kinds = 8;
    static constexpr int EventKind = 4;  ///< of every family that has one

    /// `part`: subsystem, virtual device or heat system, from 0. `kind` is numbered as the family likes.
    static constexpr int archive_number(int part, int kind) { return Kinds * part + kind; }
    static constexpr bool is_event(int archive) { return archive % Kinds == EventKind; }

    virtual ~YearMeter() = default;

    /// "KM5-4", "VIST with 3 devices".
    virtual std::string model() const = 0;
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
    /// When one of the two meters was last asked for records of that archive, or a little later; 0 for never.
    virtual std::time_t last_asked(int archive, bool other) = 0;

    /// How long a quiet stretch with a fresh process must be so that one pass over all archives fits into it, seconds.
    virtual double least_calm() const = 0;
    /// By how much this meter lengthens the quiet stretch of another one on its line.
    virtual double calm_beside_another() const = 0;

    /// Without them a disturbed answer is believed.
    virtual bool has_check_sums() const { return true; }
    /// Whether records may come late for a reason of the family's own.
    virtual bool is_held_up(std::time_t /*now*/) const { return false; }
    /// Whether what is read now may get the time of another hour.
    virtual bool is_misdated(std::time_t /*now*/) const { return false; }
    /// Whether the process that has begun then will never read all archives, for a reason of the family's own.
    virtual bool is_lost_to_process_since(std::time_t /*begin*/) const { return false; }
    /// Files of this folder are the memory; those of a staging family are copied to `tc_tmp_archives`.
    virtual bool is_staging() const { return false; }
    /// Whether files that disagree are emptied.
    virtual bool throws_away() const { return false; }
};

/// What the meter is comes from the dice. `number` tells several meters of one line apart, from 0.
/// An AT-T and the other meters of its family have no process in common.
std::unique_ptr<YearMeter> make_km5_meter(int number, bool att, Dice& dice);
/// One that is not alone has few devices.
std::unique_ptr<YearMeter> make_vist_meter(int number, bool alone, Dice& dice);
std::unique_ptr<YearMeter> make_modbus_meter(int number, Dice& dice);
std::unique_ptr<YearMeter> make_sa94_meter(Dice& dice);

/// The other moment that the same local date names, in the hour that autumn repeats; `time` itself otherwise.
std::time_t twin_of(std::time_t time);

/// When a meter that keeps a list of what it has heard was last asked for something like `is_it`. The list forgets the
/// oldest requests: what it has forgotten was heard before its first one.
template <typename Heard, typename Condition>
std::time_t last_heard(const Heard& heard, Condition is_it) {
    constexpr std::size_t RequestsKept = 4096;
    for (auto request = heard.rbegin(); request != heard.rend(); ++request) {
        if (is_it(*request)) return request->at;
    }
    return heard.size() < RequestsKept ? 0 : heard.front().at;
}

}  // namespace faults
