// The current parameters: what becomes of the answers. What each firmware is asked for stands in sa94_pass_test.cpp.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

class Sa94Parameters : public Sa94Stand {
  protected:
    explicit Sa94Parameters(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC")
        : Sa94Stand(start, zone) {
        clear_logs();
        meter.put_parameter(10, {0x00, 0x10, 0x04, 0x58});
        meter.put_parameter(11, {0x00, 0x02, 0x03, 0x24});
    }

    void put(unsigned code, float value) {
        const auto bytes = sa94_bytes::real(value);
        meter.put_parameter(code, {bytes[0], bytes[1], bytes[2], bytes[3]});
    }
    void read(int firmware_id, int status = 4) {
        if (known != std::pair{firmware_id, status}) identify(firmware_id, status);
        known = {firmware_id, status};
        driver->getCurrentParameters();
    }

    std::pair<int, int> known;  ///< firmware and status
};

// ---- a pass

TEST_F(Sa94Parameters, TheStageIsToldFirst) {
    read(10);
    scene.remove("/tmp/m1/1/tc_items/_DriverStatus");
    clear_logs();
    std::string at_first;
    meter.listener = [&](const std::string&) {
        if (at_first.empty()) at_first = item("_DriverStatus");
    };
    read(10);
    EXPECT_EQ(at_first, "2");
    EXPECT_EQ(log("messages"), Texts{"Get Current Parameters"});
}

TEST_F(Sa94Parameters, ValuesAreWrittenBehindTheConversationAndTheClockWithin) {
    std::string t1;
    std::string clock;
    meter.listener = [&](const std::string& request) {
        if (request != Disconnect) return;
        t1 = item("T1");
        clock = item("MDateTime");
    };
    read(10);
    EXPECT_EQ(t1, "(none)");
    EXPECT_EQ(clock, "1709373898");
}

TEST_F(Sa94Parameters, ALostAnswerIsPublishedAsZero) {
    for (const unsigned code : {2U, 3U}) put(code, 71.25F);
    read(10);
    meter.be_deaf_to("82");
    read(10);
    EXPECT_EQ(sent_times("82"), 1 + 24);
    EXPECT_EQ(item("T1"), "0.000000");
    EXPECT_EQ(item("T2"), "71.250000");
    EXPECT_EQ(connected(), "111111") << "the requests behind it were answered";
}

TEST_F(Sa94Parameters, ALostDateIsTheEndOfNovember1999) {
    meter.be_deaf_to("8B");
    read(10);
    EXPECT_EQ(item("MDateTime"), "943956298") << "1999-11-30 10:04:58 UTC";
}

TEST_F(Sa94Parameters, ALostTimeIsMidnight) {
    meter.be_deaf_to("8A");
    read(10);
    EXPECT_EQ(item("MDateTime"), "1709337600");
}

TEST_F(Sa94Parameters, AClockThatShowsNoTimeIsNotPublished) {
    meter.put_parameter(11, {0x00, 0xFF, 0xFF, 0xFF});
    read(10);
    EXPECT_EQ(item("MDateTime"), "(none)");
}

TEST_F(Sa94Parameters, ASilentMeterHasNothingButZeros) {
    put(2, 71.25F);
    read(3);
    machine.forget_exchanges();
    machine.disconnect_all(Port);
    read(3);
    EXPECT_EQ(machine.exchanges().size(), 24U * (1 + 9) + 1) << "each request is tried in spite of the others";
    EXPECT_EQ(item("T1"), "0.000000");
    EXPECT_EQ(item("MDateTime"), "943920000") << "midnight of 1999-11-30";
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Sa94Parameters, AConnectThatFailsIsNotLookedAt) {
    put(2, 71.25F);
    read(3);
    scene.remove("/tmp/m1/1/tc_items/T1");
    meter.heard.clear();
    meter.be_deaf_to(Connect);
    read(3);
    EXPECT_EQ(sent_times(Connect), 24);
    EXPECT_EQ(item("T1"), "71.250000");
}

TEST_F(Sa94Parameters, AMeterWithoutParametersHasNoClock) {
    read(13);
    EXPECT_EQ(sent(), (Texts{Connect, Disconnect}));
    EXPECT_EQ(item("MDateTime"), "(none)");
}

// ---- names for good

TEST_F(Sa94Parameters, AThirdTemperatureThatWasGoneOnceStaysGone) {
    put(4, 20.5F);
    read(10, 0x02);
    EXPECT_EQ(item("T3"), "(none)");
    EXPECT_EQ(sent_times("84"), 1) << "it is asked for all the same";
    read(10, 0x04);
    EXPECT_EQ(item("T3"), "(none)");
    EXPECT_EQ(sent_times("84"), 2);
}

TEST_F(Sa94Parameters, AThirdTemperatureThatWasThereMayGo) {
    put(4, 20.5F);
    read(10, 0x04);
    EXPECT_EQ(item("T3"), "20.500000");
    put(4, 30.5F);
    read(10, 0x00);
    EXPECT_EQ(item("T3"), "20.500000") << "of the pass before";
}

TEST_F(Sa94Parameters, WhatIsGoneInOneFirmwareIsThereInAnother) {
    put(4, 20.5F);
    read(10, 0x00);
    read(11, 0x04);
    EXPECT_EQ(item("T3"), "20.500000");
}

TEST_F(Sa94Parameters, NamesAreGoneForAllMetersOfTheProcess) {
    put(4, 20.5F);
    read(10, 0x00);
    start_driver();
    read(10, 0x04);
    EXPECT_EQ(item("T3"), "(none)");
}

TEST_F(Sa94Parameters, FlowsAreVolumesByTheStatusOfTheFirstPass) {
    put(8, 1.5F);
    put(9, 2.5F);
    for (const int id : {14, 15, 16, 17}) {
        scene.remove("/tmp/m1");
        scene.make_tree(Uuid);
        read(id, 0x44);
        EXPECT_EQ(item("IQ1"), "1.500000") << id;
        EXPECT_EQ(item("IQ2"), "2.500000") << id;
        EXPECT_EQ(item("IM1"), "(none)") << id;
        read(id, 0x04);
        EXPECT_EQ(item("IM1"), "(none)") << "the name has been given";
    }
}

TEST_F(Sa94Parameters, FlowsAreMassesWithOneBitOnly) {
    for (const int status : {0x00, 0x04, 0x40}) {
        const Sa94NamesKept kept;
        scene.remove("/tmp/m1");
        scene.make_tree(Uuid);
        read(14, status);
        EXPECT_EQ(item("IM1"), "0.000000") << status;
        EXPECT_EQ(item("IM2"), "0.000000") << status;
        EXPECT_EQ(item("IQ1"), "(none)") << status;
    }
}

class Sa94ParametersInSummer : public Sa94Parameters {
  protected:
    Sa94ParametersInSummer() : Sa94Parameters("2024-07-15 12:05:00", "CET-1CEST,M3.5.0,M10.5.0/3") {}
};

TEST_F(Sa94ParametersInSummer, TheClockIsStandardTimeInSummerToo) {
    meter.put_parameter(10, {0x00, 0x11, 0x04, 0x58});
    meter.put_parameter(11, {0x00, 0x15, 0x07, 0x24});
    read(10);
    EXPECT_EQ(item("MDateTime"), "1721037898") << "2024-07-15 10:04:58 UTC";
}

}  // namespace
