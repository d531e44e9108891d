// Rings in which the search does not find what stands in the memory, or takes something else: each of them is known,
// and stays. In a ring as a meter writes it none of this happens.

#include <algorithm>
#include <string>

#include "support/sa94_archive_scene.h"

namespace {

using sim::Sa94Archive;
using sim::Sa94Turning;

constexpr Sa94Place Nowhere;
constexpr bool Small = false;
constexpr bool Large = true;

class Sa94Oddities : public ::testing::Test {
  protected:
    /// Bytes of the k-th record of the ring, which has not turned.
    static std::span<std::uint8_t> bytes(Sa94Ring& ring, std::size_t k) {
        const Sa94Place place = ring.place_of(k);
        const std::size_t size = ring.shape().record_size;
        return ring.block(place.segment, place.block).subspan(static_cast<std::size_t>(place.position) * size, size);
    }
    static void erase(Sa94Ring& ring, std::size_t k) { std::ranges::fill(bytes(ring, k), std::uint8_t{0xFF}); }
    /// A date that no 32 bits hold: the time is -1, and the record is not null.
    static void make_nonsense(Sa94Ring& ring, std::size_t k) { bytes(ring, k)[3] = 0x99; }
    static void set_time(Sa94Ring& ring, std::size_t k, std::time_t time) {
        std::ranges::copy(ring.record(time), bytes(ring, k).begin());
    }
};

// ---- holes

TEST_F(Sa94Oddities, BehindABlockWithoutAFirstRecordNothingIsFound) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 127);
    erase(ring, 4 * 63);  // where the halving begins
    EXPECT_EQ(ring.find(ring.at(4 * 63 + 1)), (Sa94Place{2, 63, 1})) << "in the block itself it is looked for";
    EXPECT_EQ(ring.find(ring.at(4 * 64)), Nowhere);
    EXPECT_EQ(ring.find(ring.at(4 * 100)), Nowhere);
    EXPECT_EQ(ring.find(ring.at(4 * 62)), ring.place_of(4 * 62));
}

TEST_F(Sa94Oddities, BehindABlockWithoutALastRecordNothingIsFound) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 127);
    erase(ring, 4 * 63 + 3);
    EXPECT_EQ(ring.find(ring.at(4 * 63 + 2)), (Sa94Place{2, 63, 2}));
    EXPECT_EQ(ring.find(ring.at(4 * 64)), Nowhere);
    EXPECT_EQ(ring.find(ring.at(4 * 20 + 1)), ring.place_of(4 * 20 + 1));
}

TEST_F(Sa94Oddities, ANullRecordInTheMiddleOfABlockHidesNothing) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 127);
    erase(ring, 4 * 63 + 1);
    EXPECT_EQ(ring.find(ring.at(4 * 63 + 2)), (Sa94Place{2, 63, 2}));
    EXPECT_EQ(ring.find(ring.at(4 * 64)), ring.place_of(4 * 64));
    EXPECT_EQ(ring.find(ring.at(4 * 63 + 1)), Nowhere);
}

TEST_F(Sa94Oddities, BehindANullBlockInTheMiddleOfASegmentNothingIsFound) {
    Sa94Ring ring(Sa94Archive::Hourly, Large);
    ring.append(2 * 400);
    ring.meter.memory().erase(2, 255, 256);
    EXPECT_EQ(ring.find(ring.at(2 * 300)), Nowhere);
    EXPECT_EQ(ring.find(ring.at(2 * 254 + 1)), ring.place_of(2 * 254 + 1));
}

// ---- dates

TEST_F(Sa94Oddities, ABlockOfNonsenseDatesHidesTheRecordsInFrontOfIt) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 127);
    for (std::size_t k = 0; k < 4; ++k) make_nonsense(ring, 4 * 63 + k);
    EXPECT_EQ(ring.find(ring.at(4 * 62)), Nowhere) << "minus one is older than all";
    EXPECT_EQ(ring.find(ring.at(4)), Nowhere);
    EXPECT_EQ(ring.find(ring.at(4 * 64)), ring.place_of(4 * 64)) << "what comes behind it is found";
    EXPECT_EQ(ring.find(ring.at(4 * 126 + 3)), ring.place_of(4 * 126 + 3));
}

TEST_F(Sa94Oddities, ANonsenseFirstRecordHidesNothing) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 127);
    make_nonsense(ring, 4 * 63);
    EXPECT_EQ(ring.find(ring.at(4 * 63 + 1)), (Sa94Place{2, 63, 1}));
    EXPECT_EQ(ring.find(ring.at(4 * 70)), ring.place_of(4 * 70));
    EXPECT_EQ(ring.find(ring.at(4 * 62)), ring.place_of(4 * 62)) << "the last record of the block is newer";
}

TEST_F(Sa94Oddities, ANonsenseLastRecordHidesTheBlockAround) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 127);
    make_nonsense(ring, 4 * 63 + 3);
    EXPECT_EQ(ring.find(ring.at(4 * 63 + 1)), Nowhere) << "the block counts as older";
    EXPECT_EQ(ring.find(ring.at(4 * 64)), ring.place_of(4 * 64));
    EXPECT_EQ(ring.find(ring.at(4 * 62)), ring.place_of(4 * 62)) << "its first record is newer than this";
}

TEST_F(Sa94Oddities, AfterTheClockWasSetBackTheSearchMayGoTheWrongWay) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 80);
    for (std::size_t k = 4 * 40; k < 4 * 80; ++k) set_time(ring, k, ring.at(k - 4 * 30));
    EXPECT_EQ(ring.find(ring.at(4 * 49 + 3)), (Sa94Place{2, 79, 3})) << "the newest record, by its place";
    EXPECT_EQ(ring.find(ring.at(4 * 32)), (Sa94Place{2, 62, 0})) << "of two with one time the newer writing";
    EXPECT_EQ(ring.find(ring.at(4 * 5)), ring.place_of(4 * 5));
}

TEST_F(Sa94Oddities, OfTwoRecordsOfOneTimeTheFirstIsTaken) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(400);
    set_time(ring, 41, ring.at(42));
    EXPECT_EQ(ring.find(ring.at(42)), (Sa94Place{2, 10, 1})) << "in one block";
    set_time(ring, 43, ring.at(44));
    EXPECT_EQ(ring.find(ring.at(44)), (Sa94Place{2, 10, 3})) << "in two blocks";
    EXPECT_EQ(ring.find(ring.at(41)), Nowhere);
}

TEST_F(Sa94Oddities, TheLowSegmentIsTakenBeforeTheHighOneWhicheverIsOlder) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(1024 + 100);
    for (std::size_t k = 0; k < 4; ++k) {
        std::ranges::copy(ring.record(ring.at(1024 + 40 + k)), ring.block(3, 127).begin() + static_cast<long>(k) * 32);
    }
    EXPECT_EQ(ring.find(ring.at(1024 + 41)), (Sa94Place{2, 10, 1}));
}

// ---- the beginning

TEST_F(Sa94Oddities, AnArchiveWithoutAFirstRecordBeginsInTheOtherSegment) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(700);
    erase(ring, 0);
    EXPECT_EQ(ring.find(ring.at(300)), (Sa94Place{3, 0, 0})) << "older than the high segment, so it counts as lost";
    EXPECT_EQ(ring.blocks_read(), "2/0 3/0");
    EXPECT_EQ(ring.find(ring.at(600)), ring.place_of(600));
}

TEST_F(Sa94Oddities, ARingThatErasesNothingHidesItsOldTail) {
    Sa94Ring ring(Sa94Archive::Hourly, Small, Sa94Turning::Overwrite);
    ring.append(1024 + 4 * 40);  // blocks 40 to 127 of the low segment are older than the high one
    EXPECT_EQ(ring.find(ring.at(4 * 100)), (Sa94Place{3, 0, 0})) << "the older start, not the oldest record";
    EXPECT_EQ(ring.find(ring.at(700)), ring.place_of(700)) << "the high segment is in order";
    EXPECT_EQ(ring.find(ring.at(1024 + 4 * 20)), Nowhere) << "the halving begins in the old tail, and stays there";
}

TEST_F(Sa94Oddities, ARingThatErasesNothingMayLoseItsNewestRecord) {
    Sa94Ring ring(Sa94Archive::Hourly, Small, Sa94Turning::Overwrite);
    ring.append(1024 + 4 * 40);
    // Block 63 belongs to the old tail: its records are older, so all of them are sought behind it.
    EXPECT_EQ(ring.find(ring.at(1024 + 4 * 39 + 3)), Nowhere);
    ring.append(4 * 30);  // up to block 69
    EXPECT_EQ(ring.find(ring.at(1024 + 4 * 39 + 3)), (Sa94Place{2, 39, 3}));
}

TEST_F(Sa94Oddities, ASingleNullBlockGoingRoundIsMetByChance) {
    Sa94Ring ring(Sa94Archive::Hourly, Small, Sa94Turning::EraseBlockAhead);
    ring.append(1024 + 4 * 63);  // block 63 is null
    EXPECT_EQ(ring.find(ring.at(1024 + 4 * 62 + 3)), (Sa94Place{2, 62, 3})) << "the halving begins at the null block";
    ring.append(4 * 30);  // block 93 is null
    EXPECT_EQ(ring.find(ring.at(1024 + 4 * 92 + 3)), Nowhere) << "and at 95, of the old tail, here";
}

// ---- blocks 0 and 1 of the errors

TEST_F(Sa94Oddities, ServiceBytesOfBlock0AreNeverTakenForAnError) {
    Sa94Ring ring(Sa94Archive::Errors, Small);
    std::ranges::copy(ring.record(ring.at(3)), ring.block(6, 0).begin());
    EXPECT_EQ(ring.find(ring.at(3)), Nowhere);
    ring.append(40);
    std::ranges::copy(ring.record(ring.at(100)), ring.block(6, 0).begin());
    EXPECT_EQ(ring.find(ring.at(100)), Nowhere);
    EXPECT_EQ(ring.meter.requests(sim::Sa94Kind::Block, 6, 0), 0U);
}

TEST_F(Sa94Oddities, ServiceBytesOfBlock1CountOnlyInFrontOfAFreshSegment) {
    Sa94Ring ring(Sa94Archive::Errors, Small);
    std::ranges::copy(ring.record(ring.at(3)), ring.block(6, 1).begin() + 5 * 8);
    EXPECT_EQ(ring.find(ring.at(3)), (Sa94Place{6, 1, 5})) << "block 1 is where such a segment ends";
    ring.append(1);
    std::ranges::copy(ring.record(ring.at(9)), ring.block(6, 1).begin() + 5 * 8);
    EXPECT_EQ(ring.find(ring.at(9)), Nowhere);
}

// ---- answers

TEST_F(Sa94Oddities, AShortAnswerIsAGoodOneAndZeroBehindItsEnd) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 127);
    ring.meter.misbehave_each(1, sim::sa94_short(1).on(sim::Sa94Kind::Block, 2, 63));
    EXPECT_EQ(ring.find(ring.at(4 * 10)), Nowhere) << "1999-11-30 is older: the search goes on behind";
    EXPECT_EQ(ring.find(ring.at(4 * 90)), ring.place_of(4 * 90));
}

TEST_F(Sa94Oddities, NoiseInFrontOfABlockMovesItsRecords) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 127);
    ring.meter.misbehave_each(1, sim::sa94_noise({0x55}).on(sim::Sa94Kind::Block, 2, 22));
    EXPECT_EQ(ring.find(ring.at(4 * 22)), Nowhere) << "the date stands one byte further on";
}

TEST_F(Sa94Oddities, BytesBehindABlockDoNotCount) {
    Sa94Ring ring(Sa94Archive::Hourly, Small);
    ring.append(4 * 60);
    ring.meter.misbehave_each(1, sim::sa94_trailing(sim::ByteVector(200, 0x55)).on(sim::Sa94Kind::Block));
    EXPECT_EQ(ring.find(ring.at(100)), ring.place_of(100));
    EXPECT_EQ(ring.find(ring.at(239)), ring.place_of(239)) << "a null block with bytes behind it is null";
}

TEST_F(Sa94Oddities, WithTheShortFormALongMemoryLooksLikeItsFirst128Blocks) {
    Sa94Ring ring(Sa94Archive::Errors, Large);
    ring.append(16 * 60 + 7);
    const SA94Search search = ring.search_in({Small});  // as when the firmware text was garbled
    EXPECT_EQ(ring.find(search, ring.at(16 * 50 + 2)), ring.place_of(16 * 50 + 2));
}

}  // namespace
