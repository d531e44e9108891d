// The archives behind the meter's clock, and the data service that is asked off the bus for their sake. 10:00 and 11:00
// are no third hours since the epoch, 12:00 is one.

#include <string>

#include "support/sa94_scene.h"

namespace {

class Sa94Lag : public Sa94Stand {
  protected:
    explicit Sa94Lag(const std::string& start = "2024-03-02 12:05:00") : Sa94Stand(start) {}

    void show_clock(std::uint8_t day, std::uint8_t month, std::uint8_t year) {
        meter.put_parameter(10, {0x00, 0x12, 0x00, 0x00});
        meter.put_parameter(11, {0x00, day, month, year});
        driver->getCurrentParameters();
    }
    /// Whether archives that end so many seconds before the meter's clock are behind it.
    bool lags(std::time_t hourly, std::time_t daily, std::time_t errors = 0) {
        resume(MeterTime - hourly, MeterTime - daily, MeterTime - errors);
        identify(3);
        const double before = machine.seconds();
        show_clock(0x02, 0x03, 0x24);
        machine.step_clock(before - machine.seconds());
        return driver->checkArchiveLag();
    }
    std::string pause() const { return scene.file("/tmp/extds_pause").value_or("-"); }

    static constexpr std::time_t MeterTime = 1709380800;  // 2024-03-02 12:00 UTC
};

TEST_F(Sa94Lag, HoursMayBeFourHoursBehindAndDaysADayAndEventsAnyTime) {
    EXPECT_FALSE(lags(14400, 0));
    EXPECT_TRUE(lags(14401, 0));
    EXPECT_FALSE(lags(0, 86400));
    EXPECT_TRUE(lags(0, 86401));
    EXPECT_FALSE(lags(0, 0, 30000000));
    EXPECT_FALSE(lags(-1000000, -1000000)) << "ahead of the meter's clock is not behind";
}

TEST_F(Sa94Lag, TheMetersClockCountsNotTheGateways) {
    EXPECT_FALSE(lags(0, 0));
    machine.sleep(1000000);
    EXPECT_FALSE(driver->checkArchiveLag());
}

TEST_F(Sa94Lag, AClockThatShowsNoTimeLeavesTheLagOfTheTimeBefore) {
    for (const bool lag : {false, true}) {
        EXPECT_EQ(lags(lag ? 14401 : 0, 0), lag);
        show_clock(0xFF, 0xFF, 0xFF);
        EXPECT_EQ(driver->checkArchiveLag(), lag);
    }
}

TEST_F(Sa94Lag, InAThirdHourALagPausesTheService) {
    EXPECT_TRUE(lags(14401, 0));
    EXPECT_EQ(pause(), "7200");
    EXPECT_FALSE(lags(0, 0));
    EXPECT_EQ(pause(), "-") << "without a lag the pause is over";
}

class Sa94LagInAnotherHour : public Sa94Lag {
  protected:
    Sa94LagInAnotherHour() : Sa94Lag("2024-03-02 11:59:00") {}
};

TEST_F(Sa94LagInAnotherHour, ALagLeavesThePauseAsItIsAndItIsOverWithoutOne) {
    EXPECT_TRUE(lags(14401, 0));
    EXPECT_EQ(pause(), "-");
    scene.write("/tmp/extds_pause", "55");
    EXPECT_TRUE(driver->checkArchiveLag());
    EXPECT_EQ(pause(), "55");
    EXPECT_FALSE(lags(0, 0));
    EXPECT_EQ(pause(), "-");
}

// ---- within a pass

class Sa94PassInAThirdHour : public Sa94Stand {
  protected:
    Sa94PassInAThirdHour() : Sa94Stand("2024-03-02 12:05:00") {
        meter.put_firmware("M300");
        meter.put_parameter(10, {0x00, 0x12, 0x04, 0x58});
        meter.put_parameter(11, {0x00, 0x02, 0x03, 0x24});
    }
};

TEST_F(Sa94PassInAThirdHour, APassLooksForALagBetweenParametersAndArchives) {
    std::string at_archives;
    machine.sleep(601);
    meter.listener = [&](const std::string& request) {
        if (request == "8C") at_archives = scene.file("/tmp/extds_pause").value_or("none yet");
        if (request == "A6 02") at_archives += ", then " + scene.file("/tmp/extds_pause").value_or("-");
    };
    driver->run_main();
    EXPECT_EQ(at_archives, "none yet, then 7200");
}

TEST_F(Sa94PassInAThirdHour, AMeterWithoutAClockHasNoLag) {
    meter.put_firmware("M411");
    scene.write("/tmp/extds_pause", "55");
    driver->run_main();
    EXPECT_FALSE(scene.exists("/tmp/extds_pause"));
}

}  // namespace
