#pragma once
// Talking to a simulated VIST meter without a driver: commands made and answers taken apart by the tests' own hand.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "vist_meter.h"

namespace vist_asking {

using sim::Answer;
using sim::ByteVector;
using sim::VistMeter;
using sim::VistOrder;

inline constexpr std::time_t Eleven = 1709377200;  // 2024-03-02 11:00:00 UTC
inline constexpr std::time_t Hour = 3600;

/// Each test starts in UTC and leaves the zone as it was.
class VistTest : public ::testing::Test {
  protected:
    VistTest() {
        if (const char* zone = std::getenv("TZ")) earlier_ = zone;
        live_in("UTC");
    }
    ~VistTest() override {
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

inline ByteVector bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

/// The bytes of all bursts of an answer.
inline ByteVector joined(const Answer& answer) {
    ByteVector all;
    for (const auto& burst : answer) all.insert(all.end(), burst.bytes.begin(), burst.bytes.end());
    return all;
}

/// The answer to a command, to which the carriage return is added.
inline ByteVector ask(VistMeter& meter, const std::string& command, std::time_t now = Eleven) {
    return joined(meter.hear(bytes_of(command + "\r"), now));
}

/// The same, as text.
inline std::string say(VistMeter& meter, const std::string& command, std::time_t now = Eleven) {
    const ByteVector answer = ask(meter, command, now);
    return {answer.begin(), answer.end()};
}

/// Bytes `first` to `last`, counted from 0.
inline ByteVector part(const ByteVector& bytes, std::size_t first, std::size_t last) {
    if (last >= bytes.size()) return {};
    return {bytes.begin() + static_cast<std::ptrdiff_t>(first), bytes.begin() + static_cast<std::ptrdiff_t>(last) + 1};
}

inline std::uint8_t sum(const ByteVector& bytes, std::size_t from) {
    std::uint8_t total = 0;
    for (std::size_t k = from; k < bytes.size(); ++k) total = static_cast<std::uint8_t>(total + bytes[k]);
    return total;
}

/// Whether magic, size and outer sum of a packet are right.
inline bool is_packet(const ByteVector& answer, std::uint8_t type) {
    return answer.size() >= 6 && part(answer, 0, 2) == bytes_of("HPT") && answer[3] + 4U == answer.size() &&
           answer[4] == sum(answer, 5) && answer[5] == type;
}

/// Whether the inner sum of a record packet is right.
inline bool inner_sum_holds(const ByteVector& record) {
    return record.size() > 12 && record[12] == sum(record, 13);
}

/// The date of a record packet as "hh:mm dd.mm.yy", or the answer itself when it is a text frame.
inline std::string dated(const ByteVector& answer) {
    if (!is_packet(answer, 21)) return {answer.begin(), answer.end()};
    char text[64];
    std::snprintf(text, sizeof text, "%02d:%02d %02d.%02d.%02d", answer[6], answer[7], answer[9], answer[10],
                  answer[11]);
    return text;
}

}  // namespace vist_asking
