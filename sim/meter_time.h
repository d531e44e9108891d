#pragma once
// The local clock as a meter sees it: broken down, and its full hours.

#include <ctime>

namespace sim {

inline constexpr int SecondsPerHour = 3600;

inline std::tm local(std::time_t time) {
    std::tm tm{};
    localtime_r(&time, &tm);
    return tm;
}

/// The full hour of the local clock at `time` or before it.
inline std::time_t last_full_hour(std::time_t time) {
    const std::tm tm = local(time);
    return time - tm.tm_min * 60 - tm.tm_sec;
}

/// The first full hour behind `time`. The second look is for zones that change by half an hour.
inline std::time_t next_full_hour(std::time_t time) {
    do {
        time = last_full_hour(time) + SecondsPerHour;
    } while (local(time).tm_min != 0);
    return time;
}

}  // namespace sim
