// The meter's log of events and the one file it goes to.

#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

constexpr const char* Events = "_A57";

class Km5Events : public Km5Stand {
  protected:
    std::vector<int> indices() const {
        std::vector<int> all;
        for (const auto& request : requests()) {
            if (request[4] == 0x37) all.push_back(request[6] | request[7] << 8);
        }
        return all;
    }

    sim::Km5Meter meter;
};

TEST_F(Km5Events, AnEventIsOneLineWithItsCodeAndItsStateAsQuality) {
    meter.store_event("2024-03-02 09:59:58", 0x85);
    meter.store_event("2024-03-02 10:00:01", 0x05);
    start_described(meter);
    EXPECT_TRUE(driver->get_error_archives());
    EXPECT_EQ(archive(Events), "1709373598,192,5.000000\n1709373601,0,5.000000\n");
    EXPECT_EQ(progress().last_request_ERROR, 1709373601);
    EXPECT_EQ(state(), "end error archives");
    EXPECT_EQ(item("_DriverStatus"), "5");
}

TEST_F(Km5Events, TheLowestAndTheHighestCode) {
    int minute = 0;
    for (const int code : {0x00, 0x7F, 0x80, 0xFF}) {
        meter.store_event("2024-03-02 09:0" + std::to_string(minute++), static_cast<std::uint8_t>(code));
    }
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(archive(Events),
              "1709370000,0,0.000000\n1709370060,0,127.000000\n1709370120,192,0.000000\n1709370180,192,127.000000\n");
}

TEST_F(Km5Events, AnEventIsAskedForByItsIndex) {
    for (int i = 0; i < 3; ++i) meter.store_event("2024-03-02 09:00:00", 1);
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(
        asked(requests(), 3),
        (std::vector<std::vector<int>>{
            {0x33, 4, 0, 0}, {0x33, 4, 0, 0}, {0x33, 4, 0, 0}, {0x37, 4, 0, 0}, {0x37, 4, 1, 0}, {0x37, 4, 2, 0}}));
}

TEST_F(Km5Events, ReadingGoesOnFromTheHourOfTheLastEvent) {
    meter.store_event("2024-03-02 08:10:00", 0x81);
    meter.store_event("2024-03-02 09:10:00", 0x82);
    meter.store_event("2024-03-02 09:10:01", 0x83);
    leave_archive(Events, "1709370600,192,2.000000\n");  // 09:10:00
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(asked(requests().at(2), 5), (std::vector<int>{0x34, 4, 0x02, 0x03, 0x24, 0x09}));
    EXPECT_EQ(indices(), (std::vector<int>{1, 2}));
    EXPECT_EQ(archive(Events), "1709370600,192,2.000000\n1709370601,192,3.000000\n");
}

TEST_F(Km5Events, EventsOfOneSecondAreAllStoredWhenReadTogether) {
    meter.store_event("2024-03-02 09:10:00", 0x81);
    meter.store_event("2024-03-02 09:10:00", 0x02);
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(archive(Events), "1709370600,192,1.000000\n1709370600,0,2.000000\n");
}

TEST_F(Km5Events, AnHourlyPassReadsEventsBeforeAndAfterItsRecordsWithoutDoublingThem) {
    meter.store_event("2024-03-02 09:10:00", 0x81);
    meter.store_hourly({.at = "2024-03-02 10:00"});
    start_described(meter);
    driver->get_archives(0);
    EXPECT_EQ(indices(), (std::vector<int>{0, 0}));
    EXPECT_EQ(archive(Events), "1709370600,192,1.000000\n");
    EXPECT_EQ(item("_DriverStatus"), "5");
}

TEST_F(Km5Events, AnEventThatHappensDuringAnHourlyPassIsReadAtItsEnd) {
    meter.store_hourly({.at = "2024-03-02 10:00"});
    WatchedMeter watched(meter, [&](std::span<const std::uint8_t> request) {
        if (request[4] == 65) meter.store_event("2024-03-02 10:05:01", 0x81);
    });
    start_described(meter);
    machine.disconnect_all(Port);
    machine.connect(Port, watched);
    driver->get_archives(0);
    EXPECT_EQ(archive(Events), "1709373901,192,1.000000\n");
}

TEST_F(Km5Events, ADailyPassReadsNoEvents) {
    meter.store_event("2024-03-02 09:10:00", 0x81);
    start_described(meter);
    driver->get_archives(1);
    EXPECT_EQ(indices(), std::vector<int>{});
}

TEST_F(Km5Events, AnEventMoreThanAnHourAheadIsNotStoredButItsDateIsTaken) {
    meter.store_event("2024-03-02 10:00:00", 0x81);
    meter.store_event("2024-03-02 11:05:00", 0x82);  // an hour ahead of 10:05, no more
    meter.store_event("2024-03-02 11:30:00", 0x83);
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(archive(Events), "1709373600,192,1.000000\n1709377500,192,2.000000\n");
    EXPECT_EQ(progress().last_request_ERROR, 1709379000) << "the last one read, stored or not";
}

TEST_F(Km5Events, AnErasedEventIsNotStoredAndTheNextOneIs) {
    meter.store_event("2024-03-02 08:00:00", 0x81);
    meter.store_event("2024-03-02 09:00:00", 0x82);
    meter.erase_record(sim::Km5Archive::Errors, 0);
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(archive(Events), "1709370000,192,2.000000\n");
}

TEST_F(Km5Events, BehindAnErasedLastEventTheOldDateIsKept) {
    meter.store_event("2024-03-02 08:00:00", 0x81);
    meter.store_event("2024-03-02 09:00:00", 0x82);
    meter.erase_record(sim::Km5Archive::Errors, 1);
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(archive(Events), "1709366400,192,1.000000\n");
    EXPECT_EQ(progress().last_request_ERROR, 0) << "the last date read was none";
}

TEST_F(Km5Events, AnEmptyLogOfEventsStoresNothing) {
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(indices(), std::vector<int>{0});
    EXPECT_FALSE(scene.exists("/mnt/storage/m1/1/tc_archives/_A57"));
    EXPECT_EQ(archive("_EXISTS_FIRST_RECORD"), "0");
}

TEST_F(Km5Events, ARingOfEventsThatHasTurnedIsReadOnFromZero) {
    meter.swap_for({.capacity = {.errors = 4}});
    for (int i = 0; i < 6; ++i) meter.store_event("2024-03-02 09:0" + std::to_string(i), static_cast<std::uint8_t>(i));
    start_described(meter);
    driver->get_error_archives();
    EXPECT_EQ(indices(), (std::vector<int>{2, 3, 4, 0, 1}));
    EXPECT_EQ(archive(Events),
              "1709370120,0,2.000000\n1709370180,0,3.000000\n1709370240,0,4.000000\n1709370300,0,5.000000\n");
    EXPECT_EQ(progress().last_request_ERROR, 1709370300);
}

TEST_F(Km5Events, ABoundThatCannotBeReadEndsTheReading) {
    for (std::size_t good = 0; good < 3; ++good) {
        meter.swap_for({});
        meter.forget_requests();
        meter.store_event("2024-03-02 09:00", 1);
        machine.disconnect_all(Port);
        start_described(meter);
        meter.misbehave_next(good, sim::km5_good().on(51));
        meter.misbehave_next(21, sim::km5_silence().on(51));
        EXPECT_FALSE(driver->get_error_archives()) << good;
        EXPECT_EQ(meter.requests(55), 0U);
        EXPECT_EQ(progress().last_request_ERROR, 0);
    }
}

TEST_F(Km5Events, ADateThatIsNotAnsweredEndsTheReading) {
    meter.store_event("2024-03-02 09:00", 1);
    leave_archive(Events, "1709370000,0,1.000000\n");
    start_described(meter);
    meter.misbehave_next(21, sim::km5_silence().on(52));
    EXPECT_FALSE(driver->get_error_archives());
    EXPECT_EQ(meter.requests(55), 0U);
}

TEST_F(Km5Events, AnEventThatFailsTwentyTimesIsReadAtTheTwentyFirst) {
    meter.store_event("2024-03-02 09:00", 0x81);
    start_described(meter);
    meter.misbehave_next(20 * 21, sim::km5_wrong_echo().on(55));
    driver->get_error_archives();
    EXPECT_EQ(archive(Events), "1709370000,192,1.000000\n");
}

TEST_F(Km5Events, AnEventThatCannotBeReadEndsTheReadingAndTheLastDateReadIsTaken) {
    meter.store_event("2024-03-02 09:00", 0x81);
    meter.store_event("2024-03-02 09:30", 0x82);
    meter.store_event("2024-03-02 09:40", 0x83);
    start_described(meter);
    meter.misbehave_next(1, sim::km5_good().on(55));
    meter.misbehave_next(21 * 21, sim::km5_silence().on(55));
    driver->get_error_archives();
    EXPECT_EQ(meter.requests(55), 1U + 21 * 21);
    EXPECT_EQ(archive(Events), "1709370000,192,1.000000\n");
    EXPECT_EQ(progress().last_request_ERROR, 1709370000);
    EXPECT_EQ(state(), "end error archives");
    driver->get_error_archives();
    EXPECT_EQ(archive(Events), "1709370000,192,1.000000\n1709371800,192,2.000000\n1709372400,192,3.000000\n");
}

TEST_F(Km5Events, TheEventsOfASubsystemStandInItsOwnFile) {
    meter.swap_for({.km56i = true, .subsystems = 2});
    meter.store_event("2024-03-02 09:00", 0x81, 1);
    start_described(meter, {.km56i = true, .systems = {"heat", "heat"}});
    driver->get_error_archives();
    EXPECT_EQ(archive(Events, 2), "1709370000,192,1.000000\n");
    EXPECT_EQ(archive(Events, 1), "");
    EXPECT_EQ(progress(0).last_request_ERROR, 0);
    EXPECT_EQ(progress(1).last_request_ERROR, 1709370000);
}

TEST_F(Km5Events, AnEventInWinterIsDatedByWinterTime) {
    meter.store_event("2024-01-15 12:00", 0x81);
    start_described(meter);
    ::setenv("TZ", Berlin, 1);
    ::tzset();
    driver->get_error_archives();
    EXPECT_EQ(archive(Events), "1705316400,192,1.000000\n");
}

TEST_F(Km5Events, AnEventInSummerBehindOneInWinterIsDatedBySummerTime) {
    meter.store_event("2023-07-01 12:00", 0x81);
    leave_archive(Events, "1673776800,192,1.000000\n");  // 2023-01-15
    start_described(meter);
    ::setenv("TZ", Berlin, 1);
    ::tzset();
    driver->get_error_archives();
    EXPECT_EQ(archive(Events), "1673776800,192,1.000000\n1688205600,192,1.000000\n");
}

TEST_F(Km5Events, TheReadingIsToldInTheMessagesLog) {
    meter.store_event("2024-03-02 09:00", 0x85);
    start_described(meter);
    driver->get_error_archives();
    driver->get_error_archives();
    EXPECT_EQ(logged("messages", "Start get error archives. "), 2);
    EXPECT_EQ(logged("messages", "Last request error[ 0 ] = 0"), 1);
    EXPECT_EQ(logged("messages", "last_request_ERROR[subsystem] == 0"), 1);
    EXPECT_EQ(logged("messages", "Last request error[ 0 ] = 1709370000"), 1);
    EXPECT_EQ(logged("messages", "last_request_ERROR[subsystem] != 0"), 1);
    EXPECT_EQ(logged("messages", "GetErrorArchives: Hourly ER: 5"), 1);
    EXPECT_EQ(logged("messages", "GetErrorArchives: Daily ER: 5"), 1);
    EXPECT_EQ(logged("messages", "GetErrorArchives end."), 2);
    for (const char* begin : {"First archive string: ", "Last archive string: ", "First idx : ", "Last idx : ",
                              "Records count : ", "Last_request_date: "}) {
        EXPECT_EQ(logged_parts("messages", {begin}), 2) << begin;
    }
}

TEST_F(Km5Events, TheStateFileSaysThatEventsAreRead) {
    meter.store_event("2024-03-02 09:00", 0x85);
    std::string seen;
    WatchedMeter watched(meter, [&](std::span<const std::uint8_t> request) {
        if (request[4] == 55) seen = state();
    });
    start_described(meter);
    machine.disconnect_all(Port);
    machine.connect(Port, watched);
    driver->get_error_archives();
    EXPECT_EQ(seen, "get error archives");
}

}  // namespace
