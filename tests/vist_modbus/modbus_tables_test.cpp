// What the meter is asked: each row by its heading, its registers in each heat system, and who understands the answer.

#include <array>
#include <string>
#include <vector>

#include "drivers/vist_modbus/vist_modbus_tables.h"
#include "support/modbus_scene.h"

namespace {

struct Row {
    std::string name;
    int count;
    std::array<std::uint16_t, 3> address;
    ModbusProcess process;
    char kind;
};

const std::vector<Row> SetupRows = {
    {"Структура общих спецификаций прибора", 99, {0, 0, 0}, ModbusProcess::MainConfig, 0},
    {"Структура спецификаций теплосистемы (т/с) прибора", 76, {99, 284, 469}, ModbusProcess::TcSpecs, 0},
    {"Спецификации архивных файлов теплосистем (т/с) прибора", 5, {654, 658, 663}, ModbusProcess::ArchiveSetup, 0},
};

const std::vector<Row> ValueRows = {
    {"Текущие Дата и Время прибора", 3, {0, 0, 0}, ModbusProcess::DateTime, 0},
    {"Точность по расходу, тепловой мощности т/с", 4, {514, 1538, 2562}, ModbusProcess::Array16, '0'},
    {"Температура [ºC] т/с", 4, {518, 1542, 2566}, ModbusProcess::Array16, 'T'},
    {"Объемный расход [м³/ч] т/с", 6, {774, 1798, 2822}, ModbusProcess::Array32, 'Q'},
    {"Массовый расход [т/ч] т/с", 6, {786, 1810, 2834}, ModbusProcess::Array32, 'M'},
    {"Давление [ат] т/с", 3, {546, 1570, 2594}, ModbusProcess::Array16, 'P'},
    {"Точность по объему, массе, тепловой энергии т/с", 4, {1026, 2050, 3074}, ModbusProcess::Array16, '1'},
    {"Объем за текущий час [м³] т/с", 6, {1042, 2066, 3090}, ModbusProcess::Array32, 'V'},
    {"Масса за текущий час [т] т/с", 6, {1048, 2072, 3096}, ModbusProcess::Array32, 'G'},
    {"Тепловая энергия за текущий час [Гкал] т/с", 2, {1076, 2100, 3124}, ModbusProcess::Array32, 'E'},
    {"Время наработки за текущий час [ч]", 1, {1078, 2102, 3126}, ModbusProcess::Array16, 't'},
};

void expect_row(const ModbusRequest& row, const Row& expected, ModbusRead read) {
    EXPECT_EQ(row.name, expected.name);
    EXPECT_EQ(row.count, expected.count) << expected.name;
    EXPECT_EQ(row.address, expected.address) << expected.name;
    EXPECT_EQ(row.process, expected.process) << expected.name;
    EXPECT_EQ(row.kind, expected.kind) << expected.name;
    EXPECT_EQ(row.read, read) << expected.name;
}

TEST(ModbusTables, TheSetupOfAMeterIsThreeBlocksOfHoldingRegisters) {
    ASSERT_EQ(reqSpecs.size(), SetupRows.size());
    for (std::size_t i = 0; i < SetupRows.size(); ++i) expect_row(reqSpecs[i], SetupRows[i], read_holding);
}

TEST(ModbusTables, ThePresentValuesAreElevenBlocksOfInputRegisters) {
    ASSERT_EQ(reqValues.size(), ValueRows.size());
    for (std::size_t i = 0; i < ValueRows.size(); ++i) expect_row(reqValues[i], ValueRows[i], read_input);
}

TEST(ModbusTables, TheArchiveIsAFileOfEachHeatSystemWithAHeaderAndRecords) {
    expect_row(reqArchiveHeaderFile,
               {"Архивы: заголовок архивного файла теплосистемы", 48, {0, 1, 2}, ModbusProcess::ArchiveHeader, 0},
               read_archive_header);
    EXPECT_EQ(std::string(reqArchiveRecordFile.name), "Архивы: вычитка архивной записи");
    EXPECT_EQ(reqArchiveRecordFile.address, (std::array<std::uint16_t, 3>{0, 1, 2}));
    EXPECT_EQ(reqArchiveRecordFile.process, ModbusProcess::ArchiveRecord);
    EXPECT_EQ(reqArchiveRecordFile.read, read_archive_record);
}

TEST(ModbusTables, NoAnswerIsLongerThanAReceiverTakes) {
    for (const auto& row : reqSpecs) EXPECT_LE(row.count * 2 + 5, 300);
    for (const auto& row : reqSpecs) EXPECT_LE(row.count * 2, 250);
    for (const auto& row : reqValues) EXPECT_LE(row.count * 2, 250);
}

TEST(ModbusTables, ThePowersOfTenAreReadBeforeTheFlowsThatNeedThem) {
    std::string kinds;
    for (const auto& row : reqValues) kinds += row.kind == 0 ? '-' : row.kind;
    EXPECT_EQ(kinds, "-0TQMP1VGEt");
}

class ModbusTablesOnTheLine : public ModbusStand {};

TEST_F(ModbusTablesOnTheLine, EachHeatSystemInTurnIsAskedForItsSetupAndThenItsValues) {
    const sim::ModbusVistSystem system;
    sim::ModbusVistMeter meter({.serial = Serial, .systems = {system, system, system}});
    machine.connect(Port, meter);
    start_driver();
    run();
    Texts expected;
    for (const std::size_t s : {0U, 1U, 2U}) {
        const auto expect = [&](const char* function, const Row& row) {
            expected.push_back(function + std::to_string(row.address[s]) + "+" + std::to_string(row.count));
        };
        for (const Row& row : SetupRows) expect("3:", row);
        for (const Row& row : ValueRows) expect("4:", row);
    }
    EXPECT_EQ(asked(), expected);
}

}  // namespace
