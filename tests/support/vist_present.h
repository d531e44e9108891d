#pragma once
// Bodies of the packets of present values, made by the tests' own hand.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "sim_meter.h"

namespace vist_present {

using sim::ByteVector;

inline void append(ByteVector& bytes, std::uint64_t number, std::size_t width, bool little) {
    for (std::size_t i = 0; i < width; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(number >> (8 * (little ? i : width - 1 - i))));
    }
}

inline constexpr std::size_t IntegratorWidths[] = {4, 4, 4, 4, 4, 4, 4, 8};
inline constexpr std::size_t MomentWidths[] = {4, 4, 4, 4, 4, 4, 2, 2, 2, 2, 1, 1, 1, 4};

/// Each value that the mask names is its place in the table and one more, without a scale.
inline ByteVector values_body(std::span<const std::size_t> widths, std::uint32_t mask, bool little) {
    ByteVector body{static_cast<std::uint8_t>(little ? 0x80 : 0x00)};
    append(body, mask, 4, little);
    for (std::size_t i = 0; i < widths.size(); ++i) {
        if ((mask >> i & 1) == 0) continue;
        append(body, i + 1, widths[i], little);
        body.push_back(0);
    }
    return body;
}

inline ByteVector integrators(std::uint32_t mask = 0xFF, bool little = false) {
    return values_body(IntegratorWidths, mask, little);
}

/// `status` is e0 to e3, one number with e0 lowest.
inline ByteVector moments(std::uint32_t mask = 0x3FFF, std::uint32_t status = 0, bool little = false) {
    ByteVector body = values_body(MomentWidths, mask, little);
    append(body, status, 4, little);
    return body;
}

/// The clock of version 102 in front of integrators: 2024-03-02 10:04:59.
inline ByteVector with_clock(const ByteVector& body) {
    ByteVector whole = {10, 4, 59, 2, 3, 24};
    std::copy(body.begin(), body.end(), std::back_inserter(whole));
    return whole;
}

}  // namespace vist_present
