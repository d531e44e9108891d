#pragma once
// A simulated meter on a real pseudo-terminal, played by a thread of its own.

#include <cstddef>
#include <string>
#include <thread>

#include "sim_meter.h"

class PtyMeter {
  public:
    /// The meter is not owned, and belongs to the thread as long as this lives. It answers at once, whenever so many
    /// bytes have come.
    explicit PtyMeter(sim::SimMeter& meter, std::size_t request_bytes = 16);
    ~PtyMeter();
    PtyMeter(const PtyMeter&) = delete;
    PtyMeter& operator=(const PtyMeter&) = delete;

    const std::string& device() const { return device_; }

  private:
    void play();

    sim::SimMeter& meter_;
    std::size_t request_bytes_;
    int master_;
    int stop_;  // eventfd, readable once the thread is to stop
    std::string device_;
    std::thread thread_;
};
