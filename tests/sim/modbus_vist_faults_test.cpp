#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "modbus_asking.h"

namespace {

using namespace modbus_asking;  // NOLINT(google-build-using-namespace)

const ByteVector ClockRequest = {0x11, 0x04, 0x00, 0x00, 0x00, 0x03};
const ByteVector ClockAnswer = {0x11, 0x04, 0x06, 0x0B, 0x00, 0x3B, 0x02, 0x03, 0x18, 0x00, 0x36};
constexpr std::time_t Asked = Eleven + 59;

class SimModbusVistFaults : public ModbusVistTest {
  protected:
    ByteVector clock() { return ask(meter, ClockRequest, Asked); }
    ModbusVistMeter meter{{.serial = Seventeen, .systems = {{.archive_mask = 0x1}, {}}}};
};

TEST_F(SimModbusVistFaults, BeginWithAGoodMeter) {
    EXPECT_EQ(clock(), ClockAnswer);
    EXPECT_EQ(meter.faults_made(), 0U);
}

TEST_F(SimModbusVistFaults, MaySilenceTheNextAnswers) {
    meter.misbehave_next(2, sim::modbus_silence());
    EXPECT_TRUE(clock().empty());
    EXPECT_EQ(meter.scripted_faults_left(), 1U);
    EXPECT_TRUE(clock().empty());
    EXPECT_EQ(clock(), ClockAnswer);
    EXPECT_EQ(meter.requests(), 3U);
    EXPECT_EQ(meter.faults_made(), 2U);
}

TEST_F(SimModbusVistFaults, MayRefuseWithAnyCode) {
    meter.misbehave_next(1, sim::modbus_exception(6));
    EXPECT_EQ(clock(), (ByteVector{0x11, 0x84, 0x06, 0xC2, 0xC7}));
    meter.misbehave_next(1, sim::modbus_exception());
    EXPECT_EQ(clock(), (ByteVector{0x11, 0x84, 0x04, 0x43, 0x06}));
}

TEST_F(SimModbusVistFaults, MaySpoilTheCheckSum) {
    meter.misbehave_next(1, sim::modbus_wrong_crc());
    ByteVector wrong = ClockAnswer;
    wrong[9] = 0x01;
    EXPECT_EQ(clock(), wrong);
}

TEST_F(SimModbusVistFaults, MayPutBytesBeforeAndBehindAnAnswer) {
    meter.misbehave_next(1, sim::modbus_noise());
    ByteVector noisy = ClockAnswer;
    noisy.insert(noisy.begin(), {0x00, 0x11});
    EXPECT_EQ(clock(), noisy);
    meter.misbehave_next(1, sim::modbus_trailing({0x01, 0x02}));
    ByteVector longer = ClockAnswer;
    longer.insert(longer.end(), {0x01, 0x02});
    EXPECT_EQ(clock(), longer);
}

TEST_F(SimModbusVistFaults, MayCutAnAnswerShort) {
    for (std::size_t length = 1; length < ClockAnswer.size(); ++length) {
        meter.misbehave_next(1, sim::modbus_cut(length));
        EXPECT_EQ(clock(), part(ClockAnswer, 0, length - 1));
    }
    meter.misbehave_next(1, sim::modbus_cut(100));
    EXPECT_EQ(clock(), ClockAnswer);
    meter.misbehave_next(1, sim::modbus_cut(0));
    EXPECT_TRUE(clock().empty());
}

TEST_F(SimModbusVistFaults, MayAnswerLate) {
    meter.misbehave_next(1, sim::modbus_slow(0.65));
    const Answer answer = meter.hear(sim::modbus_sealed(ClockRequest), Asked);
    ASSERT_EQ(answer.size(), 1U);
    EXPECT_EQ(answer[0].delay_seconds, 0.65);
    EXPECT_EQ(answer[0].bytes, ClockAnswer);
}

TEST_F(SimModbusVistFaults, MayAnswerInPieces) {
    meter.misbehave_next(1, sim::modbus_pieces(4, 0.1));
    const Answer answer = meter.hear(sim::modbus_sealed(ClockRequest), Asked);
    ASSERT_EQ(answer.size(), 3U);
    EXPECT_EQ(answer[0].delay_seconds, 0.02);
    EXPECT_EQ(answer[0].bytes, (ByteVector{0x11, 0x04, 0x06, 0x0B}));
    EXPECT_EQ(answer[1].delay_seconds, 0.1);
    EXPECT_EQ(answer[1].bytes, (ByteVector{0x00, 0x3B, 0x02, 0x03}));
    EXPECT_EQ(answer[2].delay_seconds, 0.1);
    EXPECT_EQ(answer[2].bytes, (ByteVector{0x18, 0x00, 0x36}));
    EXPECT_THROW(sim::modbus_pieces(0), std::invalid_argument);
}

TEST_F(SimModbusVistFaults, MaySignAsAnotherSlaveOrFunctionWithARightCheckSum) {
    meter.misbehave_next(1, sim::modbus_wrong_slave(0x2C));
    EXPECT_EQ(clock(), sim::modbus_sealed({0x2C, 0x04, 0x06, 0x0B, 0x00, 0x3B, 0x02, 0x03, 0x18}));
    meter.misbehave_next(1, sim::modbus_wrong_function(3));
    EXPECT_EQ(clock(), sim::modbus_sealed({0x11, 0x03, 0x06, 0x0B, 0x00, 0x3B, 0x02, 0x03, 0x18}));
}

TEST_F(SimModbusVistFaults, MayTellAByteCountThatIsNotTrue) {
    meter.misbehave_next(1, sim::modbus_byte_count());
    EXPECT_EQ(clock(), sim::modbus_sealed({0x11, 0x04, 0xFB, 0x0B, 0x00, 0x3B, 0x02, 0x03, 0x18}));
    meter.misbehave_next(1, sim::modbus_byte_count(5));
    EXPECT_EQ(refusal(meter, {0x11, 0x06, 0x00}), 1);
    EXPECT_EQ(clock(), sim::modbus_sealed({0x11, 0x04, 0x05, 0x0B, 0x00, 0x3B, 0x02, 0x03, 0x18}));
}

TEST_F(SimModbusVistFaults, MaySpoilTheSumOfArchiveRecordsOnly) {
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.misbehave_next(1, sim::modbus_bad_sum());
    EXPECT_EQ(clock(), ClockAnswer);
    EXPECT_EQ(part(record(meter, 0, 0, 48), 0, 0), ByteVector{0x01});
    EXPECT_EQ(record(meter, 0, 1, 1), (ByteVector{0x65, 0x64}));
    EXPECT_EQ(record(meter, 0, 1, 1), (ByteVector{0x64, 0x64}));
}

TEST_F(SimModbusVistFaults, MaySayAnythingAtAll) {
    meter.misbehave_next(1, sim::modbus_raw({0xDE, 0xAD}));
    EXPECT_EQ(clock(), (ByteVector{0xDE, 0xAD}));
}

TEST_F(SimModbusVistFaults, CanBeNarrowedToAFunctionAnAddressOrARecord) {
    meter.misbehave_next(1, sim::modbus_silence().on({.function = 20, .address = 1, .record = 7}));
    meter.misbehave_next(2, sim::modbus_silence().on({.function = 4, .address = 518}));
    EXPECT_EQ(clock(), ClockAnswer);
    EXPECT_FALSE(record(meter, 1, 0, 48).empty());
    EXPECT_FALSE(record(meter, 0, 7, 4).empty());
    EXPECT_TRUE(record(meter, 1, 7, 4).empty());
    EXPECT_FALSE(record(meter, 1, 7, 4).empty());
    EXPECT_TRUE(input(meter, 518, 4).empty());
    EXPECT_TRUE(input(meter, 518, 1).empty());
    EXPECT_FALSE(input(meter, 518, 4).empty());
}

TEST_F(SimModbusVistFaults, FollowAScriptThenAPeriodThenChance) {
    meter.misbehave_each(3, sim::modbus_exception(6));
    meter.misbehave_next(1, sim::modbus_good());
    meter.misbehave_next(1, sim::modbus_silence());
    std::string said;
    for (int k = 0; k < 9; ++k) said += std::to_string(clock().size()) + " ";
    EXPECT_EQ(said, "11 0 5 11 11 5 11 11 5 ");
    meter.behave();
    EXPECT_EQ(clock(), ClockAnswer);
    meter.misbehave_randomly(0.5, 7, {sim::modbus_silence(), sim::modbus_cut(1)});
    int silent = 0;
    int cut = 0;
    for (int k = 0; k < 400; ++k) {
        const std::size_t size = clock().size();
        silent += size == 0 ? 1 : 0;
        cut += size == 1 ? 1 : 0;
    }
    EXPECT_NEAR(silent, 100, 40);
    EXPECT_NEAR(cut, 100, 40);
    EXPECT_THROW(meter.misbehave_each(0, sim::modbus_silence()), std::invalid_argument);
    EXPECT_THROW(meter.misbehave_randomly(0.5, 7, {}), std::invalid_argument);
}

}  // namespace
