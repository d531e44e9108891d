#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "modbus_asking.h"

namespace {

using namespace modbus_asking;  // NOLINT(google-build-using-namespace)
using sim::ModbusVistConfig;
using sim::ModbusVistCounts;
using sim::ModbusVistRecord;
using sim::ModbusVistUnwritten;

class SimModbusVistArchives : public ModbusVistTest {
  protected:
    /// A meter whose newest record is that of 10:00 to 11:00.
    static ModbusVistMeter with_records(int count, ModbusVistConfig config = {}) {
        config.serial = Seventeen;
        ModbusVistMeter meter(std::move(config));
        for (int k = count; k > 0; --k) meter.store_hourly({.at = Eleven - k * Hour, .V1 = static_cast<double>(k)});
        return meter;
    }
    static ModbusVistCounts counts(ModbusVistMeter& meter, unsigned file = 0) {
        const ByteVector header = record(meter, file, 0, 48);
        return {.held = static_cast<std::uint16_t>(number(header, 10, 2)),
                .next = static_cast<std::uint16_t>(number(header, 12, 2)),
                .most = static_cast<std::uint16_t>(number(header, 14, 2))};
    }
};

bool sum_holds(const ByteVector& record, std::size_t size) {
    return record.size() >= size && record[0] == sum(part(record, 1, size - 1), 0);
}

// ---- bytes

TEST_F(SimModbusVistArchives, HeaderHoldsMaskCountsTimeTotalsAndPrecisions) {
    ModbusVistMeter meter({.serial = Seventeen, .systems = {{.archive_mask = 0x407E, .precision = {2, 1, 3, 4}}}});
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.set_totals({{1, 2, 3, 4, 5, 6, 7, 0x0102030405}});
    ByteVector expected = {0x11, 0x14, 98,   97,   6,           //
                           0x01, 0x61, 0x00, 0x3E, 0x00, 0x00,  // -, sum, -, -, -, system
                           0x00, 0x00, 0x40, 0x7E,              // mask
                           0x00, 0x01, 0x00, 0x01, 0x06, 0x00,  // counts
                           11,   0,    0,    2,    3,    24,    //
                           0,    0,    0,    1,    0,    0,    0,    2,    0, 0, 0, 3, 0, 0, 0, 4,  //
                           0,    0,    0,    5,    0,    0,    0,    6,    0, 0, 0, 7,              //
                           0,    0,    0,    0x01, 0x02, 0x03, 0x04, 0x05, 2, 1, 3, 4};
    expected.resize(3 + 98, 0xA5);
    const ByteVector request = {0x11, 0x14, 0x07, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0x30, 0xF8, 0xA5};
    EXPECT_EQ(joined(meter.hear(request, Eleven + 59)), sim::modbus_sealed(expected));
}

TEST_F(SimModbusVistArchives, RecordHoldsTheFieldsThatTheMaskNames) {
    ModbusVistMeter meter({.serial = Seventeen, .systems = {{.archive_mask = 0xC883, .precision = {2, 1, 3, 4}}}});
    meter.store_hourly(
        {.at = "2024-03-02 10:00", .worked = 1.0, .V1 = 1.5, .T1 = 71.2, .P1 = 6.1, .E = -0.5, .status = 0x40000821});
    EXPECT_EQ(meter.record_size(), 17U);
    ByteVector expected = {0x11, 0x14, 36,   35,   6,                        //
                           0xCC, 0x64,                                       // sum, worked
                           0x00, 0x00, 0x00, 0x96, 0x02, 0xC8, 0x3D,         // volume, temperature, pressure
                           0xFF, 0xFF, 0xEC, 0x78, 0x40, 0x00, 0x08, 0x21};  // energy, status
    expected.resize(3 + 36, 0xA5);
    EXPECT_EQ(ask(meter, {0x11, 0x14, 0x07, 0x06, 0x00, 0x00, 0x00, 0x01, 0x00, 0x11}), sim::modbus_sealed(expected));
}

TEST_F(SimModbusVistArchives, RecordOfAllFieldsHasThemInTheirOrder) {
    ModbusVistMeter meter(
        {.serial = Seventeen, .systems = {{.archive_mask = 0x7FFFFF, .precision = {0, 0, 0, 0}}}, .filler = 0});
    meter.store_hourly({.at = "2024-03-02 10:00",
                        .worked = 0.01,
                        .V1 = -2,
                        .V2 = 3,
                        .V3 = 4,
                        .M1 = 5,
                        .M2 = 6,
                        .M3 = 7,
                        .T1 = -100.0,
                        .T2 = 0.9,
                        .T3 = 1.0,
                        .T4 = 1.1,
                        .P1 = 1.2,
                        .P2 = 1.3,
                        .P3 = 1.4,
                        .E = 15,
                        .status = 16,
                        .share1 = 0.17,
                        .share2 = 0.18,
                        .share3 = 0.19,
                        .share4 = 0.20,
                        .rest20 = 0x212223,
                        .rest21 = 0x24,
                        .share5 = 2.55});
    EXPECT_EQ(meter.record_size(), 54U);
    ByteVector expected = {0,  1, 0xFF, 0xFF, 0xFF, 0xFE, 0, 0, 0,    3,    0,  0,  0,  4,    0,    0,    0,    5,
                           0,  0, 0,    6,    0,    0,    0, 7, 0xFC, 0x18, 0,  9,  0,  10,   0,    11,   12,   13,
                           14, 0, 0,    0,    15,   0,    0, 0, 16,   17,   18, 19, 20, 0x21, 0x22, 0x23, 0x24, 0xFF};
    expected[0] = sum(expected, 1);
    expected.resize(108, 0);
    EXPECT_EQ(record(meter, 0, 1, 54), expected);
}

TEST_F(SimModbusVistArchives, LengthCountsRegistersWhateverTheRecordNeeds) {
    ModbusVistMeter meter = with_records(1, {.systems = {{.archive_mask = 0x3}}});
    EXPECT_EQ(record(meter, 0, 1, 1).size(), 2U);
    EXPECT_EQ(record(meter, 0, 1, 6).size(), 12U);
    EXPECT_EQ(record(meter, 0, 1, 124).size(), 248U);
    EXPECT_EQ(record(meter, 0, 0, 124).size(), 248U);
    EXPECT_EQ(ask(meter, record_request(0x11, 0, 0, 124))[2], 250);
}

TEST_F(SimModbusVistArchives, LengthOfARecordMayCountBytesAndIsEvenThen) {
    ModbusVistMeter meter = with_records(1, {.systems = {{.archive_mask = 0xC883}}, .short_records = true});
    EXPECT_EQ(record(meter, 0, 1, 17).size(), 18U);
    EXPECT_EQ(record(meter, 0, 1, 18).size(), 18U);
    EXPECT_TRUE(sum_holds(record(meter, 0, 1, 17), 17));
    EXPECT_EQ(record(meter, 0, 0, 48).size(), 96U);
}

TEST_F(SimModbusVistArchives, LastFieldKeepsThePlacesOfTheTwoBeforeItEvenWhenTheyAreNotThere) {
    ModbusVistMeter meter({.serial = Seventeen, .systems = {{.archive_mask = 0x400001}}});
    meter.store_hourly({.at = "2024-03-02 10:00", .rest20 = 0x010203, .rest21 = 4, .share5 = 0.42});
    EXPECT_EQ(meter.record_size(), 3U);
    EXPECT_EQ(record(meter, 0, 1, 4), (ByteVector{0x64, 0x64, 0, 0, 0, 0, 42, 0xA5}));
    meter.system().archive_mask = 0x700001;
    EXPECT_EQ(record(meter, 0, 1, 4), (ByteVector{0x98, 0x64, 1, 2, 3, 4, 42, 0xA5}));
    meter.system().archive_mask = 0x200001;
    EXPECT_EQ(record(meter, 0, 1, 2), (ByteVector{0x68, 0x64, 4, 0xA5}));
}

TEST_F(SimModbusVistArchives, RequestsOutsideTheFilesAreRefused) {
    ModbusVistMeter meter = with_records(2, {.capacity = 5});
    EXPECT_EQ(refusal(meter, record_request(0x11, 0, 6, 20)), 2);
    EXPECT_EQ(refusal(meter, record_request(0x11, 0, 0xFFFF, 20)), 2);
    EXPECT_EQ(refusal(meter, record_request(0x11, 3, 0, 48)), 2);
    EXPECT_EQ(refusal(meter, record_request(0x11, 0, 1, 0)), 3);
    EXPECT_EQ(refusal(meter, record_request(0x11, 0, 1, 125)), 3);
    EXPECT_EQ(refusal(meter, {0x11, 0x14, 0x07, 0x05, 0, 0, 0, 0, 0, 48}), 2);
    EXPECT_EQ(refusal(meter, {0x11, 0x14, 0x08, 0x06, 0, 0, 0, 0, 0, 48}), 3);
    EXPECT_EQ(refusal(meter, {0x11, 0x14, 0x07, 0x06, 0, 0, 0, 0, 0}), 3);
}

// ---- ring

TEST_F(SimModbusVistArchives, ReachBackFromTheHeaderByTheirPlacesAloneInAnyStateOfTheRing) {
    constexpr int Capacity = 5;
    for (int stored = 0; stored <= 3 * Capacity; ++stored) {
        ModbusVistMeter meter = with_records(stored, {.capacity = Capacity});
        const ModbusVistCounts counts = this->counts(meter);
        EXPECT_EQ(counts.held, std::min(stored, Capacity));
        EXPECT_EQ(counts.next, stored % Capacity);
        EXPECT_EQ(counts.most, Capacity);
        const int place_after_newest = counts.next + 1;
        for (int k = 1; k <= counts.held; ++k) {
            int place = place_after_newest - k;
            if (place < 1) place += Capacity;
            const auto* found = meter.record_at(static_cast<std::size_t>(place));
            ASSERT_NE(found, nullptr);
            EXPECT_EQ(found->time, meter.header(Eleven).time - k * Hour);
            EXPECT_EQ(number(record(meter, 0, static_cast<unsigned>(place), 54), 2, 4),
                      100U * static_cast<unsigned>(k));
        }
    }
}

TEST_F(SimModbusVistArchives, OldestRecordOfAFullRingStandsBehindTheNewest) {
    ModbusVistMeter meter = with_records(7, {.capacity = 5});
    EXPECT_EQ(counts(meter), (ModbusVistCounts{.held = 5, .next = 2, .most = 5}));
    EXPECT_EQ(meter.record_at(3)->time, Eleven - 5 * Hour);
    EXPECT_EQ(meter.record_at(2)->time, Eleven - Hour);
    EXPECT_EQ(meter.record_at(5)->time, Eleven - 3 * Hour);
    EXPECT_EQ(meter.records().front().time, Eleven - 5 * Hour);
    EXPECT_EQ(meter.records().back().time, Eleven - Hour);
    EXPECT_THROW(meter.record_at(0), std::out_of_range);
    EXPECT_THROW(meter.record_at(6), std::out_of_range);
}

TEST_F(SimModbusVistArchives, PlacesThatAreNotWrittenReadAsTheMeterLikes) {
    ModbusVistMeter zeros = with_records(2, {.systems = {{.archive_mask = 0x3}}});
    EXPECT_EQ(record(zeros, 0, 3, 3), ByteVector(6, 0));
    EXPECT_EQ(zeros.record_at(3), nullptr);
    ModbusVistMeter erased =
        with_records(2, {.systems = {{.archive_mask = 0x3}}, .unwritten = ModbusVistUnwritten::Erased});
    EXPECT_EQ(record(erased, 0, 3, 3), ByteVector(6, 0xFF));
    EXPECT_FALSE(sum_holds(record(erased, 0, 3, 3), 6));
    ModbusVistMeter refused = with_records(2, {.unwritten = ModbusVistUnwritten::Refused});
    EXPECT_EQ(refusal(refused, record_request(0x11, 0, 3, 54)), 2);
}

TEST_F(SimModbusVistArchives, RecordsCanBeSpoiltErasedAndForgotten) {
    ModbusVistMeter meter = with_records(3);
    meter.spoil_record("2024-03-02 09:00", 2);
    EXPECT_FALSE(sum_holds(record(meter, 0, 2, 54), 54));
    EXPECT_FALSE(sum_holds(record(meter, 0, 2, 54), 54));
    EXPECT_TRUE(sum_holds(record(meter, 0, 2, 54), 54));
    meter.spoil_record("2024-03-02 08:00");
    for (int k = 0; k < 5; ++k) EXPECT_FALSE(sum_holds(record(meter, 0, 1, 54), 54));
    meter.erase_record("2024-03-02 10:00");
    EXPECT_EQ(part(record(meter, 0, 3, 54), 0, 53), ByteVector(54, 0xFF));
    EXPECT_THROW(meter.spoil_record("2024-03-02 11:00"), std::out_of_range);
    meter.erase_archive();
    EXPECT_EQ(counts(meter), (ModbusVistCounts{.held = 0, .next = 0, .most = 1536}));
}

TEST_F(SimModbusVistArchives, RecordsThatHaveNoRoomForANumberAreRefused) {
    ModbusVistMeter meter({.serial = Seventeen});
    EXPECT_THROW(meter.store_hourly({.at = Eleven, .worked = 2.56}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = Eleven, .T1 = 3276.8}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = Eleven, .P1 = -0.1}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = Eleven, .rest20 = 0x1000000}), std::invalid_argument);
    meter.store_hourly({.at = Eleven, .worked = 2.55, .T1 = -3276.8, .P1 = 25.5, .rest20 = 0xFFFFFF});
    EXPECT_EQ(meter.records().size(), 1U);
}

// ---- header

TEST_F(SimModbusVistArchives, HeaderIsDatedAtTheEndOfTheNewestRecordOrAtTheLastFullHour) {
    ModbusVistMeter meter = with_records(1);
    EXPECT_EQ(part(record(meter, 0, 0, 48, Eleven + 5 * Hour), 16, 21), (ByteVector{11, 0, 0, 2, 3, 24}));
    meter.erase_archive();
    EXPECT_EQ(part(record(meter, 0, 0, 48, Eleven + 5 * Hour + 59), 16, 21), (ByteVector{16, 0, 0, 2, 3, 24}));
    meter.set_header_time("2023-01-31 00:10:20");
    EXPECT_EQ(part(record(meter, 0, 0, 48), 16, 21), (ByteVector{0, 10, 20, 31, 1, 23}));
}

TEST_F(SimModbusVistArchives, HeaderMayClaimAnyCounts) {
    ModbusVistMeter meter = with_records(1);
    const ModbusVistCounts claimed{.held = 65535, .next = 40000, .most = 7};
    meter.claim_counts(claimed);
    EXPECT_EQ(counts(meter), claimed);
    meter.claim_counts(std::nullopt);
    EXPECT_EQ(counts(meter), (ModbusVistCounts{.held = 1, .next = 1, .most = 1536}));
}

TEST_F(SimModbusVistArchives, TotalsGrowAndTheLastOneTakesMoreThanFourBytes) {
    ModbusVistMeter meter = with_records(1);
    for (std::size_t k = 0; k < sim::VistTotals; ++k) {
        EXPECT_LT(ModbusVistMeter::recorded_total(17, 0, Eleven, k),
                  ModbusVistMeter::recorded_total(17, 0, Eleven + Hour, k));
    }
    EXPECT_GT(ModbusVistMeter::recorded_total(17, 0, Eleven, 7), 0xFFFFFFFFULL);
    EXPECT_EQ(number(record(meter, 0, 0, 48), 22, 4), ModbusVistMeter::recorded_total(17, 0, Eleven, 0));
    EXPECT_THROW(meter.set_totals({{0x100000000, 0, 0, 0, 0, 0, 0, 0}}), std::invalid_argument);
}

// ---- by itself

TEST_F(SimModbusVistArchives, RecordsEachHourOfEachSystemByItself) {
    ModbusVistMeter meter({.serial = Seventeen, .systems = {{}, {}}, .capacity = 4});
    meter.record_archives(true, "2024-03-02 05:30");
    EXPECT_EQ(counts(meter, 0), (ModbusVistCounts{.held = 4, .next = 2, .most = 4}));
    EXPECT_EQ(counts(meter, 1), (ModbusVistCounts{.held = 4, .next = 2, .most = 4}));
    EXPECT_EQ(meter.records(1).back().time, Eleven - Hour);
    EXPECT_EQ(meter.header(Eleven, 1).time, Eleven);
    for (std::size_t k = 0; k < sim::VistRecordFields; ++k) {
        EXPECT_EQ(meter.records(1).back().numbers[k], ModbusVistMeter::recorded_number(17, 1, Eleven - Hour, k));
    }
    EXPECT_NE(record(meter, 0, 2, 54), record(meter, 1, 2, 54));
    record(meter, 0, 0, 48, Eleven + 2 * Hour - 1);
    EXPECT_EQ(meter.records().back().time, Eleven);
    meter.record_archives(false);
    record(meter, 0, 0, 48, Eleven + 9 * Hour);
    EXPECT_EQ(meter.records().back().time, Eleven);
}

TEST_F(SimModbusVistArchives, MissedHoursLeaveNoPlace) {
    ModbusVistMeter meter({.serial = Seventeen});
    meter.miss_hour("2024-03-02 09:00");
    meter.record_archives(true, "2024-03-02 08:00");
    meter.catch_up(Eleven);
    ASSERT_EQ(meter.records().size(), 2U);
    EXPECT_EQ(meter.records()[0].time, Eleven - 3 * Hour);
    EXPECT_EQ(meter.records()[1].time, Eleven - Hour);
}

TEST_F(SimModbusVistArchives, RecordEveryHourThatPassesWhenTheClockIsPutForwardOrBack) {
    live_in("CET-1CEST,M3.5.0,M10.5.0/3");
    ModbusVistMeter spring({.serial = Seventeen});
    spring.record_archives(true, "2024-03-31 00:00");
    spring.catch_up(sim::VistWhen("2024-03-31 05:00").time());
    EXPECT_EQ(spring.records().size(), 4U);
    ModbusVistMeter autumn({.serial = Seventeen});
    autumn.record_archives(true, "2024-10-27 00:00");
    autumn.catch_up(sim::VistWhen("2024-10-27 05:00").time());
    EXPECT_EQ(autumn.records().size(), 6U);
}

// ---- files

TEST_F(SimModbusVistArchives, TellWhatOughtToBeFiledOfARecord) {
    ModbusVistMeter meter({.serial = Seventeen, .systems = {{.archive_mask = 0x40C481, .precision = {2, 1, 3, 4}}}});
    meter.store_hourly({.at = "2024-03-02 10:00",
                        .worked = 0.99,
                        .T1 = -100.0,
                        .T4 = -7.5,
                        .E = -0.5,
                        .status = 0x40000821,
                        .share5 = 0.42});
    const std::vector<sim::VistFileValue> expected = {
        {.file = "A3", .time = Eleven - Hour, .value = 0.99},
        {.file = "A20", .time = Eleven - Hour, .quality = 0, .value = -100.0},
        {.file = "T4", .time = Eleven - Hour, .value = -7.5},
        {.file = "A2", .time = Eleven - Hour, .value = -0.5},
        {.file = "A28", .time = Eleven - Hour, .value = 0x00204042, .integer = true},
        {.file = "A27", .time = Eleven - Hour, .value = 0.42},
    };
    EXPECT_EQ(meter.record_files(meter.records().back()), expected);
}

TEST_F(SimModbusVistArchives, TellWhatOughtToBeFiledOfAHeader) {
    ModbusVistMeter meter = with_records(1, {.systems = {{.told_mask = 0x10, .precision = {2, 1, 3, 4}}}});
    meter.set_totals({{100, 200, 300, 400, 500, 600, 700, 800}});
    const std::vector<sim::VistFileValue> volumes_and_first_mass = {
        {.file = "A6", .time = Eleven, .value = 1.0},
        {.file = "A8", .time = Eleven, .value = 20.0},
        {.file = "A10", .time = Eleven, .value = 0.3},
        {.file = "A12", .time = Eleven, .value = 4.0},
    };
    EXPECT_EQ(meter.header_files(Eleven), volumes_and_first_mass);
    meter.system().told_mask = 0x4061;
    const auto lines = meter.header_files(Eleven);
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_EQ(lines[3], (sim::VistFileValue{.file = "A14", .time = Eleven, .value = 50.0}));
    EXPECT_EQ(lines[5], (sim::VistFileValue{.file = "A4", .time = Eleven, .value = 7.0}));
    EXPECT_EQ(lines[6], (sim::VistFileValue{.file = "A1", .time = Eleven, .value = 0.08}));
}

}  // namespace
