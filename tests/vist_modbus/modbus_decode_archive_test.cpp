// What the meter's archive files hold: the mask of their totals, a header, a record.

#include <string>
#include <vector>

#include "support/modbus_scene.h"

namespace {

using namespace vist_modbus;

constexpr std::size_t Crc = 2;  // behind length and type of the file answer
constexpr std::size_t Fields = 3;

// ---- which totals there are

TEST(ModbusArchiveSpecs, TheMaskStandsAByteLaterInTheBlockOfTheSecondSystem) {
    for (const int s : {0, 1, 2}) {
        const std::size_t at = s == 1 ? 3 : 2;
        const ModbusBlock block = ModbusBlock(10).n(0, 0xFFFFFFFFFFFFFFFF, 8).n(at, 0x00004011, 4);
        EXPECT_EQ(decode_archive_specs(block, s).spec_mask, 16401U);
    }
}

TEST(ModbusArchiveSpecs, EachBitSaysWhetherOneTotalIsThere) {
    for (int bit = 0; bit < 32; ++bit) {
        const ArchiveSetup setup = decode_archive_specs(ModbusBlock(10).n(2, 1U << bit, 4), 0);
        EXPECT_EQ(setup.hasC, bit == 0) << bit;
        EXPECT_EQ(setup.hasE, bit == 14) << bit;
        EXPECT_EQ(setup.hasM, (std::array<bool, 3>{bit == 4, bit == 5, bit == 6})) << bit;
        EXPECT_EQ(setup.hasV, (std::array<bool, 3>{true, true, true})) << "volumes are there in any case, " << bit;
    }
}

// ---- a header

/// The header of 10:00: totals 1000001 to 1000006, 123.45 hours, 2 to the power of 40.
ModbusBlock header_block() {
    ModbusBlock block(98);
    block.n(0, 97, 1).n(1, 6, 1).n(2 + 6, 0x0040C883, 4).n(2 + 10, 5, 2).n(2 + 12, 2, 2).n(2 + 14, 1536, 2);
    block.n(2 + 16, 0x0A0506020318, 6);
    for (std::size_t k = 0; k < 6; ++k) block.n(2 + 22 + 4 * k, 1000001 + k, 4);
    return block.n(2 + 46, 12345, 4).n(2 + 50, 1ULL << 40U, 8).n(2 + 58, 0x02010304, 4);
}

TEST(ModbusHeader, TellsOfItsTimeAndItsRing) {
    const ArchiveHeader header = decode_header(header_block());
    EXPECT_EQ(header.arch_mask, 0x0040C883U);
    EXPECT_EQ(header.recs_count, 5);
    EXPECT_EQ(header.next_rec_index, 3) << "one more than the meter says";
    EXPECT_EQ(header.max_records, 1536);
    EXPECT_EQ(header.arch_precision, (std::array<std::uint8_t, 4>{2, 1, 3, 4}));
    const std::tm& tm = header.header_tm;
    EXPECT_EQ((std::vector<int>{tm.tm_year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec}),
              (std::vector<int>{124, 2, 2, 10, 5, 6}));
}

TEST(ModbusHeader, ItsTotalsHaveThePrecisionOfTheirChannels) {
    const ArchiveHeader header = decode_header(header_block());
    EXPECT_EQ(stored_line(0, 0, header.E), stored_line(0, 0, 109951162.7776));
    EXPECT_EQ(header.C, 12345U);
    for (std::size_t i = 0; i < 3; ++i) {
        constexpr double Volumes[] = {10000.01, 100000.2, 1000.003};
        constexpr double Masses[] = {10000.04, 100000.5, 1000.006};
        EXPECT_DOUBLE_EQ(header.V[i], Volumes[i]);
        EXPECT_DOUBLE_EQ(header.M[i], Masses[i]);
    }
}

TEST(ModbusHeader, ItsNumbersAreUnsigned) {
    ModbusBlock block = header_block();
    for (std::size_t k = 0; k < 6; ++k) block.n(2 + 22 + 4 * k, 0x80000000 + k, 4);
    block.n(2 + 10, 0x8001, 2).n(2 + 12, 0x8002, 2).n(2 + 14, 0xFFFF, 2);
    block.n(2 + 46, 0xFFFFFFFF, 4).n(2 + 50, 0x8000000000000000, 8).n(2 + 58, 0, 4);
    const ArchiveHeader header = decode_header(block);
    EXPECT_EQ(header.V, (std::array<double, 3>{2147483648.0, 2147483649.0, 2147483650.0}));
    EXPECT_EQ(header.M, (std::array<double, 3>{2147483651.0, 2147483652.0, 2147483653.0}));
    EXPECT_EQ(header.C, 0xFFFFFFFF);
    EXPECT_EQ(header.E, 9223372036854775808.0) << "a total of 64 bits is taken whole";
    EXPECT_EQ(header.recs_count, 32769);
    EXPECT_EQ(header.next_rec_index, 32771);
    EXPECT_EQ(header.max_records, 65535);
    EXPECT_EQ(decode_header(block.n(2 + 12, 0xFFFF, 2)).next_rec_index, 0) << "sixteen bits";
}

// ---- a record

ArchiveHeader header_of(std::uint32_t mask) {
    return decode_header(header_block().n(2 + 6, mask, 4));
}

/// As "A5 192 -0.020000".
Texts values_of(const ModbusBlock& block, std::uint32_t mask) {
    Texts all;
    for (const ArchiveValue& each : decode_record(block, header_of(mask)).values) {
        all.push_back(std::string(each.file) + " " + std::to_string(each.quality) + " " + std::to_string(each.value));
    }
    return all;
}

struct Field {
    int bit;
    int width;
    std::uint64_t raw;
    std::string file;
    int quality;
    double value;
};

const std::vector<Field> RecordFields = {
    {0, 1, 100, "A3", 192, 1.0},          {1, 4, 0xFFFFFFFE, "A5", 192, -0.02},
    {2, 4, 12345, "A7", 192, 1234.5},     {3, 4, 12345, "A9", 192, 12.345},
    {4, 4, 12346, "A11", 192, 123.46},    {5, 4, 0x80000000, "A13", 192, -214748364.8},
    {6, 4, 12347, "A15", 192, 12.347},    {7, 2, 953, "A20", 192, 95.3},
    {8, 2, 0xFFFF, "A21", 192, -0.1},     {9, 2, 0xFC18, "A22", 0, -100.0},
    {10, 2, 72, "T4", 192, 7.2},          {11, 1, 61, "A17", 192, 6.1},
    {12, 1, 255, "A18", 192, 25.5},       {13, 1, 0, "A19", 192, 0.0},
    {14, 4, 0xFFFFD8F0, "A2", 192, -1.0}, {15, 4, 0x02000821, "A28", 192, 2113602},
    {16, 1, 25, "A25", 192, 0.25},        {17, 1, 26, "A26", 192, 0.26},
    {18, 1, 24, "A24", 192, 0.24},        {19, 1, 255, "A23", 192, 2.55},
    {20, 3, 0x030201, "", 0, 0},          {21, 1, 0x44, "", 0, 0},
    {22, 1, 27, "A27", 192, 0.27},
};

std::string line_of(const Field& field) {
    return field.file + " " + std::to_string(field.quality) + " " + std::to_string(field.value);
}

TEST(ModbusRecord, EveryFieldHasItsFile) {
    ModbusBlock block(112);
    Texts expected;
    std::size_t at = Fields;
    for (const Field& field : RecordFields) {
        block.n(at, field.raw, field.width);
        at += static_cast<std::size_t>(field.width);
        if (!field.file.empty()) expected.push_back(line_of(field));
    }
    EXPECT_EQ(values_of(block, 0x007FFFFF), expected);
    EXPECT_EQ(header_of(0x007FFFFF).arch_record_size, 54);
}

TEST(ModbusRecord, AFieldStandsRightBehindTheSumWhenItIsAlone) {
    for (const Field& field : RecordFields) {
        EXPECT_EQ(header_of(1U << field.bit).arch_record_size, 1 + field.width);
        if (field.file.empty() || field.bit == 22) continue;
        EXPECT_EQ(values_of(ModbusBlock(112).n(Fields, field.raw, field.width), 1U << field.bit),
                  Texts{line_of(field)});
    }
}

TEST(ModbusRecord, TheLastFieldStandsOverThePlacesOfTheTwoBeforeItWhetherTheyAreThereOrNot) {
    for (const std::uint32_t mask : {0x00400001U, 0x00500001U, 0x00600001U, 0x00700001U}) {
        EXPECT_EQ(values_of(ModbusBlock(112).n(Fields, 50, 1).n(Fields + 5, 42, 1), mask),
                  (Texts{"A3 192 0.500000", "A27 192 0.420000"}));
    }
}

TEST(ModbusRecord, OnlyMinusThousandIsASensorThatGivesNothing) {
    for (const auto& [raw, quality] : {std::pair{-1000, 0}, {-999, 192}, {-1001, 192}, {5001, 192}, {32767, 192}}) {
        ModbusBlock block(112);
        for (std::size_t k = 0; k < 4; ++k) block.n(Fields + 2 * k, static_cast<std::uint64_t>(raw), 2);
        const std::string value = " " + std::to_string(quality) + " " + std::to_string(raw / 10.0);
        EXPECT_EQ(values_of(block, 0x780), (Texts{"A20" + value, "A21" + value, "A22" + value, "T4" + value}));
    }
}

TEST(ModbusRecord, BitsAboveTheTableMeanNothing) {
    EXPECT_EQ(values_of(ModbusBlock(112).n(Fields, 100, 1), 0xFF800001), Texts{"A3 192 1.000000"});
    EXPECT_EQ(header_of(0xFFFFFFFF).arch_record_size, 54);
}

TEST(ModbusRecord, TheSumIsOfTheBytesOfARecordAlone) {
    const ModbusBlock block = ModbusBlock(112).n(Crc, 99, 1).n(Fields, 0x65, 1).n(Fields + 1, 0xA5A5, 2);
    const ArchiveRecord record = decode_record(block, header_of(0x1));
    EXPECT_EQ(record.sum, 0x65);
    EXPECT_EQ(record.crc, 99);
}

}  // namespace
