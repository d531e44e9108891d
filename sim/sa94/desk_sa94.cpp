#include "desk_sa94.h"

#include <cmath>
#include <iomanip>
#include <stdexcept>
#include <utility>

#include "sa94_meter.h"

namespace sim {

namespace {

constexpr double HoursPerDay = 24.0;
constexpr std::time_t SecondsPerHour = 3600;
constexpr unsigned AddressBits = 0xFFFFF;  // a serial number that is wider goes out without its top

/// The errors that come in turn, begun and over.
constexpr std::uint8_t ErrorCodes[] = {5, 9, 17};

/// Every archive line that a reader ought to file.
void dump(const Sa94Meter& meter, std::ostream& out, const std::string& uuid) {
    out << std::fixed << std::setprecision(6);
    for (const auto archive : {Sa94Archive::Hourly, Sa94Archive::Daily, Sa94Archive::Errors}) {
        for (const Sa94StoredRecord& record : meter.records(archive)) {
            for (const Sa94FileValue& line : meter.record_files(archive, record)) {
                out << uuid << " 1 line " << line.file << ' ' << line.time << ' ' << line.quality << ' ' << line.value
                    << '\n';
            }
        }
    }
}

Sa94Turning turning(const std::string& word) {
    if (word == "segment") return Sa94Turning::EraseSegment;
    if (word == "block") return Sa94Turning::EraseBlockAhead;
    if (word == "none") return Sa94Turning::Overwrite;
    throw std::invalid_argument("turning=" + word + ": segment, block or none");
}

std::uint8_t status_byte(long number) {
    if (number < 0 || number > 0xFF) throw std::invalid_argument("status=" + std::to_string(number) + ": 0 to 255");
    return static_cast<std::uint8_t>(number);
}

/// Errors at even distances between the beginning of the history and now.
void store_errors(Sa94Meter& meter, long count, double hours, std::time_t now) {
    for (long k = 0; k < count; ++k) {
        const double part = 1.0 - (static_cast<double>(k) + 0.5) / static_cast<double>(count);
        const auto age = static_cast<std::time_t>(hours * static_cast<double>(SecondsPerHour) * part);
        const std::uint8_t code = ErrorCodes[static_cast<std::size_t>(k / 2) % std::size(ErrorCodes)];
        meter.store_event({.at = now - age, .code = code, .stopped = k % 2 == 1});
    }
}

void set_values(Sa94Meter& meter, MeterWords& words) {
    const std::map<std::string, std::string> given = words.left();
    for (const auto& [name, ignored] : given) {
        if (meter.has_value(name)) meter.set_value(name, static_cast<float>(words.fraction(name, 0.0)));
    }
}

}  // namespace

MadeMeter make_sa94(MeterWords& words, const MeterSettings& settings, const DeskRules& rules) {
    Sa94Config config;
    config.address = settings.serial & AddressBits;
    config.firmware = words.text("firmware", config.firmware);
    config.status = status_byte(words.number("status", config.status));
    config.turning = turning(words.text("turning", "segment"));
    config.clock_offset = words.number("clock", 0);
    config.clock_drift_ppm = words.fraction("drift", 0.0);
    config.sway = rules.sway;
    const double hours = words.fraction("hours", rules.history_days * HoursPerDay);
    if (!(hours >= 0.0)) throw std::invalid_argument("hours: not below 0");
    auto meter = std::make_unique<Sa94Meter>(std::move(config));

    meter->record_archives(
        true, rules.now - static_cast<std::time_t>(std::llround(hours * static_cast<double>(SecondsPerHour))));
    meter->catch_up(rules.now);
    store_errors(*meter, words.number("events", 4), hours, rules.now);
    set_values(*meter, words);
    // There is no sum on this wire: a bad answer is a garbled one.
    misbehave(*meter, rules, sa94_noise(), sa94_silence(), {sa94_garbled(1, 4)});
    const auto write_down = [held = meter.get()](auto& out, auto& uuid) { dump(*held, out, uuid); };
    return {std::move(meter), write_down};
}

}  // namespace sim
