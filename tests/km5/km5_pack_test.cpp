// The whole pack of requests in one go, and the question for the meter's own address: the forms of the request engine
// that no pass uses.

#include <vector>

#include "support/km5_scene.h"

namespace {

using km5_frames::answer;
using sim::ByteVector;

class Km5Packs : public Km5Stand {
  protected:
    Km5Packs() {
        machine.connect(Port, meter);
        start_driver();
        for (const std::uint8_t cmd : {8, 9, 0}) {
            init_request(pack.requests.emplace_back());
            pack.requests.back().cmd = cmd;
        }
    }

    static ByteVector bad() {
        ByteVector bytes = answer(8, {1});
        bytes.back() ^= 1;
        return bytes;
    }

    Km5Script meter;
    KM5_pack pack;
};

TEST_F(Km5Packs, AllRequestsOfAPackAreAnswered) {
    meter.say(answer(8, {1})).say(answer(9, {2})).say(answer(0, {3}));
    EXPECT_TRUE(driver->do_request(pack));
    EXPECT_EQ(asked(requests()), (std::vector<std::vector<int>>{{8, 0}, {9, 0}, {0, 0}}));
    EXPECT_EQ(meter.heard[0], km5_frames::request(Address, 8));
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("debug", "Start 3 requests."), 1);
    EXPECT_EQ(logged("debug", "Request #0, cmd: 8 : Success."), 1);
    EXPECT_EQ(logged("debug", "Request #2, cmd: 0 : Success."), 1);
    EXPECT_EQ(logged("debug", "Do_request: return true"), 1);
    EXPECT_EQ(pack.requests[1].recv_buf[5], 2);
}

TEST_F(Km5Packs, AnErrorAnswerIsKeptAsTheCommandOfItsRequest) {
    meter.say(answer(0xEF)).say(answer(9)).say(answer(0xFB));
    EXPECT_TRUE(driver->do_request(pack));
    EXPECT_EQ(meter.heard.size(), 3U);
    EXPECT_EQ(pack.requests[0].cmd, 0xEF);
    EXPECT_EQ(pack.requests[1].cmd, 9);
    EXPECT_EQ(pack.requests[2].cmd, 0xFB);
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Km5Packs, AFailedAnswerIsAskedForAgainWithItsReason) {
    meter.say(bad()).keep_silent().say(answer(8)).say(answer(9)).say(answer(0));
    EXPECT_TRUE(driver->do_request(pack));
    EXPECT_EQ(meter.heard.size(), 5U);
    EXPECT_EQ(logged("debug", "Request #0, cmd: 8, RcvLng: 8, error: CheckSum : Failure."), 1);
    EXPECT_EQ(logged_parts("debug", {"Request #0, cmd: 8, RcvLng: 0", " : Failure."}), 1);
}

TEST_F(Km5Packs, ASilentMeterStopsThePackAtItsFirstRequest) {
    EXPECT_FALSE(driver->do_request(pack));
    EXPECT_EQ(meter.heard.size(), 22U) << "one exchange, and another for each of 21 errors";
    for (const ByteVector& request : meter.heard) EXPECT_EQ(request[4], 8);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(logged("debug", "Request #0, cmd: 8 : BRAKE. "), 1);
    EXPECT_EQ(logged("debug", "Do_request: return false"), 1);
}

TEST_F(Km5Packs, ErrorsOfOneRequestDoNotCountForTheNext) {
    meter.say(answer(8));
    meter.keep_silent(20).say(answer(9)).keep_silent(20).say(answer(0));
    EXPECT_TRUE(driver->do_request(pack));
    EXPECT_EQ(meter.heard.size(), 43U);
}

TEST_F(Km5Packs, AnErrorAnswerAtTheLastMomentLetsThePackGoOn) {
    meter.say(bad(), 21).say(answer(0xF1)).say(answer(9)).say(answer(0));
    EXPECT_TRUE(driver->do_request(pack));
    EXPECT_EQ(meter.heard.size(), 24U);
    EXPECT_EQ(pack.requests[0].cmd, 0xF1);
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged_parts("debug", {"Request #0", "Success."}), 0) << "21 errors are no success to tell of";
    EXPECT_EQ(logged("debug", "Request #1, cmd: 9 : Success."), 1);
}

TEST_F(Km5Packs, AGoodAnswerBehindTheLastErrorComesTooLate) {
    meter.say(bad(), 21).say(answer(8)).say(answer(9));
    EXPECT_FALSE(driver->do_request(pack));
    EXPECT_EQ(meter.heard.size(), 22U);
    EXPECT_EQ(pack.requests[0].cmd, 8);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(logged("debug", "Request #0, cmd: 8 : BRAKE. "), 1);
    EXPECT_EQ(logged_parts("debug", {"Success."}), 0);
    EXPECT_EQ(logged("debug", "Do_request: return false"), 1);
}

TEST_F(Km5Packs, AMeterThatFallsSilentIsNoLongerConnected) {
    meter.say(answer(8)).say(answer(9)).say(answer(0));
    ASSERT_TRUE(driver->do_request(pack));
    ASSERT_EQ(connected(), "111111");
    pack.requests.resize(1);
    EXPECT_FALSE(driver->do_request(pack));
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Km5Packs, SilenceThatPassesTheSumsIsNamedAsSuch) {
    // To the address 0 the request of command 0 is sixteen zeros, and so are the sums that silence is checked against.
    start_driver({.serial = 100000000});
    pack.requests.resize(1);
    init_request(pack.requests[0]);
    meter.keep_silent().say(answer(0));
    EXPECT_TRUE(driver->do_request(pack));
    EXPECT_EQ(logged("debug", "Request #0, cmd: 0, RcvLng: 0, error: rcv_lng == 0 : Failure."), 1);
}

TEST_F(Km5Packs, AnEmptyPackIsAnsweredAndConnected) {
    pack.requests.clear();
    EXPECT_TRUE(driver->do_request(pack));
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("debug", "Start 0 requests."), 1);
}

TEST_F(Km5Packs, AMeterTellsItsAddressItself) {
    start_driver({.serial = 100000000});
    meter.say(answer(0, {0x21, 0x43, 0x05, 0x07, 1}));
    EXPECT_TRUE(driver->get_netaddr());
    EXPECT_EQ(carried().netaddr, (std::array<std::uint8_t, 4>{0x21, 0x43, 0x05, 0x07}));
    EXPECT_EQ(logged("debug", "Start get netaddr(auto recieve serial number)"), 1);
    EXPECT_EQ(logged("debug", "Your network address: 21 43 05 07"), 1);
}

TEST_F(Km5Packs, AMeterThatDoesNotTellItsAddressLeavesTheOldOne) {
    EXPECT_FALSE(driver->get_netaddr());
    EXPECT_EQ(carried().netaddr, Address);
}

}  // namespace
