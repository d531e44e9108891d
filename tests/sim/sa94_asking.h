#pragma once
// Talking to a simulated SA-94 meter without a driver: requests written down byte by byte.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "sa94_meter.h"

namespace sa94_asking {

using sim::Answer;
using sim::ByteVector;
using sim::Sa94Archive;
using sim::Sa94Config;
using sim::Sa94Kind;
using sim::Sa94Meter;
using sim::Sa94StoredRecord;

inline constexpr std::time_t Eleven = 1709377200;  // 2024-03-02 11:00:00 UTC
inline constexpr std::time_t Hour = 3600;

inline const ByteVector Connect12345 = {0xC4, 0x46, 0x45};
inline const ByteVector Leave = {0x01};
inline const ByteVector Nothing = {};

/// Each test starts in UTC and leaves the zone as it was.
class Sa94Test : public ::testing::Test {
  protected:
    Sa94Test() {
        if (const char* zone = std::getenv("TZ")) earlier_ = zone;
        live_in("UTC");
    }
    ~Sa94Test() override {
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

/// The bytes of all bursts of the answer.
inline ByteVector ask(Sa94Meter& meter, const ByteVector& request, std::time_t now = Eleven) {
    ByteVector all;
    for (const auto& burst : meter.hear(request, now)) all.insert(all.end(), burst.bytes.begin(), burst.bytes.end());
    return all;
}

/// A meter with the address 0x12345, and a conversation open.
inline Sa94Meter talking(Sa94Config config = {}) {
    config.address = 0x12345;
    Sa94Meter meter(std::move(config));
    ask(meter, Connect12345);
    return meter;
}

/// `count` bytes from `first` on.
inline ByteVector part(const ByteVector& bytes, std::size_t first, std::size_t count) {
    if (first + count > bytes.size()) return {};
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(first);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

inline ByteVector erased(std::size_t count) {
    return ByteVector(count, 0xFF);
}

}  // namespace sa94_asking
