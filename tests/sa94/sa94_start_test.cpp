// A new driver: what it is, what it logs, and how far it finds its meter read in the files.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

constexpr std::time_t Now = 1709373900;  // 2024-03-02 10:05 UTC
constexpr std::time_t Hour = 3600;
constexpr std::time_t Day = 86400;

class Sa94Start : public Sa94Stand {
  protected:
    using Sa94Stand::Sa94Stand;

    /// A file with one line of this time.
    void stored(const std::string& name, std::time_t time) {
        leave_archive(name, std::to_string(time) + ",192,1.000000\n");
    }
    void nothing_stored() {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
    }
};

TEST_F(Sa94Start, ADriverKnowsNothingOfItsMeterYet) {
    EXPECT_EQ(driver->get_driver_type(), "SA94");
    EXPECT_EQ(driver->get_buffer_limit(), 768);
    EXPECT_EQ(driver->get_uuid(), Uuid);
    EXPECT_EQ(driver->get_log_name(), "NO_DRIVER_NAME");
    EXPECT_FALSE(driver->need_init());
    EXPECT_TRUE(driver->is_all_archives_ok());
    EXPECT_EQ(driver->progress().dPrevE, 0.0);
    EXPECT_EQ(driver->progress().hPrevE, 0.0);
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(items(), Texts{}) << "nothing is published";
}

TEST_F(Sa94Start, TheArchivesAreDueFiftyMinutesEarlierTheFirstTime) {
    EXPECT_EQ(driver->progress().last_update_hourly, Now - 3000);
    EXPECT_EQ(driver->progress().last_update_daily, Now - 3000);
}

TEST_F(Sa94Start, ADriverHasThreeLogs) {
    EXPECT_EQ(scene.list("/tmp"),
              (Texts{"m1", "uni_logs.m1.debug.txt", "uni_logs.m1.general.txt", "uni_logs.m1.messages.txt"}));
    EXPECT_TRUE(log("messages").empty());
    EXPECT_TRUE(log("debug").empty());
}

TEST_F(Sa94Start, ADriverTellsOfItsBirth) {
    const auto told = log("general");
    ASSERT_GE(told.size(), 2U);
    EXPECT_EQ(told[0], "SA94::SA94");
    EXPECT_EQ(told[1], "UUID = m1");
    EXPECT_EQ(logged_start("general", "Last update hourly db : Sat Mar  2 09:15:00 2024"), 1);
    EXPECT_EQ(logged_start("general", "Last update daily db : Sat Mar  2 09:15:00 2024"), 1);
    EXPECT_EQ(logged_start("general", "Last timestamp for DAILY_DB: 0 => Thu Jan  1 00:00:00 1970"), 1);
    EXPECT_EQ(logged_start("general", "Last timestamp for HOURLY_DB: 0 => Thu Jan  1 00:00:00 1970"), 1);
    EXPECT_EQ(logged_start("general", "Last timestamp for ERROR_DB: 0 => Thu Jan  1 00:00:00 1970"), 1);
}

TEST_F(Sa94Start, TheLastTimesAreToldDailyHourlyErrors) {
    stored("A29", Now - Day);
    stored("A2", Now - Hour);
    stored("_A57", Now - 60);
    start_driver();
    EXPECT_EQ(logged_start("general", "Last timestamp for DAILY_DB: 1709201100 => Thu Feb 29 10:05:00 2024"), 1);
    EXPECT_EQ(logged_start("general", "Last timestamp for HOURLY_DB: 1709370300 => Sat Mar  2 09:05:00 2024"), 1);
    EXPECT_EQ(logged_start("general", "Last timestamp for ERROR_DB: 1709373840 => Sat Mar  2 10:04:00 2024"), 1);
    Texts order;
    for (const std::string& line : log("general")) {
        if (line.starts_with("Last ")) order.push_back(line.substr(0, line.find(':')));
    }
    EXPECT_EQ(order, (Texts{"Last update hourly db ", "Last update daily db ", "Last timestamp for DAILY_DB",
                            "Last timestamp for HOURLY_DB", "Last timestamp for ERROR_DB"}));
}

// ---- resuming

TEST_F(Sa94Start, WithoutFilesNothingHasBeenRead) {
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
    EXPECT_EQ(driver->progress().LastTimestampDaily, 0);
    EXPECT_EQ(driver->progress().LastTimestampError, 0);
}

TEST_F(Sa94Start, EachOfSixteenFilesTellsHowFarHourlyReadingHasCome) {
    for (int number = 1; number <= 16; ++number) {
        const bool total =
            number == 1 || (number >= 4 && number % 2 == 0);  // dated by the end of its hour: A1, A4, A6 ... A16
        nothing_stored();
        stored("A" + std::to_string(number), Now);
        start_driver();
        EXPECT_EQ(driver->progress().LastTimestampHourly, total ? Now - Hour : Now) << number;
        EXPECT_EQ(driver->progress().LastTimestampDaily, 0) << number;
    }
}

TEST_F(Sa94Start, EachOfFiveFilesTellsHowFarDailyReadingHasCome) {
    for (const char* name : {"A29", "A32", "A34", "A40", "A42"}) {
        nothing_stored();
        stored(name, Now);
        start_driver();
        EXPECT_EQ(driver->progress().LastTimestampDaily, Now - Day) << name;
        EXPECT_EQ(driver->progress().LastTimestampHourly, 0) << name;
    }
}

TEST_F(Sa94Start, OtherFilesTellNothing) {
    for (const char* name : {"A17", "A18", "A22", "A28", "_A20", "_A21", "A30", "A31", "A33", "A35", "A36", "A38",
                             "A44", "_A48", "_A49", "A50", "A57", "_hPrevE", "M1"}) {
        stored(name, Now);
    }
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
    EXPECT_EQ(driver->progress().LastTimestampDaily, 0);
    EXPECT_EQ(driver->progress().LastTimestampError, 0);
}

TEST_F(Sa94Start, ErrorsHaveAFileOfTheirOwn) {
    stored("_A57", Now);
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampError, Now);
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
}

TEST_F(Sa94Start, TheNewestLineOfTheNewestFileCounts) {
    leave_archive("A2", "1709366400,192,1.000000\n1709370000,192,1.000000\n1709362800,192,1.000000\n");
    stored("A3", 1709362800);
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampHourly, 1709370000);
}

TEST_F(Sa94Start, ATotalAndAMeanOfTheSameRecordAgree) {
    stored("A1", 1709373600);  // by the end of its hour
    stored("A3", 1709370000);  // by the start
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampHourly, 1709370000);
}

TEST_F(Sa94Start, ATotalIsComparedAsItStandsAndTakenAnHourEarlier) {
    // A2 is newer than the total by half an hour; the total's own time is newer than A2's, and its record is not.
    stored("A2", Now - Hour / 2);
    stored("A4", Now);
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampHourly, Now - Hour) << "earlier than A2";
}

TEST_F(Sa94Start, ALaterFileMayTakeTheTimeOfAnEarlierOneBack) {
    stored("A40", Now);
    stored("A42", Now - Day / 2);
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampDaily, Now - Day / 2 - Day);
}

TEST_F(Sa94Start, ATimeEqualToTheOneSoFarChangesNothing) {
    stored("A3", Now);
    stored("A4", Now);
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampHourly, Now);
}

TEST_F(Sa94Start, OtherSubsystemsAndStagedFilesTellNothing) {
    scene.write("/mnt/storage/m1/2/tc_archives/A3", "1709370000,192,1.000000\n");
    scene.write("/mnt/storage/m1/1/tmp_archives/A3", "1709370000,192,1.000000\n");
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
}

TEST_F(Sa94Start, TheLastEnergyComesFromItsFiles) {
    leave_archive("_hPrevE", "1234.500000");
    leave_archive("_dPrevE", "77.250000");
    start_driver();
    EXPECT_EQ(driver->progress().hPrevE, 1234.5);
    EXPECT_EQ(driver->progress().dPrevE, 77.25);
}

TEST_F(Sa94Start, ARestartGoesOnWhereTheFilesEnd) {
    identify(10);
    const SA94Request request = sa94_bytes::reply_of(
        {Sa94Bytes(32).date(2, 3, 24).hour(8).real(28, 5.5F), Sa94Bytes(32).date(2, 3, 24).hour(9).real(28, 6.5F)});
    int position = 0;
    std::time_t newest = 0;
    driver->parseBlock(0, request, position, newest);
    start_driver();
    EXPECT_EQ(driver->progress().LastTimestampHourly, newest);
    EXPECT_EQ(driver->progress().hPrevE, 6.5);
    identify(10);
    position = 1;
    EXPECT_FALSE(driver->parseBlock(0, request, position, newest)) << "stored already";
}

}  // namespace
