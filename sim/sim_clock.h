#pragma once
// The simulated clock: whole microseconds that pass only when somebody lets them pass.

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>

namespace sim {

using Micros = std::int64_t;

/// Thrown out of an endless loop when the simulated clock reaches the end of a run.
struct RunEnded {};

class SimClock {
  public:
    explicit SimClock(std::time_t start) : start_(static_cast<Micros>(start) * 1'000'000) {}

    /// Time since the beginning; moments of actions, ends and arrivals are counted in it.
    Micros now() const { return now_; }
    /// Microseconds since the epoch, by a clock that nobody has set.
    Micros right_time() const { return start_ + now_; }
    /// Microseconds since the epoch, by the machine's own clock.
    Micros wall_time() const { return start_ + now_ + stepped_; }
    void step(Micros by) { stepped_ += by; }

    /// Lets time pass up to `moment`, calling the actions that fall due on the way, each at its own moment. Throws
    /// RunEnded at the end of the run; the actions of that moment have been called then.
    void advance_to(Micros moment);
    /// One microsecond, unless time has passed since the last tick: a loop that only looks at the clock ends as well.
    void tick();

    void at(Micros moment, std::function<void()> action) { actions_.emplace(moment, std::move(action)); }
    std::optional<Micros> next_action() const;
    void set_end(std::optional<Micros> moment) { end_ = moment; }

  private:
    Micros start_;
    Micros now_ = 0;
    Micros stepped_ = 0;
    Micros last_tick_ = -1;
    std::optional<Micros> end_;
    std::multimap<Micros, std::function<void()>> actions_;  // equal moments in the order of their coming
};

}  // namespace sim
