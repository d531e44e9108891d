#pragma once
// What every simulated meter has in common beside its wire: a clock that can be wrong, records that it stores by
// itself, misbehaviour on demand, and a list of what it heard.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "fault_script.h"
#include "sim_meter.h"

namespace sim {

/// How far a meter's clock is ahead of a right one. It drifts from the moment on at which it was set, or first asked.
class MeterClock {
  public:
    /// The clock of another meter, which nobody has asked yet.
    void replace(std::int64_t ahead, double drift_ppm) {
        ahead_ = ahead;
        drift_ppm_ = drift_ppm;
        since_.reset();
    }
    void set(std::int64_t ahead, std::time_t now) {
        ahead_ = ahead;
        since_ = now;
    }
    void begin(std::time_t now) {
        if (!since_) since_ = now;
    }
    std::int64_t ahead(std::time_t now) const {
        const double seconds = since_ ? std::difftime(now, *since_) : 0.0;
        return ahead_ + std::llround(seconds * drift_ppm_ / 1e6);
    }

  private:
    std::int64_t ahead_ = 0;
    double drift_ppm_ = 0.0;
    std::optional<std::time_t> since_;
};

/// The moments of its own clock at which a meter stores records by itself, each of them once.
class RecordTimes {
  public:
    /// The first one is after `from`.
    void begin(std::int64_t from) {
        done_ = from;
        on_ = true;
    }
    void end() { on_ = false; }
    /// Up to there nothing will be made up: the clock was set.
    void pass_over(std::int64_t until) { done_ = std::max(done_, until); }
    void miss(std::int64_t time) { missed_.insert(time); }
    bool misses(std::int64_t time) const { return missed_.contains(time); }

    /// Calls `store` for each moment that has come by now; `next` gives the one behind a time.
    template <typename Next, typename Store>
    void catch_up(std::int64_t shown, Next next, Store store) {
        if (!on_) return;
        for (std::int64_t time = next(done_); time <= shown; time = next(time)) {
            store(time);
            done_ = time;
        }
    }

  private:
    bool on_ = false;
    std::int64_t done_ = 0;
    std::set<std::int64_t> missed_;
};

/// `Heard` is what the list says of a request, `Key` by what requests are counted.
template <typename Fault, typename Heard, typename Key>
class MeterLife : public SimMeter {
  public:
    // ---- misbehaviour, see fault_script.h and the faults of the family

    void misbehave_next(std::size_t answers, Fault fault) { fault_script.next(answers, std::move(fault)); }
    void misbehave_each(std::size_t k, Fault fault) { fault_script.each(k, std::move(fault)); }
    void misbehave_randomly(double rate, std::uint64_t seed, std::vector<Fault> faults) {
        fault_script.randomly(rate, seed, std::move(faults));
    }
    void behave() { fault_script.clear(); }
    const FaultScript<Fault>& faults() const { return fault_script; }
    std::size_t faults_made() const { return fault_script.faults_made(); }
    std::size_t scripted_faults_left() const { return fault_script.scripted_left(); }

    // ---- what a test looks at

    /// The last 4096 requests that the meter took for its own, oldest first.
    const std::deque<Heard>& heard() const { return heard_; }
    void forget_requests() {
        heard_.clear();
        counts_.clear();
    }

  protected:
    void note(Heard heard, Key key) {
        constexpr std::size_t Kept = 4096;
        heard_.push_back(std::move(heard));
        if (heard_.size() > Kept) heard_.pop_front();
        ++counts_[std::move(key)];
    }
    /// Requests since forget_requests() whose key fits.
    template <typename Fits>
    std::size_t count(Fits fits) const {
        std::size_t count = 0;
        for (const auto& [key, times] : counts_) {
            if (fits(key)) count += times;
        }
        return count;
    }

    FaultScript<Fault> fault_script;
    MeterClock meter_clock;

  private:
    std::deque<Heard> heard_;
    std::map<Key, std::size_t> counts_;
};

}  // namespace sim
