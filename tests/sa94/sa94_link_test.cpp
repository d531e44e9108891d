// The port of an SA-94 meter, one exchange with it, and the tries of a request.

#include <termios.h>

#include <string>
#include <vector>

#include "support/configured.h"
#include "support/sa94_scene.h"
#include "support/scripted_meter.h"

namespace {

using Sent = std::vector<std::string>;

class Sa94Link : public Sa94Stand {
  protected:
    Sa94Link() { clear_logs(); }

    const termios& open(int baud, int parity) {
        reconfigure(*driver, [&](MeterSettings& settings) {
            settings.tc_baud = baud;
            settings.tc_parity = parity;
        });
        driver->open_tty();
        return machine.line_of(Port);
    }
    speed_t speed(int baud) { return cfgetospeed(&open(baud, 0)); }
    tcflag_t parity(int code) { return open(3, code).c_cflag & (PARENB | PARODD); }

    SA94Request request{0x12345};
};

// ---- the port

TEST_F(Sa94Link, ThePortHasEightBitsAndAPatienceOfNineTenths) {
    const termios& line = open(3, 0);
    EXPECT_EQ(line.c_iflag, 0U);
    EXPECT_EQ(line.c_oflag, 0U);
    EXPECT_EQ(line.c_lflag, static_cast<tcflag_t>(IEXTEN));
    EXPECT_EQ(line.c_cflag & ~static_cast<tcflag_t>(CBAUD), static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
    for (std::size_t i = 0; i < NCCS; ++i) EXPECT_EQ(line.c_cc[i], i == VTIME ? 9 : 0) << i;
}

TEST_F(Sa94Link, SpeedsByTheirCodes) {
    EXPECT_EQ(speed(1), static_cast<speed_t>(B2400));
    EXPECT_EQ(speed(2), static_cast<speed_t>(B4800));
    EXPECT_EQ(speed(3), static_cast<speed_t>(B9600));
    EXPECT_EQ(speed(4), static_cast<speed_t>(B19200));
    for (const int other : {0, -1, 5, 6, 7}) EXPECT_EQ(speed(other), static_cast<speed_t>(B4800)) << other;
}

TEST_F(Sa94Link, ParitiesByTheirCodes) {
    EXPECT_EQ(parity(1), static_cast<tcflag_t>(PARENB));
    EXPECT_EQ(parity(2), static_cast<tcflag_t>(PARENB | PARODD));
    for (const int other : {0, -1, 3}) EXPECT_EQ(parity(other), 0U) << other;
}

TEST_F(Sa94Link, OpeningIsToldInTheGeneralLog) {
    open(4, 1);
    EXPECT_EQ(log("general"), (Sent{"Open port: /dev/ttyS1, bauds: 4, parity: 1", "Open port - Success"}));
    EXPECT_TRUE(log("messages").empty());
    EXPECT_TRUE(log("debug").empty());
    EXPECT_GT(driver->get_tty_fd(), 0);
}

TEST_F(Sa94Link, APortThatDoesNotOpenIsToldAndNotTriedAgain) {
    set_port_name(*driver, "/dev/none");
    driver->open_tty();
    EXPECT_EQ(log("general"), (Sent{"Open port: /dev/none, bauds: 3, parity: 0", "Opening port - FAILURE"}));
    EXPECT_LT(driver->get_tty_fd(), 1);
}

TEST_F(Sa94Link, WithoutAPortEveryRequestFailsUnsent) {
    set_port_name(*driver, "/dev/none");
    driver->open_tty();
    request.setConnect();
    EXPECT_FALSE(driver->Transact(request, 24));
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(logged("debug", "Send 3 bytes: "), 24);
}

// ---- one exchange

TEST_F(Sa94Link, AnExchangeWritesTheBytesOfTheRequestInOneGo) {
    request.setReadBlockExtended(5, 511);
    driver->exchangeOnce(request);
    EXPECT_EQ(sent(), (Sent{"B7 6F 3F"}));
    EXPECT_EQ(request.recv_length, 128U);
    EXPECT_EQ(request.response[0], 0xFF);
    EXPECT_EQ(request.response[127], 0xFF);
    EXPECT_EQ(request.response[128], 0);
}

TEST_F(Sa94Link, AnExchangeWithASilentMeterTakesNineTenthsOfASecond) {
    meter.keep_silent();
    request.setReadParameter(3);
    request.recv_length = 5;
    const double before = machine.seconds();
    driver->exchangeOnce(request);
    EXPECT_EQ(request.recv_length, 0U);
    EXPECT_NEAR(machine.seconds() - before, 0.9, 0.01);
}

TEST_F(Sa94Link, AReplyIsCutAt512Bytes) {
    meter.say(sim::ByteVector(600, 0x5A));
    request.setReadFirmware();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(request.recv_length, 512U);
    EXPECT_EQ(request.response.back(), 0x5A);
}

TEST_F(Sa94Link, WhatComesBehindASilenceOfNineTenthsIsTakenForTheNextAnswer) {
    ScriptedMeter late;
    late.will_say({{0.02, {7, 8}}, {1.2, {9}}});
    machine.disconnect_all(Port);
    machine.connect(Port, late);
    request.setReadFirmware();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(request.recv_length, 2U);
    request.setReadTubeSettings();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(request.recv_length, 1U);
    EXPECT_EQ(request.response[0], 9);
}

TEST_F(Sa94Link, APauseWithinAReplyShorterThanNineTenthsDoesNotEndIt) {
    ScriptedMeter halting;
    halting.will_say({{0.02, {7, 8}}, {0.8, {9}}});
    machine.disconnect_all(Port);
    machine.connect(Port, halting);
    request.setReadFirmware();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(request.recv_length, 3U);
}

// ---- tries

TEST_F(Sa94Link, AnAnswerAtOnceTakesOneTry) {
    meter.status = 0x95;
    request.setConnect();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(sent(), (Sent{"C4 46 45"}));
    EXPECT_EQ(request.recv_length, 1U);
    EXPECT_EQ(request.response[0], 0x95);
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Link, AnyAnswerOfAnyLengthIsASuccess) {
    meter.say({0x42});
    request.setReadBlock(2, 5);
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(request.recv_length, 1U);
    EXPECT_EQ(request.response[0], 0x42);
    for (std::size_t i = 1; i < request.response.size(); ++i) ASSERT_EQ(request.response[i], 0) << i;
    EXPECT_EQ(sent(), (Sent{"A2 05"}));
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Link, TheSameBytesAreSentAgainUntilTheMeterAnswers) {
    meter.keep_silent(3);
    request.setReadParameter(12);
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(sent(), (Sent{"8C", "8C", "8C", "8C"}));
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Link, TheLastOfTwentyFourTriesMaySucceed) {
    meter.keep_silent(23);
    request.setReadFirmware();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(sent(), Sent(24, "A0 02")) << "no connect in between";
}

TEST_F(Sa94Link, ASilentMeterCostsTwentyFourTriesOfNineTenths) {
    machine.disconnect_all(Port);
    request.setConnect();
    const double before = machine.seconds();
    EXPECT_FALSE(driver->Transact(request, 24));
    EXPECT_EQ(machine.exchanges().size(), 24U);
    EXPECT_NEAR(machine.seconds() - before, 24 * 0.9, 0.5);
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Sa94Link, ConnectedFollowsEveryTransaction) {
    request.setConnect();
    driver->Transact(request, 24);
    EXPECT_EQ(connected(), "111111");
    meter.keep_silent(24);
    driver->Transact(request, 24);
    EXPECT_EQ(connected(), "000000");
    driver->Transact(request, 24);
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Link, AWriteThatFailsIsATryWithoutAnAnswer) {
    machine.limit_writes(Port, 0);
    request.setConnect();
    EXPECT_FALSE(driver->Transact(request, 24));
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(logged("debug", "Recv 0 bytes: "), 24);
}

TEST_F(Sa94Link, AShortWriteIsATryWithoutAnAnswer) {
    machine.limit_writes(Port, 2);
    request.setConnect();
    EXPECT_FALSE(driver->Transact(request, 24));
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Sa94Link, ADisconnectIsOneExchangeThatSucceedsWithoutTouchingConnected) {
    scene.write("/tmp/m1/1/tc_items/Connected", "5\n");
    request.setDisconnect();
    const double before = machine.seconds();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(sent(), (Sent{"01"}));
    EXPECT_EQ(item("Connected"), "5");
    EXPECT_NEAR(machine.seconds() - before, 0.9, 0.01) << "the meter's silence is waited for";
}

TEST_F(Sa94Link, ADisconnectThatIsAnsweredAllTheSameSucceedsToo) {
    meter.say({1, 2, 3});
    request.setDisconnect();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(request.recv_length, 3U);
    EXPECT_EQ(item("Connected"), "(none)");
}

TEST_F(Sa94Link, AnotherNumberOfTriesConnectsAnewBeforeTheLastOne) {
    meter.keep_silent(2);
    request.setReadBlock(2, 0);
    EXPECT_TRUE(driver->Transact(request, 3));
    EXPECT_EQ(sent(), (Sent{"A2 00", "A2 00", "C4 46 45", "A2 00"}));
}

TEST_F(Sa94Link, TheLastTryMayFailBehindTheNewConnect) {
    meter.be_deaf_to("A2 00");
    request.setReadBlock(2, 0);
    EXPECT_FALSE(driver->Transact(request, 2));
    EXPECT_EQ(sent(), (Sent{"A2 00", "C4 46 45", "A2 00"}));
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Sa94Link, AnOnlyTryConnectsAnewFirst) {
    request.setReadBlock(2, 0);
    EXPECT_TRUE(driver->Transact(request, 1));
    EXPECT_EQ(sent(), (Sent{"C4 46 45", "A2 00"}));
}

TEST_F(Sa94Link, NoTryAtAllFailsInNothing) {
    request.setReadBlock(2, 0);
    EXPECT_TRUE(driver->Transact(request, 0));
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(connected(), "111111");
}

// ---- what a transaction leaves in the log

TEST_F(Sa94Link, ATransactionIsDumpedInTheDebugLog) {
    meter.status = 0x16;
    request.setConnect();
    driver->Transact(request, 24);
    EXPECT_EQ(log("debug"),
              (Sent{"Send 3 bytes: ", "Dumping packet:", " 0xC4 0x46 0x45", "", "Dumping packet done.",
                    "Recv 1 bytes: ", "Dumping packet:", " 0x16", "", "Dumping packet done.", "Must be response"}));
    EXPECT_TRUE(log("messages").empty());
    EXPECT_TRUE(log("general").empty());
}

TEST_F(Sa94Link, EachTryIsDumpedForItself) {
    meter.keep_silent();
    request.setReadParameter(0);
    driver->Transact(request, 24);
    EXPECT_EQ(logged("debug", "Send 1 bytes: "), 2);
    EXPECT_EQ(logged("debug", "Recv 0 bytes: "), 1);
    EXPECT_EQ(logged("debug", "Recv 4 bytes: "), 1);
    EXPECT_EQ(logged("debug", "Must be response"), 2);
}

TEST_F(Sa94Link, ADisconnectSaysThatItWaitsForNothing) {
    request.setDisconnect();
    driver->Transact(request, 24);
    EXPECT_EQ(log("debug"),
              (Sent{"Send 1 bytes: ", "Dumping packet:", " 0x01", "", "Dumping packet done.",
                    "Recv 0 bytes: ", "Dumping packet:", "", "Dumping packet done.", "Response must not be, return."}));
}

// ---- a block

TEST_F(Sa94Link, AMeterWithShortSegmentsIsAskedInTheShortForm) {
    identify(10);
    EXPECT_TRUE(driver->ReadArchiveRecord(request, 3, 127));
    EXPECT_EQ(sent(), (Sent{"A3 7F"}));
}

TEST_F(Sa94Link, AMeterWithLongSegmentsIsAskedInTheLongForm) {
    identify(11);
    EXPECT_TRUE(driver->ReadArchiveRecord(request, 5, 511));
    EXPECT_EQ(sent(), (Sent{"B7 6F 3F"}));
}

TEST_F(Sa94Link, ABlockThatDoesNotComeIsTriedTwentyFourTimes) {
    meter.be_deaf_to("A2 01");
    EXPECT_FALSE(driver->ReadArchiveRecord(request, 2, 1));
    EXPECT_EQ(sent(), Sent(24, "A2 01"));
}

// ---- pauses

TEST_F(Sa94Link, ThePauseFlagNeverHoldsThisDriver) {
    set_pause_flag(*driver, true);
    scene.touch("/tmp/pause_tvk");
    request.setConnect();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_TRUE(machine.sleeps().empty());
}

TEST_F(Sa94Link, ThePauseFlagForAllDoesAsLongAsItIsThere) {
    scene.touch("/tmp/pause_tvk_all");
    machine.at(25, [this] {
        EXPECT_TRUE(sent().empty());
        scene.remove("/tmp/pause_tvk_all");
    });
    request.setConnect();
    EXPECT_TRUE(driver->Transact(request, 24));
    EXPECT_EQ(machine.sleeps(), (std::vector<unsigned>{10, 10, 10}));
}

}  // namespace
