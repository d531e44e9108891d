// The meter's status byte and the settings of its two tubes.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

class Sa94StatusRead : public Sa94Stand {
  protected:
    Sa94StatusRead() { clear_logs(); }

    void ask(std::uint8_t status) {
        meter.status = status;
        EXPECT_TRUE(driver->getStatus());
    }
};

TEST_F(Sa94StatusRead, AConnectAndADisconnect) {
    ask(0);
    EXPECT_EQ(sent(), (Texts{Connect, Disconnect}));
    EXPECT_EQ(log("messages"), Texts{"Start get Status"});
    EXPECT_EQ(logged("debug", "Start get Status"), 1);
}

TEST_F(Sa94StatusRead, Status0x95) {
    ask(0x95);
    EXPECT_EQ(item("_Status"), "149") << "all eight bits";
    EXPECT_EQ(item("SC"), "1");
    EXPECT_EQ(item("_SubsystemType"), "1");
    EXPECT_EQ(item("_SupportT3"), "1");
    ask(0x6A);
    EXPECT_EQ(item("_Status"), "106");
    EXPECT_EQ(item("SC"), "0");
    EXPECT_EQ(item("_SubsystemType"), "0");
    identify(11, 0);
    ask(0x04);
    EXPECT_EQ(item("_SupportT3"), "0");
}

TEST_F(Sa94StatusRead, IsPublishedBeforeTheConversationIsOver) {
    Texts at_end;
    meter.listener = [&](const std::string& request) {
        if (request == Disconnect && at_end.empty()) at_end = items();
    };
    ask(0);
    EXPECT_EQ(at_end, (Texts{"Connected", "SC", "_Status", "_SubsystemType", "_SupportT3"}));
}

TEST_F(Sa94StatusRead, ASilentMeterKeepsItsOldStatus) {
    ask(0x16);
    machine.disconnect_all(Port);
    machine.forget_exchanges();
    EXPECT_FALSE(driver->getStatus());
    EXPECT_EQ(machine.exchanges().size(), 24U);
    EXPECT_EQ(item("_Status"), "22");
    EXPECT_EQ(connected(), "000000");
}

// ---- tubes

class Sa94Tubes : public Sa94Stand {
  protected:
    Sa94Tubes() { clear_logs(); }

    void ask(std::array<std::uint8_t, 3> first, std::array<std::uint8_t, 3> second) {
        meter.put_tubes(first, second);
        EXPECT_TRUE(driver->getTubesSettings("any model"));
    }
};

TEST_F(Sa94Tubes, AConversationOfThreeRequestsInTheShortForm) {
    identify(11);
    ask({2, 3, 4}, {2, 3, 4});
    EXPECT_EQ(sent(), (Texts{Connect, ReadTubes, Disconnect}));
}

TEST_F(Sa94Tubes, DiametersAndFlowsOfBothTubes) {
    ask({2, 3, 4}, {7, 10, 50});
    EXPECT_EQ(item("DN1"), "25");
    EXPECT_EQ(item("M1max"), "3.200000");
    EXPECT_EQ(item("M1min"), "0.128000");
    EXPECT_EQ(item("DN2"), "150");
    EXPECT_EQ(item("M2max"), "600.000000");
    EXPECT_EQ(item("M2min"), "300.000000");
    EXPECT_EQ(items(), (Texts{"Connected", "DN1", "DN2", "M1max", "M1min", "M2max", "M2min"}));
}

TEST_F(Sa94Tubes, ArePublishedBeforeTheConversationIsOver) {
    Texts at_end;
    meter.listener = [&](const std::string& request) {
        if (request == Disconnect && at_end.empty()) at_end = items();
    };
    ask({2, 3, 4}, {7, 10, 50});
    EXPECT_EQ(at_end, (Texts{"Connected", "DN1", "DN2", "M1max", "M1min", "M2max", "M2min"}));
}

TEST_F(Sa94Tubes, AShortReplyIsTakenAsCodesOfZero) {
    meter.say({0x00});
    meter.say({0x11});
    EXPECT_TRUE(driver->getTubesSettings("SA94/3"));
    EXPECT_EQ(item("DN1"), "10");
    EXPECT_EQ(item("M1max"), "0.250000");
    EXPECT_EQ(item("M1min"), "0.000000");
}

TEST_F(Sa94Tubes, TubesThatCannotBeReadKeepTheirItems) {
    ask({2, 3, 4}, {2, 3, 4});
    meter.heard.clear();
    meter.be_deaf_to(ReadTubes);
    EXPECT_FALSE(driver->getTubesSettings(""));
    EXPECT_EQ(item("M1max"), "3.200000");
    EXPECT_EQ(sent_times(Disconnect), 0);
    EXPECT_EQ(logged("debug", "ReadTubeSettings"), 1) << "of the first time";
}

TEST_F(Sa94Tubes, ASilentMeterIsNotAskedForItsTubes) {
    machine.disconnect_all(Port);
    EXPECT_FALSE(driver->getTubesSettings(""));
    EXPECT_EQ(machine.exchanges().size(), 24U);
    EXPECT_TRUE(logged_in_order("messages", {"Start get tubes settings"}));
}

TEST_F(Sa94Tubes, CodesAreToldInTheDebugLog) {
    ask({1, 2, 3}, {4, 5, 6});
    EXPECT_TRUE(logged_in_order(
        "debug",
        {"Start get tubes settings", "ReadTubeSettings", "Recv 128 bytes: ", "Dumping packet:",
         " 0x77 0x77 0x77 0x77 0x01 0x02 0x03 0x77 0x77 0x77 0x77 0x77 0x04 0x05 0x06 0x77", "Dumping packet done.",
         "DN1 code = 1", "DN2 code = 4", "Q1max code = 2", "Q2max code = 5", "Q1min code = 3", "Q2min code = 6"}));
    EXPECT_EQ(log("messages"), Texts{"Start get tubes settings"});
}

}  // namespace
