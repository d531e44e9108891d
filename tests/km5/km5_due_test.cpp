// When a meter is polled: the interval, the force flag, the guard round the hour change of the meter's own clock.

#include <string>
#include <vector>

#include "support/configured.h"
#include "support/km5_scene.h"

namespace {

class Km5Due : public Km5Stand {
  protected:
    Km5Due() {
        machine.connect(Port, meter);
        start_driver();
    }

    /// The meter's clock shows this now.
    void show(const std::string& clock) { meter.set_clock(clock, machine.now()); }

    sim::Km5Meter meter;
};

TEST_F(Km5Due, AMeterIsDueAtTheFirstQuestion) {
    EXPECT_TRUE(driver->is_update_due());
    EXPECT_EQ(asked(requests()), (std::vector<std::vector<int>>{{44, 0}}));
    EXPECT_EQ(connected(), "(none)(none)(none)(none)(none)(none)") << "the probe is not published";
    EXPECT_EQ(logged("messages", "Time of hour border."), 1);
    EXPECT_EQ(logged_parts("messages", {"currentTime = ", ", timeOfHourBorder = 0"}), 1);
}

TEST_F(Km5Due, TheProbeTellsTheMetersClock) {
    show("2024-03-09 08:07:06");
    driver->is_update_due();
    EXPECT_EQ(logged("messages", "HeatMeter datetime => 9.3.2024 8:7:6"), 1);
}

TEST_F(Km5Due, AMeterIsDueAgainAfter360Seconds) {
    ASSERT_TRUE(driver->is_update_due());
    machine.sleep(359);
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_EQ(requests().size(), 1U) << "not probed before its time";
    machine.sleep(1);
    EXPECT_TRUE(driver->is_update_due());
}

TEST_F(Km5Due, AForceFlagCutsTheIntervalShortOnce) {
    ASSERT_TRUE(driver->is_update_due());
    machine.sleep(20);
    scene.touch("/tmp/tvk_force_update_m1");
    EXPECT_TRUE(driver->is_update_due());
    EXPECT_FALSE(scene.exists("/tmp/tvk_force_update_m1"));
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_EQ(requests().size(), 1U) << "a forced update is not probed for";
    EXPECT_EQ(logged("messages", "Force update!"), 1);
}

TEST_F(Km5Due, AForcedUpdateDoesNotBeginTheIntervalAnew) {
    ASSERT_TRUE(driver->is_update_due());
    machine.sleep(350);
    scene.touch("/tmp/tvk_force_update_m1");
    EXPECT_TRUE(driver->is_update_due());
    machine.sleep(12);
    EXPECT_TRUE(driver->is_update_due());
}

TEST_F(Km5Due, AForcedUpdateIsNotHeldBackByTheHourChange) {
    ASSERT_TRUE(driver->is_update_due());
    machine.sleep(10);
    show("2024-03-02 10:59:30");
    scene.touch("/tmp/tvk_force_update_m1");
    EXPECT_TRUE(driver->is_update_due());
}

TEST_F(Km5Due, TheForceFlagOfAnotherMeterOrOfTheArchivesForcesNothing) {
    ASSERT_TRUE(driver->is_update_due());
    scene.touch("/tmp/tvk_force_update_m2");
    scene.touch("/tmp/tvk_force_update_archives_m1");
    scene.touch("/tmp/tvk_force_update");
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_TRUE(scene.exists("/tmp/tvk_force_update_m2"));
}

TEST_F(Km5Due, AMeterIsDueInMinutes1To56OfItsHour) {
    for (int minute = 0; minute < 60; ++minute) {
        for (const char* second : {":00", ":57"}) {
            start_driver();
            show("2024-03-02 10:" + std::string(minute < 10 ? "0" : "") + std::to_string(minute) + second);
            EXPECT_EQ(driver->is_update_due(), minute >= 1 && minute <= 56) << minute << second;
        }
    }
}

TEST_F(Km5Due, AtThreeMinutesToTheHourTheNextProbeComes300SecondsLater) {
    show("2024-03-02 10:57:00");
    const std::time_t first = machine.now();
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_EQ(requests().size(), 1U);
    EXPECT_EQ(logged("messages", "Return false"), 1);
    while (!driver->is_update_due()) machine.sleep(10);
    EXPECT_NEAR(static_cast<double>(machine.now() - first), 305.0, 10.0);
    EXPECT_EQ(requests().size(), 2U) << "silence for 300 seconds";
}

TEST_F(Km5Due, InTheFirstMinuteOfTheHourTheNextProbeComes300SecondsLater) {
    show("2024-03-02 11:00:30");
    EXPECT_FALSE(driver->is_update_due());
    machine.sleep(299);
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_EQ(requests().size(), 1U);
    machine.sleep(1);
    EXPECT_TRUE(driver->is_update_due());
    EXPECT_EQ(requests().size(), 2U);
}

TEST_F(Km5Due, TheGuardGoesByTheMetersClockWhateverTheGatewaysShows) {
    machine.step_clock(54 * 60);  // 10:59 on the gateway, 10:05 at the meter
    EXPECT_TRUE(driver->is_update_due());
}

TEST_F(Km5Due, AMeterThatDoesNotAnswerTheProbeIsNotDueAndIsProbedAtTheNextQuestion) {
    meter.misbehave_next(42, sim::km5_silence());
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_EQ(requests().size(), 42U);
    EXPECT_TRUE(driver->is_update_due());
    EXPECT_EQ(connected(), "(none)(none)(none)(none)(none)(none)");
}

TEST_F(Km5Due, AProbeOfNonsenseMinutesKeepsTheGuard) {
    meter.misbehave_next(1, sim::km5_erased());
    EXPECT_FALSE(driver->is_update_due()) << "minute 165";
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_EQ(requests().size(), 1U);
}

TEST_F(Km5Due, WithoutASerialNumberAMeterIsNeverDue) {
    set_serial(*driver, 0);
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(driver->is_update_due());
        machine.sleep(400);
    }
    EXPECT_TRUE(requests().empty());
}

TEST_F(Km5Due, WithoutASerialNumberEvenAForceFlagIsLeftWhileTheIntervalIsOver) {
    set_serial(*driver, 0);
    scene.touch("/tmp/tvk_force_update_m1");
    EXPECT_FALSE(driver->is_update_due());
    EXPECT_TRUE(scene.exists("/tmp/tvk_force_update_m1"));
}

TEST_F(Km5Due, WhenTheGatewaysClockJumpsBackPollingStopsUntilItHasCaughtUp) {
    ASSERT_TRUE(driver->is_update_due());
    machine.step_clock(-3600);
    machine.sleep(400);
    EXPECT_FALSE(driver->is_update_due());
    machine.sleep(3000);
    EXPECT_FALSE(driver->is_update_due());
    scene.touch("/tmp/tvk_force_update_m1");
    EXPECT_TRUE(driver->is_update_due()) << "unless forced";
    machine.sleep(600);
    EXPECT_TRUE(driver->is_update_due());
}

TEST_F(Km5Due, WhenTheGatewaysClockJumpsAheadTheMeterIsDueAtOnce) {
    ASSERT_TRUE(driver->is_update_due());
    machine.step_clock(400);
    EXPECT_TRUE(driver->is_update_due());
}

TEST_F(Km5Due, AKm56iIsProbedAtTheSubsystemReadLast) {
    sim::Km5Meter i6({.serial = 22345678, .km56i = true, .subsystems = 3});
    machine.connect(Port, i6);
    start_driver({.serial = 22345678, .km56i = true, .systems = {"heat", "heat", "heat"}});
    driver->run_main();
    EXPECT_TRUE(driver->is_update_due());
    EXPECT_EQ(i6.heard().back().subsystem, 2U);
}

// ---- the time checks that stand ready

TEST_F(Km5Due, EventsWouldBeLookedForEveryHourWithoutACheckOfTheirOwn) {
    EXPECT_FALSE(driver->need_update_error_archives());
    machine.sleep(3600);
    EXPECT_FALSE(driver->need_update_error_archives());
    machine.sleep(1);
    EXPECT_TRUE(driver->need_update_error_archives());
    EXPECT_TRUE(driver->need_update_error_archives()) << "asking changes nothing";
    EXPECT_EQ(logged("messages", "Need update error archives"), 4);
}

TEST_F(Km5Due, CurrentValuesWouldBeLookedForAfterMoreThanTenSeconds) {
    EXPECT_TRUE(driver->need_update_current());
    machine.sleep(10);
    EXPECT_FALSE(driver->need_update_current());
    machine.sleep(1);
    EXPECT_TRUE(driver->need_update_current());
    EXPECT_FALSE(driver->need_update_current());
    EXPECT_EQ(logged("messages", "Need update current values? Yes"), 2);
    EXPECT_EQ(logged("messages", "Need update current values? No"), 2);
}

TEST_F(Km5Due, TheDescriptionWouldBeLookedForHourlyAndAllTheTimeWhileUnknown) {
    EXPECT_TRUE(driver->need_update_info());
    EXPECT_TRUE(driver->need_update_info());
    driver->getModel();
    EXPECT_TRUE(driver->need_update_info()) << "no firmware yet";
    const std::time_t last = machine.now();
    driver->get_version();
    machine.sleep(static_cast<unsigned>(last + 3600 - machine.now()));
    EXPECT_FALSE(driver->need_update_info());
    machine.sleep(1);
    EXPECT_TRUE(driver->need_update_info());
    EXPECT_FALSE(driver->need_update_info());
    EXPECT_EQ(logged("messages", "Need update info? Yes"), 4);
    EXPECT_EQ(logged("messages", "Need update info? No"), 2);
}

// ---- trails for debugging in the field

TEST_F(Km5Due, ATrailIsAppendedToTheStorage) {
    const std::string now = std::to_string(machine.now());
    driver->km5log("first");
    driver->km5log("second");
    EXPECT_EQ(scene.file("/mnt/storage/km5log"), now + " : first\n\n" + now + " : second\n\n")
        << "the text has a line end, and echo adds its own";
}

TEST_F(Km5Due, ATrailWithANumberIsAppendedToALogInTmp) {
    driver->km5trace("step", 7);
    EXPECT_EQ(scene.file("/tmp/log"), "step 7: " + std::to_string(machine.now()) + "\n\n");
}

}  // namespace
