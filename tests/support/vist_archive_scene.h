#pragma once
// The bench of the VIST archive tests: a scene, a line, a driver on it, packets made by hand, and short words for what
// they leave behind.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drivers/vist/hcd_vist.h"
#include "drivers/vist/vist_base.h"
#include "support/scene.h"
#include "vist_meter.h"

/// How often each line stands in each file; the text before the line end only.
using VistLineCounts = std::map<std::string, std::map<std::string, int>>;

/// "%ld,%d,%f", the text of an archive line without its end.
std::string vist_line(std::time_t time, int quality, double value);
std::string vist_line(const sim::VistFileValue& value);

class VistArchiveBench : public ::testing::Test {
  protected:
    static constexpr const char* Uuid = "m1";
    static constexpr const char* Port = "/dev/ttyS1";

    /// `start` is local time in `zone`.
    explicit VistArchiveBench(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC");
    ~VistArchiveBench() override;

    /// A new driver for network number 1 on the open line: 9600 baud, as after the start of the daemon.
    HCD_VIST& start_driver();
    /// start_driver with the meter on the line, then the description, and nothing heard so far.
    HCD_VIST& start_described(sim::VistMeter& meter);

    /// An item's text without its line end; "(none)" when the file is missing.
    std::string item(const std::string& name, int n = 1) const;
    /// The text of a file in tmp_archives; empty when it is missing.
    std::string staged(const std::string& name, int n = 1) const;
    /// The same in tc_tmp_archives, where outside readers look.
    std::string handed_over(const std::string& name, int n = 1) const;
    /// What stands in the files of a directory, empty files left out.
    VistLineCounts lines_in(const std::string& directory, int n = 1, const std::string& uuid = Uuid) const;
    /// A file of tmp_archives as an earlier run has left it.
    void leave_staged(const std::string& name, const std::string& text, int n = 1);
    /// The same line of quality 192 and value 1 in all files of a list.
    void leave_record(std::time_t time, int n = 1);
    void leave_header(std::time_t time, int n = 1);

    /// The lines of the meter's log without their time.
    std::vector<std::string> log() const;
    /// How many lines of the log are exactly `line`.
    int logged(const std::string& line) const;
    int general_logged(const std::string& line) const;
    /// The commands on the line so far, without carriage return.
    std::vector<std::string> commands() const;
    double elapsed() const { return machine.seconds() - start_; }

    Scene scene;
    sim::SimGateway& machine = scene.gateway;
    std::unique_ptr<UniLog> general;
    std::unique_ptr<HCD_VIST> driver;

  private:
    double start_ = machine.seconds();
};

/// Bytes in the making, big-endian unless `little`.
class VistBytes {
  public:
    explicit VistBytes(bool little = false) : little_(little) {}
    VistBytes& n(std::uint64_t value, int width);
    VistBytes& b(std::initializer_list<int> values);
    const std::vector<std::uint8_t>& bytes() const { return bytes_; }

  private:
    bool little_;
    std::vector<std::uint8_t> bytes_;
};

/// "HPT", size, outer sum, type, body; the body's own sum at `inner_at` covers all that follows `inner_from`.
std::vector<std::uint8_t> vist_test_packet(int type, std::vector<std::uint8_t> body, std::size_t inner_at,
                                           std::size_t inner_from);

/// The VIST process as it starts: a VIST_base that has read its port from the configuration and opened it.
class VistDaemon {
  public:
    explicit VistDaemon(const std::vector<std::string>& uuids);
    /// The endless loop.
    void operator()() { base.run_main(); }

    VIST_base base;
};
