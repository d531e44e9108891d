// The walk over the errors, which do not stand in the first two blocks of a segment; and what a walk passes over, and
// where it finds no end.

#include <algorithm>
#include <string>
#include <vector>

#include "support/sa94_archive_scene.h"

namespace {

using sim::Sa94Archive;
using sim::Sa94Kind;

constexpr std::size_t Tries = 24;
constexpr std::time_t Hour = 3600;
constexpr std::time_t Minute = 60;
constexpr std::time_t Newest = 1709370000;  // 2024-03-02 09:00 UTC

class Sa94ErrorWalk : public Sa94ArchiveStand {
  protected:
    /// So many errors, a minute apart, that end at 09:00.
    void fill(std::size_t errors) {
        meter.fill(Sa94Archive::Errors, {.records = errors, .newest = "2024-03-02 09:00", .step = Minute});
    }
    bool pass() {
        meter.forget_requests();
        return driver->getArchives(ERROR_DB);
    }
    /// The lines of the errors from the `first` up to, without, the `end`, in the order of the ring.
    std::string errors(std::size_t first, std::size_t end) const {
        std::string text;
        const auto records = meter.records(Sa94Archive::Errors);
        for (std::size_t k = first; k < end; ++k) {
            text += sa94_line(meter.record_files(Sa94Archive::Errors, records.at(k)).at(0));
        }
        return text;
    }

    sim::Sa94Meter meter{{.firmware = "M300"}};
};

TEST_F(Sa94ErrorWalk, TheFirstTwoBlocksAreToldAndNotRead) {
    fill(20);
    start_described(meter);
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(0, 20));
    EXPECT_EQ(driver->progress().LastTimestampError, Newest);
    EXPECT_EQ(item("_DriverStatus"), "5");
    // The start of the first reading is block 2 already; the next segment's first blocks are passed over.
    EXPECT_EQ(meter.requests(Sa94Kind::Block, 6, 0) + meter.requests(Sa94Kind::Block, 6, 1), 0U);
}

TEST_F(Sa94ErrorWalk, AtTheStartOfTheOtherSegmentTheyArePassedOver) {
    fill(16 * 126 + 20);
    start_described(meter);
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(0, 16 * 126 + 20));
    EXPECT_EQ(logged("general", "Segment = 7, block = 0"), 1);
    EXPECT_EQ(logged("general", "Segment = 7, block = 1"), 1);
    EXPECT_EQ(logged("debug", "Read ERROR_DB, segment = 7, block_index = 0"), 0);
    EXPECT_EQ(meter.requests(Sa94Kind::Block, 7, 0) + meter.requests(Sa94Kind::Block, 7, 1), 0U);
}

TEST_F(Sa94ErrorWalk, StartedAndStoppedErrorsHaveTheirQuality) {
    meter.start_error(5, "2024-03-02 08:10");
    meter.stop_error(5, "2024-03-02 08:20");
    start_described(meter);
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), "1709367000,192,5.000000\n1709367600,0,5.000000\n");
}

TEST_F(Sa94ErrorWalk, GoesOnBehindTheLastStoredError) {
    fill(20);
    start_behind(meter, "_A57", Newest - 9 * Minute);  // the eleventh, at position 10 of the first block
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57").substr(0, errors(11, 16).size()), errors(11, 16));
}

TEST_F(Sa94ErrorWalk, EachLaterBlockOfARunLosesAsManyRecordsAsTheFirst) {
    fill(16 * 3 + 14);
    start_behind(meter, "_A57", Newest - (16 * 3 + 14 - 1 - 10) * Minute);  // the eleventh again
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(11, 16) + errors(16 + 11, 32) + errors(32 + 11, 48) + errors(48 + 11, 62))
        << "what stands in front of position 11 is passed over";
    EXPECT_EQ(driver->progress().LastTimestampError, Newest);
}

TEST_F(Sa94ErrorWalk, BehindTheLastPlaceOfABlockNothingIsLost) {
    fill(16 * 3);
    start_behind(meter, "_A57", Newest - (16 * 2) * Minute);  // the sixteenth
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(16, 48));
}

TEST_F(Sa94ErrorWalk, BehindTheLastPlaceOfTheLowSegmentItGoesByBlock0OfTheOther) {
    fill(16 * 126);
    start_described(meter);
    ASSERT_TRUE(pass());
    meter.start_error(7, "2024-03-02 09:30");
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(0, 16 * 126 + 1));
    EXPECT_EQ(logged("general", "Segment = 7, block = 1"), 2);
    EXPECT_EQ(meter.requests(Sa94Kind::Block, 7, 0), 0U);
}

TEST_F(Sa94ErrorWalk, TwoErrorsOfOneSecondLoseTheSecondOneWhenTheRunsMeetBetweenThem) {
    meter.start_error(5, "2024-03-02 08:10");
    start_described(meter);
    ASSERT_TRUE(pass());
    meter.start_error(6, "2024-03-02 08:10");  // of the same second
    meter.start_error(7, "2024-03-02 08:20");
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), "1709367000,192,5.000000\n") << "not newer: the run ends in front of it, each time";
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), "1709367000,192,5.000000\n");
}

TEST_F(Sa94ErrorWalk, ErrorsOlderThanTheLastOneEndTheRun) {
    fill(3);
    start_behind(meter, "_A57", Newest - Minute);
    meter.start_error(9, "2024-03-02 08:00");  // the meter's clock was set back
    meter.start_error(10, "2024-03-02 09:30");
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(2, 3));
    EXPECT_EQ(driver->progress().LastTimestampError, Newest);
}

TEST_F(Sa94ErrorWalk, AnOutrageousDateDropsTheRestOfItsBlock) {
    for (int k = 0; k < 3; ++k) meter.start_error(1, "2024-03-02 08:0" + std::to_string(k));
    meter.start_error(8, "2022-02-16 08:00");  // 745 days ago
    for (int k = 10; k < 23; ++k) meter.start_error(2, "2024-03-02 08:" + std::to_string(k));
    start_described(meter);
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(0, 3) + errors(16, 17));
}

TEST_F(Sa94ErrorWalk, SilenceInTheMiddleWritesTwiceWhatWasReadBefore) {
    fill(40);
    start_described(meter);
    meter.misbehave_next(Tries, sim::sa94_silence().on(Sa94Kind::Block, 6, 4));
    EXPECT_FALSE(pass());
    EXPECT_EQ(driver->progress().LastTimestampError, 0);
    EXPECT_EQ(archive("_A57"), errors(0, 32));
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(0, 32) + errors(0, 40));
    EXPECT_TRUE(pass());
    EXPECT_EQ(archive("_A57"), errors(0, 32) + errors(0, 40));
}

TEST_F(Sa94ErrorWalk, TheLastErrorNotInTheMeterEndsTheRunWithoutADisconnect) {
    fill(40);
    start_behind(meter, "_A57", Newest - 90);
    EXPECT_FALSE(pass());
    EXPECT_EQ(meter.requests(Sa94Kind::Disconnect), 0U);
    EXPECT_EQ(archive("_A57"), "");
}

// ---- hourly and daily records

class Sa94OddWalk : public Sa94ArchiveStand {
  protected:
    explicit Sa94OddWalk(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC")
        : Sa94ArchiveStand(start, zone) {}
    void fill(std::size_t records) {
        meter.fill(Sa94Archive::Hourly, {.records = records, .newest = "2024-03-02 09:00"});
    }
    void put_year(std::size_t k, std::uint8_t year) {
        const auto records = meter.records(Sa94Archive::Hourly);
        meter.memory().bytes(Sa94Archive::Hourly, records.at(k))[3] = year;
    }
    sim::Sa94Meter meter{{.firmware = "M300"}};
};

TEST_F(Sa94OddWalk, AnOldDateDropsTheRestOfItsBlock) {
    fill(14);
    put_year(5, 0x20);  // the second record of the second block
    start_described(meter);
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    LineCounts expected;
    count(expected, meter, Sa94Archive::Hourly, 0, 5);
    count(expected, meter, Sa94Archive::Hourly, 8, 14);
    EXPECT_EQ(difference(lines(), expected), "");
}

TEST_F(Sa94OddWalk, AnOldDateInTheBlockOfTheResumeIsPassedOverInTheNextBlockToo) {
    fill(14);
    start_behind(meter, "A2", Newest - 12 * Hour);  // the second record
    put_year(2, 0x20);                              // and the third has no date
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    LineCounts expected;
    count(expected, meter, Sa94Archive::Hourly, 6, 14);  // the second block is read from its third place as well
    EXPECT_EQ(difference(lines(), expected), "");
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest);
}

TEST_F(Sa94OddWalk, AllRecordsOfARunAreComparedWithTheTimeAtItsBeginning) {
    // The clock of the meter was set back by two hours: two hours stand there twice.
    fill(5);
    meter.store_hourly({.at = Newest - 2 * Hour, .values = {{"IE", 9.0}, {"IM1", 7.0}}});
    meter.store_hourly({.at = Newest - 1 * Hour, .values = {{"IE", 9.5}, {"IM1", 8.0}}});
    start_described(meter);
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest) << "the newest of all";
    meter.store_hourly({.at = Newest + Hour});
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest)
        << "behind the newest stands an older one, so the run ends there";
}

TEST_F(Sa94OddWalk, ANullRecordEndsTheRunWhateverStandsBehindIt) {
    fill(14);
    meter.erase_record(Sa94Archive::Hourly, meter.records(Sa94Archive::Hourly).at(6));
    start_described(meter);
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    LineCounts expected;
    count(expected, meter, Sa94Archive::Hourly, 0, 6);
    EXPECT_EQ(difference(lines(), expected), "");
}

TEST_F(Sa94OddWalk, AShortAnswerIsABlockOfZerosAndPassedOver) {
    fill(14);
    start_described(meter);
    meter.misbehave_next(1, sim::sa94_single_byte().on(Sa94Kind::Block, 2, 1));
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    LineCounts expected;
    count(expected, meter, Sa94Archive::Hourly, 0, 4);
    count(expected, meter, Sa94Archive::Hourly, 8, 14);
    EXPECT_EQ(difference(lines(), expected), "") << "what a short answer hid is lost";
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest);
}

TEST_F(Sa94OddWalk, ARingWithoutANullBlockGivesTheFirstReadingNoEnd) {
    sim::Sa94Meter endless({.firmware = "M300", .turning = sim::Sa94Turning::Overwrite});
    endless.fill(Sa94Archive::Hourly, {.records = 1024, .newest = "2024-03-02 09:00"});
    start_described(endless);
    bool ended = false;
    machine.run_for(340.0, [&] {
        driver->getArchives(HOURLY_DB);
        ended = true;
    });
    EXPECT_FALSE(ended);
    EXPECT_GT(endless.requests(Sa94Kind::Block), 256U + 2U) << "round and round";
    EXPECT_EQ(endless.requests(Sa94Kind::Block, 2, 3), 2U);
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
    EXPECT_EQ(lines().at("A12").begin()->second, 2) << "the records of the first round are written again";
}

TEST_F(Sa94OddWalk, InARingWithoutANullBlockTheOldTailEndsALaterReading) {
    sim::Sa94Meter full({.firmware = "M300", .turning = sim::Sa94Turning::Overwrite});
    full.fill(Sa94Archive::Hourly, {.records = 1024 + 512, .newest = "2024-03-02 09:00"});
    start_behind(full, "A2", Newest - 3 * Hour);
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest);
    LineCounts expected;
    count(expected, full, Sa94Archive::Hourly, 1021, 1024);
    EXPECT_EQ(difference(lines(), expected), "");
}

class Sa94SummerWalk : public Sa94OddWalk {
  protected:
    Sa94SummerWalk() : Sa94OddWalk("2024-04-01 10:05:00", "CET-1CEST,M3.5.0,M10.5.0/3") {}
};

TEST_F(Sa94SummerWalk, NoHourIsMissingOrDoubleAtTheChangeToSummer) {
    meter.fill(Sa94Archive::Hourly, {.records = 60, .newest = "2024-04-01 08:00"});
    meter.fill(Sa94Archive::Daily, {.records = 3, .newest = "2024-03-31 00:00"});
    start_described(meter);
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    EXPECT_TRUE(driver->getArchives(DAILY_DB));
    LineCounts expected = all_lines(meter, Sa94Archive::Hourly);
    count(expected, meter, Sa94Archive::Daily, 0, 3);
    EXPECT_EQ(difference(lines(), expected), "");
    for (std::time_t time = driver->progress().LastTimestampHourly - 59 * Hour;
         time <= driver->progress().LastTimestampHourly; time += Hour) {
        EXPECT_NE(archive("A25").find(std::to_string(time) + ","), std::string::npos) << time;
    }
    meter.store_hourly({.at = "2024-04-01 09:00"});
    start_described(meter);
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    EXPECT_EQ(driver->progress().LastTimestampHourly, 1711958400) << "2024-04-01 08:00 UTC";
}

}  // namespace
