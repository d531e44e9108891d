// One run over one archive: where it begins, how it walks the blocks, and how it ends.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

constexpr int Hourly = 0;
constexpr int Daily = 1;
constexpr int Errors = 4;
constexpr std::time_t Nine = 1709370000;  // 2024-03-02 09:00 UTC
constexpr std::time_t Hour = 3600;
constexpr int BlocksOfASegment = 128;

/// A meter of firmware 10: 128 blocks in a segment, four records in a block.
class Sa94Archives : public Sa94Bench {
  protected:
    Sa94Archives() {
        identify(10);
        for (const char* kind : {"messages", "debug", "general"}) clear_log(kind);
    }

    static Sa94Bytes hourly(std::time_t time) {
        std::tm tm{};
        gmtime_r(&time, &tm);
        return Sa94Bytes(32).date(tm.tm_mday, tm.tm_mon + 1, tm.tm_year - 100).hour(tm.tm_hour);
    }
    static Sa94Bytes event(std::time_t time, int code) {
        std::tm tm{};
        gmtime_r(&time, &tm);
        return Sa94Bytes(8)
            .put(0, {static_cast<std::uint8_t>(code)})
            .date(tm.tm_mday, tm.tm_mon + 1, tm.tm_year - 100)
            .clock(tm.tm_hour, tm.tm_min, tm.tm_sec);
    }
    /// A block of hourly records, one an hour from `first` on.
    void put_hours(unsigned segment, unsigned block, std::time_t first, int count = 4) {
        Sa94Bytes bytes = sa94_bytes::erased_block();
        for (int i = 0; i < count; ++i) bytes.record(static_cast<std::size_t>(i), hourly(first + i * Hour));
        meter.put_block(segment, block, bytes.bytes());
    }
    /// A whole segment of them; the last one has the time `last`.
    void fill_hours(unsigned segment, std::time_t last, unsigned blocks = BlocksOfASegment) {
        for (unsigned block = 0; block < blocks; ++block) {
            put_hours(segment, block, last - (static_cast<std::time_t>(blocks - block) * 4 - 1) * Hour);
        }
    }
    /// The times in the file of the hours' operating time, which every hourly record of this firmware has.
    std::vector<std::time_t> filed() const {
        std::vector<std::time_t> times;
        const std::string text = archive("A3");
        for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
            times.push_back(std::stol(text.substr(at)));
        }
        return times;
    }
    static std::vector<std::time_t> hours(std::time_t first, int count) {
        std::vector<std::time_t> times;
        for (int i = 0; i < count; ++i) times.push_back(first + i * Hour);
        return times;
    }
    /// The requests behind the words "Start read archives from SA94".
    Texts walked(int type) {
        std::size_t begin = 0;
        bool begun = false;
        meter.listener = [&](const std::string&) {
            if (!begun && logged("messages", "Start read archives from SA94") > 0) {
                begun = true;
                begin = sent().size() - 1;
            }
        };
        good = driver->getArchives(type);
        meter.listener = nullptr;
        return begun ? Texts(sent().begin() + static_cast<std::ptrdiff_t>(begin), sent().end()) : Texts{};
    }

    bool good = false;
};

// ---- a first run

TEST_F(Sa94Archives, AFirstRunBeginsAtTheOldestRecord) {
    fill_hours(2, Nine, 2);
    EXPECT_EQ(walked(Hourly), (Texts{"A2 00", "A2 01", "A2 02", Disconnect}));
    EXPECT_TRUE(good);
    EXPECT_EQ(filed(), hours(Nine - 7 * Hour, 8));
    EXPECT_EQ(driver->LastTimestampHourly, Nine);
    EXPECT_EQ(sent().front(), Connect);
}

TEST_F(Sa94Archives, AFirstRunBeginsInTheHighSegmentWhenThatIsOlder) {
    fill_hours(3, Nine - 4 * Hour);
    put_hours(2, 0, Nine - 3 * Hour, 4);
    const Texts requests = walked(Hourly);
    EXPECT_EQ(requests.size(), 128U + 2 + 1);
    EXPECT_EQ(requests.front(), "A3 00");
    EXPECT_EQ(requests[127], "A3 7F");
    EXPECT_EQ(Texts(requests.end() - 3, requests.end()), (Texts{"A2 00", "A2 01", Disconnect}));
    EXPECT_EQ(filed().size(), 128U * 4 + 4);
    EXPECT_EQ(driver->LastTimestampHourly, Nine);
}

TEST_F(Sa94Archives, AnEmptyArchiveEndsAtItsFirstBlock) {
    EXPECT_EQ(walked(Hourly), (Texts{"A3 00", Disconnect}));
    EXPECT_TRUE(good);
    EXPECT_TRUE(archive_names().empty());
    EXPECT_EQ(driver->LastTimestampHourly, 0);
    EXPECT_EQ(logged("debug", "Start block parsing"), 0) << "an erased block is not cut into records";
}

TEST_F(Sa94Archives, LongSegmentsAreReadInTheLongForm) {
    identify(11);
    meter.put_block(4, 0, Sa94Bytes(128, 0xFF).record(0, Sa94Bytes(64).date(1, 3, 24)).bytes());
    EXPECT_EQ(walked(Daily), (Texts{"B7 60 00", Disconnect}));
    EXPECT_EQ(driver->LastTimestampDaily, 1709251200);
    EXPECT_EQ(driver->LastTimestampHourly, 0);
}

// ---- going on

TEST_F(Sa94Archives, ARunGoesOnBehindTheRecordThatWasStoredLast) {
    fill_hours(2, Nine, 2);
    driver->LastTimestampHourly = Nine - 6 * Hour;  // position 1 of block 0
    EXPECT_EQ(walked(Hourly), (Texts{"A2 00", "A2 01", "A2 02", Disconnect}));
    EXPECT_EQ(filed(), hours(Nine - 5 * Hour, 6));
}

TEST_F(Sa94Archives, BehindTheLastRecordOfABlockComesTheNextBlock) {
    fill_hours(2, Nine);
    driver->LastTimestampHourly = Nine - 4 * Hour;  // position 3 of block 126
    put_hours(3, 0, Nine - 1000 * Hour);            // older than the rest, so the ring begins here
    const Texts requests = walked(Hourly);
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests.front(), "A2 7F");
    EXPECT_EQ(requests[1], "A3 00");
    EXPECT_EQ(filed(), hours(Nine - 3 * Hour, 4)) << "the old end of the ring stops the run";
    EXPECT_EQ(requests, (Texts{"A2 7F", "A3 00", Disconnect}));
}

TEST_F(Sa94Archives, BehindTheLastRecordOfASegmentComesTheOtherSegment) {
    fill_hours(2, Nine - 2 * Hour);
    put_hours(3, 0, Nine - Hour, 2);
    driver->LastTimestampHourly = Nine - 2 * Hour;
    EXPECT_EQ(walked(Hourly), (Texts{"A3 00", Disconnect}));
    EXPECT_EQ(filed(), hours(Nine - Hour, 2));
    EXPECT_EQ(driver->LastTimestampHourly, Nine);
}

TEST_F(Sa94Archives, BehindTheLastRecordOfTheHighSegmentComesTheLowOne) {
    fill_hours(3, Nine - 2 * Hour);
    put_hours(2, 0, Nine - Hour, 2);
    driver->LastTimestampHourly = Nine - 2 * Hour;
    EXPECT_EQ(walked(Hourly), (Texts{"A2 00", Disconnect}));
    EXPECT_EQ(filed(), hours(Nine - Hour, 2));
}

TEST_F(Sa94Archives, ATimeBeforeTheWholeArchivePassesOverItsOldestRecord) {
    fill_hours(2, Nine, 1);
    driver->LastTimestampHourly = Nine - 100 * Hour;
    EXPECT_EQ(walked(Hourly), (Texts{"A2 00", "A2 01", Disconnect}));
    EXPECT_EQ(filed(), hours(Nine - 2 * Hour, 3)) << "not that of 06:00";
}

TEST_F(Sa94Archives, NothingNewIsReadUpToTheFirstErasedRecord) {
    put_hours(2, 0, Nine - Hour, 2);
    driver->LastTimestampHourly = Nine;
    EXPECT_EQ(walked(Hourly), (Texts{"A2 00", Disconnect}));
    EXPECT_TRUE(good);
    EXPECT_TRUE(archive_names().empty());
    EXPECT_EQ(driver->LastTimestampHourly, Nine);
}

TEST_F(Sa94Archives, AHundredYearOldDateDropsItsBlockAndTheRunGoesOn) {
    fill_hours(2, Nine, 3);
    Sa94Bytes block = sa94_bytes::erased_block();
    block.record(0, hourly(Nine - 7 * Hour)).record(1, Sa94Bytes(32).date(2, 3, 99)).record(2, hourly(Nine - 5 * Hour));
    meter.put_block(2, 1, block.bytes());
    EXPECT_EQ(walked(Hourly), (Texts{"A2 00", "A2 01", "A2 02", "A2 03", Disconnect}));
    std::vector<std::time_t> wanted = hours(Nine - 11 * Hour, 5);
    for (const std::time_t time : hours(Nine - 3 * Hour, 4)) wanted.push_back(time);
    EXPECT_EQ(filed(), wanted);
}

// ---- runs that fail

TEST_F(Sa94Archives, ALastRecordThatIsNotInTheMeterEndsTheRunUnread) {
    fill_hours(2, Nine, 2);
    driver->LastTimestampHourly = Nine - 5 * Hour + 60;
    EXPECT_TRUE(walked(Hourly).empty());
    EXPECT_FALSE(good);
    EXPECT_EQ(sent_times(Disconnect), 0);
    EXPECT_EQ(driver->LastTimestampHourly, Nine - 5 * Hour + 60);
    EXPECT_TRUE(archive_names().empty());
    EXPECT_FALSE(driver->getArchives(Hourly)) << "every hour the same way";
}

TEST_F(Sa94Archives, AnErasedMeterIsOutOfReachForADriverThatHasReadIt) {
    driver->LastTimestampHourly = Nine;
    EXPECT_FALSE(driver->getArchives(Hourly));
    EXPECT_EQ(sent_times(Disconnect), 0);
}

TEST_F(Sa94Archives, AMeterThatDoesNotConnectIsNotRead) {
    machine.disconnect_all(Port);
    EXPECT_FALSE(driver->getArchives(Hourly));
    EXPECT_EQ(machine.exchanges().size(), 24U);
    EXPECT_EQ(log("messages"), Texts{"Start getArchives"});
    EXPECT_EQ(item("_DriverStatus"), "(none)");
}

TEST_F(Sa94Archives, ABlockThatDoesNotComeEndsTheRunWithoutADisconnect) {
    fill_hours(2, Nine, 2);
    meter.be_deaf_to("A2 01");
    walked(Hourly);
    EXPECT_FALSE(good);
    EXPECT_EQ(sent_times("A2 01"), 24);
    EXPECT_EQ(sent_times(Disconnect), 0);
    EXPECT_EQ(logged("debug", "ReadArchiveRecord false"), 1);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(filed(), hours(Nine - 7 * Hour, 4)) << "what was read is filed";
    EXPECT_EQ(driver->LastTimestampHourly, 0) << "and not remembered";
}

TEST_F(Sa94Archives, TheNextRunFilesASecondTimeWhatABrokenOneHasFiled) {
    fill_hours(2, Nine, 2);
    meter.listener = [this](const std::string& request) {
        if (request == "A2 01" && sent_times("A2 01") == 1) meter.keep_silent(24);
    };
    EXPECT_FALSE(driver->getArchives(Hourly));
    EXPECT_TRUE(driver->getArchives(Hourly));
    std::vector<std::time_t> wanted = hours(Nine - 7 * Hour, 4);
    for (const std::time_t time : hours(Nine - 7 * Hour, 8)) wanted.push_back(time);
    EXPECT_EQ(filed(), wanted);
    EXPECT_EQ(driver->LastTimestampHourly, Nine);
}

TEST_F(Sa94Archives, AStartOfASegmentThatCannotBeReadEndsTheRun) {
    for (const char* block : {"A2 00", "A3 00"}) {
        meter.be_deaf_to(block);
        EXPECT_FALSE(driver->getArchives(Hourly));
    }
    EXPECT_EQ(sent_times(Disconnect), 0);
}

TEST_F(Sa94Archives, ASearchThatCannotReadEndsTheRun) {
    fill_hours(2, Nine, 2);
    driver->LastTimestampHourly = Nine - Hour;
    meter.be_deaf_to("A2 40");  // the first block of the search for the end
    EXPECT_FALSE(driver->getArchives(Hourly));
    EXPECT_EQ(sent_times(Disconnect), 0);
    EXPECT_EQ(driver->LastTimestampHourly, Nine - Hour);
}

TEST_F(Sa94Archives, ABlockOfOneByteIsNoErasedBlock) {
    fill_hours(2, Nine, 1);
    meter.put_block(2, 1, {0xFF});
    driver->LastTimestampHourly = 0;
    EXPECT_EQ(walked(Hourly), (Texts{"A2 00", "A2 01", "A2 02", Disconnect}))
        << "its record has no date, which drops the block";
    EXPECT_EQ(filed(), hours(Nine - 3 * Hour, 4));
}

// ---- errors

TEST_F(Sa94Archives, EventsBeginAtTheThirdBlock) {
    Sa94Bytes block = sa94_bytes::erased_block();
    block.record(0, event(Nine, 5)).record(1, event(Nine + 60, 0x85));
    meter.put_block(6, 2, block.bytes());
    EXPECT_EQ(walked(Errors), (Texts{"A6 02", Disconnect}));
    EXPECT_EQ(archive("_A57"), "1709370000,192,5.000000\n1709370060,0,5.000000\n");
    EXPECT_EQ(driver->LastTimestampError, Nine + 60);
    EXPECT_EQ(driver->LastTimestampHourly, 0);
}

TEST_F(Sa94Archives, TheFirstTwoBlocksOfASegmentArePassedOverWithoutARead) {
    std::time_t time = Nine - 2016 * 60;
    for (unsigned number = 2; number < BlocksOfASegment; ++number) {
        Sa94Bytes block = sa94_bytes::erased_block();
        for (std::size_t i = 0; i < 16; ++i) block.record(i, event(time += 60, 1));
        meter.put_block(6, number, block.bytes());
    }
    meter.put_block(7, 2, sa94_bytes::erased_block().record(0, event(time + 60, 2)).bytes());
    const Texts requests = walked(Errors);
    EXPECT_EQ(requests.size(), 126U + 1 + 1);
    EXPECT_EQ(Texts(requests.end() - 3, requests.end()), (Texts{"A6 7F", "A7 02", Disconnect}));
    EXPECT_TRUE(logged_in_order("general", {"Segment = 6, block = 127", "Segment = 7, block = 0",
                                            "Segment = 7, block = 1", "Segment = 7, block = 2"}));
    EXPECT_EQ(logged("debug", "Read ERROR_DB, segment = 7, block_index = 1"), 0);
    EXPECT_EQ(logged("debug", "Read ERROR_DB, segment = 7, block_index = 2"), 1);
    EXPECT_EQ(driver->LastTimestampError, time + 60);
}

TEST_F(Sa94Archives, LaterBlocksOfEventsAreReadFromThePositionOfTheFirstOne) {
    for (unsigned number = 2; number < 5; ++number) {
        Sa94Bytes block = sa94_bytes::erased_block();
        for (unsigned i = 0; i < 16; ++i) {
            block.record(i, event(Nine + 60 * static_cast<std::time_t>((number - 2) * 16 + i), static_cast<int>(i)));
        }
        meter.put_block(6, number, block.bytes());
    }
    driver->LastTimestampError = Nine + 60 * 13;  // position 13 of the first block
    EXPECT_EQ(walked(Errors), (Texts{"A6 02", "A6 03", "A6 04", "A6 05", Disconnect}));
    std::string wanted;
    for (const int minute : {14, 15, 30, 31, 46, 47}) {
        wanted += std::to_string(Nine + 60 * minute) + ",192," + std::to_string(minute % 16) + ".000000\n";
    }
    EXPECT_EQ(archive("_A57"), wanted) << "the first fourteen events of every later block are lost";
}

// ---- what is told

TEST_F(Sa94Archives, ARunIsToldInThreeLogs) {
    put_hours(2, 0, Nine, 1);
    driver->getArchives(Hourly);
    EXPECT_EQ(log("messages"),
              (Texts{"Start getArchives", "Archives type : ", "HOURLY_DB", "*last_timestamp = 0",
                     "Start Get First record info for Hourly archives", "Start read archives from SA94"}));
    EXPECT_TRUE(logged_in_order("debug", {"*last_timestamp = 0", "Read HOURLY_DB, segment = 2, block_index = 0",
                                          "Start block parsing", "Last timestamp HOURLY_DB: 0"}));
    EXPECT_EQ(log("general"), Texts{"Segment = 2, block = 0"});
}

TEST_F(Sa94Archives, EachArchiveHasItsWordAndItsStage) {
    struct Archive {
        int type;
        const char* word;
        const char* stage;
    };
    constexpr Archive archives[] = {{Hourly, "HOURLY_DB", "3"}, {Daily, "DAILY_DB", "4"}, {Errors, "ERROR_DB", "5"}};
    for (const Archive& each : archives) {
        EXPECT_TRUE(driver->getArchives(each.type));
        EXPECT_TRUE(logged_in_order("messages", {"Archives type : ", each.word}));
        EXPECT_EQ(item("_DriverStatus"), each.stage);
        EXPECT_EQ(logged_start("debug", "Read " + std::string(each.word) + ", segment = "), 1);
    }
}

TEST_F(Sa94Archives, TheLastTimeIsToldBeforeItIsSearched) {
    driver->LastTimestampDaily = 1709251200;
    driver->getArchives(Daily);
    for (const char* kind : {"messages", "debug"}) EXPECT_EQ(logged(kind, "*last_timestamp = 1709251200"), 1);
    EXPECT_TRUE(logged_in_order("messages",
                                {"*last_timestamp = 1709251200", "Start get record by timestamp for Daily archives"}));
}

}  // namespace
