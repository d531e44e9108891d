// The current values: which page feeds which item, by model, firmware and system type.

#include <map>
#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

using sim::ByteVector;

/// Answers every page with sixteen floats that tell where they stand: command * 1000 + page * 100 + position.
class PageMeter final : public sim::SimMeter {
  public:
    sim::Answer hear(std::span<const std::uint8_t> request, std::time_t /*now*/) override {
        ByteVector payload;
        if (request[4] == 8) {
            payload.resize(7, 0);
        } else if (request[4] == 44 && request[5] == 0) {
            payload = {0, 0x02, 0x03, 0x24, 0, 0x10, 0x30, 0x15};
        } else {
            for (unsigned position = 5; position <= 65; position += 4) {
                km5_frames::put_float(payload, position, place(request[4], request[5], position));
            }
        }
        return {{.delay_seconds = 0.02, .bytes = km5_frames::answer(request[4], payload)}};
    }

    static float place(unsigned command, unsigned page, unsigned position) {
        return static_cast<float>(command * 1000 + page * 100 + position);
    }
};

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
            items[name] = std::to_string(PageMeter::place(command, number, position));
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

class Km5Values : public Km5Bench {
  protected:
    Km5Values() { machine.connect(Port, meter); }

    std::map<std::string, std::string> published(const Kind& kind) {
        scene.remove("/tmp/m1/1/tc_items");
        scene.make_tree(Uuid);
        if (!driver) start_driver();
        driver->model = kind.model;
        driver->version = static_cast<float>(kind.firmware / 100.0);
        driver->isATT = kind.att;
        driver->set_system_type(0, kind.gvs ? "gvs_open" : "heat");
        EXPECT_TRUE(driver->get_all_current_values());
        driver->flush_instant_data();
        std::map<std::string, std::string> items;
        for (const std::string& name : scene.list("/tmp/m1/1/tc_items")) items[name] = item(name);
        for (const char* other : {"Connected", "EG", "ER", "MDateTime", "SC", "TSMode", "_DriverStatus"}) {
            EXPECT_EQ(items.erase(other), 1U) << other;
        }
        return items;
    }

    PageMeter meter;
};

class Km5ValuesOfModel : public Km5Values, public ::testing::WithParamInterface<int> {};

TEST_P(Km5ValuesOfModel, EachPageFeedsItsItemsAsTheFirmwareAllows) {
    for (const int firmware : {100, 157, 158, 159, 185, 186, 209, 210, 211, 300}) {
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

TEST_F(Km5Values, Firmware157YieldsOnlyQ1OfPage5AndNothingOfTheNewerPages) {
    const auto items = published({.model = 2, .firmware = 157, .att = false, .gvs = false});
    EXPECT_EQ(items, (std::map<std::string, std::string>{{"IE1", "44105.000000"},
                                                         {"IM1", "44205.000000"},
                                                         {"IM2", "44305.000000"},
                                                         {"IT1", "44405.000000"},
                                                         {"Q1", "44505.000000"},
                                                         {"M1", "44605.000000"}}));
}

TEST_F(Km5Values, OnHotWaterP3AndT3StandInThePlacesOfP2AndT2) {
    const auto items = published({.model = 1, .firmware = 158, .att = false, .gvs = true});
    EXPECT_EQ(items.at("P3"), "44517.000000");
    EXPECT_EQ(items.at("T3"), "44525.000000");
    EXPECT_EQ(items.at("GVSConversion"), "1.000000");
    EXPECT_FALSE(items.contains("P2"));
    EXPECT_FALSE(items.contains("T2"));
}

TEST_F(Km5Values, OnHotWaterTheNewerPageSwapsT2AndT3) {
    const auto items = published({.model = 1, .firmware = 159, .att = false, .gvs = true});
    EXPECT_EQ(items.at("T3"), "123021.000000");
    EXPECT_EQ(items.at("T2"), "123025.000000");
    EXPECT_EQ(items.at("P3"), "123037.000000");
    EXPECT_FALSE(items.contains("P2"));
}

TEST_F(Km5Values, OnlyModel1KnowsHotWaterAndOnlyByTheFirstThreeLetters) {
    EXPECT_FALSE(published({.model = 2, .firmware = 158, .att = false, .gvs = true}).contains("GVSConversion"));
    driver->model = 1;
    for (const char* type : {"", "gv", "GVS", "heat_gvs"}) {
        driver->set_system_type(0, type);
        driver->get_all_current_values();
        EXPECT_FALSE(driver->instant_values.contains("GVSConversion")) << type;
        driver->instant_values.clear();
    }
    driver->set_system_type(0, "gvs");
    driver->get_all_current_values();
    EXPECT_EQ(driver->instant_values.at("GVSConversion"), 1.0F);
}

TEST_F(Km5Values, Model6HasNoViButIE4IM4AndIM5) {
    const auto items = published({.model = 6, .firmware = 211, .att = false, .gvs = false});
    EXPECT_FALSE(items.contains("Vi"));
    EXPECT_EQ(items.at("IE4"), "95021.000000");
    EXPECT_EQ(items.at("IM4"), "95025.000000");
    EXPECT_EQ(items.at("IM5"), "95029.000000");
}

TEST_F(Km5Values, AFirmwareWithoutDigitsIsRefusedByEveryGate) {
    const auto items = published({.model = 2, .firmware = 0, .att = false, .gvs = false});
    EXPECT_EQ(items.size(), 6U);
}

TEST_F(Km5Values, TheItemIT1EndsWithTheValueOfTp) {
    const auto items = published({.model = 2, .firmware = 211, .att = false, .gvs = false});
    EXPECT_EQ(items.at("IT1"), "95037.000000");
    EXPECT_FALSE(items.contains("Tp"));
}

TEST_F(Km5Values, AnAttWhoseFirmwareIsUnreadStillGivesTheLastPage) {
    start_driver();
    driver->isATT = true;
    EXPECT_EQ(driver->version, -1.0F);
    driver->get_all_current_values();
    EXPECT_EQ(driver->instant_values.at("Tp"), 95037.0F);
}

TEST_F(Km5Values, AllPagesAreAskedForInTheirOrderWhateverTheFirmware) {
    published({.model = 1, .firmware = 100, .att = false, .gvs = false});
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

TEST_F(Km5Values, ThePackOfAPassIsElevenRequestsAndIsLogged) {
    start_driver();
    KM5_pack pack;
    driver->gen_pack_current(pack);
    EXPECT_EQ(pack.count(), 11U);
    for (const KM5_request& req : pack.requests) EXPECT_EQ(req.RcvLng, 32);
    EXPECT_EQ(logged("messages", "Start generate pack with commands. "), 1);
    EXPECT_EQ(logged("messages", "Commands list: "), 1);
    EXPECT_EQ(logged("messages", "0. Cmd: 44, data: 0"), 1);
    EXPECT_EQ(logged("messages", "8. Cmd: 44, data: 8"), 1);
    EXPECT_EQ(logged("messages", "9. Cmd: 123, data: 0"), 1);
    EXPECT_EQ(logged("messages", "10. Cmd: 95, data: 0"), 1);
}

TEST_F(Km5Values, APassOverThePagesIsLogged) {
    published({.model = 1, .firmware = 211, .att = false, .gvs = false});
    EXPECT_EQ(logged("messages", "Get all current values start."), 1);
    EXPECT_EQ(logged("messages", "Do request for get all parameters"), 1);
    EXPECT_EQ(logged("messages", "Count commands = 11"), 1);
    EXPECT_EQ(logged("messages", "Q1 = 44505.000000"), 1);
    EXPECT_EQ(item("_DriverStatus"), "2");
    EXPECT_EQ(state(), "get all");
}

TEST_F(Km5Values, ValuesOfAMeterThatIsNoKm56iGoToTheFirstSystem) {
    start_driver();
    driver->subsystem = 2;
    driver->instant_values = {{"T1", 71.25F}};
    driver->flush_instant_data();
    EXPECT_EQ(item("T1", 1), "71.250000");
    EXPECT_EQ(item("T1", 3), "(none)");
    EXPECT_TRUE(driver->instant_values.empty());
}

TEST_F(Km5Values, ValuesOfAKm56iGoToTheSystemAtWork) {
    start_driver({.km56i = true});
    driver->subsystem = 2;
    driver->instant_values = {{"T1", 0.1F}, {"Tp", 5.0F}, {"IT1", 4.0F}};
    driver->flush_instant_data();
    EXPECT_EQ(item("T1", 3), "0.100000");
    EXPECT_EQ(item("IT1", 3), "5.000000") << "Tp sorts behind IT1";
    EXPECT_EQ(item("T1", 1), "(none)");
    EXPECT_EQ(logged("messages", "T1 = 0.100000, subsystem = 2"), 1);
    EXPECT_EQ(logged("messages", "Tp = 5.000000, subsystem = 2"), 1) << "the log has the meter's own name";
}

TEST_F(Km5Values, PublishingNothingChangesNothing) {
    start_driver();
    driver->flush_instant_data();
    EXPECT_TRUE(scene.list("/tmp/m1/1/tc_items").empty());
}

}  // namespace
