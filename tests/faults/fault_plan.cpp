#include "faults/fault_plan.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace faults {

namespace {

constexpr double Hour = 3600;
constexpr double Day = 24 * Hour;
constexpr double MostOfADay = 20 * Hour;

// A pass over the archives is due half an hour after the start at the latest, and then once an hour; a meter that
// stands before its change of the hour puts it off.
constexpr double CalmBehindAStart = 45 * 60;
constexpr double CalmOfOld = 100 * 60;

/// Days of the year on which a short plan begins, so that one of the changes of summer time falls into it.
constexpr const char* Beginnings[] = {"03-24 08:10", "10-22 17:40", "02-26 05:20", "12-24 11:00"};

/// How long a fault lasts, seconds.
double duration_of(Fault fault, Dice& dice) {
    switch (fault) {
        case Fault::Silence:
            return dice.one_in(12) ? dice.between(2 * Day, 7 * Day) : dice.between(0.2 * Hour, MostOfADay);
        case Fault::Restart:
        case Fault::StrayBytes:
            return dice.between(1.2 * Hour, 3 * Hour);
        case Fault::PowerCut:
            return dice.between(2 * Hour, 6 * Hour);
        case Fault::ClockForward:
        case Fault::ClockBack:
            return dice.between(0.5 * Hour, 6 * Hour);
        default:
            return dice.between(1 * Hour, 10 * Hour);
    }
}

std::vector<Fault> shuffled_kinds(Dice& dice) {
    std::vector<Fault> kinds;
    for (int kind = 0; kind < FaultKinds; ++kind) kinds.push_back(static_cast<Fault>(kind));
    for (std::size_t left = kinds.size(); left > 1; --left) std::swap(kinds[left - 1], kinds[dice.below(left)]);
    return kinds;
}

}  // namespace

std::uint64_t Dice::next() {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
    z = (z ^ z >> 27) * 0x94D049BB133111EB;
    return z ^ z >> 31;
}

double Dice::between(double low, double high) {
    return low + (high - low) * (static_cast<double>(next() >> 11) / 9007199254740992.0);
}

std::string fault_name(Fault fault) {
    static constexpr const char* Names[] = {
        "noise", "cut answers", "silence",   "stray bytes", "another meter",     "clock ahead",     "clock behind",
        "pause", "restart",     "power cut", "full disk",   "read-only storage", "lost durability", "vanished folder"};
    static_assert(std::size(Names) == FaultKinds);
    return Names[static_cast<int>(fault)];
}

Plan draw_plan(std::uint64_t seed, int days, double least_calm) {
    Dice dice(seed);
    Plan plan;
    // A gateway whose clock is behind that of the files trusts no file's time of change; one in eight is such.
    const int year = dice.one_in(8) ? 2024 : 2030 + static_cast<int>(dice.below(6));
    char start[32];
    std::snprintf(start, sizeof(start), "%d-%s", year, Beginnings[seed % std::size(Beginnings)]);
    plan.start = start;

    double at = 0.5 * Hour;
    std::vector<Fault> turns;  // every kind has its turn before one comes again
    while (at < days * Day) {
        Episode episode{.begin = at};
        if (turns.empty()) turns = shuffled_kinds(dice);
        episode.fault = turns.back();
        turns.pop_back();
        episode.fault_at = at + dice.between(0.5 * Hour, 8 * Hour);
        episode.fault_end = episode.fault_at + duration_of(episode.fault, dice);
        episode.calm_at = episode.fault_end + dice.between(60, 0.5 * Hour);
        episode.background = dice.one_in(3) ? 0.0 : dice.between(0.005, 0.05);
        episode.restart_for_calm = !dice.one_in(3);
        const double calm = episode.restart_for_calm ? CalmBehindAStart : CalmOfOld;
        episode.calm_end = episode.calm_at + std::max(calm, least_calm);
        episode.number = dice.next();
        episode.free_every = dice.between(2 * Hour, 5 * Hour);
        episode.free_offset = dice.between(0, Hour);
        at = episode.calm_end;
        plan.episodes.push_back(episode);
    }
    return plan;
}

}  // namespace faults
