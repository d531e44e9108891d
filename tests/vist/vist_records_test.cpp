// The two packets of the meter's archive, byte for byte: the header with its totals, and the hourly record.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "support/vist_archive_scene.h"

namespace {

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

class VistRecords : public VistArchiveBench, public ::testing::WithParamInterface<bool> {
  protected:
    VistRecords() {
        start_driver();
        driver->fSwapArch = !little();
    }
    bool little() const { return GetParam(); }

    void put(const std::vector<std::uint8_t>& packet) {
        const auto buffer = driver->buffers.GetBuffer(driver->functions.archheader);
        std::fill(buffer.begin(), buffer.end(), std::uint8_t{0});
        std::copy(packet.begin(), packet.end(), buffer.begin());
    }
    bool take_header(const Header& header) {
        put(header.packet());
        return driver->flush_archive_header();
    }
    /// A record of the meter's 12:00 with these fields.
    bool take_record(const VistBytes& fields, std::uint32_t mask, std::initializer_list<int> clock = {12, 0, 0}) {
        driver->arch_mask = mask;
        VistBytes body;
        body.b(clock).b({2, 3, 24, 0});
        std::vector<std::uint8_t> bytes = body.bytes();
        bytes.insert(bytes.end(), fields.bytes().begin(), fields.bytes().end());
        put(vist_test_packet(21, bytes, 6, 7));
        error = -1;
        return driver->flush_archive_data(error);
    }
    VistBytes fields() const { return VistBytes(little()); }
    static std::string at_noon(const std::string& rest) { return "1709380800," + rest + "\n"; }
    static std::string at_eleven(const std::string& rest) { return "1709377200," + rest + "\n"; }

    int error = -1;
};

// ---- the header

TEST_P(VistRecords, TheTotalsOfAHeaderAreFiledAtTheHeadersOwnTime) {
    EXPECT_TRUE(take_header({.little = little()}));
    EXPECT_EQ(staged("A6"), at_noon("192,100.100000")) << "p0";
    EXPECT_EQ(staged("A8"), at_noon("192,10.020000")) << "p1";
    EXPECT_EQ(staged("A10"), at_noon("192,1.003000")) << "p2";
    EXPECT_EQ(staged("A12"), at_noon("192,100.400000")) << "p0 again";
    EXPECT_EQ(staged("A14"), at_noon("192,10.050000")) << "p1 again";
    EXPECT_EQ(staged("A16"), at_noon("192,1.006000")) << "p2 again";
    EXPECT_EQ(staged("A4"), at_noon("192,10.070000")) << "hundredths";
    EXPECT_EQ(staged("A1"), at_noon("192,0.100800")) << "p3";
    EXPECT_EQ(lines_in("tc_archives").size(), 0U) << "the walk is staged";
}

TEST_P(VistRecords, AHeaderTellsTheByteOrderOfTheWholeArchive) {
    driver->fSwapArch = little();
    take_header({.little = little(), .enumer_rest = 0x7F});
    EXPECT_EQ(driver->fSwapArch, !little()) << "bit 7 alone tells";
}

TEST_P(VistRecords, AHeaderTellsMaskCountsAndPrecisions) {
    take_header({.little = little(), .mask = 0x12345678});
    EXPECT_EQ(driver->arch_mask, 0x12345678U);
    EXPECT_EQ(driver->ArchiveRecNum, 500);
    EXPECT_EQ(driver->ArchiveRecNew, 499);
    EXPECT_EQ(driver->ArchiveRecMax, 1536);
    EXPECT_EQ(driver->arch_precision, (std::array<std::uint8_t, 4>{1, 2, 3, 4}));
}

TEST_P(VistRecords, ACountOfAHeaderIsASignedNumber) {
    take_header({.little = little(), .rec_num = 0xFFFE});
    EXPECT_EQ(driver->ArchiveRecNum, -2);
}

TEST_P(VistRecords, TheFirstTotalsAreUnsignedAndTheEnergyIsSigned) {
    take_header({.little = little(), .first_total = 0xFFFFFFFF, .energy = static_cast<std::uint64_t>(-25000)});
    EXPECT_EQ(staged("A6"), at_noon("192,429496729.500000"));
    EXPECT_EQ(staged("A1"), at_noon("192,-2.500000"));
}

TEST_P(VistRecords, TheEnergyOfAHeaderTakesMoreThanFourBytes) {
    take_header({.little = little(), .energy = 123456789012500});
    EXPECT_EQ(staged("A1"), at_noon("192,12345678901.250000"));
}

TEST_P(VistRecords, ATotalIsFiledOnlyIfItsBitIsSetAndAllStayAtTheirPlaces) {
    struct Bit {
        int bit;
        const char* name;
    };
    constexpr Bit bits[] = {{1, "A6"},  {2, "A8"},  {3, "A10"}, {4, "A12"},
                            {5, "A14"}, {6, "A16"}, {7, "A4"},  {14, "A1"}};
    ASSERT_TRUE(take_header({.little = little()}));
    LineCounts whole = lines_in("tmp_archives");
    for (const Bit& bit : bits) {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        start_driver();
        ASSERT_TRUE(take_header({.little = little(), .mask = 1U << bit.bit}));
        const LineCounts lines = lines_in("tmp_archives");
        EXPECT_EQ(lines.size(), 1U);
        ASSERT_TRUE(lines.contains(bit.name)) << bit.bit;
        EXPECT_EQ(lines.at(bit.name), whole.at(bit.name));
    }
}

TEST_P(VistRecords, AHeaderWhoseBitsNameNoTotalFilesNothing) {
    EXPECT_TRUE(take_header({.little = little(), .mask = ~AllTotals}));
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
    EXPECT_EQ(driver->last_request_archive_header[0], Noon) << "but its time has moved on";
}

TEST_P(VistRecords, AHeaderWithAWrongSumIsNotFiled) {
    std::vector<std::uint8_t> packet = Header{.little = little()}.packet();
    ++packet[7];
    put(packet);
    EXPECT_FALSE(driver->flush_archive_header());
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
    EXPECT_EQ(driver->last_request_archive_header[0], 0);
    EXPECT_EQ(logged("Incoming CRC != calc CRC, return false"), 1);
}

TEST_P(VistRecords, TheSumOfAHeaderLeavesOutItsFirstByteAndReachesItsLast) {
    std::vector<std::uint8_t> packet = Header{.little = little()}.packet();
    packet[6] = 0xAB;
    put(packet);
    EXPECT_TRUE(driver->flush_archive_header());
    packet = Header{.little = little(), .hour = 13}.packet();
    ++packet.back();
    put(packet);
    EXPECT_FALSE(driver->flush_archive_header());
}

TEST_P(VistRecords, AHeaderOfTheSameTimeOrAnEarlierOneIsNotFiledAgain) {
    ASSERT_TRUE(take_header({.little = little()}));
    const LineCounts once = lines_in("tmp_archives");
    EXPECT_FALSE(take_header({.little = little()}));
    EXPECT_FALSE(take_header({.little = little(), .hour = 11}));
    EXPECT_EQ(lines_in("tmp_archives"), once);
    EXPECT_EQ(driver->last_request_archive_header[0], Noon);
    EXPECT_EQ(logged("Current header timestamp is exists, return false"), 2);
}

TEST_P(VistRecords, AHeaderBehindTheEndOfTheGatewaysTimeIsNotFiled) {
    EXPECT_FALSE(take_header({.little = little(), .year = 99}));
    EXPECT_EQ(logged("CRC ok"), 1);
    EXPECT_EQ(logged("Current header timestamp is exists, return false"), 1);
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
    EXPECT_EQ(driver->last_request_archive_header[0], 0);
}

TEST_P(VistRecords, AHeaderIsFiledAtItsOwnMinute) {
    ASSERT_TRUE(take_header({.little = little(), .minute = 30}));
    EXPECT_EQ(staged("A6"), "1709382600,192,100.100000\n");
}

// ---- the record

TEST_P(VistRecords, EachFieldOfARecordGoesToItsFileAnHourBeforeTheRecord) {
    driver->arch_precision = {1, 2, 3, 4};
    VistBytes all = fields();
    all.n(95, 1).n(1001, 4).n(1002, 4).n(1003, 4).n(1004, 4).n(1005, 4).n(1006, 4);
    all.n(712, 2).n(453, 2).n(98, 2).n(7777, 2).n(61, 1).n(42, 1).n(23, 1).n(static_cast<std::uint64_t>(-12345), 4);
    all.n(0xC1000901, 4).n(11, 1).n(12, 1).n(13, 1).n(14, 1).n(0x010203, 3).n(4, 1).n(5, 1);
    EXPECT_TRUE(take_record(all, 0x7FFFFF));
    EXPECT_EQ(error, 0);
    const LineCounts expected = {
        {"A3", {{"1709377200,192,0.950000", 1}}},
        {"A5", {{"1709377200,192,100.100000", 1}}},
        {"A7", {{"1709377200,192,10.020000", 1}}},
        {"A9", {{"1709377200,192,1.003000", 1}}},
        {"A11", {{"1709377200,192,100.400000", 1}}},
        {"A13", {{"1709377200,192,10.050000", 1}}},
        {"A15", {{"1709377200,192,1.006000", 1}}},
        {"A20", {{"1709377200,192,71.200000", 1}}},
        {"A21", {{"1709377200,192,45.300000", 1}}},
        {"A22", {{"1709377200,192,9.800000", 1}}},
        {"A17", {{"1709377200,192,6.100000", 1}}},
        {"A18", {{"1709377200,192,4.200000", 1}}},
        {"A19", {{"1709377200,192,2.300000", 1}}},
        {"A2", {{"1709377200,192,-1.234500", 1}}},
        // e0 0x01, e1 0x09, e3 0xC1: 0x2, 0x20000 and 0x200000, 0x200 with the archive's 0x10000 and 0x8000
        {"A28", {{"1709377200,192,2327042.000000", 1}}},
        {"A25", {{"1709377200,192,0.110000", 1}}},
        {"A26", {{"1709377200,192,0.120000", 1}}},
        {"A24", {{"1709377200,192,0.130000", 1}}},
        {"A23", {{"1709377200,192,0.140000", 1}}},
    };
    EXPECT_EQ(lines_in("tmp_archives"), expected);
}

TEST_P(VistRecords, FieldsWithoutTheirBitTakeNoPlaceInTheRecord) {
    driver->arch_precision = {1, 2, 3, 4};
    VistBytes some = fields();
    some.n(0xAABB, 2).n(9, 1).n(0x00070000, 4).n(77, 1);
    EXPECT_TRUE(take_record(some, 1U << 10 | 1U << 12 | 1U << 14 | 1U << 19));
    const LineCounts expected = {{"A18", {{"1709377200,192,0.900000", 1}}},
                                 {"A2", {{"1709377200,192,45.875200", 1}}},
                                 {"A23", {{"1709377200,192,0.770000", 1}}}};
    EXPECT_EQ(lines_in("tmp_archives"), expected);
}

TEST_P(VistRecords, VolumesAreUnsignedAndTemperaturesToo) {
    VistBytes some = fields();
    some.n(0xFFFFFFFF, 4).n(0xFFFF, 2);
    driver->arch_precision = {0, 0, 0, 0};
    EXPECT_TRUE(take_record(some, 1U << 1 | 1U << 7));
    EXPECT_EQ(staged("A5"), at_eleven("192,4294967295.000000"));
    EXPECT_EQ(staged("A20"), at_eleven("0,6553.500000"));
}

TEST_P(VistRecords, ATemperatureIsGoodBelow500Degrees) {
    VistBytes some = fields();
    some.n(4999, 2).n(5000, 2).n(5001, 2);
    EXPECT_TRUE(take_record(some, 7U << 7));
    EXPECT_EQ(staged("A20"), at_eleven("192,499.900000"));
    EXPECT_EQ(staged("A21"), at_eleven("0,500.000000"));
    EXPECT_EQ(staged("A22"), at_eleven("0,500.100000"));
}

TEST_P(VistRecords, APressureOfExactlyZeroIsNotGood) {
    EXPECT_TRUE(take_record(fields().n(0, 1).n(1, 1).n(255, 1), 7U << 11));
    EXPECT_EQ(staged("A17"), at_eleven("0,0.000000"));
    EXPECT_EQ(staged("A18"), at_eleven("192,0.100000"));
    EXPECT_EQ(staged("A19"), at_eleven("192,25.500000"));
}

TEST_P(VistRecords, ARecordWithoutAnyFieldOnlyMovesTheTimeOn) {
    EXPECT_TRUE(take_record(fields(), 0));
    EXPECT_EQ(error, 0);
    EXPECT_EQ(driver->last_request_archive_data[0], Noon);
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
}

TEST_P(VistRecords, ARecordOfAnyMinuteIsFiledAsItsFullHour) {
    EXPECT_TRUE(take_record(fields().n(100, 1), 1, {12, 30, 17}));
    EXPECT_EQ(staged("A3"), at_eleven("192,1.000000"));
    EXPECT_EQ(driver->last_request_archive_data[0], Noon);
}

TEST_P(VistRecords, ARecordThatIsStoredAlreadyOrOlderIsPassedOver) {
    driver->last_request_archive_data[0] = Noon;
    EXPECT_TRUE(take_record(fields().n(100, 1), 1));
    EXPECT_TRUE(take_record(fields().n(100, 1), 1, {11, 0, 0}));
    EXPECT_EQ(driver->last_request_archive_data[0], Noon);
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
    EXPECT_EQ(logged("Current data timestamp is exists, return true"), 2);
}

TEST_P(VistRecords, ARecordMoreThanAnHourBehindTheLastOneEndsTheWalk) {
    driver->last_request_archive_data[0] = Noon - 7200;
    EXPECT_FALSE(take_record(fields().n(100, 1), 1));
    EXPECT_EQ(error, 0);
    EXPECT_EQ(driver->last_request_archive_data[0], Noon - 7200);
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
    EXPECT_EQ(logged("Record's timestamp less that coming record's timestamp "), 1);
    driver->last_request_archive_data[0] = Noon - 3600;
    EXPECT_TRUE(take_record(fields().n(100, 1), 1)) << "exactly an hour is no hole";
    EXPECT_EQ(staged("A3"), at_eleven("192,1.000000"));
}

TEST_P(VistRecords, TheFirstRecordOfAllIsTakenWithoutATestForAHole) {
    EXPECT_TRUE(take_record(fields().n(100, 1), 1));
    EXPECT_EQ(staged("A3"), at_eleven("192,1.000000"));
}

TEST_P(VistRecords, TheRecordJustWrittenIsNotWrittenTwiceInOnePass) {
    driver->last_archive_record = Noon;
    EXPECT_TRUE(take_record(fields().n(100, 1), 1));
    EXPECT_EQ(driver->last_request_archive_data[0], Noon);
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
    EXPECT_EQ(logged("pVISTdrv->last_archive_record != current_timestamp, return true"), 1);
    EXPECT_EQ(logged("Last request archive data = 1709380800"), 1);
}

TEST_P(VistRecords, ARecordGoesIntoTheDirectoryOfItsVirtualDevice) {
    driver->selected_subsystem = 5;
    EXPECT_TRUE(take_record(fields().n(100, 1), 1));
    EXPECT_EQ(staged("A3", 6), at_eleven("192,1.000000"));
    EXPECT_EQ(driver->last_request_archive_data[5], Noon);
    EXPECT_EQ(driver->last_request_archive_data[0], 0);
}

TEST_P(VistRecords, TheDateOfARecordIsReadAsItStands) {
    std::time_t date = 0;
    VistBytes body;
    body.b({12, 30, 17, 2, 3, 24, 0, 55});
    put(vist_test_packet(21, body.bytes(), 6, 7));
    EXPECT_TRUE(driver->getDateFromArchiveBuff(date));
    EXPECT_EQ(date, Noon + 1817);
    EXPECT_EQ(logged("pRec->crc == calc_crc"), 1);
}

TEST_P(VistRecords, ARecordWithAWrongSumHasNoDate) {
    VistBytes body;
    body.b({12, 0, 0, 2, 3, 24, 0, 55});
    std::vector<std::uint8_t> packet = vist_test_packet(21, body.bytes(), 6, 7);
    ++packet[12];
    put(packet);
    std::time_t date = 7;
    EXPECT_FALSE(driver->getDateFromArchiveBuff(date));
    EXPECT_EQ(logged("pRec->crc != calc_crc"), 1);
}

std::string order_name(const ::testing::TestParamInfo<bool>& info) {
    return info.param ? "LittleEndian" : "BigEndian";
}

INSTANTIATE_TEST_SUITE_P(Orders, VistRecords, ::testing::Bool(), order_name);

}  // namespace
