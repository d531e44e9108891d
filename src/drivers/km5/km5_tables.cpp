#include "drivers/km5/km5_tables.h"

#include <algorithm>
#include <string_view>

#include "drivers/km5/km5_frame.h"

// clang-format off
namespace {

struct Position {
    const char* name;
    int integrating;
    std::string_view models;  ///< that fill it
};

constexpr Position Positions[] = {
    {"ta",  0, ""},
    {"P1",  0, "1234567"},
    {"P2",  0, "1234567"},
    {"P3",  0, "34"},
    {"T1",  0, "1234567"},
    {"T2",  0, "1234567"},
    {"T3",  0, "3457"},
    {"IM1", 1, "1234567"},
    {"IM2", 1, "1234567"},
    {"Vi",  1, ""},
    {"IV1", 1, "123457"},
    {"IV2", 1, "23457"},
    {"IQ",  1, "1234567"},
    {"IT",  1, "1234567"},
};

constexpr std::array<KM5_model_table, 7> model_tables() {
    std::array<KM5_model_table, 7> tables{};
    for (int model = 1; KM5_model_table& table : tables) {
        table.model = model;
        for (int id = 1; KM5_param& param : table.params) {
            const Position& position = Positions[id - 1];
            const bool enabled = position.models.find(static_cast<char>('0' + model)) != std::string_view::npos;
            param = {id++, enabled, position.name, position.integrating};
        }
        ++model;
    }
    tables[2].params[11].name = "IV3";  // the second volume of model 3 goes to the third file
    return tables;
}

}  // namespace

constexpr std::array<KM5_model_table, 7> KM5_PARAMS = model_tables();

// Tp replaces what another page of the same pass has written as IT1; that is wanted.
const std::array<KM5_name, 34> opc_moment_names = {{
    {"dP", "dP"},
    {"IE1", "IE1"},
    {"IM1", "IM1"},
    {"IM2", "IM2"},
    {"IM3", "IM3"},
    {"IM4", "IM4"},
    {"IM5", "IM5"},
    {"Q1", "Q1"},
    {"Q2", "Q2"},
    {"Q3", "Q3"},
    {"Q4", "Q4"},
    {"Q5", "Q5"},
    {"IT1", "IT1"},
    {"M1", "M1"},
    {"M2", "M2"},
    {"M3", "M3"},
    {"M4", "M4"},
    {"M5", "M5"},
    {"P1", "P1"},
    {"P2", "P2"},
    {"P3", "P3"},
    {"P4", "P4"},
    {"P5", "P5"},
    {"IQ1", "IQ1"},
    {"IQ2", "IQ2"},
    {"IQ3", "IQ3"},
    {"IQ4", "IQ4"},
    {"IQ5", "IQ5"},
    {"T1", "T1"},
    {"T2", "T2"},
    {"T3", "T3"},
    {"T4", "T4"},
    {"T5", "T5"},
    {"Tp", "IT1"},
}};

const std::array<KM5_name, 15> opc_hourly_names = {{
    {"P1",  "A17"},
    {"P2",  "A18"},
    {"P3",  "A19"},
    {"T1",  "A20"},
    {"T2",  "A21"},
    {"T3",  "A22"},
    {"IM1", "A12"},
    {"IM2", "A14"},
    {"IM3", "A16"},
    {"IQ",  "A1"},
    {"IV1", "A6"},
    {"IV2", "A8"},
    {"IV3", "A10"},
    {"IT",  "A4"},
    {"ER",  "A28"},
}};

const std::array<KM5_name, 15> opc_daily_names = {{
    {"P1",  "A45"},
    {"P2",  "A46"},
    {"P3",  "A47"},
    {"T1",  "A48"},
    {"T2",  "A49"},
    {"T3",  "A50"},
    {"IM1", "A40"},
    {"IM2", "A42"},
    {"IM3", "A44"},
    {"IQ",  "A29"},
    {"IV1", "A34"},
    {"IV2", "A36"},
    {"IV3", "A38"},
    {"IT",  "A32"},
    {"ER",  "A56"},
}};

const std::array<const char*, 8> hourly_integrals = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};
const std::array<const char*, 5> daily_integrals = {"A29", "A32", "A34", "A40", "A42"};

namespace {

constexpr bool always(int /*model*/, bool /*gvs*/) { return true; }
constexpr bool hot_water(int /*model*/, bool gvs) { return gvs; }
constexpr bool no_hot_water(int /*model*/, bool gvs) { return !gvs; }
constexpr bool model_3(int model, bool /*gvs*/) { return model == 3; }
constexpr bool not_model_3(int model, bool /*gvs*/) { return model != 3; }
constexpr bool model_6(int model, bool /*gvs*/) { return model == 6; }
constexpr bool not_model_6(int model, bool /*gvs*/) { return model != 6; }
constexpr bool model_5_or_6(int model, bool /*gvs*/) { return model == 5 || model == 6; }
constexpr bool not_model_5_or_6(int model, bool /*gvs*/) { return model != 5 && model != 6; }

// A version is held in single precision, so firmware 2.10 is below the gate of 2.1; it stays without the last page.
constexpr KM5_page_value PageValues[] = {
    // cmd  page from  position      name             condition
    {0x2C, 1, 0.0,  5,            "IE1",            always},
    {0x2C, 2, 0.0,  5,            "IM1",            always},
    {0x2C, 3, 0.0,  5,            "IM2",            always},
    {0x2C, 4, 0.0,  5,            "IT1",            always},
    {0x2C, 5, 0.0,  5,            "Q1",             always},
    {0x2C, 5, 1.58, 9,            "M1",             always},
    {0x2C, 5, 1.58, 13,           "P1",             always},
    {0x2C, 5, 1.58, 17,           "P3",             hot_water},
    {0x2C, 5, 1.58, 17,           "P2",             no_hot_water},
    {0x2C, 5, 1.58, 21,           "T1",             always},
    {0x2C, 5, 1.58, 25,           "T3",             hot_water},
    {0x2C, 5, 1.58, 25,           "T2",             no_hot_water},
    {0x2C, 5, 1.58, ConstantOne,  "GVSConversion",  hot_water},
    {0x2C, 6, 0.0,  5,            "M1",             always},
    {0x2C, 7, 1.59, 5,            "Q2",             always},
    {0x2C, 7, 1.59, 9,            "M2",             always},
    {0x2C, 7, 1.59, 13,           "Q4",             always},
    {0x2C, 7, 1.59, 17,           "M4",             always},
    {0x2C, 7, 1.59, 21,           "T5",             always},
    {0x2C, 7, 1.59, 25,           "T4",             always},
    {0x2C, 8, 1.86, 9,            "M5",             always},
    {0x7B, 0, 1.59, 5,            "M1",             always},
    {0x7B, 0, 1.59, 9,            "M2",             always},
    {0x7B, 0, 1.59, 13,           "M4",             always},
    {0x7B, 0, 1.59, 17,           "T1",             always},
    {0x7B, 0, 1.59, 21,           "T3",             hot_water},
    {0x7B, 0, 1.59, 21,           "T2",             no_hot_water},
    {0x7B, 0, 1.59, 25,           "T2",             hot_water},
    {0x7B, 0, 1.59, 25,           "T3",             no_hot_water},
    {0x7B, 0, 1.59, ConstantOne,  "GVSConversion",  hot_water},
    {0x7B, 0, 1.59, 29,           "Ta",             always},
    {0x7B, 0, 1.59, 33,           "P1",             always},
    {0x7B, 0, 1.59, 37,           "P3",             hot_water},
    {0x7B, 0, 1.59, 37,           "P2",             no_hot_water},
    {0x7B, 0, 1.59, 41,           "P4",             always},
    {0x7B, 0, 1.59, 49,           "T4",             always},
    {0x7B, 0, 1.59, 53,           "T5",             always},
    {0x7B, 0, 1.59, 61,           "IE2",            always},
    {0x7B, 0, 1.59, 65,           "T6",             always},
    {0x5F, 0, 2.1,  13,           "IM1",            always},
    {0x5F, 0, 2.1,  17,           "IM3",            model_3},
    {0x5F, 0, 2.1,  17,           "IM2",            not_model_3},
    {0x5F, 0, 2.1,  21,           "IE4",            model_5_or_6},
    {0x5F, 0, 2.1,  21,           "Vi",             not_model_5_or_6},
    {0x5F, 0, 2.1,  25,           "IM4",            model_6},
    {0x5F, 0, 2.1,  25,           "IQ1",            not_model_6},
    {0x5F, 0, 2.1,  29,           "IM5",            model_6},
    {0x5F, 0, 2.1,  29,           "IQ2",            not_model_6},
    {0x5F, 0, 2.1,  33,           "IE1",            always},
    {0x5F, 0, 2.1,  37,           "Tp",             always},
};

}  // namespace
// clang-format on

std::span<const KM5_page_value> page_values() {
    return PageValues;
}

const KM5_model_table* find_model_table(int model) {
    const auto row = std::find_if(KM5_PARAMS.begin(), KM5_PARAMS.end(),
                                  [model](const KM5_model_table& table) { return table.model == model; });
    return row != KM5_PARAMS.end() ? &*row : nullptr;
}

std::string opc_name(std::span<const KM5_name> names, const std::string& name) {
    const auto row =
        std::find_if(names.begin(), names.end(), [&name](const KM5_name& entry) { return name == entry.driver_name; });
    return row != names.end() ? row->opc_name : name;
}

std::string model_name(const KM5_meter& meter) {
    const int model = meter.model;
    if (meter.km56i_mode) return model == 7 ? "KM5-6и" : "-1";
    if (meter.isATT) return "AT-T-" + std::to_string(model >= 1 && model <= 7 ? model : 0);
    return model >= 1 && model <= 6 ? "KM5-" + std::to_string(model) : "-1";
}

std::size_t archive_index(int type) {
    return type >= ArchiveHourly && type <= ArchiveErrors ? static_cast<std::size_t>(type) : 0;
}

const char* archive_type_name(int type) {
    constexpr const char* Names[] = {"Hourly", "Daily", "Monthly", "Yearly", "Errors_db"};
    return Names[archive_index(type)];
}
