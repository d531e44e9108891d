#include "desk_km5.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <iomanip>
#include <map>
#include <numbers>
#include <stdexcept>
#include <utility>

#include "km5_meter.h"

namespace sim {

namespace {

constexpr double SecondsPerHour = 3600.0;
constexpr double SecondsPerDay = 86400.0;
constexpr double Swing = 0.02;          // of a value that sways, to both sides
constexpr double GrowthPerHour = 12.5;  // of a total

/// The event kinds that come in turn; the state bit is set in every other one.
constexpr std::uint8_t EventCodes[] = {0x85, 0x05, 0xC2, 0x42, 0x9A, 0x1A};

/// Lets the present values of a meter move, each in its own phase, before anybody can ask for them.
class SwayingKm5 final : public SimMeter {
  public:
    SwayingKm5(std::unique_ptr<Km5Meter> meter, std::time_t now) : meter_(std::move(meter)), start_(now) {
        for (const Km5PageFloat& row : km5_page_floats()) {
            const bool used = !row.name.empty() && (row.models >> meter_->config().model & 1U) != 0;
            if (used) rests_.emplace(row.name, meter_->value(std::string(row.name)));
        }
    }

    Answer hear(std::span<const std::uint8_t> request, std::time_t now) override {
        const double hours = std::difftime(now, start_) / SecondsPerHour;
        double phase = 0.0;
        for (const auto& [name, rest] : rests_) {
            const bool total = name[0] == 'I' || name == "Tp" || name == "Vi";
            const double moved = total ? rest + hours * GrowthPerHour : rest * (1.0 + Swing * std::sin(hours + phase));
            phase += std::numbers::phi;
            for (unsigned s = 0; s < meter_->config().subsystems; ++s) {
                meter_->set_value(name, static_cast<float>(moved), s);
            }
        }
        return meter_->hear(request, now);
    }

  private:
    std::unique_ptr<Km5Meter> meter_;
    std::time_t start_;
    std::map<std::string, float> rests_;
};

void dump_records(const Km5Meter& meter, Km5Archive archive, const char* label, unsigned subsystem, std::ostream& out,
                  const std::string& uuid) {
    for (const Km5StoredRecord& record : meter.records(archive, subsystem)) {
        out << uuid << ' ' << subsystem + 1 << ' ' << label << ' ' << record.time;
        for (std::size_t k = 0; k < Km5FieldCount; ++k) out << ' ' << Km5FieldNames[k] << '=' << record.values[k];
        out << '\n';
    }
}

void dump(const Km5Meter& meter, std::ostream& out, const std::string& uuid) {
    out << std::fixed << std::setprecision(6);
    for (unsigned s = 0; s < meter.config().subsystems; ++s) {
        dump_records(meter, Km5Archive::Hourly, "hourly", s, out, uuid);
        dump_records(meter, Km5Archive::Daily, "daily", s, out, uuid);
        for (const Km5StoredEvent& event : meter.events(s)) {
            out << uuid << ' ' << s + 1 << " event " << event.time << ' ' << static_cast<int>(event.code) << '\n';
        }
        for (const Km5PageFloat& row : km5_page_floats()) {
            const bool used = !row.name.empty() && (row.models >> meter.config().model & 1U) != 0;
            if (!used) continue;
            out << uuid << ' ' << s + 1 << " value " << row.name << ' ' << meter.value(std::string(row.name), s)
                << '\n';
        }
    }
}

/// Events at even distances between the beginning of the history and now.
void store_events(Km5Meter& meter, long count, const DeskRules& rules) {
    const double span = rules.history_days * SecondsPerDay;
    for (long k = 0; k < count; ++k) {
        const auto age = static_cast<long>(span * (1.0 - (static_cast<double>(k) + 0.5) / static_cast<double>(count)));
        const std::uint8_t code = EventCodes[static_cast<std::size_t>(k) % std::size(EventCodes)];
        for (unsigned s = 0; s < meter.config().subsystems; ++s) meter.store_event(rules.now - age, code, s);
    }
}

void set_values(Km5Meter& meter, MeterWords& words) {
    const std::map<std::string, std::string> given = words.left();
    for (const auto& [name, ignored] : given) {
        if (std::isupper(static_cast<unsigned char>(name[0])) == 0) continue;
        const auto value = static_cast<float>(words.fraction(name, 0.0));
        for (unsigned s = 0; s < meter.config().subsystems; ++s) meter.set_value(name, value, s);
    }
}

MadeMeter make(Km5Config config, MeterWords& words, const MeterSettings& settings, const DeskRules& rules) {
    config.serial = settings.serial;
    config.firmware = words.text("firmware", config.firmware);
    config.clock_offset = words.number("clock", 0);
    config.clock_drift_ppm = words.fraction("drift", 0.0);
    auto meter = std::make_unique<Km5Meter>(std::move(config));

    meter->record_archives(true, rules.now - static_cast<std::time_t>(rules.history_days * SecondsPerDay));
    meter->catch_up(rules.now);
    store_events(*meter, words.number("events", 4), rules);
    set_values(*meter, words);
    misbehave(*meter, rules, km5_noise(), km5_silence(), {km5_wrong_cs1(), km5_wrong_cs2()});

    const auto write_down = [held = meter.get()](auto& out, auto& uuid) { dump(*held, out, uuid); };
    if (rules.sway) return {std::make_unique<SwayingKm5>(std::move(meter), rules.now), write_down};
    return {std::move(meter), write_down};
}

}  // namespace

MadeMeter make_km5(MeterWords& words, const MeterSettings& settings, const DeskRules& rules) {
    const int model = static_cast<int>(words.number("model", 2));
    return make({.model = model}, words, settings, rules);
}

MadeMeter make_att(MeterWords& words, const MeterSettings& settings, const DeskRules& rules) {
    const int model = static_cast<int>(words.number("model", 2));
    return make({.model = model, .att = true}, words, settings, rules);
}

MadeMeter make_km56i(MeterWords& words, const MeterSettings& settings, const DeskRules& rules) {
    const auto named = [](const std::string& type) { return !type.empty(); };
    const auto count = std::count_if(settings.system_types.begin(), settings.system_types.end(), named);
    return make({.model = 7, .km56i = true, .subsystems = static_cast<unsigned>(count)}, words, settings, rules);
}

}  // namespace sim
