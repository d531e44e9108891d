// The meter's status byte and the settings of its two tubes.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

class Sa94Status : public Sa94Bench {
  protected:
    Sa94Status() {
        for (const char* kind : {"messages", "debug", "general"}) clear_log(kind);
    }

    /// Reads the status of a meter with this firmware.
    void ask(int firmware_id, int status) {
        identify(firmware_id);
        meter.status = static_cast<std::uint8_t>(status);
        EXPECT_TRUE(driver->getStatus());
    }
    bool measures_t3(int firmware_id, int status) {
        ask(firmware_id, status);
        EXPECT_EQ(item("_SupportT3"), driver->support_t3 ? "1" : "0");
        return driver->support_t3;
    }
};

TEST_F(Sa94Status, AConnectAndADisconnect) {
    ask(11, 0);
    EXPECT_EQ(sent(), (Texts{Connect, Disconnect}));
    EXPECT_EQ(log("messages"), Texts{"Start get Status"});
    EXPECT_EQ(logged("debug", "Start get Status"), 1);
}

TEST_F(Sa94Status, Status0x95) {
    ask(11, 0x95);
    EXPECT_EQ(item("_Status"), "149") << "all eight bits";
    EXPECT_EQ(driver->status_byte, 0x15) << "without the top one";
    EXPECT_EQ(driver->sc_flag, 1);
    EXPECT_EQ(item("SC"), "1");
    EXPECT_EQ(driver->subsystem_type, 1);
    EXPECT_EQ(item("_SubsystemType"), "1");
}

TEST_F(Sa94Status, StatusZero) {
    ask(11, 0);
    EXPECT_EQ(item("_Status"), "0");
    EXPECT_EQ(driver->status_byte, 0);
    EXPECT_EQ(driver->sc_flag, 0);
    EXPECT_EQ(item("SC"), "0");
    EXPECT_EQ(driver->subsystem_type, 0);
    EXPECT_EQ(item("_SubsystemType"), "0");
    EXPECT_EQ(items(), (Texts{"Connected", "SC", "_Status", "_SubsystemType", "_SupportT3"}));
}

TEST_F(Sa94Status, IsPublishedBeforeTheConversationIsOver) {
    Texts at_end;
    meter.listener = [&](const std::string& request) {
        if (request == Disconnect && at_end.empty()) at_end = items();
    };
    ask(11, 0);
    EXPECT_EQ(at_end, (Texts{"Connected", "SC", "_Status", "_SubsystemType", "_SupportT3"}));
}

TEST_F(Sa94Status, EachBitByItself) {
    for (int bit = 1; bit <= 0x80; bit *= 2) {
        ask(11, bit);
        EXPECT_EQ(driver->sc_flag, bit == 16 ? 1 : 0) << bit;
        EXPECT_EQ(driver->subsystem_type, bit == 4 ? 1 : 0) << bit;
        EXPECT_EQ(driver->status_byte, bit & 0x7F) << bit;
        EXPECT_EQ(item("_Status"), std::to_string(bit));
        ask(11, 0xFF - bit);
        EXPECT_EQ(driver->sc_flag, bit == 16 ? 0 : 1) << bit;
        EXPECT_EQ(driver->subsystem_type, bit == 4 ? 0 : 1) << bit;
    }
}

TEST_F(Sa94Status, TheOldestFirmwaresMeasureAThirdTemperatureWhateverTheStatus) {
    for (int id = 0; id < 4; ++id) {
        for (const int status : {0x00, 0x02, 0x04, 0xFF}) EXPECT_TRUE(measures_t3(id, status)) << id;
    }
}

TEST_F(Sa94Status, FirmwaresUpTo13MeasureItByBit2) {
    for (int id = 4; id < 14; ++id) {
        EXPECT_TRUE(measures_t3(id, 0x02)) << id;
        EXPECT_TRUE(measures_t3(id, 0xFF)) << id;
        EXPECT_FALSE(measures_t3(id, 0x04)) << id;
        EXPECT_FALSE(measures_t3(id, 0x00)) << id;
        EXPECT_FALSE(measures_t3(id, 0xFD)) << id;
    }
}

TEST_F(Sa94Status, FirmwaresFrom14OnMeasureItByBit4) {
    for (int id = 14; id < 18; ++id) {
        EXPECT_TRUE(measures_t3(id, 0x04)) << id;
        EXPECT_TRUE(measures_t3(id, 0xFF)) << id;
        EXPECT_FALSE(measures_t3(id, 0x02)) << id;
        EXPECT_FALSE(measures_t3(id, 0x00)) << id;
        EXPECT_FALSE(measures_t3(id, 0xFB)) << id;
    }
}

TEST_F(Sa94Status, ASilentMeterKeepsItsOldStatus) {
    ask(11, 0x16);
    machine.disconnect_all(Port);
    machine.forget_exchanges();
    EXPECT_FALSE(driver->getStatus());
    EXPECT_EQ(machine.exchanges().size(), 24U);
    EXPECT_EQ(driver->status_byte, 0x16);
    EXPECT_EQ(driver->sc_flag, 1);
    EXPECT_EQ(item("_Status"), "22");
    EXPECT_EQ(connected(), "000000");
}

// ---- tubes

class Sa94Tubes : public Sa94Bench {
  protected:
    Sa94Tubes() {
        for (const char* kind : {"messages", "debug", "general"}) clear_log(kind);
    }

    void ask(std::array<std::uint8_t, 3> first, std::array<std::uint8_t, 3> second) {
        meter.put_tubes(first, second);
        EXPECT_TRUE(driver->getTubesSettings("any model"));
    }
};

TEST_F(Sa94Tubes, AConversationOfThreeRequestsInTheShortForm) {
    driver->extended = true;
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

TEST_F(Sa94Tubes, Code11IsADiameterWithoutAFlow) {
    ask({11, 0, 100}, {0, 11, 25});
    EXPECT_EQ(item("DN1"), "6");
    EXPECT_EQ(item("M1max"), "-1.000000");
    EXPECT_EQ(item("M1min"), "-1.000000") << "a percentage of it";
    EXPECT_EQ(item("DN2"), "10");
    EXPECT_EQ(item("M2max"), "-1.000000");
    EXPECT_EQ(item("M2min"), "-0.250000");
}

TEST_F(Sa94Tubes, CodesBeyondAllTables) {
    ask({255, 255, 0}, {0, 0, 255});
    EXPECT_EQ(item("DN1"), "10");
    EXPECT_EQ(item("M1max"), "-1.000000");
    EXPECT_EQ(item("DN2"), "10");
    EXPECT_EQ(item("M2max"), "0.250000");
    EXPECT_EQ(item("M2min"), "0.637500");
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
