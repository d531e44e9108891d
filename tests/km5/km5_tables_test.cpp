// The family's tables against a copy of their own: which values a model fills, and under which names they leave.

#include "drivers/km5/km5_tables.h"

#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

struct Position {
    const char* name;
    int integrating;
    const char* models;  // that fill it
};

constexpr Position Positions[14] = {
    {"ta", 0, ""},        {"P1", 0, "1234567"}, {"P2", 0, "1234567"},  {"P3", 0, "34"},       {"T1", 0, "1234567"},
    {"T2", 0, "1234567"}, {"T3", 0, "3457"},    {"IM1", 1, "1234567"}, {"IM2", 1, "1234567"}, {"Vi", 1, ""},
    {"IV1", 1, "123457"}, {"IV2", 1, "23457"},  {"IQ", 1, "1234567"},  {"IT", 1, "1234567"},
};

TEST(Km5Tables, EachModelFillsItsPositionsOfARecord) {
    for (int model = 1; model <= 7; ++model) {
        const KM5_model_table* const table = find_model_table(model);
        ASSERT_NE(table, nullptr) << "model " << model;
        for (std::size_t k = 0; k < 14; ++k) {
            SCOPED_TRACE("model " + std::to_string(model) + ", position " + std::to_string(k));
            const Position& wanted = Positions[k];
            const KM5_param& param = table->params[k];
            const bool third_volume = model == 3 && k == 11;
            EXPECT_EQ(param.id, static_cast<int>(k) + 1);
            EXPECT_EQ(std::string(param.name), third_volume ? "IV3" : wanted.name);
            EXPECT_EQ(param.integrating, wanted.integrating);
            EXPECT_EQ(param.enabled,
                      std::string(wanted.models).find(static_cast<char>('0' + model)) != std::string::npos);
        }
    }
}

TEST(Km5Tables, TheSevenModelsStandInOrder) {
    ASSERT_EQ(KM5_PARAMS.size(), 7U);
    for (std::size_t i = 0; i < 7; ++i) EXPECT_EQ(KM5_PARAMS[i].model, static_cast<int>(i) + 1);
}

TEST(Km5Tables, NoOtherModelHasATable) {
    for (const int model : {-1, 0, 8, 256}) EXPECT_EQ(find_model_table(model), nullptr) << model;
}

TEST(Km5Tables, EachModelHasItsNameByTypeLetters) {
    struct Row {
        KM5_meter meter;
        const char* name;
    };
    const Row rows[] = {
        {{.model = 7, .km56i_mode = true}, "KM5-6и"},
        {{.model = 7, .isATT = true, .km56i_mode = true}, "KM5-6и"},
        {{.model = 1, .isATT = true}, "AT-T-1"},
        {{.model = 2, .isATT = true}, "AT-T-2"},
        {{.model = 3, .isATT = true}, "AT-T-3"},
        {{.model = 4, .isATT = true}, "AT-T-4"},
        {{.model = 5, .isATT = true}, "AT-T-5"},
        {{.model = 6, .isATT = true}, "AT-T-6"},
        {{.model = 7, .isATT = true}, "AT-T-7"},
        {{.model = 8, .isATT = true}, "AT-T-0"},
        {{.model = 256, .isATT = true}, "AT-T-0"},
        {{.model = 0, .isATT = true}, "AT-T-0"},
        {{.model = -1, .isATT = true}, "AT-T-0"},
        {{.model = 1}, "KM5-1"},
        {{.model = 2}, "KM5-2"},
        {{.model = 3}, "KM5-3"},
        {{.model = 4}, "KM5-4"},
        {{.model = 5}, "KM5-5"},
        {{.model = 6}, "KM5-6"},
        {{.model = 7}, "-1"},
        {{.model = 0}, "-1"},
        {{.model = 256}, "-1"},
        {{.model = -1}, "-1"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(model_name(row.meter), row.name) << row.meter.km56i_mode << row.meter.isATT << row.meter.model;
    }
}

TEST(Km5Tables, CurrentValuesKeepTheirNamesButForTp) {
    const std::vector<std::string> keys = {"dP", "IE1", "IM1", "IM2", "IM3", "IM4", "IM5", "Q1", "Q2", "Q3", "Q4",
                                           "Q5", "IT1", "M1",  "M2",  "M3",  "M4",  "M5",  "P1", "P2", "P3", "P4",
                                           "P5", "IQ1", "IQ2", "IQ3", "IQ4", "IQ5", "T1",  "T2", "T3", "T4", "T5"};
    ASSERT_EQ(opc_moment_names.size(), 34U);
    std::set<std::string> in_map;
    for (const KM5_name& row : opc_moment_names) in_map.insert(row.driver_name);
    std::set<std::string> wanted(keys.begin(), keys.end());
    wanted.insert("Tp");
    EXPECT_EQ(in_map, wanted);
    for (const std::string& key : keys) EXPECT_EQ(opc_name(opc_moment_names, key), key);
    EXPECT_EQ(opc_name(opc_moment_names, "Tp"), "IT1");
}

TEST(Km5Tables, NamesInNoRowLeaveUnchanged) {
    for (const std::string name : {"Ta", "T6", "IE2", "IE4", "GVSConversion", "Vi", ""}) {
        EXPECT_EQ(opc_name(opc_moment_names, name), name);
        EXPECT_EQ(opc_name(opc_hourly_names, name), name);
        EXPECT_EQ(opc_name(opc_daily_names, name), name);
    }
}

struct FileNames {
    const char* driver;
    const char* hourly;
    const char* daily;
};

constexpr FileNames Files[15] = {
    {"P1", "A17", "A45"}, {"P2", "A18", "A46"},  {"P3", "A19", "A47"},  {"T1", "A20", "A48"},  {"T2", "A21", "A49"},
    {"T3", "A22", "A50"}, {"IM1", "A12", "A40"}, {"IM2", "A14", "A42"}, {"IM3", "A16", "A44"}, {"IQ", "A1", "A29"},
    {"IV1", "A6", "A34"}, {"IV2", "A8", "A36"},  {"IV3", "A10", "A38"}, {"IT", "A4", "A32"},   {"ER", "A28", "A56"},
};

TEST(Km5Tables, RecordValuesHaveTheirHourlyAndDailyFiles) {
    ASSERT_EQ(opc_hourly_names.size(), 15U);
    ASSERT_EQ(opc_daily_names.size(), 15U);
    for (const FileNames& row : Files) {
        EXPECT_EQ(opc_name(opc_hourly_names, row.driver), row.hourly);
        EXPECT_EQ(opc_name(opc_daily_names, row.driver), row.daily);
    }
}

TEST(Km5Tables, ArchiveTypesHaveTextsAndAnUnknownOneIsHourly) {
    const char* const texts[] = {"Hourly", "Daily", "Monthly", "Yearly", "Errors_db"};
    for (int type = 0; type < 5; ++type) EXPECT_EQ(std::string(archive_type_name(type)), texts[type]);
    for (const int type : {-1, 5, 1000}) EXPECT_EQ(std::string(archive_type_name(type)), "Hourly") << type;
}

class Km5Names : public Km5Stand {};

TEST_F(Km5Names, AnHourlyOrDailyNameIsConvertedAndTheConversionLogged) {
    start_driver();
    EXPECT_EQ(driver->archive_name_for_opc("IM1", 0), "A12");
    EXPECT_EQ(driver->archive_name_for_opc("IM1", 1), "A40");
    EXPECT_EQ(logged("debug", "Convert archive driver name for OPC. Type: Hourly. IM1 -> A12"), 1);
    EXPECT_EQ(logged("debug", "Convert archive driver name for OPC. Type: Daily. IM1 -> A40"), 1);
}

TEST_F(Km5Names, AMonthlyOrYearlyNameStaysAsItIs) {
    start_driver();
    for (const int type : {2, 3, 4, -1}) EXPECT_EQ(driver->archive_name_for_opc("IM1", type), "IM1") << type;
    EXPECT_EQ(logged_parts("debug", {"Convert archive driver name for OPC. ", "IM1", " -> ", "IM1"}), 4);
}

TEST_F(Km5Names, AMomentNameIsConvertedAndTheConversionLogged) {
    start_driver();
    EXPECT_EQ(driver->moment_name_for_opc("Tp"), "IT1");
    EXPECT_EQ(driver->moment_name_for_opc("T6"), "T6");
    EXPECT_EQ(logged("debug", "Convert moment driver name for OPC. Tp -> IT1"), 1);
    EXPECT_EQ(logged("debug", "Convert moment driver name for OPC. T6 -> T6"), 1);
}

// What an archive record of each model becomes, read back from the files that appear.

constexpr const char* HourlyFiles[8] = {
    "",
    "A1 A12 A14 A17 A18 A20 A21 A4 A6",
    "A1 A12 A14 A17 A18 A20 A21 A4 A6 A8",
    "A1 A10 A12 A14 A17 A18 A19 A20 A21 A22 A4 A6",
    "A1 A12 A14 A17 A18 A19 A20 A21 A22 A4 A6 A8",
    "A1 A12 A14 A17 A18 A20 A21 A22 A4 A6 A8",
    "A1 A12 A14 A17 A18 A20 A21 A4",
    "A1 A12 A14 A17 A18 A20 A21 A4 A6 A8",  // a system that is not hot water: T3 is dropped
};

constexpr const char* DailyFiles[8] = {
    "",
    "A29 A32 A34 A40 A42 A45 A46 A48 A49",
    "A29 A32 A34 A36 A40 A42 A45 A46 A48 A49",
    "A29 A32 A34 A38 A40 A42 A45 A46 A47 A48 A49 A50",
    "A29 A32 A34 A36 A40 A42 A45 A46 A47 A48 A49 A50",
    "A29 A32 A34 A36 A40 A42 A45 A46 A48 A49 A50",
    "A29 A32 A40 A42 A45 A46 A48 A49",
    "A29 A32 A34 A36 A40 A42 A45 A46 A48 A49",
};

class Km5FilesOfModel : public Km5Stand, public ::testing::WithParamInterface<int> {
  protected:
    std::string files() const {
        std::string all;
        for (const std::string& name : archive_names()) {
            if (name.front() != '_') all += (all.empty() ? "" : " ") + name;
        }
        return all;
    }
};

TEST_P(Km5FilesOfModel, AnHourlyRecordOfAModelGoesToTheFilesOfItsValues) {
    sim::Km5Meter meter({.model = GetParam()});
    meter.store_hourly({.at = "2024-03-02 10:00"});
    start_described(meter);
    ASSERT_TRUE(driver->get_archives(0));
    EXPECT_EQ(files(), HourlyFiles[GetParam()]);
}

TEST_P(Km5FilesOfModel, ADailyRecordOfAModelGoesToTheFilesOfItsValues) {
    sim::Km5Meter meter({.model = GetParam()});
    meter.store_daily({.at = "2024-03-02 00:00"});
    start_described(meter);
    ASSERT_TRUE(driver->get_archives(1));
    EXPECT_EQ(files(), DailyFiles[GetParam()]);
}

INSTANTIATE_TEST_SUITE_P(Models, Km5FilesOfModel, ::testing::Range(1, 8));

}  // namespace
