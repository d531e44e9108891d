// Where an archive begins, where it ends, and where the record with a given time is, in rings as a meter writes them.

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "support/sa94_archive_scene.h"

namespace {

using sim::Sa94Archive;
using sim::Sa94Turning;

constexpr Sa94Place Nowhere;
constexpr bool Small = false;
constexpr bool Large = true;
constexpr std::uint32_t Wrapped = 0xFFFFFFFF;
constexpr std::size_t Tries = 24;

/// The whole of getFirstRecordInfo.
struct Beginning {
    bool found = false;
    std::time_t time = 77;
    int segment = 77;
    std::uint32_t block = 77;
};

Beginning beginning_of(Sa94Ring& ring) {
    Beginning all;
    ring.meter.forget_requests();
    all.found = ring.search.getFirstRecordInfo(ring.type(), all.time, all.segment, all.block);
    return all;
}

/// Each read of an operation fails once, all its tries long; afterwards the meter answers again.
template <typename Operation>
void expect_each_lost_read_ends(Sa94Ring& ring, Operation operation) {
    ring.meter.forget_requests();
    ASSERT_TRUE(operation());
    const std::size_t reads = ring.reads();
    for (std::size_t n = 0; n < reads; ++n) {
        ring.meter.behave();
        ring.meter.forget_requests();
        if (n > 0) ring.meter.misbehave_next(n, sim::sa94_good());
        ring.meter.misbehave_next(Tries, sim::sa94_silence());
        EXPECT_FALSE(operation()) << "read " << n;
        EXPECT_EQ(ring.reads(), n + Tries) << "nothing is asked behind a lost read";
        EXPECT_EQ(ring.meter.requests(sim::Sa94Kind::Disconnect), 0U);
        EXPECT_TRUE(ring.meter.in_conversation());
    }
}

// ---- geometry

TEST(Sa94Geometry, AShortMemoryHasSegmentsOf128BlocksAndRecordsOf32Bytes) {
    const SA94Memory memory{Small};
    EXPECT_EQ(memory.blocksPerSegment(), 128U);
    EXPECT_EQ(memory.blockSize(), 128U);
    for (const int type : {HOURLY_DB, DAILY_DB}) {
        EXPECT_EQ(memory.recordSize(type), 32U);
        EXPECT_EQ(memory.recordsPerBlock(type), 4);
    }
    EXPECT_EQ(memory.recordSize(ERROR_DB), 8U);
    EXPECT_EQ(memory.recordsPerBlock(ERROR_DB), 16);
}

TEST(Sa94Geometry, ALongMemoryHasSegmentsOf512BlocksAndRecordsOf64Bytes) {
    const SA94Memory memory{Large};
    EXPECT_EQ(memory.blocksPerSegment(), 512U);
    EXPECT_EQ(memory.blockSize(), 128U);
    for (const int type : {HOURLY_DB, DAILY_DB}) {
        EXPECT_EQ(memory.recordSize(type), 64U);
        EXPECT_EQ(memory.recordsPerBlock(type), 2);
    }
    EXPECT_EQ(memory.recordSize(ERROR_DB), 8U);
    EXPECT_EQ(memory.recordsPerBlock(ERROR_DB), 16);
}

TEST(Sa94Geometry, OtherArchivesHaveNoRecords) {
    for (const int type : {-1, 2, 3, 5, 99}) {
        EXPECT_EQ(SA94Memory{Large}.recordSize(type), 0U);
        EXPECT_EQ(SA94Memory{Large}.recordsPerBlock(type), 0);
        EXPECT_STREQ(archive_name(type), "unknown");
        EXPECT_STREQ(archive_word(type), "unknown");
    }
    EXPECT_STREQ(archive_name(HOURLY_DB), "Hourly");
    EXPECT_STREQ(archive_name(DAILY_DB), "Daily");
    EXPECT_STREQ(archive_name(ERROR_DB), "Error");
    EXPECT_STREQ(archive_word(HOURLY_DB), "HOURLY_DB");
    EXPECT_STREQ(archive_word(DAILY_DB), "DAILY_DB");
    EXPECT_STREQ(archive_word(ERROR_DB), "ERROR_DB");
}

TEST(Sa94Geometry, SegmentsOfAnArchiveArePairs) {
    const std::vector<int> partners = {-1, -1, -1, 3, 2, 5, 4, 7, 6, -1, -1};
    for (int segment = -1; segment < 10; ++segment) {
        EXPECT_EQ(otherSegment(segment), partners[static_cast<std::size_t>(segment + 1)]) << segment;
    }
}

// ---- null blocks and the times of records

TEST(Sa94Nulls, ABlockIsNullWhenNoneOfIts128BytesIsWritten) {
    std::array<std::uint8_t, 512> reply{};
    reply.fill(0);
    std::fill_n(reply.begin(), 128, std::uint8_t{0xFF});
    EXPECT_TRUE(isNullBlock(reply)) << "what follows is not of the block";
    for (const std::size_t at : {0U, 64U, 127U}) {
        reply[at] = 0xFE;
        EXPECT_FALSE(isNullBlock(reply)) << at;
        reply[at] = 0xFF;
    }
}

TEST(Sa94Nulls, ARecordIsNullByItsOwnSize) {
    std::array<std::uint8_t, 128> bytes{};
    bytes.fill(0xFF);
    bytes[32] = 0;
    for (const int type : {HOURLY_DB, DAILY_DB}) {
        EXPECT_TRUE(SA94Memory{Small}.isNullRecord(type, bytes));
        EXPECT_FALSE(SA94Memory{Large}.isNullRecord(type, bytes));
    }
    bytes[8] = 0;
    EXPECT_TRUE(SA94Memory{Large}.isNullRecord(ERROR_DB, bytes));
    bytes[7] = 0;
    EXPECT_FALSE(SA94Memory{Large}.isNullRecord(ERROR_DB, bytes));
}

class Sa94Times : public ::testing::Test {
  protected:
    explicit Sa94Times(const std::string& zone = "UTC") : scene("2024-03-02 10:00", zone) {}
    Scene scene;
};

TEST_F(Sa94Times, EachArchiveTakesItsOwnPartOfTheDate) {
    const std::array<std::uint8_t, 8> record = {0x99, 0x02, 0x03, 0x24, 0x77, 0x14, 0x15, 0x16};
    EXPECT_EQ(recordTime(HOURLY_DB, record), 1709388000) << "2024-03-02 14:00";
    EXPECT_EQ(recordTime(DAILY_DB, record), 1709337600) << "2024-03-02 00:00";
    EXPECT_EQ(recordTime(ERROR_DB, record), 1709388916) << "2024-03-02 14:15:16";
}

TEST_F(Sa94Times, ErasedMemoryHasTheTimeMinusOne) {
    std::array<std::uint8_t, 64> record{};
    record.fill(0xFF);
    for (const int type : {HOURLY_DB, DAILY_DB, ERROR_DB}) EXPECT_EQ(recordTime(type, record), -1);
}

TEST_F(Sa94Times, WhatSigned32BitsDoNotHoldIsMinusOne) {
    const std::array<std::uint8_t, 8> last = {0, 0x19, 0x01, 0x38, 0, 0x03, 0x14, 0x07};
    EXPECT_EQ(recordTime(ERROR_DB, last), 2147483647);
    const std::array<std::uint8_t, 8> beyond = {0, 0x19, 0x01, 0x38, 0, 0x03, 0x14, 0x08};
    EXPECT_EQ(recordTime(ERROR_DB, beyond), -1);
    const std::array<std::uint8_t, 8> far = {0, 0x01, 0x01, 0x99, 0, 0, 0, 0};
    EXPECT_EQ(recordTime(DAILY_DB, far), -1);
}

TEST_F(Sa94Times, ANonsenseDateIsJustANumber) {
    const std::array<std::uint8_t, 8> thirtieth = {0, 0x30, 0x02, 0x24, 0, 0, 0, 0};
    EXPECT_EQ(recordTime(DAILY_DB, thirtieth), 1709251200) << "2024-03-01";
    const std::array<std::uint8_t, 8> zeros = {};
    EXPECT_EQ(recordTime(DAILY_DB, zeros), 943920000) << "day 0 of month 0 of 2000 is 1999-11-30";
    const std::array<std::uint8_t, 8> nibbles = {0, 0x0A, 0x0B, 0x23, 0, 0x1F, 0, 0};
    EXPECT_EQ(recordTime(HOURLY_DB, nibbles), 1699664400) << "2023-11-10 25:00 is the next day at one";
}

class Sa94BerlinTimes : public Sa94Times {
  protected:
    Sa94BerlinTimes() : Sa94Times("CET-1CEST,M3.5.0,M10.5.0/3") {}
};

TEST_F(Sa94BerlinTimes, SummerIsCountedInStandardTime) {
    const std::array<std::uint8_t, 8> summer = {0, 0x01, 0x07, 0x24, 0, 0x14, 0, 0};
    EXPECT_EQ(recordTime(HOURLY_DB, summer), 1719838800) << "13:00 UTC";
    EXPECT_EQ(recordTime(DAILY_DB, summer), 1719788400) << "23:00 UTC of the day before";
    EXPECT_EQ(record_tm_of(HOURLY_DB, summer).tm_isdst, 0);
}

// ---- where an archive begins

TEST(Sa94Beginning, IsTheOlderOfTheTwoSegmentStarts) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(600);
    EXPECT_EQ(beginning_of(ring).segment, 2);
    EXPECT_EQ(beginning_of(ring).time, ring.at(0));
    EXPECT_EQ(ring.blocks_read(), "2/0 3/0");
    ring.append(600);  // the low segment has been written anew
    EXPECT_EQ(beginning_of(ring).segment, 3);
    EXPECT_EQ(beginning_of(ring).time, ring.at(512));
    EXPECT_EQ(beginning_of(ring).block, 0U);
}

TEST(Sa94Beginning, AnErasedSegmentDoesNotCount) {
    Sa94Ring ring(Sa94Archive::Daily, Large);
    ring.append(3);
    EXPECT_EQ(beginning_of(ring).segment, 4);
    EXPECT_EQ(beginning_of(ring).time, ring.at(0));
    ring.append(ring.capacity() - 3);
    ring.meter.memory().erase(4, 0, 512);
    EXPECT_EQ(beginning_of(ring).segment, 5);
    EXPECT_EQ(beginning_of(ring).time, ring.at(1024));
}

TEST(Sa94Beginning, OfAnErasedMeterIsTheHighSegmentAtMinusOne) {
    for (const Sa94Archive archive : {Sa94Archive::Hourly, Sa94Archive::Daily, Sa94Archive::Errors}) {
        Sa94Ring ring(archive, Small);
        const Beginning erased = beginning_of(ring);
        EXPECT_TRUE(erased.found);
        EXPECT_EQ(erased.time, -1);
        EXPECT_EQ(erased.segment, ring.high());
        EXPECT_EQ(erased.block, archive == Sa94Archive::Errors ? 2U : 0U);
    }
}

TEST(Sa94Beginning, EqualStartsGiveTheLowSegment) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(600);
    std::copy_n(ring.block(2, 0).begin(), 128, ring.block(3, 0).begin());
    EXPECT_EQ(beginning_of(ring).segment, 2);
}

TEST(Sa94Beginning, AStartBeyondAllDatesCountsAsErased) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(600);
    ring.block(2, 0)[3] = 0x99;  // 2099
    EXPECT_EQ(beginning_of(ring).segment, 3);
    ring.append(500);  // the low segment again, with sound dates
    ring.block(3, 0)[3] = 0x99;
    EXPECT_EQ(beginning_of(ring).segment, 2);
}

TEST(Sa94Beginning, OfTheErrorsIsInBlock2) {
    Sa94Ring ring(Sa94Archive::Errors, Small);
    ring.append(2017);
    EXPECT_EQ(beginning_of(ring).segment, 6);
    EXPECT_EQ(beginning_of(ring).block, 2U);
    EXPECT_EQ(ring.blocks_read(), "6/2 7/2");
}

TEST(Sa94Beginning, EachLostReadEndsTheSearch) {
    Sa94Ring ring(Sa94Archive::Hourly, Large);
    ring.append(1);
    expect_each_lost_read_ends(ring, [&] { return beginning_of(ring).found; });
}

// ---- where an archive ends

TEST(Sa94End, IsTheBlockInFrontOfTheFirstNullOne) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 4 + 3);
    EXPECT_EQ(ring.end(), (Sa94Place{2, 4, 2})) << "three records stand in the fifth block";
    EXPECT_EQ(ring.blocks_read(), "2/64 2/32 2/16 2/8 2/4 2/6 2/5 2/4");
    ring.append(1);
    EXPECT_EQ(ring.end(), (Sa94Place{2, 4, -1})) << "a full block tells no position";
}

TEST(Sa94End, IsLookedForInTheHighSegmentWhenTheLowOneIsFull) {
    Sa94Ring ring(Sa94Archive::Daily, Large);
    ring.append(1024 + 2 * 2 + 1);
    EXPECT_EQ(ring.end(), (Sa94Place{5, 2, 0}));
}

TEST(Sa94End, InTheLowSegmentIsTakenWithoutALookAtTheHighOne) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(1024 + 9);
    EXPECT_EQ(ring.end(), (Sa94Place{2, 2, 0}));
    EXPECT_EQ(ring.meter.requests(sim::Sa94Kind::Block, 3), 0U);
}

TEST(Sa94End, IsPassedOverWhenTheBlockReadLastHasData) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 64);
    EXPECT_EQ(ring.end(), Nowhere);
    EXPECT_EQ(ring.blocks_read(), "2/64 2/32 2/48 2/56 2/60 2/62 2/63 3/64 3/32 3/16 3/8 3/4 3/2 3/1 3/0 2/127")
        << "the high segment is empty, and so is the end of the low one";
}

TEST(Sa94End, OfASegmentWithOnlyBlock0IsPassedOver) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(3);
    EXPECT_EQ(ring.end(), Nowhere);
    EXPECT_TRUE(ring.blocks_read().starts_with("2/64 2/32 2/16 2/8 2/4 2/2 2/1 2/0 3/64"));
}

TEST(Sa94End, IsFoundOrPassedOverByTheNumberOfBlocksAlone) {
    // Worked out on paper: the halving of 0..128 ends on the first null block, or on the block in front of it.
    const std::vector<std::uint32_t> found = {3, 5, 7, 9, 11, 13, 15, 17, 63, 65, 99, 127};
    const std::vector<std::uint32_t> passed_over = {1, 2, 4, 6, 8, 10, 16, 64, 96, 126, 128};
    for (const auto& [blocks, is_found] : {std::pair{found, true}, std::pair{passed_over, false}}) {
        for (const std::uint32_t count : blocks) {
            Sa94Ring ring(Sa94Archive::Hourly, Small);
            ring.append(1024 + 4);  // so that no segment is empty
            ring.meter.memory().erase(3, 100, 128);
            ring.meter.memory().erase(2, 0, 128);
            std::copy_n(ring.block(3, 0).begin(), 128, ring.block(2, 0).begin());
            for (std::uint32_t b = 1; b < count; ++b) ring.block(2, b)[1] = 0x01;
            EXPECT_EQ(ring.end().segment, is_found ? 2 : -1) << count;
        }
    }
}

TEST(Sa94End, OfAnErasedMeterIsNowhere) {
    for (const bool memory : {Small, Large}) {
        for (const Sa94Archive archive : {Sa94Archive::Hourly, Sa94Archive::Daily}) {
            Sa94Ring ring(archive, memory);
            EXPECT_EQ(ring.end(), Nowhere);
        }
    }
}

TEST(Sa94End, OfAFreshErrorArchiveIsBlock1WithThePositionThatItsServiceBytesGive) {
    Sa94Ring ring(Sa94Archive::Errors, Small);
    EXPECT_EQ(ring.end(), (Sa94Place{6, 1, -1}));
    std::fill_n(ring.block(6, 1).begin(), 3 * 8, std::uint8_t{0});
    EXPECT_EQ(ring.end(), (Sa94Place{6, 1, 2}));
    std::fill_n(ring.block(6, 1).begin(), 128, std::uint8_t{0});
    EXPECT_EQ(ring.end(), (Sa94Place{6, 1, -1}));
}

TEST(Sa94End, OfAnErrorArchiveIsFoundBehindItsFirstBlocks) {
    Sa94Ring ring(Sa94Archive::Errors, Large);
    ring.append(16 * 3 + 5);
    EXPECT_EQ(ring.end(), (Sa94Place{6, 5, 4})) << "three full blocks behind blocks 0 and 1";
}

TEST(Sa94End, InFrontOfAnEmptySegmentIsBlockMinusOneOfIt) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(512);
    EXPECT_EQ(ring.end(), (Sa94Place{3, Wrapped, -1}));
    EXPECT_TRUE(ring.blocks_read().ends_with("3/1 3/0 2/127 3/127")) << "on the wire the last block";
    ring.append(512);
    ring.meter.memory().erase(2, 0, 128);
    EXPECT_EQ(ring.end(), (Sa94Place{2, Wrapped, -1}));
    EXPECT_TRUE(ring.blocks_read().ends_with("2/0 3/127 2/127"));
    EXPECT_EQ(ring.meter.requests(sim::Sa94Kind::Block, 3), 1U) << "that was all that was read of the full segment";
}

TEST(Sa94End, FoundInThePartnerDoesNotSurvive) {
    Sa94Ring ring(Sa94Archive::Hourly, Large);
    ring.append(1024 - 1);  // one place is free in the last block of the low segment
    EXPECT_EQ(ring.end(), (Sa94Place{3, Wrapped, -1})) << "not segment 2, block 511, position 0";
    EXPECT_TRUE(ring.blocks_read().ends_with("3/0 2/511 3/511"));
}

TEST(Sa94End, EachLostReadEndsTheSearch) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    const auto find_end = [&ring] {
        Sa94Place end;
        return ring.search.findArchiveEnd(HOURLY_DB, end.segment, end.block, end.position);
    };
    ring.append(19);
    expect_each_lost_read_ends(ring, find_end);
    ring.append(512 - 19);  // by way of the empty segment
    expect_each_lost_read_ends(ring, find_end);
}

}  // namespace
