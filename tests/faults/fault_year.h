#pragma once
// A year of one line and its process, with everything going wrong that a seed has drawn, and a look at what holds at
// every moment after each hour and at the end of each fault.

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "faults/fault_plan.h"
#include "faults/installation.h"
#include "faults/machine_watch.h"
#include "faults/private_storage.h"
#include "faults/watched_meter.h"
#include "support/scene.h"

class UniLog;

namespace faults {

class FaultYear {
  public:
    FaultYear(const std::string& family, std::uint64_t seed, int days);
    ~FaultYear();

    /// Throws BrokenInvariant.
    void run();

    double day() const;
    /// What the year was about when it ended, or broke.
    std::string situation() const;
    std::string summary() const;
    /// What stands on the line.
    std::string models() const { return installation_.models(); }
    int calm_looks() const { return calm_looks_; }
    std::size_t lines_read() const;
    std::size_t records_found() const;
    /// The folder that stands for "/", as long as the year is.
    const std::string& root() const { return scene_.root(); }

  private:
    struct ProcessKilled {};
    static constexpr const char* Port = "/dev/ttyS1";

    // ---- the plan, put on the machine's clock
    void schedule_looks();
    void schedule(std::size_t episode);
    void schedule_free_windows(const Episode& episode);
    /// At that moment, seconds from the beginning of the year; the next one when it has passed.
    void at(double moment, std::function<void()> action);
    void hold_bus(bool held);
    void free_bus(const Episode& episode, double moment);

    // ---- faults
    void begin_fault(const Episode& episode);
    void end_fault(const Episode& episode);
    void connect();
    void disturb(const Episode& episode);
    void begin_absence(const Episode& episode);
    void doubt_after(const Episode& episode);
    void step_clock(double seconds);
    void strew_bytes(const Episode& episode);
    void vanish(const Episode& episode);
    std::string folder_to_vanish(const Episode& episode) const;
    void make_folder_again(const Episode& episode);
    /// The one meter that a fault of one meter befalls.
    WatchedMeter& victim(const Episode& episode) const;
    void begin_calm(const Episode& episode);
    void end_calm();

    // ---- processes
    void live();
    void open_logs(bool loud);
    void after_power_cut();
    void kill() const;

    // ---- looks
    void look();
    void look_at_neighbours(const Episode& episode);
    bool is_deaf(const WatchedMeter& meter) const;
    std::size_t trail_bytes() const;
    std::size_t explained_bytes() const;
    template <typename Number>
    std::size_t sum_of(Number number) const;
    double elapsed() const { return machine_.seconds() - stepped_ - begin_; }
    std::time_t right_time() const { return static_cast<std::time_t>(machine_.seconds() - stepped_); }

    const std::string name_;
    const std::uint64_t seed_;
    const double seconds_;
    Installation installation_;
    Plan plan_;
    Scene scene_;
    PrivateStorage storage_;
    Installation::Uuids uuids_;
    std::vector<std::unique_ptr<WatchedMeter>> meters_;
    MachineWatch watch_;
    sim::SimGateway& machine_ = scene_.gateway;
    const double begin_;

    std::unique_ptr<UniLog> general_;
    bool running_ = false;
    bool bus_held_ = false;
    bool bus_stays_free_ = false;
    const WatchedMeter* absent_ = nullptr;    ///< from the line
    const WatchedMeter* replaced_ = nullptr;  ///< by another one
    double stepped_ = 0;
    double latest_wall_ = 0;             ///< that this process has seen
    bool storage_fault_ = false;         ///< since the last look
    bool may_have_thrown_away_ = false;  ///< likewise
    std::time_t process_began_ = 0;
    const Episode* episode_ = nullptr;
    sim::Unsynced unsynced_ = sim::Unsynced::Kept;
    std::size_t tear_length_ = 0;
    std::size_t trail_ = 0;
    int processes_ = 0;
    int power_cuts_ = 0;
    int calm_looks_ = 0;
    int skipped_ = 0;
    int neighbour_looks_ = 0;
    int faults_ = 0;
};

}  // namespace faults
