#include <algorithm>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "vist_asking.h"

namespace {

using namespace vist_asking;  // NOLINT(google-build-using-namespace)

const std::string Ok = "HL0[7:0]{OK}>";
// The diameters of a device that has none: type 21 hex and 26 zeros.
ByteVector config_packet() {
    const ByteVector head = {'H', 'P', 'T', 28, 0x21, 0x21};
    ByteVector packet(32);
    std::copy(head.begin(), head.end(), packet.begin());
    return packet;
}

class SimVistFaults : public VistTest {
  protected:
    SimVistFaults() { say(meter, "CALL 7"); }
    VistMeter meter{{.network = 7, .devices = {{.DN = {0, 0, 0}}, {}}}};
};

TEST_F(SimVistFaults, BeginWithAGoodMeter) {
    EXPECT_EQ(say(meter, "."), Ok);
    EXPECT_EQ(ask(meter, "/SYS CFG 1"), config_packet());
    EXPECT_EQ(meter.faults_made(), 0U);
}

TEST_F(SimVistFaults, MaySilenceTheNextAnswers) {
    meter.misbehave_next(2, sim::vist_silence());
    EXPECT_EQ(say(meter, "."), "");
    EXPECT_EQ(say(meter, "VER"), "");
    EXPECT_EQ(say(meter, "."), Ok);
    EXPECT_EQ(meter.requests("."), 2U);
    EXPECT_EQ(meter.faults_made(), 2U);
}

TEST_F(SimVistFaults, MayPutBytesBeforeAndBehindAnAnswer) {
    meter.misbehave_next(1, sim::vist_noise({0x00, 0x7F}));
    EXPECT_EQ(say(meter, "."), std::string("\0\x7F", 2) + Ok);
    meter.misbehave_next(1, sim::vist_trailing({'!'}));
    EXPECT_EQ(say(meter, "."), Ok + "!");
    meter.misbehave_next(1, sim::vist_trailing());
    ByteVector longer = config_packet();
    longer.push_back(0x55);
    EXPECT_EQ(ask(meter, "/SYS CFG 1"), longer);
}

TEST_F(SimVistFaults, OfPacketsWaitForAPacket) {
    meter.misbehave_next(1, sim::vist_wrong_sum());
    EXPECT_EQ(say(meter, "."), Ok);
    ByteVector wrong = config_packet();
    wrong[4] = 0x22;
    EXPECT_EQ(ask(meter, "/SYS CFG 1"), wrong);
    EXPECT_EQ(ask(meter, "/SYS CFG 1"), config_packet());
}

TEST_F(SimVistFaults, MayNameAnotherTypeWithARightSum) {
    meter.misbehave_next(1, sim::vist_wrong_type(0x15));
    ByteVector wrong = config_packet();
    wrong[4] = wrong[5] = 0x15;
    EXPECT_EQ(ask(meter, "/SYS CFG 1"), wrong);
}

TEST_F(SimVistFaults, MaySpoilTheMagic) {
    meter.misbehave_next(1, sim::vist_wrong_magic());
    EXPECT_EQ(part(ask(meter, "/SYS CFG 1"), 0, 5), (ByteVector{'H', 'P', 'X', 28, 0x21, 0x21}));
}

TEST_F(SimVistFaults, MaySpoilTheInnerSumOfArchivePacketsOnly) {
    meter.store_hourly({.at = "2024-03-02 11:00"});
    meter.misbehave_next(2, sim::vist_wrong_inner());
    EXPECT_EQ(ask(meter, "/SYS CFG 1"), config_packet());
    say(meter, "/ARC/DLD OLD");
    const ByteVector record = ask(meter, "/ARC/DLD =");
    EXPECT_TRUE(is_packet(record, 21));
    EXPECT_FALSE(inner_sum_holds(record));
    const ByteVector header = ask(meter, "/ARC/DLD H");
    EXPECT_TRUE(is_packet(header, 20));
    EXPECT_NE(header[7], sum(header, 8));
    EXPECT_EQ(meter.scripted_faults_left(), 0U);
}

TEST_F(SimVistFaults, MayCutAnAnswerShort) {
    for (std::size_t length = 1; length <= 5; ++length) {
        meter.misbehave_next(1, sim::vist_short(length));
        EXPECT_EQ(ask(meter, "/SYS CFG 1"), part(config_packet(), 0, length - 1));
    }
    meter.misbehave_next(1, sim::vist_short(100));
    EXPECT_EQ(say(meter, "."), Ok);
    meter.misbehave_next(1, sim::vist_short(0));
    EXPECT_EQ(say(meter, "."), "");
}

TEST_F(SimVistFaults, NeverCutsAPacketWhereItsSumWouldBeRight) {
    const std::size_t whole = config_packet().size();
    std::size_t shorter_still = 0;
    for (std::size_t length = 6; length < whole; ++length) {
        meter.misbehave_next(1, sim::vist_short(length));
        const ByteVector answer = ask(meter, "/SYS CFG 1");
        EXPECT_TRUE(answer.size() == 5 || answer[4] != sum(answer, 5)) << length;
        shorter_still += answer.size() < length ? 1 : 0;
    }
    EXPECT_GE(shorter_still, 2U) << "this packet begins with its sum and zeros";
    meter.misbehave_next(1, sim::vist_short(whole));
    EXPECT_EQ(ask(meter, "/SYS CFG 1"), config_packet());
}

TEST_F(SimVistFaults, MayMakeAnAnswerLongerThanAnybodyReads) {
    meter.misbehave_next(2, sim::vist_over_long(300));
    const ByteVector packet = ask(meter, "/SYS CFG 1");
    EXPECT_EQ(packet.size(), 300U);
    EXPECT_EQ(packet[3], 28);
    EXPECT_EQ(packet[4], sum(packet, 5));
    const std::string text = say(meter, ".");
    EXPECT_EQ(text, "HL0[7:0]{OK" + std::string(300 - 13, 'U') + "}>");
}

TEST_F(SimVistFaults, MayPauseInTheMiddleOfAnAnswer) {
    meter.misbehave_next(1, sim::vist_halved(0.6));
    const Answer answer = meter.hear(bytes_of(".\r"), Eleven);
    ASSERT_EQ(answer.size(), 2U);
    EXPECT_EQ(answer[0].bytes, bytes_of("HL0[7:"));
    EXPECT_EQ(answer[0].delay_seconds, 0.02);
    EXPECT_EQ(answer[1].bytes, bytes_of("0]{OK}>"));
    EXPECT_EQ(answer[1].delay_seconds, 0.6);
}

TEST_F(SimVistFaults, MayNameAnotherDeviceInTheHeadOfATextFrame) {
    meter.misbehave_next(1, sim::vist_wrong_device(0).on("VDN", 1));
    EXPECT_EQ(say(meter, "VDN 0"), "HL0[7:0]{NAME=TS1}>");
    EXPECT_EQ(say(meter, "VDN 1"), "HL0[7:0]{NAME=TS1}>");
    EXPECT_EQ(meter.selected(), 1U);
    EXPECT_EQ(say(meter, "VDN 1"), "HL0[7:1]{NAME=TS1}>");
}

TEST_F(SimVistFaults, MayBeErrorWordsOrTextInThePlaceOfAPacket) {
    meter.misbehave_next(1, sim::vist_error("E:PWD").on("VER"));
    EXPECT_EQ(say(meter, "."), Ok);
    EXPECT_EQ(say(meter, "VER"), "HL0[7:0]{E:PWD}>");
    EXPECT_EQ(say(meter, "VER"), "HL0[7:0]{VER=102}>");
    meter.misbehave_next(1, sim::vist_text_for_packet());
    EXPECT_EQ(say(meter, "/SYS CFG 1"), Ok);
}

TEST_F(SimVistFaults, MayBeAnyBytes) {
    meter.misbehave_next(1, sim::vist_raw({0x48, 0x50}));
    EXPECT_EQ(ask(meter, "."), (ByteVector{0x48, 0x50}));
}

TEST_F(SimVistFaults, KeepToTheirCommand) {
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.store_hourly({.at = "2024-03-02 11:00"});
    meter.misbehave_each(1, sim::vist_silence().on("/ARC/DLD +"));
    EXPECT_EQ(say(meter, "/ARC/DLD OLD"), Ok);
    EXPECT_EQ(say(meter, "/ARC/DLD +"), "");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "11:00 02.03.24");
    EXPECT_TRUE(sim::vist_begins("/ARC/DLD SET 12", "/ARC/DLD"));
    EXPECT_TRUE(sim::vist_begins("/ARC/DLD SET 12", "/ARC/DLD SET"));
    EXPECT_FALSE(sim::vist_begins("/ARC/DLD SET 12", "/ARC/DLD S"));
    EXPECT_FALSE(sim::vist_begins("VDN 1", "VD"));
}

}  // namespace
