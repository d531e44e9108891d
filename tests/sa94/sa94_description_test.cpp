// Who the meter is: its firmware, and what follows from it.

#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

class Sa94Firmware : public Sa94Bench {
  protected:
    Sa94Firmware() {
        for (const char* kind : {"messages", "debug", "general"}) clear_log(kind);
    }

    bool ask(const std::string& text) {
        meter.put_firmware(text);
        return driver->getFirmware();
    }
    /// The id of a meter with this firmware, -1 for an unknown one.
    int id_of(const std::string& text) { return ask(text) ? driver->firmware_id : -1; }
};

TEST_F(Sa94Firmware, AConversationOfThreeRequests) {
    EXPECT_TRUE(ask("M301 1.05"));
    EXPECT_EQ(sent(), (Texts{Connect, ReadFirmware, Disconnect}));
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Firmware, AKnownMeterIsPublishedWithItsModel) {
    EXPECT_TRUE(ask("M301 1.05"));
    EXPECT_EQ(driver->FirmwareText, "M3011.05");
    EXPECT_EQ(driver->firmware_id, 11);
    EXPECT_EQ(driver->model, "SA94/2M");
    EXPECT_TRUE(driver->extended);
    EXPECT_EQ(item("Firmware"), "M3011.05");
    EXPECT_EQ(item("MeterModel"), "SA94/2M");
    EXPECT_EQ(items(), (Texts{"Connected", "Firmware", "MeterModel"})) << "and nothing of an unknown one";
}

TEST_F(Sa94Firmware, EveryFirmwareIsFoundByItsName) {
    struct Row {
        const char* text;
        int id;
        const char* model;
        bool extended;
    };
    constexpr Row rows[] = {
        {"M461-m", 17, "SA94/3A", true}, {"M451-m", 16, "SA94/3A", true}, {"M461", 15, "SA94/3", true},
        {"M451", 14, "SA94/3", true},    {"M411", 13, "SA94/3", true},    {"M401", 12, "SA94/3", true},
        {"M301", 11, "SA94/2M", true},   {"M300", 10, "SA94/2M", false},  {"301", 9, "SA94/2M", true},
        {"300", 8, "SA94/2M", false},    {"MTE1", 7, "SA94/2", true},     {"201", 6, "SA94/2", true},
        {"200", 5, "SA94/2", false},     {"M101", 4, "SA94/1", true},     {"M100", 3, "SA94/1", false},
        {"101", 2, "SA94/1", true},      {"100", 1, "SA94/1", false},     {"SA94_UNKNOWN", 0, "SA94/1", false},
    };
    for (const Row& row : rows) {
        for (const char* tail : {"", " v2"}) {
            EXPECT_TRUE(ask(row.text + std::string(tail))) << row.text;
            EXPECT_EQ(driver->firmware_id, row.id) << row.text;
            EXPECT_EQ(driver->model, row.model) << row.text;
            EXPECT_EQ(driver->extended, row.extended) << row.text;
            EXPECT_EQ(item("MeterModel"), row.model) << row.text;
        }
    }
}

TEST_F(Sa94Firmware, TheLongerNameIsFoundBeforeTheShorterOne) {
    EXPECT_EQ(id_of("M461-m 2.3"), 17);
    EXPECT_EQ(driver->FirmwareText, "M461-m2.3");
    EXPECT_EQ(id_of("M461-n"), 15);
    EXPECT_EQ(id_of("M451-m"), 16);
}

TEST_F(Sa94Firmware, BlanksAreLeftOutBeforeTheComparison) {
    EXPECT_EQ(id_of("M 4 6 1"), 15);
    EXPECT_EQ(item("Firmware"), "M461");
    EXPECT_EQ(id_of("   301"), 9);
    EXPECT_EQ(id_of("M461 -m"), 17);
}

TEST_F(Sa94Firmware, OnlyAPrefixIsCompared) {
    EXPECT_EQ(id_of("301A"), 9);
    EXPECT_EQ(id_of("3010"), 9);
    EXPECT_EQ(id_of("1001"), 1);
    EXPECT_EQ(id_of("A301"), -1) << "the front of the text counts";
}

TEST_F(Sa94Firmware, TheTextHasFourteenBytesFromTheSecondOn) {
    Sa94Bytes block(128, 'z');
    const std::string text = "M301ABCDEFGHIJ";
    meter.put_block(0, 2, block.put(1, {text.begin(), text.end()}).bytes());
    EXPECT_TRUE(driver->getFirmware());
    EXPECT_EQ(item("Firmware"), "M301ABCDEFGHIJ");
}

TEST_F(Sa94Firmware, TheTextEndsAtItsFirstZero) {
    EXPECT_TRUE(ask(std::string("M301\0X1", 7)));
    EXPECT_EQ(item("Firmware"), "M301");
}

TEST_F(Sa94Firmware, ATextThatNoTableHoldsIsUnknown) {
    for (const char* text : {"SA94", "M999", "m301", "M30", "40", "SA94_UNKNOW"}) {
        EXPECT_FALSE(ask(text)) << text;
        EXPECT_EQ(item("Firmware"), text);
        EXPECT_EQ(item("_Firmware"), "Unknown");
        EXPECT_EQ(item("MeterModel"), "(none)");
    }
    EXPECT_EQ(sent().back(), Disconnect) << "the conversation is closed all the same";
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Sa94Firmware, AnEmptyTextIsNotPublishedAndUnknown) {
    EXPECT_FALSE(ask(""));
    EXPECT_EQ(driver->FirmwareText, "");
    EXPECT_EQ(item("Firmware"), "(none)");
    EXPECT_EQ(item("_Firmware"), "Unknown");
    EXPECT_FALSE(ask("              ")) << "nothing but blanks";
    EXPECT_EQ(item("Firmware"), "(none)");
}

TEST_F(Sa94Firmware, AShortReplyIsATextWithItsEndMissing) {
    meter.say({0x00});  // the status
    meter.say({0x77, 'M', '3', '0'});
    EXPECT_FALSE(driver->getFirmware());
    EXPECT_EQ(item("Firmware"), "M30");
    EXPECT_EQ(item("_Firmware"), "Unknown");
}

TEST_F(Sa94Firmware, AnUnknownFirmwareLeavesWhatTheLastGoodOneTold) {
    ASSERT_TRUE(ask("M461-m"));
    EXPECT_FALSE(ask("M999"));
    EXPECT_EQ(driver->FirmwareText, "M999");
    EXPECT_EQ(driver->firmware_id, 17);
    EXPECT_TRUE(driver->extended);
    EXPECT_EQ(driver->model, "SA94/3A");
    EXPECT_EQ(item("MeterModel"), "SA94/3A");
}

TEST_F(Sa94Firmware, ASilentMeterIsNotIdentified) {
    ASSERT_TRUE(ask("M461"));
    machine.disconnect_all(Port);
    machine.forget_exchanges();
    EXPECT_FALSE(driver->getFirmware());
    EXPECT_EQ(machine.exchanges().size(), 24U) << "the connect, and no disconnect";
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(driver->firmware_id, 15);
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
    driver->extended = true;
    EXPECT_TRUE(ask("M301"));
    EXPECT_EQ(sent_times("A0 02"), 1);
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
