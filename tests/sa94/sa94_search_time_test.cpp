// The record of a given time, in rings as a meter writes them.

#include <string>
#include <vector>

#include "support/sa94_archive_scene.h"

namespace {

using sim::Sa94Archive;

constexpr Sa94Place Nowhere;
constexpr bool Small = false;
constexpr bool Large = true;
constexpr std::size_t Tries = 24;

std::size_t reads_of(const Sa94Ring& ring, int segment) {
    return ring.meter.requests(sim::Sa94Kind::Block, static_cast<unsigned>(segment));
}

TEST(Sa94Search, ATimeBeforeAllRecordsGivesTheOldestOneByTwoReads) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(1024 + 300);
    EXPECT_EQ(ring.find(ring.at(511)), (Sa94Place{3, 0, 0})) << "overwritten an age ago";
    EXPECT_EQ(ring.blocks_read(), "2/0 3/0");
    EXPECT_EQ(ring.find(1), (Sa94Place{3, 0, 0}));
    Sa94Ring errors(Sa94Archive::Errors, Small);
    errors.append(5);
    EXPECT_EQ(errors.find(errors.at(0) - 1), (Sa94Place{6, 2, 0}));
    EXPECT_EQ(errors.blocks_read(), "6/2 7/2");
}

TEST(Sa94Search, TheOldestRecordItselfIsFoundAndNotTakenForOverwritten) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(40);
    EXPECT_EQ(ring.find(ring.at(0)), (Sa94Place{2, 0, 0}));
    EXPECT_GT(ring.reads(), 2U);
}

TEST(Sa94Search, TheFirstRecordOfABlock) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(400);
    EXPECT_EQ(ring.find(ring.at(5 * 4)), (Sa94Place{2, 5, 0}));
}

TEST(Sa94Search, TheLastRecordOfABlock) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(400);
    EXPECT_EQ(ring.find(ring.at(5 * 4 + 3)), (Sa94Place{2, 5, 3}));
    Sa94Ring large(Sa94Archive::Daily, Large);
    large.append(1500);
    EXPECT_EQ(large.find(large.at(1024 + 2 * 7 + 1)), (Sa94Place{5, 7, 1}));
}

TEST(Sa94Search, TheLastRecordOfASegmentAndTheFirstOfTheOther) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(700);
    EXPECT_EQ(ring.find(ring.at(511)), (Sa94Place{2, 127, 3}));
    EXPECT_EQ(ring.find(ring.at(512)), (Sa94Place{3, 0, 0}));
    ring.append(600);
    EXPECT_EQ(ring.find(ring.at(1023)), (Sa94Place{3, 127, 3}));
    EXPECT_EQ(ring.find(ring.at(1024)), (Sa94Place{2, 0, 0}));
}

TEST(Sa94Search, TheNewestRecordInABlockThatIsNotFull) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 9 + 2);
    EXPECT_EQ(ring.find(ring.at(37)), (Sa94Place{2, 9, 1}));
}

TEST(Sa94Search, ATimeBetweenTwoRecordsIsNowhereAndNoLaterOneTakesItsPlace) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(700);
    EXPECT_EQ(ring.find(ring.at(20) + 1), Nowhere);
    EXPECT_GT(reads_of(ring, 2), 3U);
    EXPECT_GT(reads_of(ring, 3), 3U) << "both segments are looked through";
    EXPECT_EQ(ring.find(ring.at(21) - 1), Nowhere);
    EXPECT_EQ(ring.find(ring.at(699) + 3600), Nowhere) << "newer than all";
}

TEST(Sa94Search, ADailyRecordIsFoundByItsMidnight) {
    Sa94Ring ring(Sa94Archive::Daily, Small);
    ring.append(30);
    EXPECT_EQ(ring.find(ring.at(12)), (Sa94Place{4, 3, 0}));
    EXPECT_EQ(ring.find(ring.at(12) + 3600), Nowhere);
}

TEST(Sa94Search, AnErrorIsFoundByItsSecond) {
    Sa94Ring ring(Sa94Archive::Errors, Large);
    ring.append(16 * 40 + 3);
    EXPECT_EQ(ring.find(ring.at(16 * 20 + 15)), (Sa94Place{6, 22, 15}));
    EXPECT_EQ(ring.find(ring.at(16 * 20 + 15) + 1), Nowhere);
    EXPECT_EQ(ring.meter.requests(sim::Sa94Kind::Block, 6, 0), 0U);
    EXPECT_EQ(ring.meter.requests(sim::Sa94Kind::Block, 6, 1), 0U);
}

TEST(Sa94Search, AnErasedMeterHasNothing) {
    for (const bool memory : {Small, Large}) {
        for (const Sa94Archive archive : {Sa94Archive::Hourly, Sa94Archive::Daily, Sa94Archive::Errors}) {
            Sa94Ring ring(archive, memory);
            EXPECT_EQ(ring.find(1709337600), Nowhere);
        }
    }
}

TEST(Sa94Search, OfAFreshErrorArchiveTheLowSegmentIsReadInBlock1Alone) {
    Sa94Ring ring(Sa94Archive::Errors, Small);
    EXPECT_EQ(ring.find(1709337600), Nowhere);
    // Both starts, the halving of the low segment with the block in front of its end, block 1; then the high segment,
    // which is nobody's end and so is searched whole.
    EXPECT_EQ(ring.blocks_read(), "6/2 7/2 6/65 6/33 6/17 6/9 6/5 6/3 6/2 6/1 6/1 7/64 7/33 7/17 7/9 7/5 7/3 7/2 7/2");
}

TEST(Sa94Search, ASegmentWhoseEndIsPassedOverIsSearchedByItsNullRecords) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 64);
    ASSERT_EQ(ring.end().segment, -1);
    for (const std::size_t k : {0U, 1U, 128U, 254U, 255U}) EXPECT_EQ(ring.find(ring.at(k)), ring.place_of(k)) << k;
    EXPECT_EQ(ring.find(ring.at(256)), Nowhere);
    Sa94Ring single(Sa94Archive::Hourly, Small);
    single.append(2);
    ASSERT_EQ(single.end().segment, -1);
    EXPECT_EQ(single.find(single.at(1)), (Sa94Place{2, 0, 1}));
}

TEST(Sa94Search, InFrontOfAnErasedLowSegmentGoesThroughAllItsThirtyTwoBits) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(1024);
    ring.meter.memory().erase(2, 0, 128);
    EXPECT_EQ(ring.find(ring.at(700)), ring.place_of(700));
    // The start, eight halvings for the end, block -1; then the halvings of 2^32 - 1, 31 and a bit, and block 0.
    EXPECT_EQ(reads_of(ring, 2), 1U + 8U + 1U + 32U + 1U);
    EXPECT_NE(ring.blocks_read().find("2/127 2/127 2/127 2/127"), std::string::npos)
        << "on the wire the last block, again and again";
    EXPECT_EQ(ring.find(ring.at(511)), (Sa94Place{3, 0, 0}));
}

TEST(Sa94Search, InALowSegmentInFrontOfAnErasedHighOneIsNotBothered) {
    Sa94Ring ring(Sa94Archive::Daily, Large);
    ring.append(1024);
    ASSERT_EQ(ring.end(), (Sa94Place{5, 0xFFFFFFFF, -1}));
    EXPECT_EQ(ring.find(ring.at(1023)), (Sa94Place{4, 511, 1}));
    EXPECT_EQ(ring.find(ring.at(1023) + 1), Nowhere) << "by way of 32 halvings";
}

TEST(Sa94Search, ABlockIsReadAgainForItsLastRecord) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 3);
    ASSERT_EQ(ring.find(ring.at(5)), (Sa94Place{2, 1, 1}));
    EXPECT_EQ(ring.blocks_read(),
              "2/0 3/0 "                             // the starts
              "2/64 2/32 2/16 2/8 2/4 2/2 2/3 2/2 "  // the end
              "2/1 2/1 2/0 2/0 2/1")                 // 0..2, then 0..1; the block itself
        << "a block whose first record is older is asked for twice";
}

TEST(Sa94Search, WorksInStandardTimeThroughBothChangesOfTheHour) {
    Sa94Ring ring(Sa94Archive::Hourly, Large, sim::Sa94Turning::EraseSegment, "CET-1CEST,M3.5.0,M10.5.0/3");
    const std::time_t summer_begins = 1711846800;  // 2024-03-31 01:00 UTC
    const std::time_t summer_ends = 1729990800;    // 2024-10-27 01:00 UTC
    std::vector<std::time_t> times;
    for (int hour = -4; hour < 5; ++hour) times.push_back(summer_begins + 3600 * hour);
    for (int hour = -4; hour < 5; ++hour) times.push_back(summer_ends + 3600 * hour);
    for (const std::time_t time : times) ring.append_at(time);
    for (std::size_t k = 0; k < times.size(); ++k) EXPECT_EQ(ring.find(times[k]), ring.place_of(k)) << k;
}

TEST(Sa94Search, EachLostReadEndsTheSearchWithoutADisconnect) {
    for (const bool turned : {false, true}) {
        Sa94Ring ring(Sa94Archive::Hourly, Small);
        ring.append(turned ? 1024 + 77 : 300);
        const std::time_t wanted = ring.at(ring.written() - 9);
        ring.find(wanted);
        const std::size_t reads = ring.reads();
        ASSERT_GT(reads, 20U);
        for (std::size_t n = 0; n < reads; ++n) {
            ring.meter.behave();
            ring.meter.forget_requests();
            if (n > 0) ring.meter.misbehave_next(n, sim::sa94_good());
            ring.meter.misbehave_next(Tries, sim::sa94_silence());
            Sa94Place place;
            EXPECT_FALSE(
                ring.search.getRecordByTimestamp(HOURLY_DB, wanted, place.segment, place.block, place.position));
            EXPECT_EQ(ring.reads(), n + Tries) << n;
            EXPECT_EQ(ring.meter.requests(sim::Sa94Kind::Disconnect), 0U);
        }
    }
}

TEST(Sa94Search, AnAnswerOnTheLastTryIsEnough) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(300);
    ring.meter.misbehave_each(2, sim::sa94_silence().on(sim::Sa94Kind::Block));
    EXPECT_EQ(ring.find(ring.at(222)), ring.place_of(222));
    ring.meter.behave();
    ring.meter.misbehave_next(Tries - 1, sim::sa94_silence());
    EXPECT_EQ(ring.find(ring.at(222)), ring.place_of(222));
}

// ---- what the logs tell

class Sa94SearchLog : public Sa94ArchiveStand {
  protected:
    sim::Sa94Meter meter{{.firmware = "M300"}};
};

TEST_F(Sa94SearchLog, TellsEachStep) {
    for (int hour = 0; hour < 7; ++hour) meter.store_hourly({.at = "2024-03-02 0" + std::to_string(hour) + ":00"});
    start_described(meter);
    SA94Request connect(1);
    connect.setConnect();
    ASSERT_TRUE(driver->Transact(connect, SA94::Attempts));
    Sa94Place place;
    ASSERT_TRUE(driver->getRecordByTimestamp(HOURLY_DB, 1709355600, place.segment, place.block, place.position));
    EXPECT_EQ(place, (Sa94Place{2, 1, 1}));
    EXPECT_EQ(logged("messages", "Start get record by timestamp for Hourly archives"), 1);
    EXPECT_EQ(logged("debug", "Start get record by timestamp for Hourly archives"), 1);
    EXPECT_EQ(logged("messages", "Search timestamp = 1709355600 => Sat Mar  2 05:00:00 2024"), 1);
    EXPECT_EQ(logged("messages", ""), 0) << "the time brings its own line end, and no other follows";
    EXPECT_EQ(logged("messages", "Start Get First record info for Hourly archives"), 1);
    EXPECT_EQ(logged("debug", "Start search"), 1);
    EXPECT_EQ(logged("debug", "Segment_index = 2"), 1);
    EXPECT_EQ(logged("debug", "Segment_index = 3"), 0);
    EXPECT_EQ(logged("debug", "first_block = 0, last_block = 127"), 1) << "two blocks are passed over as an end";
    EXPECT_EQ(logged("debug", "middle_block = 63"), 1);
    EXPECT_EQ(logged("debug", "isNullBlock"), 5) << "63, 31, 15, 7 and 3";
    EXPECT_EQ(logged("debug", "Found timestamp in first block's record is 1709337600, as Sat Mar  2 00:00:00 2024"), 1);
    EXPECT_EQ(logged("debug", "Searching record in block"), 1);
    EXPECT_EQ(logged("debug", "Found record! Segment_index = 2, block_num = 1, position = 1"), 1);

    ASSERT_TRUE(driver->getRecordByTimestamp(HOURLY_DB, 1709337599, place.segment, place.block, place.position));
    EXPECT_EQ(logged("debug", "Timestamp( 1709337599 ) < tmp_timestamp( 1709337600 )"), 1);
}

TEST_F(Sa94SearchLog, NamesTheArchive) {
    start_described(meter);
    Sa94Place place;
    SA94Request connect(1);
    connect.setConnect();
    driver->Transact(connect, SA94::Attempts);
    driver->getRecordByTimestamp(DAILY_DB, 1709355600, place.segment, place.block, place.position);
    driver->getRecordByTimestamp(ERROR_DB, 1709355600, place.segment, place.block, place.position);
    for (const std::string name : {"Daily", "Error"}) {
        EXPECT_EQ(logged("messages", "Start get record by timestamp for " + name + " archives"), 1);
        EXPECT_EQ(logged("messages", "Start Get First record info for " + name + " archives"), 1);
    }
}

}  // namespace
