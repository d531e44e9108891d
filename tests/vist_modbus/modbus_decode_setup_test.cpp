// How a meter and its heat systems are set up, and what they measure: blocks of registers into values.

#include <string>
#include <vector>

#include "support/modbus_scene.h"

namespace {

using namespace vist_modbus;

/// As "T1 23.450000".
Texts told(const Values& values) {
    Texts all;
    for (const auto& [name, value] : values) all.push_back(name + " " + std::to_string(value));
    return all;
}

// ---- the meter

/// 99 registers.
ModbusBlock main_config() {
    return ModbusBlock(198).text(4, "V2.10").text(25, "ABC-5").text(46, "40123").n(197, 3, 1);
}

TEST(ModbusConfig, ItsTextsEndWithAZeroByte) {
    const MainConfig config = decode_main_config(main_config());
    EXPECT_EQ(config.PO_ver, "V2.10");
    EXPECT_EQ(config.Name, "ABC-5");
    EXPECT_EQ(config.Serial_num, "40123");
    EXPECT_EQ(config.dev_serial, 40123);
}

TEST(ModbusConfig, TheFirstTwoBytesOfTheNameGiveWayToTC) {
    const std::vector<std::pair<std::string, std::string>> names = {
        {"ABC-5", "VIST-TCC-5"}, {"\xD2\xD1-3", "VIST-TC-3"}, {"AB", "VIST-TC"}, {"A", "VIST-TC"}, {"", "VIST-TC"},
    };
    for (const auto& [name, model] : names) {
        EXPECT_EQ(decode_main_config(main_config().text(25, std::string(21, '\0')).text(25, name)).model, model);
    }
}

TEST(ModbusConfig, ASerialNumberThatIsNoNumberStaysAsItStands) {
    const MainConfig config = decode_main_config(main_config().text(46, "12-ab"));
    EXPECT_EQ(config.Serial_num, "12-ab");
    EXPECT_EQ(config.dev_serial, 12);
}

TEST(ModbusConfig, EachHeatSystemHasItsOwnTubes) {
    ModbusBlock block = main_config();
    for (const std::size_t base : {105U, 131U, 157U}) {
        for (std::size_t field = 0; field < 9; ++field) block.n(base + 2 * field, base * 100 + field, 2);
    }
    const MainConfig config = decode_main_config(block.n(157 + 12, 65535, 2));
    for (int s = 0; s < 3; ++s) {
        const int base = (105 + 26 * s) * 100;
        for (int i = 0; i < 3; ++i) {
            const Tube& tube = config.tubes[static_cast<std::size_t>(s)][static_cast<std::size_t>(i)];
            EXPECT_EQ(tube.temper, base + i);
            EXPECT_EQ(tube.press, base + 3 + i);
            EXPECT_EQ(tube.DU, s == 2 && i == 0 ? 65535 : base + 6 + i);
        }
    }
}

TEST(ModbusConfig, AnyCountOfHeatSystemsIsTold) {
    for (const int count : {0, 1, 3, 4, 255}) {
        const ModbusBlock block = main_config().n(197, static_cast<std::uint64_t>(count), 1);
        EXPECT_EQ(decode_main_config(block).Systems_count, count);
    }
}

// ---- a heat system

/// 76 registers.
ModbusBlock heat_system() {
    return ModbusBlock(152).text(0, "TS1").n(19, 1, 2).n(52, 1, 2);
}

TEST(ModbusHeatSystem, ItsNameIsConvertedFromWindows1251) {
    EXPECT_EQ(decode_tc_specs(heat_system().text(0, "\xD2\xD1\xB8\xA8 a1")).sub_name, "ТСёЁ a1");
}

TEST(ModbusHeatSystem, ANameWithoutAnEndIsTakenUpTo80Bytes) {
    ModbusBlock block = heat_system().text(0, std::string(152, 'x'));
    EXPECT_EQ(decode_tc_specs(block).sub_name, std::string(80, 'x'));
    EXPECT_EQ(decode_tc_specs(block.text(0, std::string(12, 'y')).n(12, 0, 4)).sub_name, std::string(12, 'y'));
}

TEST(ModbusHeatSystem, AFormulaShowsItsIndicesFromOne) {
    ModbusBlock block = heat_system();
    block.n(120, 0, 1).n(121, 1, 1).n(122, 2, 1).n(123, 3, 1).n(124, 4, 1).n(131, 5, 1).n(132, 6, 1);
    const std::vector<std::pair<unsigned, std::string>> formulas = {
        {0, "Q = G1 * ( T2 - T3 )"},
        {1, "Q = G1 * ( T2 - T5) - G4 * ( T3 - T7 )"},
        {2, "Q = G1 * ( T2 - T5) + G4 * ( T3 - T7 )"},
        {3, "Q = G1 * T2 - G4 * T3 - G6 * T5"},
        {4, ""},
        {255, ""},
    };
    for (const auto& [fQ, formula] : formulas) {
        const SystemSetup setup = decode_tc_specs(block.n(119, fQ, 1));
        EXPECT_EQ(setup.fQ, static_cast<int>(fQ));
        EXPECT_EQ(setup.formula, formula);
        EXPECT_EQ(setup.iG, (std::array<int, 3>{0, 3, 5}));
        EXPECT_EQ(setup.iT, (std::array<int, 4>{1, 2, 4, 6}));
        EXPECT_FALSE(setup.is_weighted);
    }
    block.n(119, 0, 4).n(120, 0xFFFFFF, 3);
    EXPECT_EQ(decode_tc_specs(block).formula, "Q = G256 * ( T256 - T256 )");
}

TEST(ModbusHeatSystem, TheValueIsWeightedOnlyInOneFormulaAndByBit25) {
    struct Case {
        std::uint32_t parameters;
        std::uint32_t formula;  ///< fQ, iG1, iT1, iT2
        bool weighted;
    };
    const std::vector<Case> cases = {
        {0x02000000, 0x00000001, true},  {0xFDFFFFFF, 0x00000001, false}, {0, 0x00000001, false},
        {0x02000000, 0x00010001, false}, {0x02000000, 0x00000101, false}, {0x02000000, 0x00000002, false},
        {0x02000000, 0x01000001, false}, {0x02000000, 0x02000001, false}, {0x02000000, 0x03000001, false},
    };
    for (const Case& each : cases) {
        const SystemSetup setup = decode_tc_specs(heat_system().n(12, each.parameters, 4).n(119, each.formula, 4));
        EXPECT_EQ(setup.is_weighted, each.weighted) << each.parameters << " " << each.formula;
        EXPECT_EQ(setup.parameters, each.parameters);
    }
}

TEST(ModbusHeatSystem, EachOfTwentyFourBitsTellsOfOneSensorOrOfNone) {
    const std::string letters = "QGTTPP--";
    for (std::size_t n = 0; n < 32; ++n) {
        const SystemSetup setup = decode_tc_specs(heat_system().n(12, 1U << n, 4));
        const char letter = n < 24 ? letters[n % 8] : '-';
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(setup.found_T[i], letter == 'T' && i == n / 8 ? 1 : 0) << n;
            EXPECT_EQ(setup.found_P[i], letter == 'P' && i == n / 8 ? 1 : 0) << n;
        }
    }
    EXPECT_EQ(decode_tc_specs(heat_system().n(12, 0x3C0C30, 4)).found_T, (std::array<int, 3>{0, 2, 2}));
    EXPECT_EQ(decode_tc_specs(heat_system().n(12, 0x3C0C30, 4)).found_P, (std::array<int, 3>{2, 0, 2}));
}

TEST(ModbusHeatSystem, TheLowerLimitIsAFractionOfTheUpperOne) {
    ModbusBlock block = heat_system();
    block.n(16 + 3, 100, 2).n(16 + 5, 123456, 4).n(16 + 9, 2, 1);
    block.n(49 + 3, 3, 2).n(49 + 5, 0xFFFFFFFF, 4).n(49 + 9, 0, 1);
    block.n(82 + 3, 7, 2).n(82 + 5, 777, 4);
    EXPECT_EQ(told(decode_tc_specs(block).limits),
              (Texts{"M1max 1234.560000", "M1min 12.345600", "M2max 4294967295.000000", "M2min 1431655765.000000"}));
}

TEST(ModbusHeatSystem, AnyDivisorAndExponentOfALimitIsTaken) {
    ModbusBlock block = heat_system();
    block.n(16 + 3, 0x8000, 2).n(16 + 5, 65536, 4).n(49 + 3, 0xFFFF, 2).n(49 + 5, 131070, 4);
    EXPECT_EQ(told(decode_tc_specs(block).limits),
              (Texts{"M1max 65536.000000", "M1min 2.000000", "M2max 131070.000000", "M2min 2.000000"}));
    block.n(16 + 3, 0, 2).n(16 + 5, 4000000000U, 4).n(16 + 9, 9, 1).n(49 + 5, 4000000000U, 4).n(49 + 9, 255, 1);
    EXPECT_EQ(told(decode_tc_specs(block).limits),
              (Texts{"M1max 4.000000", "M1min inf", "M2max 0.000000", "M2min 0.000000"}));
}

TEST(ModbusHeatSystem, OnlyBits25And30StopTheCounting) {
    EXPECT_TRUE(decode_tc_specs(heat_system()).is_counting);
    for (unsigned bit = 0; bit < 32; ++bit) {
        const SystemSetup setup = decode_tc_specs(heat_system().n(147, 1U << bit, 4));
        EXPECT_EQ(setup.errors, 1U << bit);
        EXPECT_EQ(setup.status, convert_status(1U << bit));
        EXPECT_EQ(setup.is_counting, bit != 25 && bit != 30) << bit;
    }
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

// ---- present values

TEST(ModbusArrays, TemperaturesAreHundredthsOfADegree) {
    const ModbusBlock block = ModbusBlock(8).n(0, 2345, 2).n(2, 0xFFFF, 2).n(6, 1, 2);
    EXPECT_EQ(told(decode_array16(block, 'T')), (Texts{"T1 23.450000", "T2 655.350000", "T3 0.000000", "T4 0.010000"}));
}

TEST(ModbusArrays, PressuresAreTenthsAndTheFourthIsReadBehindTheBlock) {
    const ModbusBlock block = ModbusBlock(6).n(0, 61, 2).n(2, 0xFFFF, 2).n(4, 5, 2);
    EXPECT_EQ(told(decode_array16(block, 'P')), (Texts{"P1 6.100000", "P2 6553.500000", "P3 0.500000", "P4 0.000000"}));
}

TEST(ModbusArrays, PowersOfTenAndTheTimeWorkedAreNoItems) {
    for (const char kind : {'0', '1', 't'}) EXPECT_TRUE(decode_array16(ModbusBlock(8).n(0, 3, 2), kind).empty());
    EXPECT_EQ(decode_words(ModbusBlock(8).n(0, 3, 2).n(2, 2, 2).n(4, 1, 2).n(6, 65535, 2)), (Words{3, 2, 1, 65535}));
}

TEST(ModbusArrays, FlowsAreScaledByTheirPowersOfTen) {
    const ModbusBlock block = ModbusBlock(12).n(0, 0x000186A0, 4).n(4, 0xFFFFFFFF, 4).n(8, 15, 4);
    EXPECT_EQ(told(decode_array32(block, 'Q', {3, 0, 1, 6}, {})),
              (Texts{"Q1 100.000000", "Q2 4294967295.000000", "Q3 1.500000"}));
}

TEST(ModbusArrays, MassesFlowWhereTheArchiveHasMasses) {
    const ModbusBlock block = ModbusBlock(12).n(0, 5000, 4).n(4, 5000, 4).n(8, 5000, 4);
    EXPECT_EQ(told(decode_array32(block, 'M', {3, 2, 1, 0}, {true, false, true})),
              (Texts{"M1 5.000000", "M3 500.000000"}));
    EXPECT_TRUE(decode_array32(block, 'M', {}, {}).empty());
}

TEST(ModbusArrays, WhatTheHourHasBroughtAreWholeNumbers) {
    const ModbusBlock volumes = ModbusBlock(12).n(0, 7199, 4).n(4, 7200, 4).n(8, 0xFFFFFFFF, 4);
    const ModbusBlock masses = ModbusBlock(12).n(0, 3599, 4).n(4, 3600, 4).n(8, 36000, 4);
    const ModbusBlock energies = ModbusBlock(12).n(0, 2399, 4).n(4, 999999, 4);
    const Words scales = {6, 6, 6, 6};  // of flows alone
    EXPECT_EQ(told(decode_array32(volumes, 'V', scales, {})),
              (Texts{"IQ1 1.000000", "IQ2 2.000000", "IQ3 1193046.000000"}));
    EXPECT_EQ(told(decode_array32(masses, 'G', scales, {})), (Texts{"IM1 0.000000", "IM2 1.000000", "IM3 10.000000"}));
    EXPECT_EQ(told(decode_array32(energies, 'E', scales, {})), Texts{"IE1 1.000000"}) << "and no other energy";
}

TEST(ModbusDecoders, TakeABlockOfNothing) {
    EXPECT_EQ(decode_main_config({}).model, "VIST-TC");
    EXPECT_EQ(decode_tc_specs({}).sub_name, "");
    EXPECT_EQ(decode_array16({}, 'T').size(), 4U);
    EXPECT_EQ(decode_archive_specs({}, 1).spec_mask, 0U);
    EXPECT_EQ(decode_header({}).next_rec_index, 1);
    EXPECT_EQ(decode_record({}, {.arch_mask = 0x007FFFFF, .arch_record_size = 54}).values.size(), 21U);
}

}  // namespace
