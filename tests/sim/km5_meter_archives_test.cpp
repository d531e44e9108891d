#include <set>
#include <stdexcept>

#include <gtest/gtest.h>

#include "km5_asking.h"

namespace {

using namespace km5_asking;  // NOLINT(google-build-using-namespace)

class SimKm5Archives : public Km5Test {};

// ---- archives

TEST_F(SimKm5Archives, GivesARecordAsItWasStored) {
    Km5Meter meter({.serial = 1});
    meter.store_hourly({.at = "2024-03-02 11:00", .ta = 71.25F, .IT = 120.5F});
    ByteVector expected = {0x01, 0, 0, 0, 0x41, 0x00, 0x02, 0x03, 0x24, 0x00, 0x11, 0x00, 0x00};
    expected.insert(expected.end(), {0x00, 0x80, 0x8E, 0x42});
    expected.resize(65, 0x00);
    expected.insert(expected.end(), {0x00, 0x00, 0xF1, 0x42});
    // Exclusive or: 01^41=40, 02^03^24^11=34, 80^8E^42=4C, F1^42=B3; together 40^34^4C^B3=8B.
    // Sum: 42, 3A, 150, 133 make 2FF.
    expected.insert(expected.end(), {0x8B, 0xFF});
    EXPECT_EQ(ask(meter, 65, {0, 0, 0, 0, 0}), expected);
}

TEST_F(SimKm5Archives, PutsFieldKOfARecordAtThirteenPlusFourK) {
    Km5Meter meter;
    meter.store_yearly({.at = Eleven,
                        .ta = 1,
                        .P1 = 2,
                        .P2 = 3,
                        .P3 = 4,
                        .T1 = 5,
                        .T2 = 6,
                        .T3 = 7,
                        .IM1 = 8,
                        .IM2 = 9,
                        .Vi = 10,
                        .IV1 = 11,
                        .IV2 = 12,
                        .IQ = 13,
                        .IT = 14});
    const ByteVector answer = ask(meter, 65, {3});
    for (std::size_t k = 0; k < 14; ++k) EXPECT_EQ(float_at(answer, 13 + 4 * k), static_cast<float>(k + 1));
}

TEST_F(SimKm5Archives, KeepsItsFiveArchivesApart) {
    Km5Meter meter;
    meter.store_hourly({.at = "2024-03-02 11:00", .IQ = 1});
    meter.store_daily({.at = "2024-03-02 00:00", .IQ = 2});
    meter.store_monthly({.at = "2024-03-01 00:00", .IQ = 3});
    meter.store_yearly({.at = "2024-01-01 00:00", .IQ = 4});
    meter.store_event("2024-03-02 10:37:20", 0x85);
    for (std::uint8_t archive = 0; archive < 4; ++archive) {
        EXPECT_EQ(float_at(ask(meter, 65, {archive}), 61), static_cast<float>(archive + 1));
    }
    EXPECT_EQ(part(ask(meter, 55, {4}), 5, 12), (ByteVector{0x85, 0x02, 0x03, 0x24, 0x00, 0x10, 0x37, 0x20}));
}

TEST_F(SimKm5Archives, TellsTheBoundsOfARingThatIsEmptyFillsAndTurns) {
    Km5Meter meter({.capacity = {.daily = 4}});
    const Km5Bounds expected[] = {
        {.flag = 0x80, .first = 0, .last = 0, .count = 0}, {.flag = 0, .first = 0, .last = 0, .count = 1},
        {.flag = 0, .first = 0, .last = 1, .count = 2},    {.flag = 0, .first = 0, .last = 2, .count = 3},
        {.flag = 0, .first = 0, .last = 3, .count = 4},    {.flag = 0, .first = 1, .last = 0, .count = 4},
        {.flag = 0, .first = 2, .last = 1, .count = 4},    {.flag = 0, .first = 3, .last = 2, .count = 4},
        {.flag = 0, .first = 0, .last = 3, .count = 4},
    };
    for (const auto& bounds : expected) {
        EXPECT_EQ(bounds_of(ask(meter, 51, {1})), bounds);
        EXPECT_EQ(meter.bounds(Km5Archive::Daily), bounds);
        meter.store_daily({.at = Eleven});
    }
    EXPECT_EQ(meter.records(Km5Archive::Daily).size(), 9U);
}

TEST_F(SimKm5Archives, OverwritesTheOldestRecordOfAFullRing) {
    Km5Meter meter({.capacity = {.hourly = 3}});
    for (std::time_t hour = 0; hour < 4; ++hour)
        meter.store_hourly({.at = Eleven + hour * 3600, .IQ = static_cast<float>(hour)});
    EXPECT_EQ(float_at(ask(meter, 65, {0, 0}), 61), 3.0F);
    EXPECT_EQ(float_at(ask(meter, 65, {0, 1}), 61), 1.0F);
    EXPECT_EQ(float_at(ask(meter, 65, {0, 2}), 61), 2.0F);
    EXPECT_EQ(part(ask(meter, 51, {0}), 6, 15), (ByteVector{1, 0, 0, 0x02, 0x03, 0x24, 0, 0x12, 0x00, 0x00}));
    EXPECT_EQ(part(ask(meter, 51, {0}), 16, 25), (ByteVector{0, 0, 0, 0x02, 0x03, 0x24, 0, 0x14, 0x00, 0x00}));
}

TEST_F(SimKm5Archives, ReadsErasedMemoryWhereThereIsNoRecord) {
    Km5Meter meter({.capacity = {.hourly = 300}});
    for (int k = 0; k < 258; ++k) meter.store_hourly({.at = Eleven, .IQ = static_cast<float>(k)});
    EXPECT_EQ(float_at(ask(meter, 65, {0, 0x01, 0x01, 0, 0}), 61), 257.0F);
    EXPECT_EQ(part(ask(meter, 65, {0, 0x02, 0x01, 0, 0}), 5, 68), ByteVector(64, 0xFF));
    EXPECT_EQ(part(ask(meter, 65, {0, 0x2C, 0x01, 0, 0}), 5, 68), ByteVector(64, 0xFF));
    EXPECT_EQ(part(ask(meter, 65, {0, 0x00, 0x00, 0x01, 0}), 5, 68), ByteVector(64, 0xFF));
    EXPECT_EQ(part(ask(meter, 55, {4, 0, 0, 0, 0}), 5, 12), ByteVector(8, 0xFF));
}

TEST_F(SimKm5Archives, FindsTheRecordOfAnHourOrTheFirstAfterIt) {
    Km5Meter meter;
    meter.store_hourly({.at = "2024-03-02 09:00"});
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.store_hourly({.at = "2024-03-02 13:00"});
    EXPECT_EQ(word_at(ask(meter, 52, {0, 0x02, 0x03, 0x24, 0x10}), 6), 1U);
    EXPECT_EQ(word_at(ask(meter, 52, {0, 0x02, 0x03, 0x24, 0x11}), 6), 2U);
    EXPECT_EQ(word_at(ask(meter, 52, {0, 0x31, 0x12, 0x23, 0x23}), 6), 0U);
    EXPECT_EQ(word_at(ask(meter, 52, {0, 0x03, 0x03, 0x24, 0x00}), 6), 2U);  // beyond the newest
    EXPECT_EQ(word_at(ask(meter, 52, {1, 0x02, 0x03, 0x24, 0x10}), 6), 0U);  // an empty ring
}

TEST_F(SimKm5Archives, FindsARecordInARingThatHasTurned) {
    Km5Meter meter({.capacity = {.hourly = 4}});
    for (std::time_t hour = 0; hour < 6; ++hour) meter.store_hourly({.at = Eleven + hour * 3600});
    // 15:00 and 16:00 have taken the places of 11:00 and 12:00.
    EXPECT_EQ(word_at(ask(meter, 52, {0, 0x02, 0x03, 0x24, 0x11}), 6), 2U);
    EXPECT_EQ(word_at(ask(meter, 52, {0, 0x02, 0x03, 0x24, 0x15}), 6), 0U);
    EXPECT_EQ(word_at(ask(meter, 52, {0, 0x02, 0x03, 0x24, 0x16}), 6), 1U);
}

TEST_F(SimKm5Archives, FindsTheEventsOfAnHourFromItsFirstMinute) {
    Km5Meter meter;
    meter.store_event("2024-03-02 09:59:59", 1);
    meter.store_event("2024-03-02 10:37:20", 2);
    meter.store_event("2024-03-02 10:50:00", 3);
    EXPECT_EQ(word_at(ask(meter, 52, {4, 0x02, 0x03, 0x24, 0x10}), 6), 1U);
}

TEST_F(SimKm5Archives, TakesBothWritingsOfOctoberForOctober) {
    Km5Meter meter;
    meter.store_daily({.at = "2024-09-30 00:00"});
    meter.store_daily({.at = "2024-10-05 00:00"});
    meter.store_daily({.at = "2024-11-05 00:00"});
    EXPECT_EQ(word_at(ask(meter, 52, {1, 0x05, 0x0A, 0x24, 0x00}), 6), 1U);
    EXPECT_EQ(word_at(ask(meter, 52, {1, 0x05, 0x10, 0x24, 0x00}), 6), 1U);
}

TEST_F(SimKm5Archives, CanLoseRecordsInSeveralWays) {
    Km5Meter meter;
    meter.store_hourly({.at = "2024-03-02 09:00"});
    meter.leave_gap(Km5Archive::Hourly);
    meter.store_hourly({.at = "2024-03-02 11:00"});
    EXPECT_EQ(bounds_of(ask(meter, 51, {0})), (Km5Bounds{.flag = 0, .first = 0, .last = 2, .count = 3}));
    EXPECT_EQ(ask(meter, 65, {0, 1}).at(6), 0xFF);
    EXPECT_EQ(word_at(ask(meter, 52, {0, 0x02, 0x03, 0x24, 0x10}), 6), 2U);

    meter.erase_record(Km5Archive::Hourly, 0);
    EXPECT_EQ(ask(meter, 65, {0, 0}).at(6), 0xFF);

    meter.erase_archive(Km5Archive::Hourly);
    EXPECT_EQ(bounds_of(ask(meter, 51, {0})), (Km5Bounds{.flag = 0x80}));
    EXPECT_EQ(meter.records(Km5Archive::Hourly).size(), 2U);
}

TEST_F(SimKm5Archives, ClaimsTheBoundsItIsTold) {
    Km5Meter meter;
    const Km5Bounds claimed{.flag = 0x81, .first = 0xFFFF, .last = 0x0102, .count = 0x0304};
    meter.claim_bounds(Km5Archive::Errors, claimed);
    EXPECT_EQ(bounds_of(ask(meter, 51, {4})), claimed);
    meter.claim_bounds(Km5Archive::Errors, std::nullopt);
    EXPECT_EQ(bounds_of(ask(meter, 51, {4})), (Km5Bounds{.flag = 0x80}));
}

TEST_F(SimKm5Archives, KeepsADateThatNoCalendarHolds) {
    Km5Meter meter;
    meter.store_hourly({.at = "2024-02-30 25:61"});
    EXPECT_EQ(part(ask(meter, 65, {0}), 5, 12), (ByteVector{0, 0x30, 0x02, 0x24, 0, 0x25, 0x61, 0x00}));
    EXPECT_THROW(meter.store_hourly({.at = "2024-02-30"}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = "2024-02-20 10:00x"}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.T1 = 1.0F}), std::invalid_argument);
}

// ---- records of its own

TEST_F(SimKm5Archives, RecordsEachHourAndEachDayOfItsOwnClock) {
    Km5Meter meter({.clock_offset = -600});
    meter.record_archives(true, "2024-03-01 22:30");
    ask(meter, 9, {}, 0, Eleven - 9L * 3600);  // 02:00, shown as 01:50
    const auto& hourly = meter.records(Km5Archive::Hourly);
    ASSERT_EQ(hourly.size(), 3U);
    EXPECT_EQ(hourly[0].date, (sim::Km5Date{.year = 24, .month = 3, .day = 1, .hour = 23}));
    EXPECT_EQ(hourly[2].date, (sim::Km5Date{.year = 24, .month = 3, .day = 2, .hour = 1}));
    const auto& daily = meter.records(Km5Archive::Daily);
    ASSERT_EQ(daily.size(), 1U);
    EXPECT_EQ(daily[0].time, 1709337600);  // 2024-03-02 00:00:00
    EXPECT_EQ(daily[0].values, Km5Meter::recorded_values(12345678, 0, Km5Archive::Daily, 1709337600));
    ask(meter, 9, {}, 0, Eleven - 9L * 3600 + 599);
    EXPECT_EQ(hourly.size(), 3U);
    ask(meter, 9, {}, 0, Eleven - 9L * 3600 + 600);
    EXPECT_EQ(hourly.size(), 4U);
}

TEST_F(SimKm5Archives, RecordsForEverySubsystemWithValuesOfItsOwn) {
    Km5Meter meter({.serial = 87654321, .km56i = true, .subsystems = 2});
    meter.record_archives(true, Eleven - 1);
    meter.catch_up(Eleven);
    EXPECT_EQ(float_at(ask(meter, 65, {0}, 0), 61),
              Km5Meter::recorded_value(87654321, 0, Km5Archive::Hourly, Eleven, 12));
    EXPECT_EQ(float_at(ask(meter, 65, {0}, 1), 61),
              Km5Meter::recorded_value(87654321, 1, Km5Archive::Hourly, Eleven, 12));
    EXPECT_TRUE(meter.records(Km5Archive::Hourly, 2).empty());
}

TEST_F(SimKm5Archives, RecordsValuesThatAreKnownBeforehand) {
    const std::time_t second_day_of_2000 = 946771200;
    // 24 hours at 8 eighths and 678 for the serial number.
    EXPECT_EQ(Km5Meter::recorded_value(12345678, 0, Km5Archive::Hourly, second_day_of_2000, 7), 702.0F);
    // 24 * 7 + 678 is 13 * 64 and 14.
    EXPECT_EQ(Km5Meter::recorded_value(12345678, 0, Km5Archive::Hourly, second_day_of_2000, 4), 91.75F);
    EXPECT_EQ(Km5Meter::recorded_value(12345678, 0, Km5Archive::Hourly, second_day_of_2000, 1), 6.21875F);
}

TEST_F(SimKm5Archives, RecordsNoValueTwiceAtOneTime) {
    std::set<float> values;
    for (unsigned subsystem = 0; subsystem < 3; ++subsystem) {
        for (const auto archive : {Km5Archive::Hourly, Km5Archive::Daily}) {
            for (const float value : Km5Meter::recorded_values(12345678, subsystem, archive, Eleven))
                values.insert(value);
        }
    }
    EXPECT_EQ(values.size(), 3U * 2U * 14U);
}

TEST_F(SimKm5Archives, LeavesOutTheHourThatSpringLeavesOut) {
    live_in("CET-1CEST,M3.5.0,M10.5.0/3");
    Km5Meter meter;
    meter.record_archives(true, "2024-03-31 00:00");
    meter.catch_up(sim::Km5When("2024-04-01 00:00").time());
    const auto& hourly = meter.records(Km5Archive::Hourly);
    ASSERT_EQ(hourly.size(), 23U);
    EXPECT_EQ(hourly[0].date.hour, 1);
    EXPECT_EQ(hourly[1].date.hour, 3);
    EXPECT_EQ(hourly[1].time - hourly[0].time, 3600);
    ASSERT_EQ(meter.records(Km5Archive::Daily).size(), 1U);
    EXPECT_EQ(meter.records(Km5Archive::Daily)[0].date, (sim::Km5Date{.year = 24, .month = 4, .day = 1}));
}

TEST_F(SimKm5Archives, RecordsADayInTheHourAfterAMidnightThatIsLeftOut) {
    live_in("<-03>3<-02>,M11.1.0/0,M2.3.0/0");
    Km5Meter meter;
    meter.record_archives(true, "2024-11-02 12:00");
    meter.catch_up(sim::Km5When("2024-11-04 12:00").time());
    const auto& daily = meter.records(Km5Archive::Daily);
    ASSERT_EQ(daily.size(), 2U);
    EXPECT_EQ(daily[0].date, (sim::Km5Date{.year = 24, .month = 11, .day = 3, .hour = 1}));
    EXPECT_EQ(daily[1].date, (sim::Km5Date{.year = 24, .month = 11, .day = 4}));
}

TEST_F(SimKm5Archives, RecordsTheHourTwiceThatAutumnRepeats) {
    live_in("CET-1CEST,M3.5.0,M10.5.0/3");
    Km5Meter meter;
    meter.record_archives(true, "2024-10-27 00:00");
    meter.catch_up(sim::Km5When("2024-10-28 00:00").time());
    const auto& hourly = meter.records(Km5Archive::Hourly);
    ASSERT_EQ(hourly.size(), 25U);
    EXPECT_EQ(hourly[1].date.hour, 2);
    EXPECT_EQ(hourly[2].date, hourly[1].date);
    EXPECT_EQ(hourly[2].time - hourly[1].time, 3600);
    EXPECT_EQ(hourly[3].date.hour, 3);
}

TEST_F(SimKm5Archives, RecordsOnTheHourWhereTheHourIsNotThatOfGreenwich) {
    live_in("IST-5:30");
    Km5Meter meter;
    meter.record_archives(true, "2024-03-02 10:10");
    meter.catch_up(sim::Km5When("2024-03-02 12:00").time());
    const auto& hourly = meter.records(Km5Archive::Hourly);
    ASSERT_EQ(hourly.size(), 2U);
    EXPECT_EQ(hourly[0].date, (sim::Km5Date{.year = 24, .month = 3, .day = 2, .hour = 11}));
}

TEST_F(SimKm5Archives, MakesUpNoRecordsWhenItsClockIsSet) {
    Km5Meter meter;
    meter.record_archives(true, Eleven);
    meter.set_clock("2024-03-02 15:30", Eleven + 60);
    ask(meter, 9, {}, 0, Eleven + 120);
    EXPECT_TRUE(meter.records(Km5Archive::Hourly).empty());
    meter.set_clock("2024-03-02 14:30", Eleven + 180);
    ask(meter, 9, {}, 0, Eleven + 180 + 5399);
    EXPECT_TRUE(meter.records(Km5Archive::Hourly).empty());  // 15:00 was shown once before
    ask(meter, 9, {}, 0, Eleven + 180 + 5400);
    EXPECT_EQ(meter.records(Km5Archive::Hourly).size(), 1U);
}

TEST_F(SimKm5Archives, StopsRecordingWhenTold) {
    Km5Meter meter;
    meter.record_archives(true, Eleven);
    meter.catch_up(Eleven + 3600);
    meter.record_archives(false);
    meter.catch_up(Eleven + 36000);
    EXPECT_EQ(meter.records(Km5Archive::Hourly).size(), 1U);
    EXPECT_THROW(meter.record_archives(true), std::invalid_argument);
}

}  // namespace
