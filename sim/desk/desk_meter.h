#pragma once
// Meters for a developer's desk: made from a few words, with a past, on a line of their own choice, known to the
// configuration service.

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "config_service.h"
#include "meter_words.h"
#include "sim_meter.h"

namespace sim {

/// What holds for all meters of a desk.
struct DeskRules {
    std::time_t now = 0;
    std::string line;  ///< path of the line of a meter that names none
    unsigned speed = 9600;
    double history_days = 1.0;  ///< age of the oldest archive record
    bool sway = false;          ///< present values move with time
    double noise = 0.0;         ///< rates of misbehaviour, 0..1
    double silence = 0.0;
    double bad_sums = 0.0;
    std::uint64_t seed = 1;
};

/// A simulated meter, and how to write down all that it holds, a row for each fact.
struct MadeMeter {
    std::unique_ptr<SimMeter> meter;
    std::function<void(std::ostream& out, const std::string& uuid)> dump;
};

/// A meter type that words can ask for; each family has a file with its makers.
struct MeterType {
    const char* name;
    const char* manufacturer;  ///< in the answer of the configuration service
    const char* driver;        ///< what heatmeterd calls it
    const char* words;         ///< what a user can say of it, in rows that begin with six blanks
    /// Takes what it understands out of `words`. Throws std::invalid_argument.
    MadeMeter (*make)(MeterWords& words, const MeterSettings& settings, const DeskRules& rules);
};

std::span<const MeterType> meter_types();

/// Lets a meter of any family misbehave at the rates of the desk.
template <typename Meter, typename Fault>
void misbehave(Meter& meter, const DeskRules& rules, Fault noise, Fault silence, std::vector<Fault> bad_sums) {
    if (rules.noise > 0) meter.misbehave_randomly(rules.noise, rules.seed, {std::move(noise)});
    if (rules.silence > 0) meter.misbehave_randomly(rules.silence, rules.seed + 1, {std::move(silence)});
    if (rules.bad_sums > 0) meter.misbehave_randomly(rules.bad_sums, rules.seed + 2, std::move(bad_sums));
}

struct DeskMeter {
    std::string uuid;
    std::string line;
    MeterSettings settings;
    MadeMeter made;
};

/// Makes the `ordinal`th meter (from 1) of a desk. Throws std::invalid_argument with a text for the user.
DeskMeter make_desk_meter(const std::string& words, unsigned ordinal, const DeskRules& rules);

/// Takes what the service is to tell out of `words`. Throws std::invalid_argument.
void tell_service(MeterWords& words, MeterSettings& settings);

}  // namespace sim
