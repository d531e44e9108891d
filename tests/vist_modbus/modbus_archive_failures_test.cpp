// When the archive is due, and what can go wrong in the walk through it.

#include <string>
#include <vector>

#include "support/modbus_scene.h"

namespace {

constexpr std::time_t Ten = 1709373600;  // 2024-03-02 10:00:00, the time of the header
constexpr std::time_t Hour = 3600;

class ModbusArchiveFailure : public ModbusStand {
  protected:
    ModbusArchiveFailure() {
        for (int k = 10; k > 0; --k) meter.store_hourly({.at = Ten - k * Hour});
        machine.connect(Port, meter);
        start_driver();
        run();
        meter.forget_requests();
    }
    bool pass() {
        bool good = false;
        quietly([&] { good = driver->get_archive(0); });
        return good;
    }
    int records_filed() const { return static_cast<int>(lines_in("tmp_archives")["A5"].size()); }
    std::size_t readings(std::uint16_t place) const { return meter.requests({.function = 20, .record = place}); }
    sim::ModbusFault at_record(sim::ModbusFault fault, std::uint16_t place) const {
        return fault.on({.function = 20, .address = 0, .record = place});
    }

    sim::ModbusVistMeter meter{{.serial = Serial}};
};

TEST_F(ModbusArchiveFailure, AHeaderThatDoesNotComeInThirtyTriesEndsThePass) {
    meter.misbehave_next(30, at_record(sim::modbus_silence(), 0));
    EXPECT_FALSE(pass());
    EXPECT_EQ(meter.requests({.function = 20}), 30U);
    EXPECT_EQ(logged_start("FAIL on 0 request. Over. fd = "), 1);
    EXPECT_EQ(logged_start("Archive specs: "), 0);
    EXPECT_EQ(logged("Determine get_archive() end.. "), 0);
    EXPECT_TRUE(lines_in("tmp_archives").empty());
    EXPECT_TRUE(pass());
}

TEST_F(ModbusArchiveFailure, ARecordWithAWrongSumIsAskedForUpToFiveTimes) {
    meter.spoil_record("2024-03-02 03:00", 4);
    EXPECT_TRUE(pass());
    EXPECT_EQ(readings(4), 5U);
    EXPECT_EQ(readings(5), 1U);
    LineCounts files = lines_in("tmp_archives");
    LineCounts expected;
    for (int k = 10; k > 0; --k) ++expected["A5"][stored_line(Ten - k * Hour, 192, 0)];
    EXPECT_EQ(files["A5"], expected["A5"]) << "a record asked for again has the time of its place";
    EXPECT_EQ(logged("Archive record CRC FAIL:100 vs 101"), 4);
    EXPECT_EQ(logged("Arch record FAIL, retry..."), 4);
    EXPECT_EQ(logged("Arch record OK"), 10);
}

TEST_F(ModbusArchiveFailure, AfterTheFifthWrongSumThePassEndsAndWhatWasFiledStays) {
    meter.spoil_record("2024-03-02 03:00", 5);
    EXPECT_FALSE(pass());
    EXPECT_EQ(readings(4), 5U);
    EXPECT_EQ(readings(5), 0U);
    EXPECT_EQ(records_filed(), 3);
    EXPECT_EQ(logged("Arch record FAIL, retry..."), 5);
    EXPECT_EQ(logged("Determine get_archive() end.. "), 1);
}

TEST_F(ModbusArchiveFailure, TheNextPassUnderTheSameHeaderReadsNoRecord) {
    meter.spoil_record("2024-03-02 03:00", 5);
    ASSERT_FALSE(pass());
    EXPECT_FALSE(pass()) << "the header is an old one by now";
    EXPECT_EQ(records_filed(), 3);
    meter.store_hourly({.at = Ten});
    EXPECT_TRUE(pass()) << "with the next header it goes on where it stopped";
    EXPECT_EQ(records_filed(), 11);
}

TEST_F(ModbusArchiveFailure, EachRecordHasFiveTriesOfItsOwn) {
    meter.spoil_record("2024-03-02 03:00", 4);
    meter.spoil_record("2024-03-02 04:00", 4);
    meter.spoil_record("2024-03-02 09:00", 4);
    EXPECT_TRUE(pass());
    EXPECT_EQ(records_filed(), 10);
}

TEST_F(ModbusArchiveFailure, ARecordThatDoesNotComeCostsThirtyTriesEachOfFiveTimes) {
    meter.misbehave_next(150, at_record(sim::modbus_silence(), 4));
    EXPECT_FALSE(pass());
    EXPECT_EQ(readings(4), 150U);
    EXPECT_EQ(records_filed(), 3);
    EXPECT_EQ(logged_start("FAIL on 0 request. Over. fd = "), 5);
    EXPECT_EQ(item("Connected"), "0");
    EXPECT_NEAR(elapsed(), 150 * 0.61, 5);
}

TEST_F(ModbusArchiveFailure, ARecordThatComesWithTheVeryLastTryIsTaken) {
    meter.misbehave_next(149, at_record(sim::modbus_wrong_crc(), 4));
    EXPECT_TRUE(pass());
    EXPECT_EQ(readings(4), 150U);
    EXPECT_EQ(records_filed(), 10);
}

TEST_F(ModbusArchiveFailure, ARecordThatTheMeterRefusesEndsThePass) {
    meter.claim_counts(sim::ModbusVistCounts{.held = 2000, .next = 1999, .most = 2000});
    EXPECT_FALSE(pass());
    EXPECT_EQ(meter.requests({.function = 20, .record = 2000}), 150U);
    EXPECT_LT(elapsed(), 20) << "an exception is not waited for";
}

TEST_F(ModbusArchiveFailure, AnErasedRecordCostsItsTriesAndThePass) {
    meter.erase_record("2024-03-02 05:00");
    EXPECT_FALSE(pass());
    EXPECT_EQ(readings(6), 5U);
    EXPECT_EQ(records_filed(), 5);
}

// ---- when it is due

TEST_F(ModbusArchiveFailure, TheFirstPassIsDueTenMinutesAfterStart) {
    start_driver();
    EXPECT_FALSE(driver->need_update_archives(0));
    EXPECT_EQ(logged("Archvie start read after 10.000000 minutes"), 1);
    machine.sleep(90);
    EXPECT_FALSE(driver->need_update_archives(0));
    EXPECT_EQ(logged("Archvie start read after 8.500000 minutes"), 1);
    machine.sleep(510);
    EXPECT_FALSE(driver->need_update_archives(0)) << "3600 seconds are not more than 3600";
    EXPECT_EQ(logged("Archvie start read after 0.000000 minutes"), 1);
    machine.sleep(1);
    EXPECT_TRUE(driver->need_update_archives(0));
    EXPECT_EQ(logged("Need update archives"), 1);
}

TEST_F(ModbusArchiveFailure, UntilAGoodPassTheNextOneIsDueTenMinutesLater) {
    machine.sleep(601);
    EXPECT_TRUE(driver->need_update_archives(1));
    EXPECT_FALSE(driver->need_update_archives(1));
    EXPECT_EQ(log().back(), "Archvie start read after 10.000000 minutes");
    machine.sleep(601);
    EXPECT_TRUE(driver->need_update_archives(1));
}

TEST_F(ModbusArchiveFailure, EachHeatSystemHasAClockOfItsOwn) {
    machine.sleep(601);
    for (const int s : {0, 1, 2}) EXPECT_TRUE(driver->need_update_archives(s));
    for (const int s : {0, 1, 2}) EXPECT_FALSE(driver->need_update_archives(s));
}

TEST_F(ModbusArchiveFailure, WhileAReportIsMadeNothingIsDueAndNothingIsSaid) {
    machine.sleep(601);
    const auto before = log();
    scene.touch("/tmp/RPRT_LCK_m1");
    EXPECT_FALSE(driver->need_update_archives(0));
    EXPECT_EQ(log(), before);
    scene.remove("/tmp/RPRT_LCK_m1");
    EXPECT_TRUE(driver->need_update_archives(0));
}

TEST_F(ModbusArchiveFailure, TheReportOfAnotherMeterHoldsNothingUp) {
    machine.sleep(601);
    scene.touch("/tmp/RPRT_LCK_m2");
    EXPECT_TRUE(driver->need_update_archives(0));
}

}  // namespace
