#pragma once
// What the tests of every family stand on: a scene, a line, a driver on it, and short words for what they
// leave behind. The families' own stands add their meters and what only they can say.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/line_settings.h"
#include "support/configured.h"
#include "support/scene.h"
#include "support/stored_lines.h"

using Texts = std::vector<std::string>;

class Stand : public ::testing::Test {
  protected:
    static constexpr const char* Uuid = "m1";
    static constexpr const char* Port = "/dev/ttyS1";

    /// `start` is local time in `zone`. The port is there, nobody hangs on it.
    explicit Stand(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC");

    /// What a driver prints is nobody's business in most tests.
    template <typename Work>
    static void quietly(Work work) {
        silence(work);
    }

    /// The settings of the configuration for this port: 9600 baud without parity.
    static MeterSettings settings_for(std::uint32_t serial);

    /// An item's text without its line end; "(none)" when the file is missing.
    std::string item(const std::string& name, int n = 1, const std::string& uuid = Uuid) const;
    /// Connected in all six subsystems, as "111111".
    std::string connected() const;
    /// The text of an archive file; empty when it is missing.
    std::string archive(const std::string& name, int n = 1, const std::string& directory = "tc_archives") const;
    std::string staged(const std::string& name, int n = 1) const { return archive(name, n, "tmp_archives"); }
    /// Where outside readers of a staging driver look.
    std::string handed_over(const std::string& name, int n = 1) const { return archive(name, n, "tc_tmp_archives"); }
    Texts archive_names(int n = 1) const;
    /// What stands in the files of a directory; empty files and those whose name begins with "_" and a small letter
    /// are left out.
    LineCounts lines_in(const std::string& directory, int n = 1, const std::string& uuid = Uuid) const;
    /// An archive file as an earlier run has left it.
    void leave_archive(const std::string& name, const std::string& text, int n = 1,
                       const std::string& directory = "tc_archives");
    void leave_staged(const std::string& name, const std::string& text, int n = 1) {
        leave_archive(name, text, n, "tmp_archives");
    }

    // The lines of a log without their time. `kind` is "messages", "debug" or "general" of the families with three
    // logs, and empty of those with one.

    Texts log(const std::string& kind = "") const;
    /// Of the log "/tmp/uni_logs.<ending>".
    Texts lines_of_log(const std::string& ending) const;
    /// How many lines are exactly `line`.
    int logged(const std::string& kind, const std::string& line) const;
    int logged(const std::string& line) const { return logged("", line); }
    /// How many begin with it.
    int logged_start(const std::string& kind, const std::string& line) const;
    int logged_start(const std::string& line) const { return logged_start("", line); }
    /// These lines stand in the log in this order, whatever is between them.
    ::testing::AssertionResult logged_in_order(const std::string& kind, const Texts& lines) const;
    ::testing::AssertionResult logged_in_order(const Texts& lines) const { return logged_in_order("", lines); }
    /// Forgets what a log holds. The driver writes on behind a hole of zero bytes, which log() passes over.
    void clear_log(const std::string& kind = "");

    double elapsed() const { return machine.seconds() - start_; }

    Scene scene;
    sim::SimGateway& machine = scene.gateway;

  private:
    static void silence(const std::function<void()>& work);

    double start_ = machine.seconds();
};

template <typename Driver>
class DriverStand : public Stand {
  protected:
    using Stand::Stand;

    void run() {
        quietly([this] { driver->run_main(); });
    }

    std::unique_ptr<Driver> driver;
};

/// The process of a family as it starts: a parent that has read its port from the configuration and opened it.
template <typename Parent>
class Daemon {
  public:
    template <typename... Flags>
    explicit Daemon(const Texts& uuids, Flags... flags) : base(uuids, flags...) {
        read_driver_config(base);
        base.open_tty();
    }
    /// The endless loop.
    void operator()() { base.run_main(); }

    Parent base;
};
