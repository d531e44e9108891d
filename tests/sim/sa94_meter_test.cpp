#include "sa94_meter.h"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "sa94_asking.h"
#include "sim_line.h"

namespace {

using namespace sa94_asking;  // NOLINT(google-build-using-namespace)
using sim::sa94_float;
using sim::sa94_float_value;
using sim::sa94_question;

class SimSa94 : public Sa94Test {};

// ---- the conversation

TEST_F(SimSa94, AnswersToItsAddressWithItsStatusByte) {
    Sa94Meter meter({.address = 0x12345, .status = 0x95});
    EXPECT_EQ(ask(meter, {0xC4, 0x46, 0x45}), ByteVector{0x95});
    EXPECT_TRUE(meter.in_conversation());
    meter.set_status(0x04);
    EXPECT_EQ(ask(meter, {0xC4, 0x46, 0x45}), ByteVector{0x04});
    EXPECT_EQ(meter.requests(Sa94Kind::Connect), 2U);
}

TEST_F(SimSa94, HasAnAddressOfTwentyBits) {
    Sa94Meter highest({.address = 0xFFFFF, .status = 0x21});
    EXPECT_EQ(ask(highest, {0xFF, 0x7F, 0x7F}), ByteVector{0x21});
    Sa94Meter lowest({.address = 0, .status = 0x21});
    EXPECT_EQ(ask(lowest, {0xC0, 0x00, 0x00}), ByteVector{0x21});
    Sa94Meter middle({.address = 0x80, .status = 0x21});
    EXPECT_EQ(ask(middle, {0xC0, 0x01, 0x00}), ByteVector{0x21});
    EXPECT_THROW(Sa94Meter({.address = 0x100000}), std::invalid_argument);
}

TEST_F(SimSa94, IsSilentUntilItIsConnected) {
    Sa94Meter meter({.address = 0x12345});
    EXPECT_EQ(ask(meter, {0xA0, 0x02}), Nothing);
    EXPECT_EQ(ask(meter, {0x82}), Nothing);
    EXPECT_EQ(ask(meter, {0x01}), Nothing);
    EXPECT_EQ(meter.heard().size(), 0U);
    EXPECT_EQ(ask(meter, Connect12345).size(), 1U);
    EXPECT_EQ(ask(meter, {0xA0, 0x02}).size(), 128U);
}

TEST_F(SimSa94, IsSilentOnceItWasLeft) {
    Sa94Meter meter = talking();
    EXPECT_EQ(ask(meter, {0x01}), Nothing);
    EXPECT_FALSE(meter.in_conversation());
    EXPECT_EQ(ask(meter, {0x82}), Nothing);
    EXPECT_EQ(meter.requests(Sa94Kind::Disconnect), 1U);
}

TEST_F(SimSa94, FallsSilentWhenAnotherMeterIsConnected) {
    Sa94Meter meter = talking();
    Sa94Meter other({.address = 0x12346, .status = 0x10});
    for (Sa94Meter* each : {&meter, &other}) ask(*each, {0xC4, 0x46, 0x46});
    EXPECT_EQ(ask(meter, {0x82}), Nothing);
    EXPECT_EQ(ask(other, {0x82}).size(), 4U);
}

TEST_F(SimSa94, MetersOnOneLineAreHeardOneAtATime) {
    Sa94Meter first({.address = 1, .status = 0x11});
    Sa94Meter second({.address = 2, .status = 0x22});
    sim::SimLine line;
    line.connect(first);
    line.connect(second);
    std::uint8_t byte = 0;
    const auto says = [&](const ByteVector& request) {
        line.deliver(request, 0, Eleven);
        const auto arrival = line.next_arrival();
        return arrival && line.read({&byte, 1}, *arrival) == 1 && !line.next_arrival();
    };
    EXPECT_TRUE(says({0xC0, 0x00, 0x02}));
    EXPECT_EQ(byte, 0x22);
    EXPECT_TRUE(says({0xC0, 0x00, 0x01}));
    EXPECT_EQ(byte, 0x11);
    EXPECT_FALSE(says({0x01}));
    EXPECT_FALSE(says({0x8A}));
}

TEST_F(SimSa94, IsSilentToWhatIsNoRequest) {
    Sa94Meter meter = talking();
    for (const ByteVector& request : {ByteVector{},
                                      {0x00},
                                      {0x02},
                                      {0xA0},
                                      {0xC4},
                                      {0xC4, 0x46},
                                      {0x82, 0x82},
                                      {0xA8, 0x00},
                                      {0xA0, 0x80},
                                      {0xB7, 0x40},
                                      {0xB7, 0x00, 0x00},
                                      {0xB7, 0x80, 0x00},
                                      {0xB7, 0x40, 0x40},
                                      {0xB6, 0x40, 0x00},
                                      {0xC4, 0xC6, 0x45},
                                      {0xC4, 0x46, 0xC5},
                                      {0xC4, 0x46, 0x45, 0x01}}) {
        EXPECT_EQ(ask(meter, request), Nothing);
    }
    EXPECT_TRUE(meter.in_conversation());
    EXPECT_EQ(meter.heard().size(), 1U);
}

// ---- requests

TEST_F(SimSa94, TellsTheFormsOfARequestApart) {
    EXPECT_EQ(sa94_question(ByteVector{0xA3, 0x7F}),
              (sim::Sa94Question{.kind = Sa94Kind::Block, .segment = 3, .block = 127}));
    EXPECT_EQ(sa94_question(ByteVector{0xB7, 0x6F, 0x3F}),
              (sim::Sa94Question{.kind = Sa94Kind::Block, .segment = 5, .block = 511, .extended_form = true}));
    EXPECT_EQ(sa94_question(ByteVector{0xB7, 0x51, 0x00}),
              (sim::Sa94Question{.kind = Sa94Kind::Block, .segment = 2, .block = 64, .extended_form = true}));
    EXPECT_EQ(sa94_question(ByteVector{0x8C}), (sim::Sa94Question{.kind = Sa94Kind::Parameter, .code = 12}));
    EXPECT_EQ(sa94_question(ByteVector{0x9F}), (sim::Sa94Question{.kind = Sa94Kind::Parameter, .code = 31}));
    EXPECT_EQ(sa94_question(ByteVector{0xA0}), std::nullopt);
    EXPECT_EQ(sa94_question(ByteVector{0xC4, 0x46, 0x45}),
              (sim::Sa94Question{.kind = Sa94Kind::Connect, .address = 0x12345}));
}

TEST_F(SimSa94, ReachesEveryBlockOfEverySegmentInTheLongForm) {
    for (unsigned segment = 0; segment < 8; ++segment) {
        for (unsigned block = 0; block < 512; ++block) {
            const ByteVector bytes = {0xB7, static_cast<std::uint8_t>(0x40 + segment * 8 + block / 64),
                                      static_cast<std::uint8_t>(block % 64)};
            const auto request = sa94_question(bytes);
            ASSERT_TRUE(request.has_value());
            EXPECT_EQ(request->segment, segment);
            EXPECT_EQ(request->block, block);
        }
    }
}

// ---- memory

TEST_F(SimSa94, HoldsItsFirmwareTextBehindTheFirstByteOfItsBlock) {
    Sa94Meter meter = talking({.firmware = "M461-m 2.3"});
    const ByteVector block = ask(meter, {0xA0, 0x02});
    ASSERT_EQ(block.size(), 128U);
    const std::string text(block.begin() + 1, block.begin() + 15);
    EXPECT_EQ(text, "M461-m 2.3    ");
    EXPECT_EQ(block[15], 0xFF);
    EXPECT_EQ(Sa94Meter({.firmware = "M461 123456789"}).firmware().id, 15);
    EXPECT_THROW(Sa94Meter({.firmware = "M461 1234567890"}), std::invalid_argument);
}

TEST_F(SimSa94, HoldsItsPipesInTheFirstBlock) {
    Sa94Meter meter = talking({.tubes = {.DN1 = 1, .Q1max = 3, .Q1min = 4, .DN2 = 11, .Q2max = 5, .Q2min = 6}});
    const ByteVector block = ask(meter, {0xA0, 0x00});
    EXPECT_EQ(part(block, 36, 3), (ByteVector{1, 3, 4}));
    EXPECT_EQ(part(block, 44, 3), (ByteVector{11, 5, 6}));
    meter.set_tubes({.DN1 = 9});
    EXPECT_EQ(ask(meter, {0xA0, 0x00})[36], 9);
}

TEST_F(SimSa94, ReadsAsErasedWhereNobodyWrote) {
    Sa94Meter meter = talking();
    EXPECT_EQ(ask(meter, {0xA1, 0x00}), erased(128));
    EXPECT_EQ(ask(meter, {0xB7, 0x7F, 0x3F}), erased(128));
}

TEST_F(SimSa94, LargeSegmentsAreReachedInTheLongFormAndTheirStartInTheShortOne) {
    Sa94Meter meter = talking({.firmware = "M301"});
    meter.memory().write(5, 511, 0, ByteVector{0x55});
    meter.memory().write(5, 127, 0, ByteVector{0x66});
    EXPECT_EQ(ask(meter, {0xB7, 0x6F, 0x3F})[0], 0x55);
    EXPECT_EQ(ask(meter, {0xA5, 0x7F})[0], 0x66);
    EXPECT_EQ(ask(meter, {0xB7, 0x69, 0x3F})[0], 0x66);  // 127 is 1 times 64 and 63
    EXPECT_EQ(meter.requests(Sa94Kind::Block, 5, 127), 2U);
    EXPECT_EQ(meter.requests(Sa94Kind::Block, 5), 3U);
    EXPECT_EQ(meter.requests(Sa94Kind::Block), 3U);
}

TEST_F(SimSa94, AMeterWithSmallSegmentsDoesNotKnowTheLongForm) {
    Sa94Meter meter = talking({.firmware = "M300"});
    EXPECT_EQ(ask(meter, {0xA3, 0x7F}), erased(128));
    EXPECT_EQ(ask(meter, {0xB7, 0x58, 0x00}), Nothing);
    EXPECT_THROW(meter.memory().block(3, 128), std::out_of_range);
    EXPECT_THROW(meter.memory().block(8, 0), std::out_of_range);
    EXPECT_THROW(meter.memory().write(0, 0, 127, ByteVector{1, 2}), std::out_of_range);
}

// ---- firmwares

TEST_F(SimSa94, ChoosesTheLongestFirmwareNameThatFits) {
    const auto id = [](const char* text) { return sim::sa94_firmware(text).id; };
    EXPECT_EQ(id("M461-m 2.3"), 17);
    EXPECT_EQ(id("M461 2.3"), 15);
    EXPECT_EQ(id("M 4 6 1"), 15);
    EXPECT_EQ(id("M451-m"), 16);
    EXPECT_EQ(id("M411"), 13);
    EXPECT_EQ(id("301A"), 9);
    EXPECT_EQ(id("3010"), 9);
    EXPECT_EQ(id("SA94_UNKNOWN"), 0);
    EXPECT_EQ(id("SA94"), -1);
    EXPECT_EQ(id(""), -1);
}

TEST_F(SimSa94, FirmwareDecidesOverTheSizeOfTheMemory) {
    for (const char* small : {"SA94_UNKNOWN", "100", "M100", "200", "300", "M300", "whatever"}) {
        EXPECT_EQ(Sa94Meter({.firmware = small}).memory().blocks_per_segment(), 128U) << small;
    }
    for (const char* large : {"101", "M101", "201", "MTE1", "301", "M301", "M401", "M411", "M451", "M461-m"}) {
        EXPECT_EQ(Sa94Meter({.firmware = large}).memory().blocks_per_segment(), 512U) << large;
    }
    EXPECT_EQ(Sa94Meter({.firmware = "M301", .extended = false}).memory().blocks_per_segment(), 128U);
}

// ---- present values

TEST_F(SimSa94, AnswersAParameterWithItsFloat) {
    Sa94Meter meter = talking({.firmware = "M300"});
    meter.set_value("T1", 1.0F);
    EXPECT_EQ(ask(meter, {0x82}), (ByteVector{0x81, 0x00, 0x00, 0x00}));
    meter.set_value("T2", -71.25F);
    EXPECT_EQ(ask(meter, {0x83}), (ByteVector{0x87, 0x8E, 0x80, 0x00}));  // -71.25 is C2 8E 80 00
    EXPECT_EQ(meter.value("T2", Eleven), -71.25F);
    EXPECT_THROW(meter.set_value("P1", 1.0F), std::invalid_argument);
    EXPECT_FALSE(meter.has_value("P1"));
    EXPECT_TRUE(meter.has_value("IM2"));
}

TEST_F(SimSa94, AnswersACodeWithoutAValueWithZeroAndOneBeyondFifteenNotAtAll) {
    Sa94Meter meter = talking({.firmware = "M100"});
    EXPECT_EQ(ask(meter, {0x81}), (ByteVector{0, 0, 0, 0}));
    EXPECT_EQ(ask(meter, {0x86}), (ByteVector{0, 0, 0, 0}));
    EXPECT_EQ(ask(meter, {0x90}), Nothing);
    EXPECT_EQ(ask(meter, {0x9F}), Nothing);
}

TEST_F(SimSa94, TotalsGrowWithTheClockAndMeansStay) {
    Sa94Meter meter({.address = 0x10, .firmware = "M300"});
    EXPECT_GT(meter.value("IM1", Eleven + 24 * Hour), meter.value("IM1", Eleven));
    EXPECT_EQ(meter.value("IT1", Eleven + Hour), meter.value("IT1", Eleven) + 3600.0F);
    EXPECT_EQ(meter.value("T1", Eleven + 5 * Hour), meter.value("T1", Eleven));
    meter.set_value("IM1", 7.0F);
    EXPECT_EQ(meter.value("IM1", Eleven + 24 * Hour), 7.0F);
    Sa94Meter swaying({.firmware = "M300", .sway = true});
    EXPECT_NE(swaying.value("T1", Eleven + 5 * Hour), swaying.value("T1", Eleven));
}

TEST_F(SimSa94, ThirdGenerationHasVolumesOrMassesByItsStatus) {
    Sa94Meter meter({.firmware = "M451", .status = 0x00});
    const float mass = meter.value("p1", Eleven);
    meter.set_status(0x40);
    EXPECT_EQ(meter.value("p1", Eleven), mass);
    meter.set_status(0x44);
    EXPECT_NE(meter.value("p1", Eleven), mass);
}

// ---- floats

TEST_F(SimSa94, FloatsAreWrittenWithTheExponentFirst) {
    using Bytes = std::array<std::uint8_t, 4>;
    EXPECT_EQ(sa94_float(1.0F), (Bytes{0x81, 0x00, 0x00, 0x00}));
    EXPECT_EQ(sa94_float(-1.0F), (Bytes{0x81, 0x80, 0x00, 0x00}));
    EXPECT_EQ(sa94_float(0.0F), (Bytes{0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(sa94_float(0.5F), (Bytes{0x80, 0x00, 0x00, 0x00}));
    EXPECT_EQ(sa94_float(1234.5F), (Bytes{0x8B, 0x1A, 0x50, 0x00}));  // 44 9A 50 00
    EXPECT_EQ(sa94_float(std::ldexp(1.0F, -126)), (Bytes{0x03, 0x00, 0x00, 0x00}));
    EXPECT_EQ(sa94_float(std::ldexp(1.0F, 126)), (Bytes{0xFF, 0x00, 0x00, 0x00}));
    EXPECT_THROW(sa94_float(std::ldexp(1.0F, 127)), std::invalid_argument);
    EXPECT_THROW(sa94_float(std::numeric_limits<float>::infinity()), std::invalid_argument);
    EXPECT_THROW(sa94_float(std::nanf("")), std::invalid_argument);
}

TEST_F(SimSa94, FloatsComeBackAsTheyWere) {
    for (float value = 1e-30F; value < 1e37F; value *= 1.37F) {
        EXPECT_EQ(sa94_float_value(sa94_float(value)), value);
        EXPECT_EQ(sa94_float_value(sa94_float(-value)), -value);
    }
    const std::array<std::uint8_t, 4> negative_zero = {0x01, 0x80, 0x00, 0x00};
    EXPECT_TRUE(std::signbit(sa94_float_value(negative_zero)));
}

TEST_F(SimSa94, BcdIsTwoDigitsAndIsNotChecked) {
    EXPECT_EQ(sim::sa94_bcd(47), 0x47);
    EXPECT_EQ(sim::sa94_bcd_value(0x47), 47);
    EXPECT_EQ(sim::sa94_bcd_value(0xFF), 165);
    EXPECT_THROW(sim::sa94_bcd(100), std::invalid_argument);
    EXPECT_THROW(sim::sa94_bcd(-1), std::invalid_argument);
}

// ---- clock

TEST_F(SimSa94, TellsItsTimeAndDateInBcd) {
    Sa94Meter meter = talking();
    EXPECT_EQ(ask(meter, {0x8A}, Eleven + 12 * 60 + 34), (ByteVector{0, 0x11, 0x12, 0x34}));
    EXPECT_EQ(ask(meter, {0x8B}), (ByteVector{0, 0x02, 0x03, 0x24}));
}

TEST_F(SimSa94, ClockMayBeAheadDriftAndBeSet) {
    Sa94Meter meter = talking({.clock_offset = -61, .clock_drift_ppm = 1000.0});
    EXPECT_EQ(ask(meter, {0x8A}), (ByteVector{0, 0x10, 0x58, 0x59}));
    EXPECT_EQ(ask(meter, {0x8A}, Eleven + 1000), (ByteVector{0, 0x11, 0x15, 0x40}));
    meter.set_clock("2023-12-31 23:59:58", Eleven);
    EXPECT_EQ(ask(meter, {0x8A}, Eleven + 2), (ByteVector{0, 0x00, 0x00, 0x00}));
    EXPECT_EQ(ask(meter, {0x8B}, Eleven + 2), (ByteVector{0, 0x01, 0x01, 0x24}));
}

TEST_F(SimSa94, ClockKnowsNoSummerTime) {
    live_in("CET-1CEST,M3.5.0,M10.5.0/3");
    constexpr std::time_t JulyNoon = 1719835200;  // 2024-07-01 12:00 UTC, 14:00 in summer time
    Sa94Meter meter = talking();
    EXPECT_EQ(ask(meter, {0x8A}, JulyNoon), (ByteVector{0, 0x13, 0x00, 0x00}));
    EXPECT_EQ(sim::Sa94When("2024-07-01 13:00").time(), JulyNoon);
    EXPECT_EQ(sim::Sa94When(JulyNoon).date(), sim::Sa94When("2024-07-01 13:00").date());
}

TEST_F(SimSa94, FacesCountSecondsThroughTheCalendar) {
    EXPECT_EQ(sim::sa94_face(sim::Sa94When("2024-02-29 23:59:59").date()) + 1,
              sim::sa94_face(sim::Sa94When("2024-03-01 00:00").date()));
    EXPECT_EQ(sim::sa94_face(sim::Sa94When("2024-03-02 11:00").date()), Eleven);
    EXPECT_EQ(sim::sa94_date_of_face(Eleven + 61), sim::Sa94When("2024-03-02 11:01:01").date());
}

// ---- another meter

TEST_F(SimSa94, MayBeSwappedForAnother) {
    Sa94Meter meter = talking({.firmware = "M301"});
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.swap_for({.address = 0x12345, .firmware = "M300"});
    EXPECT_FALSE(meter.in_conversation());
    EXPECT_TRUE(meter.records(Sa94Archive::Hourly).empty());
    EXPECT_EQ(meter.memory().blocks_per_segment(), 128U);
    EXPECT_EQ(meter.requests(Sa94Kind::Connect), 1U);
    meter.forget_requests();
    EXPECT_EQ(meter.requests(Sa94Kind::Connect), 0U);
}

}  // namespace
