#pragma once
// A simulated SA-94 heat meter, as it stands on a serial line.
//
// In a test:
//
//     sim::Sa94Meter meter({.address = 0x12345, .firmware = "M301 1.05"});
//     gateway.connect("/dev/ttyS1", meter);                                   // or meter.hear(request, now) by hand
//     meter.set_value("T1", 71.25F);
//     meter.store_hourly({.at = "2024-03-02 11:00", .values = {{"IM1", 120.5}, {"T1", 7120}}});  // bare numbers
//     meter.start_error(5, "2024-03-02 11:20");
//     meter.fill(sim::Sa94Archive::Hourly, {.records = 3000, .newest = "2024-03-02 11:00"});     // a ring that has
//     turned meter.record_archives(true, "2024-03-02 00:00");                        // records by itself from then on
//     meter.misbehave_next(3, sim::sa94_silence().on(sim::Sa94Kind::Block, 2));
//     EXPECT_EQ(meter.requests(sim::Sa94Kind::Connect), 1U);
//     for (const auto& record : meter.records(sim::Sa94Archive::Hourly)) ...  // what lies in the memory, and where
//     for (const auto& line : meter.record_files(archive, record)) ...        // what ought to be in the archive files
//
// The wire stands in sa94_wire.h, the memory in sa94_memory.h, the records in sa94_records.h.
//
// A conversation. Many meters hang on one line. A connect request opens the conversation with the meter of that
// address, which answers with its status byte; all others close theirs and fall silent. Only the meter in conversation
// answers, and a leave request, which nobody answers, closes it. What is no request, or asks for what is not there (a
// block in the long form from a meter with small segments, a parameter code above 15), is met with silence.
//
// Parameters. Four bytes each: a float; or 0 and three BCD numbers, hour, minute, second for code 10, day, month, year
// for code 11. A code that the firmware has nothing for gives 0.
//
// The clock shows local standard time, in summer too.

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "meter_life.h"
#include "sa94_faults.h"
#include "sa94_memory.h"
#include "sa94_records.h"
#include "sa94_tables.h"
#include "sa94_types.h"
#include "sa94_wire.h"

namespace sim {

/// A request that the meter took for its own.
struct Sa94Heard {
    std::time_t at = 0;  ///< by the clock that is right
    Sa94Question request;
};

/// Kind of a request; segment or code; block.
using Sa94Asked = std::tuple<Sa94Kind, unsigned, unsigned>;

class Sa94Meter final : public MeterLife<Sa94Fault, Sa94Heard, Sa94Asked> {
  public:
    explicit Sa94Meter(Sa94Config config = {});

    Answer hear(std::span<const std::uint8_t> request, std::time_t now) override;

    // ---- present state

    /// In the meter's own unit, by the names of its firmware's parameters; another name throws std::invalid_argument.
    /// A value stays as it was set. One that was never set is that of the meter's own life: totals grow.
    void set_value(const std::string& name, float value);
    bool has_value(const std::string& name) const;
    float value(const std::string& name, std::time_t now) const;
    void set_status(std::uint8_t status) { config_.status = status; }
    void set_tubes(const Sa94Tubes& tubes);

    // ---- clock

    /// What the meter's clock shows when a right clock shows `now`.
    Sa94Date clock(std::time_t now) const { return sa94_date_of_face(face(now)); }
    /// From `now` on the clock shows `shown`, and drifts from there. Records are neither made up nor taken back.
    void set_clock(const Sa94When& shown, std::time_t now);

    // ---- archives

    void store_hourly(const Sa94Record& record) { store(Sa94Archive::Hourly, record); }
    void store_daily(const Sa94Record& record) { store(Sa94Archive::Daily, record); }
    void store_event(const Sa94Event& event);
    void start_error(std::uint8_t code, const Sa94When& at) { store_event({.at = at, .code = code}); }
    void stop_error(std::uint8_t code, const Sa94When& at) { store_event({.at = at, .code = code, .stopped = true}); }
    /// Any bytes as the next record, for instance eight times 0xFF, or a date that is none.
    void store_raw(Sa94Archive archive, std::span<const std::uint8_t> record) { memory_.append(archive, record); }

    /// Erases a ring and fills it as if its records had been written one by one. Without `bare` they are those that
    /// the meter would have made by itself; errors have the codes 1 to 20, begun and over in turn.
    void fill(Sa94Archive archive, const Sa94Fill& how);
    void erase_archive(Sa94Archive archive) { memory_.erase_ring(archive); }

    /// With `on` the meter stores by itself an hourly record at each full hour of its own clock, the first one after
    /// `from`, and a daily one at midnight. It is done when the meter next hears anything (or on catch_up), so that a
    /// record is there whenever somebody can ask for it.
    void record_archives(bool on, const Sa94When& from = {});
    void catch_up(std::time_t now);
    /// The record that begins then will not be made, neither the hourly nor a daily one: a hole.
    void miss_hour(const Sa94When& begin) { hours_.miss(sa94_face(begin.date())); }

    /// For erased and nonsense records, counters, texts: all of it may be written.
    Sa94Memory& memory() { return memory_; }
    const Sa94Memory& memory() const { return memory_; }
    /// Makes a record null.
    void erase_record(Sa94Archive archive, const Sa94StoredRecord& record);
    /// What the ring holds, oldest first.
    std::vector<Sa94StoredRecord> records(Sa94Archive archive) const { return memory_.records(archive); }
    /// What a reader of the archive ought to file, by this meter's own tables and its present status.
    std::vector<Sa94FileValue> record_files(Sa94Archive archive, const Sa94StoredRecord& record) const;

    // ---- another meter

    /// Another meter hangs in this one's place, with its own clock and nothing stored; no conversation is open.
    /// Misbehaviour and what was heard stay.
    void swap_for(Sa94Config config);

    // ---- what a test looks at

    const Sa94Config& config() const { return config_; }
    const Sa94Firmware& firmware() const { return firmware_; }
    bool in_conversation() const { return in_conversation_; }

    /// Requests that the meter took for its own; those of a segment or a parameter code only, of a block only.
    std::size_t requests(Sa94Kind kind, std::optional<unsigned> segment_or_code = std::nullopt,
                         std::optional<unsigned> block = std::nullopt) const;

  private:
    std::int64_t face(std::time_t now) const;
    bool is_meant(const Sa94Question& request);
    ByteVector answer(const Sa94Question& request, const Sa94Fault& fault, std::time_t now);
    ByteVector block(const Sa94Question& request, std::size_t further_on) const;
    ByteVector parameter(unsigned code, std::time_t now) const;
    const Sa94Parameter& parameter_named(const std::string& name) const;
    float parameter_value(const Sa94Parameter& parameter, std::time_t now) const;
    void store(Sa94Archive archive, const Sa94Record& record);
    void fill_errors(const Sa94Fill& how, std::int64_t oldest, std::int64_t step, std::size_t passed_over);

    Sa94Config config_;
    Sa94Firmware firmware_;
    Sa94Memory memory_{false, Sa94Turning::EraseSegment};
    bool in_conversation_ = false;
    std::map<std::string, float, std::less<>> values_;

    RecordTimes hours_;  // by the face of the clock
};

}  // namespace sim
