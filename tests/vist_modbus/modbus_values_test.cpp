// From the line to the item: what a meter is, how its heat systems are set up, and what they measure.

#include <string>
#include <vector>

#include "support/modbus_scene.h"

namespace {

class ModbusPresent : public ModbusStand {
  protected:
    using ModbusStand::ModbusStand;

    void connect(sim::ModbusVistConfig config = {}) {
        config.serial = Serial;
        meter.swap_for(std::move(config));
        machine.connect(Port, meter);
        start_driver();
        clear_log();
    }
    /// The item MDateTime after an answer of these six bytes: hour, minute, second, day, month, year.
    std::string shown_at(const sim::ByteVector& clock) {
        const auto answer = sim::modbus_raw(modbus_bytes::answer(Serial, 4, clock));
        meter.misbehave_next(1, answer.on({.function = 4, .address = 0}));
        run();
        return item("MDateTime");
    }

    sim::ModbusVistMeter meter;
};

// ---- the meter and its heat systems

TEST_F(ModbusPresent, TheLogTellsOfTheMeterAndItsHeatSystemInThisOrder) {
    sim::ModbusVistSystem system{.name = "\xD2\xD1\xB8", .parameters = 0x3C, .errors = 0xC2000821};
    connect({.name = "ABC-5", .systems = {system}, .claimed_systems = 1});
    run();
    EXPECT_TRUE(logged_in_order({
        "Processing 'Структура общих спецификаций прибора'",
        "Processing main config...",
        "PO_ver: V2.10",
        "Name: ABC-5",
        "Serial_num: 17",
        "Systems_count: 1",
        "DU: 50 for system 0",
        "temper: 9500",
        "press: 60",
        "DU: 40 for system 0",
        "temper: 7000",
        "press: 40",
        "DU: 25 for system 0",
        "temper: 500",
        "press: 20",
        "Processing 'Структура спецификаций теплосистемы (т/с) прибора'",
        "Processing tc specs...",
        "System params: 60",
        "System name: ТСё",
        "fQ = 0",
        "iG1 = 0",
        "iG2 = 1",
        "iG3 = 2",
        "iT1 = 0",
        "iT2 = 1",
        "iT3 = 2",
        "iT4 = 3",
        "Formula: Q = G1 * ( T1 - T2 )",
        "Found temperature T0...",
        "Found temperature T0...",
        "Found pressure p0...",
        "Found pressure p0...",
        "Errors: 3254781985",
        "Processing archive specs (8388607)...",
    }));
    EXPECT_EQ(logged_start("Found "), 4);
    EXPECT_EQ(driver->get_log_name(), "VISTmodbus(ТСё)");
    EXPECT_EQ(item("_HMsystem"), "ТСё");
    EXPECT_EQ(item("_WeightedValue") + " " + item("SC"), "0 0");
    EXPECT_EQ(item("ER") + " " + item("EG"), "2146370 -1040185311") << "a long of the gateway has 32 bits";
}

TEST_F(ModbusPresent, WhatIsOfOneHeatSystemGoesToItAndTheModelToTheFirst) {
    sim::ModbusVistSystem south{.name = "SOUTH", .formula = {.selector = 7}, .DU = {65, 0, 65535}};
    connect({.name = "ABC-5", .systems = {{}, south}});
    run();
    EXPECT_EQ(item("Firmware", 2) + " " + item("SerialNumber", 2) + " " + item("_HMsystem", 2), "V2.10 17 SOUTH");
    EXPECT_EQ(item("DN1", 1) + " " + item("DN2", 1) + " " + item("DN3", 1), "50 40 25");
    EXPECT_EQ(item("DN1", 2) + " " + item("DN2", 2) + " " + item("DN3", 2), "65 0 65535");
    EXPECT_EQ(item("MeterModel", 1) + " " + item("MeterModel", 2), "VIST-TCC-5 (none)");
    EXPECT_EQ(item("_Formula", 2) + " " + item("_WeightedValue", 2), "(none) (none)") << "of an unknown selector";
    EXPECT_EQ(logged("Formula: "), 1);
}

TEST_F(ModbusPresent, ADivisorOfZeroGivesAnInfiniteLowerLimit) {
    connect({.systems = {{.channels = {{{10, 0, 0}, {10, 0, 2}, {}}}}}});
    run();
    EXPECT_EQ(item("M1min") + " " + item("M2min"), "inf 5.000000");
}

// ---- the clock

TEST_F(ModbusPresent, TheMetersClockIsAnItem) {
    connect();
    EXPECT_EQ(shown_at({10, 5, 7, 2, 3, 24}), "1709373907");
    EXPECT_EQ(logged("Current VIST date/time: 02.03.2024 10:05:07"), 1);
    EXPECT_EQ(shown_at({10, 5, 7, 32, 1, 24}), "1706781907") << "32 January is 1 February";
    EXPECT_EQ(shown_at({255, 255, 255, 255, 255, 255}), "-1") << "no gateway can hold it";
}

class ModbusPresentInBerlin : public ModbusPresent {
  protected:
    ModbusPresentInBerlin() : ModbusPresent("2024-07-01 12:00:00", "CET-1CEST,M3.5.0,M10.5.0/3") {}
};

TEST_F(ModbusPresentInBerlin, SummerTimeIsThatOfTheGateway) {
    connect();
    EXPECT_EQ(shown_at({12, 0, 0, 1, 7, 24}), "1719828000") << "10:00 UTC";
    EXPECT_EQ(shown_at({12, 0, 0, 1, 1, 24}), "1704106800") << "11:00 UTC";
}

// ---- what it measures

TEST_F(ModbusPresent, TheLogTellsOfEveryBlock) {
    connect({.systems = {{.values = {{"GP1", 3}, {"GP2", 2}, {"MV1", 4}, {"V1", 7199}, {"G2", 3600}, {"E1", 2399}}}}});
    run();
    EXPECT_TRUE(logged_in_order({
        "Processing 16 bit array (0)...",
        "Cashing pointsGP0: 3",
        "Cashing pointsGP1: 2",
        "Processing 16 bit array (T)...",
        "Processing 32 bit array (Q)...",
        "Processing 32 bit array (M)...",
        "Processing 16 bit array (P)...",
        "Processing 16 bit array (1)...",
        "Process MV pack 0",
        "Cashing pointsMV0: 4",
        "Process MV pack 3",
        "Processing 32 bit array (V)...",
        "Cashing dV0: 1",
        "Processing 32 bit array (G)...",
        "Cashing dM1: 1",
        "Processing 32 bit array (E)...",
        "Cashing dEnergy: 1",
        "Processing 16 bit array (t)...",
        "M1max == 1234.560000",
        "IQ1 == 1.000000",
        "IM2 == 1.000000",
        "IE1 == 1.000000",
        "ER == 0",
    }));
    EXPECT_EQ(logged_start("Cashing "), 15);
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
        {"P4", "0.000000"},
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
        {"MDateTime", "1709373900"},
        {"_WeightedValue", "1"},
        {"_Formula", "Q = G1 * ( T1 - T2 )"},
        {"_DriverStatus", "6"},
    };
    for (const auto& [name, value] : items) EXPECT_EQ(item(name), value) << name;
    for (const char* name : {"M3max", "IE2", "Q4", "t1"}) EXPECT_EQ(item(name), "(none)") << name;
    EXPECT_EQ(connected(), "111111");
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
