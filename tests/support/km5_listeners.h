#pragma once
// Two small listeners for a serial line: one that plays a list of answers, one that looks over a meter's shoulder.

#include <deque>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "sim_meter.h"

/// Says what it is told, request by request, whoever is asked; silent when nothing is left to say.
class Km5Script final : public sim::SimMeter {
  public:
    Km5Script& say(const sim::ByteVector& bytes, int times = 1) {
        for (int i = 0; i < times; ++i) answers_.push_back(bytes);
        return *this;
    }
    Km5Script& keep_silent(int times = 1) { return say({}, times); }
    /// What follows the script, instead of silence.
    void say_for_ever(const sim::ByteVector& bytes) { last_word_ = bytes; }

    sim::Answer hear(std::span<const std::uint8_t> request, std::time_t /*now*/) override {
        heard.emplace_back(request.begin(), request.end());
        sim::ByteVector bytes = last_word_;
        if (!answers_.empty()) {
            bytes = std::move(answers_.front());
            answers_.pop_front();
        }
        if (bytes.empty()) return {};
        return {{.delay_seconds = 0.02, .bytes = std::move(bytes)}};
    }

    std::vector<sim::ByteVector> heard;

  private:
    std::deque<sim::ByteVector> answers_;
    sim::ByteVector last_word_;
};

/// Calls `look` at each request, before the meter behind it answers.
class WatchedMeter final : public sim::SimMeter {
  public:
    using Look = std::function<void(std::span<const std::uint8_t> request)>;

    WatchedMeter(sim::SimMeter& behind, Look look) : behind_(behind), look_(std::move(look)) {}

    sim::Answer hear(std::span<const std::uint8_t> request, std::time_t now) override {
        look_(request);
        return behind_.hear(request, now);
    }

  private:
    sim::SimMeter& behind_;
    Look look_;
};
