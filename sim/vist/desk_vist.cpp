#include "desk_vist.h"

#include <cctype>
#include <iomanip>
#include <stdexcept>
#include <utility>

#include "vist_meter.h"

namespace sim {

namespace {

constexpr double SecondsPerDay = 86400.0;
constexpr std::uint8_t ValueScale = 2;  // decimals of a present value given in words

/// Every archive line that a reader ought to file, and the present values.
void dump(const VistMeter& meter, std::ostream& out, const std::string& uuid) {
    out << std::fixed << std::setprecision(6);
    for (unsigned device = 0; device < meter.config().devices.size(); ++device) {
        for (const VistStoredRecord& record : meter.records(device)) {
            for (const VistFileValue& line : meter.record_files(record, device)) {
                out << uuid << ' ' << device + 1 << " line " << line.file << ' ' << line.time << ' ' << line.quality
                    << ' ' << line.value << '\n';
            }
        }
    }
}

std::vector<VistDevice> devices(long count) {
    if (count < 1 || count > static_cast<long>(VistMaxDevices)) {
        throw std::invalid_argument("devices=" + std::to_string(count) + ": 1 to 6");
    }
    std::vector<VistDevice> all(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < all.size(); ++i) all[i].name = "TS" + std::to_string(i + 1);
    return all;
}

void set_values(VistMeter& meter, MeterWords& words) {
    const std::map<std::string, std::string> given = words.left();
    for (const auto& [name, ignored] : given) {
        if (std::isupper(static_cast<unsigned char>(name[0])) == 0) continue;
        const auto number = static_cast<std::int64_t>(words.fraction(name, 0.0) * 100.0);
        for (unsigned device = 0; device < meter.config().devices.size(); ++device) {
            meter.set_value(name, {.number = number, .scale = ValueScale}, device);
        }
    }
}

}  // namespace

MadeMeter make_vist(MeterWords& words, const MeterSettings& settings, const DeskRules& rules) {
    VistConfig config;
    config.network = static_cast<int>(settings.serial);
    config.serial = static_cast<std::uint32_t>(words.number("number", static_cast<long>(settings.serial)));
    config.version = static_cast<int>(words.number("version", config.version));
    config.order = words.text("order", "big") == "little" ? VistOrder::Little : VistOrder::Big;
    config.devices = devices(words.number("devices", 2));
    config.clock_offset = words.number("clock", 0);
    config.clock_drift_ppm = words.fraction("drift", 0.0);
    config.plus_starts_at_set = true;
    auto meter = std::make_unique<VistMeter>(std::move(config));

    meter->record_archives(true, rules.now - static_cast<std::time_t>(rules.history_days * SecondsPerDay));
    meter->catch_up(rules.now);
    set_values(*meter, words);
    misbehave(*meter, rules, vist_noise(), vist_silence(), {vist_wrong_sum()});
    const auto write_down = [held = meter.get()](auto& out, auto& uuid) { dump(*held, out, uuid); };
    return {std::move(meter), write_down};
}

}  // namespace sim
