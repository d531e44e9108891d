#pragma once
// What the two targets of VIST meters on Modbus share: a line on which happens what the input says.
//
// Each time that somebody waits for bytes and none are left, a byte h tells what happens next:
//     0x00 to 0x3F    any bytes: h + 1 of them follow
//     0x40 to 0x7F    a right answer to the last request: a byte c, then 2 * c bytes of data (125 words at most)
//     follow.
//                     It comes in pieces of (h & 0x3F) + 1 bytes. Of an archive record the sum is right when c is odd
//     0x80 to 0xBF    an exception to the last request, with the code h
//     0xC0 to 0xCF    the waiting is interrupted
//     0xD0 to 0xDF    the waiting fails
//     0xE0 to 0xEF    there is something to read, and then: h % 4 is 0 nothing, 1 an interruption, 2 not yet, 3 an
//     error 0xF0 to 0xFF    silence until the time is over
// When the input is used up, all is silence.

#include <cstdint>
#include <vector>

#include "fuzz_ground.h"

class ModbusScriptedLine : public FuzzGateway {
  public:
    ModbusScriptedLine(const std::string& root, FuzzInput& input) : FuzzGateway(root), source(input) {}

    ssize_t write_port(int fd, std::span<const std::uint8_t> request) override;
    int wait_readable(int fd, std::int64_t microseconds) override;
    ssize_t read_port(int fd, std::span<std::uint8_t> into) override;

    /// All that has been read since the last request.
    const std::vector<std::uint8_t>& heard() const { return heard_; }

    static constexpr int Descriptor = 100000;  // no real descriptor is that high

  protected:
    /// The input is used up when somebody asks, or waits.
    virtual void at_end() {}
    FuzzInput& source;

  private:
    int next_event();
    int keep_silent();
    void answer_rightly(std::uint8_t head);

    std::vector<std::uint8_t> request_;
    std::vector<std::uint8_t> coming_;
    std::vector<std::uint8_t> heard_;
    std::size_t piece_ = 1;
    int read_error_ = 0;
    bool read_nothing_ = false;
};

/// CRC-16 of Modbus, low byte first, by the bits of its polynomial.
void put_modbus_crc(std::vector<std::uint8_t>& frame);
