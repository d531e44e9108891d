#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "km5_asking.h"

namespace {

using namespace km5_asking;  // NOLINT(google-build-using-namespace)

// A meter with serial number 1, asked for page 1, whose float is 71.25.
class SimKm5Fault : public Km5Test {
  protected:
    SimKm5Fault() { meter.set_value("IE1", 71.25F); }
    ByteVector heard() { return ask(meter, 44, {1}); }

    Km5Meter meter{{.serial = 1}};
    // 01^2C^80^8E^42 is 61; 01+2C+80+8E+42 is 17D.
    const ByteVector right = {0x01, 0, 0, 0, 0x2C, 0x00, 0x80, 0x8E, 0x42, 0x61, 0x7D};
};

TEST_F(SimKm5Fault, IsAbsentAtFirst) {
    EXPECT_EQ(heard(), right);
}

TEST_F(SimKm5Fault, MayBeSilence) {
    meter.misbehave_next(1, sim::km5_silence());
    EXPECT_TRUE(meter.hear(request(meter.address(), 44, {1}), Eleven).empty());
    EXPECT_EQ(heard(), right);
    EXPECT_EQ(meter.requests(44), 2U);
}

TEST_F(SimKm5Fault, MayBeNoiseInFrontOfTheAnswer) {
    meter.misbehave_next(1, sim::km5_noise({0xAA, 0xBB}));
    ByteVector expected = {0xAA, 0xBB};
    expected.insert(expected.end(), right.begin(), right.end());
    EXPECT_EQ(heard(), expected);
}

TEST_F(SimKm5Fault, MayBeOneWrongSum) {
    meter.misbehave_next(1, sim::km5_wrong_cs1());
    meter.misbehave_next(1, sim::km5_wrong_cs2());
    EXPECT_EQ(heard(), (ByteVector{0x01, 0, 0, 0, 0x2C, 0x00, 0x80, 0x8E, 0x42, 0x9E, 0x7D}));
    EXPECT_EQ(heard(), (ByteVector{0x01, 0, 0, 0, 0x2C, 0x00, 0x80, 0x8E, 0x42, 0x61, 0x7E}));
}

TEST_F(SimKm5Fault, MayBeTheEchoOfAnotherCommand) {
    meter.misbehave_next(1, sim::km5_wrong_echo());
    meter.misbehave_next(1, sim::km5_wrong_echo(0x00));
    EXPECT_EQ(heard(), (ByteVector{0x01, 0, 0, 0, 0x2D, 0x00, 0x80, 0x8E, 0x42, 0x60, 0x7E}));
    EXPECT_EQ(heard(), (ByteVector{0x01, 0, 0, 0, 0x00, 0x00, 0x80, 0x8E, 0x42, 0x4D, 0x51}));
}

TEST_F(SimKm5Fault, MayBeAShortAnswer) {
    meter.misbehave_next(1, sim::km5_short(1));
    meter.misbehave_next(1, sim::km5_short(100));
    meter.misbehave_next(1, sim::km5_short(0));
    EXPECT_EQ(heard(), ByteVector{0x01});
    EXPECT_EQ(heard(), right);
    EXPECT_EQ(heard(), ByteVector{});
}

TEST_F(SimKm5Fault, MayBeAnOverLongAnswer) {
    meter.misbehave_next(1, sim::km5_over_long(75));
    const ByteVector answer = heard();
    EXPECT_EQ(answer.size(), 75U);
    EXPECT_EQ(part(answer, 0, 8), part(right, 0, 8));
    EXPECT_TRUE(sums_hold(answer));
}

TEST_F(SimKm5Fault, MayBeAnErrorAnswer) {
    meter.misbehave_next(1, sim::km5_error(0xFB));
    EXPECT_EQ(heard(), (ByteVector{0x01, 0, 0, 0, 0xFB, 0xFA, 0xFC}));
}

TEST_F(SimKm5Fault, MayBeAPauseInTheMiddle) {
    meter.misbehave_next(1, sim::km5_halved(0.9));
    const Answer answer = meter.hear(request(meter.address(), 44, {1}), Eleven);
    ASSERT_EQ(answer.size(), 2U);
    EXPECT_EQ(answer[0].bytes, part(right, 0, 4));
    EXPECT_DOUBLE_EQ(answer[0].delay_seconds, 0.02);
    EXPECT_EQ(answer[1].bytes, part(right, 5, 10));
    EXPECT_DOUBLE_EQ(answer[1].delay_seconds, 0.9);
}

TEST_F(SimKm5Fault, MayBeGarbageWithRightSums) {
    meter.misbehave_next(1, sim::km5_garbage());
    meter.misbehave_next(1, sim::km5_garbage({0x12}));
    const ByteVector answer = heard();
    EXPECT_EQ(answer.size(), right.size());
    EXPECT_EQ(part(answer, 0, 4), part(right, 0, 4));
    EXPECT_NE(answer, right);
    EXPECT_TRUE(sums_hold(answer));
    EXPECT_EQ(heard(), (ByteVector{0x01, 0, 0, 0, 0x2C, 0x12, 0x3F, 0x3F}));
}

TEST_F(SimKm5Fault, MayBeErasedMemory) {
    meter.misbehave_next(1, sim::km5_erased());
    EXPECT_EQ(heard(), (ByteVector{0x01, 0, 0, 0, 0x2C, 0xFF, 0xFF, 0xFF, 0xFF, 0x2D, 0x29}));
}

TEST_F(SimKm5Fault, WaitsInTheScriptForTheRequestThatItIsMeantFor) {
    meter.misbehave_next(1, sim::km5_error().on(65));
    meter.misbehave_next(1, sim::km5_error().on(44, 1));
    EXPECT_EQ(ask(meter, 44, {2}).at(4), 44);
    EXPECT_EQ(ask(meter, 44, {1}).at(4), 0xF0);
    EXPECT_EQ(heard(), right);
    EXPECT_EQ(meter.faults().scripted_left(), 1U);
    EXPECT_EQ(ask(meter, 65).at(4), 0xF0);
    EXPECT_EQ(meter.faults().scripted_left(), 0U);
    EXPECT_EQ(meter.faults().faults_made(), 2U);
}

TEST_F(SimKm5Fault, ComesWithEachThirdAnswer) {
    meter.misbehave_each(3, sim::km5_silence().on(44));
    std::string pattern;
    for (int k = 0; k < 7; ++k) {
        ask(meter, 9);
        pattern += heard().empty() ? '-' : '+';
    }
    EXPECT_EQ(pattern, "++-++-+");
    meter.behave();
    for (int k = 0; k < 3; ++k) EXPECT_EQ(heard(), right);
}

TEST_F(SimKm5Fault, ComesAtRandomButTheSameForTheSameSeed) {
    const auto pattern = [](std::uint64_t seed, double rate) {
        Km5Meter other({.serial = 1});
        other.misbehave_randomly(rate, seed, {sim::km5_silence(), sim::km5_error()});
        std::string text;
        for (int k = 0; k < 1000; ++k) {
            const ByteVector answer = ask(other, 44, {1});
            text += answer.empty() ? '-' : answer[4] == 44 ? '+' : 'e';
        }
        return text;
    };
    EXPECT_EQ(pattern(7, 0.25), pattern(7, 0.25));
    EXPECT_NE(pattern(7, 0.25), pattern(8, 0.25));
    EXPECT_EQ(pattern(7, 0.0), std::string(1000, '+'));
    EXPECT_EQ(pattern(7, 1.0).find('+'), std::string::npos);
    const std::string quarter = pattern(7, 0.25);
    EXPECT_NEAR(static_cast<double>(std::count(quarter.begin(), quarter.end(), '+')), 750.0, 60.0);
    EXPECT_GT(std::count(quarter.begin(), quarter.end(), '-'), 80);
    EXPECT_GT(std::count(quarter.begin(), quarter.end(), 'e'), 80);
}

TEST_F(SimKm5Fault, DrawsItsNumbersFromAPublishedGenerator) {
    sim::Km5Random random(1234567);
    EXPECT_EQ(random.next(), 6457827717110365317U);
    EXPECT_EQ(random.next(), 3203168211198807973U);
}

}  // namespace
