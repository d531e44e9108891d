#pragma once
// KM5 frames made by the tests' own hand: answers with right sums, payloads out of numbers.

#include <array>
#include <bit>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "sim_meter.h"

namespace km5_frames {

using sim::ByteVector;

/// Exclusive or and sum of all bytes so far, appended in this order.
inline ByteVector with_sums(ByteVector frame) {
    std::uint8_t exclusive_or = 0;
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : frame) {
        exclusive_or = static_cast<std::uint8_t>(exclusive_or ^ byte);
        sum = static_cast<std::uint8_t>(sum + byte);
    }
    frame.push_back(exclusive_or);
    frame.push_back(sum);
    return frame;
}

/// An answer of the meter 12345678 to `command`.
inline ByteVector answer(std::uint8_t command, const ByteVector& payload = {}) {
    ByteVector frame{0x78, 0x56, 0x34, 0x12, command};
    frame.insert(frame.end(), payload.begin(), payload.end());
    return with_sums(frame);
}

/// A request as it must stand on the line: CS1 over bytes 0..12, CS2 over bytes 0..13.
inline ByteVector request(std::array<std::uint8_t, 4> address, std::uint8_t command,
                          std::initializer_list<std::uint8_t> data = {}) {
    ByteVector frame(address.begin(), address.end());
    frame.push_back(command);
    frame.insert(frame.end(), data);
    frame.resize(14, 0);
    std::uint8_t exclusive_or = 0;
    std::uint8_t sum = 0;
    for (std::size_t k = 0; k < 14; ++k) {
        if (k < 13) exclusive_or = static_cast<std::uint8_t>(exclusive_or ^ frame[k]);
        sum = static_cast<std::uint8_t>(sum + frame[k]);
    }
    frame.push_back(exclusive_or);
    frame.push_back(sum);
    return frame;
}

/// Puts a little-endian number at an answer position (5 is the first payload byte); the payload grows as needed.
inline void put_u16(ByteVector& payload, std::size_t position, unsigned value) {
    if (payload.size() < position - 3) payload.resize(position - 3, 0);
    payload[position - 5] = static_cast<std::uint8_t>(value & 0xFF);
    payload[position - 4] = static_cast<std::uint8_t>(value >> 8);
}

inline void put_float(ByteVector& payload, std::size_t position, float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    put_u16(payload, position, bits & 0xFFFF);
    put_u16(payload, position + 2, bits >> 16);
}

/// The bounds of an archive.
inline ByteVector bounds(std::uint8_t flag, unsigned first, unsigned last, unsigned count) {
    ByteVector payload{flag};
    put_u16(payload, 6, first);
    put_u16(payload, 16, last);
    put_u16(payload, 26, count);
    return answer(0x33, payload);
}

/// The index of the record of a date.
inline ByteVector index_answer(unsigned index) {
    ByteVector payload{0};
    put_u16(payload, 6, index);
    return answer(0x34, payload);
}

}  // namespace km5_frames
