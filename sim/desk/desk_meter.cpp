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

constexpr MeterType Types[] = {
    {"km5", "km-5", "KM5-1 to KM5-6: model=1..7, firmware=, clock=, drift=, events=, NAME=VALUE", make_km5},
    {"km56i", "km-5-6i", "KM5-6i with up to three subsystems (systems=): as km5, without model", make_km56i},
    {"att", "km-5", "AT-T: as km5", make_att},
    {"vist", "vis-t", "VIST: devices=1..6, version=100..102, order=big|little, clock=, drift=, NAME=VALUE", make_vist},
    {"sa94", "sa-94-2m",
     "SA-94 at the bus address serial= (20 bits): firmware=M301, status=6, hours=24, clock=, drift=, events=,\n"
     "                  turning=segment|block|none, NAME=VALUE",
     make_sa94},
    {"vist-modbus", "vis-t-modbus", "VIST over Modbus: devices=1..3, clock=, drift=, NAME=VALUE", make_modbus_vist},
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

DeskMeter make_desk_meter(const std::string& text, unsigned ordinal, const DeskRules& rules) {
    MeterWords words(text);
    const std::string name = words.text("type", "km5");
    const MeterType& type = type_named(name);
    DeskMeter desk;
    desk.uuid = words.text("uuid", std::string("m").append(std::to_string(ordinal)));
    desk.line = words.text("line", rules.line);

    MeterSettings& settings = desk.settings;
    settings.serial = natural("serial", words.number("serial", FirstSerial + ordinal));
    settings.port_name = words.text("port", desk.line);
    settings.speed = natural("speed", words.number("speed", static_cast<long>(rules.speed)));
    settings.parity = words.text("parity", "N");
    settings.manufacturer = words.text("manufacturer", type.manufacturer);
    settings.system_types = system_types(words.text("systems", "1"));
    settings.port_alias = words.text("alias", "");

    desk.made = type.make(words, settings, rules);
    words.finish();
    return desk;
}

}  // namespace sim
