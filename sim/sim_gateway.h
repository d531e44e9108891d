#pragma once
// The simulated machine: a Gateway whose clock moves only when somebody sleeps or a line is silent, whose serial lines
// end in simulated meters, and whose power can fail at any durable write. Single-threaded and repeatable: an hour of
// polling takes milliseconds.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/gateway.h"
#include "sim_clock.h"
#include "sim_meter.h"
#include "sim_storage.h"

namespace sim {

/// Thrown at the durable write at which the power fails.
struct PowerCut {};

/// Seconds since the epoch of a local time "YYYY-MM-DD hh:mm[:ss]"; std::invalid_argument when it is none.
std::time_t local_seconds(const std::string& local_time);

class SimGateway final : public Gateway {
  public:
    /// `root` stands for "/" and must exist; `start` is the wall clock at the beginning (seconds since the epoch).
    SimGateway(std::string root, std::time_t start);
    ~SimGateway() override;

    // ---- what a test says

    void set_service_address(std::string address);

    /// Puts a meter on the line of `device` (any text that the configuration names); makes the device known. The meter
    /// is not owned. A device without meters can be made known with add_device; an unknown device does not open.
    void connect(const std::string& device, SimMeter& meter);
    void add_device(const std::string& device);
    /// Takes all meters off the line of `device`; the port itself stays, and is silent.
    void disconnect_all(const std::string& device);
    /// Bytes that lie on the line already, to be read before any answer. Setting the line drops them, as it drops all
    /// that was received before.
    void put_noise(const std::string& device, const ByteVector& bytes);

    /// A write to `device` takes so many bytes at most from now on; 0 makes it fail.
    void limit_writes(const std::string& device, std::size_t most);
    /// Setting a line takes so many seconds from now on. A loop that sets it in every turn and does nothing else would
    /// go round a million times in a second of this clock.
    void let_line_setting_take(double seconds);

    /// Runs `action` (in main code the endless loop) until the clock passes `seconds` from now; RunEnded is caught. An
    /// action that returns earlier ends the run where the clock stands then.
    void run_for(double seconds, const std::function<void()>& action);
    /// As run_for, until a local wall-clock time "YYYY-MM-DD hh:mm[:ss]" by the clock as it goes at the start.
    void run_until(const std::string& local_time, const std::function<void()>& action);

    /// At the moment `seconds` from now, in the middle of whatever sleeps or reads then, calls `action` once.
    void at(double seconds, std::function<void()> action);

    /// Moves the wall clock by `seconds` without anybody noticing (a clock that was set). May be negative. The meters'
    /// right time, the end of a run and the actions of at() do not move with it.
    void step_clock(double seconds);

    /// The power fails at the `nth` durable write from now (1 is the next): what was not durable of any file below
    /// /mnt/storage, the file of that write among them, is treated as told, and PowerCut is thrown. The machine can be
    /// used on, as after its next start: the ports are closed and silent, the clock goes on, /tmp is as it was.
    void cut_power_at(int nth, Unsynced unsynced);
    int durable_writes() const;
    /// Makes every durable write from now on fail with this errno; 0 ends it.
    void fail_durable(int error_number);
    /// All that stands below /mnt/storage now is durable; the files found at construction are already.
    void settle_storage();

    // ---- what a test looks at

    struct Exchange {
        std::string device;
        double at;  ///< seconds since the epoch, when the request was written
        ByteVector request;
    };
    const std::vector<Exchange>& exchanges() const;  ///< every write to a port, in order
    void forget_exchanges();
    const std::vector<unsigned>& sleeps() const;              ///< every sleep in whole seconds, in order
    const termios& line_of(const std::string& device) const;  ///< as last set; throws if never set
    int times_line_set(const std::string& device) const;
    double seconds() const;  ///< the clock, seconds since the epoch with fraction

    // ---- Gateway

    timeval time_of_day() override;
    std::int64_t steady_microseconds() override;
    void sleep(unsigned seconds) override;
    void sleep_nanoseconds(long nanoseconds) override;
    int open_port(const char* device) override;
    int set_line(int fd, const termios& line) override;
    ssize_t read_port(int fd, std::span<std::uint8_t> into) override;
    ssize_t write_port(int fd, std::span<const std::uint8_t> bytes) override;
    int drain_port(int fd) override;
    void flush_port(int fd) override;
    int wait_readable(int fd, std::int64_t microseconds) override;
    void end_exchange(int fd) override;
    int make_durable(int fd) override;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace sim
