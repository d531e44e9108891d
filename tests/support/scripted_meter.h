#pragma once
// A meter that says what it was told to say, request by request, and remembers what it heard.

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "sim_meter.h"

class ScriptedMeter : public sim::SimMeter {
  public:
    /// The answer to the next request that has none yet; without one the meter keeps silent.
    void will_say(sim::Answer answer) { answers_.push_back(std::move(answer)); }
    void will_say(const std::string& bytes) { will_say({{0.0, {bytes.begin(), bytes.end()}}}); }

    const std::vector<std::string>& heard() const { return heard_; }

    sim::Answer hear(std::span<const std::uint8_t> request, std::time_t /*now*/) override {
        heard_.emplace_back(request.begin(), request.end());
        if (answers_.empty()) return {};
        sim::Answer answer = std::move(answers_.front());
        answers_.pop_front();
        return answer;
    }

  private:
    std::deque<sim::Answer> answers_;
    std::vector<std::string> heard_;
};
