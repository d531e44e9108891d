#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vist_asking.h"

namespace {

using namespace vist_asking;  // NOLINT(google-build-using-namespace)
using sim::VistFileValue;

class SimVistRecords : public VistTest {
  protected:
    static std::string hours_of(const VistMeter& meter) {
        std::string hours;
        for (const auto& record : meter.records()) hours += std::to_string(record.date.hour) + " ";
        return hours;
    }
};

// ---- records made by the meter itself

TEST_F(SimVistRecords, GrowWithEachFullHourOfTheMetersClock) {
    VistMeter meter({.devices = {{}, {}}, .clock_offset = 120});
    meter.record_archives(true, "2024-03-02 08:00");
    meter.catch_up(Eleven - 121);
    EXPECT_EQ(meter.records().size(), 2U);
    meter.catch_up(Eleven - 120);
    EXPECT_EQ(meter.records().size(), 3U);
    EXPECT_EQ(meter.records(1).size(), 3U);
    EXPECT_EQ(meter.records().back().time, Eleven);
    for (std::size_t field = 0; field < sim::VistRecordFields; ++field) {
        EXPECT_EQ(meter.records(1).back().numbers[field], VistMeter::recorded_number(10001, 1, Eleven, field));
    }
}

TEST_F(SimVistRecords, LeaveOutTheHoursThatAreMissed) {
    VistMeter meter({.network = 7});
    meter.record_archives(true, "2024-03-02 08:00");
    meter.miss_hour("2024-03-02 10:00");
    say(meter, "CALL 7");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "11:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD -")), "09:00 02.03.24");
}

TEST_F(SimVistRecords, HaveTwoRecordsInTheHourThatAutumnRepeats) {
    live_in("Europe/Berlin");
    VistMeter meter;
    meter.record_archives(true, "2024-10-27 01:00");
    meter.catch_up(1729994400);  // 03:00 local
    EXPECT_EQ(hours_of(meter), "2 2 3 ");
}

TEST_F(SimVistRecords, HaveNoneInTheHourThatSpringLeavesOut) {
    live_in("Europe/Berlin");
    VistMeter meter;
    meter.record_archives(true, "2024-03-31 00:00");
    meter.catch_up(1711850400);  // 04:00 local
    EXPECT_EQ(hours_of(meter), "1 3 4 ");
}

TEST_F(SimVistRecords, HoldNumbersThatFitTheirFieldsInEveryHour) {
    VistMeter meter({.network = 7, .devices = {{.archive_mask = 0x007FFFFF}}, .capacity = 5000});
    meter.record_archives(true, Eleven - 5000 * Hour);
    meter.catch_up(Eleven);
    std::set<int> doubtful_hours;
    for (const auto& record : meter.records()) {
        for (std::size_t field = 0; field < sim::VistRecordFields; ++field) {
            const std::int64_t number = record.numbers[field];
            const bool one_byte = field == 0 || (field >= 11 && field <= 13) || (field >= 16 && field != 20);
            const bool two_bytes = field >= 7 && field <= 10;
            EXPECT_GE(number, field == 14 ? -500 : 0);
            EXPECT_LE(number, one_byte ? 0xFF : two_bytes ? 0xFFFF : 0x7FFFFFFF);
        }
        for (const auto& line : meter.record_files(record)) {
            if (line.quality == 0) doubtful_hours.insert(record.date.hour);
        }
    }
    EXPECT_EQ(doubtful_hours, (std::set<int>{5, 7}));
}

// ---- what a reader ought to file

TEST_F(SimVistRecords, TellTheLinesThatBelongIntoTheFiles) {
    VistMeter meter({.devices = {{.archive_mask = 0xC883, .precision = {2, 1, 3, 4}}}});
    meter.store_hourly(
        {.at = "2024-03-02 11:00", .IQ1 = 1.5, .T1 = 71.2, .P1 = 6.1, .IE = -0.5, .status = {0x21, 0x08, 0x00, 0x40}});
    const std::vector<VistFileValue> expected = {
        {"A3", Eleven - Hour, 192, 1.0, false},   {"A5", Eleven - Hour, 192, 1.5, false},
        {"A20", Eleven - Hour, 192, 71.2, false}, {"A17", Eleven - Hour, 192, 6.1, false},
        {"A2", Eleven - Hour, 192, -0.5, false},  {"A28", Eleven - Hour, 192, 2162754.0, true},  // 0x210042
    };
    EXPECT_EQ(meter.record_files(meter.records().back()), expected);
}

TEST_F(SimVistRecords, TellEachFieldsFileAndPowerOfTen) {
    VistMeter meter({.devices = {{.archive_mask = 0x007FFFFF, .precision = {0, 1, 2, 3}}}});
    meter.record_archives(true, "2024-03-02 10:00");
    meter.catch_up(Eleven);
    auto record = meter.records().back();
    record.numbers.fill(1);
    std::string told;
    for (const auto& line : meter.record_files(record)) told += line.file + "=" + std::to_string(line.value) + " ";
    EXPECT_EQ(told,
              "A3=0.010000 A5=1.000000 A7=0.100000 A9=0.010000 A11=1.000000 A13=0.100000 A15=0.010000 "
              "A20=0.100000 A21=0.100000 A22=0.100000 A17=0.100000 A18=0.100000 A19=0.100000 A2=0.001000 "
              "A28=2.000000 A25=0.010000 A26=0.010000 A24=0.010000 A23=0.010000 ");
}

TEST_F(SimVistRecords, DoubtTemperaturesFrom500AndPressuresOfZero) {
    VistMeter meter({.devices = {{.archive_mask = 0x3B80}}});  // T1, T2, T3, P1, P2, P3
    meter.store_hourly({.at = "2024-03-02 11:00", .T1 = 499.9, .T2 = 500.0, .T3 = 500.1, .P2 = 0.1});
    std::string told;
    for (const auto& line : meter.record_files(meter.records().back())) {
        told += line.file + ":" + std::to_string(line.quality) + " ";
    }
    EXPECT_EQ(told, "A20:192 A21:0 A22:0 A17:0 A18:192 A19:0 ");
}

TEST_F(SimVistRecords, TellTheTotalsOfTheHeaderAtItsOwnTime) {
    VistMeter meter({.devices = {{.archive_mask = 0x40C2, .precision = {1, 2, 3, 4}}}});
    meter.set_totals({{15, 2, 3, 4, 5, 60, 705, -20000}});
    const std::vector<VistFileValue> expected = {
        {"A6", Eleven, 192, 1.5, false},
        {"A16", Eleven, 192, 0.06, false},
        {"A4", Eleven, 192, 7.05, false},
        {"A1", Eleven, 192, -2.0, false},
    };
    EXPECT_EQ(meter.header_files(Eleven + 1800), expected);
    meter.set_totals(std::nullopt);
    EXPECT_EQ(meter.header(Eleven + 1800).totals[7], VistMeter::recorded_total(10001, 0, Eleven, 7));
    EXPECT_GT(VistMeter::recorded_total(10001, 0, Eleven, 7), 0xFFFFFFFFLL);
    EXPECT_THROW(meter.set_totals({{0x100000000, 0, 0, 0, 0, 0, 0, 0}}), std::invalid_argument);
}

TEST_F(SimVistRecords, CrossTheMiddleBitsOfTheSecondStatusByte) {
    EXPECT_EQ(sim::vist_status_word({0, 0x08, 0, 0}, false), 0x200000U);
    EXPECT_EQ(sim::vist_status_word({0, 0x10, 0, 0}, false), 0x400000U);
    EXPECT_EQ(sim::vist_status_word({0, 0x20, 0, 0}, false), 0x100000U);
    EXPECT_EQ(sim::vist_status_word({0xFF, 0xFF, 0xFF, 0xFF}, false), 0x01FE3FFEU);
    EXPECT_EQ(sim::vist_status_word({0xFF, 0xFF, 0xFF, 0xFF}, true), 0x01FFBFFEU);
}

}  // namespace
