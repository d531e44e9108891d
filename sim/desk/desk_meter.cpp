#include "desk_meter.h"

#include <algorithm>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "desk_km5.h"
#include "desk_modbus_vist.h"
#include "desk_sa94.h"
#include "desk_vist.h"

namespace sim {

namespace {

constexpr char WordsOfKm5[] =
    "      model=1..7 (2), firmware=TEXT (2.15; four characters), clock=SECONDS, drift=PPM, events=N (4)\n"
    "      values: T1 T2 T3 T4 T5 T6 Ta P1 P2 P4 Q1 Q2 Q4 M1 M2 M4 M5 IE1 IE2 IM1 IM2 IT1 Tp; IM3 of model 3,\n"
    "      Vi of models but 5 and 6, IQ1 IQ2 of models but 6, IE4 of models 5 and 6, IM4 IM5 of model 6\n";

constexpr MeterType Types[] = {
    {"km5", "km-5", "KM5", WordsOfKm5, make_km5},
    {"km56i", "km-5-6i", "KM56i",
     "      systems=1..3 are its subsystems; firmware=, clock=, drift=, events= and values as km5\n", make_km56i},
    {"att", "km-5", "ATT", "      as km5\n", make_att},
    {"vist", "vis-t", "VIST",
     "      serial=N is its network number; number=N the serial number that it says itself (the same);\n"
     "      devices=1..6 (2), version=100..102, order=big|little (big), clock=SECONDS, drift=PPM\n"
     "      values: T1 T2 T3 T4 P1 P2 P3 Q1 Q2 Q3 M1 M2 M3 E IT IQ1 IQ2 IQ3 IM1 IM2 IM3 IE\n",
     make_vist},
    {"vist-modbus", "vis-t-modbus", "VISTmodbus",
     "      serial=N: the low byte is its address, and not 0; devices=1..3 (2), clock=SECONDS, drift=PPM\n"
     "      values: T1 T2 T3 T4 P1 P2 P3 Q1 Q2 Q3 M1 M2 M3 V1 V2 V3 G1 G2 G3 E1, and decimals GP1 GP2 GP3 GP4 MV1\n"
     "      MV2 MV3 MV4\n",
     make_modbus_vist},
    {"sa94", "sa-94-2m", "SA94",
     "      serial=N: the low 20 bits are its bus address; firmware=M301 (or 201, 301, M100, M300, M401, M451,\n"
     "      M461, MTE1), status=0..255 (6), hours=N of archives (24 for each of --history-days), clock=SECONDS,\n"
     "      drift=PPM, events=N (4), turning=segment|block|none (segment): erased where the archive begins anew\n"
     "      values: T1 T2 T3 dT P1 P2 M1 M2 IE1 IM1 IM2 IT1; Q1 Q2 IQ1 IQ2 in the place of masses in 201, 301 and\n"
     "      MTE1, p1 p2 p3 in that of totals in M451 and M461; M100 and M300 have fewer\n",
     make_sa94},
};

constexpr unsigned FirstSerial = 12345677;  // of the meter before the first

const MeterType& type_named(const std::string& name) {
    const auto* type = std::find_if(std::begin(Types), std::end(Types), [&](auto& row) { return row.name == name; });
    if (type == std::end(Types)) throw std::invalid_argument("type=" + name + ": no such type of meter");
    return *type;
}

unsigned natural(const std::string& key, long number) {
    if (number < 0 || number > std::numeric_limits<std::int32_t>::max()) {
        throw std::invalid_argument(key + "=" + std::to_string(number) + ": out of range");
    }
    return static_cast<unsigned>(number);
}

/// "2" are two systems of the usual kind, "heating+gvs" are the two of these names.
std::array<std::string, 6> system_types(const std::string& text) {
    std::array<std::string, 6> types;
    const bool counted = text.size() == 1 && text[0] >= '0' && text[0] <= '6';
    std::istringstream names(text);
    std::size_t count = 0;
    if (counted) {
        for (const auto most = static_cast<std::size_t>(text[0] - '0'); count < most; ++count) types[count] = "heating";
        return types;
    }
    for (std::string name; std::getline(names, name, '+'); ++count) {
        if (count == types.size()) throw std::invalid_argument("systems=" + text + ": more than six");
        types[count] = name;
    }
    return types;
}

}  // namespace

std::span<const MeterType> meter_types() {
    return Types;
}

void tell_service(MeterWords& words, MeterSettings& settings) {
    settings.serial = natural("serial", words.number("serial", settings.serial));
    settings.port_name = words.text("port", settings.port_name);
    settings.speed = natural("speed", words.number("speed", settings.speed));
    settings.parity = words.text("parity", settings.parity);
    settings.manufacturer = words.text("manufacturer", settings.manufacturer);
    if (const std::string systems = words.text("systems", ""); !systems.empty()) {
        settings.system_types = system_types(systems);
    }
    settings.port_alias = words.text("alias", settings.port_alias);
}

DeskMeter make_desk_meter(const std::string& text, unsigned ordinal, const DeskRules& rules) {
    MeterWords words(text);
    const std::string name = words.text("type", "km5");
    const MeterType& type = type_named(name);
    DeskMeter desk;
    desk.uuid = words.text("uuid", std::string("m").append(std::to_string(ordinal)));
    desk.line = words.text("line", rules.line);

    MeterSettings& settings = desk.settings;
    settings.serial = FirstSerial + ordinal;
    settings.port_name = desk.line;
    settings.speed = rules.speed;
    settings.manufacturer = type.manufacturer;
    settings.system_types[0] = "heating";
    tell_service(words, settings);

    desk.made = type.make(words, settings, rules);
    words.finish();
    return desk;
}

}  // namespace sim
