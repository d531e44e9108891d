// The current parameters of every firmware: what is asked for, and what becomes of the answers.

#include <bit>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "support/sa94_scene.h"

namespace {

struct Parameter {
    int code;
    std::string item;
    char operation = '*';
    float by = 1.0F;
};
using Parameters = std::vector<Parameter>;

const float Gcal = std::bit_cast<float>(0x3F5C1ECDU);
const float Atmospheres = std::bit_cast<float>(0x41232793U);

/// All but the clock, at a status of 4: the third temperature is there, the first two flows are masses.
const Parameters OneFlow = {{0, "M1", '*', 3600},  {2, "T1"}, {3, "T2"}, {5, "dT"}, {7, "IE1", '*', Gcal}, {8, "IM1"},
                            {12, "IT1", '/', 3600}};
const Parameters Masses = {{0, "M1", '*', 3600},
                           {1, "M2", '*', 3600},
                           {2, "T1"},
                           {3, "T2"},
                           {4, "T3"},
                           {5, "dT"},
                           {7, "IE1", '*', Gcal},
                           {8, "IM1"},
                           {9, "IM2"},
                           {12, "IT1", '/', 3600}};
const Parameters Volumes = {{0, "Q1", '*', 3600},
                            {1, "Q2", '*', 3600},
                            {2, "T1"},
                            {3, "T2"},
                            {4, "T3"},
                            {5, "dT"},
                            {7, "IE1", '*', Gcal},
                            {8, "IQ1"},
                            {9, "IQ2"},
                            {12, "IT1", '/', 3600},
                            {14, "P1", '*', Atmospheres},
                            {15, "P2", '*', Atmospheres}};
const Parameters MassesAndPressures = {{0, "M1", '*', 3600},
                                       {1, "M2", '*', 3600},
                                       {2, "T1"},
                                       {3, "T2"},
                                       {4, "T3"},
                                       {5, "dT"},
                                       {7, "IE1", '*', Gcal},
                                       {8, "IM1"},
                                       {9, "IM2"},
                                       {12, "IT1", '/', 3600},
                                       {14, "P1", '*', Atmospheres},
                                       {15, "P2", '*', Atmospheres}};

const std::map<int, Parameters> Rows = {
    {3, OneFlow},
    {10, Masses},
    {6, Volumes},
    {7, Volumes},
    {9, Volumes},
    {11, MassesAndPressures},
    {12, MassesAndPressures},
    {14, MassesAndPressures},
    {15, MassesAndPressures},
    {16, MassesAndPressures},
    {17, MassesAndPressures},
};

std::string text_of(double value) {
    char text[64];
    std::snprintf(text, sizeof(text), "%f", value);
    return text;
}

class Sa94Parameters : public Sa94Bench {
  protected:
    explicit Sa94Parameters(const std::string& start = "2024-03-02 10:05:00", const std::string& zone = "UTC")
        : Sa94Bench(start, zone) {
        for (const char* kind : {"messages", "debug", "general"}) clear_log(kind);
        meter.put_parameter(10, {0x00, 0x10, 0x04, 0x58});
        meter.put_parameter(11, {0x00, 0x02, 0x03, 0x24});
    }

    void put(unsigned code, float value) {
        const auto bytes = sa94_bytes::real(value);
        meter.put_parameter(code, {bytes[0], bytes[1], bytes[2], bytes[3]});
    }
    static float bare(int code) { return 10.5F + static_cast<float>(code); }
    void read(int firmware_id, int status = 4) {
        identify(firmware_id);
        driver->status_byte = static_cast<std::uint8_t>(status);
        driver->getCurrentParameters();
    }
};

// ---- every firmware

class Sa94ParametersOf : public Sa94Parameters, public ::testing::WithParamInterface<int> {
  protected:
    Sa94ParametersOf() {
        for (int code = 0; code < 16; ++code) {
            if (code != 10 && code != 11) put(static_cast<unsigned>(code), bare(code));
        }
    }
    const Parameters* row() const {
        const auto found = Rows.find(GetParam());
        return found == Rows.end() ? nullptr : &found->second;
    }
};

TEST_P(Sa94ParametersOf, AreAskedForInTheOrderOfTheirCodes) {
    Texts wanted = {Connect};
    if (row() != nullptr) {
        bool clock = false;
        for (const Parameter& parameter : *row()) {
            if (parameter.code > 9 && !clock) {
                wanted.insert(wanted.end(), {"8A", "8B"});
                clock = true;
            }
            char request[4];
            std::snprintf(request, sizeof(request), "%02X", 0x80 + parameter.code);
            wanted.emplace_back(request);
        }
    }
    wanted.emplace_back(Disconnect);
    read(GetParam());
    EXPECT_EQ(sent(), wanted);
}

TEST_P(Sa94ParametersOf, ArePublishedInTheirUnits) {
    read(GetParam());
    std::map<std::string, std::string> wanted = {{"Connected", "1"}, {"_DriverStatus", "2"}};
    if (row() != nullptr) {
        wanted["MDateTime"] = "1709373898";  // 2024-03-02 10:04:58 UTC
        for (const Parameter& parameter : *row()) {
            const float number = bare(parameter.code);
            wanted[parameter.item] =
                text_of(parameter.operation == '/' ? number / parameter.by : number * parameter.by);
        }
    }
    std::map<std::string, std::string> found;
    for (const std::string& name : items()) found[name] = item(name);
    EXPECT_EQ(found, wanted);
    EXPECT_EQ(driver->meter_time, row() == nullptr ? 0 : 1709373898);
    EXPECT_TRUE(driver->current_values.empty());
}

INSTANTIATE_TEST_SUITE_P(Firmware, Sa94ParametersOf, ::testing::Range(0, 18), ::testing::PrintToStringParamName());

TEST(Sa94ParametersOfNobody, SevenFirmwaresHaveNone) {
    for (const int id : {0, 1, 2, 4, 5, 8, 13}) EXPECT_FALSE(Rows.contains(id)) << id;
    EXPECT_EQ(Rows.size(), 11U);
}

// ---- a pass

TEST_F(Sa94Parameters, ByHand) {
    meter.put_parameter(0, {0x76, 0x23, 0xD7, 0x0A});   // 0.000625 = 1.28 * 2^-11
    meter.put_parameter(2, {0x87, 0x0E, 0x80, 0x00});   // 71.25
    meter.put_parameter(12, {0x8B, 0x61, 0x00, 0x00});  // 1800
    read(10);
    EXPECT_EQ(item("M1"), "2.250000");
    EXPECT_EQ(item("T1"), "71.250000");
    EXPECT_EQ(item("IT1"), "0.500000");
    EXPECT_EQ(item("M2"), "0.000000");
}

TEST_F(Sa94Parameters, TheStageIsToldFirst) {
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
    EXPECT_EQ(driver->meter_time, 943956298);
}

TEST_F(Sa94Parameters, ALostTimeIsMidnight) {
    meter.be_deaf_to("8A");
    read(10);
    EXPECT_EQ(item("MDateTime"), "1709337600");
}

TEST_F(Sa94Parameters, AClockThatShowsNoTimeIsNotPublished) {
    driver->meter_time = 5;
    meter.put_parameter(11, {0x00, 0xFF, 0xFF, 0xFF});
    read(10);
    EXPECT_EQ(item("MDateTime"), "(none)");
    EXPECT_EQ(driver->meter_time, 5) << "as it was";
}

TEST_F(Sa94Parameters, TheFirstByteOfTheClockCarriesNothing) {
    meter.put_parameter(10, {0x99, 0x10, 0x04, 0x58});
    meter.put_parameter(11, {0x99, 0x02, 0x03, 0x24});
    read(10);
    EXPECT_EQ(item("MDateTime"), "1709373898");
}

TEST_F(Sa94Parameters, ASilentMeterHasNothingButZeros) {
    put(2, 71.25F);
    machine.disconnect_all(Port);
    read(3);
    EXPECT_EQ(machine.exchanges().size(), 24U * (1 + 9) + 1) << "each request is tried in spite of the others";
    EXPECT_EQ(item("T1"), "0.000000");
    EXPECT_EQ(item("MDateTime"), "943920000") << "midnight of 1999-11-30";
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Sa94Parameters, AConnectThatFailsIsNotLookedAt) {
    put(2, 71.25F);
    meter.be_deaf_to(Connect);
    read(3);
    EXPECT_EQ(sent_times(Connect), 24);
    EXPECT_EQ(item("T1"), "71.250000");
}

TEST_F(Sa94Parameters, AMeterWithoutParametersKeepsItsTime) {
    driver->meter_time = 5;
    read(13);
    EXPECT_EQ(sent(), (Texts{Connect, Disconnect}));
    EXPECT_EQ(driver->meter_time, 5);
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

TEST_F(Sa94Parameters, TwoCodesWithoutANameAreNeverAskedFor) {
    for (const auto& [id, row] : Rows) {
        read(id);
        EXPECT_EQ(sent_times("86"), 0) << id;
        EXPECT_EQ(sent_times("8D"), 0) << id;
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
