#pragma once
// Frames of Modbus RTU as the VIST meter speaks it: read requests of functions 3, 4 and 20, the receiver of their
// answers, and numbers out of register data. Source: the Modbus protocol.

#include <cstdint>
#include <span>
#include <vector>

#include "core/bytes.h"

constexpr std::uint8_t ReadHolding = 3;
constexpr std::uint8_t ReadInput = 4;
constexpr std::uint8_t ReadFileRecord = 20;

/// CRC-16 of Modbus RTU, start value 0xFFFF; sent low byte first.
std::uint16_t modbus_crc(Bytes bytes);

/// Request for `count` registers from `address` on. The low byte of `slave` goes out.
std::vector<std::uint8_t> register_frame(int slave, std::uint8_t function, int address, int count);

/// Request for one record of a file; `length` is the record's size in the meter's units.
std::vector<std::uint8_t> record_frame(int slave, int file, int record, int length);

/// Takes the bytes of an answer one by one, passes over whatever stands before it, and keeps function, byte count and
/// data in the buffer that it was given, every 16-bit word of the data in the order of a little-endian host.
class ModbusParser {
  public:
    /// `answer` receives at most its own size. The answer is awaited from the low byte of `slave`.
    ModbusParser(std::span<std::uint8_t> answer, int slave, std::uint8_t function);

    /// True when a frame with a good CRC is over, whatever comes behind it; not to be called again after that.
    bool take(Bytes bytes);
    /// The frame was an answer with data, not an exception.
    bool complete() const { return is_complete; }
    /// Bytes of function, byte count and data.
    int length() const { return static_cast<int>(stored); }

  private:
    enum class State { Slave, Function, ByteCount, Data, CrcLow, CrcHigh };

    bool take_byte(std::uint8_t byte);
    std::size_t take_data(Bytes bytes);
    void reset();
    void store(std::uint8_t byte);
    bool finish(std::uint8_t crc_high);

    std::span<std::uint8_t> answer;
    std::uint8_t slave;
    std::uint8_t function;
    State state = State::Slave;
    std::size_t stored = 0;
    int remaining = 0;
    std::uint8_t crc_low = 0;
    bool is_complete = false;
};

/// Turns the bytes of each 16-bit word round; an odd byte at the end stays.
void swap_words(std::span<std::uint8_t> bytes);

// Register data: big-endian, high word first.

constexpr std::uint16_t read_u16(Bytes bytes, std::size_t at) {
    return static_cast<std::uint16_t>(u8_at(bytes, at) << 8 | u8_at(bytes, at + 1));
}
constexpr std::uint32_t read_u32(Bytes bytes, std::size_t at) {
    return std::uint32_t{read_u16(bytes, at)} << 16 | read_u16(bytes, at + 2);
}
constexpr std::uint64_t read_u64(Bytes bytes, std::size_t at) {
    return std::uint64_t{read_u32(bytes, at)} << 32 | read_u32(bytes, at + 4);
}
constexpr std::int16_t read_i16(Bytes bytes, std::size_t at) {
    return static_cast<std::int16_t>(read_u16(bytes, at));
}
constexpr std::int32_t read_i32(Bytes bytes, std::size_t at) {
    return static_cast<std::int32_t>(read_u32(bytes, at));
}
constexpr std::int64_t read_i64(Bytes bytes, std::size_t at) {
    return static_cast<std::int64_t>(read_u64(bytes, at));
}
