// The current values: which page feeds which item, by model, firmware and system type.

#include <map>
#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

using sim::ByteVector;

/// What stands at a position of the pages below.
float place(unsigned command, unsigned page, unsigned position) {
    return static_cast<float>(command * 1000 + page * 100 + position);
}

/// A page of sixteen floats that tell where they stand.
ByteVector page_of_places(std::uint8_t command, unsigned page) {
    ByteVector payload;
    for (unsigned position = 5; position <= 65; position += 4) {
        km5_frames::put_float(payload, position, place(command, page, position));
    }
    return km5_frames::answer(command, payload);
}

/// The firmware in hundredths.
struct Kind {
    int model;
    int firmware;
    bool att;
    bool gvs;
};

/// What a pass publishes, written down row by row as the meters' pages stand; a later row replaces an earlier one.
std::map<std::string, std::string> expected_items(const Kind& kind) {
    std::map<std::string, std::string> items;
    const auto page = [&items](unsigned command, unsigned number, std::map<unsigned, const char*> names) {
        for (const auto& [position, name] : names) {
            items[name] = std::to_string(place(command, number, position));
        }
    };
    const bool gvs = kind.gvs && kind.model == 1;
    const int firmware = kind.att ? 999 : kind.firmware;
    page(44, 1, {{5, "IE1"}});
    page(44, 2, {{5, "IM1"}});
    page(44, 3, {{5, "IM2"}});
    page(44, 4, {{5, "IT1"}});
    page(44, 5, {{5, "Q1"}});
    if (firmware >= 158) {
        page(44, 5, {{9, "M1"}, {13, "P1"}, {17, gvs ? "P3" : "P2"}, {21, "T1"}, {25, gvs ? "T3" : "T2"}});
    }
    page(44, 6, {{5, "M1"}});
    if (firmware >= 159) page(44, 7, {{5, "Q2"}, {9, "M2"}, {13, "Q4"}, {17, "M4"}, {21, "T5"}, {25, "T4"}});
    if (firmware >= 186) page(44, 8, {{9, "M5"}});
    if (firmware >= 159) {
        page(123, 0, {{5, "M1"}, {9, "M2"}, {13, "M4"}, {17, "T1"}, {21, gvs ? "T3" : "T2"}, {25, gvs ? "T2" : "T3"}});
        page(123, 0, {{29, "Ta"}, {33, "P1"}, {37, gvs ? "P3" : "P2"}, {41, "P4"}, {49, "T4"}, {53, "T5"}});
        page(123, 0, {{61, "IE2"}, {65, "T6"}});
    }
    // Firmware 2.10 in single precision is below the gate of 2.1.
    if (firmware > 210) {
        const int model = kind.model;
        page(95, 0, {{13, "IM1"}, {17, model == 3 ? "IM3" : "IM2"}});
        page(95, 0, {{21, model == 5 || model == 6 ? "IE4" : "Vi"}});
        page(95, 0, {{25, model == 6 ? "IM4" : "IQ1"}, {29, model == 6 ? "IM5" : "IQ2"}, {33, "IE1"}});
        page(95, 0, {{37, "IT1"}});  // Tp, under the name that another page has used
    }
    if (gvs && firmware >= 158) items["GVSConversion"] = "1.000000";
    return items;
}

/// What the driver makes of the pages, decoded in their order and under the names outside.
std::map<std::string, std::string> published(const Kind& kind) {
    const KM5_meter meter{.model = kind.model, .version = static_cast<float>(kind.firmware / 100.0), .isATT = kind.att};
    std::map<std::string, float> values;
    const auto decode = [&](std::uint8_t command, int page) {
        const ByteVector answer = page_of_places(command, static_cast<unsigned>(page));
        for (const auto& [name, value] : km5::decode_page(command, page, answer, meter, kind.gvs)) values[name] = value;
    };
    for (int page = 1; page <= 8; ++page) decode(44, page);
    decode(123, 0);
    decode(95, 0);
    std::map<std::string, std::string> items;
    for (const auto& [name, value] : values) items[opc_name(opc_moment_names, name)] = std::to_string(value);
    return items;
}

class Km5ValuesOfModel : public ::testing::TestWithParam<int> {};

TEST_P(Km5ValuesOfModel, EachPageFeedsItsItemsAsTheFirmwareAllows) {
    for (const int firmware : {0, 100, 157, 158, 159, 185, 186, 209, 210, 211, 300}) {
        for (const bool gvs : {false, true}) {
            const Kind kind{.model = GetParam(), .firmware = firmware, .att = false, .gvs = gvs};
            EXPECT_EQ(published(kind), expected_items(kind)) << "firmware " << firmware << ", gvs " << gvs;
        }
    }
}

TEST_P(Km5ValuesOfModel, AnAttHasNoGatesAtAll) {
    for (const int firmware : {-100, 0, 157, 210}) {
        const Kind kind{.model = GetParam(), .firmware = firmware, .att = true, .gvs = false};
        EXPECT_EQ(published(kind), expected_items(kind)) << "firmware " << firmware;
    }
}

INSTANTIATE_TEST_SUITE_P(Models, Km5ValuesOfModel, ::testing::Values(1, 2, 3, 4, 5, 6, 7, 256));

// ---- a pass over the pages

class Km5ValuePass : public Km5Stand {
  protected:
    void publish() {
        EXPECT_TRUE(driver->get_all_current_values());
        driver->flush_instant_data();
    }
};

TEST_F(Km5ValuePass, OnlyModel1KnowsHotWaterAndOnlyByTheFirstThreeLetters) {
    for (const int model : {1, 2}) {
        for (const char* type : {"", "gv", "GVS", "heat_gvs", "gvs", "gvs_open"}) {
            scene.remove("/tmp/m1/1/tc_items");
            scene.make_tree(Uuid);
            sim::Km5Meter meter({.model = model});
            machine.disconnect_all(Port);
            start_described(meter, {.systems = {type}});
            publish();
            const bool hot_water = model == 1 && std::string(type).starts_with("gvs");
            EXPECT_EQ(item("GVSConversion"), hot_water ? "1.000000" : "(none)") << model << type;
        }
    }
}

TEST_F(Km5ValuePass, AllPagesAreAskedForInTheirOrderWhateverTheFirmware) {
    sim::Km5Meter meter({.firmware = "1.00"});
    start_described(meter);
    publish();
    EXPECT_EQ(asked(requests()), (std::vector<std::vector<int>>{{8, 0},
                                                                {44, 0},
                                                                {44, 1},
                                                                {44, 2},
                                                                {44, 3},
                                                                {44, 4},
                                                                {44, 5},
                                                                {44, 6},
                                                                {44, 7},
                                                                {44, 8},
                                                                {123, 0},
                                                                {95, 0}}));
}

TEST_F(Km5ValuePass, APassOverThePagesIsLogged) {
    sim::Km5Meter meter({.model = 2});
    meter.set_value("Q1", 7.5F);
    start_described(meter);
    publish();
    for (const char* line :
         {"Get all current values start.", "Start generate pack with commands. ",
          "Commands list: ", "0. Cmd: 44, data: 0", "8. Cmd: 44, data: 8", "9. Cmd: 123, data: 0",
          "10. Cmd: 95, data: 0", "Do request for get all parameters", "Count commands = 11", "Q1 = 7.500000"}) {
        EXPECT_EQ(logged("messages", line), 1) << line;
    }
    EXPECT_EQ(item("_DriverStatus"), "2");
    EXPECT_EQ(state(), "get all");
}

TEST_F(Km5ValuePass, ValuesOfAMeterThatIsNoKm56iGoToTheFirstSystem) {
    sim::Km5Meter meter({.model = 2});
    meter.set_value("T1", 71.25F);
    start_described(meter, {.systems = {"heat", "heat", "heat"}});
    publish();
    EXPECT_EQ(item("T1", 1), "71.250000") << "although the third system is at work";
    EXPECT_EQ(item("T1", 3), "(none)");
}

TEST_F(Km5ValuePass, ValuesOfAKm56iGoToTheSystemAtWork) {
    sim::Km5Meter meter({.km56i = true, .subsystems = 3});
    meter.set_value("T1", 0.1F, 2);
    meter.set_value("Tp", 5.0F, 2);
    meter.set_value("IT1", 4.0F, 2);
    start_described(meter, {.km56i = true, .systems = {"heat", "heat", "heat"}});
    publish();
    EXPECT_EQ(item("T1", 3), "0.100000");
    EXPECT_EQ(item("IT1", 3), "5.000000") << "Tp sorts behind IT1";
    EXPECT_EQ(item("T1", 1), "(none)");
    EXPECT_EQ(logged("messages", "T1 = 0.100000, subsystem = 2"), 1);
    EXPECT_EQ(logged("messages", "Tp = 5.000000, subsystem = 2"), 1) << "the log has the meter's own name";
}

TEST_F(Km5ValuePass, PublishingNothingChangesNothing) {
    start_driver();
    driver->flush_instant_data();
    EXPECT_TRUE(scene.list("/tmp/m1/1/tc_items").empty());
}

}  // namespace
