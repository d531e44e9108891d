#include "sim_clock.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace sim {

void SimClock::advance_to(Micros moment) {
    // Destructors that sleep while a run is being left must not throw again.
    const bool ends = end_.has_value() && std::uncaught_exceptions() == 0;
    const Micros limit = ends ? std::min(moment, *end_) : moment;
    while (!actions_.empty() && actions_.begin()->first <= limit) {
        const auto due = actions_.begin();
        const std::function<void()> action = std::move(due->second);
        now_ = std::max(now_, due->first);
        actions_.erase(due);
        action();
    }
    now_ = std::max(now_, limit);
    if (ends && now_ >= *end_) throw RunEnded{};
}

void SimClock::tick() {
    if (now_ == last_tick_) advance_to(now_ + 1);
    last_tick_ = now_;
}

std::optional<Micros> SimClock::next_action() const {
    if (actions_.empty()) return std::nullopt;
    return actions_.begin()->first;
}

}  // namespace sim
