#include "core/local_time.h"

#include <array>
#include <cstdint>
#include <limits>

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

namespace {

std::string formatted(const char* format, const std::tm& tm) {
    std::array<char, 128> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, &tm)};
}

}  // namespace

std::string date_text(const std::tm& tm) {
    return formatted("%d.%m.%Y %H:%M:%S", tm);
}

std::string asctime_text(const std::tm& tm) {
    return formatted("%a %b %e %H:%M:%S %Y", tm);
}
