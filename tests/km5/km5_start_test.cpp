// A new driver: what it is, what it logs, and how far it finds its meter read in the files.

#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

class Km5Start : public Km5Bench {
  protected:
    void lines(const std::string& name, const std::string& text, int n = 1) {
        scene.write("/mnt/storage/m1/" + std::to_string(n) + "/tc_archives/" + name, text);
    }
};

TEST_F(Km5Start, ADriverIsAKm5WithoutDescription) {
    start_driver();
    EXPECT_EQ(driver->get_log_name(), "KM5");
    EXPECT_EQ(driver->get_driver_type(), "KM5");
    EXPECT_EQ(driver->get_buffer_limit(), 768);
    EXPECT_EQ(driver->get_uuid(), Uuid);
    EXPECT_TRUE(driver->need_init());
    EXPECT_EQ(carried().meter.model, -1);
    EXPECT_EQ(carried().meter.version, -1.0F);
    EXPECT_FALSE(carried().meter.isATT);
    EXPECT_EQ(carried().subsystem, 0);
    EXPECT_EQ(carried().param_MDateTime, 0);
    for (int s = 0; s < 3; ++s) EXPECT_TRUE(progress(s).archives_ok);
    driver->on_tick(1);
}

TEST_F(Km5Start, TheModeOfAKm56iComesFromTheConstructor) {
    EXPECT_FALSE(KM5(Uuid, false, false).get_carried().meter.km56i_mode);
    EXPECT_TRUE(KM5(Uuid, true, false).get_carried().meter.km56i_mode);
}

TEST_F(Km5Start, ADriverHasThreeLogsAndTellsOfItsBirth) {
    start_driver();
    for (const char* kind : {"messages", "debug", "general"}) {
        EXPECT_TRUE(scene.exists(std::string("/tmp/uni_logs.m1.") + kind + ".txt"));
    }
    for (const char* kind : {"messages", "debug"}) {
        EXPECT_EQ(logged(kind, "subsystem_count = 0"), 1) << "the configuration is read later";
        EXPECT_GE(logged_parts(kind, {"KM5::set_tty, tty_fd = "}), 1);
    }
    EXPECT_GE(logged("messages", "KM5 driver creating."), 1);
    EXPECT_GE(logged("messages", "Forming driver names for OPC."), 1);
    EXPECT_EQ(state(), "Set uuid");
}

TEST_F(Km5Start, WithoutFilesNothingHasBeenRead) {
    start_driver();
    for (const char* line : {"last_request_HOUR[0] = 0", "last_request_DAY[1] = 0", "last_request_ERROR[2] = 0"}) {
        EXPECT_EQ(logged("general", line), 1) << line;
    }
}

TEST_F(Km5Start, AnyFileOfATotalTellsHowFarHourlyReadingHasCome) {
    for (const char* name : {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"}) {
        lines(name, "1709370000,192,1.000000\n");
        start_driver();
        EXPECT_EQ(progress().last_request_HOUR, 1709370000) << name;
        EXPECT_EQ(progress().last_request_DAY, 0);
        scene.remove(std::string("/mnt/storage/m1/1/tc_archives/") + name);
    }
}

TEST_F(Km5Start, FiveFilesTellHowFarDailyReadingHasCome) {
    for (const char* name : {"A29", "A32", "A34", "A40", "A42"}) {
        lines(name, "1709337600,192,1.000000\n");
        start_driver();
        EXPECT_EQ(progress().last_request_DAY, 1709337600) << name;
        EXPECT_EQ(progress().last_request_HOUR, 0);
        scene.remove(std::string("/mnt/storage/m1/1/tc_archives/") + name);
    }
}

TEST_F(Km5Start, OtherFilesTellNothing) {
    for (const char* name :
         {"A17", "A18", "A19", "A20", "A21", "A22", "A28", "A36", "A38", "A44", "A45", "A49", "A56", "IM1", "_A56"}) {
        lines(name, "1709370000,192,1.000000\n");
    }
    start_driver();
    EXPECT_EQ(progress().last_request_HOUR, 0);
    EXPECT_EQ(progress().last_request_DAY, 0);
    EXPECT_EQ(progress().last_request_ERROR, 0);
}

TEST_F(Km5Start, TheFileOfEventsTellsHowFarEventsHaveBeenRead) {
    lines("_A57", "1709370123,0,5.000000\n");
    start_driver();
    EXPECT_EQ(progress().last_request_ERROR, 1709370123);
    EXPECT_EQ(logged("general", "last_request_ERROR[0] = 1709370123"), 1);
}

TEST_F(Km5Start, TheGreatestTimeOfAllFilesCounts) {
    lines("A1", "1709370000,192,1.000000\n1709373600,192,1.000000\n1709366400,192,1.000000\n");
    lines("A12", "1709362800,192,1.000000\n");
    start_driver();
    EXPECT_EQ(progress().last_request_HOUR, 1709373600);
}

TEST_F(Km5Start, EachSubsystemIsResumedFromItsOwnFiles) {
    lines("A1", "1709370000,192,1.000000\n", 1);
    lines("A1", "1709366400,192,1.000000\n", 2);
    lines("A40", "1709337600,192,1.000000\n", 3);
    start_driver();
    for (const char* line :
         {"last_request_HOUR[0] = 1709370000", "last_request_HOUR[1] = 1709366400", "last_request_HOUR[2] = 0",
          "last_request_DAY[0] = 0", "last_request_DAY[1] = 0", "last_request_DAY[2] = 1709337600"}) {
        EXPECT_EQ(logged("general", line), 1) << line;
    }
}

TEST_F(Km5Start, FilesThatAreOlderThanWhatIsRememberedDoNotLowerIt) {
    leave_hours_until(1709373600);
    start_driver();
    scene.remove("/mnt/storage/m1/1/tc_archives/A16");
    lines("A1", "1709370000,192,1.000000\n");
    driver->set_uuid(Uuid);
    EXPECT_EQ(progress().last_request_HOUR, 1709373600);
    lines("A4", "1709377200,192,1.000000\n");
    driver->set_uuid(Uuid);
    EXPECT_EQ(progress().last_request_HOUR, 1709377200);
}

TEST_F(Km5Start, WhatIsNoLineTellsNothing) {
    lines("A1", std::string("1709370000,192,1.000000\n") + std::string(24, '\0') + "\n1809370000,192\nnonsense\n");
    start_driver();
    EXPECT_EQ(progress().last_request_HOUR, 1709370000);
}

TEST_F(Km5Start, StagedFilesTellNothing) {
    scene.write("/mnt/storage/m1/1/tmp_archives/A1", "1709370000,192,1.000000\n");
    start_driver();
    EXPECT_EQ(progress().last_request_HOUR, 0);
}

TEST_F(Km5Start, ARestartResumesFromTheFilesAlone) {
    sim::Km5Meter meter({.model = 2});
    meter.store_hourly({.at = "2024-03-02 09:00"});
    meter.store_daily({.at = "2024-03-02 00:00"});
    meter.store_event("2024-03-02 09:30", 0x81);
    start_described(meter);
    driver->get_archives(0);
    driver->get_archives(1);
    scene.clear_tmp();
    scene.make_tree(Uuid);
    machine.disconnect_all(Port);
    start_described(meter);
    EXPECT_EQ(progress().last_request_HOUR, 1709370000);
    EXPECT_EQ(progress().last_request_DAY, 1709337600);
    EXPECT_EQ(progress().last_request_ERROR, 1709371800);
    meter.store_hourly({.at = "2024-03-02 10:00"});
    driver->get_archives(0);
    driver->get_archives(1);
    EXPECT_EQ(archive("A12"), "1709370000,192,0.000000\n1709373600,192,0.000000\n");
    EXPECT_EQ(archive("A40"), "1709337600,192,0.000000\n");
    EXPECT_EQ(archive("_A57"), "1709371800,192,1.000000\n");
}

TEST_F(Km5Start, MonthlyAndYearlyReadingBeginsFromTheFirstRecordAfterEachRestart) {
    lines("IM1", "1709370000,192,1.000000\n");
    start_driver();
    EXPECT_EQ(progress().last_request_MONTH, 0);
    EXPECT_EQ(progress().last_request_YEAR, 0);
}

}  // namespace
