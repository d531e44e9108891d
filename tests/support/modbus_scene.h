#pragma once
// The bench of the tests of VIST meters on Modbus: a scene, a line, a driver on it, blocks made by hand, and short
// words for what they leave behind.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drivers/vist_modbus/hcd_vistmodbus.h"
#include "drivers/vist_modbus/vistmodbus_base.h"
#include "modbus_vist_meter.h"
#include "support/scene.h"

using ModbusTexts = std::vector<std::string>;

/// How often each line stands in each file; the text before the line end only.
using ModbusLineCounts = std::map<std::string, std::map<std::string, int>>;

namespace modbus_bytes {

/// slave, function, byte count, data, CRC.
sim::ByteVector answer(int slave, int function, const sim::ByteVector& data);
sim::ByteVector refusal(int slave, int function, int code);
sim::ByteVector joined(sim::ByteVector first, const sim::ByteVector& second);

}  // namespace modbus_bytes

/// A block of registers or of a file in the making: numbers are big-endian, all else is zero.
class ModbusBlock {
  public:
    explicit ModbusBlock(std::size_t size) : bytes_(size, 0) {}
    ModbusBlock& n(std::size_t at, std::uint64_t value, int width);
    ModbusBlock& text(std::size_t at, const std::string& text);
    /// What stands at `at` becomes the 8-bit sum of the `count` bytes behind it.
    ModbusBlock& sum(std::size_t at, std::size_t count);
    operator Bytes() const { return bytes_; }

  private:
    sim::ByteVector bytes_;
};

/// "%ld,%d,%f", the text of an archive line without its end.
std::string modbus_line(std::time_t time, int quality, double value);

class ModbusBench : public ::testing::Test {
  protected:
    static constexpr const char* Uuid = "m1";
    static constexpr const char* Port = "/dev/ttyS1";
    static constexpr std::uint32_t Serial = 17;

    /// `start` is local time in `zone`. The port is there, nobody hangs on it.
    explicit ModbusBench(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC");

    /// A new driver for a serial number on the open line: 9600 baud, as after the start of the daemon.
    HCD_VISTmodbus& start_driver(std::uint32_t serial = Serial);
    /// The driver prints what it asks for; that is nobody's business in most tests.
    static void quietly(const std::function<void()>& work);
    void run() {
        quietly([this] { driver->run_main(); });
    }

    /// An item's text without its line end; "(none)" when the file is missing.
    std::string item(const std::string& name, int n = 1, const std::string& uuid = Uuid) const;
    /// Connected in all six subsystems, as "111111".
    std::string connected() const;
    /// The text of a file in tmp_archives; empty when it is missing.
    std::string staged(const std::string& name, int n = 1) const;
    /// What stands in the files of a directory, empty files left out.
    ModbusLineCounts lines_in(const std::string& directory, int n = 1) const;
    /// A file of tmp_archives as an earlier run has left it.
    void leave_staged(const std::string& name, const std::string& text, int n = 1);
    /// A line of this time in the eight files that tell how far the records, or the headers, are.
    void leave_record(std::time_t time, int n = 1);
    void leave_header(std::time_t time, int n = 1);

    /// The lines of the meter's log without their time.
    ModbusTexts log() const;
    /// How many lines of the log are exactly `line`.
    int logged(const std::string& line) const;
    /// How many begin with it.
    int logged_start(const std::string& line) const;
    /// These lines stand in the log in this order, whatever is between them.
    ::testing::AssertionResult logged_in_order(const ModbusTexts& lines) const;
    void clear_log() { scene.write("/tmp/uni_logs.m1.txt", ""); }

    /// What went over the line: "3:99+76" is function 3, 76 registers from 99 on; "20:1/7 (54)" is function 20, record
    /// 7 of file 1, length 54.
    ModbusTexts asked() const;
    double elapsed() const { return machine.seconds() - start_; }

    Scene scene;
    sim::SimGateway& machine = scene.gateway;
    std::unique_ptr<HCD_VISTmodbus> driver;

  private:
    double start_ = 0;
};

/// The process of such meters as it starts: a VISTmodbus_base that has read its port from the configuration and opened
/// it.
class ModbusDaemon {
  public:
    explicit ModbusDaemon(const std::vector<std::string>& uuids);
    /// The endless loop.
    void operator()() { base.run_main(); }

    VISTmodbus_base base;
};
