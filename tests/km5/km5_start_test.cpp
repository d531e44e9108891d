// A new driver: what it is, what it logs, and how far it finds its meter read in the files.

#include <algorithm>
#include <string>

#include "support/km5_scene.h"

namespace {

class Km5Start : public Km5Stand {};

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

TEST_F(Km5Start, FilesOfTotalsAndOfEventsTellHowFarReadingHasCome) {
    const Texts hourly = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};
    const Texts daily = {"A29", "A32", "A34", "A40", "A42"};
    const auto holds = [](const Texts& names, const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    Texts names = {"IM1", "_A56", "_A57"};
    for (int i = 1; i <= 57; ++i) names.push_back("A" + std::to_string(i));
    for (const std::string& name : names) {
        leave_archive(name, "1709370123,192,1.000000\n");
        start_driver();
        EXPECT_EQ(progress().last_request_HOUR, holds(hourly, name) ? 1709370123 : 0) << name;
        EXPECT_EQ(progress().last_request_DAY, holds(daily, name) ? 1709370123 : 0) << name;
        EXPECT_EQ(progress().last_request_ERROR, name == "_A57" ? 1709370123 : 0) << name;
        EXPECT_EQ(progress().last_request_MONTH + progress().last_request_YEAR, 0) << name;
        scene.remove("/mnt/storage/m1/1/tc_archives/" + name);
    }
}

TEST_F(Km5Start, TheGreatestTimeOfAllFilesCounts) {
    leave_archive("A1", "1709370000,192,1.000000\n1709373600,192,1.000000\n1709366400,192,1.000000\n");
    leave_archive("A12", "1709362800,192,1.000000\n");
    start_driver();
    EXPECT_EQ(progress().last_request_HOUR, 1709373600);
}

TEST_F(Km5Start, EachSubsystemIsResumedFromItsOwnFiles) {
    leave_archive("A1", "1709370000,192,1.000000\n", 1);
    leave_archive("A1", "1709366400,192,1.000000\n", 2);
    leave_archive("A40", "1709337600,192,1.000000\n", 3);
    leave_archive("_A57", "1709366399,0,5.000000\n", 2);
    start_driver();
    for (const char* line : {"last_request_HOUR[0] = 1709370000", "last_request_HOUR[1] = 1709366400",
                             "last_request_HOUR[2] = 0", "last_request_DAY[0] = 0", "last_request_DAY[1] = 0",
                             "last_request_DAY[2] = 1709337600", "last_request_ERROR[1] = 1709366399"}) {
        EXPECT_EQ(logged("general", line), 1) << line;
    }
}

TEST_F(Km5Start, FilesThatAreOlderThanWhatIsRememberedDoNotLowerIt) {
    leave_hours_until(1709373600);
    start_driver();
    scene.remove("/mnt/storage/m1/1/tc_archives/A16");
    leave_archive("A1", "1709370000,192,1.000000\n");
    driver->set_uuid(Uuid);
    EXPECT_EQ(progress().last_request_HOUR, 1709373600);
    leave_archive("A4", "1709377200,192,1.000000\n");
    driver->set_uuid(Uuid);
    EXPECT_EQ(progress().last_request_HOUR, 1709377200);
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

}  // namespace
