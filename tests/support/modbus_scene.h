#pragma once
// The stand of the tests of VIST meters on Modbus: a scene, a line, a driver on it, blocks made by hand, and short
// words for what they leave behind.

#include <cstdint>
#include <string>
#include <vector>

#include "drivers/vist_modbus/hcd_vistmodbus.h"
#include "drivers/vist_modbus/vistmodbus_base.h"
#include "modbus_vist_meter.h"
#include "support/driver_stand.h"

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

class ModbusStand : public DriverStand<HCD_VISTmodbus> {
  protected:
    static constexpr std::uint32_t Serial = 17;

    using DriverStand::DriverStand;

    /// A new driver for a serial number on the open line, as after the start of the daemon.
    HCD_VISTmodbus& start_driver(std::uint32_t serial = Serial);

    /// A line of this time in the eight files that tell how far the records, or the headers, are.
    void leave_record(std::time_t time, int n = 1);
    void leave_header(std::time_t time, int n = 1);

    /// What went over the line: "3:99+76" is function 3, 76 registers from 99 on; "20:1/7 (54)" is function 20, record
    /// 7 of file 1, length 54.
    Texts asked() const;
};

using ModbusDaemon = Daemon<VISTmodbus_base>;
