// Present values: the blocks of input registers, and what they become.

#include <string>
#include <vector>

#include "support/modbus_blocks.h"

namespace {

// ---- the clock

using ModbusClock = ModbusDecoding;

TEST_F(ModbusClock, SixBytesAreTheLocalTimeOfTheMeter) {
    driver->selected_subsystem = 1;
    driver->process_datetime(ModbusBlock(6).n(0, 0x0A0507020318, 6), reqValues[0]);
    EXPECT_EQ(waiting_longs(), Texts{"MDateTime 1709373907"});
    EXPECT_EQ(driver->mdatetime, 1709373907);
    EXPECT_EQ(item("_DriverStatus", 2), "2");
    EXPECT_EQ(log(), Texts{"Current VIST date/time: 02.03.2024 10:05:07"});
}

TEST_F(ModbusClock, ADateThatNoGatewayCanHoldIsMinusOne) {
    driver->process_datetime(ModbusBlock(6).n(0, 0xFFFFFFFFFFFF, 6), reqValues[0]);
    EXPECT_EQ(waiting_longs(), Texts{"MDateTime -1"});
    EXPECT_EQ(driver->mdatetime, -1);
}

TEST_F(ModbusClock, ADateOutOfRangeIsNormalised) {
    driver->process_datetime(ModbusBlock(6).n(0, 0x0A0507200118, 6), reqValues[0]);  // 32 January
    EXPECT_EQ(waiting_longs(), Texts{"MDateTime 1706781907"});
}

class ModbusClockInBerlin : public ModbusDecoding {
  protected:
    ModbusClockInBerlin() : ModbusDecoding("2024-07-01 12:00:00", "CET-1CEST,M3.5.0,M10.5.0/3") {}
};

TEST_F(ModbusClockInBerlin, SummerTimeIsThatOfTheGateway) {
    driver->process_datetime(ModbusBlock(6).n(0, 0x0C0000010718, 6), reqValues[0]);
    EXPECT_EQ(driver->mdatetime, 1719828000) << "10:00 UTC";
    driver->process_datetime(ModbusBlock(6).n(0, 0x0C0000010118, 6), reqValues[0]);
    EXPECT_EQ(driver->mdatetime, 1704106800) << "11:00 UTC";
}

// ---- blocks of 16-bit numbers

using ModbusArrays = ModbusDecoding;

TEST_F(ModbusArrays, TemperaturesAreHundredthsOfADegree) {
    decode16('T', ModbusBlock(8).n(0, 2345, 2).n(2, 0xFFFF, 2).n(4, 0, 2).n(6, 1, 2));
    EXPECT_EQ(waiting(), (Texts{"T1 23.450000", "T2 655.350000", "T3 0.000000", "T4 0.010000"}));
    EXPECT_EQ(log(), Texts{"Processing 16 bit array (T)..."});
}

TEST_F(ModbusArrays, PressuresAreTenths) {
    decode16('P', ModbusBlock(8).n(0, 61, 2).n(2, 0xFFFF, 2).n(4, 5, 2));
    EXPECT_EQ(waiting(), (Texts{"P1 6.100000", "P2 6553.500000", "P3 0.500000", "P4 0.000000"}));
    EXPECT_EQ(log(), Texts{"Processing 16 bit array (P)..."});
}

TEST_F(ModbusArrays, PowersOfTenOfFlowAreKeptAndNotPublished) {
    decode16('0', ModbusBlock(8).n(0, 3, 2).n(2, 2, 2).n(4, 1, 2).n(6, 65535, 2));
    EXPECT_EQ(driver->pointsGP, (std::array<std::uint16_t, 4>{3, 2, 1, 65535}));
    EXPECT_EQ(driver->pointsMV, (std::array<std::uint16_t, 4>{}));
    EXPECT_TRUE(waiting().empty());
    EXPECT_EQ(log(), (Texts{"Processing 16 bit array (0)...", "Cashing pointsGP0: 3", "Cashing pointsGP1: 2",
                            "Cashing pointsGP2: 1", "Cashing pointsGP3: 65535"}));
}

TEST_F(ModbusArrays, PowersOfTenOfVolumeAreKeptAndNotPublished) {
    decode16('1', ModbusBlock(8).n(0, 4, 2).n(2, 3, 2).n(4, 2, 2).n(6, 1, 2));
    EXPECT_EQ(driver->pointsMV, (std::array<std::uint16_t, 4>{4, 3, 2, 1}));
    EXPECT_EQ(driver->pointsGP, (std::array<std::uint16_t, 4>{}));
    EXPECT_TRUE(waiting().empty());
    EXPECT_EQ(logged_start("Process MV pack "), 4);
    EXPECT_TRUE(logged_in_order({"Processing 16 bit array (1)...", "Cashing pointsMV0: 4", "Cashing pointsMV1: 3",
                                 "Cashing pointsMV2: 2", "Cashing pointsMV3: 1"}));
}

TEST_F(ModbusArrays, TheTimeWorkedIsOnlyLogged) {
    decode16('t', ModbusBlock(8).n(0, 3599, 2));
    EXPECT_TRUE(waiting().empty());
    EXPECT_TRUE(waiting_longs().empty());
    EXPECT_EQ(log(), Texts{"Processing 16 bit array (t)..."});
}

// ---- blocks of 32-bit numbers

TEST_F(ModbusArrays, VolumeFlowsAreScaledByTheirPowersOfTen) {
    driver->pointsGP = {3, 0, 1, 6};
    decode32('Q', ModbusBlock(12).n(0, 0x000186A0, 4).n(4, 0xFFFFFFFF, 4).n(8, 15, 4));
    EXPECT_EQ(waiting(), (Texts{"Q1 100.000000", "Q2 4294967295.000000", "Q3 1.500000"}));
    EXPECT_EQ(log(), Texts{"Processing 32 bit array (Q)..."});
}

TEST_F(ModbusArrays, MassFlowsAreScaledAsVolumeFlowsAndShownWhereTheArchiveHasMasses) {
    driver->pointsGP = {3, 2, 1, 0};
    driver->hasM = {true, false, true};
    decode32('M', ModbusBlock(12).n(0, 5000, 4).n(4, 5000, 4).n(8, 5000, 4));
    EXPECT_EQ(waiting(), (Texts{"M1 5.000000", "M3 500.000000"}));
}

TEST_F(ModbusArrays, WithoutMassesInTheArchiveThereAreNoMassFlows) {
    decode32('M', ModbusBlock(12).n(0, 5000, 4));
    EXPECT_TRUE(waiting().empty());
    EXPECT_EQ(log(), Texts{"Processing 32 bit array (M)..."});
}

TEST_F(ModbusArrays, VolumesOfTheHourAreWholeNumbers) {
    decode32('V', ModbusBlock(12).n(0, 7199, 4).n(4, 7200, 4).n(8, 0xFFFFFFFF, 4));
    EXPECT_EQ(driver->dV, (std::array<int, 3>{1, 2, 1193046}));
    EXPECT_EQ(waiting(), (Texts{"IQ1 1.000000", "IQ2 2.000000", "IQ3 1193046.000000"}));
    EXPECT_EQ(log(),
              (Texts{"Processing 32 bit array (V)...", "Cashing dV0: 1", "Cashing dV1: 2", "Cashing dV2: 1193046"}));
}

TEST_F(ModbusArrays, MassesOfTheHourAreWholeNumbers) {
    decode32('G', ModbusBlock(12).n(0, 3599, 4).n(4, 3600, 4).n(8, 36000, 4));
    EXPECT_EQ(driver->dM, (std::array<int, 3>{0, 1, 10}));
    EXPECT_EQ(waiting(), (Texts{"IM1 0.000000", "IM2 1.000000", "IM3 10.000000"}));
    EXPECT_EQ(log(), (Texts{"Processing 32 bit array (G)...", "Cashing dM0: 0", "Cashing dM1: 1", "Cashing dM2: 10"}));
}

TEST_F(ModbusArrays, EnergyOfTheHourIsOneWholeNumber) {
    decode32('E', ModbusBlock(12).n(0, 2399, 4).n(4, 999999, 4));
    EXPECT_EQ(driver->dEnergy, 1);
    EXPECT_EQ(waiting(), Texts{"IE1 1.000000"});
    EXPECT_EQ(log(), (Texts{"Processing 32 bit array (E)...", "Cashing dEnergy: 1"}));
}

TEST_F(ModbusArrays, PowersOfTenOfVolumeScaleNothing) {
    driver->pointsMV = {6, 6, 6, 6};
    decode32('V', ModbusBlock(12).n(0, 36000, 4));
    EXPECT_EQ(waiting()[0], "IQ1 10.000000");
}

// ---- from the line to the item

class ModbusPresent : public ModbusBench {
  protected:
    void connect(sim::ModbusVistConfig config = {}) {
        config.serial = Serial;
        meter.swap_for(std::move(config));
        machine.connect(Port, meter);
        start_driver();
    }
    sim::ModbusVistMeter meter;
};

TEST_F(ModbusPresent, TheFourthPressureIsReadBehindABlockOfThree) {
    connect();
    meter.set_value("P1", 999);
    run();
    EXPECT_EQ(item("P1"), "99.900000");
    EXPECT_EQ(item("P4"), "0.000000");
}

TEST_F(ModbusPresent, AllValuesAreItemsOfTheHeatSystem) {
    connect();
    meter.set_value("T1", 7125);
    meter.set_value("GP2", 1);
    meter.set_value("V1", 36000);
    meter.set_value("E1", 3600);
    run();
    const std::vector<std::pair<std::string, std::string>> items = {
        {"T1", "71.250000"},
        {"T2", "60.250000"},
        {"T3", "10.500000"},
        {"T4", "7.250000"},
        {"P1", "6.100000"},
        {"P2", "4.200000"},
        {"P3", "2.300000"},
        {"Q1", "12.500000"},
        {"Q2", "1125.000000"},
        {"Q3", "1.375000"},
        {"M1", "12.125000"},
        {"M2", "1100.000000"},
        {"M3", "1.250000"},
        {"IQ1", "10.000000"},
        {"IE1", "3.000000"},
        {"IM1", "1.000000"},
        {"M1max", "1234.560000"},
        {"M1min", "12.345600"},
        {"M2max", "6000.000000"},
        {"M2min", "120.000000"},
        {"ER", "0"},
        {"EG", "0"},
        {"SC", "1"},
    };
    for (const auto& [name, value] : items) EXPECT_EQ(item(name), value) << name;
    for (const char* name : {"M3max", "IE2", "Q4", "t1"}) EXPECT_EQ(item(name), "(none)") << name;
}

TEST_F(ModbusPresent, WithoutMassesInTheArchiveThereAreNoMassFlowItems) {
    connect({.systems = {{.told_mask = 0x007FFFFF & ~0x10U}}});
    run();
    EXPECT_EQ(item("M1"), "(none)");
    EXPECT_EQ(item("M2"), "11.000000");
}

TEST_F(ModbusPresent, BehindAnAnswerThatIsTooShortStandZeros) {
    connect();
    const auto one_register = sim::modbus_raw(modbus_bytes::answer(Serial, 4, {0x09, 0x29}));
    meter.misbehave_next(1, one_register.on({.function = 4, .address = 518}));
    run();
    EXPECT_EQ(item("T1") + " " + item("T2") + " " + item("T4"), "23.450000 0.000000 0.000000");
}

TEST_F(ModbusPresent, WhatAnAnswerHasTooMuchIsNotLookedAt) {
    connect();
    const auto long_one = sim::modbus_raw(modbus_bytes::answer(Serial, 4, sim::ByteVector(250, 0x01)));
    meter.misbehave_next(1, long_one.on({.function = 4, .address = 518}));
    run();
    for (const char* name : {"T1", "T2", "T3", "T4"}) EXPECT_EQ(item(name), "2.570000") << name;
    EXPECT_EQ(item("T5"), "(none)");
    EXPECT_EQ(item("P1"), "6.100000");
}

TEST_F(ModbusPresent, APowerOfTenHoldsForItsOwnHeatSystem) {
    connect({.systems = {{.values = {{"GP1", 1}}}, {.values = {{"GP1", 4}}}}});
    run();
    EXPECT_EQ(item("Q1", 1), "1250.000000");
    EXPECT_EQ(item("Q1", 2), "1.250100");
}

}  // namespace
