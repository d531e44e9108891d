#include "km5_types.h"

#include <cstdio>
#include <stdexcept>

#include "meter_time.h"

namespace sim {

namespace {

Km5Date date_from_text(const std::string& text) {
    Km5Date date;
    int length_of_short = -1;
    int length_of_long = -1;
    std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d%n:%2d%n", &date.year, &date.month, &date.day, &date.hour,
                &date.minute, &length_of_short, &date.second, &length_of_long);
    const int length = static_cast<int>(text.size());
    if (length_of_short != length && length_of_long != length) {
        throw std::invalid_argument("not a date \"YYYY-MM-DD hh:mm[:ss]\": " + text);
    }
    if (date.year < 2000 || date.year > 2099) throw std::invalid_argument("a meter knows 2000 to 2099: " + text);
    date.year -= 2000;
    return date;
}

}  // namespace

Km5When::Km5When(const char* text) : Km5When(std::string(text)) {}

Km5When::Km5When(const std::string& text) : date_(date_from_text(text)) {}

Km5When::Km5When(std::time_t time) : time_(time) {}

Km5Date Km5When::date() const {
    if (date_) return *date_;
    const std::tm tm = local(time());
    return {.year = ((tm.tm_year % 100) + 100) % 100,
            .month = tm.tm_mon + 1,
            .day = tm.tm_mday,
            .hour = tm.tm_hour,
            .minute = tm.tm_min,
            .second = tm.tm_sec};
}

std::time_t Km5When::time() const {
    if (time_) return *time_;
    if (!date_) throw std::invalid_argument("no date given");
    std::tm tm{};
    tm.tm_year = date_->year + 100;
    tm.tm_mon = date_->month - 1;
    tm.tm_mday = date_->day;
    tm.tm_hour = date_->hour;
    tm.tm_min = date_->minute;
    tm.tm_sec = date_->second;
    tm.tm_isdst = -1;
    return std::mktime(&tm);
}

}  // namespace sim
