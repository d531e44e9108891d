#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sa94_asking.h"

namespace {

using namespace sa94_asking;  // NOLINT(google-build-using-namespace)
using sim::Sa94Turning;

constexpr Sa94Archive hourly = Sa94Archive::Hourly;
constexpr Sa94Archive daily = Sa94Archive::Daily;
constexpr Sa94Archive errors = Sa94Archive::Errors;

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
    meter.fill(hourly, {.records = 128 * 4 + 6, .newest = "2024-03-02 10:00"});
    const auto held = meter.records(hourly);
    ASSERT_EQ(held.size(), 518U);
    EXPECT_EQ(held[0], (Sa94StoredRecord{eleven - 518 * hour, 2, 0, 0}));
    EXPECT_EQ(held[5], (Sa94StoredRecord{eleven - 513 * hour, 2, 1, 1}));
    EXPECT_EQ(held[511], (Sa94StoredRecord{eleven - 7 * hour, 2, 127, 3}));
    EXPECT_EQ(held[512], (Sa94StoredRecord{eleven - 6 * hour, 3, 0, 0}));
    EXPECT_EQ(held[517], (Sa94StoredRecord{eleven - hour, 3, 1, 1}));
    EXPECT_EQ(meter.memory().next(hourly), (Sa94StoredRecord{-1, 3, 1, 2}));
}

TEST_F(SimSa94Archives, LargeMemoryHoldsTwoRecordsInABlock) {
    Sa94Meter meter({.firmware = "M301"});
    meter.fill(daily, {.records = 3, .newest = "2024-03-02 00:00"});
    const std::time_t midnight = eleven - 11 * hour;
    EXPECT_EQ(meter.records(daily),
              (std::vector<Sa94StoredRecord>{
                  {midnight - 48 * hour, 4, 0, 0}, {midnight - 24 * hour, 4, 0, 1}, {midnight, 4, 1, 0}}));
    EXPECT_EQ(meter.memory().shape(daily).capacity(), 2048U);
}

TEST_F(SimSa94Archives, ErrorsLeaveTheFirstTwoBlocksOfBothSegmentsAlone) {
    Sa94Meter meter({.firmware = "M300"});
    meter.memory().write(7, 1, 0, ByteVector{0x42});
    meter.fill(errors, {.records = 126 * 16 + 1, .newest = "2024-03-02 11:00"});
    const auto held = meter.records(errors);
    ASSERT_EQ(held.size(), 2017U);
    EXPECT_EQ(held.front(), (Sa94StoredRecord{eleven - 2016 * 600, 6, 2, 0}));
    EXPECT_EQ(held[2015], (Sa94StoredRecord{eleven - 600, 6, 127, 15}));
    EXPECT_EQ(held.back(), (Sa94StoredRecord{eleven, 7, 2, 0}));
    EXPECT_EQ(meter.memory().block(7, 1)[0], 0x42);
}

TEST_F(SimSa94Archives, RingMayBeginInTheHighSegment) {
    Sa94Meter meter({.firmware = "M300"});
    meter.fill(hourly, {.records = 513, .newest = "2024-03-02 10:00", .begin_in_high = true});
    EXPECT_EQ(meter.records(hourly).front(), (Sa94StoredRecord{eleven - 513 * hour, 3, 0, 0}));
    EXPECT_EQ(meter.records(hourly).back(), (Sa94StoredRecord{eleven - hour, 2, 0, 0}));
}

// ---- a ring that turns

TEST_F(SimSa94Archives, TurningRingErasesTheSegmentThatItEnters) {
    Sa94Meter meter({.firmware = "M300"});
    meter.fill(hourly, {.records = 1024, .newest = "2024-03-02 10:00"});
    EXPECT_EQ(meter.records(hourly).size(), 1024U);
    EXPECT_EQ(meter.records(hourly).front().segment, 2U);
    meter.store_hourly({.at = "2024-03-02 11:00"});
    const auto held = meter.records(hourly);
    ASSERT_EQ(held.size(), 513U);
    EXPECT_EQ(held.front(), (Sa94StoredRecord{eleven - 512 * hour, 3, 0, 0}));
    EXPECT_EQ(held.back(), (Sa94StoredRecord{eleven, 2, 0, 0}));
    EXPECT_EQ(null_blocks(meter, 2), 127U);
    EXPECT_EQ(null_blocks(meter, 3), 0U);
}

TEST_F(SimSa94Archives, TurningRingMayEraseTheBlockAheadOnly) {
    Sa94Meter meter({.firmware = "M300", .turning = Sa94Turning::EraseBlockAhead});
    meter.fill(hourly, {.records = 1024 + 6, .newest = "2024-03-02 10:00"});
    EXPECT_EQ(meter.records(hourly).size(), 1024U - 2 - 4);
    EXPECT_FALSE(is_null(meter, 2, 1));
    EXPECT_TRUE(is_null(meter, 2, 2));
    EXPECT_FALSE(is_null(meter, 2, 3));
    EXPECT_EQ(meter.records(hourly).front(), (Sa94StoredRecord{eleven - 1018 * hour, 2, 3, 0}));
}

TEST_F(SimSa94Archives, RingThatErasesAheadErasesAcrossTheEndOfASegment) {
    Sa94Meter meter({.firmware = "M300", .turning = Sa94Turning::EraseBlockAhead});
    meter.fill(errors, {.records = 2 * 126 * 16 + 125 * 16 + 1, .newest = "2024-03-02 11:00"});
    EXPECT_EQ(meter.records(errors).back(), (Sa94StoredRecord{eleven, 6, 127, 0}));
    EXPECT_TRUE(is_null(meter, 7, 2));
    EXPECT_FALSE(is_null(meter, 7, 3));
}

TEST_F(SimSa94Archives, TurningRingMayOverwriteRecordByRecord) {
    Sa94Meter meter({.firmware = "M300", .turning = Sa94Turning::Overwrite});
    meter.fill(hourly, {.records = 1024 + 6, .newest = "2024-03-02 10:00"});
    const auto held = meter.records(hourly);
    ASSERT_EQ(held.size(), 1024U);
    EXPECT_EQ(held.front(), (Sa94StoredRecord{eleven - 1024 * hour, 2, 1, 2}));
    EXPECT_EQ(held.back(), (Sa94StoredRecord{eleven - hour, 2, 1, 1}));
}

TEST_F(SimSa94Archives, FilledRingIsLikeOneThatWasWrittenRecordByRecord) {
    for (const auto turning : {Sa94Turning::EraseSegment, Sa94Turning::EraseBlockAhead, Sa94Turning::Overwrite}) {
        for (const std::size_t count : {0U, 1U, 511U, 512U, 1023U, 1024U, 1025U, 2047U, 2048U, 2050U, 3071U, 3072U}) {
            Sa94Meter written({.firmware = "M300", .turning = turning});
            for (std::size_t k = 0; k < count; ++k) {
                const auto age = static_cast<std::time_t>(count - k);
                written.store_hourly({.at = eleven - age * hour});
            }
            Sa94Meter filled({.firmware = "M300", .turning = turning});
            filled.fill(hourly, {.records = count, .newest = "2024-03-02 10:00", .bare = true});
            for (unsigned segment = 2; segment <= 3; ++segment) {
                for (unsigned block = 0; block < 128; ++block) {
                    ASSERT_TRUE(std::ranges::equal(written.memory().block(segment, block),
                                                   filled.memory().block(segment, block)))
                        << count << " records, block " << block << " of segment " << segment;
                }
            }
            EXPECT_EQ(written.memory().next(hourly), filled.memory().next(hourly));
        }
    }
}

TEST_F(SimSa94Archives, RingsOfBothSizesHoldTheirRecordsInTheOrderOfTime) {
    for (const char* firmware : {"M300", "M461-m"}) {
        for (const Sa94Archive archive : {hourly, daily, errors}) {
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
    meter.record_archives(true, eleven);
    ask(meter, {0x8A}, eleven + hour - 1);
    EXPECT_TRUE(meter.records(hourly).empty());
    ask(meter, {0x8A}, eleven + hour);
    EXPECT_EQ(times(meter, hourly), std::vector<std::time_t>{eleven});
    ask(meter, {0x8A}, eleven + 4 * hour + 59);
    EXPECT_EQ(times(meter, hourly),
              (std::vector<std::time_t>{eleven, eleven + hour, eleven + 2 * hour, eleven + 3 * hour}));
    EXPECT_TRUE(meter.records(daily).empty());
}

TEST_F(SimSa94Archives, MeterStoresADayAtMidnight) {
    Sa94Meter meter;
    meter.record_archives(true, "2024-03-02 00:00");
    meter.catch_up(eleven + 13 * hour - 1);
    EXPECT_TRUE(meter.records(daily).empty());
    meter.catch_up(eleven + 13 * hour);
    EXPECT_EQ(times(meter, daily), std::vector<std::time_t>{eleven - 11 * hour});
    EXPECT_EQ(meter.records(hourly).size(), 24U);
    meter.record_archives(false);
    meter.catch_up(eleven + 48 * hour);
    EXPECT_EQ(meter.records(hourly).size(), 24U);
}

TEST_F(SimSa94Archives, MeterGoesByItsOwnClockAndMayMissAnHour) {
    Sa94Meter meter({.clock_offset = 120});
    meter.record_archives(true, "2024-03-02 10:00");
    meter.miss_hour("2024-03-02 11:00");
    meter.catch_up(eleven + 2 * hour - 120);
    EXPECT_EQ(times(meter, hourly), (std::vector<std::time_t>{eleven - hour, eleven + hour}));
}

TEST_F(SimSa94Archives, HoursGoOnThroughSummerTime) {
    live_in("CET-1CEST,M3.5.0,M10.5.0/3");
    for (const char* from : {"2024-03-30 23:00", "2024-10-26 23:00"}) {
        Sa94Meter meter;
        meter.record_archives(true, from);
        const std::time_t begin = sim::Sa94When(from).time();
        meter.catch_up(begin + 6 * hour);
        std::vector<std::time_t> expected;
        for (int k = 0; k < 6; ++k) expected.push_back(begin + k * hour);
        EXPECT_EQ(times(meter, hourly), expected);
    }
}

TEST_F(SimSa94Archives, FilledRecordsAreThoseThatTheMeterMakesItself) {
    Sa94Meter filled({.firmware = "M451"});
    filled.fill(hourly, {.records = 5, .newest = "2024-03-02 10:00"});
    Sa94Meter lived({.firmware = "M451"});
    lived.record_archives(true, "2024-03-02 06:00");
    lived.catch_up(eleven);
    for (unsigned block = 0; block < 3; ++block) {
        EXPECT_TRUE(std::ranges::equal(filled.memory().block(2, block), lived.memory().block(2, block)));
    }
}

// ---- records that are none

TEST_F(SimSa94Archives, ErasedRecordIsNoLongerInTheRing) {
    Sa94Meter meter({.firmware = "M300"});
    meter.fill(hourly, {.records = 3, .newest = "2024-03-02 10:00"});
    meter.erase_record(hourly, meter.records(hourly)[1]);
    EXPECT_EQ(times(meter, hourly), (std::vector<std::time_t>{eleven - 3 * hour, eleven - hour}));
    meter.store_raw(hourly, erased(32));
    meter.store_hourly({.at = "2024-03-02 12:00"});
    EXPECT_EQ(meter.records(hourly).back(), (Sa94StoredRecord{eleven + hour, 2, 1, 0}));
    meter.erase_archive(hourly);
    EXPECT_TRUE(meter.records(hourly).empty());
}

TEST_F(SimSa94Archives, NonsenseDateIsKeptAndHasNoTime) {
    Sa94Meter meter({.firmware = "M300"});
    meter.store_hourly({.at = "2099-02-30 25:00"});
    meter.store_raw(hourly, ByteVector{0x00, 0xFF, 0xFF, 0xFE});
    const auto held = meter.records(hourly);
    ASSERT_EQ(held.size(), 2U);
    EXPECT_EQ(held[0].time, -1);
    EXPECT_EQ(meter.memory().bytes(hourly, held[0])[5], 0x25);
    EXPECT_EQ(held[1].time, -1);
    EXPECT_TRUE(meter.record_files(hourly, held[1]).empty());
    EXPECT_THROW(meter.store_hourly({.at = "1999-12-31 23:00"}), std::invalid_argument);
}

}  // namespace
