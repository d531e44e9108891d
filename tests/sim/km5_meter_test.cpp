#include <set>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "km5_asking.h"

namespace {

using namespace km5_asking;  // NOLINT(google-build-using-namespace)

class SimKm5Meter : public Km5Test {};

// ---- frames

TEST_F(SimKm5Meter, SaysWhoItIsToARequestWithItsAddress) {
    Km5Meter meter({.serial = 12345678, .model = 2});
    const ByteVector asked = {0x78, 0x56, 0x34, 0x12, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x08, 0x14};
    const ByteVector expected = {0x78, 0x56, 0x34, 0x12, 0x00, 0x78, 0x56, 0x34,
                                 0x12, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x29};
    EXPECT_EQ(joined(meter.hear(asked, Eleven)), expected);
}

TEST_F(SimKm5Meter, SaysItsFirmwareAndItsTypeLetters) {
    Km5Meter meter({.serial = 1, .model = 2, .firmware = "2.15"});
    const ByteVector asked = {0x01, 0, 0, 0, 0x09, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x08, 0x0A};
    const ByteVector expected = {0x01, 0x00, 0x00, 0x00, 0x09, 0x32, 0x2E, 0x31, 0x35,
                                 0x00, 0x00, 0x4B, 0x4D, 0x35, 0x32, 0x11, 0xCF};
    EXPECT_EQ(joined(meter.hear(asked, Eleven)), expected);
}

TEST_F(SimKm5Meter, SaysTheTimeInItsDateBlock) {
    Km5Meter meter({.serial = 1});
    meter.set_clock("2024-03-02 10:57:30", Eleven);
    const ByteVector asked = {0x01, 0, 0, 0, 0x2C, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x2D, 0x2D};
    const ByteVector expected = {0x01, 0x00, 0x00, 0x00, 0x2C, 0x00, 0x02, 0x03,
                                 0x24, 0x00, 0x10, 0x57, 0x30, 0x7F, 0xED};
    EXPECT_EQ(joined(meter.hear(asked, Eleven)), expected);
}

TEST_F(SimKm5Meter, KeepsSilentUnlessTheFrameIsWholeAndMeantForIt) {
    Km5Meter meter({.serial = 1});
    const ByteVector good = {0x01, 0, 0, 0, 0x09, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x08, 0x0A};
    ByteVector shorter(good.begin(), good.end() - 1);
    ByteVector longer = good;
    longer.push_back(0);
    const ByteVector to_another = {0x02, 0, 0, 0, 0x09, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0B, 0x0B};
    ByteVector wrong_cs1 = good;
    wrong_cs1[14] = 0x09;
    ByteVector wrong_cs2 = good;
    wrong_cs2[15] = 0x0B;
    for (const auto& frame : {ByteVector{}, shorter, longer, to_another, wrong_cs1, wrong_cs2}) {
        EXPECT_TRUE(meter.hear(frame, Eleven).empty());
    }
    EXPECT_EQ(meter.requests(), 0U);
    EXPECT_EQ(meter.refused(), 2U);
    EXPECT_FALSE(meter.hear(good, Eleven).empty());
}

TEST_F(SimKm5Meter, LeavesTheLastArgumentOutOfTheFirstSumOfARequest) {
    Km5Meter meter({.serial = 1});
    const ByteVector outside = {0x01, 0, 0, 0, 0x09, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x08, 0x0B};
    const ByteVector inside = {0x01, 0, 0, 0, 0x09, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0x09, 0x0B};
    EXPECT_FALSE(meter.hear(outside, Eleven).empty());
    EXPECT_TRUE(meter.hear(inside, Eleven).empty());
}

TEST_F(SimKm5Meter, AnswersWithTheLengthOfEachCommandAndWithRightSums) {
    Km5Meter meter;
    const struct {
        std::uint8_t command, data0, data1;
        std::size_t length;
    } rows[] = {
        {0, 0, 0, 16},  {8, 0, 0, 14},  {9, 0, 0, 17},  {14, 70, 4, 11}, {44, 0, 0, 15},
        {44, 1, 0, 11}, {44, 2, 0, 11}, {44, 3, 0, 11}, {44, 4, 0, 11},  {44, 5, 0, 31},
        {44, 6, 0, 11}, {44, 7, 0, 31}, {44, 8, 0, 15}, {123, 0, 0, 71}, {95, 0, 0, 43},
        {51, 0, 0, 30}, {52, 0, 1, 10}, {65, 0, 0, 71}, {55, 4, 0, 15},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(int{row.command});
        const ByteVector answer = ask(meter, row.command, {row.data0, row.data1});
        EXPECT_EQ(answer.size(), row.length);
        EXPECT_EQ(part(answer, 0, 4), (ByteVector{0x78, 0x56, 0x34, 0x12, row.command}));
        EXPECT_TRUE(sums_hold(answer));
    }
}

TEST_F(SimKm5Meter, RefusesWhatItDoesNotKnowWithAnErrorAnswer) {
    Km5Meter meter({.serial = 1});
    EXPECT_EQ(ask(meter, 77), (ByteVector{0x01, 0, 0, 0, 0xEF, 0xEE, 0xF0}));
    EXPECT_EQ(ask(meter, 44, {9}), (ByteVector{0x01, 0, 0, 0, 0xF0, 0xF1, 0xF1}));
    EXPECT_EQ(ask(meter, 51, {5})[4], 0xF0);
    EXPECT_EQ(ask(meter, 52, {5})[4], 0xF0);
    EXPECT_EQ(ask(meter, 65, {4})[4], 0xF0);
    EXPECT_EQ(ask(meter, 55, {0})[4], 0xF0);
}

// ---- identity

TEST_F(SimKm5Meter, ShowsAnAttByThreeLettersAndTheModel) {
    Km5Meter meter({.model = 3, .att = true});
    EXPECT_EQ(part(ask(meter, 9), 11, 14), (ByteVector{'A', 'T', 'T', '3'}));
}

TEST_F(SimKm5Meter, OfTheSixthKindHasOneAddressForEachSubsystem) {
    Km5Meter meter({.serial = 12345678, .model = 7, .km56i = true, .subsystems = 3});
    EXPECT_EQ(part(ask(meter, 9, {}, 2), 0, 3), (ByteVector{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(part(ask(meter, 9, {}, 1), 0, 3), (ByteVector{0x78, 0x56, 0x34, 0x11}));
    EXPECT_EQ(part(ask(meter, 9, {}, 0), 0, 3), (ByteVector{0x78, 0x56, 0x34, 0x10}));
    EXPECT_EQ(part(ask(meter, 9), 11, 14), (ByteVector{'K', 'M', '5', 'I'}));
    EXPECT_TRUE(meter.hear(request({0x78, 0x56, 0x34, 0x13}, 9, {}), Eleven).empty());
    EXPECT_EQ(meter.heard().front().subsystem, 2U);
}

TEST_F(SimKm5Meter, OfTheSixthKindKeepsItsSubsystemsApart) {
    Km5Meter meter({.model = 7, .km56i = true, .subsystems = 2});
    meter.set_value("T1", 71.25F, 1);
    meter.set_eeprom(116, 12.5F, 1);
    meter.set_status(8, 3, 1);
    meter.store_daily({.at = "2024-03-02 00:00"}, 1);
    EXPECT_EQ(float_at(ask(meter, 44, {5}, 0), 21), 95.5F);
    EXPECT_EQ(float_at(ask(meter, 44, {5}, 1), 21), 71.25F);
    EXPECT_EQ(float_at(ask(meter, 44, {5}, 1), 25), 60.3125F);  // a sixteenth above subsystem 0
    EXPECT_EQ(float_at(ask(meter, 14, {116, 4}, 0), 5), 66.0F);
    EXPECT_EQ(float_at(ask(meter, 14, {116, 4}, 1), 5), 12.5F);
    EXPECT_EQ(ask(meter, 8, {}, 0).at(8), 1);
    EXPECT_EQ(ask(meter, 8, {}, 1).at(8), 3);
    EXPECT_EQ(bounds_of(ask(meter, 51, {1}, 0)), (Km5Bounds{.flag = 0x80}));
    EXPECT_EQ(bounds_of(ask(meter, 51, {1}, 1)), (Km5Bounds{.flag = 0, .first = 0, .last = 0, .count = 1}));
}

TEST_F(SimKm5Meter, GivesTheStatusBytesAsConfigured) {
    Km5Meter meter({.serial = 1, .status = {1, 2, 3, 4, 5, 6, 7}});
    // 01^08 is 09, and 1..7 cancel out in the exclusive or; 09 and 28 make 37.
    EXPECT_EQ(ask(meter, 8), (ByteVector{0x01, 0, 0, 0, 0x08, 1, 2, 3, 4, 5, 6, 7, 0x09, 0x25}));
}

TEST_F(SimKm5Meter, ReadsParametersByNumberAndErasedMemoryForOthers) {
    Km5Meter meter({.eeprom = {{70, 71.25F}}});
    EXPECT_EQ(part(ask(meter, 14, {70, 4}), 5, 8), (ByteVector{0x00, 0x80, 0x8E, 0x42}));
    EXPECT_EQ(float_at(ask(meter, 14, {68, 4}), 5), 4.0F);
    EXPECT_EQ(part(ask(meter, 14, {200, 4}), 5, 8), ByteVector(4, 0xFF));
}

TEST_F(SimKm5Meter, DoesNotComeFromTheFactoryWithNonsense) {
    EXPECT_THROW(Km5Meter({.serial = 100000000}), std::invalid_argument);
    EXPECT_THROW(Km5Meter({.model = 8}), std::invalid_argument);
    EXPECT_THROW(Km5Meter({.subsystems = 2}), std::invalid_argument);
    EXPECT_THROW(Km5Meter({.km56i = true, .subsystems = 4}), std::invalid_argument);
    EXPECT_THROW(Km5Meter({.firmware = "2.1"}), std::invalid_argument);
    EXPECT_THROW(Km5Meter({.capacity = {.hourly = 0}}), std::invalid_argument);
}

// ---- present values

TEST_F(SimKm5Meter, PutsAValueIntoAllPagesThatCarryItsName) {
    Km5Meter meter;
    meter.set_value("M1", 120.5F);
    EXPECT_EQ(part(ask(meter, 44, {5}), 9, 12), (ByteVector{0x00, 0x00, 0xF1, 0x42}));
    EXPECT_EQ(float_at(ask(meter, 44, {6}), 5), 120.5F);
    EXPECT_EQ(float_at(ask(meter, 123), 5), 120.5F);
}

TEST_F(SimKm5Meter, PutsAValueIntoOnePlaceAlone) {
    Km5Meter meter;
    meter.set_value_at({.command = 123, .page = 0, .position = 5}, 120.5F);
    meter.set_value("M1", 7.5F);
    EXPECT_EQ(float_at(ask(meter, 44, {5}), 9), 7.5F);
    EXPECT_EQ(float_at(ask(meter, 123), 5), 120.5F);
    EXPECT_THROW(meter.set_value_at({.command = 44, .page = 0, .position = 5}, 1.0F), std::invalid_argument);
}

TEST_F(SimKm5Meter, ReachesTheLastPositionsOfTheLongPages) {
    Km5Meter meter;
    EXPECT_EQ(float_at(ask(meter, 123), 65), 21.625F);   // T6
    EXPECT_EQ(float_at(ask(meter, 95), 37), 8761.375F);  // Tp
    EXPECT_EQ(float_at(ask(meter, 44, {8}), 9), 0.5F);   // M5
}

TEST_F(SimKm5Meter, UsesThePlacesOfTheIntegralsByModel) {
    const struct {
        int model;
        const char* names[4];  // at 17, 21, 25, 29
    } rows[] = {
        {1, {"IM2", "Vi", "IQ1", "IQ2"}},
        {3, {"IM3", "Vi", "IQ1", "IQ2"}},
        {5, {"IM2", "IE4", "IQ1", "IQ2"}},
        {6, {"IM2", "IE4", "IM4", "IM5"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.model);
        Km5Meter meter({.model = row.model});
        const ByteVector answer = ask(meter, 95);
        for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(float_at(answer, 17 + 4 * k), meter.value(row.names[k]));
    }
    Km5Meter meter({.model = 2});
    EXPECT_THROW(meter.set_value("IM3", 1.0F), std::invalid_argument);
    EXPECT_THROW(meter.set_value("", 1.0F), std::invalid_argument);
}

TEST_F(SimKm5Meter, HasADifferentValueForEveryNameInEverySubsystem) {
    Km5Meter meter({.km56i = true, .subsystems = 3});
    std::set<std::string> names;
    for (const auto& row : sim::km5_page_floats()) names.emplace(row.name);
    std::set<float> values;
    for (const auto& name : names) {
        for (unsigned subsystem = 0; subsystem < 3; ++subsystem) values.insert(meter.value(name, subsystem));
    }
    EXPECT_EQ(values.size(), names.size() * 3);
}

// ---- clock

TEST_F(SimKm5Meter, ShowsLocalTimeAheadByItsOffset) {
    live_in("MSK-3");
    Km5Meter meter({.clock_offset = -90});
    EXPECT_EQ(part(ask(meter, 44, {0}), 5, 12), (ByteVector{0, 0x02, 0x03, 0x24, 0, 0x13, 0x58, 0x30}));
}

TEST_F(SimKm5Meter, DriftsFromTheFirstTimeItHearsOf) {
    Km5Meter meter({.clock_drift_ppm = 100});
    ask(meter, 9);
    EXPECT_EQ(meter.clock(Eleven), Eleven);
    EXPECT_EQ(meter.clock(Eleven + 100000), Eleven + 100010);
    meter.set_clock(Eleven + 100000, Eleven + 100000);
    EXPECT_EQ(meter.clock(Eleven + 200000), Eleven + 200010);
}

// ---- another meter

TEST_F(SimKm5Meter, IsSwappedForAnotherWithAnEmptyMemory) {
    Km5Meter meter({.serial = 1});
    meter.store_hourly({.at = Eleven});
    meter.swap_for({.serial = 2, .model = 4, .att = true});
    EXPECT_TRUE(meter.hear(request({0x01, 0, 0, 0}, 0, {}), Eleven).empty());
    EXPECT_EQ(ask(meter, 0).at(9), 3);
    EXPECT_EQ(bounds_of(ask(meter, 51, {0})), (Km5Bounds{.flag = 0x80}));
}

TEST_F(SimKm5Meter, ChangesWhatItIsAndKeepsItsMemory) {
    Km5Meter meter({.serial = 1});
    meter.store_hourly({.at = Eleven});
    meter.set_serial(12345678);
    meter.set_model(5);
    meter.set_firmware("1.57");
    meter.set_type(false, true, 2);
    EXPECT_EQ(ask(meter, 0).at(9), 4);
    EXPECT_EQ(part(ask(meter, 9, {}, 1), 5, 14), (ByteVector{'1', '.', '5', '7', 0, 0, 'K', 'M', '5', 'I'}));
    EXPECT_EQ(word_at(ask(meter, 51, {0}), 26), 1U);
    EXPECT_THROW(meter.set_model(0), std::invalid_argument);
}

TEST_F(SimKm5Meter, CanHaveAModelIndexAndLettersThatFitNothing) {
    Km5Meter meter({.type_letters = "ATTX", .model_index = 255});
    EXPECT_EQ(ask(meter, 0).at(9), 255);
    EXPECT_EQ(part(ask(meter, 9), 11, 14), (ByteVector{'A', 'T', 'T', 'X'}));
}

// ---- what it remembers of the line

TEST_F(SimKm5Meter, CountsAndKeepsTheRequestsThatItHeard) {
    Km5Meter meter;
    for (int k = 0; k < 5000; ++k) ask(meter, 65, {0, static_cast<std::uint8_t>(k % 256)}, 0, Eleven + k);
    ask(meter, 51, {3});
    EXPECT_EQ(meter.requests(), 5001U);
    EXPECT_EQ(meter.requests(65), 5000U);
    EXPECT_EQ(meter.requests(52), 0U);
    EXPECT_EQ(meter.heard().size(), 4096U);
    EXPECT_EQ(meter.heard().back().command(), 51);
    EXPECT_EQ(meter.heard().back().data(0), 3);
    EXPECT_EQ(meter.heard()[4094].at, Eleven + 4999);
    meter.forget_requests();
    EXPECT_EQ(meter.requests(), 0U);
}

TEST_F(SimKm5Meter, RemembersItsEvents) {
    Km5Meter meter;
    meter.store_event("2024-03-02 11:00:00", 0x85);
    ASSERT_EQ(meter.events().size(), 1U);
    EXPECT_EQ(meter.events()[0].time, Eleven);
    EXPECT_EQ(meter.events()[0].code, 0x85);
}

}  // namespace
