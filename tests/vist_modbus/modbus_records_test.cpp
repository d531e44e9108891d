// The contents of the meter's archive files: what they hold, a header, a record, and the lines that they become.

#include <string>
#include <vector>

#include "support/modbus_blocks.h"

namespace {

constexpr std::time_t Ten = 1709373600;  // 2024-03-02 10:00:00
constexpr std::time_t Hour = 3600;
constexpr std::size_t Crc = 2;  // behind length and type of the file answer
constexpr std::size_t Fields = 3;

// ---- what the archive files hold

using ModbusArchiveContents = ModbusDecoding;

TEST_F(ModbusArchiveContents, TheMaskStandsAByteLaterInTheBlockOfTheSecondSystem) {
    for (const int s : {0, 1, 2}) {
        driver->selected_subsystem = s;
        const std::size_t at = s == 1 ? 3 : 2;
        driver->process_archive_specs(ModbusBlock(10).n(0, 0xFFFFFFFFFFFFFFFF, 8).n(at, 0x00004011, 4), reqSpecs[2]);
        EXPECT_EQ(logged("Processing archive specs (16401)..."), s + 1);
        EXPECT_TRUE(driver->hasC);
        EXPECT_TRUE(driver->hasE);
        EXPECT_EQ(driver->hasM, (std::array<bool, 3>{true, false, false}));
    }
}

TEST_F(ModbusArchiveContents, EachBitSaysWhetherOneTotalIsThere) {
    for (int bit = 0; bit < 32; ++bit) {
        driver->process_archive_specs(ModbusBlock(10).n(2, 1U << bit, 4), reqSpecs[2]);
        EXPECT_EQ(driver->hasC, bit == 0) << bit;
        EXPECT_EQ(driver->hasE, bit == 14) << bit;
        EXPECT_EQ(driver->hasM, (std::array<bool, 3>{bit == 4, bit == 5, bit == 6})) << bit;
        EXPECT_EQ(driver->hasV, (std::array<bool, 3>{true, true, true})) << "volumes are there in any case, " << bit;
    }
}

TEST_F(ModbusArchiveContents, ANewDriverKnowsOfNoTotals) {
    EXPECT_FALSE(driver->hasC || driver->hasE);
    EXPECT_EQ(driver->hasV, (std::array<bool, 3>{}));
    EXPECT_EQ(driver->hasM, (std::array<bool, 3>{}));
}

// ---- a header

class ModbusHeader : public ModbusDecoding {
  protected:
    /// The header of 10:00: totals 1000001 to 1000006, 123.45 hours, 2 to the power of 40.
    static ModbusBlock header() {
        ModbusBlock block(98);
        block.n(0, 97, 1).n(1, 6, 1).n(2 + 6, 0x0040C883, 4).n(2 + 10, 5, 2).n(2 + 12, 2, 2).n(2 + 14, 1536, 2);
        block.n(2 + 16, 0x0A0000020318, 6);
        for (std::size_t k = 0; k < 6; ++k) block.n(2 + 22 + 4 * k, 1000001 + k, 4);
        return block.n(2 + 46, 12345, 4).n(2 + 50, 1ULL << 40U, 8).n(2 + 58, 0x02010304, 4);
    }
    void know_all() {
        driver->hasC = driver->hasE = true;
        driver->hasV = driver->hasM = {true, true, true};
    }
    void decode(const ModbusBlock& block, int system = 0) {
        driver->selected_subsystem = system;
        driver->process_archive_header(block, reqArchiveHeaderFile);
    }
};

TEST_F(ModbusHeader, ItsTotalsAreFiledAtItsTime) {
    know_all();
    decode(header(), 1);
    const LineCounts expected = {
        {"A1", {{stored_line(Ten, 192, 109951162.7776), 1}}}, {"A4", {{stored_line(Ten, 192, 123.45), 1}}},
        {"A6", {{stored_line(Ten, 192, 10000.01), 1}}},       {"A8", {{stored_line(Ten, 192, 100000.2), 1}}},
        {"A10", {{stored_line(Ten, 192, 1000.003), 1}}},      {"A12", {{stored_line(Ten, 192, 10000.04), 1}}},
        {"A14", {{stored_line(Ten, 192, 100000.5), 1}}},      {"A16", {{stored_line(Ten, 192, 1000.006), 1}}},
    };
    EXPECT_EQ(lines_in("tmp_archives", 2), expected);
    EXPECT_TRUE(lines_in("tmp_archives", 1).empty());
}

TEST_F(ModbusHeader, TellsOfItsRing) {
    decode(header());
    EXPECT_EQ(driver->arch_mask, 0x0040C883U);
    EXPECT_EQ(driver->recs_count, 5);
    EXPECT_EQ(driver->next_rec_index, 3) << "one more than the meter says";
    EXPECT_EQ(driver->max_records, 1536);
    EXPECT_EQ(driver->arch_precision, (std::array<std::uint8_t, 4>{2, 1, 3, 4}));
    EXPECT_TRUE(driver->record_ok);
    EXPECT_TRUE(driver->arch_continue);
    EXPECT_EQ(driver->last_request_date_header[0], Ten);
    std::tm header_tm = driver->header_tm;
    std::tm record_tm = driver->record_tm;
    EXPECT_EQ(std::mktime(&header_tm), Ten);
    EXPECT_EQ(std::mktime(&record_tm), Ten);
}

TEST_F(ModbusHeader, TheTimeWorkedIsAnItemToo) {
    driver->hasC = true;
    decode(header(), 2);
    EXPECT_EQ(item("IT1", 3), "123.450000");
    EXPECT_TRUE(logged_in_order({"Processing archive header...", "set_worktime_value:12345 -> 123.450000"}));
    EXPECT_EQ(staged("A4", 3), stored_line(Ten, 192, 123.45) + "\n");
    EXPECT_EQ(staged("A1", 3), "");
}

TEST_F(ModbusHeader, OnlyTotalsThatTheMeterHasAreFiled) {
    driver->hasV = {true, false, true};
    driver->hasM = {false, true, false};
    decode(header());
    std::string names;
    for (const auto& [name, lines] : lines_in("tmp_archives")) names += name + " ";
    EXPECT_EQ(names, "A10 A14 A6 ");
    EXPECT_EQ(item("IT1"), "(none)");
    EXPECT_EQ(logged_start("set_worktime_value:"), 0);
}

TEST_F(ModbusHeader, AnOldHeaderIsNotFiledAndStopsTheWalk) {
    for (const std::time_t last : {Ten, Ten + 1, Ten + Hour}) {
        know_all();
        driver->last_request_date_header[0] = last;
        decode(header());
        EXPECT_FALSE(driver->arch_continue);
        EXPECT_TRUE(driver->record_ok);
        EXPECT_EQ(driver->last_request_date_header[0], last);
        EXPECT_TRUE(lines_in("tmp_archives").empty());
    }
    driver->last_request_date_header[0] = Ten - 1;
    decode(header());
    EXPECT_TRUE(driver->arch_continue);
    EXPECT_EQ(staged("A1"), stored_line(Ten, 192, 109951162.7776) + "\n") << "nothing was left of the old ones";
}

TEST_F(ModbusHeader, EachHeatSystemHasAHeaderTimeOfItsOwn) {
    know_all();
    driver->last_request_date_header = {Ten + Hour, 0, Ten + Hour};
    decode(header(), 1);
    EXPECT_EQ(driver->last_request_date_header, (HCD_VISTmodbus::PerSystem{Ten + Hour, Ten, Ten + Hour}));
    EXPECT_EQ(lines_in("tmp_archives", 2).size(), 8U);
}

TEST_F(ModbusHeader, ATotalOf64BitsIsTakenWhole) {
    know_all();
    ModbusBlock block = header();
    block.n(2 + 50, 0x8000000000000000, 8).n(2 + 61, 0, 1);
    decode(block);
    EXPECT_EQ(staged("A1"), "1709373600,192,9223372036854775808.000000\n");
}

TEST_F(ModbusHeader, ItsTotalsAreUnsigned) {
    know_all();
    ModbusBlock block = header();
    for (std::size_t k = 0; k < 6; ++k) block.n(2 + 22 + 4 * k, 0x80000000 + k, 4);
    decode(block.n(2 + 46, 0xFFFFFFFF, 4).n(2 + 58, 0, 4));
    double total = 2147483648.0;
    for (const char* name : {"A6", "A8", "A10", "A12", "A14", "A16"}) {
        EXPECT_EQ(staged(name), stored_line(Ten, 192, total) + "\n") << name;
        total += 1;
    }
    EXPECT_EQ(staged("A4"), "1709373600,192,42949672.950000\n");
    EXPECT_EQ(item("IT1"), "42949672.950000");
}

TEST_F(ModbusHeader, ItsCountsAreUnsignedAndThePlaceBehindTheLastIsZero) {
    decode(header().n(2 + 10, 0x8001, 2).n(2 + 12, 0x8002, 2).n(2 + 14, 0xFFFF, 2));
    EXPECT_EQ(driver->recs_count, 32769);
    EXPECT_EQ(driver->next_rec_index, 32771);
    EXPECT_EQ(driver->max_records, 65535);
    decode(header().n(2 + 12, 0xFFFF, 2));
    EXPECT_EQ(driver->next_rec_index, 0) << "sixteen bits";
}

TEST_F(ModbusHeader, AnOldHeaderStillTellsOfTheTimeWorkedAndOfItsRing) {
    know_all();
    driver->last_request_date_header[0] = Ten;
    decode(header());
    EXPECT_EQ(item("IT1"), "123.450000");
    EXPECT_EQ(driver->arch_mask, 0x0040C883U);
    EXPECT_EQ(driver->recs_count, 5);
    EXPECT_EQ(driver->next_rec_index, 3);
    EXPECT_EQ(driver->max_records, 1536);
    EXPECT_EQ(driver->arch_precision, (std::array<std::uint8_t, 4>{2, 1, 3, 4}));
    std::tm header_tm = driver->header_tm;
    EXPECT_EQ(std::mktime(&header_tm), Ten);
    EXPECT_TRUE(lines_in("tmp_archives").empty());
}

// ---- a record

class ModbusRecord : public ModbusDecoding {
  protected:
    /// A record that was asked for as that of 08:00, under a header of 10:00.
    void expect_record(std::uint32_t mask, int size, const std::string& at = "2024-03-02 08:00") {
        driver->arch_mask = mask;
        driver->arch_precision = {2, 1, 3, 4};
        arch_record_size = size;
        driver->record_tm = broken_down(at);
        driver->header_tm = broken_down("2024-03-02 10:00");
        driver->arch_continue = true;
    }
    void decode(ModbusBlock block, int system = 0) {
        driver->selected_subsystem = system;
        block.n(0, 110, 1).n(1, 6, 1).sum(Crc, static_cast<std::size_t>(arch_record_size) - 1);
        driver->process_archive_record(block, reqArchiveRecordFile);
    }
    static std::tm broken_down(const std::string& local) {
        const std::time_t time = sim::local_seconds(local);
        std::tm tm{};
        ::localtime_r(&time, &tm);
        return tm;
    }
};

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

TEST_F(ModbusRecord, EveryFieldHasItsFile) {
    expect_record(0x007FFFFF, 54);
    ModbusBlock block(112);
    LineCounts expected;
    std::size_t at = Fields;
    for (const Field& field : RecordFields) {
        block.n(at, field.raw, field.width);
        at += static_cast<std::size_t>(field.width);
        if (!field.file.empty()) ++expected[field.file][stored_line(Ten - 2 * Hour, field.quality, field.value)];
    }
    decode(block, 1);
    EXPECT_EQ(lines_in("tmp_archives", 2), expected);
    EXPECT_EQ(driver->last_request_date[1], Ten - 2 * Hour);
}

TEST_F(ModbusRecord, AFieldStandsRightBehindTheSumWhenItIsAlone) {
    for (const Field& field : RecordFields) {
        if (field.file.empty() || field.bit == 22) continue;
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        expect_record(1U << field.bit, 1 + field.width);
        decode(ModbusBlock(112).n(Fields, field.raw, field.width));
        const LineCounts expected = {{field.file, {{stored_line(Ten - 2 * Hour, field.quality, field.value), 1}}}};
        EXPECT_EQ(lines_in("tmp_archives"), expected) << field.bit;
    }
}

TEST_F(ModbusRecord, TheLastFieldStandsOverThePlacesOfTheTwoBeforeItWhetherTheyAreThereOrNot) {
    const std::vector<std::pair<std::uint32_t, int>> masks = {
        {0x00400001, 3}, {0x00500001, 6}, {0x00600001, 4}, {0x00700001, 7}};
    for (const auto& [mask, size] : masks) {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        expect_record(mask, size);
        decode(ModbusBlock(112).n(Fields, 50, 1).n(Fields + 5, 42, 1));
        EXPECT_EQ(staged("A27"), stored_line(Ten - 2 * Hour, 192, 0.42) + "\n") << mask;
        EXPECT_EQ(staged("A3"), stored_line(Ten - 2 * Hour, 192, 0.5) + "\n") << mask;
    }
}

TEST_F(ModbusRecord, OnlyMinusThousandIsASensorThatGivesNothing) {
    for (const auto& [raw, quality] : {std::pair{-1000, 0}, {-999, 192}, {-1001, 192}, {5001, 192}, {32767, 192}}) {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        expect_record(0x780, 9);
        ModbusBlock block(112);
        for (std::size_t k = 0; k < 4; ++k) block.n(Fields + 2 * k, static_cast<std::uint64_t>(raw), 2);
        decode(block);
        for (const char* name : {"A20", "A21", "A22", "T4"}) {
            EXPECT_EQ(staged(name), stored_line(Ten - 2 * Hour, quality, raw / 10.0) + "\n") << name;
        }
    }
}

TEST_F(ModbusRecord, BitsAboveTheTableMeanNothing) {
    expect_record(0xFF800001, 2);
    decode(ModbusBlock(112).n(Fields, 100, 1));
    EXPECT_EQ(lines_in("tmp_archives").size(), 1U);
}

TEST_F(ModbusRecord, AWrongSumIsToldAndTheRecordLeftAlone) {
    expect_record(0x1, 2);
    driver->record_ok = true;
    ModbusBlock block(112);
    driver->process_archive_record(block.n(Crc, 99, 1).n(Fields, 100, 1), reqArchiveRecordFile);
    EXPECT_FALSE(driver->record_ok);
    EXPECT_EQ(log(), Texts{"Archive record CRC FAIL:100 vs 99"});
    EXPECT_TRUE(lines_in("tmp_archives").empty());
    EXPECT_TRUE(driver->arch_continue);
    EXPECT_EQ(driver->last_request_date[0], 0);
}

TEST_F(ModbusRecord, TheSumIsOfTheBytesOfARecordAlone) {
    expect_record(0x1, 2);
    ModbusBlock block(112);
    driver->process_archive_record(block.n(Crc, 0x65, 1).n(Fields, 0x65, 1).n(Fields + 1, 0xA5A5, 2),
                                   reqArchiveRecordFile);
    EXPECT_TRUE(driver->record_ok);
}

TEST_F(ModbusRecord, AGoodRecordTellsItsStory) {
    expect_record(0x1, 2);
    driver->last_request_date[0] = Ten - 3 * Hour;
    decode(ModbusBlock(112).n(Fields, 100, 1));
    EXPECT_EQ(log(), (Texts{
                         "Archive record initialized now, no integrators",
                         "Archive record date/time: 02.03.2024 08:00:00",
                         "Data ready. Try write.",
                         "last_request_date = 1709362800, arch_rawtime = 1709366400",
                         "flush_archives as 1709366400",
                     }));
    EXPECT_TRUE(driver->record_ok);
    EXPECT_TRUE(driver->arch_continue);
    EXPECT_EQ(driver->last_request_date[0], Ten - 2 * Hour);
}

TEST_F(ModbusRecord, AtTheHeadersTimeItHasCaughtUpAndIsNotFiled) {
    expect_record(0x81, 4, "2024-03-02 10:00");
    decode(ModbusBlock(112).n(Fields, 100, 1));
    EXPECT_TRUE(driver->record_ok);
    EXPECT_FALSE(driver->arch_continue);
    EXPECT_EQ(driver->last_request_date[0], 0);
    EXPECT_TRUE(lines_in("tmp_archives").empty());
    EXPECT_EQ(log(), (Texts{
                         "Archive record initialized earlier, integrators included",
                         "Archive record date/time: 02.03.2024 10:00:00",
                         "Data ready. Try write.",
                         "last_request_date = 0, arch_rawtime = 1709373600",
                     }));
}

TEST_F(ModbusRecord, BehindTheHeadersTimeItIsNotFiledEither) {
    expect_record(0x1, 2, "2024-03-02 11:00");
    decode(ModbusBlock(112).n(Fields, 100, 1));
    EXPECT_FALSE(driver->arch_continue);
    EXPECT_TRUE(lines_in("tmp_archives").empty());
    EXPECT_EQ(logged("Archive record initialized now, no integrators"), 1);
}

TEST_F(ModbusRecord, WhatWasNotFiledDoesNotGoIntoTheNextRecord) {
    expect_record(0xC081, 12, "2024-03-02 10:00");
    decode(ModbusBlock(112).n(Fields, 100, 1));
    expect_record(0xC081, 12);
    decode(ModbusBlock(112).n(Fields, 50, 1));
    const LineCounts expected = {
        {"A3", {{stored_line(Ten - 2 * Hour, 192, 0.5), 1}}},
        {"A20", {{stored_line(Ten - 2 * Hour, 192, 0), 1}}},
        {"A2", {{stored_line(Ten - 2 * Hour, 192, 0), 1}}},
        {"A28", {{stored_line(Ten - 2 * Hour, 192, 0), 1}}},
    };
    EXPECT_EQ(lines_in("tmp_archives"), expected);
}

TEST_F(ModbusRecord, ARecordThatIsFiledEndsAnEarlierStop) {
    expect_record(0x1, 2);
    driver->arch_continue = false;
    decode(ModbusBlock(112).n(Fields, 100, 1));
    EXPECT_TRUE(driver->arch_continue);
}

}  // namespace
