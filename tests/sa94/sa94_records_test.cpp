// A block of hourly or daily records into archive lines: which records are new, which are good, where the data end.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

constexpr std::time_t Midnight = 1709337600;  // 2024-03-02 00:00 UTC
constexpr std::time_t Hour = 3600;
constexpr std::time_t Day = 86400;
constexpr int Hourly = 0;
constexpr int Daily = 1;

/// Firmware 10 unless a test says otherwise: records of 32 bytes, four in a block.
class Sa94Records : public Sa94Stand {
  protected:
    explicit Sa94Records(const std::string& start = "2024-03-02 10:05:00") : Sa94Stand(start) {
        identify(10);
        clear_logs();
    }

    /// As if the archives were stored up to here.
    void behind(std::time_t hourly, std::time_t daily = 0) {
        resume(hourly, daily);
        identify(10);
    }
    static Sa94Bytes hourly(int day, int month, int year, int hour) {
        return Sa94Bytes(32).date(day, month, year).hour(hour);
    }
    static Sa94Bytes daily(int day, int month, int year) { return Sa94Bytes(32).date(day, month, year); }

    bool parse(int type, const std::vector<Sa94Bytes>& records) {
        return driver->parseBlock(type, sa94_bytes::reply_of(records), position, newest);
    }
    static std::string at(std::time_t time, const std::string& value) {
        return std::to_string(time) + ",192," + value + "\n";
    }

    int position = 0;
    std::time_t newest = 0;
};

// ---- a record by hand

TEST_F(Sa94Records, AnHourlyRecordByHand) {
    const Sa94Bytes record = Sa94Bytes(32).put(0, {0x00, 0x02, 0x03, 0x24,    // 2 March 2024
                                                   0x16, 0x09,                // status, hour 9
                                                   0x0E, 0x10,                // 3600 / 3600
                                                   0x84, 0x48, 0x00, 0x00,    // 12.5
                                                   0x87, 0x0E, 0x80, 0x00,    // 71.25
                                                   0x1B, 0xD5,                // 7125 * 0.01
                                                   0x11, 0xC6,                // 4550 * 0.01
                                                   0x03, 0xE8,                // 1000 * 0.01
                                                   0x07, 0x08,                // 1800 / 1800
                                                   0x03, 0x84,                // 900 / 1800
                                                   0x00, 0x00,                // 0
                                                   0x8B, 0x1A, 0x50, 0x00});  // 1234.5
    EXPECT_FALSE(parse(Hourly, {record}));
    EXPECT_EQ(archive("A3"), "1709370000,192,1.000000\n");
    EXPECT_EQ(archive("A12"), "1709373600,192,12.500000\n") << "a total: by the end of its hour";
    EXPECT_EQ(archive("A14"), "1709373600,192,71.250000\n");
    EXPECT_EQ(archive("_A20"), "1709370000,192,71.250000\n");
    EXPECT_EQ(archive("_A21"), "1709370000,192,45.500000\n");
    EXPECT_EQ(archive("A22"), "1709370000,192,10.000000\n");
    EXPECT_EQ(archive("A26"), "1709370000,192,1.000000\n");
    EXPECT_EQ(archive("A25"), "1709370000,192,0.500000\n");
    EXPECT_EQ(archive("A24"), "1709370000,192,0.000000\n");
    EXPECT_EQ(archive("A1"), "1709373600,192,1234.500000\n");
    EXPECT_EQ(archive_names(),
              (Texts{"A1", "A12", "A14", "A22", "A24", "A25", "A26", "A3", "_A20", "_A21", "_hPrevE"}));
    EXPECT_EQ(newest, 1709370000) << "the record's own time";
}

TEST_F(Sa94Records, ADailyRecordByHand) {
    const Sa94Bytes record = Sa94Bytes(32).put(0, {0x00, 0x01, 0x03, 0x24, 0x84, 0x48, 0x00, 0x00}).word(16, 7125);
    EXPECT_FALSE(parse(Daily, {record}));
    EXPECT_EQ(archive("A32"), "1709337600,192,12.500000\n") << "a total: by the end of its day";
    EXPECT_EQ(archive("_A48"), "1709251200,192,71.250000\n");
    EXPECT_EQ(newest, Midnight - Day);
}

TEST_F(Sa94Records, TheTestForATotalGoesByTheNewName) {
    identify(15, 0x44);
    const Sa94Bytes record = Sa94Bytes(64).date(2, 3, 24).hour(8).real(8, 2.5F).real(12, 3.5F);
    parse(Hourly, {record});
    EXPECT_EQ(archive("A6"), at(Midnight + 9 * Hour, "2.500000"));
    EXPECT_EQ(archive("A8"), at(Midnight + 9 * Hour, "3.500000"));
    EXPECT_EQ(archive("A12"), "");
}

// ---- where the data end

TEST_F(Sa94Records, ThePositionStaysWhenTheRunEnds) {
    position = 1;
    EXPECT_FALSE(parse(Hourly, {hourly(2, 3, 24, 7), hourly(2, 3, 24, 8)}));
    EXPECT_EQ(position, 1);
}

TEST_F(Sa94Records, AWholeBlockOfNewRecordsPutsThePositionBackToTheStart) {
    position = 1;
    EXPECT_TRUE(parse(Hourly, {hourly(2, 3, 24, 5).word(16, 100), hourly(2, 3, 24, 6).word(16, 200),
                               hourly(2, 3, 24, 7).word(16, 300), hourly(2, 3, 24, 8).word(16, 400)}));
    EXPECT_EQ(position, 0);
    EXPECT_EQ(archive("_A20"), at(Midnight + 6 * Hour, "2.000000") + at(Midnight + 7 * Hour, "3.000000") +
                                   at(Midnight + 8 * Hour, "4.000000"))
        << "from the position on";
}

TEST_F(Sa94Records, ARecordThatIsNotNewerThanWhatIsStoredEndsTheRun) {
    behind(Midnight + 8 * Hour);
    EXPECT_FALSE(parse(Hourly, {hourly(2, 3, 24, 8), hourly(2, 3, 24, 9)}));
    EXPECT_TRUE(archive_names().empty());
    EXPECT_EQ(newest, 0);
    behind(Midnight + 8 * Hour - 1);
    EXPECT_FALSE(parse(Hourly, {hourly(2, 3, 24, 8), hourly(2, 3, 24, 7)}));
    EXPECT_EQ(archive("A3"), at(Midnight + 8 * Hour, "0.000000"));
    EXPECT_EQ(newest, Midnight + 8 * Hour);
}

TEST_F(Sa94Records, DailyRecordsAreComparedWithTheDailyTime) {
    behind(Midnight, Midnight - 2 * Day);
    EXPECT_FALSE(parse(Daily, {daily(1, 3, 24), daily(29, 2, 24)}));
    EXPECT_EQ(archive("_A48"), at(Midnight - Day, "0.000000"));
}

TEST_F(Sa94Records, TheNewestTimeIsNeverLowered) {
    newest = Midnight + 20 * Hour;
    parse(Hourly, {hourly(2, 3, 24, 8)});
    EXPECT_EQ(newest, Midnight + 20 * Hour);
}

TEST_F(Sa94Records, OnlyARecordOfNothingBut0xffIsErased) {
    EXPECT_TRUE(parse(Hourly, {Sa94Bytes(32, 0xFF).put(0, {0xFE})})) << "a date that is none, not the end";
    EXPECT_TRUE(parse(Hourly, {Sa94Bytes(32, 0xFF).put(31, {0xFE})}));
    EXPECT_EQ(logged("debug", "Is null record"), 0);
    identify(11);
    EXPECT_TRUE(parse(Hourly, {Sa94Bytes(64, 0xFF).put(63, {0xFE})}));
    EXPECT_EQ(logged("debug", "Is null record"), 0);
}

// ---- impossible dates

TEST_F(Sa94Records, ADateThatNoCalendarHoldsIsImpossible) {
    Sa94Bytes record = hourly(2, 3, 24, 8);
    record.put(1, {0xFF, 0xFF, 0xFE});
    EXPECT_TRUE(parse(Hourly, {record, hourly(2, 3, 24, 9)}));
    EXPECT_TRUE(archive_names().empty());
}

TEST_F(Sa94Records, AnHourlyDateMayBeAnHourAheadAtMidnight) {
    // The date alone is judged: tomorrow's midnight is more than an hour ahead until 23:00.
    EXPECT_TRUE(parse(Hourly, {hourly(3, 3, 24, 0)}));
    EXPECT_TRUE(archive_names().empty());
    machine.sleep(static_cast<unsigned>(Midnight + 23 * Hour - 1 - machine.now()));
    EXPECT_TRUE(parse(Hourly, {hourly(3, 3, 24, 0)}));
    EXPECT_TRUE(archive_names().empty());
    machine.sleep(1);
    EXPECT_FALSE(parse(Hourly, {hourly(3, 3, 24, 0)}));
    EXPECT_EQ(archive("A3"), at(Midnight + Day, "0.000000"));
}

TEST_F(Sa94Records, AnHourOfTodayMayLieAhead) {
    EXPECT_FALSE(parse(Hourly, {hourly(2, 3, 24, 23)}));
    EXPECT_EQ(archive("A3"), at(Midnight + 23 * Hour, "0.000000"));
}

TEST_F(Sa94Records, ADailyDateMayBeADayAhead) {
    EXPECT_TRUE(parse(Daily, {daily(4, 3, 24)}));
    EXPECT_TRUE(archive_names().empty());
    EXPECT_FALSE(parse(Daily, {daily(3, 3, 24)}));
    EXPECT_EQ(archive("_A48"), at(Midnight + Day, "0.000000"));
}

TEST_F(Sa94Records, ADateMayBe372DaysOld) {
    // 372 days before 2 March 2024 10:05 is 24 February 2023 10:05.
    EXPECT_TRUE(parse(Hourly, {hourly(24, 2, 23, 23)}));
    EXPECT_TRUE(parse(Daily, {daily(24, 2, 23)}));
    EXPECT_TRUE(archive_names().empty());
    EXPECT_FALSE(parse(Hourly, {hourly(25, 2, 23, 0)}));
    EXPECT_FALSE(parse(Daily, {daily(25, 2, 23)}));
    EXPECT_EQ(archive("A3"), at(Midnight - 371 * Day, "0.000000"));
    EXPECT_EQ(archive("_A48"), at(Midnight - 371 * Day, "0.000000"));
}

class Sa94RecordsAtMidnight : public Sa94Records {
  protected:
    Sa94RecordsAtMidnight() : Sa94Records("2024-03-02 00:00:00") {}
};

TEST_F(Sa94RecordsAtMidnight, TheBoundsThemselvesArePossible) {
    EXPECT_FALSE(parse(Daily, {daily(3, 3, 24)})) << "exactly a day ahead";
    EXPECT_EQ(archive("_A48"), at(Midnight + Day, "0.000000"));
    EXPECT_FALSE(parse(Daily, {daily(24, 2, 23)})) << "exactly 372 days old";
    EXPECT_FALSE(parse(Hourly, {hourly(24, 2, 23, 0)}));
    EXPECT_EQ(archive("A3"), at(Midnight - 372 * Day, "0.000000"));
    machine.sleep(1);
    EXPECT_TRUE(parse(Hourly, {hourly(24, 2, 23, 0)}));
    EXPECT_TRUE(parse(Daily, {daily(24, 2, 23)}));
}

// ---- the log

TEST_F(Sa94Records, ABlockIsToldInTheDebugLog) {
    behind(77);
    parse(Hourly, {hourly(2, 3, 24, 8).real(8, 1.5F)});
    EXPECT_TRUE(logged_in_order("debug", {"Start block parsing", "Last timestamp HOURLY_DB: 77", "Position = 0",
                                          "Dumping packet:", "Choice model", "Position = 1", "Is null record"}));
    EXPECT_EQ(logged("debug", " 0x00 0x02 0x03 0x24 0x00 0x08 0x00 0x00 0x81 0x40 0x00 0x00 0x00 0x00 0x00 0x00"), 1);
    EXPECT_EQ(logged_start("debug", "New archive record => A12 = 1.500000, Sat Mar  2 09:00:00 2024"), 1);
    EXPECT_EQ(logged_start("debug", "New archive record => A3 = 0.000000, Sat Mar  2 08:00:00 2024"), 1);
    EXPECT_TRUE(log("messages").empty());
    EXPECT_TRUE(log("general").empty());
}

TEST_F(Sa94Records, ADailyBlockNamesItsArchive) {
    behind(0, 78);
    parse(Daily, {});
    EXPECT_EQ(logged("debug", "Last timestamp DAILY_DB: 78"), 1);
}

TEST_F(Sa94Records, ValuesAreWrittenInTheOrderOfTheirColumnsUnderTheirNewNames) {
    identify(17, 0x44);
    parse(Hourly, {Sa94Bytes(64).date(2, 3, 24).hour(8)});
    Texts names;
    const std::string start = "New archive record => ";
    for (const std::string& line : log("debug")) {
        if (line.starts_with(start)) names.push_back(line.substr(start.size(), line.find(" = ") - start.size()));
    }
    EXPECT_EQ(names,
              (Texts{"A6", "A8", "_A20", "_A21", "A22", "A26", "A25", "A24", "A1", "A17", "A18", "A10", "A4", "A19"}));
}

}  // namespace
