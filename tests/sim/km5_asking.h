#pragma once
// Asking a simulated KM5 meter without a driver: frames made and taken apart by the tests' own hand.

#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "km5_meter.h"

namespace km5_asking {

using sim::Answer;
using sim::ByteVector;
using sim::Km5Archive;
using sim::Km5Bounds;
using sim::Km5Meter;

inline constexpr std::time_t Eleven = 1709377200;  // 2024-03-02 11:00:00 UTC

/// Each test starts in UTC and leaves the zone as it was.
class Km5Test : public ::testing::Test {
  protected:
    Km5Test() {
        if (const char* zone = std::getenv("TZ")) earlier_ = zone;
        live_in("UTC");
    }
    ~Km5Test() override {
        earlier_ ? setenv("TZ", earlier_->c_str(), 1) : unsetenv("TZ");
        tzset();
    }
    static void live_in(const std::string& zone) {
        setenv("TZ", zone.c_str(), 1);
        tzset();
    }

  private:
    std::optional<std::string> earlier_;
};

inline ByteVector request(std::array<std::uint8_t, 4> address, std::uint8_t command,
                          std::initializer_list<std::uint8_t> data) {
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

inline bool sums_hold(const ByteVector& answer) {
    if (answer.size() < 2) return false;
    std::uint8_t exclusive_or = 0;
    std::uint8_t sum = 0;
    for (std::size_t k = 0; k + 2 < answer.size(); ++k) {
        exclusive_or = static_cast<std::uint8_t>(exclusive_or ^ answer[k]);
        sum = static_cast<std::uint8_t>(sum + answer[k]);
    }
    return answer[answer.size() - 2] == exclusive_or && answer.back() == sum;
}

/// The bytes of all bursts of an answer.
inline ByteVector joined(const Answer& answer) {
    ByteVector all;
    for (const auto& burst : answer) all.insert(all.end(), burst.bytes.begin(), burst.bytes.end());
    return all;
}

inline ByteVector ask(Km5Meter& meter, std::uint8_t command, std::initializer_list<std::uint8_t> data = {},
                      unsigned subsystem = 0, std::time_t now = Eleven) {
    return joined(meter.hear(request(meter.address(subsystem), command, data), now));
}

inline float float_at(const ByteVector& answer, std::size_t position) {
    std::uint32_t bits = 0;
    for (std::size_t k = 4; k-- > 0;) bits = bits << 8 | answer.at(position + k);
    return std::bit_cast<float>(bits);
}

inline unsigned word_at(const ByteVector& answer, std::size_t position) {
    return answer.at(position) | static_cast<unsigned>(answer.at(position + 1)) << 8;
}

inline ByteVector part(const ByteVector& answer, std::size_t first, std::size_t last) {
    return {answer.begin() + static_cast<std::ptrdiff_t>(first),
            answer.begin() + static_cast<std::ptrdiff_t>(last + 1)};
}

inline Km5Bounds bounds_of(const ByteVector& answer) {
    return {.flag = answer.at(5),
            .first = static_cast<std::uint16_t>(word_at(answer, 6)),
            .last = static_cast<std::uint16_t>(word_at(answer, 16)),
            .count = static_cast<std::uint16_t>(word_at(answer, 26))};
}

}  // namespace km5_asking
