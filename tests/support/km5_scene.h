#pragma once
// The stand of the KM5 tests: a scene, a line, a driver on it, and short words for what they leave behind.

#include <string>
#include <vector>

#include "drivers/km5/km5.h"
#include "drivers/km5/km5_base.h"
#include "km5_meter.h"
#include "support/driver_stand.h"
#include "support/km5_frames.h"
#include "support/km5_listeners.h"

// Zones as TZ rules, so that the tests do not depend on the machine's zone files.
inline constexpr const char* Berlin = "CET-1CEST,M3.5.0,M10.5.0/3";

/// What the configuration service would tell a driver.
struct Km5Setup {
    unsigned serial = 12345678;
    bool km56i = false;
    bool must_be_att = false;
    std::vector<std::string> systems = {"heat"};
};

class Km5Stand : public DriverStand<KM5> {
  protected:
    using DriverStand::DriverStand;

    /// A new driver with its settings, on the open line, as after the start of the daemon.
    KM5& start_driver(const Km5Setup& setup = {});
    /// start_driver, then the description, and nothing heard so far. The last system is at work then.
    KM5& start_described(sim::Km5Meter& meter, const Km5Setup& setup = {});

    const KM5Progress& progress(int subsystem = 0) const { return driver->get_progress(subsystem); }
    const KM5::Carried& carried() const { return driver->get_carried(); }
    /// An earlier run has left the hourly archive read until `time`, in a file that no model writes.
    void leave_hours_until(std::time_t time, int n = 1) { leave_archive("A16", stored_line(time, 192, 0) + "\n", n); }

    /// The text of the state file behind the name.
    std::string state() const;
    /// How many lines of a log hold all `parts` in this order.
    int logged_parts(const std::string& kind, const Texts& parts) const;

    /// The bytes of all requests on the line so far.
    std::vector<sim::ByteVector> requests() const;
};

/// The first four bytes of the requests to serial 12345678.
inline constexpr std::array<std::uint8_t, 4> Address = {0x78, 0x56, 0x34, 0x12};

/// Command and arguments of a request as plain numbers, for lists in a test: {0x41, 0, 5}.
std::vector<int> asked(const sim::ByteVector& request, std::size_t arguments = 1);
std::vector<std::vector<int>> asked(const std::vector<sim::ByteVector>& requests, std::size_t arguments = 1);

struct Km5Daemon : Daemon<KM5_base> {
    explicit Km5Daemon(const Texts& uuids, bool km56i = false, bool must_be_att = false)
        : Daemon(uuids, km56i, must_be_att) {}
};
