#include "drivers/vist_modbus/vist_modbus_tables.h"

// clang-format off
const std::array<ModbusRequest, 3> reqSpecs = {{
    // name                                                     read          count address by system  process
    {"Структура общих спецификаций прибора",                    read_holding, 99, {0, 0, 0},           ModbusProcess::MainConfig, 0},
    {"Структура спецификаций теплосистемы (т/с) прибора",       read_holding, 76, {99, 284, 469},      ModbusProcess::TcSpecs, 0},
    {"Спецификации архивных файлов теплосистем (т/с) прибора",  read_holding, 5,  {654, 658, 663},     ModbusProcess::ArchiveSetup, 0},
}};

const std::array<ModbusRequest, 11> reqValues = {{
    // name                                                     read        count address by system    process                            kind
    {"Текущие Дата и Время прибора",                            read_input, 3, {0, 0, 0},              ModbusProcess::DateTime, 0},
    {"Точность по расходу, тепловой мощности т/с",              read_input, 4, {514, 1538, 2562},      ModbusProcess::Array16, '0'},
    {"Температура [ºC] т/с",                                    read_input, 4, {518, 1542, 2566},      ModbusProcess::Array16, 'T'},
    {"Объемный расход [м³/ч] т/с",                              read_input, 6, {774, 1798, 2822},      ModbusProcess::Array32, 'Q'},
    {"Массовый расход [т/ч] т/с",                               read_input, 6, {786, 1810, 2834},      ModbusProcess::Array32, 'M'},
    {"Давление [ат] т/с",                                       read_input, 3, {546, 1570, 2594},      ModbusProcess::Array16, 'P'},
    {"Точность по объему, массе, тепловой энергии т/с",         read_input, 4, {1026, 2050, 3074},     ModbusProcess::Array16, '1'},
    {"Объем за текущий час [м³] т/с",                           read_input, 6, {1042, 2066, 3090},     ModbusProcess::Array32, 'V'},
    {"Масса за текущий час [т] т/с",                            read_input, 6, {1048, 2072, 3096},     ModbusProcess::Array32, 'G'},
    {"Тепловая энергия за текущий час [Гкал] т/с",              read_input, 2, {1076, 2100, 3124},     ModbusProcess::Array32, 'E'},
    {"Время наработки за текущий час [ч]",                      read_input, 1, {1078, 2102, 3126},     ModbusProcess::Array16, 't'},
}};

const ModbusRequest reqArchiveHeaderFile =
    {"Архивы: заголовок архивного файла теплосистемы", read_archive_header, 48, {0, 1, 2}, ModbusProcess::ArchiveHeader, 0};
const ModbusRequest reqArchiveRecordFile =
    {"Архивы: вычитка архивной записи",                read_archive_record, 0,  {0, 1, 2}, ModbusProcess::ArchiveRecord, 0};
// clang-format on
