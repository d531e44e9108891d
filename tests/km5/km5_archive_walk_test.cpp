// The walk over an archive: where it begins and ends, what it passes over, what a failure leaves behind.

#include <algorithm>
#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

using sim::Km5Archive;

class Km5Walk : public Km5Stand {
  protected:
    static constexpr std::time_t Ten = 1709373600;  // 2024-03-02 10:00:00 UTC
    static constexpr std::time_t Hour = 3600;

    /// The indices asked for by the record command, in order.
    std::vector<int> indices(std::uint8_t command = 0x41) const {
        std::vector<int> all;
        for (const auto& request : requests()) {
            if (request[4] == command) all.push_back(request[6] | request[7] << 8);
        }
        return all;
    }
    /// Hourly records of the hours up to and with ten o'clock, the oldest first.
    void store_hours(int count) {
        for (int i = count - 1; i >= 0; --i) meter.store_hourly({.at = Ten - i * Hour, .IM1 = static_cast<float>(i)});
    }
    KM5& start_with_hours(int count) {
        store_hours(count);
        return start_described(meter);
    }
    static std::vector<int> numbers(int first, int last) {
        std::vector<int> all;
        for (int i = first; i <= last; ++i) all.push_back(i);
        return all;
    }

    sim::Km5Meter meter{{.model = 2}};
};

TEST_F(Km5Walk, AnUnreadArchiveIsReadFromItsFirstRecord) {
    start_with_hours(3);
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(archive("A12"), "1709366400,192,2.000000\n1709370000,192,1.000000\n1709373600,192,0.000000\n");
    EXPECT_EQ(progress().last_request_HOUR, Ten);
    // Events, count, last, first, three records, events.
    const std::vector<std::vector<int>> wanted = {{51, 4}, {51, 4}, {51, 4}, {55, 4}, {51, 0}, {51, 0}, {51, 0},
                                                  {65, 0}, {65, 0}, {65, 0}, {51, 4}, {51, 4}, {51, 4}, {55, 4}};
    EXPECT_EQ(asked(requests()), wanted);
}

TEST_F(Km5Walk, AReadArchiveIsReadFromTheRecordOfTheRememberedHour) {
    leave_hours_until(Ten - 2 * Hour);
    start_with_hours(5);
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(indices(), (std::vector<int>{2, 3, 4}));
    EXPECT_EQ(archive("A12"), "1709370000,192,1.000000\n1709373600,192,0.000000\n")
        << "the record of the remembered date is passed over";
    EXPECT_EQ(
        logged_parts("messages", {"last request day|hour(1709366400", "> record day(1709366400", ") => continue"}), 1);
}

TEST_F(Km5Walk, TheRememberedHourIsAskedForInLocalTime) {
    leave_hours_until(Ten - 13 * Hour);  // 2024-03-01 21:00
    start_with_hours(1);
    driver->get_archives(0);
    EXPECT_EQ(asked(requests().at(6), 5), (std::vector<int>{0x34, 0, 0x01, 0x03, 0x24, 0x21}));
}

TEST_F(Km5Walk, AllThatIsNewIsReadInOnePass) {
    start_with_hours(400);
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(indices(), numbers(0, 399));
}

TEST_F(Km5Walk, ARingThatHasTurnedIsReadToItsCountAndOnFromZero) {
    // 789 hours in a ring of 768: the oldest stands at 21, the newest at 20.
    meter.swap_for({.model = 2, .capacity = {.hourly = 768}});
    store_hours(789);
    leave_hours_until(meter.records(Km5Archive::Hourly).at(100).time);
    start_described(meter);
    EXPECT_TRUE(driver->get_archives(0));
    auto wanted = numbers(100, 768);  // 768 is asked for: the bound is inclusive
    for (const int index : numbers(0, 20)) wanted.push_back(index);
    EXPECT_EQ(indices(), wanted);
    EXPECT_EQ(progress().last_request_HOUR, Ten);
    const std::string lines = archive("A12");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 688);
}

TEST_F(Km5Walk, ARingTurnsOnlyOnce) {
    start_with_hours(6);
    meter.claim_bounds(Km5Archive::Hourly, sim::Km5Bounds{.flag = 0, .first = 2, .last = 1, .count = 3});
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(indices(), (std::vector<int>{2, 3, 0, 1}));
}

TEST_F(Km5Walk, ARingWhoseNewestRecordStandsAtZeroEndsThere) {
    start_with_hours(6);
    meter.claim_bounds(Km5Archive::Hourly, sim::Km5Bounds{.flag = 0, .first = 3, .last = 0, .count = 4});
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(indices(), (std::vector<int>{3, 4, 0}));
    EXPECT_EQ(logged("messages", "First archive string: 3"), 1);
    EXPECT_EQ(logged("messages", "Last archive string: 4"), 1);
}

TEST_F(Km5Walk, ACountInFrontOfTheFirstIndexLeavesNothingToRead) {
    start_with_hours(6);
    meter.claim_bounds(Km5Archive::Hourly, sim::Km5Bounds{.flag = 0, .first = 5, .last = 4, .count = 2});
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(indices(), std::vector<int>{});
    EXPECT_EQ(progress().last_request_HOUR, 0);
}

TEST_F(Km5Walk, AnEmptyArchiveIsReadAtIndexZero) {
    start_described(meter);
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(indices(), std::vector<int>{0});
    EXPECT_EQ(archive("A12"), "") << "erased memory has no sane date";
    EXPECT_EQ(progress().last_request_HOUR, 0);
}

TEST_F(Km5Walk, AnEmptyArchiveWhoseIndexZeroHoldsASaneDateIsStored) {
    start_with_hours(1);
    meter.claim_bounds(Km5Archive::Hourly, sim::Km5Bounds{.flag = 0x80, .first = 0, .last = 0, .count = 0});
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(archive("A12"), "1709373600,192,0.000000\n");
    EXPECT_EQ(archive("_EXISTS_FIRST_RECORD"), "0") << "the error archive was counted last, and is empty too";
}

TEST_F(Km5Walk, AGapOfErasedMemoryIsPassedOver) {
    store_hours(5);
    meter.erase_record(Km5Archive::Hourly, 2);
    start_described(meter);
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(archive("A12"),
              "1709359200,192,4.000000\n1709362800,192,3.000000\n1709370000,192,1.000000\n1709373600,192,0.000000\n");
}

TEST_F(Km5Walk, AnUnknownTypeActsAsHourly) {
    store_hours(1);
    meter.store_event("2024-03-02 09:10:00", 0x81);
    start_described(meter);
    EXPECT_TRUE(driver->get_archives(9));
    EXPECT_EQ(meter.requests(65), 1U);
    EXPECT_EQ(meter.heard().back().command(), 55) << "events are read behind the records";
    EXPECT_EQ(meter.requests(55), 1U) << "and not in front of them";
    EXPECT_EQ(archive("A12"), "1709373600,192,0.000000\n");
    EXPECT_EQ(progress().last_request_HOUR, Ten);
    EXPECT_EQ(logged("messages", "Type: NOT TYPE, WARNING, choose HOURLY"), 1);
}

TEST_F(Km5Walk, EachSubsystemReadsItsOwnArchiveIntoItsOwnFiles) {
    meter.swap_for({.km56i = true, .subsystems = 3});
    meter.store_hourly({.at = Ten, .IM1 = 3.0F}, 2);
    start_described(meter, {.km56i = true, .systems = {"heat", "heat", "heat"}});
    EXPECT_TRUE(driver->get_archives(0)) << "of the last subsystem, which is at work";
    EXPECT_EQ(archive("A12", 3), "1709373600,192,3.000000\n");
    EXPECT_EQ(archive("A12", 1), "");
    EXPECT_EQ(progress(0).last_request_HOUR, 0);
    EXPECT_EQ(progress(2).last_request_HOUR, Ten);
    EXPECT_EQ(item("_DriverStatus", 3), "5") << "the events come last";
}

// ---- failures

TEST_F(Km5Walk, ABoundThatCannotBeReadEndsThePassWithoutChange) {
    // Of the three questions for bounds the first, the second or the third is never answered.
    for (std::size_t good = 0; good < 3; ++good) {
        meter.swap_for({.model = 2});
        meter.forget_requests();
        machine.disconnect_all(Port);
        start_with_hours(2);
        meter.misbehave_next(good, sim::km5_good().on(51, 1));
        meter.misbehave_next(21, sim::km5_silence().on(51, 1));
        EXPECT_FALSE(driver->get_archives(1)) << good;
        EXPECT_EQ(meter.requests(51), good + 21);
        EXPECT_EQ(meter.requests(65), 0U);
        EXPECT_EQ(progress().last_request_DAY, 0);
    }
}

TEST_F(Km5Walk, ADateThatIsNotAnsweredEndsThePassWithoutChange) {
    leave_hours_until(Ten - Hour);
    start_with_hours(2);
    meter.misbehave_next(21, sim::km5_silence().on(52));
    EXPECT_FALSE(driver->get_archives(0));
    EXPECT_EQ(meter.requests(65), 0U);
    EXPECT_EQ(progress().last_request_HOUR, Ten - Hour);
}

TEST_F(Km5Walk, ARecordThatFailsTwentyTimesIsReadAtTheTwentyFirst) {
    start_with_hours(2);
    meter.misbehave_next(20 * 21, sim::km5_wrong_cs1().on(65));
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(meter.requests(65), 20U * 21 + 2);
    EXPECT_EQ(archive("A12"), "1709370000,192,1.000000\n1709373600,192,0.000000\n");
}

TEST_F(Km5Walk, ARecordThatFailsOnceMoreEndsThePassAndNothingIsRemembered) {
    start_with_hours(3);
    meter.misbehave_next(1, sim::km5_good().on(65));
    meter.misbehave_next(21 * 21, sim::km5_silence().on(65));
    EXPECT_FALSE(driver->get_archives(0));
    EXPECT_EQ(meter.requests(65), 1U + 21 * 21);
    EXPECT_EQ(archive("A12"), "1709366400,192,2.000000\n") << "what is written stays written";
    EXPECT_EQ(progress().last_request_HOUR, 0);
}

TEST_F(Km5Walk, APassThatFailedWritesItsRecordsOnceMoreAtTheNextTry) {
    start_with_hours(2);
    meter.misbehave_next(1, sim::km5_good().on(65));
    meter.misbehave_next(21 * 21, sim::km5_silence().on(65));
    EXPECT_FALSE(driver->get_archives(0));
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(archive("A12"), "1709370000,192,1.000000\n1709370000,192,1.000000\n1709373600,192,0.000000\n");
}

TEST_F(Km5Walk, TheCounterOfFailuresBeginsAnewWithEachRecord) {
    start_with_hours(3);
    for (int i = 0; i < 3; ++i) {
        meter.misbehave_next(11 * 20, sim::km5_error().on(65));
        meter.misbehave_next(1, sim::km5_good().on(65));
    }
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(progress().last_request_HOUR, Ten);
}

TEST_F(Km5Walk, AModelWithoutATableIsReadWithoutALineAndRememberedAllTheSame) {
    meter.swap_for({.model = 2, .model_index = 255});
    start_with_hours(2);
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(meter.requests(65), 2U);
    EXPECT_EQ(archive_names(), std::vector<std::string>{"_EXISTS_FIRST_RECORD"});
    EXPECT_EQ(progress().last_request_HOUR, Ten);
}

TEST_F(Km5Walk, APauseFlagHoldsTheReadingWhereItStandsAndItGoesOnThere) {
    store_hours(6);
    WatchedMeter watched(meter, [this](std::span<const std::uint8_t> request) {
        const bool third_record = request[4] == 65 && request[6] == 2;
        if (third_record && machine.sleeps().empty()) {
            scene.touch("/tmp/pause_tvk_all");
            machine.at(95, [this] { scene.remove("/tmp/pause_tvk_all"); });
        }
    });
    start_described(meter);
    machine.disconnect_all(Port);
    machine.connect(Port, watched);
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(machine.sleeps().size(), 10U) << "ten seconds at a time, for 95 seconds";
    EXPECT_EQ(indices(), numbers(0, 5)) << "nothing is asked twice, nothing left out";
    EXPECT_EQ(progress().last_request_HOUR, Ten);
}

TEST_F(Km5Walk, AFileThatCannotBeOpenedLosesItsValueAndNoOther) {
    start_with_hours(1);
    scene.make_tree("m1");
    scene.write("/mnt/storage/m1/1/tc_archives/A14/in_the_way", "");
    EXPECT_TRUE(driver->get_archives(0));
    EXPECT_EQ(archive("A12"), "1709373600,192,0.000000\n");
    EXPECT_EQ(archive("A4"), "1709373600,192,0.000000\n");
    EXPECT_EQ(archive("A14"), "");
}

TEST_F(Km5Walk, TheWalkIsToldInTheMessagesLog) {
    start_with_hours(2);
    driver->get_archives(0);
    for (const char* line : {"Starts get archives. ", "Type: Hourly. ", "Archive date: 02.03.2024 10:00:00"}) {
        EXPECT_GE(logged_parts("messages", {line}), 1) << line;
    }
    EXPECT_EQ(logged_parts("messages", {"Archive date: "}), 2) << "the averages are filed without a word";
    for (const char* begin : {"Last request date : ", "Get first record idx. First idx = 0",
                              "First archive string: ", "Last archive string: ", "First idx : 0", "Last idx : 1",
                              "Records count : 2", "Last_request_date: 0"}) {
        EXPECT_GE(logged_parts("messages", {begin}), 1) << begin;
    }
    EXPECT_EQ(logged_parts("messages", {"Begin = 0", ", end = 1", ", idx = 0", "Sat Mar  2 09:00:00 2024"}), 1);
    EXPECT_EQ(logged_parts("messages", {"Archives end: last_request_date: 0", " => "}), 2);
    EXPECT_EQ(logged("messages", "A12 = 1.000000"), 1);
}

TEST_F(Km5Walk, EachTypeIsNamedInTheLogAndHourlyAndDailyShowInTheStatus) {
    start_described(meter);
    const char* const texts[] = {"Type: Hourly. ", "Type: Daily. ", "Type: Monthly. ", "Type: Yearly. ",
                                 "Type: Errors. "};
    const char* const statuses[] = {"5", "4", "none yet", "none yet", "5"};
    for (int type = 0; type < 5; ++type) {
        scene.write("/tmp/m1/1/tc_items/_DriverStatus", "none yet\n");
        driver->get_archives(type);
        EXPECT_EQ(logged("messages", texts[type]), 1);
        EXPECT_EQ(item("_DriverStatus"), statuses[type]) << type;
    }
}

TEST_F(Km5Walk, WhileHourlyRecordsAreReadTheStatusIsThree) {
    store_hours(1);
    std::string seen;
    WatchedMeter watched(meter, [&](std::span<const std::uint8_t> request) {
        if (request[4] == 65) seen += item("_DriverStatus");
    });
    start_described(meter);
    machine.disconnect_all(Port);
    machine.connect(Port, watched);
    driver->get_archives(0);
    EXPECT_EQ(seen, "3");
}

}  // namespace
