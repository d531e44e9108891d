#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "modbus_asking.h"

namespace {

using namespace modbus_asking;  // NOLINT(google-build-using-namespace)
using sim::ModbusVistConfig;

class SimModbusVist : public ModbusVistTest {
  protected:
    ModbusVistMeter meter{{.serial = Seventeen, .systems = {{.name = "HEAT"}, {.name = "GVS"}, {.name = "VENT"}}}};
};

std::string text_at(const ByteVector& bytes, std::size_t place) {
    std::string text;
    while (place < bytes.size() && bytes[place] != 0) text += static_cast<char>(bytes[place++]);
    return text;
}

// ---- frames

TEST_F(SimModbusVist, ReckonsTheCheckSumOfTheStandard) {
    EXPECT_EQ(sim::modbus_crc(vist_asking::bytes_of("123456789")), 0x4B37);
    EXPECT_EQ(sim::modbus_sealed({0x02, 0x07}), (ByteVector{0x02, 0x07, 0x41, 0x12}));
    EXPECT_EQ(sim::modbus_sealed({0x01, 0x03, 0x00, 0x00, 0x00, 0x0A}),
              (ByteVector{0x01, 0x03, 0x00, 0x00, 0x00, 0x0A, 0xC5, 0xCD}));
    EXPECT_EQ(sim::modbus_sealed({0x11, 0x03, 0x00, 0x6B, 0x00, 0x03}),
              (ByteVector{0x11, 0x03, 0x00, 0x6B, 0x00, 0x03, 0x76, 0x87}));
}

TEST_F(SimModbusVist, TellsItsClock) {
    const ByteVector request = {0x11, 0x04, 0x00, 0x00, 0x00, 0x03, 0xB2, 0x9B};
    EXPECT_EQ(joined(meter.hear(request, Eleven + 59)),
              (ByteVector{0x11, 0x04, 0x06, 0x0B, 0x00, 0x3B, 0x02, 0x03, 0x18, 0x00, 0x36}));
}

TEST_F(SimModbusVist, TellsItsTemperatures) {
    const ByteVector request = {0x11, 0x04, 0x02, 0x06, 0x00, 0x04, 0x12, 0xE0};
    EXPECT_EQ(joined(meter.hear(request, Eleven)),
              (ByteVector{0x11, 0x04, 0x08, 0x25, 0x4E, 0x17, 0x89, 0x04, 0x1A, 0x02, 0xD5, 0x22, 0x1E}));
}

TEST_F(SimModbusVist, AnswersAtOnceInOnePiece) {
    const Answer answer = meter.hear(sim::modbus_sealed({0x11, 0x04, 0x00, 0x00, 0x00, 0x01}), Eleven);
    ASSERT_EQ(answer.size(), 1U);
    EXPECT_EQ(answer[0].delay_seconds, 0.02);
}

TEST_F(SimModbusVist, KeepsSilentWhenItIsNotMeantOrDoesNotUnderstand) {
    const ByteVector right = {0x11, 0x04, 0x00, 0x00, 0x00, 0x03, 0xB2, 0x9B};
    ByteVector wrong_crc = right;
    ++wrong_crc.back();
    ByteVector twice = right;
    twice.insert(twice.end(), right.begin(), right.end());
    const ByteVector behind_noise = {0x00, 0x11, 0x04, 0x00, 0x00, 0x00, 0x03, 0xB2, 0x9B};
    const ByteVector to_another = {0x2C, 0x04, 0x00, 0x00, 0x00, 0x03, 0xB6, 0x76};
    for (const auto& request : {wrong_crc, twice, behind_noise, to_another, part(right, 0, 6), ByteVector{0x11},
                                ByteVector{}, sim::modbus_sealed({0x11}), sim::modbus_sealed({0x00, 0x04, 0, 0, 0, 3}),
                                sim::modbus_sealed(ByteVector(300, 0x11))}) {
        EXPECT_TRUE(meter.hear(request, Eleven).empty()) << ::testing::PrintToString(request);
    }
    EXPECT_EQ(meter.requests(), 0U);
}

TEST_F(SimModbusVist, AnswersToTheLowByteOfItsSerialNumber) {
    ModbusVistMeter higher({.serial = 300});
    EXPECT_EQ(higher.address(), 44);
    EXPECT_EQ(joined(higher.hear(ByteVector{0x2C, 0x04, 0x00, 0x00, 0x00, 0x03, 0xB6, 0x76}, Eleven)).size(), 11U);
    ModbusVistMeter never({.serial = 256});
    EXPECT_TRUE(ask(never, {0x00, 0x04, 0x00, 0x00, 0x00, 0x03}).empty());
}

TEST_F(SimModbusVist, SharesALineWithOthers) {
    ModbusVistMeter other({.serial = 44});
    for (const auto slave : {std::uint8_t{17}, std::uint8_t{44}}) {
        const ByteVector request = {slave, 0x04, 0x00, 0x00, 0x00, 0x01};
        EXPECT_EQ(ask(meter, request).empty(), slave != 17);
        EXPECT_EQ(ask(other, request).empty(), slave != 44);
    }
}

TEST_F(SimModbusVist, RefusesWithTheCodesOfTheStandard) {
    EXPECT_EQ(ask(meter, {0x11, 0x06, 0x00, 0x00, 0x00, 0x01}), (ByteVector{0x11, 0x86, 0x01, 0x82, 0x65}));
    EXPECT_EQ(ask(meter, {0x11, 0x03, 0x02, 0x9B, 0x00, 0x02}), (ByteVector{0x11, 0x83, 0x02, 0xC1, 0x34}));
    EXPECT_EQ(ask(meter, {0x11, 0x03, 0x00, 0x00, 0x00, 0x00}), (ByteVector{0x11, 0x83, 0x03, 0x00, 0xF4}));
    EXPECT_EQ(refusal(meter, registers_request(0x11, 3, 0, 126)), 3);
    EXPECT_EQ(refusal(meter, registers_request(0x11, 4, 0, 0x0103)), 3);
    EXPECT_EQ(refusal(meter, registers_request(0x11, 4, 0, 4)), 2);
    EXPECT_EQ(refusal(meter, registers_request(0x11, 4, 513, 1)), 2);
    EXPECT_EQ(refusal(meter, registers_request(0x11, 4, 1079, 1)), 2);
    EXPECT_EQ(refusal(meter, registers_request(0x11, 4, 1078, 2)), 2);
    EXPECT_EQ(refusal(meter, registers_request(0x11, 3, 0xFFFF, 125)), 2);
    EXPECT_EQ(refusal(meter, {0x11, 0x03, 0x00, 0x00, 0x00}), 3);
    EXPECT_EQ(refusal(meter, {0x11, 0x10, 0x00}), 1);
}

TEST_F(SimModbusVist, GivesAnyRegistersWithinItsMap) {
    EXPECT_EQ(holding(meter, 0, 125).size(), 250U);
    EXPECT_EQ(holding(meter, 543, 125).size(), 250U);
    EXPECT_EQ(holding(meter, 667, 1).size(), 2U);
    EXPECT_EQ(input(meter, 2, 1).size(), 2U);
    EXPECT_EQ(input(meter, 514, 125).size(), 250U);
    EXPECT_EQ(input(meter, 549, 1), (ByteVector{0xA5, 0xA5}));
    EXPECT_EQ(input(meter, 3126, 1).size(), 2U);
    const ByteVector whole = holding(meter, 0, 99);
    for (unsigned n = 0; n < 99; ++n) EXPECT_EQ(holding(meter, n, 1), part(whole, 2 * n, 2 * n + 1));
}

// ---- configuration

TEST_F(SimModbusVist, TellsWhoItIs) {
    ModbusVistMeter told({.serial = Seventeen, .firmware = "V3.07", .name = "ABC-5"});
    const ByteVector block = holding(told, 0, 99);
    ASSERT_EQ(block.size(), 198U);
    EXPECT_EQ(text_at(block, 4), "V3.07");
    EXPECT_EQ(text_at(block, 25), "ABC-5");
    EXPECT_EQ(text_at(block, 46), "17");
    EXPECT_EQ(block[197], 1);
    ModbusVistMeter other({.serial = Seventeen, .serial_text = "no number"});
    EXPECT_EQ(text_at(holding(other, 0, 99), 46), "no number");
}

TEST_F(SimModbusVist, TellsHowItsSystemsAreSetUp) {
    meter.system(1) = {.temper = {1, 2, 3}, .press = {4, 5, 6}, .DU = {7, 8, 0x1234}};
    const ByteVector block = holding(meter, 0, 99);
    EXPECT_EQ(part(block, 131, 148), (ByteVector{0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 7, 0, 8, 0x12, 0x34}));
    EXPECT_EQ(part(block, 117, 122), (ByteVector{0, 50, 0, 40, 0, 25}));
    EXPECT_EQ(part(block, 169, 174), (ByteVector{0, 50, 0, 40, 0, 25}));
    EXPECT_EQ(block[197], 3);
}

TEST_F(SimModbusVist, MayClaimAnyNumberOfSystems) {
    meter.claim_systems(200);
    EXPECT_EQ(holding(meter, 98, 1)[1], 200);
    meter.claim_systems(std::nullopt);
    EXPECT_EQ(holding(meter, 98, 1)[1], 3);
    ModbusVistMeter born_so({.serial = Seventeen, .claimed_systems = 0});
    EXPECT_EQ(holding(born_so, 98, 1)[1], 0);
}

TEST_F(SimModbusVist, TellsTheSetupOfEachSystem) {
    meter.system(2) = {.name = "ABCDEFGHIJKL",
                       .parameters = 0x02003701,
                       .formula = {.selector = 3, .iG1 = 1, .iT1 = 2, .iT2 = 3, .iG2 = 4, .iT3 = 5, .iG3 = 6, .iT4 = 7},
                       .channels = {{{123456, 2, 100}, {0x80000000, 1, 0}, {7, 0, 7}}},
                       .errors = 0x42000821};
    EXPECT_EQ(text_at(holding(meter, 99, 76), 0), "HEAT");
    EXPECT_EQ(text_at(holding(meter, 284, 76), 0), "GVS");
    const ByteVector block = holding(meter, 469, 76);
    ASSERT_EQ(block.size(), 152U);
    EXPECT_EQ(part(block, 0, 15),
              (ByteVector{'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 0x02, 0x00, 0x37, 0x01}));
    EXPECT_EQ(part(block, 19, 25), (ByteVector{0x00, 0x64, 0x00, 0x01, 0xE2, 0x40, 0x02}));
    EXPECT_EQ(number(block, 35, 4), 1234U);
    EXPECT_EQ(part(block, 52, 58), (ByteVector{0x00, 0x00, 0x80, 0x00, 0x00, 0x00, 0x01}));
    EXPECT_EQ(part(block, 85, 91), (ByteVector{0x00, 0x07, 0x00, 0x00, 0x00, 0x07, 0x00}));
    EXPECT_EQ(part(block, 119, 124), (ByteVector{3, 1, 2, 3, 4, 5}));
    EXPECT_EQ(part(block, 131, 132), (ByteVector{6, 7}));
    EXPECT_EQ(part(block, 147, 150), (ByteVector{0x42, 0x00, 0x08, 0x21}));
}

TEST_F(SimModbusVist, TellsTheArchiveMasksOfItsSystemsNineBytesApart) {
    for (unsigned s = 0; s < 3; ++s) meter.system(s).told_mask = 0x11223344 + s;
    const ByteVector first = holding(meter, 654, 5);
    const ByteVector second = holding(meter, 658, 5);
    const ByteVector third = holding(meter, 663, 5);
    EXPECT_EQ(part(first, 2, 5), (ByteVector{0x11, 0x22, 0x33, 0x44}));
    EXPECT_EQ(part(second, 3, 6), (ByteVector{0x11, 0x22, 0x33, 0x45}));
    EXPECT_EQ(part(third, 2, 5), (ByteVector{0x11, 0x22, 0x33, 0x46}));
}

TEST_F(SimModbusVist, TellsTheMaskOfItsRecordsUnlessToldOtherwise) {
    meter.system().archive_mask = 0x4001;
    EXPECT_EQ(number(holding(meter, 655, 2), 0, 4), 0x4001U);
}

TEST_F(SimModbusVist, HasMemoryForThreeSystemsAndValuesOfThoseThatExist) {
    ModbusVistMeter small({.serial = Seventeen});
    EXPECT_EQ(holding(small, 284, 76), ByteVector(152, 0));
    EXPECT_EQ(part(holding(small, 658, 5), 1, 9), ByteVector(9, 0));
    EXPECT_EQ(refusal(small, registers_request(0x11, 4, 1538, 4)), 2);
    EXPECT_EQ(refusal(small, record_request(0x11, 1, 0, 48)), 2);
}

// ---- values

TEST_F(SimModbusVist, KeepsEachValueAtItsAddressInEachSystem) {
    struct Place {
        const char* name;
        unsigned address;
        unsigned registers;
    };
    const Place places[] = {{"GP1", 514, 1},  {"GP4", 517, 1},  {"T1", 518, 1},  {"T4", 521, 1},  {"P1", 546, 1},
                            {"P3", 548, 1},   {"Q1", 774, 2},   {"Q3", 778, 2},  {"M1", 786, 2},  {"M3", 790, 2},
                            {"MV1", 1026, 1}, {"MV4", 1029, 1}, {"V1", 1042, 2}, {"V3", 1046, 2}, {"G1", 1048, 2},
                            {"G3", 1052, 2},  {"E1", 1076, 2},  {"t1", 1078, 1}};
    unsigned value = 0x0102;
    for (unsigned s = 0; s < 3; ++s) {
        for (const Place& place : places) {
            meter.set_value(place.name, ++value, s);
            const ByteVector found = input(meter, place.address + 1024 * s, place.registers);
            ASSERT_EQ(found.size(), 2 * place.registers) << place.name;
            EXPECT_EQ(number(found, 0, found.size()), value) << place.name;
        }
    }
}

TEST_F(SimModbusVist, PutsTheHighWordOfALongValueFirst) {
    meter.set_value("Q1", 0x000186A0);
    EXPECT_EQ(input(meter, 774, 2), (ByteVector{0x00, 0x01, 0x86, 0xA0}));
}

TEST_F(SimModbusVist, LetsTheValuesOfTheHourGrowUntilItEnds) {
    EXPECT_EQ(number(input(meter, 1042, 2, Eleven), 0, 4), 0U);
    EXPECT_EQ(number(input(meter, 1042, 2, Eleven + 1800), 0, 4), 21600U);
    EXPECT_EQ(number(input(meter, 1078, 1, Eleven + 3599), 0, 2), 3599U);
    EXPECT_EQ(number(input(meter, 1042, 2, Eleven + 3600), 0, 4), 0U);
    meter.set_value("V1", 7199);
    EXPECT_EQ(number(input(meter, 1042, 2, Eleven + 1800), 0, 4), 7199U);
    EXPECT_EQ(meter.value("V1", Eleven + 7), 7199U);
}

TEST_F(SimModbusVist, RefusesToBeSetUpAsNoMeterIs) {
    EXPECT_THROW(meter.set_value("T5", 1), std::invalid_argument);
    EXPECT_THROW(meter.set_value("T1", 0x10000), std::invalid_argument);
    EXPECT_THROW(meter.set_value("T1", 1, 3), std::out_of_range);
    EXPECT_THROW(ModbusVistMeter({.systems = {}}), std::invalid_argument);
    EXPECT_THROW(ModbusVistMeter({.systems = std::vector<sim::ModbusVistSystem>(4)}), std::invalid_argument);
    EXPECT_THROW(ModbusVistMeter({.systems = {{.name = "thirteen byte"}}}), std::invalid_argument);
    EXPECT_THROW(ModbusVistMeter({.systems = {{.values = {{"T1", 0x10000}}}}}), std::invalid_argument);
    EXPECT_THROW(ModbusVistMeter({.firmware = std::string(22, 'x')}), std::invalid_argument);
    EXPECT_THROW(ModbusVistMeter({.name = std::string("a\0b", 3)}), std::invalid_argument);
    EXPECT_THROW(ModbusVistMeter({.capacity = 0}), std::invalid_argument);
    EXPECT_THROW(ModbusVistMeter({.capacity = 65535}), std::invalid_argument);
}

// ---- clock

TEST_F(SimModbusVist, HasAClockOfItsOwn) {
    ModbusVistMeter ahead({.serial = Seventeen, .clock_offset = 65});
    EXPECT_EQ(input(ahead, 0, 3, Eleven), (ByteVector{11, 1, 5, 2, 3, 24}));
    ahead.set_clock("2024-12-31 23:59:59", Eleven);
    EXPECT_EQ(input(ahead, 0, 3, Eleven + 1), (ByteVector{0, 0, 0, 1, 1, 25}));
    ModbusVistMeter fast({.serial = Seventeen, .clock_drift_ppm = 1000.0});
    input(fast, 0, 3, Eleven);
    EXPECT_EQ(input(fast, 0, 3, Eleven + 10000), (ByteVector{13, 46, 50, 2, 3, 24}));
}

TEST_F(SimModbusVist, TellsLocalTime) {
    live_in("MSK-3");
    EXPECT_EQ(input(meter, 0, 3, Eleven), (ByteVector{14, 0, 0, 2, 3, 24}));
}

// ---- what it heard

TEST_F(SimModbusVist, CountsWhatItHeard) {
    input(meter, 518, 4);
    input(meter, 518, 4);
    holding(meter, 0, 99);
    record(meter, 2, 7, 20);
    record(meter, 2, 0, 48);
    EXPECT_EQ(meter.requests(), 5U);
    EXPECT_EQ(meter.requests({.function = 4}), 2U);
    EXPECT_EQ(meter.requests({.function = 4, .address = 518}), 2U);
    EXPECT_EQ(meter.requests({.function = 20, .address = 2}), 2U);
    EXPECT_EQ(meter.requests({.function = 20, .record = 7}), 1U);
    EXPECT_EQ(meter.heard().back().question,
              (sim::ModbusQuestion{.slave = 17, .function = 20, .address = 2, .count = 48}));
    meter.forget_requests();
    EXPECT_EQ(meter.requests(), 0U);
}

TEST_F(SimModbusVist, MayBeSwappedForAnother) {
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.swap_for({.serial = 44});
    EXPECT_TRUE(ask(meter, {0x11, 0x04, 0x00, 0x00, 0x00, 0x01}).empty());
    EXPECT_FALSE(ask(meter, {0x2C, 0x04, 0x00, 0x00, 0x00, 0x01}).empty());
    EXPECT_TRUE(meter.records().empty());
}

}  // namespace
