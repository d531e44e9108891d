// What stands where in the pages of present values. Some places mean different things in different models.

#include <algorithm>

#include "km5_memory.h"

namespace sim {

namespace {

constexpr unsigned only(int model) {
    return 1U << model;
}
constexpr unsigned All = 0xFE;  // models 1..7

}  // namespace

const std::vector<Km5PageFloat>& km5_page_floats() {
    static const std::vector<Km5PageFloat> Rows = {
        // command page position name models
        {44, 1, 5, "IE1", All},
        {44, 2, 5, "IM1", All},
        {44, 3, 5, "IM2", All},
        {44, 4, 5, "IT1", All},
        {44, 5, 5, "Q1", All},
        {44, 5, 9, "M1", All},
        {44, 5, 13, "P1", All},
        {44, 5, 17, "P2", All},
        {44, 5, 21, "T1", All},
        {44, 5, 25, "T2", All},
        {44, 6, 5, "M1", All},
        {44, 7, 5, "Q2", All},
        {44, 7, 9, "M2", All},
        {44, 7, 13, "Q4", All},
        {44, 7, 17, "M4", All},
        {44, 7, 21, "T5", All},
        {44, 7, 25, "T4", All},
        {44, 8, 5, "", All},
        {44, 8, 9, "M5", All},
        {123, 0, 5, "M1", All},
        {123, 0, 9, "M2", All},
        {123, 0, 13, "M4", All},
        {123, 0, 17, "T1", All},
        {123, 0, 21, "T2", All},
        {123, 0, 25, "T3", All},
        {123, 0, 29, "Ta", All},
        {123, 0, 33, "P1", All},
        {123, 0, 37, "P2", All},
        {123, 0, 41, "P4", All},
        {123, 0, 45, "", All},
        {123, 0, 49, "T4", All},
        {123, 0, 53, "T5", All},
        {123, 0, 57, "", All},
        {123, 0, 61, "IE2", All},
        {123, 0, 65, "T6", All},
        {95, 0, 5, "", All},
        {95, 0, 9, "", All},
        {95, 0, 13, "IM1", All},
        {95, 0, 17, "IM2", All & ~only(3)},
        {95, 0, 17, "IM3", only(3)},
        {95, 0, 21, "Vi", All & ~only(5) & ~only(6)},
        {95, 0, 21, "IE4", only(5) | only(6)},
        {95, 0, 25, "IQ1", All & ~only(6)},
        {95, 0, 25, "IM4", only(6)},
        {95, 0, 29, "IQ2", All & ~only(6)},
        {95, 0, 29, "IM5", only(6)},
        {95, 0, 33, "IE1", All},
        {95, 0, 37, "Tp", All},
    };
    return Rows;
}

float km5_default_value(std::string_view name) {
    // All in eighths, so that no text of one loses anything, and no two within an eighth of each other.
    static constexpr std::pair<std::string_view, float> Rows[] = {
        {"IE1", 1010.5F},   {"IE2", 505.75F},   {"IE4", 252.875F},  {"IM1", 20100.25F}, {"IM2", 19800.75F},
        {"IM3", 5100.125F}, {"IM4", 4100.375F}, {"IM5", 3100.625F}, {"IQ1", 333.25F},   {"IQ2", 222.125F},
        {"IT1", 8760.5F},   {"Tp", 8761.375F},  {"Q1", 1.125F},     {"Q2", 0.875F},     {"Q4", 0.25F},
        {"M1", 40.5F},      {"M2", 39.25F},     {"M4", 10.125F},    {"M5", 0.5F},       {"P1", 6.125F},
        {"P2", 4.625F},     {"P4", 2.875F},     {"T1", 95.5F},      {"T2", 60.25F},     {"T3", 15.125F},
        {"T4", 55.75F},     {"T5", 8.375F},     {"T6", 21.625F},    {"Ta", -5.25F},     {"Vi", 777.125F},
        {"", 54321.0F},
    };
    const auto* row = std::find_if(std::begin(Rows), std::end(Rows), [name](const auto& r) { return r.first == name; });
    if (row == std::end(Rows)) throw std::invalid_argument("no such value: " + std::string(name));
    return row->second;
}

}  // namespace sim
