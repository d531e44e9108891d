// Frames of Modbus RTU: requests spelled out, the receiver byte by byte, numbers out of register data. The vectors are
// those of public descriptions of the protocol.

#include "drivers/vist_modbus/modbus_frame.h"

#include <array>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "modbus_frames.h"

namespace {

using Frame = std::vector<std::uint8_t>;

/// Three holding registers of slave 17: 0xAE41, 0x5652, 0x4340.
const Frame Example = {0x11, 0x03, 0x06, 0xAE, 0x41, 0x56, 0x52, 0x43, 0x40, 0x49, 0xAD};

/// What the parser makes of the example: function, byte count, and each word with its bytes turned round.
const Frame ExampleKept = {0x03, 0x06, 0x41, 0xAE, 0x52, 0x56, 0x40, 0x43};

Frame operator+(Frame first, const Frame& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class ModbusReceiver : public ::testing::Test {
  protected:
    /// Bytes taken until the parser was done; 0 when it never was.
    std::size_t feed(ModbusParser& parser, const Frame& bytes) {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            if (parser.take(Bytes(bytes).subspan(i, 1))) return i + 1;
        }
        return 0;
    }
    Frame kept(const ModbusParser& parser) const {
        return {area.begin(), area.begin() + static_cast<std::ptrdiff_t>(parser.length())};
    }
    ModbusParser parser_of(int slave = 0x11, std::uint8_t function = 3) { return ModbusParser(area, slave, function); }

    std::array<std::uint8_t, 512> area{};
};

// ---- CRC

TEST(ModbusCrc, IsThatOfPublishedVectors) {
    const std::string digits = "123456789";
    EXPECT_EQ(modbus_crc(Frame(digits.begin(), digits.end())), 0x4B37);
    EXPECT_EQ(modbus_crc(Frame{0x02, 0x07}), 0x1241);
    EXPECT_EQ(modbus_crc(Frame{0x01, 0x03, 0x00, 0x00, 0x00, 0x0A}), 0xCDC5);
    EXPECT_EQ(modbus_crc(Frame{0x11, 0x04, 0x02, 0x00, 0x0A}), 0xF4F8);
}

TEST(ModbusCrc, OfNothingIsTheStartValue) {
    EXPECT_EQ(modbus_crc(Frame{}), 0xFFFF);
}

TEST(ModbusCrc, EverySingleBitOfAFrameMakesADifference) {
    const Frame frame(Example.begin(), Example.end() - 2);
    for (std::size_t bit = 0; bit < 8 * frame.size(); ++bit) {
        Frame other = frame;
        other[bit / 8] = static_cast<std::uint8_t>(other[bit / 8] ^ 1U << bit % 8);
        EXPECT_NE(modbus_crc(other), 0xAD49) << bit;
    }
}

// ---- requests

TEST(ModbusRequestFrame, HoldingRegistersAreAskedForByFunctionThree) {
    EXPECT_EQ(register_frame(0x11, 3, 0x6B, 3), (Frame{0x11, 0x03, 0x00, 0x6B, 0x00, 0x03, 0x76, 0x87}));
    EXPECT_EQ(register_frame(1, 3, 0, 10), (Frame{0x01, 0x03, 0x00, 0x00, 0x00, 0x0A, 0xC5, 0xCD}));
}

TEST(ModbusRequestFrame, InputRegistersAreAskedForByFunctionFour) {
    EXPECT_EQ(register_frame(0x11, 4, 8, 1), (Frame{0x11, 0x04, 0x00, 0x08, 0x00, 0x01, 0xB2, 0x98}));
}

TEST(ModbusRequestFrame, AddressAndCountGoHighByteFirst) {
    EXPECT_EQ(register_frame(1, 4, 0x0C1C, 0x0102), sim::modbus_sealed({1, 4, 0x0C, 0x1C, 0x01, 0x02}));
}

TEST(ModbusRequestFrame, RecordOfAFileIsAskedForByFunctionTwentyWithOneGroupOfType6) {
    EXPECT_EQ(record_frame(0x11, 0, 0, 48), (Frame{0x11, 0x14, 7, 6, 0, 0, 0, 0, 0, 0x30, 0xF8, 0xA5}));
    EXPECT_EQ(record_frame(0x11, 0x0102, 0x0304, 0x0506),
              sim::modbus_sealed({0x11, 0x14, 7, 6, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06}));
}

TEST(ModbusRequestFrame, OnlyTheLowByteOfASlaveGoesOut) {
    EXPECT_EQ(register_frame(300, 3, 0, 1)[0], 44);
    EXPECT_EQ(record_frame(300, 0, 0, 1)[0], 44);
    EXPECT_EQ(register_frame(-1, 3, 0, 1)[0], 255);
}

// ---- the receiver

TEST_F(ModbusReceiver, KeepsFunctionByteCountAndWordsInTheHostsOrder) {
    auto parser = parser_of();
    EXPECT_EQ(feed(parser, Example), Example.size());
    EXPECT_TRUE(parser.complete());
    EXPECT_EQ(parser.length(), 8);
    EXPECT_EQ(kept(parser), ExampleKept);
}

TEST_F(ModbusReceiver, IsNotDoneBeforeTheLastByte) {
    auto parser = parser_of();
    for (std::size_t i = 0; i + 1 < Example.size(); ++i) {
        EXPECT_FALSE(parser.take(Bytes(Example).subspan(i, 1))) << i;
        EXPECT_FALSE(parser.complete()) << i;
    }
}

TEST_F(ModbusReceiver, MakesTheSameOfAStreamInWhateverPiecesItComes) {
    std::mt19937 random(20240302);
    const auto below = [&random](std::size_t end) { return random() % end; };
    for (int round = 0; round < 2000; ++round) {
        Frame stream;
        for (std::size_t pieces = 1 + below(4); pieces > 0; --pieces) {
            Frame piece = {0x11, static_cast<std::uint8_t>(below(4) == 0 ? 0x83 : 3)};
            piece.push_back(static_cast<std::uint8_t>(below(8) == 0 ? below(256) : 2 * below(20)));
            for (std::size_t i = 0; i < piece[2]; ++i) piece.push_back(static_cast<std::uint8_t>(below(256)));
            piece = sim::modbus_sealed(piece);
            if (below(3) == 0) piece[below(piece.size())] ^= 1;
            if (below(3) == 0) piece.resize(below(piece.size()));
            stream = stream + piece;
        }
        const std::size_t room = below(3) == 0 ? below(30) : 512;  // also less than an answer needs
        Frame apart(room), together(room);
        ModbusParser of_bytes(apart, 0x11, 3), of_pieces(together, 0x11, 3);
        bool done = false;
        for (std::size_t i = 0; i < stream.size() && !done; ++i) done = of_bytes.take(Bytes(stream).subspan(i, 1));
        const std::size_t cut = below(stream.size() + 1);
        const bool done_too = of_pieces.take(Bytes(stream).first(cut)) || of_pieces.take(Bytes(stream).subspan(cut));
        ASSERT_EQ(done, done_too) << round;
        ASSERT_EQ(of_bytes.complete(), of_pieces.complete()) << round;
        ASSERT_EQ(of_bytes.length(), of_pieces.length()) << round;
        ASSERT_EQ(apart, together) << round;
    }
}

TEST_F(ModbusReceiver, TakesAnAnswerOfEachFunction) {
    for (const std::uint8_t function : {3, 4, 20}) {
        auto parser = parser_of(0x11, function);
        EXPECT_NE(feed(parser, sim::modbus_sealed({0x11, function, 2, 0x12, 0x34})), 0U);
        EXPECT_EQ(kept(parser), (Frame{function, 2, 0x34, 0x12}));
    }
}

TEST_F(ModbusReceiver, PassesOverWhateverStandsBeforeTheSlave) {
    const Frame answer = sim::modbus_sealed({0x2A, 0x03, 0x02, 0x12, 0x34});
    auto parser = parser_of(0x2A);
    EXPECT_EQ(feed(parser, Frame{0x00, 0x11} + answer), answer.size() + 2);
    EXPECT_TRUE(parser.complete());
    EXPECT_EQ(kept(parser), (Frame{0x03, 0x02, 0x34, 0x12}));
}

TEST_F(ModbusReceiver, AByteLikeTheSlaveRightBeforeAnAnswerCostsTheAnswer) {
    auto parser = parser_of();
    EXPECT_EQ(feed(parser, Frame{0x11} + Example), 0U) << "the real slave stands where the function was awaited";
    EXPECT_EQ(feed(parser, Example), Example.size()) << "the next answer is heard";
}

TEST_F(ModbusReceiver, AnotherFunctionResetsIt) {
    auto parser = parser_of();
    const Frame other = sim::modbus_sealed({0x11, 0x04, 0x02, 0x00, 0x0A});
    EXPECT_EQ(feed(parser, other + Example), other.size() + Example.size());
    EXPECT_EQ(kept(parser), ExampleKept);
}

TEST_F(ModbusReceiver, AnswerOfAnotherSlaveIsPassedOver) {
    auto parser = parser_of();
    const Frame other = sim::modbus_sealed({0x12, 0x03, 0x02, 0x00, 0x0A});
    EXPECT_EQ(feed(parser, other + Example), other.size() + Example.size());
    EXPECT_EQ(kept(parser), ExampleKept);
}

TEST_F(ModbusReceiver, OddByteCountsAndThoseAbove250ResetIt) {
    for (int count = 1; count < 256; ++count) {
        if (count % 2 == 0 && count <= 250) continue;
        auto parser = parser_of();
        const Frame head = {0x11, 0x03, static_cast<std::uint8_t>(count)};
        EXPECT_EQ(feed(parser, head + Example), head.size() + Example.size()) << count;
        EXPECT_EQ(kept(parser), ExampleKept) << count;
    }
}

TEST_F(ModbusReceiver, EveryEvenByteCountUpTo250IsTaken) {
    for (int count = 2; count <= 250; count += 2) {
        auto parser = parser_of(0x11, 4);
        Frame answer = {0x11, 0x04, static_cast<std::uint8_t>(count)};
        for (int i = 0; i < count; ++i) answer.push_back(static_cast<std::uint8_t>(i));
        answer = sim::modbus_sealed(answer);
        EXPECT_EQ(feed(parser, answer), answer.size()) << count;
        EXPECT_EQ(parser.length(), count + 2);
        EXPECT_EQ(area[2], 1) << count;
        EXPECT_EQ(area[3], 0) << count;
    }
}

TEST_F(ModbusReceiver, AWrongCrcResetsItAndTheNextAnswerOfTheSameStreamIsTaken) {
    for (const std::size_t back : {1U, 2U}) {
        auto parser = parser_of();
        Frame wrong = Example;
        ++wrong[wrong.size() - back];
        EXPECT_EQ(feed(parser, wrong), 0U);
        EXPECT_FALSE(parser.complete());
        EXPECT_EQ(feed(parser, Example), Example.size());
        EXPECT_EQ(kept(parser), ExampleKept);
    }
}

TEST_F(ModbusReceiver, AnExceptionIsDoneButNotComplete) {
    auto parser = parser_of(0x0A, 1);
    const Frame refused = {0x0A, 0x81, 0x02, 0xB0, 0x53};
    EXPECT_EQ(feed(parser, refused), refused.size());
    EXPECT_FALSE(parser.complete());
    EXPECT_EQ(parser.length(), 2);
}

TEST_F(ModbusReceiver, AnExceptionWithAWrongCrcIsNotEvenDone) {
    auto parser = parser_of(0x0A, 1);
    EXPECT_EQ(feed(parser, {0x0A, 0x81, 0x02, 0xB1, 0x53}), 0U);
}

TEST_F(ModbusReceiver, ExceptionToAnotherFunctionIsPassedOver) {
    auto parser = parser_of();
    const Frame refused = sim::modbus_sealed({0x11, 0x84, 0x02});
    EXPECT_EQ(feed(parser, refused), 0U);
    EXPECT_EQ(feed(parser, Example), Example.size());
}

TEST_F(ModbusReceiver, AByteCountOfZeroMakesNoAnswer) {
    auto parser = parser_of();
    EXPECT_EQ(feed(parser, sim::modbus_sealed({0x11, 0x03, 0x00}) + Example), 0U);
    EXPECT_EQ(feed(parser, Frame(2000, 0)), 0U) << "nor does it write behind its area";
    EXPECT_FALSE(parser.complete());
}

TEST_F(ModbusReceiver, AnswerWiderThanItsAreaIsNotTaken) {
    std::array<std::uint8_t, 16> memory{};
    ModbusParser parser(std::span<std::uint8_t>(memory).first(8), 0x11, 3);
    EXPECT_EQ(feed(parser, Example), 0U);
    EXPECT_EQ(memory[8], 0);
    EXPECT_FALSE(parser.complete());
}

TEST_F(ModbusReceiver, AwaitsTheLowByteOfItsSlave) {
    auto parser = parser_of(300);
    EXPECT_NE(feed(parser, sim::modbus_sealed({44, 0x03, 0x02, 0x00, 0x0A})), 0U);
    EXPECT_TRUE(parser.complete());
}

// ---- numbers

TEST(ModbusNumbers, StandHighByteFirst) {
    const Frame bytes = {0xFF, 0xFE, 0x01, 0x02, 0x80, 0x00, 0x00, 0x01, 0x7F};
    EXPECT_EQ(read_u16(bytes, 0), 0xFFFE);
    EXPECT_EQ(read_i16(bytes, 0), -2);
    EXPECT_EQ(read_u32(bytes, 0), 0xFFFE0102U);
    EXPECT_EQ(read_i32(bytes, 0), -130814);
    EXPECT_EQ(read_u64(bytes, 0), 0xFFFE010280000001U);
    EXPECT_EQ(read_i64(bytes, 0), -561839704375295);
    EXPECT_EQ(read_u64(bytes, 1), 0xFE0102800000017FU);
    EXPECT_EQ(read_i16(bytes, 7), 383);
}

TEST(ModbusNumbers, BehindTheEndStandZeros) {
    const Frame bytes = {0x12, 0x34};
    EXPECT_EQ(read_u32(bytes, 0), 0x12340000U);
    EXPECT_EQ(read_u64(bytes, 1), 0x3400000000000000U);
    EXPECT_EQ(read_i16(bytes, 2), 0);
}

TEST(ModbusNumbers, TurningWordsLeavesALastOddByte) {
    Frame bytes = {1, 2, 3, 4, 5};
    swap_words(bytes);
    EXPECT_EQ(bytes, (Frame{2, 1, 4, 3, 5}));
    swap_words(std::span<std::uint8_t>());
}

}  // namespace
