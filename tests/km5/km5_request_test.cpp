// One request of a KM5 driver: address, exchange, checks, retries, against a meter that plays a list of answers.

#include <string>
#include <vector>

#include "driver/line_settings.h"
#include "support/configured.h"
#include "support/km5_scene.h"

namespace {

using km5_frames::answer;
using sim::ByteVector;

class Km5Requests : public Km5Stand {
  protected:
    Km5Requests() {
        machine.connect(Port, meter);
        start_driver();
    }

    bool ask(std::uint8_t cmd, bool publish = true) {
        init_request(req);
        req.cmd = cmd;
        return driver->request(req, publish);
    }

    static ByteVector spoilt(ByteVector bytes, std::size_t at) {
        bytes[at] ^= 0x01;
        return bytes;
    }

    Km5Script meter;
    KM5_request req;
    const ByteVector good = answer(8, {1, 2, 3, 4, 5, 6, 7});
    const ByteVector error = answer(0xF0);
    const ByteVector bad = spoilt(good, good.size() - 1);
};

TEST_F(Km5Requests, ARequestIsSixteenBytesOnTheLine) {
    meter.say(good);
    ASSERT_TRUE(ask(8));
    // 78^56^34^12 = 08, ^08 = 00; 78+56+34+12+08 = 11C.
    EXPECT_EQ(requests(),
              (std::vector<ByteVector>{{0x78, 0x56, 0x34, 0x12, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x1C}}));
    EXPECT_EQ(req.RcvLng, good.size());
}

TEST_F(Km5Requests, AGoodAnswerConnectsAllSixSubsystems) {
    meter.say(good);
    EXPECT_TRUE(ask(8));
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("debug", "Request: Success"), 1);
    EXPECT_EQ(logged("debug", "Checking control sum..."), 1);
    EXPECT_EQ(logged("debug", "Checking control sum : success"), 1);
    EXPECT_EQ(logged("debug", "Send request, cmd: 8, 14 bytes received."), 1);
}

TEST_F(Km5Requests, BothFramesAreDumpedIntoTheDebugLog) {
    meter.say(good);
    ask(8);
    EXPECT_EQ(logged("debug", "Send dump:"), 1);
    EXPECT_EQ(logged("debug", "Recv dump:"), 1);
    EXPECT_EQ(logged("debug", "Dumping packet:"), 2);
    EXPECT_EQ(logged("debug", " 0x78 0x56 0x34 0x12 0x08 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x1C"), 1);
    EXPECT_EQ(logged("debug", " 0x78 0x56 0x34 0x12 0x08 0x01 0x02 0x03 0x04 0x05 0x06 0x07 0x00 0x38"), 1);
}

TEST_F(Km5Requests, ASilentMeterIsAskedTwentyOneTimesAndIsThenDisconnected) {
    const double before = elapsed();
    EXPECT_FALSE(ask(8));
    EXPECT_EQ(meter.heard.size(), 21U);
    EXPECT_EQ(connected(), "000000");
    EXPECT_NEAR(elapsed() - before, 21 * (0.6 + 16 * 10 / 9600.0), 0.05) << "the read's time-out is the only pause";
    EXPECT_EQ(logged("debug", "ErrorCount > MAX, Connected = false"), 1);
    EXPECT_EQ(logged("debug", "Requst: Failed"), 1);
    EXPECT_EQ(logged("debug", "Error, ErrorCount = 21"), 1);
    EXPECT_EQ(req.RcvLng, 0);
}

TEST_F(Km5Requests, TheLastOfTwentyOneAttemptsCounts) {
    meter.keep_silent(20).say(good);
    EXPECT_TRUE(ask(8));
    EXPECT_EQ(meter.heard.size(), 21U);
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Km5Requests, WhatIsNoAnswerIsAskedForAgainAndTheLogSaysWhy) {
    const ByteVector other = answer(9, {1, 2, 3});
    ByteVector noisy{0x55};
    noisy.insert(noisy.end(), good.begin(), good.end());
    struct Row {
        ByteVector bytes;
        const char* fault;
    };
    const Row rows[] = {
        {spoilt(good, good.size() - 2), "KM5 CS1 != my CS1"},
        {bad, "KM5 CS2 != my CS2"},
        {other, "KM5 CMD != my CMD"},
        {spoilt(other, 8), "KM5 CS1 != my CS1"},  // a corrupt frame never gets as far as the command
        {noisy, "KM5 CS1 != my CS1"},
        {{0}, "KM5 CS1 != my CS1"},
        {{0x78}, "KM5 CS1 != my CS1"},
        {{0, 0}, "KM5 CMD != my CMD"},
        {{0x78, 0x78, 0x78}, "KM5 CMD != my CMD"},
        {{0x78, 0x56, 0x2E, 0xCE}, "KM5 CMD != my CMD"},
    };
    for (const Row& row : rows) {
        clear_log("debug");
        meter.say(row.bytes).say(good);
        EXPECT_TRUE(ask(8));
        EXPECT_TRUE(logged_in_order("debug", {row.fault, "Checking control sum : failure", "Request: Failure",
                                              "Error, ErrorCount = 1", "Request: Success"}));
        EXPECT_EQ(logged_parts("debug", {" != my "}), 1) << row.fault;
    }
    EXPECT_EQ(meter.heard.size(), 2 * std::size(rows));
}

TEST_F(Km5Requests, TenErrorAnswersAndThenAGoodOneIsSuccess) {
    meter.say(error, 10).say(good);
    EXPECT_TRUE(ask(8));
    EXPECT_EQ(meter.heard.size(), 11U);
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("debug", "isError, ErrorCount = 10"), 1);
}

TEST_F(Km5Requests, ElevenErrorAnswersFailButTheMeterIsConnected) {
    meter.say(error, 11).say(good);
    EXPECT_FALSE(ask(8));
    EXPECT_EQ(meter.heard.size(), 11U);
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("debug", "Request: Failed, but Connected = true"), 1);
}

TEST_F(Km5Requests, AnErrorAnswerIsOneWhateverItsSums) {
    for (const std::uint8_t code : {0xEF, 0xF0, 0xF1, 0xFB}) {
        meter.say({0, 0, 0, 0, code, 1, 2}, 11);
        EXPECT_FALSE(ask(8)) << int{code};
        EXPECT_EQ(connected(), "111111");
    }
    EXPECT_EQ(meter.heard.size(), 44U);
}

TEST_F(Km5Requests, OneCounterRunsThroughErrorsAndFailures) {
    meter.say(error, 5).say(bad, 16).say(good);
    EXPECT_FALSE(ask(8));
    EXPECT_EQ(meter.heard.size(), 21U);
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Km5Requests, BehindAFailureAnErrorAnswerIsJustAnotherFailure) {
    meter.say(bad).say(error, 20).say(good);
    EXPECT_FALSE(ask(8));
    EXPECT_EQ(meter.heard.size(), 21U);
    EXPECT_EQ(connected(), "000000") << "the line counts as lost";
    EXPECT_EQ(logged_parts("debug", {"isError"}), 0);
}

TEST_F(Km5Requests, SilenceBehindAnErrorAnswerReadsTheOldErrorAgain) {
    meter.say(error);
    EXPECT_FALSE(ask(8));
    EXPECT_EQ(meter.heard.size(), 11U);
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Km5Requests, WithoutPublishingNoOutcomeTouchesConnected) {
    scene.write("/tmp/m1/1/tc_items/Connected", "untouched\n");
    meter.say(good).say(error, 11);
    EXPECT_TRUE(ask(8, false));
    EXPECT_FALSE(ask(8, false)) << "errors";
    EXPECT_FALSE(ask(8, false)) << "silence";
    EXPECT_EQ(connected(), "untouched(none)(none)(none)(none)(none)");
}

TEST_F(Km5Requests, SilenceIsNoAnswerEvenWhereTheSumsHold) {
    // To the address 0 the request of command 0 is sixteen zeros, and so are the sums that silence is checked against.
    start_driver({.serial = 100000000});
    meter.keep_silent().say(answer(0));
    EXPECT_TRUE(ask(0));
    EXPECT_EQ(meter.heard.size(), 2U);
}

TEST_F(Km5Requests, AnAnswerOf72BytesEndsTheReadWithoutWaitingForSilence) {
    meter.say(answer(0x41, ByteVector(65, 7)));
    const double before = elapsed();
    EXPECT_TRUE(ask(0x41));
    EXPECT_EQ(req.RcvLng, 72);
    EXPECT_NEAR(elapsed() - before, (16 + 72) * 10 / 9600.0 + 0.02, 0.01);
}

TEST_F(Km5Requests, AnAnswerOf71BytesIsEndedBySilence) {
    meter.say(answer(0x41, ByteVector(64, 7)));
    const double before = elapsed();
    EXPECT_TRUE(ask(0x41));
    EXPECT_EQ(req.RcvLng, 71);
    EXPECT_NEAR(elapsed() - before, (16 + 71) * 10 / 9600.0 + 0.02 + 0.6, 0.01);
}

TEST_F(Km5Requests, ALongerAnswerIsCutAndFails) {
    meter.say(answer(0x41, ByteVector(66, 7)));
    EXPECT_FALSE(ask(0x41));
    EXPECT_EQ(logged("debug", "Send request, cmd: 65, 72 bytes received."), 1);
    EXPECT_EQ(logged("debug", "Send request, cmd: 65, 1 bytes received."), 1) << "the byte that was left over";
}

TEST_F(Km5Requests, AnUnopenedPortCountsAsNoAnswer) {
    for (const int fd : {-1, 0}) {
        driver->set_tty(fd);
        const double before = elapsed();
        EXPECT_FALSE(ask(8)) << fd;
        EXPECT_EQ(connected(), "000000");
        EXPECT_NEAR(elapsed() - before, 0.0, 0.01);
    }
    EXPECT_TRUE(requests().empty());
    EXPECT_EQ(logged("debug", "Send request, cmd: 8, 0 bytes received."), 42);
}

TEST_F(Km5Requests, TheAddressIsTakenFromTheDriverAtEachRequest) {
    meter.say(good).say(good);
    ask(8);
    set_serial(*driver, 4030201);
    driver->get_netaddr_from_config();
    ask(8);
    EXPECT_EQ(meter.heard[1], km5_frames::request({1, 2, 3, 4}, 8));
}

TEST_F(Km5Requests, APauseFlagHoldsARequestOfADriverThatHeedsItAndOfNoOther) {
    scene.touch("/tmp/pause_tvk");
    machine.at(25, [this] { scene.remove("/tmp/pause_tvk"); });
    meter.say(good, 2);
    set_pause_flag(*driver, false);
    EXPECT_TRUE(ask(8));
    EXPECT_TRUE(machine.sleeps().empty());
    set_pause_flag(*driver, true);
    EXPECT_TRUE(ask(8));
    EXPECT_EQ(machine.sleeps(), (std::vector<unsigned>{10, 10, 10}));
    EXPECT_EQ(meter.heard.size(), 2U);
}

// ---- the address from the serial number

class Km5Address : public Km5Stand {
  protected:
    std::array<std::uint8_t, 4> of(unsigned serial, bool km56i = false, int subsystem = 0) {
        start_driver({.serial = serial, .km56i = km56i, .systems = Texts(static_cast<std::size_t>(subsystem) + 1)});
        driver->get_description();  // nobody answers, but the last system is at work then
        EXPECT_EQ(driver->get_netaddr_from_config(), 1);
        return carried().netaddr;
    }
    using Bytes4 = std::array<std::uint8_t, 4>;
};

TEST_F(Km5Address, TheSerialNumbersDigitPairsAreTheAddressLowestFirst) {
    EXPECT_EQ(of(12345678), (Bytes4{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(of(1), (Bytes4{0x01, 0, 0, 0}));
    EXPECT_EQ(of(99999999), (Bytes4{0x99, 0x99, 0x99, 0x99}));
}

TEST_F(Km5Address, DigitsBeyondTheEighthAreDropped) {
    EXPECT_EQ(of(4294967295U), (Bytes4{0x95, 0x72, 0x96, 0x94}));
    EXPECT_EQ(of(100000000), (Bytes4{})) << "an address of zeros is taken";
}

TEST_F(Km5Address, SerialZeroHasNoAddress) {
    of(4030201);
    set_serial(*driver, 0);
    EXPECT_EQ(driver->get_netaddr_from_config(), -1);
    EXPECT_EQ(carried().netaddr, (Bytes4{1, 2, 3, 4})) << "the address of before";
    EXPECT_GE(logged("debug", "tc_tmp_sernum = 0, ERROR."), 1);
}

TEST_F(Km5Address, EachSubsystemOfAKm56iHasAnAddressOfItsOwn) {
    EXPECT_EQ(of(12345678, true, 0), (Bytes4{0x78, 0x56, 0x34, 0x10}));
    EXPECT_EQ(of(12345678, true, 1), (Bytes4{0x78, 0x56, 0x34, 0x11}));
    EXPECT_EQ(of(12345678, true, 2), (Bytes4{0x78, 0x56, 0x34, 0x12}));
    EXPECT_GE(logged("debug", "Its KM5-6i, select subsystem"), 1);
}

TEST_F(Km5Address, TheSubsystemIsNoPartOfAnotherMetersAddress) {
    EXPECT_EQ(of(12345678, false, 1), (Bytes4{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(logged("debug", "Its KM5-6i, select subsystem"), 0);
}

TEST_F(Km5Address, TheAddressIsLoggedInHexWithoutLeadingZeros) {
    of(12345678);
    EXPECT_GE(logged("debug", "Subsystem = 0, netaddr = 78_56_34_12"), 1);
    of(1002);
    EXPECT_GE(logged("debug", "Subsystem = 0, netaddr = 2_10_0_0"), 1);
}

}  // namespace
