// The link: rows that are answered with packets, and positions, against a meter that says what it is told.

#include <string>
#include <vector>

#include "drivers/vist/vist_link.h"
#include "support/vist_scene.h"

namespace {

using namespace vist;
using sim::ByteVector;
using vist_frames::packet;
using vist_frames::text;

class VistPacketRows : public VistLinkStand {
  protected:
    static ByteVector with_sum_off(ByteVector bytes) {
        ++bytes[4];
        return bytes;
    }

    const ByteVector good = packet(10, {1, 2, 3});
};

TEST_F(VistPacketRows, AGoodPacketIsCopiedWholeIntoTheNamedBuffer) {
    area[9] = 0x55;
    EXPECT_TRUE(ask(reqMomentG));
    // 0A + 01 + 02 + 03 = 10
    EXPECT_EQ(buffer(10), (std::vector<int>{'H', 'P', 'T', 5, 0x10, 10, 1, 2, 3, 0x55}));
    EXPECT_EQ(logged("RET_NEW 2"), 0);
}

TEST_F(VistPacketRows, APacketIsDumpedSixteenBytesALine) {
    meter.put_packet("/MON G", 10, ByteVector(11, 0));  // 17 bytes
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(
        logged("  0x48  0x50  0x54  0x0d  0x0a  0x0a  0x00  0x00  0x00  0x00  0x00  0x00  0x00  0x00  0x00  0x00  "),
        1);
    EXPECT_EQ(logged("  0x00  "), 1);
    EXPECT_EQ(logged("Dumping packet done."), 4) << "besides the plain dump of each of three answers";
}

TEST_F(VistPacketRows, AnArchiveStepIsNotedInTheLog) {
    meter.put_packet("/ARC/DLD +", 21, {1, 2});
    EXPECT_TRUE(ask(reqArchiveNext));
    EXPECT_EQ(logged("RET_NEW 2"), 1);
    EXPECT_EQ(sent(), "/ARC/DLD +|");
}

TEST_F(VistPacketRows, AWrongSumIsFollowedByADotAndTheSameRow) {
    meter.say(text("NAME=TS")).say(text("NAME=TS")).say(with_sum_off(good));
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(sent(), "CALL 1|VDN 0|/MON G|.|/MON G|END|");
    EXPECT_EQ(logged("Packet 2 in MomentG FAIL [error format, binary, expected type: 10]"), 1);
    EXPECT_EQ(logged("Packet CRC 17, expected 16"), 1);
    EXPECT_EQ(traffic().stat_binary_error_bytes, 9U);
    EXPECT_EQ(logged_start("Seems to be text format"), 0);
}

TEST_F(VistPacketRows, FiveBadPacketsEndTheConversation) {
    meter.put("/MON G", with_sum_off(good));
    EXPECT_FALSE(ask(reqMomentG));
    EXPECT_EQ(sent_times("/MON G"), 5);
    EXPECT_EQ(sent_times("."), 5);
    EXPECT_EQ(sent_times("END"), 0);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(buffer(1).front(), 0) << "a bad packet is not kept";
}

TEST_F(VistPacketRows, AMeterThatDoesNotAnswerTheDotIsStillAskedOn) {
    meter.put("/MON G", with_sum_off(good));
    meter.put(".", {});
    EXPECT_FALSE(ask(reqMomentG));
    EXPECT_EQ(sent_times("."), 25) << "each dot has five tries of its own";
    EXPECT_EQ(sent_times("/MON G"), 5) << "which do not count for the conversation around it";
    EXPECT_EQ(logged("Request error limit hit!"), 6);
}

TEST_F(VistPacketRows, AFailedDotDisconnectsAndTheRowBehindItConnects) {
    meter.say(text("NAME=TS")).say(text("NAME=TS")).say(with_sum_off(good)).keep_silent(5);
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(logged("setConnected(false)"), 1);
    EXPECT_EQ(connected(), "111111");
}

TEST_F(VistPacketRows, ATextInThePlaceOfAPacketRestartsTheConversation) {
    meter.say(text("NAME=TS")).say(text("NAME=TS")).say(text("E:CMD"));
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(sent(), "CALL 1|VDN 0|/MON G|.|CALL 1|VDN 0|/MON G|END|");
    EXPECT_EQ(logged("Seems to be text format instead of binary. FAIL anyway. Will restart all."), 1);
    EXPECT_EQ(traffic().stat_binary_error_bytes, 16U);
}

TEST_F(VistPacketRows, ErrorsAreCountedOnAcrossARestart) {
    meter.say(text("NAME=TS")).say(text("NAME=TS")).say(text("E:CMD")).say(text("OK")).keep_silent(4);
    EXPECT_FALSE(ask(reqMomentG));
    EXPECT_EQ(sent(), "CALL 1|VDN 0|/MON G|.|CALL 1|CALL 1|CALL 1|CALL 1|");
}

TEST_F(VistPacketRows, AMeterThatAnswersEveryPacketRowWithTextIsGivenUpAtTheFifthError) {
    meter.put_body("/MON G", "E:CMD");
    EXPECT_FALSE(ask(reqMomentG));
    EXPECT_EQ(sent_times("/MON G"), 5);
    EXPECT_EQ(sent_times("CALL 1"), 5) << "each time from the first row, which clears no error";
    EXPECT_EQ(logged("Request error limit hit!"), 1);
    EXPECT_EQ(connected(), "000000");
}

TEST_F(VistPacketRows, APacketWithoutABufferIsAskedForOnAndOnWithoutACharge) {
    parameters.current_buffer = {};
    bool returned = false;
    machine.run_for(60, [&] {
        ask(reqMomentG);
        returned = true;
    });
    EXPECT_FALSE(returned);
    EXPECT_GT(sent_times("/MON G"), 50);
    EXPECT_EQ(logged_start("Packet "), 0);
    EXPECT_EQ(sent_times("."), 0);
    EXPECT_EQ(traffic().stat_binary_error_bytes, 0U);
}

TEST_F(VistPacketRows, AScrapOfLessThanEightBytesIsNotCharged) {
    meter.say(text("NAME=TS")).say(text("NAME=TS"));
    for (std::size_t length = 1; length < 8; ++length) meter.say(ByteVector(length, 'H'));
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(sent_times("/MON G"), 8);
    EXPECT_EQ(sent_times("."), 0);
    EXPECT_EQ(traffic().stat_binary_error_bytes, 0U);
}

TEST_F(VistPacketRows, APacketOfEightBytesIsOne) {
    meter.put_packet("/MON G", 10, {1, 2});
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(buffer(8).back(), 2);
}

TEST_F(VistPacketRows, AnOverLongPacketIsCutAndFailsItsSum) {
    ByteVector body(253, 1);
    ByteVector longest = packet(10, body);
    longest.resize(310, 1);
    meter.say(text("NAME=TS")).say(text("NAME=TS")).say(longest);
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(traffic().stat_binary_error_bytes, 299U);
}

// ---- positions

TEST_F(VistPacketRows, PositionZeroDoesNotExistAndNothingIsSent) {
    for (const auto rows : {std::span<const VISTRequest>(reqArchiveSetPosData), std::span<const VISTRequest>(reqDevCRC),
                            std::span<const VISTRequest>(reqArchiveEnd)}) {
        EXPECT_FALSE(ask(rows, 0));
    }
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(traffic().stat_tx_bytes, 0U);
    EXPECT_EQ(logged_start("Send batch over"), 0);
}

}  // namespace
