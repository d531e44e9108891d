#include "drivers/sa94/sa94_tables.h"

#include <initializer_list>

namespace {

std::map<int, std::string> make_item_names() {
    std::map<int, std::string> names;
    for (int key = 0; key <= 55; ++key) names[key] = "A" + std::to_string(key + 1);
    for (const int key : {19, 20, 47, 48}) names[key].insert(0, "_");
    names[56] = "X";
    return names;
}

}  // namespace

const std::map<int, std::string> ItemNames = make_item_names();

// clang-format off
const std::array<SA94Version, 18> Versions = {{
    // id name            model      extended
    {17, "M461-m",         "SA94/3A",  true},
    {16, "M451-m",         "SA94/3A",  true},
    {15, "M461",           "SA94/3",   true},
    {14, "M451",           "SA94/3",   true},
    {13, "M411",           "SA94/3",   true},
    {12, "M401",           "SA94/3",   true},
    {11, "M301",           "SA94/2M",  true},
    {10, "M300",           "SA94/2M",  false},
    {9,  "301",            "SA94/2M",  true},
    {8,  "300",            "SA94/2M",  false},
    {7,  "MTE1",           "SA94/2",   true},
    {6,  "201",            "SA94/2",   true},
    {5,  "200",            "SA94/2",   false},
    {4,  "M101",           "SA94/1",   true},
    {3,  "M100",           "SA94/1",   false},
    {2,  "101",            "SA94/1",   true},
    {1,  "100",            "SA94/1",   false},
    {0,  "SA94_UNKNOWN",   "SA94/1",   false},
}};

namespace {

using ParameterEntries = std::array<SA94CurrentParameter, 16>;

constexpr float HourInSeconds = 3600.0F;

// Each entry stands at its code.
const ParameterEntries OneFlow = {{
    // active kind      scale     operation name code
    {true, ParameterValue, HourInSeconds, Multiply, "M1", 0},
    {},
    {true, ParameterValue, 1.0F, Multiply, "T1", 2},
    {true, ParameterValue, 1.0F, Multiply, "T2", 3},
    {},
    {true, ParameterValue, 1.0F, Multiply, "dT", 5},
    {},
    {true, ParameterValue, MWhToGcal, Multiply, "IE1", 7},
    {true, ParameterValue, 1.0F, Multiply, "IM1", 8},
    {},
    {true, ParameterTime, 1.0F, Multiply, "", 10},
    {true, ParameterDate, 1.0F, Multiply, "", 11},
    {true, ParameterValue, HourInSeconds, Divide, "IT1", 12},
    {},
    {},
    {},
}};

/// The entries of another kind of meter, with these in their places.
ParameterEntries with(ParameterEntries entries, std::initializer_list<SA94CurrentParameter> changes) {
    for (const SA94CurrentParameter& change : changes) entries[change.code] = change;
    return entries;
}

const ParameterEntries TwoMasses = with(OneFlow, {
    {true, ParameterValue, HourInSeconds, Multiply, "M2", 1},
    {true, ParameterValue, 1.0F, Multiply, "T3", 4},
    {true, ParameterValue, 1.0F, Multiply, "IM2", 9},
});

const ParameterEntries TwoMassesAndPressures = with(TwoMasses, {
    {true, ParameterValue, MPaToTechnicalAtmospheres, Multiply, "P1", 14},
    {true, ParameterValue, MPaToTechnicalAtmospheres, Multiply, "P2", 15},
});

const ParameterEntries TwoVolumes = with(TwoMassesAndPressures, {
    {true, ParameterValue, HourInSeconds, Multiply, "Q1", 0},
    {true, ParameterValue, HourInSeconds, Multiply, "Q2", 1},
    {true, ParameterValue, 1.0F, Multiply, "IQ1", 8},
    {true, ParameterValue, 1.0F, Multiply, "IQ2", 9},
});

// Whether these totals are masses or volumes is told by the status.
const ParameterEntries FlowsByStatus = with(TwoMassesAndPressures, {
    {true, ParameterValue, 1.0F, Multiply, "p1", 8},
    {true, ParameterValue, 1.0F, Multiply, "p2", 9},
});

}  // namespace

std::array<SA94ParameterRow, 11> CurrentParameters = {{
    {3, OneFlow},
    {10, TwoMasses},
    {7, TwoVolumes},
    {6, TwoVolumes},
    {11, TwoMassesAndPressures},
    {9, TwoVolumes},
    {12, TwoMassesAndPressures},
    {14, FlowsByStatus},
    {16, FlowsByStatus},
    {15, FlowsByStatus},
    {17, FlowsByStatus},
}};

const std::array<std::array<float, 11>, 11> FlowLimits = {{
    {0.25F, 0.32F, 0.4F, 0.5F, 0.6F, 0.8F, 1.0F, 1.25F, 1.6F, 2.0F, 2.5F},
    {0.6F, 0.8F, 1.0F, 1.25F, 1.6F, 2.0F, 2.5F, 3.2F, 4.0F, 5.0F, 6.0F},
    {1.6F, 2.0F, 2.5F, 3.2F, 4.0F, 5.0F, 6.0F, 8.0F, 10.0F, 12.5F, 16.0F},
    {4.0F, 5.0F, 6.0F, 8.0F, 10.0F, 12.5F, 16.0F, 20.0F, 25.0F, 32.0F, 40.0F},
    {6.0F, 8.0F, 10.0F, 12.5F, 16.0F, 20.0F, 25.0F, 32.0F, 40.0F, 50.0F, 60.0F},
    {16.0F, 20.0F, 25.0F, 32.0F, 40.0F, 50.0F, 60.0F, 80.0F, 100.0F, 125.0F, 160.0F},
    {25.0F, 32.0F, 40.0F, 50.0F, 60.0F, 80.0F, 100.0F, 125.0F, 160.0F, 200.0F, 250.0F},
    {60.0F, 80.0F, 100.0F, 125.0F, 160.0F, 200.0F, 250.0F, 320.0F, 400.0F, 500.0F, 600.0F},
    {100.0F, 125.0F, 160.0F, 200.0F, 250.0F, 320.0F, 400.0F, 500.0F, 600.0F, 800.0F, 1000.0F},
    {250.0F, 320.0F, 400.0F, 500.0F, 600.0F, 800.0F, 1000.0F, 1250.0F, 1600.0F, 2000.0F, 2500.0F},
    {400.0F, 500.0F, 600.0F, 800.0F, 1000.0F, 1250.0F, 1600.0F, 2000.0F, 2500.0F, 3200.0F, 4000.0F},
}};
// clang-format on

namespace {

constexpr int ThirdTemperatureHourly = 21;
constexpr int ThirdTemperatureDaily = 49;

bool flows_are_volumes(std::uint8_t status) {
    return (status & BitsVolumes) == BitsVolumes;
}

bool third_flow_is_mass(std::uint8_t status) {
    return (status & BitsThirdMass) != 0;
}

}  // namespace

float scaled(float value, float scale, int operation) {
    return operation == Divide ? value / scale : value * scale;
}

bool is_third_temperature(const std::string& name) {
    return name == ItemNames.at(ThirdTemperatureHourly) || name == ItemNames.at(ThirdTemperatureDaily);
}

void renameCurrentParameter(std::string& name, int firmware_id, std::uint8_t status) {
    if (name == "T3" && (status & BitT3) == 0) {
        name.clear();
        return;
    }
    if (firmware_id < FirstIdByStatus) return;
    const bool volumes = flows_are_volumes(status);
    if (name == "p1") {
        name = volumes ? "IQ1" : "IM1";
    } else if (name == "p2") {
        name = volumes ? "IQ2" : "IM2";
    } else if (name == "p3") {
        name = third_flow_is_mass(status) ? "IM3" : "IQ3";
    }
}

std::string renameArchiveItem(int archive_type, const std::string& name, int firmware_id, std::uint8_t status) {
    if (firmware_id < FirstIdByStatus) return name;
    if (archive_type != HOURLY_DB && archive_type != DAILY_DB) return name;
    const bool daily = archive_type == DAILY_DB;
    const bool volumes = flows_are_volumes(status);
    const auto item = [daily](int hourly_key, int daily_key) { return ItemNames.at(daily ? daily_key : hourly_key); };
    if (name == "p1") return volumes ? item(5, 33) : item(11, 39);
    if (name == "p2") return volumes ? item(7, 35) : item(13, 41);
    if (name == "p3") return third_flow_is_mass(status) ? item(15, 43) : item(9, 37);
    return name;
}

int tube_diameter(int dn_code) {
    constexpr std::array Diameters = {10, 15, 25, 40, 50, 80, 100, 150, 200, 300, 400, 6};
    const bool known = dn_code >= 0 && dn_code < static_cast<int>(Diameters.size());
    return known ? Diameters[static_cast<std::size_t>(dn_code)] : 10;
}

float flow_limit(int dn_code, int q_code) {
    constexpr int LastCode = 10;
    if (dn_code < 0 || dn_code > LastCode || q_code < 0 || q_code > LastCode) return -1.0F;
    return FlowLimits[static_cast<std::size_t>(dn_code)][static_cast<std::size_t>(q_code)];
}
