#include <bit>
#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sa94_asking.h"

namespace {

using namespace sa94_asking;  // NOLINT(google-build-using-namespace)
using sim::Sa94FileValue;

constexpr Sa94Archive Hourly = Sa94Archive::Hourly;
constexpr Sa94Archive Daily = Sa94Archive::Daily;
constexpr Sa94Archive Errors = Sa94Archive::Errors;

class SimSa94Records : public Sa94Test {};

// ---- bytes of a record

TEST_F(SimSa94Records, HourlyRecordOfASmallMemoryHasThirtyTwoBytes) {
    Sa94Meter meter = talking({.firmware = "M300", .status = 0x15});
    meter.store_hourly({.at = "2024-03-02 10:00",
                        .values = {{"t", 3600},
                                   {"IM1", 1.0},
                                   {"IM2", 0.5},
                                   {"T1", 7125},
                                   {"T2", 4000},
                                   {"T3", 1000},
                                   {"w1", 1800},
                                   {"w2", 900},
                                   {"w3", 65535},
                                   {"IE", 1234.5}}});
    const ByteVector block = ask(meter, {0xA2, 0x00});
    EXPECT_EQ(part(block, 0, 32), (ByteVector{0x00, 0x02, 0x03, 0x24, 0x15, 0x10, 0x0E, 0x10,  //
                                              0x81, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00,  //
                                              0x1B, 0xD5, 0x0F, 0xA0, 0x03, 0xE8, 0x07, 0x08,  //
                                              0x03, 0x84, 0xFF, 0xFF, 0x8B, 0x1A, 0x50, 0x00}));
    EXPECT_EQ(part(block, 32, 96), erased(96));
}

TEST_F(SimSa94Records, HourlyRecordOfALargeMemoryHasSixtyFourBytes) {
    Sa94Meter meter = talking({.firmware = "201"});
    meter.store_hourly({.at = "2024-03-02 10:00", .values = {{"T1", 1.0}, {"E", 0.5}}, .status = 0x33});
    const ByteVector block = ask(meter, {0xB7, 0x50, 0x00});
    EXPECT_EQ(part(block, 0, 6), (ByteVector{0x00, 0x02, 0x03, 0x24, 0x33, 0x10}));
    EXPECT_EQ(part(block, 16, 4), (ByteVector{0x81, 0x00, 0x00, 0x00}));
    EXPECT_EQ(part(block, 56, 8), (ByteVector{0, 0, 0, 0, 0x80, 0x00, 0x00, 0x00}));
    EXPECT_EQ(part(block, 64, 64), erased(64));
}

TEST_F(SimSa94Records, DailyRecordHasNoHour) {
    Sa94Meter meter = talking({.firmware = "M300"});
    meter.store_daily({.at = "2024-03-02 00:00", .values = {{"IT", 1.0}}});
    EXPECT_EQ(part(ask(meter, {0xA4, 0x00}), 0, 8), (ByteVector{0x00, 0x02, 0x03, 0x24, 0x81, 0x00, 0x00, 0x00}));
    EXPECT_EQ(meter.records(Daily), (std::vector<Sa94StoredRecord>{{1709337600, 4, 0, 0}}));
}

TEST_F(SimSa94Records, ErrorRecordHasItsCodeAndWhetherItIsOver) {
    Sa94Meter meter = talking();
    meter.start_error(5, "2024-03-02 10:20:30");
    meter.stop_error(5, "2024-03-02 10:21:31");
    EXPECT_EQ(part(ask(meter, {0xA6, 0x02}), 0, 24), (ByteVector{0x05, 0x02, 0x03, 0x24, 0x00, 0x10, 0x20, 0x30,  //
                                                                 0x85, 0x02, 0x03, 0x24, 0x00, 0x10, 0x21, 0x31,  //
                                                                 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(ask(meter, {0xA6, 0x00}), erased(128));
    EXPECT_EQ(ask(meter, {0xA6, 0x01}), erased(128));
    EXPECT_THROW(meter.start_error(128, "2024-03-02 10:20:30"), std::invalid_argument);
}

TEST_F(SimSa94Records, FirmwareWithoutAFormOfRecordsWritesDateAndHourOnly) {
    for (const char* firmware : {"100", "300", "unheard of"}) {
        Sa94Meter meter = talking({.firmware = firmware, .status = 0x01});
        meter.store_hourly({.at = "2024-03-02 10:00"});
        ByteVector expected = {0x00, 0x02, 0x03, 0x24, 0x01, 0x10};
        expected.resize(32, 0);
        EXPECT_EQ(part(ask(meter, {0xA2, 0x00}), 0, 32), expected) << firmware;
        EXPECT_EQ(meter.record_files(Hourly, meter.records(Hourly).front()), std::vector<Sa94FileValue>{});
        EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .values = {{"T1", 1}}}), std::invalid_argument);
    }
    Sa94Meter large = talking({.firmware = "M411"});
    large.store_hourly({.at = "2024-03-02 10:00"});
    EXPECT_EQ(part(ask(large, {0xA2, 0x00}), 58, 8), (ByteVector{0, 0, 0, 0, 0, 0, 0xFF, 0xFF}));
}

TEST_F(SimSa94Records, WhatNoRecordCanHoldIsRefused) {
    Sa94Meter meter({.firmware = "M300"});
    EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .values = {{"T1", 65536}}}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .values = {{"T1", -1}}}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .values = {{"T1", 0.5}}}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .values = {{"P1", 1}}}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .values = {{"IM1", 2e38}}}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({}), std::invalid_argument);
    EXPECT_TRUE(meter.records(Hourly).empty());
}

// ---- what ought to be filed

TEST_F(SimSa94Records, LinesOfAnHourAreDatedAtItsBeginningAndTotalsAtItsEnd) {
    Sa94Meter meter({.firmware = "M300", .status = 0x02});
    meter.store_hourly(
        {.at = "2024-03-02 10:00", .values = {{"t", 1800}, {"IM1", 120.5}, {"T1", 7125}, {"T3", 1000}, {"w1", 900}}});
    const auto lines = meter.record_files(Hourly, meter.records(Hourly).front());
    const std::vector<Sa94FileValue> expected = {{"A3", Eleven - Hour, 192, 0.5},   {"A12", Eleven, 192, 120.5},
                                                 {"A14", Eleven, 192, 0.0},         {"_A20", Eleven - Hour, 192, 71.25},
                                                 {"_A21", Eleven - Hour, 192, 0.0}, {"A22", Eleven - Hour, 192, 10.0},
                                                 {"A26", Eleven - Hour, 192, 0.5},  {"A25", Eleven - Hour, 192, 0.0},
                                                 {"A24", Eleven - Hour, 192, 0.0},  {"A1", Eleven, 192, 0.0}};
    EXPECT_EQ(lines, expected);
    meter.set_status(0x04);  // a meter of this firmware has no third sensor then
    EXPECT_EQ(meter.record_files(Hourly, meter.records(Hourly).front()).size(), expected.size() - 1);
}

TEST_F(SimSa94Records, LinesOfADayGoToFilesOfTheirOwn) {
    Sa94Meter meter({.firmware = "301"});
    meter.store_daily({.at = "2024-03-01 00:00", .values = {{"IE", 2.0}, {"P1", 0.5}, {"V1", 3.0}, {"T1", 50.0}}});
    const auto lines = meter.record_files(Daily, meter.records(Daily).front());
    const std::time_t midnight = Eleven - 11 * Hour;
    ASSERT_EQ(lines.size(), 11U);
    EXPECT_EQ(lines[0], (Sa94FileValue{"A29", midnight, 192, 2.0F * 0.859845F}));
    EXPECT_EQ(lines[1], (Sa94FileValue{"_A48", midnight - 24 * Hour, 192, 50.0}));
    EXPECT_EQ(lines[4], (Sa94FileValue{"A45", midnight - 24 * Hour, 192, 0.5F * 10.197162F}));
    EXPECT_EQ(lines[6], (Sa94FileValue{"A33", midnight - 24 * Hour, 192, 3.0}));
}

TEST_F(SimSa94Records, StatusDecidesWhatTheOpenChannelsAre) {
    Sa94Meter meter({.firmware = "M461", .status = 0x00});
    meter.store_hourly({.at = "2024-03-02 10:00", .values = {{"p1", 1.0}, {"p2", 2.0}, {"p3", 3.0}}});
    const auto files = [&](std::uint8_t status) {
        meter.set_status(status);
        std::set<std::string> names;
        for (const auto& line : meter.record_files(Hourly, meter.records(Hourly).front())) {
            if (line.value == 1.0 || line.value == 2.0 || line.value == 3.0) names.insert(line.file);
        }
        return names;
    };
    EXPECT_EQ(files(0x00), (std::set<std::string>{"A12", "A14", "A10"}));
    EXPECT_EQ(files(0x40), (std::set<std::string>{"A12", "A14", "A10"}));
    EXPECT_EQ(files(0x44), (std::set<std::string>{"A6", "A8", "A10"}));
    for (const std::uint8_t bit : {0x02, 0x08, 0x20}) {
        EXPECT_EQ(files(bit), (std::set<std::string>{"A12", "A14", "A16"}));
    }
}

TEST_F(SimSa94Records, LineOfAnErrorSaysWhetherItBegan) {
    Sa94Meter meter;
    meter.start_error(5, Eleven);
    meter.stop_error(127, Eleven + 1);
    const auto held = meter.records(Errors);
    EXPECT_EQ(meter.record_files(Errors, held[0]), (std::vector<Sa94FileValue>{{"_A57", Eleven, 192, 5.0}}));
    EXPECT_EQ(meter.record_files(Errors, held[1]), (std::vector<Sa94FileValue>{{"_A57", Eleven + 1, 0, 127.0}}));
}

TEST_F(SimSa94Records, UnitsAreExactToTheLastBit) {
    const auto by = [](std::size_t column) {
        return std::bit_cast<std::uint32_t>(sim::sa94_firmware("M301").hourly[column].scale.by);
    };
    EXPECT_EQ(by(3), 0x3C23D70AU);   // hundredths of a degree
    EXPECT_EQ(by(10), 0x41232793U);  // megapascals
    EXPECT_EQ(std::bit_cast<std::uint32_t>(sim::sa94_firmware("200").daily[0].scale.by), 0x3F5C1ECDU);  // gigajoules
}

TEST_F(SimSa94Records, EveryFirmwareWithAFormOfRecordsFillsItsRings) {
    for (const auto& firmware : sim::sa94_firmwares()) {
        for (const Sa94Archive archive : {Hourly, Daily}) {
            Sa94Meter meter({.firmware = std::string(firmware.name)});
            EXPECT_EQ(meter.firmware().id, firmware.id);
            meter.fill(archive, {.records = 4, .newest = "2024-03-02 00:00"});
            const auto held = meter.records(archive);
            ASSERT_EQ(held.size(), 4U);
            const auto lines = meter.record_files(archive, held.back());
            EXPECT_GE(lines.size() + 1, firmware.columns(archive).size());
            for (const auto& line : lines) EXPECT_TRUE(line.value >= 0.0 && line.value < 1e6) << line.file;
        }
    }
}

}  // namespace
