// The rows of the catalogue, in the order in which people look for them.

#include <array>

#include "contract/catalogue.h"

namespace contract {

namespace {

using enum Quantity;
using enum ArchiveKind;
constexpr Nature Counter = Nature::Counter;
constexpr Nature Mean = Nature::Mean;
constexpr Nature Value = Nature::State;
constexpr Dating End = Dating::End;
constexpr Dating Beginning = Dating::Beginning;

// clang-format off
constexpr auto Items = std::to_array<ItemEntry>({
    // name            families            quantity     nature   unit    title
    {"Connected",       AnyFamily,          State,       Value,   "",     "last exchange worked"},
    {"_DriverStatus",   AnyFamily,          State,       Value,   "",     "step of the pass"},
    {"MDateTime",       AnyFamily,          Time,        Value,   "s",    "clock of the meter"},
    {"Firmware",        AnyFamily,          Text,        Value,   "",     "firmware"},
    {"_Firmware",       SA94,               Text,        Value,   "",     "firmware, when unknown"},
    {"MeterModel",      AnyFamily,          Text,        Value,   "",     "model"},
    {"SerialNumber",    KM5 | VIST | VISTmodbus, Text,        Value,   "",     "serial number"},
    {"_HMsystem",       VIST | VISTmodbus,  Text,        Value,   "",     "name of the system"},
    {"_Formula",        VIST | VISTmodbus,  Text,        Value,   "",     "formula of heat"},
    {"_WeightedValue",  VIST | VISTmodbus,  State,       Value,   "",     "weighted values in the formula"},
    {"EG",              KM5 | VIST | VISTmodbus, State,       Value,   "",     "status of the meter, raw"},
    {"ER",              KM5 | VIST | VISTmodbus, State,       Value,   "",     "status bits"},
    {"SC",              AnyFamily,          State,       Value,   "",     "counting"},
    {"_Status",         SA94,               State,       Value,   "",     "status byte"},
    {"_SubsystemType",  SA94,               State,       Value,   "",     "kind of system"},
    {"_SupportT3",      SA94,               State,       Value,   "",     "third temperature measured"},
    {"TSMode",          KM5,                State,       Value,   "",     "mode of the system"},
    {"GVSConversion",   KM5,                Setting,     Value,   "",     "hot water conversion"},
    {"M1min",           AnyFamily,          Setting,     Value,   "",     "lower flow limit 1"},
    {"M2min",           AnyFamily,          Setting,     Value,   "",     "lower flow limit 2"},
    {"M3min",           VIST,               Setting,     Value,   "",     "lower flow limit 3"},
    {"M1max",           AnyFamily,          Setting,     Value,   "",     "upper flow limit 1"},
    {"M2max",           AnyFamily,          Setting,     Value,   "",     "upper flow limit 2"},
    {"M3max",           VIST,               Setting,     Value,   "",     "upper flow limit 3"},
    {"DN1",             VIST | VISTmodbus | SA94, Setting,     Value,   "",     "nominal diameter 1"},
    {"DN2",             VIST | VISTmodbus | SA94, Setting,     Value,   "",     "nominal diameter 2"},
    {"DN3",             VIST | VISTmodbus,  Setting,     Value,   "",     "nominal diameter 3"},
    {"PortNum",         KM5,                Setting,     Value,   "",     "port"},
    {"PortType",        KM5,                Text,        Value,   "",     "kind of port"},
    {"Parity",          KM5,                Setting,     Value,   "",     "parity code"},
    {"NumStopBits",     KM5,                Setting,     Value,   "",     "stop bits"},
    {"NumDataBits",     KM5,                Setting,     Value,   "",     "data bits"},
    {"IT",              VIST,               Time,        Counter, "",     "running time"},
    {"IT1",             KM5 | VISTmodbus | SA94, Time,        Counter, "",     "running time"},
    {"IE",              VIST,               Heat,        Counter, "",     "heat"},
    {"IE1",             KM5 | VISTmodbus | SA94, Heat,        Counter, "",     "heat"},
    {"IE2",             KM5,                Heat,        Counter, "",     "heat 2"},
    {"IE4",             KM5,                Heat,        Counter, "",     "heat 4"},
    {"IM1",             AnyFamily,          Mass,        Counter, "",     "mass 1"},
    {"IM2",             AnyFamily,          Mass,        Counter, "",     "mass 2"},
    {"IM3",             KM5 | VIST | VISTmodbus, Mass,        Counter, "",     "mass 3"},
    {"IM4",             KM5,                Mass,        Counter, "",     "mass 4"},
    {"IM5",             KM5,                Mass,        Counter, "",     "mass 5"},
    {"IQ1",             AnyFamily,          Volume,      Counter, "",     "volume 1"},
    {"IQ2",             AnyFamily,          Volume,      Counter, "",     "volume 2"},
    {"IQ3",             VIST | VISTmodbus,  Volume,      Counter, "",     "volume 3"},
    {"Q1",              KM5,                Power,       Mean,    "",     "heat flow 1"},
    {"Q2",              KM5,                Power,       Mean,    "",     "heat flow 2"},
    {"Q4",              KM5,                Power,       Mean,    "",     "heat flow 4"},
    {"Q1",              VIST | SA94,        Flow,        Mean,    "",     "volume flow 1"},
    {"Q2",              VIST | SA94,        Flow,        Mean,    "",     "volume flow 2"},
    {"Q3",              VIST,               Flow,        Mean,    "",     "volume flow 3"},
    {"Q1",              VISTmodbus,         Flow,        Mean,    "m³/h", "volume flow 1"},
    {"Q2",              VISTmodbus,         Flow,        Mean,    "m³/h", "volume flow 2"},
    {"Q3",              VISTmodbus,         Flow,        Mean,    "m³/h", "volume flow 3"},
    {"M1",              KM5 | VIST | SA94,  Flow,        Mean,    "",     "mass flow 1"},
    {"M2",              KM5 | VIST | SA94,  Flow,        Mean,    "",     "mass flow 2"},
    {"M3",              VIST,               Flow,        Mean,    "",     "mass flow 3"},
    {"M1",              VISTmodbus,         Flow,        Mean,    "t/h",  "mass flow 1"},
    {"M2",              VISTmodbus,         Flow,        Mean,    "t/h",  "mass flow 2"},
    {"M3",              VISTmodbus,         Flow,        Mean,    "t/h",  "mass flow 3"},
    {"M4",              KM5,                Flow,        Mean,    "",     "mass flow 4"},
    {"M5",              KM5,                Flow,        Mean,    "",     "mass flow 5"},
    {"Vi",              KM5,                Flow,        Mean,    "",     "as the meter gives it"},
    {"T1",              KM5 | VIST | SA94,  Temperature, Mean,    "",     "temperature 1"},
    {"T2",              KM5 | VIST | SA94,  Temperature, Mean,    "",     "temperature 2"},
    {"T3",              KM5 | VIST | SA94,  Temperature, Mean,    "",     "temperature 3"},
    {"T4",              KM5,                Temperature, Mean,    "",     "temperature 4"},
    {"T5",              KM5,                Temperature, Mean,    "",     "temperature 5"},
    {"T6",              KM5,                Temperature, Mean,    "",     "temperature 6"},
    {"T1",              VISTmodbus,         Temperature, Mean,    "°C",   "temperature 1"},
    {"T2",              VISTmodbus,         Temperature, Mean,    "°C",   "temperature 2"},
    {"T3",              VISTmodbus,         Temperature, Mean,    "°C",   "temperature 3"},
    {"T4",              VISTmodbus,         Temperature, Mean,    "°C",   "temperature 4"},
    {"Ta",              KM5,                Temperature, Mean,    "",     "outdoor temperature"},
    {"dT",              SA94,               Temperature, Mean,    "",     "temperature difference"},
    {"P1",              KM5 | VIST | SA94,  Pressure,    Mean,    "",     "pressure 1"},
    {"P2",              KM5 | VIST | SA94,  Pressure,    Mean,    "",     "pressure 2"},
    {"P3",              KM5 | VIST,         Pressure,    Mean,    "",     "pressure 3"},
    {"P4",              KM5,                Pressure,    Mean,    "",     "pressure 4"},
    {"P1",              VISTmodbus,         Pressure,    Mean,    "at",   "pressure 1"},
    {"P2",              VISTmodbus,         Pressure,    Mean,    "at",   "pressure 2"},
    {"P3",              VISTmodbus,         Pressure,    Mean,    "at",   "pressure 3"},
    {"P4",              VISTmodbus,         Pressure,    Mean,    "at",   "pressure 4"},
    {"ArchiveRecNum",   VIST,               State,       Value,   "",     "records in the archive"},
    {"ArchiveRecMax",   VIST,               State,       Value,   "",     "room for records"},
    {"ArchiveRecNew",   VIST,               State,       Value,   "",     "newest record"},
});

constexpr auto Archives = std::to_array<ArchiveEntry>({
    // name    families                 kind     dating      quantity     nature   unit title
    {"A1",     AnyFamily,               Hourly,  End,        Heat,        Counter, "",  "heat"},
    {"A2",     VIST | VISTmodbus | SA94, Hourly,  Beginning,  Heat,        Mean,    "",  "heat of the hour"},
    {"A3",     VIST | VISTmodbus | SA94, Hourly,  Beginning,  Time,        Mean,    "",  "running time in the hour"},
    {"A4",     AnyFamily,               Hourly,  End,        Time,        Counter, "",  "running time"},
    {"A5",     VIST | VISTmodbus | SA94, Hourly,  Beginning,  Volume,      Mean,    "",  "volume 1 of the hour"},
    {"A6",     AnyFamily,               Hourly,  End,        Volume,      Counter, "",  "volume 1"},
    {"A7",     VIST | VISTmodbus | SA94, Hourly,  Beginning,  Volume,      Mean,    "",  "volume 2 of the hour"},
    {"A8",     AnyFamily,               Hourly,  End,        Volume,      Counter, "",  "volume 2"},
    {"A9",     VIST | VISTmodbus,       Hourly,  Beginning,  Volume,      Mean,    "",  "volume 3 of the hour"},
    {"A10",    AnyFamily,               Hourly,  End,        Volume,      Counter, "",  "volume 3"},
    {"A11",    VIST | VISTmodbus | SA94, Hourly,  Beginning,  Mass,        Mean,    "",  "mass 1 of the hour"},
    {"A12",    AnyFamily,               Hourly,  End,        Mass,        Counter, "",  "mass 1"},
    {"A13",    VIST | VISTmodbus | SA94, Hourly,  Beginning,  Mass,        Mean,    "",  "mass 2 of the hour"},
    {"A14",    AnyFamily,               Hourly,  End,        Mass,        Counter, "",  "mass 2"},
    {"A15",    VIST | VISTmodbus,       Hourly,  Beginning,  Mass,        Mean,    "",  "mass 3 of the hour"},
    {"A16",    VIST | VISTmodbus | SA94, Hourly,  End,        Mass,        Counter, "",  "mass 3"},
    {"A17",    AnyFamily,               Hourly,  Beginning,  Pressure,    Mean,    "",  "pressure 1"},
    {"A18",    AnyFamily,               Hourly,  Beginning,  Pressure,    Mean,    "",  "pressure 2"},
    {"A19",    AnyFamily,               Hourly,  Beginning,  Pressure,    Mean,    "",  "pressure 3"},
    {"A20",    KM5 | VIST | VISTmodbus, Hourly,  Beginning,  Temperature, Mean,    "",  "temperature 1"},
    {"A21",    KM5 | VIST | VISTmodbus, Hourly,  Beginning,  Temperature, Mean,    "",  "temperature 2"},
    {"A22",    AnyFamily,               Hourly,  Beginning,  Temperature, Mean,    "",  "temperature 3"},
    {"A23",    VIST | VISTmodbus,       Hourly,  Beginning,  Time,        Mean,    "",  "time of condition 1"},
    {"A24",    VIST | VISTmodbus | SA94, Hourly,  Beginning,  Time,        Mean,    "",  "time of condition 2"},
    {"A25",    VIST | VISTmodbus | SA94, Hourly,  Beginning,  Time,        Mean,    "",  "time of condition 3"},
    {"A26",    VIST | VISTmodbus | SA94, Hourly,  Beginning,  Time,        Mean,    "",  "time of condition 4"},
    {"A27",    VISTmodbus,              Hourly,  Beginning,  Time,        Mean,    "",  "time of condition 5"},
    {"A28",    VIST | VISTmodbus,       Hourly,  Beginning,  State,       Value,   "",  "status bits"},
    {"A29",    KM5 | SA94,              Daily,   End,        Heat,        Counter, "",  "heat"},
    {"A31",    SA94,                    Daily,   Beginning,  Time,        Mean,    "",  "running time in the day"},
    {"A32",    KM5 | SA94,              Daily,   End,        Time,        Counter, "",  "running time"},
    {"A33",    SA94,                    Daily,   Beginning,  Volume,      Mean,    "",  "volume 1 of the day"},
    {"A34",    KM5 | SA94,              Daily,   End,        Volume,      Counter, "",  "volume 1"},
    {"A35",    SA94,                    Daily,   Beginning,  Volume,      Mean,    "",  "volume 2 of the day"},
    {"A36",    KM5 | SA94,              Daily,   End,        Volume,      Counter, "",  "volume 2"},
    {"A38",    KM5 | SA94,              Daily,   End,        Volume,      Counter, "",  "volume 3"},
    {"A39",    SA94,                    Daily,   Beginning,  Mass,        Mean,    "",  "mass 1 of the day"},
    {"A40",    KM5 | SA94,              Daily,   End,        Mass,        Counter, "",  "mass 1"},
    {"A41",    SA94,                    Daily,   Beginning,  Mass,        Mean,    "",  "mass 2 of the day"},
    {"A42",    KM5 | SA94,              Daily,   End,        Mass,        Counter, "",  "mass 2"},
    {"A44",    SA94,                    Daily,   End,        Mass,        Counter, "",  "mass 3"},
    {"A45",    KM5 | SA94,              Daily,   Beginning,  Pressure,    Mean,    "",  "pressure 1"},
    {"A46",    KM5 | SA94,              Daily,   Beginning,  Pressure,    Mean,    "",  "pressure 2"},
    {"A47",    KM5 | SA94,              Daily,   Beginning,  Pressure,    Mean,    "",  "pressure 3"},
    {"A48",    KM5,                     Daily,   Beginning,  Temperature, Mean,    "",  "temperature 1"},
    {"A49",    KM5,                     Daily,   Beginning,  Temperature, Mean,    "",  "temperature 2"},
    {"A50",    KM5 | SA94,              Daily,   Beginning,  Temperature, Mean,    "",  "temperature 3"},
    {"A52",    SA94,                    Daily,   Beginning,  Time,        Mean,    "",  "time of condition 2"},
    {"A53",    SA94,                    Daily,   Beginning,  Time,        Mean,    "",  "time of condition 3"},
    {"A54",    SA94,                    Daily,   Beginning,  Time,        Mean,    "",  "time of condition 4"},
    {"T4",     VISTmodbus,              Hourly,  Beginning,  Temperature, Mean,    "",  "temperature 4"},
    {"_A20",   SA94,                    Hourly,  Beginning,  Temperature, Mean,    "",  "temperature 1"},
    {"_A21",   SA94,                    Hourly,  Beginning,  Temperature, Mean,    "",  "temperature 2"},
    {"_A48",   SA94,                    Daily,   Beginning,  Temperature, Mean,    "",  "temperature 1"},
    {"_A49",   SA94,                    Daily,   Beginning,  Temperature, Mean,    "",  "temperature 2"},
    {"_A57",   KM5 | SA94,              Events,  End,        State,       Value,   "",  "event"},
});
// clang-format on

}  // namespace

std::span<const ItemEntry> items() {
    return Items;
}

std::span<const ArchiveEntry> archives() {
    return Archives;
}

}  // namespace contract
