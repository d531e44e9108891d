// A block of the meter's error archive into lines of the one file that keeps them.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

constexpr std::time_t Midnight = 1709337600;  // 2024-03-02 00:00 UTC
constexpr std::time_t Day = 86400;
constexpr int Errors = 4;

Sa94Bytes event(int byte, int day, int month, int year, int hour = 8, int minute = 15, int second = 30) {
    return Sa94Bytes(8)
        .put(0, {static_cast<std::uint8_t>(byte)})
        .date(day, month, year)
        .put(4, {0x99})
        .clock(hour, minute, second);
}

class Sa94Errors : public Sa94Stand {
  protected:
    Sa94Errors() {
        identify(11);
        clear_logs();
    }

    bool parse(const std::vector<Sa94Bytes>& records) {
        return driver->parseBlock(Errors, sa94_bytes::reply_of(records), position, newest);
    }
    static std::string at(std::time_t time, int quality, int code) {
        return std::to_string(time) + "," + std::to_string(quality) + "," + std::to_string(code) + ".000000\n";
    }

    int position = 0;
    std::time_t newest = 0;
};

constexpr std::time_t EventTime = Midnight + 8 * 3600 + 15 * 60 + 30;  // 2024-03-02 08:15:30

TEST_F(Sa94Errors, AnEventThatStartedIsGoodAndOneThatStoppedHasQualityZero) {
    EXPECT_FALSE(parse({event(0x05, 2, 3, 24), event(0x85, 2, 3, 24)}));
    EXPECT_EQ(archive("_A57"), "1709367330,192,5.000000\n1709367330,0,5.000000\n");
    EXPECT_EQ(archive_names(), Texts{"_A57"});
    EXPECT_EQ(newest, EventTime);
}

TEST_F(Sa94Errors, ThePositionStaysAlsoBehindAWholeBlock) {
    // So the first records of every later block of such a run are passed over.
    position = 14;
    std::vector<Sa94Bytes> records;
    for (int i = 0; i < 16; ++i) records.push_back(event(i, 2, 3, 24, 8, i, 0));
    EXPECT_TRUE(parse(records));
    EXPECT_EQ(position, 14);
    EXPECT_EQ(archive("_A57"), at(Midnight + 8 * 3600 + 60 * 14, 192, 14) + at(Midnight + 8 * 3600 + 60 * 15, 192, 15));
    EXPECT_EQ(logged("debug", "Position = 14, recs_count = 16"), 1);
}

TEST_F(Sa94Errors, AnErasedRecordEndsTheRun) {
    EXPECT_FALSE(parse({event(1, 2, 3, 24), Sa94Bytes(8, 0xFF), event(2, 2, 3, 24, 9)}));
    EXPECT_EQ(archive("_A57"), at(EventTime, 192, 1));
    EXPECT_EQ(logged("debug", "isNullRecord"), 1);
}

TEST_F(Sa94Errors, AnEventThatIsNotNewerThanWhatIsStoredEndsTheRun) {
    resume(0, 0, EventTime);
    EXPECT_FALSE(parse({event(1, 2, 3, 24), event(2, 2, 3, 24, 9)}));
    EXPECT_EQ(archive("_A57"), "");
    EXPECT_EQ(newest, 0);
    EXPECT_EQ(logged("debug", "New record time less LastTimestamp, return STOP"), 1);
    EXPECT_EQ(logged("debug", "LastTimestampError = 1709367330, new record time = 1709367330"), 1);
    resume(0, 0, EventTime - 1);
    EXPECT_FALSE(parse({event(1, 2, 3, 24)}));
    EXPECT_EQ(archive("_A57"), at(EventTime, 192, 1)) << "nothing of the refused event has stayed";
}

TEST_F(Sa94Errors, AnEventMayBe744DaysOff) {
    // 744 days before 2 March 2024 10:05:00 is 17 February 2022 10:05:00, 744 days behind it 16 March 2026 10:05:00.
    EXPECT_TRUE(parse({event(1, 17, 2, 22, 10, 4, 59)}));
    EXPECT_TRUE(parse({event(1, 16, 3, 26, 10, 5, 1)}));
    EXPECT_EQ(archive("_A57"), "");
    EXPECT_FALSE(parse({event(1, 17, 2, 22, 10, 5, 0)}));
    EXPECT_FALSE(parse({event(2, 16, 3, 26, 10, 5, 0)}));
    const std::time_t now = Midnight + 10 * 3600 + 5 * 60;
    EXPECT_EQ(archive("_A57"), at(now - 744 * Day, 192, 1) + at(now + 744 * Day, 192, 2));
}

TEST_F(Sa94Errors, AnArchiveFileThatCannotBeOpenedLosesItsEvents) {
    scene.remove("/mnt/storage/m1/1/tc_archives");
    EXPECT_FALSE(parse({event(1, 2, 3, 24)}));
    EXPECT_EQ(newest, EventTime);
    EXPECT_EQ(archive("_A57"), "");
}

TEST_F(Sa94Errors, EventsAreToldInTheDebugLog) {
    parse({event(0x05, 2, 3, 24), event(0x86, 2, 3, 24, 9)});
    const auto lines = log("debug");
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(lines[0], "Start block parsing");
    EXPECT_EQ(lines[1], "ErrorArchiveParsing start");
    EXPECT_EQ(lines[2], "Position = 0, recs_count = 16");
    EXPECT_EQ(logged_start("debug", "Read record => 5 :: start :: "), 1);
    EXPECT_EQ(logged_start("debug", "Read record => 6 :: stop :: "), 1);
    EXPECT_TRUE(logged_in_order(
        "debug", {"LastTimestampError = 0, new record time = 1709367330", "Add New record",
                  "LastTimestampError = 0, new record time = 1709370930", "Add New record", "isNullRecord"}));
    EXPECT_TRUE(log("messages").empty());
}

TEST_F(Sa94Errors, TheTimeOfAnEventIsToldAsItWasRead) {
    parse({event(0x05, 2, 3, 24)});
    EXPECT_EQ(logged("debug", "Read record => 5 :: start :: Sun Mar  2 08:15:30 2024"), 1)
        << "a Saturday: nobody has looked for the day of the week yet";
}

TEST_F(Sa94Errors, TheParserMayBeCalledByItself) {
    EXPECT_FALSE(
        driver->ErrorArchiveParsing(sa94_bytes::reply_of({event(9, 2, 3, 24), event(5, 2, 3, 24)}), 1, newest));
    EXPECT_EQ(archive("_A57"), at(EventTime, 192, 5));
    EXPECT_EQ(logged("debug", "Start block parsing"), 0);
}

}  // namespace
