// The walk over a meter's archives: where it begins, which blocks it reads, where it ends, and what it leaves behind.

#include <algorithm>
#include <string>
#include <vector>

#include "support/sa94_archive_scene.h"

namespace {

using sim::Sa94Archive;
using sim::Sa94Kind;

constexpr std::size_t Tries = 24;
constexpr std::time_t Hour = 3600;
constexpr std::time_t Newest = 1709370000;  // 2024-03-02 09:00 UTC

class Sa94Walk : public Sa94ArchiveStand {
  protected:
    /// So many hours that end at 09:00 of this day.
    void fill_hours(std::size_t records) {
        meter.fill(Sa94Archive::Hourly, {.records = records, .newest = "2024-03-02 09:00"});
    }
    void store_hour(std::time_t time) {
        meter.store_hourly({.at = time, .values = {{"IE", 5.0}, {"IM1", static_cast<double>(time % 1000)}}});
    }
    bool pass(Sa94Archive archive = Sa94Archive::Hourly) {
        meter.forget_requests();
        machine.forget_exchanges();
        return driver->getArchives(static_cast<int>(archive));
    }
    /// The blocks that were read since the last pass began, as "2/0 2/1".
    std::string blocks_read() const {
        std::string text;
        for (const sim::Sa94Heard& heard : meter.heard()) {
            if (heard.request.kind != Sa94Kind::Block) continue;
            text += (text.empty() ? "" : " ") + std::to_string(heard.request.segment) + "/" +
                    std::to_string(heard.request.block);
        }
        return text;
    }
    /// The last ones of them.
    std::string last_blocks(int count) const {
        const std::string all = blocks_read();
        std::size_t at = all.size();
        for (; count > 0 && at != std::string::npos; --count) at = all.rfind(' ', at - 1);
        return at == std::string::npos ? all : all.substr(at + 1);
    }
    std::size_t disconnects() const { return meter.requests(Sa94Kind::Disconnect); }
    /// Lines that are in a file.
    std::size_t file_lines(const std::string& name) const {
        const std::string text = archive(name);
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }

    sim::Sa94Meter meter{{.firmware = "M300"}};  // four hours a block, segments of 128 blocks
};

// ---- the first reading

TEST_F(Sa94Walk, WithoutFilesTheArchiveIsReadFromItsOldestRecord) {
    fill_hours(10);
    start_described(meter);
    EXPECT_TRUE(pass());
    EXPECT_EQ(blocks_read(), "2/0 3/0 2/0 2/1 2/2") << "the third block has two null records";
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
    EXPECT_EQ(file_lines("A1"), 10U);
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest);
    EXPECT_EQ(disconnects(), 1U);
    EXPECT_EQ(item("_DriverStatus"), "3");
}

TEST_F(Sa94Walk, OnANullBlockItEnds) {
    fill_hours(8);
    start_described(meter);
    EXPECT_TRUE(pass());
    EXPECT_EQ(blocks_read(), "2/0 3/0 2/0 2/1 2/2");
    EXPECT_EQ(file_lines("A1"), 8U);
    EXPECT_EQ(disconnects(), 1U);
}

TEST_F(Sa94Walk, AnEmptyArchiveIsReadByTheStartOfItsHighSegment) {
    start_described(meter);
    for (const auto archive : {Sa94Archive::Hourly, Sa94Archive::Daily, Sa94Archive::Errors}) {
        EXPECT_TRUE(pass(archive));
        EXPECT_EQ(meter.requests(Sa94Kind::Block), 3U);
        EXPECT_EQ(disconnects(), 1U);
    }
    EXPECT_EQ(blocks_read(), "6/2 7/2 7/2");
    EXPECT_TRUE(lines().empty());
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
}

TEST_F(Sa94Walk, ARingThatHasTurnedIsReadFromTheOlderSegmentIntoTheYoungerOne) {
    fill_hours(512 * 3 + 6);
    start_described(meter);
    EXPECT_TRUE(pass());
    const auto records = meter.records(Sa94Archive::Hourly);
    ASSERT_EQ(records.size(), 518U);
    EXPECT_EQ(records.front().segment, 2U);
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
    EXPECT_EQ(last_blocks(3), "2/127 3/0 3/1");
}

TEST_F(Sa94Walk, DaysAreReadTheSameWay) {
    meter.fill(Sa94Archive::Daily, {.records = 9, .newest = "2024-03-01 00:00"});
    start_described(meter);
    EXPECT_TRUE(pass(Sa94Archive::Daily));
    EXPECT_EQ(blocks_read(), "4/0 5/0 4/0 4/1 4/2");
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Daily)), "");
    EXPECT_EQ(driver->progress().LastTimestampDaily, 1709251200);
    EXPECT_EQ(item("_DriverStatus"), "4");
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
}

TEST_F(Sa94Walk, ALongMemoryIsReadByItsOwnRequests) {
    sim::Sa94Meter large({.firmware = "M451-m"});
    large.fill(Sa94Archive::Hourly, {.records = 1024 + 3, .newest = "2024-03-02 09:00"});
    start_described(large);
    EXPECT_TRUE(driver->getArchives(HOURLY_DB));
    EXPECT_EQ(difference(lines(), all_lines(large, Sa94Archive::Hourly)), "");
    EXPECT_TRUE(std::all_of(large.heard().begin(), large.heard().end(), [](const auto& heard) {
        return heard.request.kind != Sa94Kind::Block || heard.request.extended_form;
    }));
}

TEST_F(Sa94Walk, FirmwareWithoutALayoutEndsAtItsFirstRecord) {
    for (const char* firmware : {"100", "101", "300", "M411"}) {
        sim::Sa94Meter odd({.firmware = firmware});
        odd.fill(Sa94Archive::Hourly, {.records = 9, .newest = "2024-03-02 09:00"});
        start_described(odd);
        EXPECT_TRUE(driver->getArchives(HOURLY_DB)) << firmware;
        EXPECT_EQ(odd.requests(Sa94Kind::Block), 3U) << firmware;
        EXPECT_EQ(odd.requests(Sa94Kind::Disconnect), 1U) << firmware;
        EXPECT_EQ(driver->progress().LastTimestampHourly, 0) << firmware;
    }
    EXPECT_TRUE(lines().empty());
}

// ---- going on

TEST_F(Sa94Walk, GoesOnBehindTheLastStoredRecord) {
    fill_hours(10);
    start_described(meter);
    ASSERT_TRUE(pass());
    store_hour(Newest + Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(last_blocks(2), "2/2 2/2") << "the block with the last record, found in it and read on in it";
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest + Hour);
}

TEST_F(Sa94Walk, WithNothingNewWritesNothing) {
    fill_hours(10);
    start_described(meter);
    ASSERT_TRUE(pass());
    const LineCounts before = lines();
    EXPECT_TRUE(pass());
    EXPECT_EQ(lines(), before);
    EXPECT_EQ(disconnects(), 1U);
    EXPECT_EQ(last_blocks(1), "2/2");
}

TEST_F(Sa94Walk, FromTheLastPlaceOfABlockItGoesToTheNextOne) {
    fill_hours(8);
    start_described(meter);
    ASSERT_TRUE(pass());
    EXPECT_TRUE(pass());
    EXPECT_EQ(last_blocks(2), "2/1 2/2") << "found in block 1, read on in block 2, which is null";
    store_hour(Newest + Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
}

TEST_F(Sa94Walk, FromTheLastPlaceOfASegmentItGoesToTheStartOfTheOther) {
    fill_hours(512);
    start_described(meter);
    ASSERT_TRUE(pass());
    store_hour(Newest + Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(last_blocks(2), "2/127 3/0");
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
}

TEST_F(Sa94Walk, FromTheEndOfTheHighSegmentItGoesToTheStartOfTheLowOne) {
    fill_hours(1024);
    leave_archive("A20", sa94_line(Newest, 192, 1.0));
    leave_archive("A1", sa94_line(Newest + Hour, 192, 1.0));
    store_hour(Newest + Hour);  // the low segment begins anew
    start_described(meter);
    ASSERT_EQ(driver->progress().LastTimestampHourly, Newest);
    EXPECT_TRUE(pass());
    EXPECT_EQ(last_blocks(2), "3/127 2/0");
    EXPECT_EQ(file_lines("A12"), 1U);
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest + Hour);
}

TEST_F(Sa94Walk, FromTheBlockInFrontOfTheLastItStaysInTheSegment) {
    fill_hours(508);
    start_described(meter);
    ASSERT_TRUE(pass());
    store_hour(Newest + Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(last_blocks(1), "2/127");
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
}

TEST_F(Sa94Walk, WhatWasOverwrittenIsLostAndTheOldestRecordWithIt) {
    fill_hours(30);
    leave_archive("A1", sa94_line(Newest - 100 * Hour, 192, 1.0));
    start_described(meter);
    EXPECT_TRUE(pass());
    LineCounts expected;
    count(expected, meter, Sa94Archive::Hourly, 1, 30);  // the walk steps over the record it resumes at
    ++expected["A1"][sa94_line(Newest - 100 * Hour, 192, 1.0)];
    EXPECT_EQ(difference(lines(), expected), "");
}

TEST_F(Sa94Walk, AHoleAtTheLastStoredRecordLeavesTheArchiveOutOfReach) {
    fill_hours(30);
    leave_archive("A1", sa94_line(Newest - 5 * Hour + 1800 + Hour, 192, 1.0));
    start_described(meter);
    const LineCounts before = lines();
    for (int run = 0; run < 2; ++run) {
        EXPECT_FALSE(pass());
        EXPECT_EQ(disconnects(), 0U);
        EXPECT_TRUE(meter.in_conversation());
        EXPECT_TRUE(blocks_read().ends_with(" 3/0")) << "the last block of the search";
        EXPECT_EQ(logged("messages", "Start read archives from SA94"), 0);
        store_hour(Newest + (run + 1) * Hour);
    }
    EXPECT_EQ(lines(), before);
    leave_archive("A1", "");  // the files decide
    start_described(meter);
    EXPECT_TRUE(pass());
    EXPECT_EQ(file_lines("A12"), 32U);
}

TEST_F(Sa94Walk, AFutureLastTimeLeavesItOutOfReachToo) {
    fill_hours(30);
    leave_archive("A2", sa94_line(Newest + 700 * Hour, 192, 1.0));
    start_described(meter);
    EXPECT_FALSE(pass());
    EXPECT_EQ(disconnects(), 0U);
}

TEST_F(Sa94Walk, ALastTimeOfZeroOrBelowIsNone) {
    fill_hours(3);
    start_behind(meter, "A16", 77);  // a total of the first hour of all, which began before it
    EXPECT_LT(driver->progress().LastTimestampHourly, 0);
    EXPECT_TRUE(pass());
    EXPECT_EQ(file_lines("A1"), 3U);
}

// ---- restarts

TEST_F(Sa94Walk, ARestartGoesOnFromTheFiles) {
    fill_hours(700);
    start_described(meter);
    ASSERT_TRUE(pass());
    for (int k = 1; k <= 6; ++k) {
        store_hour(Newest + k * Hour);
        start_described(meter);
        EXPECT_EQ(driver->progress().LastTimestampHourly, Newest + (k - 1) * Hour);
        EXPECT_TRUE(pass());
    }
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest + 6 * Hour);
}

TEST_F(Sa94Walk, AMeterInTheOthersPlaceIsReadOnWhereThatOneEnded) {
    fill_hours(20);
    start_described(meter);
    ASSERT_TRUE(pass());
    meter.swap_for({.address = 1, .firmware = "M301"});
    meter.fill(Sa94Archive::Hourly, {.records = 100, .newest = "2024-03-02 10:00"});
    start_described(meter);
    EXPECT_TRUE(pass());
    EXPECT_EQ(file_lines("A1"), 21U) << "its own record of 09:00 stands for that of the other";
}

// ---- silence

TEST_F(Sa94Walk, SilenceInTheMiddleEndsTheRunAndWhatItWroteIsWrittenAgain) {
    fill_hours(10);
    start_described(meter);
    meter.misbehave_next(Tries, sim::sa94_silence().on(Sa94Kind::Block, 2, 1));
    EXPECT_FALSE(pass());
    EXPECT_EQ(meter.scripted_faults_left(), 0U);
    EXPECT_EQ(disconnects(), 0U);
    EXPECT_TRUE(meter.in_conversation());
    EXPECT_EQ(file_lines("A1"), 4U) << "one block";
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
    EXPECT_EQ(logged("debug", "ReadArchiveRecord false"), 1);
    EXPECT_EQ(item("Connected"), "0");

    EXPECT_TRUE(pass());
    LineCounts expected;
    count(expected, meter, Sa94Archive::Hourly, 0, 4, 2);
    count(expected, meter, Sa94Archive::Hourly, 4, 10);
    EXPECT_EQ(difference(lines(), expected), "");
    EXPECT_EQ(item("Connected"), "1");
}

TEST_F(Sa94Walk, ARestartBehindSuchASilenceWritesNothingTwice) {
    fill_hours(10);
    start_described(meter);
    meter.misbehave_next(Tries, sim::sa94_silence().on(Sa94Kind::Block, 2, 1));
    EXPECT_FALSE(pass());
    start_described(meter);
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest - 6 * Hour) << "the files tell of the whole block";
    EXPECT_TRUE(pass());
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
}

TEST_F(Sa94Walk, SilenceAtTheConnectOrInTheSearchEndsTheRun) {
    fill_hours(10);
    start_described(meter);
    scene.remove("/tmp/m1/1/tc_items/_DriverStatus");
    meter.misbehave_next(Tries, sim::sa94_silence().on(Sa94Kind::Connect));
    EXPECT_FALSE(pass());
    EXPECT_EQ(item("_DriverStatus"), "(none)");
    EXPECT_EQ(meter.requests(Sa94Kind::Block), 0U);
    meter.misbehave_next(Tries, sim::sa94_silence().on(Sa94Kind::Block, 3, 0));
    EXPECT_FALSE(pass());
    EXPECT_EQ(item("_DriverStatus"), "3");
    start_behind(meter, "A2", Newest - 3 * Hour);
    meter.misbehave_next(Tries, sim::sa94_silence().on(Sa94Kind::Block, 2, 64));
    EXPECT_FALSE(pass());
    EXPECT_EQ(disconnects(), 0U);
    EXPECT_TRUE(lines().empty());
    EXPECT_EQ(driver->progress().LastTimestampHourly, Newest - 3 * Hour);
}

TEST_F(Sa94Walk, AnAnswerOnTheLastTryCostsNothing) {
    fill_hours(10);
    start_described(meter);
    meter.misbehave_next(Tries - 1, sim::sa94_silence().on(Sa94Kind::Block, 2, 1));
    EXPECT_TRUE(pass());
    EXPECT_EQ(difference(lines(), all_lines(meter, Sa94Archive::Hourly)), "");
}

// ---- the logs

TEST_F(Sa94Walk, TellsItsWay) {
    fill_hours(5);
    start_described(meter);
    ASSERT_TRUE(pass());
    const std::vector<std::string> outline = log("messages");
    const std::vector<std::string> expected = {"Start getArchives",
                                               "Archives type : ",
                                               "HOURLY_DB",
                                               "*last_timestamp = 0",
                                               "Start Get First record info for Hourly archives",
                                               "Start read archives from SA94"};
    ASSERT_GE(outline.size(), expected.size());
    EXPECT_EQ(std::vector(outline.end() - static_cast<long>(expected.size()), outline.end()), expected);
    EXPECT_EQ(logged("debug", "*last_timestamp = 0"), 1);
    EXPECT_EQ(logged("debug", "Read HOURLY_DB, segment = 2, block_index = 1"), 1);
    EXPECT_EQ(logged("general", "Segment = 2, block = 1"), 1);
    EXPECT_EQ(logged("general", "Segment = 2, block = 2"), 0);
    ASSERT_TRUE(pass(Sa94Archive::Errors));
    EXPECT_EQ(logged("messages", "ERROR_DB"), 1);
    EXPECT_EQ(logged("general", "Segment = 7, block = 2"), 1);
    EXPECT_EQ(logged("debug", "Read ERROR_DB, segment = 7, block_index = 2"), 1);
}

}  // namespace
