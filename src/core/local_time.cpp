#include "core/local_time.h"

#include <array>
#include <cstdint>
#include <limits>

#include "core/text.h"

std::time_t make_time(std::tm& tm) {
    const std::tm before = tm;
    const std::time_t time = std::mktime(&tm);
    if (time >= std::numeric_limits<std::int32_t>::min() && time <= std::numeric_limits<std::int32_t>::max())
        return time;
    tm = before;
    return -1;
}

std::tm local_time(std::time_t time) {
    std::tm tm{};
    ::localtime_r(&time, &tm);
    return tm;
}

std::string date_text(const std::tm& tm) {
    std::array<char, 128> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%d.%m.%Y %H:%M:%S", &tm)};
}

std::string asctime_text(const std::tm& tm) {
    constexpr std::array Days{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array Months{"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const char* day = tm.tm_wday < 0 || tm.tm_wday > 6 ? "???" : Days[static_cast<std::size_t>(tm.tm_wday)];
    const char* month = tm.tm_mon < 0 || tm.tm_mon > 11 ? "???" : Months[static_cast<std::size_t>(tm.tm_mon)];
    return format_cut(128, "%s %s%3d %.2d:%.2d:%.2d %lld", day, month, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                      1900LL + tm.tm_year);
}

std::string asctime_text(std::time_t time) {
    return asctime_text(local_time(time));
}
