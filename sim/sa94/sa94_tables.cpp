#include "sa94_tables.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

constexpr Sa94Scale PerHour = {3600.0F, false};        // a flow in seconds
constexpr Sa94Scale Gigajoule = {0.859845F, false};    // to what the files hold
constexpr Sa94Scale Megapascal = {10.197162F, false};  // to kgf/cm2
constexpr Sa94Scale Hundredth = {0.01F, false};        // of a degree
constexpr Sa94Scale Second = {3600.0F, true};          // to hours
constexpr Sa94Scale HalfSecond = {1800.0F, true};      // to hours

constexpr Sa94Quantity Quantities[] = {
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

constexpr Sa94Parameter OnePipe[] = {
    {0, "M1", "M1", PerHour},    {2, "T1", "T1"},   {3, "T2", "T2"},           {5, "dT", "dT"},
    {7, "IE1", "IE", Gigajoule}, {8, "IM1", "IM1"}, {12, "IT1", "IT", Second},
};

constexpr Sa94Parameter TwoPipesSmall[] = {
    {0, "M1", "M1", PerHour},
    {1, "M2", "M2", PerHour},
    {2, "T1", "T1"},
    {3, "T2", "T2"},
    {4, "T3", "T3"},
    {5, "dT", "dT"},
    {7, "IE1", "IE", Gigajoule},
    {8, "IM1", "IM1"},
    {9, "IM2", "IM2"},
    {12, "IT1", "IT", Second},
};

constexpr Sa94Parameter TwoVolumes[] = {
    {0, "Q1", "V1", PerHour},
    {1, "Q2", "V2", PerHour},
    {2, "T1", "T1"},
    {3, "T2", "T2"},
    {4, "T3", "T3"},
    {5, "dT", "dT"},
    {7, "IE1", "IE", Gigajoule},
    {8, "IQ1", "IV1"},
    {9, "IQ2", "IV2"},
    {12, "IT1", "IT", Second},
    {14, "P1", "P1", Megapascal},
    {15, "P2", "P2", Megapascal},
};

constexpr Sa94Parameter TwoMasses[] = {
    {0, "M1", "M1", PerHour},
    {1, "M2", "M2", PerHour},
    {2, "T1", "T1"},
    {3, "T2", "T2"},
    {4, "T3", "T3"},
    {5, "dT", "dT"},
    {7, "IE1", "IE", Gigajoule},
    {8, "IM1", "IM1"},
    {9, "IM2", "IM2"},
    {12, "IT1", "IT", Second},
    {14, "P1", "P1", Megapascal},
    {15, "P2", "P2", Megapascal},
};

constexpr Sa94Parameter ThreeChannels[] = {
    {0, "M1", "M1", PerHour},
    {1, "M2", "M2", PerHour},
    {2, "T1", "T1"},
    {3, "T2", "T2"},
    {4, "T3", "T3"},
    {5, "dT", "dT"},
    {7, "IE1", "IE", Gigajoule},
    {8, "p1", "p1"},
    {9, "p2", "p2"},
    {12, "IT1", "IT", Second},
    {13, "p3", "p3"},
    {14, "P1", "P1", Megapascal},
    {15, "P2", "P2", Megapascal},
};

// ---- hourly records; date at 0, status at 4, hour at 5

constexpr bool F = false;  // a float
constexpr bool W = true;   // a word

constexpr Sa94Column Hourly0[] = {
    {8, F, "V1"}, {12, F, "V2"}, {16, F, "T1"}, {20, F, "T2"}, {24, F, "T3"},
};

constexpr Sa94Column Hourly5[] = {
    {8, F, "V1"}, {12, F, "V2"}, {16, F, "T1", Hundredth}, {20, F, "T2", Hundredth}, {24, F, "T3", Hundredth},
};

constexpr Sa94Column Hourly3And10[] = {
    {6, W, "t", Second},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
};

constexpr Sa94Column Hourly6And7And9[] = {
    {16, F, "T1"},
    {20, F, "T2"},
    {24, F, "T3"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {40, F, "V1"},
    {44, F, "V2"},
    {48, F, "M1"},
    {52, F, "M2"},
    {56, F, "t"},
    {60, F, "E", Gigajoule},
};

constexpr Sa94Column Hourly4[] = {
    {6, W, "t", Second},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {40, F, "V1"},
    {44, F, "V2"},
    {48, F, "IV1"},
    {52, F, "IV2"},
    {56, F, "IT"},
};

constexpr Sa94Column Hourly11And12[] = {
    {6, W, "t", Second},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {48, F, "IV1"},
    {52, F, "IV2"},
    {56, F, "IT"},
};

constexpr Sa94Column Hourly14And16[] = {
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {52, F, "p3"},
    {56, F, "IT"},
    {60, F, "P3"},
};

constexpr Sa94Column Hourly15And17[] = {
    {8, F, "p1"},
    {12, F, "p2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {52, F, "p3"},
    {56, F, "IT"},
    {60, F, "P3"},
};

// ---- daily records; date at 0

constexpr Sa94Column Daily0[] = {
    {4, F, "IE", Gigajoule}, {8, F, "V1"}, {12, F, "V2"}, {16, F, "T1"}, {20, F, "T2"}, {24, F, "T3"},
};

constexpr Sa94Column Daily5[] = {
    {4, F, "IE", Gigajoule},
    {16, F, "T1"},
    {20, F, "T2"},
    {24, F, "T3"},
};

constexpr Sa94Column Daily3And10[] = {
    {4, F, "IT"},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
};

constexpr Sa94Column Daily4And11And12[] = {
    {4, F, "IT"},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {48, F, "IV1"},
    {52, F, "IV2"},
};

constexpr Sa94Column Daily6And7[] = {
    {4, F, "IE", Gigajoule},
    {16, F, "T1"},
    {20, F, "T2"},
    {24, F, "T3"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {40, F, "IV1"},
    {44, F, "IV2"},
    {48, F, "IM1"},
    {52, F, "IM2"},
    {56, F, "IT"},
};

constexpr Sa94Column Daily9[] = {
    {4, F, "IE", Gigajoule},
    {16, F, "T1"},
    {20, F, "T2"},
    {24, F, "T3"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {40, F, "V1"},
    {44, F, "V2"},
    {48, F, "M1"},
    {52, F, "M2"},
    {56, F, "t"},
};

constexpr Sa94Column Daily14And16[] = {
    {4, F, "IT"},
    {8, F, "IM1"},
    {12, F, "IM2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {52, F, "p3"},
    {60, F, "P3"},
};

constexpr Sa94Column Daily15And17[] = {
    {4, F, "IT"},
    {8, F, "p1"},
    {12, F, "p2"},
    {16, W, "T1", Hundredth},
    {18, W, "T2", Hundredth},
    {20, W, "T3", Hundredth},
    {22, W, "w1", HalfSecond},
    {24, W, "w2", HalfSecond},
    {26, W, "w3", HalfSecond},
    {28, F, "IE"},
    {32, F, "P1", Megapascal},
    {36, F, "P2", Megapascal},
    {52, F, "p3"},
    {60, F, "P3"},
};

// ---- firmwares

constexpr bool Small = false;
constexpr bool Large = true;

constexpr Sa94Firmware Firmwares[] = {
    {0, "SA94_UNKNOWN", Small, {}, Hourly0, Daily0},
    {1, "100", Small},
    {2, "101", Large},
    {3, "M100", Small, OnePipe, Hourly3And10, Daily3And10},
    {4, "M101", Large, {}, Hourly4, Daily4And11And12},
    {5, "200", Small, {}, Hourly5, Daily5},
    {6, "201", Large, TwoVolumes, Hourly6And7And9, Daily6And7},
    {7, "MTE1", Large, TwoVolumes, Hourly6And7And9, Daily6And7},
    {8, "300", Small},
    {9, "301", Large, TwoVolumes, Hourly6And7And9, Daily9},
    {10, "M300", Small, TwoPipesSmall, Hourly3And10, Daily3And10},
    {11, "M301", Large, TwoMasses, Hourly11And12, Daily4And11And12},
    {12, "M401", Large, TwoMasses, Hourly11And12, Daily4And11And12},
    {13, "M411", Large},
    {14, "M451", Large, ThreeChannels, Hourly14And16, Daily14And16},
    {15, "M461", Large, ThreeChannels, Hourly15And17, Daily15And17},
    {16, "M451-m", Large, ThreeChannels, Hourly14And16, Daily14And16},
    {17, "M461-m", Large, ThreeChannels, Hourly15And17, Daily15And17},
};

}  // namespace

const Sa94Quantity& sa94_quantity(std::string_view name) {
    const auto* found =
        std::find_if(std::begin(Quantities), std::end(Quantities), [&](const auto& row) { return row.name == name; });
    if (found == std::end(Quantities)) throw std::invalid_argument("no quantity " + std::string(name));
    return *found;
}

std::span<const Sa94Column> Sa94Firmware::columns(Sa94Archive archive) const {
    if (archive == Sa94Archive::Errors) return {};
    return archive == Sa94Archive::Hourly ? hourly : daily;
}

std::span<const Sa94Firmware> sa94_firmwares() {
    return Firmwares;
}

Sa94Firmware sa94_firmware(const std::string& text) {
    std::string bare = text;
    std::erase(bare, ' ');
    Sa94Firmware best;
    for (const Sa94Firmware& row : Firmwares) {
        if (bare.starts_with(row.name) && row.name.size() > best.name.size()) best = row;
    }
    return best;
}

}  // namespace sim
