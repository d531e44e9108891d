#pragma once
// A trace of heatmeter-sim, played back as a meter: it says again what was said then.

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

#include "sim_meter.h"

namespace sim {

class ReplayMeter final : public SimMeter {
  public:
    /// What was said on the line `link`; on the only line of a trace, whatever its name. Rows that begin with # are
    /// left out. `strict`: questions must come as they did then. Throws std::invalid_argument for what is no trace.
    ReplayMeter(std::istream& trace, const std::string& link, bool strict);

    /// The answer to the next question of these bytes, after the last one the first again. Silence when it was never
    /// asked; when strict, a std::runtime_error, and silence behind the end of the trace.
    Answer hear(std::span<const std::uint8_t> request, std::time_t now) override;

    std::size_t size() const { return exchanges_.size(); }

  private:
    struct Exchange {
        std::size_t row;  // of the trace, from 1
        ByteVector question;
        Answer answer;
    };

    std::vector<Exchange> exchanges_;
    std::size_t next_ = 0;
    bool strict_;
};

}  // namespace sim
