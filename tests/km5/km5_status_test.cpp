// The meter's status bits, its clock, and what a pass leaves behind when pages fail.

#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

using km5_frames::answer;
using sim::ByteVector;

class Km5Status : public Km5Stand {
  protected:
    Km5Status() {
        machine.connect(Port, meter);
        start_driver();
    }

    /// A whole pass of which only the status is answered; `payload` stands at the answer positions 5 to 11.
    void pass(const ByteVector& payload) {
        meter.say(answer(8, payload));
        driver->get_all_current_values();
    }

    Km5Script meter;
};

TEST_F(Km5Status, EachBitOfTheMeterSetsItsPublishedBits) {
    struct Bit {
        std::size_t position;
        std::uint8_t mask;
        unsigned published;
    };
    const Bit bits[] = {
        {7, 0x01, 0x2},     {7, 0x02, 0x4}, {7, 0x04, 0},     {7, 0x08, 0x80008},   {7, 0x10, 0x20000},
        {7, 0x20, 0x40000}, {7, 0xC0, 0},   {9, 0x03, 0},     {9, 0x04, 0x4000},    {9, 0x08, 0x4000},
        {9, 0x0C, 0x4000},  {9, 0xF0, 0},   {10, 0x01, 0x40}, {10, 0x02, 0x100000}, {10, 0xFC, 0},
        {5, 0xFF, 0},       {6, 0xFF, 0},   {8, 0xFF, 0},     {11, 0xFF, 0},
    };
    for (const Bit& bit : bits) {
        ByteVector payload(7, 0);
        payload[bit.position - 5] = bit.mask;
        EXPECT_EQ(km5::decode_status(answer(8, payload)).Cstatus, bit.published)
            << bit.position << " " << int{bit.mask};
    }
}

TEST_F(Km5Status, AllBitsTogetherAreTheSumOfEachAndTheNumberIsUnsigned) {
    pass(ByteVector(7, 0xFF));
    // 0x2 + 0x4 + 0x8 + 0x80000 + 0x20000 + 0x40000 + 0x4000 + 0x40 + 0x100000
    EXPECT_EQ(item("ER"), "1982542");
    EXPECT_EQ(item("EG"), "18446744073709551368") << "0xFFFFFFFFFFFFFF08: the low byte is the echoed command";
}

TEST_F(Km5Status, TheStatusIsPublishedAsFourItems) {
    pass({0x11, 0x22, 0x01, 0x02, 0x00, 0x00, 0x77});
    // Little-endian from the echoed command on: 0x7700000201221108.
    EXPECT_EQ(item("EG"), "8574853699122368776");
    EXPECT_EQ(item("ER"), "2");
    EXPECT_EQ(item("TSMode"), "2");
    EXPECT_EQ(item("SC"), "1");
    EXPECT_EQ(logged("messages", "Start get status.."), 1);
    EXPECT_EQ(logged("messages", "Get Cstatus: 2"), 1);
    EXPECT_EQ(logged("messages", "Get Gstatus: 8574853699122368776"), 1);
}

TEST_F(Km5Status, EitherOfTwoBitsTakesSCAway) {
    for (const std::uint8_t mask : {0x04, 0x08, 0x0C}) {
        EXPECT_EQ(km5::decode_status(answer(8, {0, 0, 0, 0, mask, 0, 0})).SC, 0) << int{mask};
    }
    EXPECT_EQ(km5::decode_status(answer(8, {0xFF, 0xFF, 0xFF, 0xFF, 0xF3, 0xFF, 0xFF})).SC, 1);
}

TEST_F(Km5Status, ModesAboveThreeAreModeFour) {
    for (const int mode : {0, 1, 2, 3, 4, 5, 255}) {
        const ByteVector bytes = answer(8, {0, 0, 0, static_cast<std::uint8_t>(mode), 0, 0, 0});
        EXPECT_EQ(km5::decode_status(bytes).TSMode, mode > 3 ? 4 : mode);
    }
}

TEST_F(Km5Status, AStatusThatCannotBeReadLeavesTheItems) {
    pass({1, 1, 1, 3, 0, 1, 1});
    const std::string before = item("EG");
    driver->get_all_current_values();
    EXPECT_EQ(item("EG"), before);
    EXPECT_EQ(item("ER"), "66");
    EXPECT_EQ(item("TSMode"), "3");
    EXPECT_EQ(logged("messages", "Get status: FAIL"), 1);
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Km5Status, WithoutAStatusThePagesAreStillRead) {
    meter.keep_silent(21).keep_silent(21).say(answer(44, {0, 0, 0x80, 0x3F}));
    EXPECT_TRUE(driver->get_all_current_values());
    driver->flush_instant_data();
    EXPECT_EQ(item("IE1"), "1.000000");
}

TEST_F(Km5Status, ASilentMeterCosts21ExchangesForThe12RequestsOfAPass) {
    EXPECT_FALSE(driver->get_all_current_values()) << "nothing to publish";
    EXPECT_EQ(requests().size(), 12U * 21);
    driver->flush_instant_data();
    EXPECT_EQ(scene.list("/tmp/m1/1/tc_items"), (Texts{"Connected", "_DriverStatus"}));
}

// ---- failed pages

class Km5Pages : public Km5Stand {
  protected:
    /// Whether a pass over the pages has found something to publish.
    bool read_pages() {
        const bool found = driver->get_all_current_values();
        driver->flush_instant_data();
        return found;
    }
};

TEST_F(Km5Pages, OneDeadPageCosts21ExchangesAndNoOtherPage) {
    sim::Km5Meter meter({.model = 2, .firmware = "1.57"});
    start_described(meter);
    meter.misbehave_next(21, sim::km5_silence().on(44, 2));
    EXPECT_TRUE(read_pages());
    EXPECT_EQ(requests().size(), 12U + 20);
    EXPECT_EQ(item("IM1"), "(none)");
    EXPECT_NE(item("IM2"), "(none)");
}

TEST_F(Km5Pages, ItemsOfAFailedPageKeepTheirOldValues) {
    sim::Km5Meter meter({.model = 2, .firmware = "1.57"});
    meter.set_value("IM1", 100.5F);
    start_described(meter);
    read_pages();
    meter.set_value("IM1", 200.5F);
    meter.set_value("IM2", 300.5F);
    meter.misbehave_next(21, sim::km5_silence().on(44, 2));
    read_pages();
    EXPECT_EQ(item("IM1"), "100.500000");
    EXPECT_EQ(item("IM2"), "300.500000");
}

TEST_F(Km5Pages, APageOfErrorAnswersIsPassedOver) {
    sim::Km5Meter meter({.model = 2, .firmware = "1.57"});
    start_described(meter);
    meter.misbehave_next(11, sim::km5_error(0xFB).on(44, 1));
    EXPECT_TRUE(read_pages());
    EXPECT_EQ(item("IE1"), "(none)");
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Km5Pages, NoiseAndWrongSumsAreReadAgain) {
    sim::Km5Meter meter({.model = 2});
    meter.set_value("T1", 71.25F);
    start_described(meter);
    meter.misbehave_each(2, sim::km5_wrong_cs2());
    meter.misbehave_each(3, sim::km5_noise());
    EXPECT_TRUE(read_pages());
    EXPECT_EQ(item("T1"), "71.250000");
}

TEST_F(Km5Pages, AShortAnswerGivesNothingForItsMissingValues) {
    // A meter may end a page early: what is not there reads as zero, never as the page before.
    Km5Script meter;
    machine.connect(Port, meter);
    start_driver();
    meter.say(answer(9, {'3', '.', '0', '0'}));
    driver->get_version();
    meter.keep_silent(21 * 10).say(answer(123, ByteVector(64, 0x42))).say(answer(95, {1, 2, 3, 4}));
    read_pages();
    EXPECT_EQ(item("IM1"), "0.000000");
}

// ---- the meter's clock

TEST_F(Km5Pages, TheMetersClockIsPublishedAndRemembered) {
    sim::Km5Meter meter;
    start_described(meter);
    meter.set_clock("2024-03-02 10:42:17", machine.now());
    driver->get_all_current_values();
    EXPECT_NEAR(static_cast<double>(carried().param_MDateTime), 1709376137.0, 1.0) << "the status was read first";
    EXPECT_EQ(item("MDateTime"), std::to_string(carried().param_MDateTime));
    EXPECT_EQ(logged_parts("messages", {"CURDATE: "}), 1);
    EXPECT_EQ(logged("messages", "mday: 2, timeinfo: 2"), 1);
    EXPECT_EQ(logged("messages", "mon : 3, timeinfo: 2"), 1);
    EXPECT_EQ(logged("messages", "year: 36, timeinfo: 124"), 1) << "the raw byte is BCD, 0x24";
    EXPECT_EQ(logged("messages", "hour: 16, timeinfo: 10"), 1);
    EXPECT_EQ(logged("messages", "min : 66, timeinfo: 42"), 1);
    EXPECT_EQ(logged_parts("messages", {"sec : ", ", timeinfo: "}), 1);
}

TEST_F(Km5Pages, AClockPageThatFailsLeavesTheOldClock) {
    sim::Km5Meter meter;
    start_described(meter);
    driver->get_all_current_values();
    const std::time_t before = carried().param_MDateTime;
    machine.sleep(3600);
    meter.misbehave_next(21, sim::km5_silence().on(44, 0));
    driver->get_all_current_values();
    EXPECT_EQ(carried().param_MDateTime, before);
    EXPECT_EQ(item("MDateTime"), std::to_string(before));
}

class Km5SummerClock : public Km5Stand {
  protected:
    Km5SummerClock() : Km5Stand("2024-07-01 12:00:00", Berlin) {}
};

TEST_F(Km5SummerClock, AMetersWinterDateIsReadByTheGatewaysSummerTime) {
    sim::Km5Meter meter;
    start_described(meter);
    meter.set_clock("2024-01-15 12:00:00", machine.now());
    driver->get_all_current_values();
    // Noon of summer time, two hours ahead of UTC, although the date lies in winter.
    EXPECT_NEAR(static_cast<double>(carried().param_MDateTime), 1705312800.0, 2.0);
}

TEST_F(Km5SummerClock, AMetersSummerDateIsReadAsSuch) {
    sim::Km5Meter meter;
    start_described(meter);
    driver->get_all_current_values();
    EXPECT_NEAR(static_cast<double>(carried().param_MDateTime), machine.seconds(), 12.0);
}

}  // namespace
