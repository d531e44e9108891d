// The two packets of the meter's archive, byte for byte: the header with its totals, and the hourly record.

#include <cstdint>
#include <string>
#include <vector>

#include "drivers/vist/vist_decode.h"
#include "drivers/vist/vist_progress.h"
#include "support/vist_archive_scene.h"
#include "support/vist_scene.h"

namespace {

using Raw = std::vector<std::uint8_t>;
using Values = std::vector<vist::ArchiveValue>;

constexpr std::time_t Noon = 1709380800;  // 2024-03-02 12:00 UTC
constexpr std::uint32_t AllTotals = 0x40FE;

/// A header of 12:00 on 2 March 2024 with the totals 1001 to 1008 and the precisions 1, 2, 3 and 4.
struct Header {
    bool little = false;
    std::uint32_t mask = AllTotals;
    int enumer_rest = 0;
    int hour = 12;
    int minute = 0;
    int year = 24;
    std::uint64_t first_total = 1001;
    std::uint64_t energy = 1008;
    int rec_num = 500;

    std::vector<std::uint8_t> packet() const {
        VistBytes body(little);
        body.b({9, 0, 8, 7, (little ? 0x80 : 0) | enumer_rest, 6}).n(mask, 4);
        body.n(static_cast<std::uint64_t>(rec_num), 2).n(499, 2).n(1536, 2).b({hour, minute, 0, 2, 3, year});
        body.n(first_total, 4);
        for (std::uint64_t total = 1002; total <= 1007; ++total) body.n(total, 4);
        body.n(energy, 8).b({1, 2, 3, 4});
        return vist_test_packet(20, body.bytes(), 1, 2);
    }
};

/// A record of 12:00 on 2 March 2024, or of another time of that day.
Raw record_packet(const VistBytes& fields, std::initializer_list<int> clock = {12, 0, 0}) {
    Raw body = VistBytes().b(clock).b({2, 3, 24, 0}).bytes();
    body.insert(body.end(), fields.bytes().begin(), fields.bytes().end());
    return vist_test_packet(21, body, 6, 7);
}

std::string texts_of(const std::tm& tm) {
    return vist::clock_text(tm) + " " + vist::day_text(tm);
}

class VistRecords : public ::testing::TestWithParam<bool> {
  protected:
    static bool little() { return GetParam(); }
    static VistBytes fields() { return VistBytes(little()); }
    static vist::ArchiveHeader header(const Header& made) {
        Raw bytes = made.packet();
        return vist::decode_header(bytes);
    }
    static vist::ArchiveRecord record(const VistBytes& some, std::uint32_t mask,
                                      const std::array<std::uint8_t, 4>& precision = {1, 2, 3, 4}) {
        Raw bytes = record_packet(some);
        return vist::decode_record(
            bytes, {.fSwapArch = !little(), .arch_mask = mask, .arch_precision = precision, .totals = {}});
    }
    /// All fields of a record: hours, six volumes, temperatures, pressures, energy, status, four periods.
    static VistBytes all_fields() {
        return fields()
            .n(95, 1)
            .n(1001, 4)
            .n(1002, 4)
            .n(1003, 4)
            .n(1004, 4)
            .n(1005, 4)
            .n(1006, 4)
            .n(712, 2)
            .n(453, 2)
            .n(98, 2)
            .n(7777, 2)
            .n(61, 1)
            .n(42, 1)
            .n(23, 1)
            .n(static_cast<std::uint64_t>(-12345), 4)
            .n(0xC1000901, 4)
            .n(11, 1)
            .n(12, 1)
            .n(13, 1)
            .n(14, 1)
            .n(0x010203, 3)
            .n(4, 1)
            .n(5, 1);
    }
};

// ---- the header

TEST_P(VistRecords, AHeaderTellsOrderMaskCountsPrecisionsAndTime) {
    const vist::ArchiveHeader told = header({.little = little(), .mask = 0x12345678, .enumer_rest = 0x7F});
    EXPECT_TRUE(told.good);
    EXPECT_EQ(told.fSwapArch, !little()) << "bit 7 alone tells";
    EXPECT_EQ(told.arch_mask, 0x12345678U);
    EXPECT_EQ(told.ArchiveRecNum, 500);
    EXPECT_EQ(told.ArchiveRecNew, 499);
    EXPECT_EQ(told.ArchiveRecMax, 1536);
    EXPECT_EQ(told.arch_precision, (std::array<std::uint8_t, 4>{1, 2, 3, 4}));
    EXPECT_EQ(texts_of(told.time), "12:00:00 02:03:24");
    EXPECT_EQ(header({.little = little(), .rec_num = 0xFFFE}).ArchiveRecNum, -2) << "counts are signed";
}

TEST_P(VistRecords, ATotalIsThereOnlyIfItsBitIsSetAndAllStayAtTheirPlaces) {
    const Values all = header({.little = little()}).totals;
    const Values awaited = {{"A6", 100.1},  {"A8", 10.02},  {"A10", 1.003}, {"A12", 100.4},
                            {"A14", 10.05}, {"A16", 1.006}, {"A1", 0.1008}, {"A4", 10.07}};
    EXPECT_EQ(all, awaited) << "by p0, p1 and p2 twice, p3, hundredths";
    const std::vector<int> bits = {1, 2, 3, 4, 5, 6, 14, 7};
    for (std::size_t i = 0; i < bits.size(); ++i) {
        EXPECT_EQ(header({.little = little(), .mask = 1U << bits[i]}).totals, Values{all[i]}) << bits[i];
    }
    EXPECT_EQ(header({.little = little(), .mask = ~AllTotals}).totals, Values{});
}

TEST_P(VistRecords, TheFirstTotalsAreUnsignedAndTheEnergyIsSignedAndWide) {
    const Values told =
        header({.little = little(), .first_total = 0xFFFFFFFF, .energy = static_cast<std::uint64_t>(-25000)}).totals;
    EXPECT_EQ(told.at(0).value, 429496729.5);
    EXPECT_EQ(told.at(6).value, -2.5);
    EXPECT_EQ(header({.little = little(), .energy = 123456789012500}).totals.at(6).value, 12345678901.25);
}

TEST_P(VistRecords, TheSumOfAHeaderLeavesOutItsFirstByteAndReachesItsLast) {
    const Header made{.little = little()};
    const auto good_with = [&made](std::size_t at, int more) {
        Raw bytes = made.packet();
        bytes[at] = static_cast<std::uint8_t>(bytes[at] + more);
        return vist::decode_header(bytes).good;
    };
    EXPECT_TRUE(good_with(6, 1));
    EXPECT_FALSE(good_with(7, 1)) << "the sum itself";
    for (std::size_t at = 8; at < made.packet().size(); ++at) EXPECT_FALSE(good_with(at, 1)) << at;
}

// ---- the record

TEST_P(VistRecords, EachFieldOfARecordHasItsNumber) {
    const vist::ArchiveRecord told = record(all_fields(), 0x7FFFFF);
    const Values plain = {{"A3", 0.95},   {"A5", 100.1},   {"A7", 10.02}, {"A9", 1.003}, {"A11", 100.4}, {"A13", 10.05},
                          {"A15", 1.006}, {"A2", -1.2345}, {"A25", 0.11}, {"A26", 0.12}, {"A24", 0.13},  {"A23", 0.14}};
    const Values measured = {{"A20", 71.2}, {"A21", 45.3}, {"A22", 9.8}, {"A17", 6.1}, {"A18", 4.2}, {"A19", 2.3}};
    EXPECT_EQ(told.values, plain);
    EXPECT_EQ(told.measured, measured);
    // e0 0x01, e1 0x09, e3 0xC1: 0x2, 0x20000 and 0x200000, 0x200 with the archive's 0x10000 and 0x8000
    EXPECT_EQ(told.A28, 0x238202);
}

TEST_P(VistRecords, FieldsWithoutTheirBitTakeNoPlaceInTheRecord) {
    const vist::ArchiveRecord told =
        record(fields().n(0xAABB, 2).n(9, 1).n(0x00070000, 4).n(77, 1), 1U << 10 | 1U << 12 | 1U << 14 | 1U << 19);
    EXPECT_EQ(told.values, (Values{{"A2", 45.8752}, {"A23", 0.77}}));
    EXPECT_EQ(told.measured, (Values{{"A18", 0.9}}));
    EXPECT_FALSE(told.A28);
    EXPECT_EQ(record(fields(), 0).values, Values{});
}

TEST_P(VistRecords, VolumesAreUnsignedAndTemperaturesToo) {
    const vist::ArchiveRecord told = record(fields().n(0xFFFFFFFF, 4).n(0xFFFF, 2), 1U << 1 | 1U << 7, {});
    EXPECT_EQ(told.values, (Values{{"A5", 4294967295.0}}));
    EXPECT_EQ(told.measured, (Values{{"A20", 6553.5, false}}));
}

TEST_P(VistRecords, ATemperatureIsGoodBelow500DegreesAndAPressureUnlessItIsExactlyZero) {
    EXPECT_EQ(record(fields().n(4999, 2).n(5000, 2).n(5001, 2), 7U << 7).measured,
              (Values{{"A20", 499.9, true}, {"A21", 500.0, false}, {"A22", 500.1, false}}));
    EXPECT_EQ(record(fields().n(0, 1).n(1, 1).n(255, 1), 7U << 11).measured,
              (Values{{"A17", 0.0, false}, {"A18", 0.1, true}, {"A19", 25.5, true}}));
}

TEST_P(VistRecords, ACutRecordReadsNoForeignByte) {
    const Raw whole = record_packet(all_fields());
    for (std::size_t length = 0; length < whole.size(); ++length) {
        Raw bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        vist::decode_record_time(bytes);
        vist::take_full_hour(bytes);
        vist::decode_record(bytes, {.fSwapArch = true, .arch_mask = 0x7FFFFF, .totals = {}});
        vist::decode_header(bytes);
        EXPECT_EQ(bytes.size(), length);
    }
}

TEST(VistRecordTimes, TheTimeOfARecordIsReadAsItStandsAndThenAsAFullHour) {
    Raw bytes = record_packet(VistBytes().b({55}), {12, 30, 17});
    ASSERT_TRUE(vist::decode_record_time(bytes));
    EXPECT_EQ(texts_of(*vist::decode_record_time(bytes)), "12:30:17 02:03:24");
    EXPECT_EQ(texts_of(vist::take_full_hour(bytes)), "12:00:00 02:03:24");
    EXPECT_EQ(texts_of(*vist::decode_record_time(bytes)), "12:00:00 02:03:24") << "where it stands, too";
    ++bytes[12];
    EXPECT_FALSE(vist::decode_record_time(bytes)) << "a wrong sum";
}

// ---- whether a record is new

TEST(VistProgress, ARecordIsNewWithinAnHourOfTheLastOneAndTheFirstOneInAnyCase) {
    using Step = VISTProgress::Step;
    VISTProgress progress;
    EXPECT_EQ(progress.step_to(Noon), Step::New);
    EXPECT_EQ(progress.step_to(Noon), Step::Stored);
    EXPECT_EQ(progress.step_to(Noon - 3600), Step::Stored) << "or an older one";
    EXPECT_EQ(progress.step_to(Noon + 3601), Step::BehindHole);
    EXPECT_EQ(progress.last_request_archive_data, Noon);
    EXPECT_EQ(progress.step_to(Noon + 3600), Step::New) << "exactly an hour is no hole";
    EXPECT_EQ(progress.last_request_archive_data, Noon + 3600);
}

TEST(VistProgress, TheRecordJustWrittenIsNotWrittenTwiceInOnePass) {
    VISTProgress progress{.last_archive_record = Noon};
    EXPECT_EQ(progress.step_to(Noon), VISTProgress::Step::WrittenInThisPass);
    EXPECT_EQ(progress.last_request_archive_data, Noon);
}

// ---- what becomes of them

class VistFiling : public VistDescribedStand, public ::testing::WithParamInterface<bool> {
  protected:
    /// A pass over an archive of this header and one record of every field.
    void pass(const Header& header, const Raw& newest) {
        ASSERT_TRUE(describe());
        meter.put("/ARC/DLD H", header.packet());
        meter.put_body("/ARC/DLD OLD", "OK");
        meter.put("/ARC/DLD =", newest);
        meter.put_body("/ARC/DLD SET 500", "OK");
        meter.put_once("/ARC/DLD +", newest);
        driver->get_archives(0);
    }
};

TEST_P(VistFiling, TotalsAreFiledAtTheHeadersOwnTimeAndARecordAsItsFullHourAnHourBefore) {
    const bool little = GetParam();
    VistBytes some = VistBytes(little).n(1001, 4).n(5000, 2).n(61, 1).n(0x01, 4);
    pass({.little = little, .mask = 1U << 1 | 1U << 7 | 1U << 11 | 1U << 15, .minute = 30},
         record_packet(some, {12, 30, 17}));
    const LineCounts expected = {{"A6", {{"1709382600,192,100.100000", 1}}}, {"A4", {{"1709382600,192,10.070000", 1}}},
                                 {"A5", {{"1709377200,192,100.100000", 1}}}, {"A20", {{"1709377200,0,500.000000", 1}}},
                                 {"A17", {{"1709377200,192,6.100000", 1}}},  {"A28", {{"1709377200,192,2.000000", 1}}}};
    EXPECT_EQ(lines_in("tmp_archives"), expected);
    EXPECT_EQ(lines_in("tc_archives").size(), 0U) << "the walk is staged";
}

TEST_P(VistFiling, AHeaderOfAnEarlierTimeIsNotFiled) {
    pass({.little = GetParam()}, record_packet(VistBytes()));
    const LineCounts once = lines_in("tmp_archives");
    pass({.little = GetParam(), .hour = 11}, record_packet(VistBytes()));
    EXPECT_EQ(lines_in("tmp_archives"), once);
    EXPECT_EQ(logged("Current header timestamp is exists, return false"), 1);
}

TEST_P(VistFiling, ARecordWithoutAnyFieldOnlyMovesTheTimeOn) {
    pass({.little = GetParam(), .mask = 0}, record_packet(VistBytes()));
    EXPECT_EQ(logged("delta_date + 3600 = " + std::to_string(Noon + 3600)), 1);
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
}

TEST_P(VistFiling, AHeaderBehindTheEndOfTheGatewaysTimeIsNotFiled) {
    pass({.little = GetParam(), .year = 99}, record_packet(VistBytes()));
    EXPECT_EQ(logged("CRC ok"), 1);
    EXPECT_EQ(logged("Current header timestamp is exists, return false"), 1);
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
}

std::string order_name(const ::testing::TestParamInfo<bool>& info) {
    return info.param ? "LittleEndian" : "BigEndian";
}

INSTANTIATE_TEST_SUITE_P(Orders, VistRecords, ::testing::Bool(), order_name);
INSTANTIATE_TEST_SUITE_P(Orders, VistFiling, ::testing::Bool(), order_name);

}  // namespace
