// The link: conversations row by row, text frames, silence, retries and counters, against a meter that says what it is
// told.

#include "drivers/vist/vist_link.h"

#include <string>
#include <vector>

#include "support/configured.h"
#include "support/vist_scene.h"

namespace {

using namespace vist;
using sim::ByteVector;
using vist_frames::raw;
using vist_frames::text;

class VistConversations : public VistLinkStand {};

// ---- a conversation that goes well

TEST_F(VistConversations, AConversationSendsItsRowsAndGivesTheValue) {
    EXPECT_TRUE(ask(reqDevCRC));
    EXPECT_EQ(sent(), "CALL 1|VER|END|");
    EXPECT_EQ(reply.ret_int, 102);
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("Starting requests..."), 1);
    EXPECT_EQ(logged("Send batch over, OK"), 1);
    EXPECT_EQ(logged("RET_INT"), 1);
}

TEST_F(VistConversations, TheNetworkNumberAndTheVirtualDeviceAreFilledIn) {
    parameters.virtdev_num = 3;
    parameters.device_num = 25001;
    meter.put_body("CALL 25001", "NAME=TS");
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(sent(), "CALL 25001|VDN 3|/MON G|END|");
    EXPECT_EQ(reply.ret_vdn, 3);
    EXPECT_EQ(logged("NETADDR: vdn_num.device_num = 25001"), 1);
    EXPECT_EQ(logged("VDNUMBER: vdn_num.virtdev_num  = 3"), 1);
    EXPECT_EQ(logged("RET_VDN"), 1);
}

TEST_F(VistConversations, APositionIsFilledInAndTheDialogStaysOpen) {
    meter.put_body("/ARC/DLD SET 17", "OK");
    EXPECT_TRUE(ask(reqArchiveSetPosData, 17));
    EXPECT_EQ(sent(), "CALL 1|VDN 0|/ARC/DLD SET 17|");
    EXPECT_EQ(logged("SETPOS: rec_count = 17"), 1);
    EXPECT_EQ(logged("RET_NEW"), 1);
}

TEST_F(VistConversations, EachStepIsTracedInTheLog) {
    parameters.virtdev_cnt = 2;
    ask(reqDevCRC);
    EXPECT_EQ(logged("pVISTdrv->virtdev_cnt : 2"), 1);
    EXPECT_EQ(logged_start("pVISTdrv pointer = "), 1);
    EXPECT_EQ(logged("virtdev_cnt = 2"), 1);
    EXPECT_EQ(logged("Start request cycle.."), 3);
    EXPECT_EQ(logged("ErrCnt = 0"), 3);
    EXPECT_EQ(logged("VISTMaxErrors = 4"), 3);
    EXPECT_EQ(logged("Selected subsytem = 0"), 3);
    EXPECT_EQ(logged("Param index = -1"), 1);
    EXPECT_EQ(logged("Param index = 0"), 2);
    EXPECT_EQ(logged("Request format = CALL %d\r"), 1);
    EXPECT_EQ(logged("Requesting: CALL 1\r"), 1);
    EXPECT_EQ(logged("Response = HL0[1:0]{VER=102}>"), 1);
    EXPECT_EQ(logged_start("TC : "), 2);
    EXPECT_EQ(logged("send_request::send 7 bytes."), 1);
    EXPECT_EQ(logged("send_request::Received 18 bytes."), 2);
    EXPECT_EQ(logged("setConnected(true)"), 2);
    EXPECT_EQ(logged("Request is \"END\""), 1);
    EXPECT_EQ(logged("send_request::Request is END => return false;"), 1);
    EXPECT_EQ(logged("Request is \"END\" => fDone = true"), 1);
}

TEST_F(VistConversations, ALongNameOrOneWithABlankIsTaken) {
    meter.put_body("CALL 1", "NAME=" + std::string(280, 'n'));
    EXPECT_TRUE(ask(reqDevCRC));
    meter.put_body("CALL 1", "NAME=two words");
    EXPECT_TRUE(ask(reqDevCRC));
}

TEST_F(VistConversations, TheEndOfADialogIsNeverAnswered) {
    EXPECT_TRUE(ask(reqArchiveEnd));
    EXPECT_EQ(sent(), "END|") << "silence is no failure";
    EXPECT_EQ(connected(), "000000") << "and shows nothing of the line";
}

TEST_F(VistConversations, AnAnswerToTheEndIsIgnoredWhateverItIs) {
    for (const std::string answer : {"HL0[1:0]{OK}>", "HL0[1:0]{E:CMD}>", "x"}) {
        meter.put("END", raw(answer));
        EXPECT_TRUE(ask(reqDevCRC)) << answer;
    }
    EXPECT_EQ(traffic().stat_rx_bytes, 3U * 36);
    EXPECT_EQ(traffic().stat_send_errors, 0U);
}

TEST_F(VistConversations, TheDriverIsBusyFromTheBeginningOfAConversationToItsEnd) {
    ask(reqDevCRC);
    EXPECT_EQ(busy_flags, (std::vector<int>{1, 0}));
    meter.keep_silent(5);
    ask(reqDevCRC);
    EXPECT_EQ(busy_flags, (std::vector<int>{1, 0, 1, 0})) << "a conversation that fails is over too";
    ask(reqArchiveSetPosData, 0);
    EXPECT_EQ(busy_flags, (std::vector<int>{1, 0, 1, 0, 1})) << "position 0 does not exist, and nobody is told";
}

TEST_F(VistConversations, TrafficIsCounted) {
    ask(reqDevCRC);
    EXPECT_EQ(traffic().stat_tx_bytes, 15U) << "CALL 1, VER and END with their carriage returns";
    EXPECT_EQ(traffic().stat_rx_bytes, 36U) << "two frames of 18 bytes";
    ask(reqDevCRC);
    EXPECT_EQ(traffic().stat_tx_bytes, 30U);
    EXPECT_EQ(traffic().stat_text_error_bytes + traffic().stat_binary_error_bytes + traffic().stat_vdn_error_bytes +
                  traffic().stat_send_errors,
              0U);
}

// ---- silence

TEST_F(VistConversations, ASilentMeterIsAskedFiveTimesAndIsThenDisconnected) {
    meter.keep_silent(6);
    EXPECT_FALSE(ask(reqDevCRC));
    EXPECT_EQ(sent(), "CALL 1|CALL 1|CALL 1|CALL 1|CALL 1|");
    EXPECT_EQ(logged("Packet 0 in reqDevCRC FAIL [send request]."), 5);
    EXPECT_EQ(logged("Request error limit hit!"), 1);
    EXPECT_EQ(logged("setConnected(false)"), 1);
    EXPECT_EQ(logged("Send batch over, FAIL"), 1);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(traffic().stat_send_errors, 5U);
    EXPECT_NEAR(elapsed(), 5 * (0.5 + 70 / 9600.0), 0.05) << "the read's silence is the only pause";
}

TEST_F(VistConversations, TheFifthTryOfARowCounts) {
    meter.keep_silent(4);
    EXPECT_TRUE(ask(reqDevCRC));
    EXPECT_EQ(sent_times("CALL 1"), 5);
    EXPECT_EQ(connected(), "111111");
}

TEST_F(VistConversations, EachRowHasTriesOfItsOwn) {
    meter.keep_silent(4).say(text("NAME=TS")).keep_silent(4);
    EXPECT_TRUE(ask(reqDevCRC));
    EXPECT_EQ(sent_times("CALL 1"), 5);
    EXPECT_EQ(sent_times("VER"), 5);
}

TEST_F(VistConversations, EachConversationHasTriesOfItsOwn) {
    meter.keep_silent(5);
    EXPECT_FALSE(ask(reqDevCRC));
    meter.keep_silent(4);
    EXPECT_TRUE(ask(reqDevCRC));
}

TEST_F(VistConversations, SilenceBehindASuccessDoesNotConnectAgain) {
    meter.say(text("NAME=TS")).keep_silent(5);
    EXPECT_FALSE(ask(reqDevCRC));
    EXPECT_EQ(logged("setConnected(true)"), 1);
    EXPECT_EQ(connected(), "000000");
}

TEST_F(VistConversations, AClosedPortIsSilence) {
    for (const int fd : {-1, 0}) {
        driver->set_tty_fd(fd);
        EXPECT_FALSE(ask(reqDevCRC));
        EXPECT_TRUE(ask(reqArchiveEnd)) << "the end of a dialog waits for nothing";
    }
    EXPECT_EQ(sent(), "");
}

TEST_F(VistConversations, APauseFlagHoldsTheConversation) {
    set_pause_flag(*driver, true);
    scene.touch("/tmp/pause_tvk");
    machine.at(15, [this] { scene.remove("/tmp/pause_tvk"); });
    EXPECT_TRUE(ask(reqDevCRC));
    EXPECT_EQ(machine.sleeps(), (std::vector<unsigned>{10, 10}));
}

// ---- text frames

TEST_F(VistConversations, AnErrorWordFailsARowFiveTimesAndTheMeterIsDisconnected) {
    meter.put_body("VER", "E:PWD");
    EXPECT_FALSE(ask(reqDevCRC));
    EXPECT_EQ(sent(), "CALL 1|VER|VER|VER|VER|VER|");
    EXPECT_EQ(logged("Response error."), 5);
    EXPECT_EQ(logged("TC : E:PWD"), 5);
    EXPECT_EQ(logged("Packet 1 in reqDevCRC FAIL [error format, text]."), 5);
    EXPECT_EQ(logged("Request error limit hit!"), 1);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(traffic().stat_text_error_bytes, 5U * 16);
}

TEST_F(VistConversations, AFailedTextRowBehindASuccessStillConnects) {
    meter.put_body("VER", "E:PWD");
    ask(reqDevCRC);
    EXPECT_EQ(logged("setConnected(true)"), 6) << "once for CALL, five times for VER";
}

TEST_F(VistConversations, AFailedTextRowInFrontOfAnySuccessDoesNotConnect) {
    meter.put_body("CALL 1", "E:CMD");
    EXPECT_FALSE(ask(reqDevCRC));
    EXPECT_EQ(logged("setConnected(true)"), 0);
}

TEST_F(VistConversations, TheFourErrorWordsFailARowWhoseFieldsAreAllThere) {
    for (const std::string word : {"E:CMD", "E:PARAM", "E:NPAR", "E:PWD"}) {
        meter.put_body("/ARC/DLD OLD", word);
        EXPECT_FALSE(ask(reqArchiveSetOldPosition)) << word;
    }
    EXPECT_EQ(logged("Response error."), 20);
}

TEST_F(VistConversations, AnotherWordIsNoError) {
    meter.put_body("/ARC/DLD OLD", "E:OTHER");
    EXPECT_TRUE(ask(reqArchiveSetOldPosition));
    EXPECT_EQ(logged("TC : E:OTHER"), 1);
    EXPECT_EQ(logged("Response error."), 0);
}

TEST_F(VistConversations, AFrameWithBytesBehindItsEndFails) {
    meter.say("HL0[1:0]{NAME=TS}> ").say("HL0[1:0]{NAME=TS}>\r\n");
    EXPECT_TRUE(ask(reqDevCRC));
    EXPECT_EQ(sent_times("CALL 1"), 3);
    EXPECT_EQ(traffic().stat_text_error_bytes, 19U + 20U);
}

TEST_F(VistConversations, AFrameWithTooFewFieldsFails) {
    meter.say(text("OK")).say("HL0[1]{NAME=TS}>").say("HL0[x:0]{NAME=TS}>").say("}>");
    EXPECT_TRUE(ask(reqDevCRC));
    EXPECT_EQ(logged("Packet 0 in reqDevCRC FAIL [error format, text]."), 4);
}

TEST_F(VistConversations, AValueThatIsNoNumberFails) {
    meter.put_body("VER", "VER=new");
    EXPECT_FALSE(ask(reqDevCRC));
    EXPECT_EQ(reply.ret_int, 0);
}

TEST_F(VistConversations, AFrameOfOneByteOrOfZerosFails) {
    meter.say(">").say(ByteVector{0}).say(ByteVector{0, '}', '>'}).say(ByteVector(299, 0));
    EXPECT_TRUE(ask(reqReturn)) << "though its row wants no field";
    EXPECT_EQ(logged("Packet 0 in Return . FAIL [error format, text]."), 4);
}

TEST_F(VistConversations, AnAnswerIsCutAt299Bytes) {
    meter.say("HL0[1:0]{NAME=" + std::string(283, 'n') + "}>");  // 299 bytes
    EXPECT_TRUE(ask(reqDevCRC));
    EXPECT_EQ(traffic().stat_text_error_bytes, 0U);
    meter.say("HL0[1:0]{NAME=" + std::string(284, 'n') + "}>");
    EXPECT_TRUE(ask(reqDevCRC));
    EXPECT_GE(traffic().stat_text_error_bytes, 299U);
    EXPECT_EQ(logged("send_request::Received 299 bytes."), 2);
}

// ---- the virtual device in the frame head

TEST_F(VistConversations, AnotherDeviceInTheFrameHeadIsAskedForAgain) {
    parameters.virtdev_num = 1;
    meter.say(text("NAME=TS")).say(text("NAME=TS", 0));
    EXPECT_TRUE(ask(reqMomentG));
    EXPECT_EQ(sent(), "CALL 1|VDN 1|VDN 1|/MON G|END|");
    EXPECT_EQ(logged("VDN cmd failed, compare error:1 expected, but found 0"), 1);
    EXPECT_EQ(traffic().stat_vdn_error_bytes, 18U);
    EXPECT_EQ(traffic().stat_text_error_bytes, 0U);
}

TEST_F(VistConversations, TheFifthWrongDeviceEndsTheConversation) {
    parameters.virtdev_num = 1;
    meter.put_body("VDN 1", "NAME=TS", 0);
    EXPECT_FALSE(ask(reqMomentG));
    EXPECT_EQ(sent(), "CALL 1|VDN 1|VDN 1|VDN 1|VDN 1|VDN 1|");
    EXPECT_EQ(reply.ret_vdn, 0);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(traffic().stat_vdn_error_bytes, 90U);
    EXPECT_EQ(logged("setConnected(true)"), 1) << "a wrong device leaves the connected state alone";
}

}  // namespace
