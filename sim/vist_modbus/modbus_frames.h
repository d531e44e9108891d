#pragma once
// Modbus RTU as a slave sees it: requests taken apart, answers put together. Shares nothing with the daemon's master.
//
//     read registers   slave, 3 or 4, address (2), count (2), CRC (2)
//     read file record slave, 20, 7, 6, file (2), record (2), length (2), CRC (2)
//     answer           slave, function, byte count, data, CRC (2)
//     exception        slave, function + 0x80, code, CRC (2)
//
// Numbers are big-endian, but for the CRC, whose low byte comes first.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim_meter.h"

namespace sim {

inline constexpr std::uint8_t ModbusReadHolding = 3;
inline constexpr std::uint8_t ModbusReadInput = 4;
inline constexpr std::uint8_t ModbusReadFile = 20;

enum ModbusException : std::uint8_t {
    ModbusNoException = 0,
    ModbusUnknownFunction = 1,
    ModbusUnknownAddress = 2,
    ModbusWrongValue = 3,
    ModbusDeviceFailure = 4,
    ModbusBusy = 6,
};

/// CRC-16 of Modbus RTU: start 0xFFFF, polynomial 0x8005, lowest bit first.
std::uint16_t modbus_crc(std::span<const std::uint8_t> bytes);
/// The frame with its CRC behind it.
ByteVector modbus_sealed(ByteVector frame);
/// Whether the bytes are a frame of four bytes or more with a right CRC.
bool modbus_is_whole(std::span<const std::uint8_t> bytes);

/// A request, taken apart.
struct ModbusQuestion {
    std::uint8_t slave = 0;
    std::uint8_t function = 0;
    std::uint16_t address = 0;                 ///< first register, or the file
    std::uint16_t count = 0;                   ///< registers, or the length of a record
    std::uint16_t record = 0;                  ///< of a file
    std::uint8_t refusal = ModbusNoException;  ///< what the form of the request alone deserves

    bool operator==(const ModbusQuestion&) const = default;
};

/// Of a frame that is whole.
ModbusQuestion modbus_question(std::span<const std::uint8_t> frame);

/// A right answer, before anything happens to it.
struct ModbusReply {
    std::uint8_t slave = 0;
    std::uint8_t function = 0;
    std::uint8_t exception = ModbusNoException;
    ByteVector data = {};  ///< behind the byte count

    /// The whole frame. The byte count of longer data wraps.
    ByteVector bytes() const;
};

/// The requests that are meant: what is not said is any.
struct ModbusWhich {
    std::optional<std::uint8_t> function = std::nullopt;
    std::optional<std::uint16_t> address = std::nullopt;  ///< first register, or the file
    std::optional<std::uint16_t> record = std::nullopt;   ///< of a file

    bool fits(const ModbusQuestion& question) const;
};

}  // namespace sim
