#include "contract/moments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <utility>

#include <fmt/format.h>

#include "core/local_time.h"

namespace contract {

namespace {

constexpr std::int64_t Minute = 60;
constexpr std::int64_t Hour = 3600;
constexpr std::int64_t Day = 86400;
constexpr std::int64_t Earliest = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t Latest = std::numeric_limits<std::int32_t>::max();

std::optional<std::int64_t> whole_number(std::string_view text) {
    std::int64_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || stop != text.data() + text.size()) return std::nullopt;
    return number;
}

/// The digits at the beginning, exactly so many, which go; -1 for anything else.
int take_digits(std::string_view& text, std::size_t count) {
    if (text.size() < count || text.find_first_not_of("0123456789") < count) return -1;
    int number = 0;
    std::from_chars(text.data(), text.data() + count, number);
    text.remove_prefix(count);
    return number;
}

bool take(std::string_view& text, char expected) {
    if (!text.starts_with(expected)) return false;
    text.remove_prefix(1);
    return true;
}

/// "Z", "+03:00" or "+0300" at the end, in seconds.
std::optional<long> take_offset(std::string_view& text) {
    if (take(text, 'Z')) return 0;
    if (!text.starts_with('+') && !text.starts_with('-')) return std::nullopt;
    const int sign = text.front() == '-' ? -1 : 1;
    text.remove_prefix(1);
    const int hours = take_digits(text, 2);
    take(text, ':');
    const int minutes = take_digits(text, 2);
    if (hours < 0 || hours > 14 || minutes < 0 || minutes > 59) return std::nullopt;
    return sign * (hours * Hour + minutes * Minute);
}

std::optional<std::int64_t> parse_date(std::string_view text) {
    std::tm date{};
    date.tm_year = take_digits(text, 4) - 1900;
    if (date.tm_year < 0 || !take(text, '-')) return std::nullopt;
    date.tm_mon = take_digits(text, 2) - 1;
    if (!take(text, '-')) return std::nullopt;
    date.tm_mday = take_digits(text, 2);
    std::optional<long> offset;
    if (!text.empty()) {
        if (!take(text, 'T') && !take(text, ' ')) return std::nullopt;
        date.tm_hour = take_digits(text, 2);
        if (!take(text, ':')) return std::nullopt;
        date.tm_min = take_digits(text, 2);
        if (take(text, ':')) date.tm_sec = take_digits(text, 2);
        if (!text.empty()) {
            offset = take_offset(text);
            if (!offset) return std::nullopt;
        }
    }
    const bool possible = date.tm_mon >= 0 && date.tm_mon < 12 && date.tm_mday >= 1 && date.tm_mday <= 31 &&
                          date.tm_hour >= 0 && date.tm_hour < 24 && date.tm_min >= 0 && date.tm_min < 60 &&
                          date.tm_sec >= 0 && date.tm_sec <= 60;
    if (!possible || !text.empty()) return std::nullopt;
    const std::chrono::year_month_day day{std::chrono::year(date.tm_year + 1900),
                                          std::chrono::month(static_cast<unsigned>(date.tm_mon + 1)),
                                          std::chrono::day(static_cast<unsigned>(date.tm_mday))};
    if (!day.ok()) return std::nullopt;
    const std::int64_t utc = std::chrono::sys_days(day).time_since_epoch().count() * Day + date.tm_hour * Hour +
                             date.tm_min * Minute + date.tm_sec;
    if (offset) return utc - *offset;
    date.tm_isdst = -1;
    const std::int64_t local = make_time(date);
    // No zone is that far from UTC: the gateway's clock cannot hold this date.
    return local == -1 && std::abs(utc) > 2 * Day ? utc : local;
}

}  // namespace

std::optional<std::int64_t> parse_duration(std::string_view text) {
    if (text.size() < 2) return std::nullopt;
    const auto number = whole_number(text.substr(0, text.size() - 1));
    std::int64_t unit = 0;
    switch (text.back()) {
        case 'd':
            unit = Day;
            break;
        case 'h':
            unit = Hour;
            break;
        case 'm':
            unit = Minute;
            break;
        case 's':
            unit = 1;
            break;
        default:
            return std::nullopt;
    }
    constexpr std::int64_t Most = 1'000'000'000;
    if (!number || *number < 0 || *number > Most) return std::nullopt;
    return *number * unit;
}

std::optional<std::int64_t> parse_moment(std::string_view text, std::int64_t now) {
    std::optional<std::int64_t> moment;
    if (text == "now") {
        moment = now;
    } else if (text.starts_with('@')) {
        moment = whole_number(text.substr(1));
    } else if (text.starts_with('-')) {
        if (const auto ago = parse_duration(text.substr(1))) moment = now - *ago;
    } else {
        moment = parse_date(text);
    }
    return moment ? std::optional(std::clamp(*moment, Earliest, Latest)) : std::nullopt;
}

std::string moment_text(std::int64_t moment) {
    const std::tm local = local_time(static_cast<std::time_t>(moment));
    const long offset = local.tm_gmtoff / Minute;
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}{:02}:{:02}", local.tm_year + 1900, local.tm_mon + 1,
                       local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, offset < 0 ? '-' : '+',
                       std::labs(offset) / 60, std::labs(offset) % 60);
}

std::string_view MomentTexts::of(std::int64_t moment) {
    constexpr std::size_t ClockAt = 11;  // in "2026-11-01T10:00:00+03:00"
    if (moment < day || moment >= day_end) {
        text = moment_text(moment);
        const std::tm local = local_time(static_cast<std::time_t>(moment));
        day = moment - local.tm_hour * Hour - local.tm_min * Minute - local.tm_sec;
        day_end = day + Day;
        // A day on which the clocks are changed has two offsets, or another length.
        for (const std::int64_t edge : {day, day_end - 1}) {
            if (local_time(static_cast<std::time_t>(edge)).tm_gmtoff != local.tm_gmtoff) day_end = day;
        }
        return text;
    }
    const auto seconds = static_cast<unsigned>(moment - day);
    std::size_t at = ClockAt;
    for (const unsigned part : {seconds / 3600, seconds / 60 % 60, seconds % 60}) {
        text[at] = static_cast<char>('0' + part / 10);
        text[at + 1] = static_cast<char>('0' + part % 10);
        at += 3;
    }
    return text;
}

std::string plain_moment_text(std::int64_t moment) {
    const std::tm local = local_time(static_cast<std::time_t>(moment));
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                       local.tm_hour, local.tm_min, local.tm_sec);
}

std::string duration_text(std::int64_t seconds) {
    if (seconds < 0) return '-' + duration_text(-seconds);
    if (seconds < 2 * Minute) return fmt::format("{} s", seconds);
    if (seconds < 2 * Hour) return fmt::format("{} min", seconds / Minute);
    if (seconds < 2 * Day) return fmt::format("{} h {} min", seconds / Hour, seconds % Hour / Minute);
    return fmt::format("{} d", seconds / Day);
}

}  // namespace contract
