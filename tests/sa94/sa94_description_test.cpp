// Who the meter is: its firmware, and what follows from it.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

class Sa94Firmware : public Sa94Stand {
  protected:
    Sa94Firmware() { clear_logs(); }

    bool ask(const std::string& text) {
        meter.put_firmware(text);
        return driver->getFirmware();
    }
};

TEST_F(Sa94Firmware, AConversationOfThreeRequests) {
    EXPECT_TRUE(ask("M301 1.05"));
    EXPECT_EQ(sent(), (Texts{Connect, ReadFirmware, Disconnect}));
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Firmware, AKnownMeterIsPublishedWithItsModel) {
    EXPECT_TRUE(ask("M301 1.05"));
    EXPECT_EQ(item("Firmware"), "M3011.05");
    EXPECT_EQ(item("MeterModel"), "SA94/2M");
    EXPECT_EQ(items(), (Texts{"Connected", "Firmware", "MeterModel"})) << "and nothing of an unknown one";
}

TEST_F(Sa94Firmware, AnEmptyTextIsNotPublishedAndUnknown) {
    EXPECT_FALSE(ask(""));
    EXPECT_EQ(item("Firmware"), "(none)");
    EXPECT_EQ(item("_Firmware"), "Unknown");
    EXPECT_FALSE(ask("              ")) << "nothing but blanks";
    EXPECT_EQ(item("Firmware"), "(none)");
}

TEST_F(Sa94Firmware, AnUnknownFirmwareLeavesWhatTheLastGoodOneTold) {
    ASSERT_TRUE(ask("M461-m"));
    EXPECT_FALSE(ask("M999"));
    EXPECT_EQ(item("Firmware"), "M999");
    EXPECT_EQ(item("_Firmware"), "Unknown");
    EXPECT_EQ(item("MeterModel"), "SA94/3A");
    EXPECT_EQ(sent().back(), Disconnect) << "the conversation is closed all the same";
    EXPECT_EQ(connected(), "111111");
    SA94Request request(1);
    driver->ReadArchiveRecord(request, 2, 3);
    EXPECT_EQ(sent().back(), "B7 50 03") << "its memory is still the large one";
}

TEST_F(Sa94Firmware, ASilentMeterIsNotIdentified) {
    ASSERT_TRUE(ask("M461"));
    machine.disconnect_all(Port);
    machine.forget_exchanges();
    EXPECT_FALSE(driver->getFirmware());
    EXPECT_EQ(machine.exchanges().size(), 24U) << "the connect, and no disconnect";
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(item("_Firmware"), "(none)");
}

TEST_F(Sa94Firmware, AMeterThatDoesNotTellItsFirmwareIsLeftWithoutADisconnect) {
    meter.be_deaf_to(ReadFirmware);
    EXPECT_FALSE(driver->getFirmware());
    EXPECT_EQ(sent_times(Connect), 1);
    EXPECT_EQ(sent_times(ReadFirmware), 24);
    EXPECT_EQ(sent_times(Disconnect), 0);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(logged_start("messages", "Firmware text = "), 0);
}

TEST_F(Sa94Firmware, TheFirmwareIsReadInTheShortFormFromAMeterWithLongSegmentsToo) {
    EXPECT_TRUE(ask("M301") && ask("M301"));
    EXPECT_EQ(sent_times("A0 02"), 2);
}

TEST_F(Sa94Firmware, TheSearchIsToldInBothLogs) {
    ASSERT_TRUE(ask("M461 2.3"));
    const Texts told = {"Start Get Firmware",          "Firmware text = M4612.3",
                        "Versions[i].name.size() = 6", "FirmwareText.substr(0, 6) = M4612.",
                        "Versions[i].name.size() = 6", "FirmwareText.substr(0, 6) = M4612.",
                        "Versions[i].name.size() = 4", "FirmwareText.substr(0, 4) = M461",
                        "Find version = M461",         "Firmware id = 15",
                        "SA94 Model = SA94/3",         "Archive Statistics are Extended"};
    EXPECT_EQ(log("messages"), told);
    EXPECT_TRUE(logged_in_order("debug", told));
    EXPECT_TRUE(logged_in_order("debug", {"Compare firmware with M461-m", "Compare firmware with M451-m",
                                          "Compare firmware with M461", "Find version = M461"}));
    EXPECT_EQ(logged_start("debug", "Compare firmware with "), 3);
    EXPECT_TRUE(log("general").empty());
}

TEST_F(Sa94Firmware, ShortSegmentsAreToldWithABlankMore) {
    ASSERT_TRUE(ask("M300"));
    EXPECT_EQ(logged("messages", "Archive Statistics are  Not Extended"), 1);
    EXPECT_EQ(logged("debug", "Archive Statistics are  Not Extended"), 1);
}

TEST_F(Sa94Firmware, AnUnknownFirmwareIsToldInBothLogsBehindAllRows) {
    ask("SA94");
    for (const char* kind : {"messages", "debug"}) {
        EXPECT_EQ(logged(kind, "Unknown heat-meter firmware. Values can not be read :( ."), 1);
        EXPECT_EQ(logged_start(kind, "Versions[i].name.size() = "), 18);
        EXPECT_EQ(logged(kind, "FirmwareText.substr(0, 12) = SA94"), 1);
        EXPECT_EQ(logged(kind, "FirmwareText.substr(0, 3) = SA9"), 6);
        EXPECT_EQ(logged_start(kind, "Find version = "), 0);
    }
}

TEST_F(Sa94Firmware, TheConversationIsOverBeforeTheSearch) {
    ask("M461");
    EXPECT_TRUE(logged_in_order(
        "debug", {"Firmware text = M461", "Response must not be, return.", "Compare firmware with M461-m"}));
}

TEST_F(Sa94Firmware, TheFirmwareIsPublishedBeforeTheConversationIsOverAndTheModelBehindIt) {
    Texts at_end;
    meter.listener = [&](const std::string& request) {
        if (request == Disconnect && at_end.empty()) at_end = items();
    };
    ask("M461");
    EXPECT_EQ(at_end, (Texts{"Connected", "Firmware"}));
    EXPECT_EQ(items(), (Texts{"Connected", "Firmware", "MeterModel"}));
}

// ---- the whole description

class Sa94Description : public Sa94Firmware {
  protected:
    Sa94Description() {
        meter.put_firmware("M301");
        meter.put_tubes({2, 3, 4}, {3, 3, 10});
    }
};

TEST_F(Sa94Description, FirmwareThenTubesThenStatusEachInAConversationOfItsOwn) {
    EXPECT_TRUE(driver->getDescription());
    EXPECT_EQ(sent(), (Texts{Connect, ReadFirmware, Disconnect, Connect, ReadTubes, Disconnect, Connect, Disconnect}));
    EXPECT_EQ(item("_DriverStatus"), "1");
    EXPECT_TRUE(logged_in_order("messages", {"Start Get Firmware", "Start get tubes settings", "Start get Status"}));
}

TEST_F(Sa94Description, TheStageIsPublishedBeforeTheFirstRequest) {
    std::string at_first;
    meter.listener = [&](const std::string&) {
        if (at_first.empty()) at_first = item("_DriverStatus");
    };
    driver->getDescription();
    EXPECT_EQ(at_first, "1");
}

TEST_F(Sa94Description, AnUnknownFirmwareEndsTheDescription) {
    meter.put_firmware("M999");
    EXPECT_FALSE(driver->getDescription());
    EXPECT_EQ(sent(), (Texts{Connect, ReadFirmware, Disconnect}));
}

TEST_F(Sa94Description, TubesThatCannotBeReadDoNotEndTheDescription) {
    meter.be_deaf_to(ReadTubes);
    EXPECT_TRUE(driver->getDescription());
    EXPECT_EQ(sent_times(ReadTubes), 24);
    EXPECT_EQ(item("M1max"), "(none)");
    EXPECT_EQ(item("_Status"), "0");
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Description, AStatusThatCannotBeReadEndsTheDescription) {
    meter.listener = [this](const std::string& request) {
        if (request == ReadTubes) meter.be_deaf_to(Connect);
    };
    EXPECT_FALSE(driver->getDescription());
    EXPECT_EQ(item("DN1"), "25");
    EXPECT_EQ(item("_Status"), "(none)");
    EXPECT_EQ(connected(), "000000");
}

}  // namespace
