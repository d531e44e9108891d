// The walk through the meter's ring: when it is due, where it begins, and when it ends.

#include <string>
#include <vector>

#include "vist/vist_ring.h"

namespace {

// ---- when a pass is due

TEST_F(VistArchives, TheFirstPassComesTenMinutesAfterTheStartAndThenEveryTenMinutes) {
    start_driver();
    EXPECT_FALSE(driver->need_update_archives(0));
    machine.sleep(600);
    EXPECT_FALSE(driver->need_update_archives(0)) << "exactly ten minutes are not enough";
    machine.sleep(1);
    EXPECT_TRUE(driver->need_update_archives(0));
    EXPECT_FALSE(driver->need_update_archives(0));
    machine.sleep(600);
    EXPECT_FALSE(driver->need_update_archives(0));
    machine.sleep(1);
    EXPECT_TRUE(driver->need_update_archives(0));
    EXPECT_EQ(logged("Need update archives ?"), 6);
}

TEST_F(VistArchives, EachVirtualDeviceHasItsOwnRhythm) {
    start_driver();
    machine.sleep(601);
    EXPECT_TRUE(driver->need_update_archives(0));
    machine.sleep(300);
    EXPECT_FALSE(driver->need_update_archives(0));
    EXPECT_TRUE(driver->need_update_archives(1));
    machine.sleep(301);
    EXPECT_TRUE(driver->need_update_archives(0));
    EXPECT_FALSE(driver->need_update_archives(1));
}

// ---- a whole pass

TEST_F(VistArchives, AFirstPassReadsTheWholeRingInOneDialog) {
    start(8, 10);
    EXPECT_TRUE(pass());
    const Texts expected = {"CALL 1",         "VDN 0",        "/ARC/DLD H", "END",        "CALL 1",
                            "VDN 0",          "/ARC/DLD OLD", "/ARC/DLD =", "CALL 1",     "VDN 0",
                            "/ARC/DLD SET 3", "/ARC/DLD +",   "/ARC/DLD +", "/ARC/DLD +", "/ARC/DLD +"};
    Texts heard = commands();
    ASSERT_GT(heard.size(), expected.size());
    EXPECT_EQ(heard.back(), "END");
    heard.resize(expected.size());
    EXPECT_EQ(heard, expected);
    EXPECT_EQ(hours_filed(), "8 9 10");
}

TEST_F(VistArchives, EachPassFilesTheHeaderThatItFound) {
    start();
    ASSERT_TRUE(pass());
    EXPECT_EQ(hours_filed("A6"), "11") << "at the header's own time, 10:00";
    ASSERT_TRUE(pass_an_hour_later());
    EXPECT_EQ(hours_filed("A6"), "11 12");
}

TEST_F(VistArchives, ALaterPassAddsOnlyWhatIsNew) {
    start();
    ASSERT_TRUE(pass());
    ASSERT_TRUE(pass_an_hour_later());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10 11");
}

TEST_F(VistArchives, AfterARestartReadingGoesOnWhereTheFilesEnd) {
    start();
    ASSERT_TRUE(pass());
    machine.sleep(2 * Hour);
    store_hours(11, 12);
    start_driver();
    ASSERT_TRUE(driver->get_description());
    ASSERT_TRUE(driver->get_archives(0));
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10 11 12");
}

TEST_F(VistArchives, EachVirtualDeviceHasItsOwnRingAndDirectory) {
    sim::VistMeter two({.devices = {{}, {}}, .plus_starts_at_set = true});
    two.store_hourly({.at = "2024-03-02 10:00", .T1 = 71.2}, 0);
    two.store_hourly({.at = "2024-03-02 10:00", .T1 = 33.3}, 1);
    start_described(two);
    EXPECT_TRUE(driver->get_archives(1));
    EXPECT_EQ(staged("A20", 1), "");
    EXPECT_EQ(staged("A20", 2), stored_line(Ten - Hour, 192, 33.3) + "\n");
    EXPECT_EQ(two.requests("VDN 1"), 3U);
    EXPECT_EQ(two.requests("VDN 0"), 0U);
    EXPECT_EQ(item("_DriverStatus", 3), "3") << "said before the device is selected, behind those described";
}

// ---- where the walk begins

struct Place {
    const char* name;
    long stored;  ///< time of the newest stored record after midnight; -1 for no files
    int rec_num;  ///< that the header tells
    const char* position;
};

class VistPlace : public VistArchives, public ::testing::WithParamInterface<Place> {};

TEST_P(VistPlace, TheWalkBeginsTwoRecordsBeforeTheLastStoredOne) {
    if (GetParam().stored != -1) leave_record(Midnight + GetParam().stored - Hour);
    meter.claim_counts(sim::VistCounts{.held = static_cast<std::int16_t>(GetParam().rec_num), .newest = 9, .most = 99});
    start();
    pass();
    EXPECT_EQ(set_position(), GetParam().position);
    EXPECT_GT(meter.requests("/ARC/DLD +"), 0U) << "the walk goes on in any case";
}

std::string place_name(const ::testing::TestParamInfo<Place>& tested) {
    return tested.param.name;
}

// The oldest record of the ring is that of 01:00.
INSTANTIATE_TEST_SUITE_P(
    Places, VistPlace,
    ::testing::Values(Place{"NoFiles", -1, 10, "10"}, Place{"AtTheOldest", 1 * Hour, 10, "12"},
                      Place{"AnHourBeforeTheOldest", 0, 10, "10"}, Place{"HalfAnHourBeforeTheOldest", 1800, 10, "12"},
                      Place{"LongBeforeTheOldest", -40 * Hour, 10, "10"}, Place{"InTheMiddle", 5 * Hour, 10, "8"},
                      Place{"InTheMiddleOfAnHour", 5 * Hour + 3599, 10, "8"}, Place{"LastButOne", 9 * Hour, 10, "4"},
                      Place{"AtTheNewest", 10 * Hour, 10, "10"}, Place{"InTheFuture", 20 * Hour, 10, "10"},
                      Place{"NoneHeldFarOn", 5 * Hour, 0, "none"}, Place{"NoneHeldAtTheThird", 3 * Hour, 0, "none"},
                      Place{"NoneHeldAtTheSecond", 2 * Hour, 0, "1"}, Place{"NoneHeldAtTheOldest", 1 * Hour, 0, "2"},
                      // With one record nothing is above the limit: 474817 hours since the epoch, and three.
                      Place{"OneHeldAndNoFiles", -1, 1, "474820"}, Place{"OneHeldAtTheOldest", 1 * Hour, 1, "3"},
                      Place{"TwoHeldAtTheOldest", 1 * Hour, 2, "4"}, Place{"TwoHeldAtTheNext", 2 * Hour, 2, "2"},
                      Place{"FewerThanNoneHeld", 5 * Hour, -3, "none"}),
    place_name);

TEST_F(VistArchives, FilesOlderThanAllThatTheMeterHoldsAreFollowedByItsOldestRecord) {
    leave_record(Midnight - 30 * Hour);
    start();
    EXPECT_TRUE(pass());
    EXPECT_EQ(logged("perform: last_request_archive_data = 0"), 1);
    EXPECT_EQ(hours_filed(), "-29 1 2 3 4 5 6 7 8 9 10");
}

TEST_F(VistArchives, FilesThatEndAnHourBeforeTheOldestRecordAreNotOld) {
    leave_record(Midnight - Hour);
    start();
    EXPECT_TRUE(pass());
    EXPECT_EQ(logged("perform: last_request_archive_data = 0"), 0);
    EXPECT_EQ(hours_filed(), "0 1 2 3 4 5 6 7 8 9 10");
}

TEST_F(VistArchives, AMeterThatSaysItHoldsNothingIsReadFromItsOldestRecord) {
    leave_record(Midnight + 4 * Hour);
    meter.claim_counts(sim::VistCounts{});
    start();
    EXPECT_TRUE(pass());
    EXPECT_EQ(set_position(), "none");
    EXPECT_EQ(hours_filed(), "5 6 7 8 9 10");
}

TEST_F(VistArchives, OfAMeterWhosePlusStepsOnFirstTheOldestRecordIsNeverFiled) {
    meter.swap_for({.plus_starts_at_set = false});
    start();
    EXPECT_TRUE(pass());
    EXPECT_EQ(hours_filed(), "2 3 4 5 6 7 8 9 10");
    ASSERT_TRUE(pass_an_hour_later());
    EXPECT_EQ(hours_filed(), "2 3 4 5 6 7 8 9 10 11") << "later passes begin early enough";
}

// ---- when the walk ends

TEST_F(VistArchives, ARefusedNextRecordEndsTheWalkAndThePassIsWhole) {
    start();
    EXPECT_TRUE(pass());
    EXPECT_EQ(meter.requests("/ARC/DLD +"), 10U + 5U) << "five tries at the newest record";
    EXPECT_EQ(logged("Failure: next record request"), 1);
    EXPECT_EQ(logged("Archive retriving FAILED!14"), 1);
    EXPECT_EQ(commands().back(), "END");
    EXPECT_FALSE(meter.in_dialog());
}

TEST_F(VistArchives, APassIsWholeWhenTheRecordsEndOneHourBeforeTheHeader) {
    start(1, 9);
    EXPECT_TRUE(pass());
}

TEST_F(VistArchives, APassIsNotWholeWhenTheRecordsEndTwoHoursBeforeTheHeader) {
    start(1, 8);
    EXPECT_FALSE(pass());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8") << "but what was read stays";
    EXPECT_EQ(logged("difftime => -3600.000000"), 1);
}

TEST_F(VistArchives, AHoleEndsTheWalkAndTheRecordBehindItStaysUnread) {
    store_hours(1, 4);
    start(6, 10);
    EXPECT_FALSE(pass());
    EXPECT_EQ(hours_filed(), "1 2 3 4");
    EXPECT_EQ(commands().back(), "END");
    EXPECT_EQ(logged("flush archive data end: failure"), 1);
}

TEST_F(VistArchives, AHoleHoldsEveryLaterPassUntilTheOldestRecordHasMovedPastIt) {
    store_hours(1, 4);
    start(6, 10);
    EXPECT_FALSE(pass());
    EXPECT_FALSE(pass_an_hour_later());
    EXPECT_EQ(hours_filed(), "1 2 3 4");
    for (int hour = 1; hour <= 4; ++hour) meter.remove_record(Midnight + hour * Hour);
    EXPECT_TRUE(pass_an_hour_later());
    EXPECT_EQ(hours_filed(), "1 2 3 4 6 7 8 9 10 11 12");
}

}  // namespace
