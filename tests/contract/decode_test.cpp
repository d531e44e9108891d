#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

#include "contract/capture.h"

using contract::Direction;
using contract::Frame;

namespace {

std::vector<Frame> decode(contract::Family family, const std::string& text) {
    std::vector<Frame> frames;
    const auto decoder = contract::make_decoder(family);
    contract::CaptureReader reader(family != contract::SA94, [&](const contract::Piece& piece) {
        for (Frame& frame : decoder->decode(piece)) frames.push_back(std::move(frame));
    });
    std::istringstream rows(text);
    for (std::string row; std::getline(rows, row);) reader.take_row(row);
    reader.finish();
    return frames;
}

std::string field(const Frame& frame, const std::string& name) {
    for (const contract::FrameField& each : frame.fields) {
        if (each.name == name) return each.value;
    }
    return "(none)";
}

std::string kinds(const std::vector<Frame>& frames) {
    std::string text;
    for (const Frame& frame : frames) {
        text += frame.direction == Direction::Question ? '>' : frame.direction == Direction::Answer ? '<' : '?';
        text += frame.kind.empty() ? "-" : frame.kind;
        if (!frame.is_right()) text += '!';
        text += ';';
    }
    return text;
}

std::string zeros(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += " 00";
    return text;
}

// ---- KM5: the sums of these were worked out with pencil and paper.

const std::string AskClock = "78 56 34 12 2C 00 00 00 00 00 00 00 00 00 24 40";
const std::string SayClock = "78 56 34 12 2C 00 02 03 24 00 08 20 24 0D B5";

TEST(DecodeKm5, TellsWhoIsAskedForWhatAndWhatIsAnswered) {
    const auto frames = decode(contract::KM5, "> " + AskClock + "\n< " + SayClock + "\n");
    ASSERT_EQ(kinds(frames), ">current values;<current values;");
    EXPECT_EQ(field(frames[0], "address"), "12345678");
    EXPECT_EQ(field(frames[0], "page"), "0");
    EXPECT_EQ(field(frames[1], "MDateTime"), "2024-03-02 08:20:24");
    ASSERT_EQ(frames[1].checks.size(), 2u);
    EXPECT_EQ(frames[1].checks[0].is, "0D");
    EXPECT_EQ(frames[1].checks[1].is, "B5");
}

TEST(DecodeKm5, FindsQuestionAndAnswerInHexTextWithoutMarks) {
    EXPECT_EQ(kinds(decode(contract::KM5, AskClock + "\n" + SayClock + "\n")), ">current values;<current values;");
    EXPECT_EQ(kinds(decode(contract::KM5, AskClock + " " + SayClock)), ">current values;<current values;");
    EXPECT_EQ(kinds(decode(contract::KM5, "78 56 34 12 2C 00 00 00\n00 00 00 00 00 00 24 40\n")), ">current values;");
    EXPECT_EQ(kinds(decode(contract::KM5, "785634122c0000000000000000002440\n")), ">current values;");
}

TEST(DecodeKm5, TellsAWrongSumAndWhatItShouldBe) {
    const auto frames = decode(contract::KM5, "> " + AskClock + "\n< 78 56 34 12 2C 00 02 03 24 00 08 20 24 0D B6\n");
    ASSERT_EQ(kinds(frames), ">current values;<current values!;");
    EXPECT_TRUE(frames[1].checks[0].right());
    EXPECT_EQ(frames[1].checks[1].is, "B6");
    EXPECT_EQ(frames[1].checks[1].should_be, "B5");
    EXPECT_EQ(field(frames[1], "MDateTime"), "(none)");
}

TEST(DecodeKm5, TellsNoiseInFrontOfAFrame) {
    const auto frames = decode(contract::KM5, "> " + AskClock + "\n< 00 FF " + SayClock + "\n");
    ASSERT_EQ(kinds(frames), ">current values;<-!;<current values;");
    EXPECT_EQ(frames[1].bytes, (std::vector<std::uint8_t>{0, 0xFF}));
}

TEST(DecodeKm5, AnAnswerWithoutItsQuestionKeepsItsMeaningToItself) {
    const auto frames = decode(contract::KM5, "< " + SayClock + "\n");
    ASSERT_EQ(kinds(frames), "<current values;");
    EXPECT_NE(frames[0].reason, "");
}

TEST(DecodeKm5, ReadsTheLogOfTheDriver) {
    const auto frames = decode(contract::KM5,
                               "02/03/24 08:20:24.100 : Send request, cmd: 44, 15 bytes received.\n"
                               "02/03/24 08:20:24.100 : Send dump:\n"
                               "02/03/24 08:20:24.100 : Dumping packet:\n"
                               "02/03/24 08:20:24.100 :  0x78 0x56 0x34 0x12 0x2C 0x00 0x00 0x00 0x00 0x00 0x00 0x00 "
                               "0x00 0x00 0x24 0x40\n"
                               "\n"
                               "02/03/24 08:20:24.100 : Dumping packet done.\n"
                               "02/03/24 08:20:24.101 : Recv dump:\n"
                               "02/03/24 08:20:24.101 : Dumping packet:\n"
                               "02/03/24 08:20:24.101 :  0x78 0x56 0x34 0x12 0x2C 0x00 0x02 0x03 0x24 0x00 0x08 0x20 "
                               "0x24 0x0D 0xB5\n"
                               "\n"
                               "02/03/24 08:20:24.101 : Dumping packet done.\n"
                               "02/03/24 08:20:24.102 : Request: Failure\nError, ErrorCount = 1\n"
                               "02/03/24 08:20:25.000 : Recv dump:\n"
                               "02/03/24 08:20:25.000 : Dumping packet:\n"
                               "\n"
                               "02/03/24 08:20:25.000 : Dumping packet done.\n");
    ASSERT_EQ(kinds(frames), ">current values;<current values;<silence;");
    EXPECT_EQ(frames[0].time, "02/03/24 08:20:24.100");
    EXPECT_EQ(field(frames[1], "MDateTime"), "2024-03-02 08:20:24");
}

TEST(DecodeKm5, ReadsATraceLineByLine) {
    const auto frames = decode(contract::KM5, "# a remark\n2024-03-02 08:20:24.887 /tmp/line > " + AskClock +
                                                  "\n2024-03-02 08:20:27.724 /tmp/line < " + SayClock + "\n");
    ASSERT_EQ(kinds(frames), ">current values;<current values;");
    EXPECT_EQ(frames[1].time, "2024-03-02 08:20:27.724");
    EXPECT_EQ(frames[1].line, "/tmp/line");
}

// ---- Modbus: the examples that the protocol's publishers give.

TEST(DecodeModbus, TellsRegistersAndTheSum) {
    const auto frames = decode(contract::VISTmodbus, "11 03 00 6B 00 03 76 87\n11 03 06 AE 41 56 52 43 40 49 AD\n");
    ASSERT_EQ(kinds(frames), ">holding registers;<holding registers;");
    EXPECT_EQ(field(frames[0], "address"), "17");
    EXPECT_EQ(field(frames[0], "registers"), "107 to 109");
    EXPECT_EQ(field(frames[1], "data"), "AE 41 56 52 43 40");
    EXPECT_EQ(frames[0].checks[0].is, "8776");
}

TEST(DecodeModbus, TellsAWrongSumAndWhatItShouldBe) {
    const auto frames = decode(contract::VISTmodbus, "> 11 03 00 6B 00 03 77 87\n");
    ASSERT_EQ(kinds(frames), ">holding registers!;");
    EXPECT_EQ(frames[0].checks[0].is, "8777");
    EXPECT_EQ(frames[0].checks[0].should_be, "8776");
}

TEST(DecodeModbus, ReadsTheLogWhichHasNoSums) {
    const auto frames = decode(contract::VISTmodbus,
                               "02/03/24 08:20:24.100 : Sending req 'Текущие Дата и Время прибора'...\n"
                               "02/03/24 08:20:24.101 : Received: -1 bytes (6 awaiting).\n"
                               "02/03/24 08:20:24.101 : Dumping packet:\n"
                               "02/03/24 08:20:24.101 : Dumping packet done.\n"
                               "02/03/24 08:20:24.700 : Received: 8 bytes (6 awaiting).\n"
                               "02/03/24 08:20:24.700 : Dumping packet:\n"
                               "02/03/24 08:20:24.700 :   -2:0x06 -1:0x04 0:0x08 1:0x14 2:0x18 3:0x02 4:0x03 5:0x18 \n"
                               "02/03/24 08:20:24.700 : Dumping packet done.\n");
    ASSERT_EQ(kinds(frames), ">input registers;<silence;<input registers;");
    EXPECT_EQ(field(frames[2], "MDateTime"), "2024-03-02 08:20:24");
}

// ---- VIST

TEST(DecodeVist, TellsWordsAndPackets) {
    // 0x21 + 0x32 + 0x28 + 0x19 = 0x94
    const std::string packet = "48 50 54 14 94 21" + zeros(12) + " 00 32 00 28 00 19";
    const auto frames = decode(contract::VIST,
                               "> 43 41 4C 4C 20 37 0D\n"                             // CALL 7
                               "< 48 4C 30 5B 37 3A 30 5D 7B 56 45 52 3D 31 7D 3E\n"  // HL0[7:0]{VER=1}>
                               "> 2F 53 59 53 20 43 46 47 20 31 0D\n"                 // /SYS CFG 1
                               "< " +
                                   packet + "\n");
    ASSERT_EQ(kinds(frames), ">open a dialog;<text;>virtual device configuration;<virtual device configuration;");
    EXPECT_EQ(field(frames[0], "network number"), "7");
    EXPECT_EQ(field(frames[1], "VER"), "1");
    EXPECT_EQ(field(frames[3], "DN1"), "50");
    EXPECT_EQ(field(frames[3], "DN3"), "25");
    EXPECT_EQ(frames[3].checks[0].is, "94");
}

TEST(DecodeVist, TellsAWrongSumAndAPacketThatWasCut) {
    const std::string body = zeros(12) + " 00 32 00 28 00";
    const auto wrong = decode(contract::VIST, "< 48 50 54 14 95 21" + body + " 19\n");
    ASSERT_EQ(kinds(wrong), "<virtual device configuration!;");
    EXPECT_EQ(wrong[0].checks[0].should_be, "94");
    const auto cut = decode(contract::VIST, "< 48 50 54 14 94 21" + body + "\n");
    ASSERT_EQ(kinds(cut), "<virtual device configuration!;");
    EXPECT_EQ(cut[0].reason, "23 bytes, and it says 24");
}

TEST(DecodeVist, TellsAnErrorWordAndAStranger) {
    const auto frames = decode(contract::VIST, "< 48 4C 30 5B 37 3A 30 5D 7B 45 3A 43 4D 44 7D 3E\n> 58 59 0D\n");
    ASSERT_EQ(kinds(frames), "<error;>-!;");
    EXPECT_EQ(field(frames[0], "says"), "E:CMD");
}

// ---- SA-94

TEST(DecodeSa94, AnAnswerMeansWhatWasAskedFor) {
    // 74565 in groups of 6, 7 and 7 bits; M301; 71.25 with an exponent that is two more than IEEE 754's.
    std::string firmware = "FF 4D 33 30 31 20 20 20 20 20 20 20 20 20 20";
    for (int i = 15; i < 128; ++i) firmware += " FF";
    const auto frames =
        decode(contract::SA94, "C4 46 45\n06\nA0 02\n" + firmware + "\n82\n87 0E 80 00\n01\nC4 46 45\n");
    ASSERT_EQ(kinds(frames),
              ">connect;<status;>block of memory;<block of memory;>current parameter;<current parameter;>disconnect;"
              ">connect;");
    EXPECT_EQ(field(frames[0], "address"), "74565");
    EXPECT_EQ(field(frames[1], "_Status"), "6");
    EXPECT_EQ(field(frames[3], "Firmware"), "M301");
    EXPECT_EQ(field(frames[3], "MeterModel"), "SA94/2M");
    EXPECT_EQ(field(frames[5], "T1"), "71.25");
}

TEST(DecodeSa94, AQuestionThatIsSaidAgainIsNoAnswer) {
    EXPECT_EQ(kinds(decode(contract::SA94, "C4 46 45\nC4 46 45\n06\n")), ">connect;>connect;<status;");
}

TEST(DecodeSa94, AnAnswerWithoutItsQuestionIsNoFrame) {
    const auto frames = decode(contract::SA94, "< 87 0E 80 00\n");
    ASSERT_EQ(kinds(frames), "<-!;");
    EXPECT_EQ(frames[0].reason, "what an answer means lies in the question");
}

// ---- whatever

TEST(Decode, WhatIsNoHexTextIsTold) {
    EXPECT_EQ(decode(contract::KM5, "> 78 5\n")[0].reason, "a question has 16 bytes, not 1");
    const auto odd = decode(contract::VIST, "785\n");
    ASSERT_EQ(odd.size(), 1u);
    EXPECT_FALSE(odd[0].is_right());
    const auto words = decode(contract::KM5, "hello, world\n");
    ASSERT_EQ(words.size(), 1u);
    EXPECT_FALSE(words[0].is_right());
    EXPECT_TRUE(decode(contract::KM5, "").empty());
    EXPECT_TRUE(decode(contract::KM5, "\n\n# remark\n").empty());
}

TEST(Decode, LettersThatActOnATerminalAreTold) {
    for (const auto family : {contract::KM5, contract::VIST, contract::VISTmodbus, contract::SA94}) {
        const auto frames = decode(family, "\x1b[31m> 00\n> 1B 5B 33 31 6D 0D\n");
        EXPECT_FALSE(frames.empty());
    }
    EXPECT_EQ(contract::letters_text(std::vector<std::uint8_t>{0x1B, 'A'}), "\\1BA");
}

TEST(Decode, HexTextMayBeWrittenInManyWays) {
    std::string reason;
    const std::vector<std::uint8_t> bytes = {0x12, 0xAB, 0x00};
    for (const char* text : {"12AB00", "12 ab 00", "0x12 0xAB 0x00", "12:ab:00", "12,AB,00", " 12-AB-00 "}) {
        EXPECT_EQ(contract::bytes_of_hex(text, reason), bytes) << text;
        EXPECT_EQ(reason, "") << text;
    }
    EXPECT_EQ(contract::bytes_of_hex("12 A 00", reason), (std::vector<std::uint8_t>{0x12, 0x00}));
    EXPECT_EQ(reason, "an odd number of hex digits");
}

}  // namespace
