#include "desk_modbus_vist.h"

#include <cctype>
#include <cmath>
#include <iomanip>
#include <limits>
#include <stdexcept>
#include <utility>

#include "modbus_vist_meter.h"

namespace sim {

namespace {

constexpr double SecondsPerDay = 86400.0;

/// Every archive line that a reader ought to file.
void dump(const ModbusVistMeter& meter, std::ostream& out, const std::string& uuid) {
    out << std::fixed << std::setprecision(6);
    for (unsigned system = 0; system < meter.config().systems.size(); ++system) {
        for (const ModbusVistStored& record : meter.records(system)) {
            for (const VistFileValue& line : meter.record_files(record, system)) {
                out << uuid << ' ' << system + 1 << " line " << line.file << ' ' << line.time << ' ' << line.quality
                    << ' ' << line.value << '\n';
            }
        }
    }
}

std::vector<ModbusVistSystem> systems(long count) {
    if (count < 1 || count > static_cast<long>(ModbusVistSystems)) {
        throw std::invalid_argument("devices=" + std::to_string(count) + ": 1 to 3");
    }
    std::vector<ModbusVistSystem> all(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < all.size(); ++i) all[i].name = "TS" + std::to_string(i + 1);
    return all;
}

/// What a register holds for one degree, one cubic metre per hour and so on; 1 where a value has no unit of its own.
double unit(const ModbusVistMeter& meter, const std::string& name, const DeskRules& rules) {
    constexpr double PerHour = 3600.0;
    constexpr double EnergySteps = 1200.0;
    if (name.size() != 2) return 1.0;
    switch (name[0]) {
        case 'T':
            return 100.0;
        case 'P':
            return 10.0;
        case 'Q':
        case 'M':
            return std::pow(10.0, meter.value(std::string("GP") + name[1], rules.now));
        case 'V':
        case 'G':
            return PerHour;
        case 'E':
            return EnergySteps;
        default:
            return 1.0;
    }
}

void set_values(ModbusVistMeter& meter, MeterWords& words, const DeskRules& rules) {
    const std::map<std::string, std::string> given = words.left();
    for (const auto& [name, ignored] : given) {
        if (std::isupper(static_cast<unsigned char>(name[0])) == 0) continue;
        meter.value(name, rules.now);  // throws when there is no such value
        const double number = std::round(words.fraction(name, 0.0) * unit(meter, name, rules));
        if (!(number >= 0.0 && number <= std::numeric_limits<std::uint32_t>::max())) {
            throw std::invalid_argument("no room in a register for " + name);
        }
        for (unsigned system = 0; system < meter.config().systems.size(); ++system) {
            meter.set_value(name, static_cast<std::uint32_t>(number), system);
        }
    }
}

}  // namespace

MadeMeter make_modbus_vist(MeterWords& words, const MeterSettings& settings, const DeskRules& rules) {
    ModbusVistConfig config;
    config.serial = settings.serial;
    config.systems = systems(words.number("devices", 2));
    config.clock_offset = words.number("clock", 0);
    config.clock_drift_ppm = words.fraction("drift", 0.0);
    auto meter = std::make_unique<ModbusVistMeter>(std::move(config));
    if (meter->address() == 0) {
        throw std::invalid_argument("serial=" + std::to_string(settings.serial) +
                                    ": its low byte is everybody's address");
    }

    meter->record_archives(true, rules.now - static_cast<std::time_t>(rules.history_days * SecondsPerDay));
    meter->catch_up(rules.now);
    set_values(*meter, words, rules);
    misbehave(*meter, rules, modbus_noise(), modbus_silence(), {modbus_wrong_crc()});
    const auto write_down = [held = meter.get()](auto& out, auto& uuid) { dump(*held, out, uuid); };
    return {std::move(meter), write_down};
}

}  // namespace sim
