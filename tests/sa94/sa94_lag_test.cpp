// The archives behind the meter's clock, and the data service that is asked off the bus for their sake. 10:00 and 11:00
// are no third hours since the epoch, 12:00 is one.

#include <string>

#include "support/sa94_scene.h"

namespace {

class Sa94Lag : public Sa94Bench {
  protected:
    explicit Sa94Lag(const std::string& start = "2024-03-02 12:05:00") : Sa94Bench(start) {
        driver->meter_time = MeterTime;
        driver->LastTimestampHourly = MeterTime;
        driver->LastTimestampDaily = MeterTime;
    }
    std::string pause() const { return scene.file("/tmp/extds_pause").value_or("-"); }

    static constexpr std::time_t MeterTime = 1709380800;
};

TEST_F(Sa94Lag, HoursMayBeFourHoursBehind) {
    driver->LastTimestampHourly = MeterTime - 14400;
    EXPECT_FALSE(driver->checkArchiveLag());
    driver->LastTimestampHourly = MeterTime - 14401;
    EXPECT_TRUE(driver->checkArchiveLag());
}

TEST_F(Sa94Lag, DaysMayBeADayBehind) {
    driver->LastTimestampDaily = MeterTime - 86400;
    EXPECT_FALSE(driver->checkArchiveLag());
    driver->LastTimestampDaily = MeterTime - 86401;
    EXPECT_TRUE(driver->checkArchiveLag());
}

TEST_F(Sa94Lag, EventsMayBeAnyTimeBehind) {
    driver->LastTimestampError = 0;
    EXPECT_FALSE(driver->checkArchiveLag());
}

TEST_F(Sa94Lag, ArchivesAheadOfTheMetersClockAreNotBehind) {
    driver->LastTimestampHourly = MeterTime + 1000000;
    driver->LastTimestampDaily = MeterTime + 1000000;
    EXPECT_FALSE(driver->checkArchiveLag());
}

TEST_F(Sa94Lag, TheMetersClockCountsNotTheGateways) {
    machine.sleep(1000000);
    EXPECT_FALSE(driver->checkArchiveLag());
}

TEST_F(Sa94Lag, InAThirdHourALagPausesTheService) {
    driver->LastTimestampDaily = 0;
    driver->checkArchiveLag();
    EXPECT_EQ(pause(), "7200");
}

TEST_F(Sa94Lag, WithoutALagThePauseIsOver) {
    scene.write("/tmp/extds_pause", "55");
    driver->checkArchiveLag();
    EXPECT_EQ(pause(), "-");
}

class Sa94LagInAnotherHour : public Sa94Lag {
  protected:
    Sa94LagInAnotherHour() : Sa94Lag("2024-03-02 11:59:00") {}
};

TEST_F(Sa94LagInAnotherHour, ALagLeavesThePauseAsItIs) {
    driver->LastTimestampDaily = 0;
    EXPECT_TRUE(driver->checkArchiveLag());
    EXPECT_EQ(pause(), "-");
    scene.write("/tmp/extds_pause", "55");
    EXPECT_TRUE(driver->checkArchiveLag());
    EXPECT_EQ(pause(), "55");
}

TEST_F(Sa94LagInAnotherHour, WithoutALagThePauseIsOverInEveryHour) {
    scene.write("/tmp/extds_pause", "55");
    EXPECT_FALSE(driver->checkArchiveLag());
    EXPECT_EQ(pause(), "-");
}

// ---- within a pass

class Sa94PassInAThirdHour : public Sa94Bench {
  protected:
    Sa94PassInAThirdHour() : Sa94Bench("2024-03-02 12:05:00") {
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
