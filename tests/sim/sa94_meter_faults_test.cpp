#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "sa94_asking.h"

namespace {

using namespace sa94_asking;  // NOLINT(google-build-using-namespace)

const ByteVector One = {0x81, 0x00, 0x00, 0x00};  // the float 1.0, as T1 is asked for with 0x82

class SimSa94Faults : public Sa94Test {
  protected:
    SimSa94Faults() : meter(talking({.firmware = "M300"})) { meter.set_value("T1", 1.0F); }
    ByteVector ask_temperature() { return ask(meter, {0x82}); }
    Sa94Meter meter;
};

TEST_F(SimSa94Faults, BeginWithAGoodMeter) {
    EXPECT_EQ(ask_temperature(), One);
    EXPECT_EQ(meter.faults_made(), 0U);
}

TEST_F(SimSa94Faults, MaySilenceTheNextRequests) {
    meter.misbehave_next(2, sim::sa94_silence());
    EXPECT_EQ(ask_temperature(), Nothing);
    EXPECT_EQ(ask_temperature(), Nothing);
    EXPECT_EQ(ask_temperature(), One);
    EXPECT_EQ(meter.requests(Sa94Kind::Parameter, 2), 3U);
    EXPECT_EQ(meter.faults_made(), 2U);
}

TEST_F(SimSa94Faults, SilentMeterDoesNotHearTheConnectAndALostAnswerWasHeard) {
    Sa94Meter other({.address = 0x12345});
    other.misbehave_next(1, sim::sa94_silence());
    other.misbehave_next(1, sim::sa94_lost());
    EXPECT_EQ(ask(other, Connect12345), Nothing);
    EXPECT_FALSE(other.in_conversation());
    EXPECT_EQ(ask(other, Connect12345), Nothing);
    EXPECT_TRUE(other.in_conversation());
}

TEST_F(SimSa94Faults, LeaveRequestIsNotHeardOnlyWhenThatIsMeant) {
    meter.misbehave_next(1, sim::sa94_silence());
    ask(meter, Leave);
    EXPECT_FALSE(meter.in_conversation());
    EXPECT_EQ(meter.scripted_faults_left(), 1U);
    meter.behave();
    ask(meter, Connect12345);
    meter.misbehave_next(1, sim::sa94_silence().on(Sa94Kind::Disconnect));
    ask(meter, Leave);
    EXPECT_TRUE(meter.in_conversation());
}

TEST_F(SimSa94Faults, MayCutAnAnswerShort) {
    meter.misbehave_next(1, sim::sa94_short(127));
    EXPECT_EQ(ask(meter, {0xA0, 0x02}).size(), 127U);
    meter.misbehave_next(1, sim::sa94_single_byte());
    EXPECT_EQ(ask(meter, {0xA0, 0x00}), ByteVector{0xFF});
    meter.misbehave_next(1, sim::sa94_short(100));
    EXPECT_EQ(ask_temperature(), One);
    meter.misbehave_next(1, sim::sa94_short(0));
    EXPECT_EQ(ask_temperature(), Nothing);
}

TEST_F(SimSa94Faults, MayPutBytesBeforeAndBehindAnAnswer) {
    meter.misbehave_next(1, sim::sa94_noise({0x55}));
    EXPECT_EQ(ask_temperature(), (ByteVector{0x55, 0x81, 0x00, 0x00, 0x00}));
    meter.misbehave_next(1, sim::sa94_trailing({0x66, 0x77}));
    EXPECT_EQ(ask_temperature(), (ByteVector{0x81, 0x00, 0x00, 0x00, 0x66, 0x77}));
    meter.misbehave_next(1, sim::sa94_trailing(ByteVector(600, 0x11)));
    EXPECT_EQ(ask_temperature().size(), 604U);
}

TEST_F(SimSa94Faults, MayGarbleBytes) {
    meter.misbehave_next(1, sim::sa94_garbled(1, 2, 0xFF));
    EXPECT_EQ(ask_temperature(), (ByteVector{0x81, 0xFF, 0xFF, 0x00}));
    meter.misbehave_next(1, sim::sa94_garbled());
    EXPECT_EQ(ask_temperature(), (ByteVector{0xDB, 0x5A, 0x5A, 0x5A}));
    meter.misbehave_next(1, sim::sa94_garbled(4));
    EXPECT_EQ(ask_temperature(), One);
}

TEST_F(SimSa94Faults, MayDelayAnAnswerBeyondAllPatience) {
    meter.misbehave_next(1, sim::sa94_late(2.0));
    const Answer answer = meter.hear(ByteVector{0x82}, Eleven);
    ASSERT_EQ(answer.size(), 1U);
    EXPECT_EQ(answer[0].bytes, One);
    EXPECT_EQ(answer[0].delay_seconds, 2.02);
}

TEST_F(SimSa94Faults, MayPauseInTheMiddleOfAnAnswer) {
    meter.misbehave_next(2, sim::sa94_halved(1.0));
    const Answer answer = meter.hear(ByteVector{0x82}, Eleven);
    ASSERT_EQ(answer.size(), 2U);
    EXPECT_EQ(answer[0].bytes, (ByteVector{0x81, 0x00}));
    EXPECT_EQ(answer[0].delay_seconds, 0.02);
    EXPECT_EQ(answer[1].bytes, (ByteVector{0x00, 0x00}));
    EXPECT_EQ(answer[1].delay_seconds, 1.0);
    const Answer status = meter.hear(Connect12345, Eleven);  // one byte has no half
    ASSERT_EQ(status.size(), 1U);
    EXPECT_EQ(status[0].delay_seconds, 1.02);
}

TEST_F(SimSa94Faults, MayGiveAnotherBlock) {
    meter.memory().write(3, 7, 0, ByteVector{0x77});
    meter.memory().write(3, 0, 0, ByteVector{0x11});
    meter.misbehave_next(2, sim::sa94_wrong_block());
    EXPECT_EQ(ask_temperature(), One);
    EXPECT_EQ(ask(meter, {0xA3, 0x06})[0], 0x77);
    EXPECT_EQ(ask(meter, {0xA3, 0x7F})[0], 0x11);
    EXPECT_EQ(ask(meter, {0xA3, 0x06})[0], 0xFF);
    EXPECT_EQ(meter.requests(Sa94Kind::Block, 3, 6), 2U);
}

TEST_F(SimSa94Faults, MayBeAnyBytes) {
    meter.misbehave_next(1, sim::sa94_raw({0x48, 0x50}));
    EXPECT_EQ(ask_temperature(), (ByteVector{0x48, 0x50}));
}

TEST_F(SimSa94Faults, KeepToTheirRequest) {
    meter.misbehave_next(1, sim::sa94_silence().on(Sa94Kind::Block, 2, 5));
    meter.misbehave_next(1, sim::sa94_silence().on(Sa94Kind::Parameter, 10));
    EXPECT_EQ(ask(meter, {0xA2, 0x04}).size(), 128U);
    EXPECT_EQ(ask(meter, {0xA3, 0x05}).size(), 128U);
    EXPECT_EQ(ask_temperature(), One);
    EXPECT_EQ(ask(meter, {0xA2, 0x05}), Nothing);
    EXPECT_EQ(ask(meter, {0xA2, 0x05}).size(), 128U);
    EXPECT_EQ(ask(meter, {0x8A}), Nothing);
    EXPECT_EQ(meter.scripted_faults_left(), 0U);
}

}  // namespace
