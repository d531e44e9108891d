#include "sa94_types.h"

#include <chrono>
#include <limits>
#include <stdexcept>

#include "meter_time.h"

namespace sim {

namespace {

constexpr std::int64_t SecondsPerDay = 86400;
constexpr int Century = 2000;

}  // namespace

Sa94Date sa94_date(std::time_t time) {
    const std::tm tm = local(time);
    const Sa94Date shown{.year = tm.tm_year + 1900 - Century,
                         .month = tm.tm_mon + 1,
                         .day = tm.tm_mday,
                         .hour = tm.tm_hour,
                         .minute = tm.tm_min,
                         .second = tm.tm_sec};
    return tm.tm_isdst > 0 ? sa94_date_of_face(sa94_face(shown) - SecondsPerHour) : shown;
}

std::time_t sa94_time(const Sa94Date& date) {
    std::tm tm{};
    tm.tm_year = date.year + Century - 1900;
    tm.tm_mon = date.month - 1;
    tm.tm_mday = date.day;
    tm.tm_hour = date.hour;
    tm.tm_min = date.minute;
    tm.tm_sec = date.second;
    const auto time = static_cast<std::int64_t>(std::mktime(&tm));
    using Narrow = std::numeric_limits<std::int32_t>;
    return time < Narrow::min() || time > Narrow::max() ? -1 : static_cast<std::time_t>(time);
}

std::int64_t sa94_face(const Sa94Date& date) {
    namespace chrono = std::chrono;
    const chrono::year_month first{chrono::year(date.year + Century), chrono::month(1)};
    const chrono::sys_days month{(first + chrono::months(date.month - 1)) / chrono::day(1)};
    const std::int64_t days = month.time_since_epoch().count() + date.day - 1;
    return days * SecondsPerDay + date.hour * SecondsPerHour + date.minute * 60 + date.second;
}

const Sa94Date& Sa94Calendar::date_of_face(std::int64_t face) {
    namespace chrono = std::chrono;
    if (face < midnight_ || face >= midnight_ + SecondsPerDay || midnight_ < 0) {
        const auto day = chrono::floor<chrono::days>(chrono::sys_seconds(chrono::seconds(face)));
        const chrono::year_month_day date(day);
        midnight_ = day.time_since_epoch().count() * SecondsPerDay;
        date_.year = static_cast<int>(date.year()) - Century;
        date_.month = static_cast<int>(static_cast<unsigned>(date.month()));
        date_.day = static_cast<int>(static_cast<unsigned>(date.day()));
    }
    const int rest = static_cast<int>(face - midnight_);
    date_.hour = rest / SecondsPerHour;
    date_.minute = rest / 60 % 60;
    date_.second = rest % 60;
    return date_;
}

Sa94Date sa94_date_of_face(std::int64_t face) {
    return Sa94Calendar().date_of_face(face);
}

Sa94Date Sa94When::date() const {
    if (!date_) throw std::invalid_argument("no moment was given");
    return *date_;
}

}  // namespace sim
