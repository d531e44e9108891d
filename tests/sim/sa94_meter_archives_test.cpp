#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sa94_asking.h"

namespace {

using namespace sa94_asking;  // NOLINT(google-build-using-namespace)
using sim::Sa94Turning;

constexpr Sa94Archive Hourly = Sa94Archive::Hourly;
constexpr Sa94Archive Daily = Sa94Archive::Daily;
constexpr Sa94Archive Errors = Sa94Archive::Errors;

std::vector<std::time_t> times(const Sa94Meter& meter, Sa94Archive archive) {
    std::vector<std::time_t> all;
    for (const auto& record : meter.records(archive)) all.push_back(record.time);
    return all;
}

/// Whether a block of the memory has nothing but 0xFF in it.
bool is_null(const Sa94Meter& meter, unsigned segment, unsigned block) {
    const auto bytes = meter.memory().block(segment, block);
    return std::ranges::all_of(bytes, [](auto byte) { return byte == 0xFF; });
}

/// Null blocks of a segment.
unsigned null_blocks(const Sa94Meter& meter, unsigned segment) {
    unsigned count = 0;
    for (unsigned block = 0; block < meter.memory().blocks_per_segment(); ++block) {
        if (is_null(meter, segment, block)) ++count;
    }
    return count;
}

class SimSa94Archives : public Sa94Test {};

// ---- order of the ring

TEST_F(SimSa94Archives, RecordsFollowEachOtherThroughBlocksAndSegments) {
    Sa94Meter meter({.firmware = "M300"});
    meter.fill(Hourly, {.records = 128 * 4 + 6, .newest = "2024-03-02 10:00"});
    const auto held = meter.records(Hourly);
    ASSERT_EQ(held.size(), 518U);
    EXPECT_EQ(held[0], (Sa94StoredRecord{Eleven - 518 * Hour, 2, 0, 0}));
    EXPECT_EQ(held[5], (Sa94StoredRecord{Eleven - 513 * Hour, 2, 1, 1}));
    EXPECT_EQ(held[511], (Sa94StoredRecord{Eleven - 7 * Hour, 2, 127, 3}));
    EXPECT_EQ(held[512], (Sa94StoredRecord{Eleven - 6 * Hour, 3, 0, 0}));
    EXPECT_EQ(held[517], (Sa94StoredRecord{Eleven - Hour, 3, 1, 1}));
    EXPECT_EQ(meter.memory().next(Hourly), (Sa94StoredRecord{-1, 3, 1, 2}));
}

TEST_F(SimSa94Archives, LargeMemoryHoldsTwoRecordsInABlock) {
    Sa94Meter meter({.firmware = "M301"});
    meter.fill(Daily, {.records = 3, .newest = "2024-03-02 00:00"});
    const std::time_t midnight = Eleven - 11 * Hour;
    EXPECT_EQ(meter.records(Daily),
              (std::vector<Sa94StoredRecord>{
                  {midnight - 48 * Hour, 4, 0, 0}, {midnight - 24 * Hour, 4, 0, 1}, {midnight, 4, 1, 0}}));
    EXPECT_EQ(meter.memory().shape(Daily).capacity(), 2048U);
}

TEST_F(SimSa94Archives, ErrorsLeaveTheFirstTwoBlocksOfBothSegmentsAlone) {
    Sa94Meter meter({.firmware = "M300"});
    meter.memory().write(7, 1, 0, ByteVector{0x42});
    meter.fill(Errors, {.records = 126 * 16 + 1, .newest = "2024-03-02 11:00"});
    const auto held = meter.records(Errors);
    ASSERT_EQ(held.size(), 2017U);
    EXPECT_EQ(held.front(), (Sa94StoredRecord{Eleven - 2016 * 600, 6, 2, 0}));
    EXPECT_EQ(held[2015], (Sa94StoredRecord{Eleven - 600, 6, 127, 15}));
    EXPECT_EQ(held.back(), (Sa94StoredRecord{Eleven, 7, 2, 0}));
    EXPECT_EQ(meter.memory().block(7, 1)[0], 0x42);
}

TEST_F(SimSa94Archives, RingMayBeginInTheHighSegment) {
    Sa94Meter meter({.firmware = "M300"});
    meter.fill(Hourly, {.records = 513, .newest = "2024-03-02 10:00", .begin_in_high = true});
    EXPECT_EQ(meter.records(Hourly).front(), (Sa94StoredRecord{Eleven - 513 * Hour, 3, 0, 0}));
    EXPECT_EQ(meter.records(Hourly).back(), (Sa94StoredRecord{Eleven - Hour, 2, 0, 0}));
}

// ---- a ring that turns

TEST_F(SimSa94Archives, TurningRingErasesTheSegmentThatItEnters) {
    Sa94Meter meter({.firmware = "M300"});
    meter.fill(Hourly, {.records = 1024, .newest = "2024-03-02 10:00"});
    EXPECT_EQ(meter.records(Hourly).size(), 1024U);
    EXPECT_EQ(meter.records(Hourly).front().segment, 2U);
    meter.store_hourly({.at = "2024-03-02 11:00"});
    const auto held = meter.records(Hourly);
    ASSERT_EQ(held.size(), 513U);
    EXPECT_EQ(held.front(), (Sa94StoredRecord{Eleven - 512 * Hour, 3, 0, 0}));
    EXPECT_EQ(held.back(), (Sa94StoredRecord{Eleven, 2, 0, 0}));
    EXPECT_EQ(null_blocks(meter, 2), 127U);
    EXPECT_EQ(null_blocks(meter, 3), 0U);
}

TEST_F(SimSa94Archives, TurningRingMayEraseTheBlockAheadOnly) {
    Sa94Meter meter({.firmware = "M300", .turning = Sa94Turning::EraseBlockAhead});
    meter.fill(Hourly, {.records = 1024 + 6, .newest = "2024-03-02 10:00"});
    EXPECT_EQ(meter.records(Hourly).size(), 1024U - 2 - 4);
    EXPECT_FALSE(is_null(meter, 2, 1));
    EXPECT_TRUE(is_null(meter, 2, 2));
    EXPECT_FALSE(is_null(meter, 2, 3));
    EXPECT_EQ(meter.records(Hourly).front(), (Sa94StoredRecord{Eleven - 1018 * Hour, 2, 3, 0}));
}

TEST_F(SimSa94Archives, RingThatErasesAheadErasesAcrossTheEndOfASegment) {
    Sa94Meter meter({.firmware = "M300", .turning = Sa94Turning::EraseBlockAhead});
    meter.fill(Errors, {.records = 2 * 126 * 16 + 125 * 16 + 1, .newest = "2024-03-02 11:00"});
    EXPECT_EQ(meter.records(Errors).back(), (Sa94StoredRecord{Eleven, 6, 127, 0}));
    EXPECT_TRUE(is_null(meter, 7, 2));
    EXPECT_FALSE(is_null(meter, 7, 3));
}

TEST_F(SimSa94Archives, TurningRingMayOverwriteRecordByRecord) {
    Sa94Meter meter({.firmware = "M300", .turning = Sa94Turning::Overwrite});
    meter.fill(Hourly, {.records = 1024 + 6, .newest = "2024-03-02 10:00"});
    const auto held = meter.records(Hourly);
    ASSERT_EQ(held.size(), 1024U);
    EXPECT_EQ(held.front(), (Sa94StoredRecord{Eleven - 1024 * Hour, 2, 1, 2}));
    EXPECT_EQ(held.back(), (Sa94StoredRecord{Eleven - Hour, 2, 1, 1}));
}

TEST_F(SimSa94Archives, FilledRingIsLikeOneThatWasWrittenRecordByRecord) {
    for (const auto turning : {Sa94Turning::EraseSegment, Sa94Turning::EraseBlockAhead, Sa94Turning::Overwrite}) {
        for (const std::size_t count : {0U, 1U, 511U, 512U, 1023U, 1024U, 1025U, 2047U, 2048U, 2050U, 3071U, 3072U}) {
            Sa94Meter written({.firmware = "M300", .turning = turning});
            for (std::size_t k = 0; k < count; ++k) {
                const auto age = static_cast<std::time_t>(count - k);
                written.store_hourly({.at = Eleven - age * Hour});
            }
            Sa94Meter filled({.firmware = "M300", .turning = turning});
            filled.fill(Hourly, {.records = count, .newest = "2024-03-02 10:00", .bare = true});
            for (unsigned segment = 2; segment <= 3; ++segment) {
                for (unsigned block = 0; block < 128; ++block) {
                    ASSERT_TRUE(std::ranges::equal(written.memory().block(segment, block),
                                                   filled.memory().block(segment, block)))
                        << count << " records, block " << block << " of segment " << segment;
                }
            }
            EXPECT_EQ(written.memory().next(Hourly), filled.memory().next(Hourly));
        }
    }
}

TEST_F(SimSa94Archives, RingsOfBothSizesHoldTheirRecordsInTheOrderOfTime) {
    for (const char* firmware : {"M300", "M461-m"}) {
        for (const Sa94Archive archive : {Hourly, Daily, Errors}) {
            Sa94Meter meter({.firmware = firmware});
            const auto shape = meter.memory().shape(archive);
            meter.fill(archive, {.records = 3 * shape.capacity() / 2, .newest = "2024-03-02 11:00", .step = 7200});
            const auto held = times(meter, archive);
            EXPECT_EQ(held.size(), shape.capacity());
            EXPECT_TRUE(std::ranges::is_sorted(held));
        }
    }
}

// ---- the meter's own life

TEST_F(SimSa94Archives, MeterStoresAnHourAtItsEnd) {
    Sa94Meter meter = talking();
    meter.record_archives(true, Eleven);
    ask(meter, {0x8A}, Eleven + Hour - 1);
    EXPECT_TRUE(meter.records(Hourly).empty());
    ask(meter, {0x8A}, Eleven + Hour);
    EXPECT_EQ(times(meter, Hourly), std::vector<std::time_t>{Eleven});
    ask(meter, {0x8A}, Eleven + 4 * Hour + 59);
    EXPECT_EQ(times(meter, Hourly),
              (std::vector<std::time_t>{Eleven, Eleven + Hour, Eleven + 2 * Hour, Eleven + 3 * Hour}));
    EXPECT_TRUE(meter.records(Daily).empty());
}

TEST_F(SimSa94Archives, MeterStoresADayAtMidnight) {
    Sa94Meter meter;
    meter.record_archives(true, "2024-03-02 00:00");
    meter.catch_up(Eleven + 13 * Hour - 1);
    EXPECT_TRUE(meter.records(Daily).empty());
    meter.catch_up(Eleven + 13 * Hour);
    EXPECT_EQ(times(meter, Daily), std::vector<std::time_t>{Eleven - 11 * Hour});
    EXPECT_EQ(meter.records(Hourly).size(), 24U);
    meter.record_archives(false);
    meter.catch_up(Eleven + 48 * Hour);
    EXPECT_EQ(meter.records(Hourly).size(), 24U);
}

TEST_F(SimSa94Archives, MeterGoesByItsOwnClockAndMayMissAnHour) {
    Sa94Meter meter({.clock_offset = 120});
    meter.record_archives(true, "2024-03-02 10:00");
    meter.miss_hour("2024-03-02 11:00");
    meter.catch_up(Eleven + 2 * Hour - 120);
    EXPECT_EQ(times(meter, Hourly), (std::vector<std::time_t>{Eleven - Hour, Eleven + Hour}));
}

TEST_F(SimSa94Archives, HoursGoOnThroughSummerTime) {
    live_in("CET-1CEST,M3.5.0,M10.5.0/3");
    for (const char* from : {"2024-03-30 23:00", "2024-10-26 23:00"}) {
        Sa94Meter meter;
        meter.record_archives(true, from);
        const std::time_t begin = sim::Sa94When(from).time();
        meter.catch_up(begin + 6 * Hour);
        std::vector<std::time_t> expected;
        for (int k = 0; k < 6; ++k) expected.push_back(begin + k * Hour);
        EXPECT_EQ(times(meter, Hourly), expected);
    }
}

TEST_F(SimSa94Archives, FilledRecordsAreThoseThatTheMeterMakesItself) {
    Sa94Meter filled({.firmware = "M451"});
    filled.fill(Hourly, {.records = 5, .newest = "2024-03-02 10:00"});
    Sa94Meter lived({.firmware = "M451"});
    lived.record_archives(true, "2024-03-02 06:00");
    lived.catch_up(Eleven);
    for (unsigned block = 0; block < 3; ++block) {
        EXPECT_TRUE(std::ranges::equal(filled.memory().block(2, block), lived.memory().block(2, block)));
    }
}

// ---- records that are none

TEST_F(SimSa94Archives, ErasedRecordIsNoLongerInTheRing) {
    Sa94Meter meter({.firmware = "M300"});
    meter.fill(Hourly, {.records = 3, .newest = "2024-03-02 10:00"});
    meter.erase_record(Hourly, meter.records(Hourly)[1]);
    EXPECT_EQ(times(meter, Hourly), (std::vector<std::time_t>{Eleven - 3 * Hour, Eleven - Hour}));
    meter.store_raw(Hourly, erased(32));
    meter.store_hourly({.at = "2024-03-02 12:00"});
    EXPECT_EQ(meter.records(Hourly).back(), (Sa94StoredRecord{Eleven + Hour, 2, 1, 0}));
    meter.erase_archive(Hourly);
    EXPECT_TRUE(meter.records(Hourly).empty());
}

TEST_F(SimSa94Archives, NonsenseDateIsKeptAndHasNoTime) {
    Sa94Meter meter({.firmware = "M300"});
    meter.store_hourly({.at = "2099-02-30 25:00"});
    meter.store_raw(Hourly, ByteVector{0x00, 0xFF, 0xFF, 0xFE});
    const auto held = meter.records(Hourly);
    ASSERT_EQ(held.size(), 2U);
    EXPECT_EQ(held[0].time, -1);
    EXPECT_EQ(meter.memory().bytes(Hourly, held[0])[5], 0x25);
    EXPECT_EQ(held[1].time, -1);
    EXPECT_TRUE(meter.record_files(Hourly, held[1]).empty());
    EXPECT_THROW(meter.store_hourly({.at = "1999-12-31 23:00"}), std::invalid_argument);
}

}  // namespace
