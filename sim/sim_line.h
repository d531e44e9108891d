#pragma once
// A simulated serial line: bytes take the time that the line's settings give them, and the meters on it hear what was
// sent once it has been sent whole. Moments are those of the simulated clock.

#include <sys/types.h>
#include <termios.h>

#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "sim_clock.h"
#include "sim_meter.h"

namespace sim {

/// The bits per second of a line's settings; 9600 when they have none that a line can have.
unsigned baud_of(const termios& settings);
/// The CBAUD bits for so many bits per second; nothing for a speed that no line has.
std::optional<tcflag_t> speed_bits(unsigned baud);

class SimLine {
  public:
    void connect(SimMeter& meter) { meters_.push_back(&meter); }
    void disconnect_all() { meters_.clear(); }
    /// A write takes so many bytes at most from now on; 0 makes it fail.
    void limit_writes(std::size_t most) { most_written_ = most; }

    /// Drops what has arrived by now and takes the settings.
    void set(const termios& settings, Micros now);
    const std::optional<termios>& settings() const { return settings_; }
    int times_set() const { return times_set_; }

    /// How long so many bytes take: ten bits each, eleven with parity.
    Micros duration(std::size_t bytes) const;
    /// How long a read waits for a byte: VTIME.
    Micros patience() const;

    /// Takes bytes to be sent; how many it took, or -1.
    ssize_t write(std::span<const std::uint8_t> bytes);
    /// What waits to be sent, and waits no more.
    ByteVector take_unsent();

    /// The meters hear a request that ended `now`; what they say arrives later. An answer without a delay of its own
    /// starts after 20 ms. Where two meters speak at once, bytes less than a byte's time apart arrive as one, the
    /// exclusive or of both.
    void deliver(std::span<const std::uint8_t> request, Micros now, std::time_t right_time);
    /// Drops what has arrived by now and what waits to be sent.
    void flush(Micros now);
    /// Bytes that have arrived already, before all others.
    void put_noise(const ByteVector& bytes, Micros now);

    /// Takes the bytes that have arrived by now, as many as there is room for.
    std::size_t read(std::span<std::uint8_t> into, Micros now);
    std::optional<Micros> next_arrival() const;

    /// Nothing is left on the line or in the port.
    void power_off();

  private:
    struct Arrival {
        Micros at;
        std::uint8_t byte;
    };

    double bit_seconds() const;
    std::vector<Arrival> arrivals_of(const Answer& answer, Micros now) const;
    std::vector<Arrival> collided(std::vector<Arrival> first, const std::vector<Arrival>& second) const;

    std::vector<SimMeter*> meters_;
    std::optional<termios> settings_;
    std::optional<std::size_t> most_written_;
    int times_set_ = 0;
    ByteVector unsent_;
    std::deque<Arrival> arrivals_;  // in the order of time
};

}  // namespace sim
