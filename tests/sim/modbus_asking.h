#pragma once
// Talking to a simulated VIST meter that speaks Modbus without a driver: frames made and taken apart by the tests' own
// hand.

#include <cstddef>
#include <cstdint>
#include <ctime>

#include <gtest/gtest.h>

#include "modbus_vist_meter.h"
#include "vist_asking.h"

namespace modbus_asking {

using sim::Answer;
using sim::ByteVector;
using sim::ModbusVistMeter;
using vist_asking::Eleven;
using vist_asking::Hour;
using vist_asking::joined;
using vist_asking::part;
using vist_asking::sum;

using ModbusVistTest = vist_asking::VistTest;

/// Serial number 17, and so slave 0x11.
inline constexpr std::uint32_t Seventeen = 17;

inline std::uint8_t high(unsigned number) {
    return static_cast<std::uint8_t>(number >> 8U);
}
inline std::uint8_t low(unsigned number) {
    return static_cast<std::uint8_t>(number & 0xFFU);
}

/// What a meter says to these bytes, with the CRC added.
inline ByteVector ask(ModbusVistMeter& meter, const ByteVector& request, std::time_t now = Eleven) {
    return joined(meter.hear(sim::modbus_sealed(request), now));
}

/// A request for registers, without its CRC.
inline ByteVector registers_request(std::uint8_t slave, std::uint8_t function, unsigned address, unsigned count) {
    return {slave, function, high(address), low(address), high(count), low(count)};
}

/// A request for a record of a file, without its CRC.
inline ByteVector record_request(std::uint8_t slave, unsigned file, unsigned record, unsigned length) {
    return {slave, 20, 7, 6, high(file), low(file), high(record), low(record), high(length), low(length)};
}

/// The data of a right answer to slave 0x11: without head and CRC. Empty for anything else.
inline ByteVector data_of(const ByteVector& answer, std::uint8_t function) {
    if (!sim::modbus_is_whole(answer) || answer[0] != 0x11 || answer[1] != function) return {};
    if (answer.size() != answer[2] + 5U) return {};
    return part(answer, 3, answer.size() - 3);
}

inline ByteVector holding(ModbusVistMeter& meter, unsigned address, unsigned count) {
    return data_of(ask(meter, registers_request(0x11, 3, address, count)), 3);
}

inline ByteVector input(ModbusVistMeter& meter, unsigned address, unsigned count, std::time_t now = Eleven) {
    return data_of(ask(meter, registers_request(0x11, 4, address, count), now), 4);
}

/// Behind the two bytes of the file response head, if these are right.
inline ByteVector record(ModbusVistMeter& meter, unsigned file, unsigned number, unsigned length,
                         std::time_t now = Eleven) {
    const ByteVector data = data_of(ask(meter, record_request(0x11, file, number, length), now), 20);
    if (data.size() < 2 || data[0] + 1U != data.size() || data[1] != 6) return {};
    return part(data, 2, data.size() - 1);
}

/// The code of an exception answer of slave 0x11; 0 for another answer, -1 for silence.
inline int refusal(ModbusVistMeter& meter, const ByteVector& request) {
    const ByteVector answer = ask(meter, request);
    if (answer.empty()) return -1;
    const bool refused =
        sim::modbus_is_whole(answer) && answer.size() == 5 && answer[0] == 0x11 && answer[1] == (request[1] | 0x80);
    return refused ? answer[2] : 0;
}

inline unsigned number(const ByteVector& bytes, std::size_t place, std::size_t width) {
    unsigned value = 0;
    for (std::size_t k = 0; k < width; ++k) value = value << 8U | bytes.at(place + k);
    return value;
}

}  // namespace modbus_asking
