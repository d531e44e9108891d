#pragma once
// The bench of the KM5 tests: a scene, a line, a driver on it, and short words for what they leave behind.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drivers/km5/km5.h"
#include "drivers/km5/km5_base.h"
#include "km5_meter.h"
#include "support/km5_frames.h"
#include "support/km5_listeners.h"
#include "support/scene.h"

// Zones as TZ rules, so that the tests do not depend on the machine's zone files.
inline constexpr const char* Berlin = "CET-1CEST,M3.5.0,M10.5.0/3";

/// What the configuration service would tell a driver.
struct Km5Setup {
    unsigned serial = 12345678;
    bool km56i = false;
    bool isATT_mustbe = false;
    std::vector<std::string> systems = {"heat"};
};

class Km5Bench : public ::testing::Test {
  protected:
    static constexpr const char* Uuid = "m1";
    static constexpr const char* Port = "/dev/ttyS1";

    /// `start` is local time in `zone`.
    explicit Km5Bench(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC");

    /// A new driver with its settings, on the open line: 9600 baud, as after the start of the daemon.
    KM5& start_driver(const Km5Setup& setup = {});
    /// start_driver, then the description, and nothing heard so far.
    KM5& start_described(sim::Km5Meter& meter, const Km5Setup& setup = {});

    /// An item's text without its line end; "(none)" when the file is missing.
    std::string item(const std::string& name, int n = 1) const;
    /// Connected in all six subsystems, as "111111".
    std::string connected() const;
    /// The text of an archive file; empty when it is missing.
    std::string archive(const std::string& name, int n = 1) const;
    std::vector<std::string> archive_names(int n = 1) const;
    /// The text of the state file behind the name.
    std::string state() const;

    /// The lines of the meter's log ("messages", "debug" or "general") without their time.
    std::vector<std::string> log(const std::string& kind) const;
    /// How many lines of a log are exactly `line`.
    int logged(const std::string& kind, const std::string& line) const;
    /// How many lines of a log hold all `parts` in this order.
    int logged_parts(const std::string& kind, const std::vector<std::string>& parts) const;
    /// Forgets what a log holds. The driver writes on behind a hole of zero bytes, which log() passes over.
    void clear_log(const std::string& kind);

    /// The bytes of all requests on the line so far.
    std::vector<sim::ByteVector> requests() const;
    double elapsed() const { return machine.seconds() - start_; }

    Scene scene;
    sim::SimGateway& machine = scene.gateway;
    std::unique_ptr<KM5> driver;

  private:
    double start_ = machine.seconds();
};

/// The first four bytes of the requests to serial 12345678.
inline constexpr std::array<std::uint8_t, 4> Address = {0x78, 0x56, 0x34, 0x12};

/// Command and arguments of a request as plain numbers, for lists in a test: {0x41, 0, 5}.
std::vector<int> asked(const sim::ByteVector& request, std::size_t arguments = 1);
std::vector<std::vector<int>> asked(const std::vector<sim::ByteVector>& requests, std::size_t arguments = 1);

/// The KM5 process as it starts: a KM5_base that has read its port from the configuration and opened it.
class Km5Daemon {
  public:
    explicit Km5Daemon(const std::vector<std::string>& uuids, bool km56i = false, bool isATT_mustbe = false);
    /// The endless loop.
    void operator()() { base.run_main(); }

    KM5_base base;
};
