// One pass over a meter: its stages, what is due, the data service on the bus, the wait for the next pass.

#include <string>
#include <vector>

#include "support/configured.h"
#include "support/machines.h"
#include "support/sa94_scene.h"

namespace {

/// All values that an item is given, in a row.
class ItemTrail : public FileTrail {
  public:
    using FileTrail::FileTrail;

    std::string values() const {
        std::string all;
        for (const std::string& text : texts()) all += text.substr(0, text.size() - 1);
        return all;
    }
};

/// A meter of firmware 10 with empty archives, read at 10:05.
class Sa94Cycle : public Sa94Stand {
  protected:
    explicit Sa94Cycle(const std::string& start = "2024-03-02 10:05:00") : Sa94Stand(start) {
        meter.put_firmware("M300");
        meter.put_tubes({2, 3, 4}, {2, 3, 4});
        meter.put_parameter(10, {0x00, 0x10, 0x04, 0x58});
        meter.put_parameter(11, {0x00, 0x02, 0x03, 0x24});
        clear_logs();
    }

    /// Each value that a pass gives to `_DriverStatus`.
    std::string stages_of_a_pass() {
        const ItemTrail trail("/tmp/m1/1/tc_items/_DriverStatus");
        driver->run_main();
        return trail.values();
    }
    /// The blocks that were asked for beyond those of the description.
    Texts blocks_sent() const {
        Texts blocks;
        for (const std::string& request : sent()) {
            if (request.size() == 5 && request[0] == 'A' && request[1] != '0') blocks.push_back(request);
        }
        return blocks;
    }
};

// ---- a pass

TEST_F(Sa94Cycle, APassReadsDescriptionThenParametersThenWaits) {
    driver->run_main();
    const Texts wanted = {Connect, ReadFirmware, Disconnect, Connect, ReadTubes, Disconnect, Connect, Disconnect,
                          Connect, "80",         "81",       "82",    "83",      "84",       "85",    "87",
                          "88",    "89",         "8A",       "8B",    "8C",      Disconnect};
    EXPECT_EQ(sent(), wanted) << "the archives are not due yet";
    EXPECT_EQ(item("_DriverStatus"), "6");
    EXPECT_EQ(item("MDateTime"), "1709373898");
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Cycle, APassIsToldInTheMessages) {
    driver->run_main();
    const auto told = log("messages");
    ASSERT_GE(told.size(), 3U);
    EXPECT_EQ(told[0], "Start main iteration");
    EXPECT_EQ(told[1], "Start get description..");
    EXPECT_TRUE(logged_in_order("messages", {"Start get description..", "Start Get Firmware", "Start get Status",
                                             "getDescription = Success", "Get Current Parameters"}));
    EXPECT_EQ(logged("messages", "Need update archives HOURLY_DB"), 0);
}

TEST_F(Sa94Cycle, ErrorsThenHoursThenDaysAreReadWhenTheyAreDue) {
    machine.sleep(601);
    driver->run_main();
    // Each archive is empty: the starts of both its segments, then the erased block of the high one.
    EXPECT_EQ(blocks_sent(), (Texts{"A6 02", "A7 02", "A7 02", "A2 00", "A3 00", "A3 00", "A4 00", "A5 00", "A5 00"}));
    for (const char* kind : {"messages", "debug"}) {
        EXPECT_EQ(logged(kind, "Need update archives HOURLY_DB"), 1);
        EXPECT_EQ(logged(kind, "Need update archives DAILY_DB"), 1);
    }
    EXPECT_TRUE(logged_in_order("messages", {"Get Current Parameters", "Need update archives HOURLY_DB", "ERROR_DB",
                                             "HOURLY_DB", "Need update archives DAILY_DB", "DAILY_DB"}));
}

TEST_F(Sa94Cycle, TheStatusItemFollowsTheStages) {
    EXPECT_EQ(stages_of_a_pass(), "0126");
    machine.sleep(300);
    EXPECT_EQ(stages_of_a_pass(), "0125346");
}

TEST_F(Sa94Cycle, APassThatFailsHasThreeStages) {
    meter.put_firmware("M999");
    EXPECT_EQ(stages_of_a_pass(), "016");
}

TEST_F(Sa94Cycle, ArchivesAreReadAgainAfterMoreThanAnHour) {
    machine.sleep(601);
    driver->run_main();
    meter.heard.clear();
    driver->run_main();
    EXPECT_TRUE(blocks_sent().empty());
    machine.sleep(3601);
    driver->run_main();
    EXPECT_EQ(blocks_sent().size(), 9U);
}

TEST_F(Sa94Cycle, TheFirstArchivesAreReadInTheThirdPass) {
    // As the process does it: a pass, five seconds, a pass.
    machine.run_for(1200, [this] {
        for (;;) {
            driver->run_main();
            machine.sleep(5);
        }
    });
    EXPECT_EQ(logged("messages", "Need update archives HOURLY_DB"), 1);
    EXPECT_EQ(logged("messages", "Start main iteration"), 4) << "about every six minutes";
    EXPECT_TRUE(logged_in_order("messages", {"Start main iteration", "Start main iteration", "Start main iteration",
                                             "Need update archives HOURLY_DB", "Start main iteration"}));
}

TEST_F(Sa94Cycle, ASilentMeterEndsThePassAtOnce) {
    machine.disconnect_all(Port);
    machine.sleep(601);
    const double before = machine.seconds();
    driver->run_main();
    EXPECT_EQ(machine.exchanges().size(), 24U);
    EXPECT_NEAR(machine.seconds() - before, 24 * 0.9, 1.0) << "no wait";
    EXPECT_EQ(item("_DriverStatus"), "6");
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(logged("messages", "getDescription = Failure"), 1);
    EXPECT_EQ(logged("messages", "Get Current Parameters"), 0);
}

TEST_F(Sa94Cycle, AnUnknownFirmwareEndsThePassAtOnce) {
    meter.put_firmware("M999");
    machine.sleep(601);
    driver->run_main();
    EXPECT_EQ(sent(), (Texts{Connect, ReadFirmware, Disconnect}));
    EXPECT_EQ(item("_Firmware"), "Unknown");
    EXPECT_EQ(item("_DriverStatus"), "6");
    EXPECT_EQ(logged("messages", "getDescription = Failure"), 1);
}

TEST_F(Sa94Cycle, TheDueTimeIsNotUsedUpByAPassThatFails) {
    meter.put_firmware("M999");
    machine.sleep(601);
    driver->run_main();
    meter.put_firmware("M300");
    driver->run_main();
    EXPECT_EQ(logged("messages", "Need update archives HOURLY_DB"), 1);
}

TEST_F(Sa94Cycle, AFailedArchiveWaitsForItsNextTurn) {
    meter.be_deaf_to("A2 00");
    machine.sleep(601);
    driver->run_main();
    EXPECT_EQ(sent_times("A2 00"), 24);
    EXPECT_EQ(blocks_sent().back(), "A5 00") << "the next archive is read all the same";
    meter.heard.clear();
    driver->run_main();
    EXPECT_TRUE(blocks_sent().empty());
}

TEST_F(Sa94Cycle, AnotherMeterOnTheLineIsRecognisedInTheNextPass) {
    driver->run_main();
    EXPECT_EQ(item("MeterModel"), "SA94/2M");
    meter.put_firmware("M461-m");
    meter.status = 0x54;
    driver->run_main();
    EXPECT_EQ(item("MeterModel"), "SA94/3A");
    EXPECT_EQ(item("IQ1"), "0.000000") << "by its own status";
}

TEST_F(Sa94Cycle, AFirmwareWithoutAnyRowGivesEventsOnly) {
    meter.put_firmware("M411");  // long segments
    meter.put_block(6, 2,
                    Sa94Bytes(128, 0xFF).record(0, Sa94Bytes(8).put(0, {5}).date(2, 3, 24).clock(8, 0, 0)).bytes());
    meter.put_block(2, 0, Sa94Bytes(128, 0xFF).record(0, Sa94Bytes(64).date(2, 3, 24).hour(8)).bytes());
    machine.sleep(601);
    driver->run_main();
    EXPECT_EQ(archive_names(), Texts{"_A57"});
    EXPECT_EQ(item("MDateTime"), "(none)");
    EXPECT_EQ(driver->progress().LastTimestampHourly, 0);
    EXPECT_EQ(driver->progress().LastTimestampError, 1709366400);
    EXPECT_EQ(item("_DriverStatus"), "6");
}

// ---- what is due

TEST_F(Sa94Cycle, ArchivesAreDueWhenMoreThanAnHourIsOverEachForItself) {
    machine.sleep(700);
    EXPECT_TRUE(driver->needUpdateArchives(0));
    EXPECT_EQ(driver->progress().last_update_hourly, machine.now());
    machine.sleep(100);
    EXPECT_TRUE(driver->needUpdateArchives(1));
    EXPECT_EQ(driver->progress().last_update_hourly, machine.now() - 100);
    EXPECT_EQ(driver->progress().last_update_daily, machine.now());
    machine.sleep(3500);
    EXPECT_FALSE(driver->needUpdateArchives(0)) << "exactly an hour";
    machine.sleep(1);
    EXPECT_TRUE(driver->needUpdateArchives(0));
    EXPECT_FALSE(driver->needUpdateArchives(0));
    EXPECT_FALSE(driver->needUpdateArchives(1));
}

TEST_F(Sa94Cycle, TheFirstArchivesAreDueTenMinutesAfterTheStart) {
    machine.sleep(600);
    EXPECT_FALSE(driver->needUpdateArchives(0));
    EXPECT_FALSE(driver->needUpdateArchives(1));
    machine.sleep(1);
    EXPECT_TRUE(driver->needUpdateArchives(0));
    EXPECT_TRUE(driver->needUpdateArchives(1));
}

TEST_F(Sa94Cycle, AnyOtherArchiveIsAlwaysDue) {
    for (const int type : {-1, 2, 3, 4, 99}) {
        EXPECT_TRUE(driver->needUpdateArchives(type)) << type;
        EXPECT_TRUE(driver->needUpdateArchives(type)) << type;
    }
}

// ---- the wait

TEST_F(Sa94Cycle, TheWaitLastsSixMinutesInStepsOfTwoSeconds) {
    driver->waitNextPass();
    // The clock is read before a step, so the step behind the 360th second is taken as well.
    EXPECT_EQ(machine.sleeps(), std::vector<unsigned>(181, 2));
}

TEST_F(Sa94Cycle, AForceFlagAtTheStartEndsTheWaitAtOnce) {
    scene.touch("/tmp/tvk_force_update_m1");
    driver->waitNextPass();
    EXPECT_TRUE(machine.sleeps().empty());
    EXPECT_FALSE(scene.exists("/tmp/tvk_force_update_m1"));
}

TEST_F(Sa94Cycle, AForceFlagCutsTheWait) {
    machine.at(51, [this] { scene.touch("/tmp/tvk_force_update_m1"); });
    driver->waitNextPass();
    EXPECT_EQ(machine.sleeps().size(), 26U);
    EXPECT_FALSE(scene.exists("/tmp/tvk_force_update_m1"));
}

TEST_F(Sa94Cycle, FlagsOfOthersDoNotCutTheWait) {
    for (const char* flag :
         {"/tmp/tvk_force_update_m2", "/tmp/tvk_force_update_archives_m1", "/tmp/tvk_force_update"}) {
        scene.touch(flag);
    }
    driver->waitNextPass();
    EXPECT_EQ(machine.sleeps().size(), 181U);
    EXPECT_TRUE(scene.exists("/tmp/tvk_force_update_archives_m1"));
}

TEST_F(Sa94Cycle, AForcedPassDoesNotMakeArchivesDue) {
    scene.touch("/tmp/tvk_force_update_m1");
    driver->run_main();
    driver->run_main();
    EXPECT_TRUE(blocks_sent().empty());
}

TEST_F(Sa94Cycle, AClockThatIsSetBackMakesTheWaitLonger) {
    machine.at(100, [this] { machine.step_clock(-50); });
    driver->waitNextPass();
    EXPECT_NEAR(elapsed() + 50, 362 + 50, 3) << "six minutes by the machine's own clock";
}

// ---- pauses of the bus

TEST_F(Sa94Cycle, ThePauseFlagOfTheSystemHoldsAPassAndTheOtherDoesNot) {
    set_pause_flag(*driver, true);
    scene.touch("/tmp/pause_tvk");
    scene.touch("/tmp/pause_tvk_all");
    machine.at(35, [this] {
        EXPECT_TRUE(sent().empty());
        scene.remove("/tmp/pause_tvk_all");
    });
    driver->run_main();
    EXPECT_FALSE(sent().empty());
    EXPECT_TRUE(scene.exists("/tmp/pause_tvk"));
    EXPECT_EQ(std::vector<unsigned>(machine.sleeps().begin(), machine.sleeps().begin() + 5),
              (std::vector<unsigned>{10, 10, 10, 10, 2}));
}

}  // namespace
