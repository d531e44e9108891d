// How a meter and its heat systems are set up: the blocks of holding registers, and the items that they become.

#include <cmath>
#include <string>
#include <vector>

#include "support/modbus_blocks.h"

namespace {

// ---- the meter

using ModbusConfig = ModbusDecoding;

TEST_F(ModbusConfig, FirmwareAndSerialNumberAreItemsOfTheHeatSystemInWork) {
    decode_config(main_config(), 1);
    EXPECT_EQ(item("Firmware", 2), "V2.10");
    EXPECT_EQ(item("SerialNumber", 2), "40123");
    EXPECT_EQ(item("_DriverStatus", 2), "1");
    EXPECT_EQ(item("Firmware", 1), "(none)");
    EXPECT_EQ(item("SerialNumber", 1), "(none)");
    EXPECT_EQ(driver->dev_serial, 40123);
}

TEST_F(ModbusConfig, TheModelIsAnItemOfTheFirstHeatSystemWhicheverIsInWork) {
    decode_config(main_config(), 2);
    EXPECT_EQ(item("MeterModel", 1), "VIST-TCC-5");
    EXPECT_EQ(item("MeterModel", 3), "(none)");
}

TEST_F(ModbusConfig, TheFirstTwoBytesOfTheNameGiveWayToTC) {
    const std::vector<std::pair<std::string, std::string>> names = {
        {"ABC-5", "VIST-TCC-5"}, {"\xD2\xD1-3", "VIST-TC-3"}, {"AB", "VIST-TC"}, {"A", "VIST-TC"}, {"", "VIST-TC"},
    };
    for (const auto& [name, model] : names) {
        ModbusBlock block = main_config();
        block.text(25, std::string(21, '\0')).text(25, name);
        decode_config(block);
        EXPECT_EQ(item("MeterModel"), model);
    }
}

TEST_F(ModbusConfig, ASerialNumberThatIsNoNumberIsShownAsItStands) {
    ModbusBlock block = main_config();
    block.text(46, "12-ab");
    decode_config(block);
    EXPECT_EQ(item("SerialNumber"), "12-ab");
    EXPECT_EQ(driver->dev_serial, 12);
}

TEST_F(ModbusConfig, EachHeatSystemHasItsOwnTubes) {
    ModbusBlock block = main_config();
    block.n(105 + 12, 50, 2).n(105 + 14, 40, 2).n(105 + 16, 25, 2);
    block.n(131 + 12, 65, 2).n(131 + 14, 32, 2).n(131 + 16, 15, 2);
    block.n(157 + 12, 65535, 2).n(157 + 14, 0, 2).n(157 + 16, 20, 2);
    for (const int s : {0, 1, 2}) decode_config(block, s);
    EXPECT_EQ(item("DN1", 1) + " " + item("DN2", 1) + " " + item("DN3", 1), "50 40 25");
    EXPECT_EQ(item("DN1", 2) + " " + item("DN2", 2) + " " + item("DN3", 2), "65 32 15");
    EXPECT_EQ(item("DN1", 3) + " " + item("DN2", 3) + " " + item("DN3", 3), "65535 0 20");
}

TEST_F(ModbusConfig, TheLogTellsOfTheMeterAndItsTubes) {
    ModbusBlock block = main_config();
    block.n(131, 9500, 2).n(133, 7000, 2).n(135, 500, 2).n(137, 60, 2).n(139, 40, 2).n(141, 20, 2);
    block.n(143, 50, 2).n(145, 40, 2).n(147, 25, 2);
    decode_config(block, 1);
    EXPECT_EQ(log(), (Texts{
                         "Processing main config...",
                         "PO_ver: V2.10",
                         "Name: ABC-5",
                         "Serial_num: 40123",
                         "Systems_count: 3",  //
                         "DU: 50 for system 1",
                         "temper: 9500",
                         "press: 60",  //
                         "DU: 40 for system 1",
                         "temper: 7000",
                         "press: 40",  //
                         "DU: 25 for system 1",
                         "temper: 500",
                         "press: 20",
                     }));
}

TEST_F(ModbusConfig, TheCountOfHeatSystemsIsTaken) {
    for (const int count : {0, 1, 2, 3}) {
        ModbusBlock block = main_config();
        block.n(197, static_cast<std::uint64_t>(count), 1);
        decode_config(block);
        EXPECT_EQ(driver->virtdev_count, count);
    }
    EXPECT_EQ(logged("Only the first 3 heat systems are served."), 0);
}

TEST_F(ModbusConfig, MoreThanThreeHeatSystemsAreTakenForThree) {
    for (const int count : {4, 200, 255}) {
        ModbusBlock block = main_config();
        block.n(197, static_cast<std::uint64_t>(count), 1);
        decode_config(block);
        EXPECT_EQ(driver->virtdev_count, 3);
        EXPECT_TRUE(
            logged_in_order({"Systems_count: " + std::to_string(count), "Only the first 3 heat systems are served."}));
    }
}

// ---- a heat system

using ModbusHeatSystem = ModbusDecoding;

TEST_F(ModbusHeatSystem, ItsNameIsConvertedFromWindows1251) {
    ModbusBlock block = heat_system();
    block.text(0, "\xD2\xD1\xB8\xA8 a1");
    decode_system(block, 1);
    EXPECT_EQ(item("_HMsystem", 2), "ТСёЁ a1");
    EXPECT_EQ(driver->sub_name, "ТСёЁ a1");
    EXPECT_EQ(driver->get_log_name(), "VISTmodbus(ТСёЁ a1)");
    EXPECT_EQ(logged("System name: ТСёЁ a1"), 1);
}

TEST_F(ModbusHeatSystem, ANameWithoutAnEndIsTakenUpTo80Bytes) {
    ModbusBlock block = heat_system();
    block.text(0, std::string(152, 'x'));
    decode_system(block);
    EXPECT_EQ(driver->sub_name, std::string(80, 'x'));
    block.text(0, std::string(12, 'y')).n(12, 0, 4);
    decode_system(block);
    EXPECT_EQ(driver->sub_name, std::string(12, 'y'));
}

struct Formula {
    int fQ;
    std::string text;
};

class ModbusFormula : public ModbusDecoding, public ::testing::WithParamInterface<Formula> {};

TEST_P(ModbusFormula, IsShownWithItsIndicesFromOne) {
    ModbusBlock block = heat_system();
    block.n(119, static_cast<std::uint64_t>(GetParam().fQ), 1);
    block.n(120, 0, 1).n(121, 1, 1).n(122, 2, 1).n(123, 3, 1).n(124, 4, 1).n(131, 5, 1).n(132, 6, 1);
    decode_system(block, 2);
    EXPECT_EQ(item("_Formula", 3), GetParam().text);
    EXPECT_EQ(item("_WeightedValue", 3), "0");
    EXPECT_EQ(logged("Formula: " + GetParam().text), 1);
}

INSTANTIATE_TEST_SUITE_P(Formulas, ModbusFormula,
                         ::testing::Values(Formula{0, "Q = G1 * ( T2 - T3 )"},
                                           Formula{1, "Q = G1 * ( T2 - T5) - G4 * ( T3 - T7 )"},
                                           Formula{2, "Q = G1 * ( T2 - T5) + G4 * ( T3 - T7 )"},
                                           Formula{3, "Q = G1 * T2 - G4 * T3 - G6 * T5"}));

TEST_F(ModbusHeatSystem, AnUnknownFormulaIsNotPublished) {
    for (const int fQ : {4, 5, 255}) {
        ModbusBlock block = heat_system();
        block.n(119, static_cast<std::uint64_t>(fQ), 1);
        decode_system(block);
        EXPECT_EQ(item("_Formula"), "(none)");
        EXPECT_EQ(item("_WeightedValue"), "(none)");
        EXPECT_EQ(logged("fQ = " + std::to_string(fQ)), 1);
    }
    EXPECT_EQ(logged("Formula: "), 3);
    EXPECT_EQ(waiting_longs().size(), 9U) << "all else is read";
}

TEST_F(ModbusHeatSystem, AFormulaOfTheLastIndexIs256) {
    ModbusBlock block = heat_system();
    block.n(120, 255, 1).n(121, 255, 1).n(122, 255, 1);
    decode_system(block);
    EXPECT_EQ(item("_Formula"), "Q = G256 * ( T256 - T256 )");
}

TEST_F(ModbusHeatSystem, TheValueIsWeightedOnlyInOneFormulaAndByBit25) {
    struct Case {
        int fQ, iG1, iT1, iT2;
        std::uint32_t parameters;
        const char* weighted;
    };
    const std::vector<Case> cases = {
        {0, 0, 0, 1, 0x02000000, "1"}, {0, 0, 0, 1, 0xFDFFFFFF, "0"}, {0, 0, 0, 1, 0, "0"},
        {0, 1, 0, 1, 0x02000000, "0"}, {0, 0, 1, 1, 0x02000000, "0"}, {0, 0, 0, 2, 0x02000000, "0"},
        {1, 0, 0, 1, 0x02000000, "0"}, {2, 0, 0, 1, 0x02000000, "0"}, {3, 0, 0, 1, 0x02000000, "0"},
    };
    for (const Case& each : cases) {
        const auto byte = [](int value) { return static_cast<std::uint64_t>(value); };
        ModbusBlock block = heat_system();
        block.n(12, each.parameters, 4).n(119, byte(each.fQ), 1);
        block.n(120, byte(each.iG1), 1).n(121, byte(each.iT1), 1).n(122, byte(each.iT2), 1);
        decode_system(block);
        EXPECT_EQ(item("_WeightedValue"), each.weighted) << each.fQ << " " << each.parameters;
        if (each.fQ == 0 && each.iG1 + each.iT1 == 0 && each.iT2 == 1) {
            EXPECT_EQ(item("_Formula"), "Q = G1 * ( T1 - T2 )");
        }
    }
}

TEST_F(ModbusHeatSystem, ItsLogStandsInThisOrder) {
    ModbusBlock block = heat_system();
    block.n(12, 0x00000014, 4).n(119, 3, 1).n(147, 0x40000001, 4);
    block.n(120, 10, 1).n(121, 11, 1).n(122, 12, 1).n(123, 13, 1).n(124, 14, 1).n(131, 15, 1).n(132, 16, 1);
    decode_system(block);
    EXPECT_EQ(log(), (Texts{
                         "Processing tc specs...",
                         "System params: 20",
                         "System name: TS1",
                         "fQ = 3",
                         "iG1 = 10",
                         "iG2 = 13",
                         "iG3 = 15",
                         "iT1 = 11",
                         "iT2 = 12",
                         "iT3 = 14",
                         "iT4 = 16",
                         "Formula: Q = G11 * T12 - G14 * T13 - G16 * T15",
                         "Found temperature T0...",
                         "Found pressure p0...",
                         "Errors: 1073741825",
                     }));
}

TEST_F(ModbusHeatSystem, EachOfTwentyFourBitsTellsOfOneSensorOrOfNone) {
    const std::string letters = "QGTTPP--";
    for (int n = 0; n < 32; ++n) {
        start_driver();
        clear_log();
        ModbusBlock block = heat_system();
        block.n(12, 1U << n, 4);
        decode_system(block);
        const char letter = n < 24 ? letters[static_cast<std::size_t>(n % 8)] : '-';
        const auto channel = static_cast<std::size_t>(n / 8);
        const std::string number = std::to_string(channel) + "...";
        EXPECT_EQ(logged("Found temperature T" + number), letter == 'T' ? 1 : 0) << n;
        EXPECT_EQ(logged("Found pressure p" + number), letter == 'P' ? 1 : 0) << n;
        EXPECT_EQ(logged_start("Found "), letter == 'T' || letter == 'P' ? 1 : 0) << n;
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(driver->found_T[i] != 0, letter == 'T' && i == channel) << n;
            EXPECT_EQ(driver->found_P[i] != 0, letter == 'P' && i == channel) << n;
        }
    }
}

// ---- limits and errors

TEST_F(ModbusHeatSystem, TheLowerLimitIsAFractionOfTheUpperOne) {
    ModbusBlock block = heat_system();
    block.n(16 + 3, 100, 2).n(16 + 5, 123456, 4).n(16 + 9, 2, 1);
    block.n(49 + 3, 3, 2).n(49 + 5, 0xFFFFFFFF, 4).n(49 + 9, 0, 1);
    block.n(82 + 3, 7, 2).n(82 + 5, 777, 4);
    decode_system(block);
    EXPECT_EQ(waiting(),
              (Texts{"M1max 1234.560000", "M1min 12.345600", "M2max 4294967295.000000", "M2min 1431655765.000000"}));
}

TEST_F(ModbusHeatSystem, TheDivisorOfALowerLimitIsUnsigned) {
    ModbusBlock block = heat_system();
    block.n(16 + 3, 0x8000, 2).n(16 + 5, 65536, 4).n(49 + 3, 0xFFFF, 2).n(49 + 5, 131070, 4);
    decode_system(block);
    EXPECT_EQ(waiting(), (Texts{"M1max 65536.000000", "M1min 2.000000", "M2max 131070.000000", "M2min 2.000000"}));
}

TEST_F(ModbusHeatSystem, ADivisorOfZeroGivesAnInfiniteLowerLimit) {
    ModbusBlock block = heat_system();
    block.n(16 + 3, 0, 2).n(16 + 5, 10, 4);
    decode_system(block);
    ASSERT_EQ(waiting().size(), 4U);
    EXPECT_EQ(waiting()[1], "M1min inf");
}

TEST_F(ModbusHeatSystem, AnyExponentIsTaken) {
    ModbusBlock block = heat_system();
    block.n(16 + 5, 4000000000U, 4).n(16 + 9, 9, 1).n(49 + 5, 4000000000U, 4).n(49 + 9, 255, 1);
    decode_system(block);
    EXPECT_EQ(waiting()[0], "M1max 4.000000");
    EXPECT_EQ(waiting()[2], "M2max 0.000000");
}

TEST_F(ModbusHeatSystem, ErrorsWaitAsTheyAreAndAsTheSystemsWord) {
    ModbusBlock block = heat_system();
    block.n(147, 0x02000821, 4);
    decode_system(block);
    EXPECT_EQ(logged("Errors: 33556513"), 1);
    EXPECT_EQ(waiting_longs(), (Texts{"ER 2113602", "EG 33556513", "SC 0"})) << "0x204042";
}

TEST_F(ModbusHeatSystem, WithoutErrorsItCounts) {
    decode_system(heat_system());
    EXPECT_EQ(waiting_longs(), (Texts{"ER 0", "EG 0", "SC 1"}));
}

TEST_F(ModbusHeatSystem, OnlyBits25And30StopTheCounting) {
    for (int bit = 0; bit < 32; ++bit) {
        driver->pending_longs.clear();
        ModbusBlock block = heat_system();
        block.n(147, 1U << bit, 4);
        decode_system(block);
        EXPECT_EQ(waiting_longs()[2], bit == 25 || bit == 30 ? "SC 0" : "SC 1") << bit;
    }
}

TEST_F(ModbusHeatSystem, AnErrorWordWithItsTopBitIsNegativeAsALongOfTheGateway) {
    ModbusBlock block = heat_system();
    block.n(147, 0x80000001, 4);
    decode_system(block);
    EXPECT_EQ(logged("Errors: 2147483649"), 1);
    EXPECT_EQ(waiting_longs(), (Texts{"ER 32770", "EG -2147483647", "SC 1"}));
}

TEST(ModbusStatus, EachBitHasAPlaceInTheSystemsWordOrNone) {
    const std::vector<std::pair<int, std::uint32_t>> places = {
        {0, 0x2},       {1, 0x4},        {2, 0x8},     {3, 0x10},     {4, 0x20},      {5, 0x40},      {6, 0x80},
        {7, 0x100},     {8, 0x20000},    {9, 0x40000}, {10, 0x80000}, {11, 0x200000}, {12, 0x400000}, {13, 0x100000},
        {14, 0x800000}, {15, 0x1000000}, {16, 0},      {17, 0},       {18, 0},        {19, 0},        {20, 0},
        {21, 0},        {22, 0},         {23, 0},      {24, 0x200},   {25, 0x4000},   {26, 0x800},    {27, 0},
        {28, 0},        {29, 0},         {30, 0x4000}, {31, 0x8000},
    };
    ASSERT_EQ(places.size(), 32U);
    for (const auto& [bit, place] : places) EXPECT_EQ(convert_status(1U << bit), place) << bit;
    EXPECT_EQ(convert_status(0), 0U);
    EXPECT_EQ(convert_status(0xFFFFFFFF), 0x01FECBFEU);
}

TEST(ModbusScale, DividesByTenSoManyTimes) {
    EXPECT_EQ(scale_down(12345, 0), 12345.0);
    EXPECT_EQ(scale_down(12345, 1), 1234.5);
    EXPECT_EQ(scale_down(7, 3), 7 / 10.0 / 10.0 / 10.0) << "in a loop: the last bit may differ from one division";
    EXPECT_EQ(scale_down(-5, 1), -0.5);
}

}  // namespace
