#include "contract/moments.h"

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

using contract::parse_moment;

namespace {

constexpr std::int64_t Now = 1700000000;  // 14 November 2023, 22:13:20 UTC

class Moments : public testing::Test {
  protected:
    Moments() {
        ::setenv("TZ", "UTC-3", 1);
        ::tzset();
    }
};

TEST_F(Moments, AreReadAsPeopleWriteThem) {
    EXPECT_EQ(parse_moment("now", Now), Now);
    EXPECT_EQ(parse_moment("@1700000001", Now), 1700000001);
    EXPECT_EQ(parse_moment("-7d", Now), Now - 604800);
    EXPECT_EQ(parse_moment("-12h", Now), Now - 43200);
    EXPECT_EQ(parse_moment("2023-11-15", Now), 1699995600);
    EXPECT_EQ(parse_moment("2023-11-15 01:13", Now), 1699999980);
    EXPECT_EQ(parse_moment("2023-11-15T01:13:20", Now), Now);
    EXPECT_EQ(parse_moment("2023-11-14T22:13:20Z", Now), Now);
    EXPECT_EQ(parse_moment("2023-11-14T23:13:20+01:00", Now), Now);
}

TEST_F(Moments, WhatTheClockCannotHoldIsItsEnd) {
    for (const char* text : {"2038-01-20", "2099-12-31", "2099-12-31T00:00:00+03:00", "9999-12-31", "@99999999999"}) {
        EXPECT_EQ(parse_moment(text, Now), 2147483647) << text;
    }
    EXPECT_EQ(parse_moment("1901-01-01", Now), -2147483648LL);
    EXPECT_EQ(parse_moment("-1000000000d", Now), -2147483648LL);
    EXPECT_EQ(parse_moment("1969-12-31T23:59:59Z", Now), -1);
}

TEST_F(Moments, NonsenseIsNoTime) {
    for (const char* text : {"", "-", "-7", "-7y", "7d", "yesterday", "2023-13-01", "2023-02-30",
                             "2023-02-30T00:00:00Z", "2023-02-29", "2023-1-1", "2023-11-15 25:00", "2023-11-15 10",
                             "2023-11-15T10:00:00+99:00", "@", "@x", "2023-11-15 10:00 "}) {
        EXPECT_FALSE(parse_moment(text, Now)) << text;
    }
}

TEST_F(Moments, AreToldAlikeOneByOneAndInARow) {
    for (const char* zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "<+0545>-5:45", "NST3:30NDT,M3.2.0,M11.1.0"}) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        contract::MomentTexts texts;
        for (std::int64_t moment = 1700000000; moment < 1735000000; moment += 1789) {
            ASSERT_EQ(texts.of(moment), contract::moment_text(moment)) << zone;
        }
        EXPECT_EQ(texts.of(1600000000), contract::moment_text(1600000000)) << zone;
    }
}

TEST_F(Moments, AreToldWithTheirOffset) {
    EXPECT_EQ(contract::moment_text(Now), "2023-11-15T01:13:20+03:00");
    EXPECT_EQ(contract::plain_moment_text(Now), "2023-11-15 01:13:20");
}

}  // namespace
