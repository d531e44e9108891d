#include "core/local_time.h"

#include <climits>
#include <cstring>
#include <ctime>

#include <gtest/gtest.h>

#include "support/scene.h"

namespace {

constexpr char Berlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";

std::tm date(int year, int month, int day, int hour, int minute, int second) {
    std::tm tm{};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    tm.tm_isdst = -1;
    return tm;
}

std::time_t time_of(std::tm tm) {
    return make_time(tm);
}

bool same_fields(const std::tm& a, const std::tm& b) {
    return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour && a.tm_mday == b.tm_mday &&
           a.tm_mon == b.tm_mon && a.tm_year == b.tm_year && a.tm_wday == b.tm_wday && a.tm_yday == b.tm_yday &&
           a.tm_isdst == b.tm_isdst;
}

TEST(LocalTime, DateOfTheMeterIsATimeOfTheGatewaysZone) {
    {
        const Scene utc("2024-03-02 10:00", "UTC");
        EXPECT_EQ(time_of(date(2023, 11, 14, 22, 13, 20)), 1700000000);
    }
    const Scene berlin("2024-03-02 10:00", Berlin);
    EXPECT_EQ(time_of(date(2023, 11, 14, 22, 13, 20)), 1700000000 - 3600);
    EXPECT_EQ(time_of(date(2023, 7, 14, 12, 0, 0)), 1689328800);  // 10:00 UTC: summer time
}

TEST(LocalTime, SummerTimeFlagOfZeroTakesTheMetersClockForWinterTime) {
    const Scene berlin("2024-03-02 10:00", Berlin);
    std::tm tm = date(2023, 7, 14, 12, 0, 0);
    tm.tm_isdst = 0;
    EXPECT_EQ(make_time(tm), 1689328800 + 3600);
}

TEST(LocalTime, FieldsOutOfRangeAreNormalised) {
    const Scene scene;
    std::tm tm = date(2024, 2, 30, 25, 61, 0);  // two months with a leap day: 30 February is 1 March
    EXPECT_EQ(make_time(tm), 1709344860);       // 2 March 2024, 02:01
    EXPECT_EQ(tm.tm_mon, 2);
    EXPECT_EQ(tm.tm_mday, 2);
    EXPECT_EQ(tm.tm_hour, 2);
    EXPECT_EQ(tm.tm_min, 1);
    EXPECT_EQ(tm.tm_wday, 6);
}

TEST(LocalTime, LastSecondOfThirtyTwoBitsIsATime) {
    const Scene scene;
    EXPECT_EQ(time_of(date(2038, 1, 19, 3, 14, 7)), 2147483647);
}

TEST(LocalTime, DateBehindThirtyTwoBitsIsMinusOneAndStaysAsItWas) {
    const Scene scene;
    std::tm tm = date(2038, 1, 19, 3, 14, 8);
    tm.tm_wday = 5;
    const std::tm before = tm;
    EXPECT_EQ(make_time(tm), -1);
    EXPECT_TRUE(same_fields(tm, before));
}

TEST(LocalTime, DateBeforeThirtyTwoBitsIsMinusOneAndStaysAsItWas) {
    const Scene scene;
    EXPECT_EQ(time_of(date(1901, 12, 13, 20, 45, 52)), -2147483647 - 1);
    std::tm tm = date(1901, 12, 13, 20, 45, 51);
    const std::tm before = tm;
    EXPECT_EQ(make_time(tm), -1);
    EXPECT_TRUE(same_fields(tm, before));
}

TEST(LocalTime, DateThatWouldBeNormalisedButDoesNotFitIsNotNormalised) {
    const Scene scene;
    std::tm tm = date(2037, 25, 40, 30, 70, 80);
    const std::tm before = tm;
    EXPECT_EQ(make_time(tm), -1);
    EXPECT_TRUE(same_fields(tm, before));
}

TEST(LocalTime, LimitIsTheMomentAndNotTheLocalDate) {
    const Scene berlin("2024-03-02 10:00", Berlin);
    EXPECT_EQ(time_of(date(2038, 1, 19, 4, 14, 7)), 2147483647);
    EXPECT_EQ(time_of(date(2038, 1, 19, 4, 14, 8)), -1);
}

TEST(LocalTime, NonsenseYearIsMinusOne) {
    const Scene scene;
    for (const int year : {INT_MAX, INT_MIN, 8000}) {
        std::tm tm = date(2024, 1, 1, 0, 0, 0);
        tm.tm_year = year;
        const std::tm before = tm;
        EXPECT_EQ(make_time(tm), -1) << year;
        EXPECT_TRUE(same_fields(tm, before)) << year;
    }
}

TEST(LocalTime, SecondBeforeTheEpochIsATime) {
    const Scene scene;
    std::tm tm = date(1969, 12, 31, 23, 59, 59);
    EXPECT_EQ(make_time(tm), -1);
    EXPECT_EQ(tm.tm_yday, 364);
}

TEST(LocalTime, BreaksATimeDownInTheGatewaysZone) {
    const Scene berlin("2024-03-02 10:00", Berlin);
    const std::tm tm = local_time(1700000000);
    EXPECT_EQ(tm.tm_year, 123);
    EXPECT_EQ(tm.tm_mon, 10);
    EXPECT_EQ(tm.tm_mday, 14);
    EXPECT_EQ(tm.tm_hour, 23);
    EXPECT_EQ(tm.tm_min, 13);
    EXPECT_EQ(tm.tm_sec, 20);
    EXPECT_EQ(tm.tm_isdst, 0);
}

TEST(LocalTime, DateForALogLineHasTheDayFirst) {
    EXPECT_EQ(date_text(date(2024, 3, 2, 1, 4, 5)), "02.03.2024 01:04:05");
}

TEST(LocalTime, DateForALogLineTakesTheZeroDateOfAnEmptyBlock) {
    EXPECT_EQ(date_text(date(1900, 0, 0, 0, 0, 0)).substr(0, 2), "00");
}

TEST(LocalTime, AsctimeFormIsWithoutTheLineEnd) {
    std::tm tm = date(2024, 3, 2, 10, 0, 5);
    tm.tm_wday = 6;
    EXPECT_EQ(asctime_text(tm), "Sat Mar  2 10:00:05 2024");
}

TEST(LocalTime, AsctimeFormOfNonsenseIsSafe) {
    std::tm tm = date(2024, 3, 2, 10, 0, 5);
    tm.tm_wday = 7;
    tm.tm_mon = 12;
    EXPECT_EQ(asctime_text(tm), "??? ???  2 10:00:05 2024");
    tm.tm_wday = -1;
    tm.tm_mon = -1;
    EXPECT_EQ(asctime_text(tm), "??? ???  2 10:00:05 2024");
    tm.tm_year = INT_MAX;
    tm.tm_mday = INT_MIN;
    tm.tm_hour = INT_MAX;
    EXPECT_EQ(asctime_text(tm).substr(0, 7), "??? ???");
}

}  // namespace
