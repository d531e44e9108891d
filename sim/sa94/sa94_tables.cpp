#include "sa94_tables.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

constexpr Sa94Scale per_hour = {3600.0F, false};       // a flow in seconds
constexpr Sa94Scale gigajoule = {0.859845F, false};    // to what the files hold
constexpr Sa94Scale megapascal = {10.197162F, false};  // to kgf/cm2
constexpr Sa94Scale hundredth = {0.01F, false};        // of a degree
constexpr Sa94Scale second = {3600.0F, true};          // to hours
constexpr Sa94Scale half_second = {1800.0F, true};     // to hours

constexpr Sa94Quantity quantities[] = {
    // name  file     base  per_hour  swing  of_a_period
    {"IE", 1, 150.0, 0.04175, 0.0, false}, {"E", 2, 0.04, 0.0, 0.008, true},      {"t", 3, 1.0, 0.0, 0.0, true},
    {"IT", 4, 20.0, 1.0, 0.0, false},      {"V1", 5, 1.25, 0.0, 0.125, true},     {"IV1", 6, 300.0, 1.3125, 0.0, false},
    {"V2", 7, 1.125, 0.0, 0.125, true},    {"IV2", 8, 250.0, 1.1875, 0.0, false}, {"V3", 9, 0.5, 0.0, 0.0, true},
    {"IV3", 10, 100.0, 0.5, 0.0, false},   {"M1", 11, 1.2, 0.0, 0.12, true},      {"IM1", 12, 290.0, 1.26, 0.0, false},
    {"M2", 13, 1.1, 0.0, 0.12, true},      {"IM2", 14, 240.0, 1.16, 0.0, false},  {"M3", 15, 0.4, 0.0, 0.0, true},
    {"IM3", 16, 90.0, 0.4, 0.0, false},    {"P1", 17, 6.25, 0.0, 0.25, false},    {"P2", 18, 4.5, 0.0, 0.25, false},
    {"P3", 19, 3.0, 0.0, 0.25, false},     {"T1", 20, 82.5, 0.0, 6.0, false},     {"T2", 21, 47.25, 0.0, 3.0, false},
    {"T3", 22, 11.5, 0.0, 1.0, false},     {"dT", 0, 35.25, 0.0, 3.0, false},     {"w3", 24, 0.125, 0.0, 0.0, true},
    {"w2", 25, 0.0, 0.0, 0.25, true},      {"w1", 26, 0.0625, 0.0, 0.0, true},
};

// ---- present values

constexpr Sa94Parameter one_pipe[] = {
    {0, "M1", "M1", per_hour},   {2, "T1", "T1"},   {3, "T2", "T2"},           {5, "dT", "dT"},
    {7, "IE1", "IE", gigajoule}, {8, "IM1", "IM1"}, {12, "IT1", "IT", second},
};

constexpr Sa94Parameter two_pipes_small[] = {
    {0, "M1", "M1", per_hour},
    {1, "M2", "M2", per_hour},
    {2, "T1", "T1"},
    {3, "T2", "T2"},
    {4, "T3", "T3"},
    {5, "dT", "dT"},
    {7, "IE1", "IE", gigajoule},
    {8, "IM1", "IM1"},
    {9, "IM2", "IM2"},
    {12, "IT1", "IT", second},
};

constexpr Sa94Parameter two_volumes[] = {
    {0, "Q1", "V1", per_hour},
    {1, "Q2", "V2", per_hour},
    {2, "T1", "T1"},
    {3, "T2", "T2"},
    {4, "T3", "T3"},
    {5, "dT", "dT"},
    {7, "IE1", "IE", gigajoule},
    {8, "IQ1", "IV1"},
    {9, "IQ2", "IV2"},
    {12, "IT1", "IT", second},
    {14, "P1", "P1", megapascal},
    {15, "P2", "P2", megapascal},
};

constexpr Sa94Parameter two_masses[] = {
    {0, "M1", "M1", per_hour},
    {1, "M2", "M2", per_hour},
    {2, "T1", "T1"},
    {3, "T2", "T2"},
    {4, "T3", "T3"},
    {5, "dT", "dT"},
    {7, "IE1", "IE", gigajoule},
    {8, "IM1", "IM1"},
    {9, "IM2", "IM2"},
    {12, "IT1", "IT", second},
    {14, "P1", "P1", megapascal},
    {15, "P2", "P2", megapascal},
};

constexpr Sa94Parameter three_channels[] = {
    {0, "M1", "M1", per_hour},
    {1, "M2", "M2", per_hour},
    {2, "T1", "T1"},
    {3, "T2", "T2"},
    {4, "T3", "T3"},
    {5, "dT", "dT"},
    {7, "IE1", "IE", gigajoule},
    {8, "p1", "p1"},
    {9, "p2", "p2"},
    {12, "IT1", "IT", second},
    {13, "p3", "p3"},
    {14, "P1", "P1", megapascal},
    {15, "P2", "P2", megapascal},
};

// ---- hourly records; date at 0, status at 4, hour at 5

constexpr bool F = false;  // a float
constexpr bool W = true;   // a word

constexpr Sa94Column hourly_0[] = {
    {8, F, "V1"}, {12, F, "V2"}, {16, F, "T1"}, {20, F, "T2"}, {24, F, "T3"},
};

constexpr Sa94Column hourly_5[] = {
    {8, F, "V1"}, {12, F, "V2"}, {16, F, "T1", hundredth}, {20, F, "T2", hundredth}, {24, F, "T3", hundredth},
};

constexpr Sa94Column hourly_3_10[] = {
    {6, W, "t", second},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
};

constexpr Sa94Column hourly_6_7_9[] = {
    {16, F, "T1"},
    {20, F, "T2"},
    {24, F, "T3"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {40, F, "V1"},
    {44, F, "V2"},
    {48, F, "M1"},
    {52, F, "M2"},
    {56, F, "t"},
    {60, F, "E", gigajoule},
};

constexpr Sa94Column hourly_4[] = {
    {6, W, "t", second},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {40, F, "V1"},
    {44, F, "V2"},
    {48, F, "IV1"},
    {52, F, "IV2"},
    {56, F, "IT"},
};

constexpr Sa94Column hourly_11_12[] = {
    {6, W, "t", second},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {48, F, "IV1"},
    {52, F, "IV2"},
    {56, F, "IT"},
};

constexpr Sa94Column hourly_14_16[] = {
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {52, F, "p3"},
    {56, F, "IT"},
    {60, F, "P3"},
};

constexpr Sa94Column hourly_15_17[] = {
    {8, F, "p1"},
    {12, F, "p2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {52, F, "p3"},
    {56, F, "IT"},
    {60, F, "P3"},
};

// ---- daily records; date at 0

constexpr Sa94Column daily_0[] = {
    {4, F, "IE", gigajoule}, {8, F, "V1"}, {12, F, "V2"}, {16, F, "T1"}, {20, F, "T2"}, {24, F, "T3"},
};

constexpr Sa94Column daily_5[] = {
    {4, F, "IE", gigajoule},
    {16, F, "T1"},
    {20, F, "T2"},
    {24, F, "T3"},
};

constexpr Sa94Column daily_3_10[] = {
    {4, F, "IT"},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
};

constexpr Sa94Column daily_4_11_12[] = {
    {4, F, "IT"},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {48, F, "IV1"},
    {52, F, "IV2"},
};

constexpr Sa94Column daily_6_7[] = {
    {4, F, "IE", gigajoule},
    {16, F, "T1"},
    {20, F, "T2"},
    {24, F, "T3"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {40, F, "IV1"},
    {44, F, "IV2"},
    {48, F, "IM1"},
    {52, F, "IM2"},
    {56, F, "IT"},
};

constexpr Sa94Column daily_9[] = {
    {4, F, "IE", gigajoule},
    {16, F, "T1"},
    {20, F, "T2"},
    {24, F, "T3"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {40, F, "V1"},
    {44, F, "V2"},
    {48, F, "M1"},
    {52, F, "M2"},
    {56, F, "t"},
};

constexpr Sa94Column daily_14_16[] = {
    {4, F, "IT"},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {52, F, "p3"},
    {60, F, "P3"},
};

constexpr Sa94Column daily_15_17[] = {
    {4, F, "IT"},
    {8, F, "p1"},
    {12, F, "p2"},
    {16, W, "T1", hundredth},
    {18, W, "T2", hundredth},
    {20, W, "T3", hundredth},
    {22, W, "w1", half_second},
    {24, W, "w2", half_second},
    {26, W, "w3", half_second},
    {28, F, "IE"},
    {32, F, "P1", megapascal},
    {36, F, "P2", megapascal},
    {52, F, "p3"},
    {60, F, "P3"},
};

// ---- firmwares

constexpr bool small = false;
constexpr bool large = true;

constexpr Sa94Firmware firmwares[] = {
    {0, "SA94_UNKNOWN", small, {}, hourly_0, daily_0},
    {1, "100", small},
    {2, "101", large},
    {3, "M100", small, one_pipe, hourly_3_10, daily_3_10},
    {4, "M101", large, {}, hourly_4, daily_4_11_12},
    {5, "200", small, {}, hourly_5, daily_5},
    {6, "201", large, two_volumes, hourly_6_7_9, daily_6_7},
    {7, "MTE1", large, two_volumes, hourly_6_7_9, daily_6_7},
    {8, "300", small},
    {9, "301", large, two_volumes, hourly_6_7_9, daily_9},
    {10, "M300", small, two_pipes_small, hourly_3_10, daily_3_10},
    {11, "M301", large, two_masses, hourly_11_12, daily_4_11_12},
    {12, "M401", large, two_masses, hourly_11_12, daily_4_11_12},
    {13, "M411", large},
    {14, "M451", large, three_channels, hourly_14_16, daily_14_16},
    {15, "M461", large, three_channels, hourly_15_17, daily_15_17},
    {16, "M451-m", large, three_channels, hourly_14_16, daily_14_16},
    {17, "M461-m", large, three_channels, hourly_15_17, daily_15_17},
};

}  // namespace

const Sa94Quantity& sa94_quantity(std::string_view name) {
    const auto* found =
        std::find_if(std::begin(quantities), std::end(quantities), [&](const auto& row) { return row.name == name; });
    if (found == std::end(quantities)) throw std::invalid_argument("no quantity " + std::string(name));
    return *found;
}

std::span<const Sa94Column> Sa94Firmware::columns(Sa94Archive archive) const {
    if (archive == Sa94Archive::Errors) return {};
    return archive == Sa94Archive::Hourly ? hourly : daily;
}

std::span<const Sa94Firmware> sa94_firmwares() {
    return firmwares;
}

Sa94Firmware sa94_firmware(const std::string& text) {
    std::string bare = text;
    std::erase(bare, ' ');
    Sa94Firmware best;
    for (const Sa94Firmware& row : firmwares) {
        if (bare.starts_with(row.name) && row.name.size() > best.name.size()) best = row;
    }
    return best;
}

}  // namespace sim
