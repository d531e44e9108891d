// Before a record is read: when an archive is looked for, its bounds, its marker file, the index of a date.

#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

using km5_frames::answer;
using km5_frames::bounds;
using km5_frames::index_answer;
using sim::ByteVector;

constexpr const char* Marker = "_EXISTS_FIRST_RECORD";

TEST(Km5ArchiveTurns, ComeWhenTheirPeriodIsStrictlyExceededAndHalfAnHourEarlierAtFirstForHoursAndDays) {
    constexpr std::time_t Born = 1709373900;
    struct Row {
        int type;
        int first, period;
    };
    for (const auto& [type, first, period] : {Row{0, 1800, 3600}, Row{1, 1800, 3600}, Row{2, 2592000, 2592000},
                                              Row{3, 31104000, 31104000}, Row{4, 3600, 3600}}) {
        KM5Progress progress(Born);
        EXPECT_FALSE(progress.take_turn(type, Born + first)) << type;
        EXPECT_TRUE(progress.take_turn(type, Born + first + 1)) << type;
        EXPECT_FALSE(progress.take_turn(type, Born + first + 1 + period)) << type;
        EXPECT_TRUE(progress.take_turn(type, Born + first + 2 + period)) << type;
    }
}

class Km5ArchiveTimes : public Km5Stand {};

TEST_F(Km5ArchiveTimes, TheTimeCountsFromTheAskingWhateverBecomesOfIt) {
    start_driver();
    machine.sleep(1801);
    ASSERT_TRUE(driver->need_update_archives(0));
    EXPECT_FALSE(driver->get_archives(0)) << "nobody on the line";
    EXPECT_FALSE(driver->need_update_archives(0));
}

TEST_F(Km5ArchiveTimes, TheQuestionIsLoggedForEachType) {
    start_driver();
    const char* const types[] = {"hourly.", "daily.", "monthly.", "yearly.", "errors."};
    for (int type = 0; type < 5; ++type) {
        driver->need_update_archives(type);
        EXPECT_EQ(logged("messages", std::string("Need update archives, type: ") + types[type]), 1);
    }
    EXPECT_EQ(logged_parts("messages", {"Now = ", ", last_request = ", ", fRes = "}), 5);
    EXPECT_EQ(state(), "need update archives ? ");
}

TEST_F(Km5ArchiveTimes, TheQuestionIsLoggedWithItsTimesAndItsAnswer) {
    start_driver();
    const std::time_t born = machine.now();
    machine.sleep(60);
    driver->need_update_archives(0);
    const std::string now = "Now = " + std::to_string(machine.now());
    EXPECT_EQ(logged("messages", now + ", last_request = " + std::to_string(born - 1800) + ", fRes = 0"), 1);
    machine.sleep(3600);
    driver->need_update_archives(0);
    EXPECT_EQ(logged_parts("messages", {"Now = " + std::to_string(machine.now()) + ", last_request = ", ", fRes = 1"}),
              1);
}

// ---- bounds

class Km5ArchiveBounds : public Km5Stand {
  protected:
    Km5ArchiveBounds() {
        machine.connect(Port, meter);
        start_driver();
    }
    Km5Script meter;
};

TEST_F(Km5ArchiveBounds, EachBoundIsARequestOfItsOwn) {
    meter.say(bounds(0, 65535, 20, 768), 3);
    EXPECT_EQ(driver->get_first_record_idx(0), 65535);
    EXPECT_EQ(driver->get_last_record_idx(1), 20);
    EXPECT_EQ(driver->get_record_count(4), 768);
    EXPECT_EQ(meter.heard[0], km5_frames::request(Address, 0x33, {0}));
    EXPECT_EQ(meter.heard[1], km5_frames::request(Address, 0x33, {1}));
    EXPECT_EQ(meter.heard[2], km5_frames::request(Address, 0x33, {4}));
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Km5ArchiveBounds, ABoundThatIsNotToldIsMinusOne) {
    EXPECT_EQ(driver->get_first_record_idx(0), -1);
    EXPECT_EQ(driver->get_last_record_idx(0), -1);
    EXPECT_EQ(driver->get_record_count(0), -1);
    EXPECT_EQ(meter.heard.size(), 63U);
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Km5ArchiveBounds, TheQuestionsAreShownInStateAndLog) {
    meter.say(bounds(0, 1, 2, 3), 3);
    driver->get_last_record_idx(0);
    EXPECT_EQ(state(), "get last record idx for archives");
    driver->get_first_record_idx(1);
    EXPECT_EQ(state(), "get first record idx for archives");
    driver->get_record_count(4);
    EXPECT_EQ(state(), "get record count for archives");
    EXPECT_EQ(logged("messages", "Archive : Hourly. Get last record idx."), 1);
    EXPECT_EQ(logged_parts("messages", {". Last record idx = 2"}), 1);
    EXPECT_EQ(logged("messages", "Archive : Daily. Get first record idx."), 1);
    EXPECT_EQ(logged_parts("messages", {". First record idx = 1"}), 1);
    EXPECT_EQ(logged("messages", "Archive : Errors_db. Get records count. "), 1);
    EXPECT_EQ(logged_parts("messages", {". Records count = 3"}), 1);
}

// ---- the marker of the first record

TEST_F(Km5ArchiveBounds, TheMarkerIsTheFlagsHighestBitOfTheCountThatWasAnsweredLast) {
    meter.say(bounds(0x80, 0, 5, 6), 2);
    driver->get_first_record_idx(0);
    driver->get_last_record_idx(0);
    EXPECT_FALSE(scene.exists("/mnt/storage/m1/1/tc_archives/_EXISTS_FIRST_RECORD")) << "not a count";
    meter.say(bounds(0x7F, 0, 5, 6)).say(bounds(0x80, 0, 5, 6));
    driver->get_record_count(0);
    EXPECT_EQ(archive(Marker), "1");
    driver->get_record_count(4);
    EXPECT_EQ(archive(Marker), "0");
    driver->get_record_count(0);
    EXPECT_EQ(archive(Marker), "0") << "silence";
}

TEST_F(Km5ArchiveBounds, TheMarkerStandsWithItsSubsystem) {
    start_driver({.km56i = true, .systems = {"heat", "heat", "heat"}});
    driver->get_description();  // nobody tells, but the third system is at work then
    meter.say(bounds(0, 0, 5, 6));
    driver->get_record_count(0);
    EXPECT_EQ(archive(Marker, 3), "1");
    EXPECT_EQ(archive(Marker, 1), "");
}

TEST_F(Km5ArchiveBounds, AMarkerThatCannotBeWrittenIsPassedOver) {
    scene.remove("/mnt/storage/m1/1/tc_archives");
    meter.say(bounds(0, 0, 5, 6));
    EXPECT_EQ(driver->get_record_count(0), 6);
}

// ---- the index of a date

TEST_F(Km5ArchiveBounds, ADateIsAskedForInBcdWithoutMinutes) {
    meter.say(index_answer(65535));
    EXPECT_EQ(driver->get_string_by_date(0, 31, 11, 124, 23), 65535);
    EXPECT_EQ(meter.heard[0], km5_frames::request(Address, 0x34, {0, 0x31, 0x12, 0x24, 0x23}));
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(state(), "get string by date for archives");
    EXPECT_EQ(logged("messages", "Archive : Hourly. Get string number by date : "), 1);
    EXPECT_EQ(logged_parts("messages", {"31", "12", " at ", "23", ", string number at archive database => 65535"}), 1);
}

TEST_F(Km5ArchiveBounds, EachMonthHasItsByteAndOctoberIs0x0A) {
    const std::uint8_t months[12] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x11, 0x12};
    for (int tm_mon = 0; tm_mon < 12; ++tm_mon) {
        meter.say(index_answer(1));
        driver->get_string_by_date(1, 1, tm_mon, 109, 0);
        EXPECT_EQ(meter.heard.back(),
                  km5_frames::request(Address, 0x34, {1, 0x01, months[static_cast<std::size_t>(tm_mon)], 0x09, 0x00}));
    }
}

TEST_F(Km5ArchiveBounds, ADateThatIsNotAnsweredHasNoIndex) {
    meter.say(answer(0xF0), 11);
    EXPECT_EQ(driver->get_string_by_date(0, 1, 0, 124, 0), -1);
    EXPECT_EQ(driver->get_string_by_date(0, 1, 0, 124, 0), -1) << "silence";
}

}  // namespace
