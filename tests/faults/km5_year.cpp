// KM5: hourly and daily records and events, each written once a pass has read it. In memory and in the files the
// reading goes on behind the newest record; nothing is ever thrown away.

#include <algorithm>
#include <array>

#include "faults/fault_plan.h"
#include "faults/year_meter.h"
#include "km5_meter.h"
#include "support/km5_lines.h"

namespace faults {

namespace {

using sim::Km5Archive;

constexpr std::time_t HoursHeld = 120;
constexpr std::time_t DaysHeld = 30;
constexpr std::time_t HoursBetweenEvents = 7;
constexpr int Minute = 60;
constexpr std::uint8_t CurrentCommand = 44;
constexpr std::uint8_t RecordCommand = 65;
constexpr std::uint8_t EventCommand = 55;
constexpr std::array Archives = {Km5Archive::Hourly, Km5Archive::Daily};
constexpr int Events = static_cast<int>(Km5Archive::Errors);
static_assert(Events == YearMeter::EventKind);

// A process that starts looks into these for the newest time, and not into those of averages.
constexpr const char* ProgressFiles[] = {"A1",  "A4",  "A6",  "A8",  "A10", "A12", "A14",
                                         "A16", "A29", "A32", "A34", "A40", "A42", "_A57"};

bool tells_progress(const std::string& file) {
    return std::find(std::begin(ProgressFiles), std::end(ProgressFiles), file) != std::end(ProgressFiles);
}

struct Variant {
    unsigned serial = 0;
    int model = 4;
    bool att = false;
    unsigned subsystems = 0;  ///< of a KM5-6i; 0: another model
    unsigned hot_water = 0;   ///< bit for each subsystem

    unsigned parts() const { return subsystems == 0 ? 1 : subsystems; }
    bool is_hot_water(unsigned part) const { return (hot_water >> part & 1U) != 0; }
    sim::Km5Config config() const {
        return {.serial = serial,
                .model = model,
                .att = att,
                .km56i = subsystems > 0,
                .subsystems = parts(),
                .clock_offset = YearMeter::ClockAhead,
                .capacity = {.hourly = HoursHeld, .daily = DaysHeld, .errors = 48}};
    }
};

Variant draw_variant(int number, bool att, Dice& dice) {
    // The second highest digit tells the subsystem of a KM5-6i and has to be 0: until the driver knows what it speaks
    // to, it asks at the plain serial number.
    Variant variant{.serial = number == 0 ? 10345678U : 20456722U, .att = att};
    constexpr int Models = 6;
    const int kind = static_cast<int>(dice.below(att ? Models : Models + 3));
    if (kind < Models) {
        variant.model = 1 + kind;
    } else {
        variant.model = 7;
        variant.subsystems = static_cast<unsigned>(1 + kind - Models);
    }
    variant.hot_water = static_cast<unsigned>(dice.below(std::uint64_t{1} << variant.parts()));
    return variant;
}

class Km5Year final : public YearMeter {
  public:
    explicit Km5Year(const Variant& variant) : variant_(variant) {}

    std::string model() const override {
        std::string water;
        for (unsigned part = 0; part < variant_.parts(); ++part) {
            if (variant_.is_hot_water(part))
                water += (water.empty() ? ", hot water in " : " ") + std::to_string(part + 1);
        }
        if (variant_.att) return "AT-T-" + std::to_string(variant_.model) + water;
        if (variant_.subsystems == 0) return "KM5-" + std::to_string(variant_.model) + water;
        return "KM5-6i with " + std::to_string(variant_.subsystems) + " subsystems" + water;
    }

    sim::MeterSettings settings() const override {
        sim::MeterSettings settings{.serial = variant_.serial,
                                    .port_name = "/dev/ttyS1",
                                    .manufacturer = variant_.subsystems > 0 ? "km-5-6i" : "km-5"};
        for (unsigned part = 0; part < variant_.parts(); ++part) {
            settings.system_types.at(part) = variant_.is_hot_water(part) ? "gvs" : "heat";
        }
        return settings;
    }

    void begin(std::time_t now) override {
        own_.record_archives(true, now - DaysHeld * 24 * Hour);
        other_done_ = now - HoursHeld * Hour;
        next_event_ = now + Hour;
    }

    sim::SimMeter& meter(bool other) override { return other ? other_ : own_; }

    void misbehave(double rate, std::uint64_t seed) override {
        set_faults(rate, seed,
                   {sim::km5_noise(), sim::km5_wrong_cs1(), sim::km5_wrong_cs2(), sim::km5_wrong_echo(),
                    sim::km5_halved(), sim::km5_silence(), sim::km5_error(0xFB), sim::km5_over_long()});
    }
    void cut_answers(double rate, std::uint64_t seed) override {
        set_faults(rate, seed, {sim::km5_short(1), sim::km5_short(7), sim::km5_short(30)});
    }

    std::vector<YearRecord> collect(std::time_t now) override {
        own_.catch_up(now);
        record_other(now);
        if (now >= next_event_) store_events(now);
        std::vector<YearRecord> all;
        for (unsigned part = 0; part < variant_.parts(); ++part) {
            for (const Km5Archive archive : Archives) {
                Taken& taken = taken_.at(part);
                take(own_, part, archive, taken.own[static_cast<std::size_t>(archive)], true, all);
                take(other_, part, archive, taken.other[static_cast<std::size_t>(archive)], false, all);
            }
            std::size_t& events = taken_.at(part).events;
            for (; events < own_.events(part).size(); ++events) take_event(part, own_.events(part)[events], all);
        }
        return all;
    }

    std::time_t oldest_held(int archive) override {
        const auto part = static_cast<unsigned>(archive / Kinds);
        if (is_event(archive)) return held_of(own_.events(part), own_.config().capacity.errors);
        const auto kind = static_cast<Km5Archive>(archive % Kinds);
        return held_of(own_.records(kind, part), held_by(kind));
    }

    std::time_t last_asked(int archive, bool other) override {
        const auto part = static_cast<unsigned>(archive / Kinds);
        const std::uint8_t command = is_event(archive) ? EventCommand : RecordCommand;
        return last_heard((other ? other_ : own_).heard(), [&](const sim::Km5Heard& heard) {
            return heard.subsystem == part && heard.command() == command && heard.data(0) == archive % Kinds;
        });
    }

    double least_calm() const override { return (40 + 5 * variant_.parts()) * Minute; }
    double calm_beside_another() const override { return 5 * variant_.parts() * Minute; }

    /// A KM5-6i that did not say its type while it was described, for that moment, passes for one without subsystems as
    /// long as the process lives.
    bool is_lost_to_process_since(std::time_t begin) const override {
        if (variant_.subsystems < 2) return false;
        const auto asked_for_values = [&](unsigned part) {
            const auto& heard = own_.heard();
            return std::any_of(heard.begin(), heard.end(), [&](const sim::Km5Heard& request) {
                return request.at >= begin && request.subsystem == part && request.command() == CurrentCommand &&
                       request.data(0) != 0;
            });
        };
        return asked_for_values(0) && !asked_for_values(1);
    }

  private:
    struct Taken {
        std::array<std::size_t, 2> own = {};
        std::array<std::size_t, 2> other = {};
        std::size_t events = 0;
    };

    static std::size_t held_by(Km5Archive archive) {
        return static_cast<std::size_t>(archive == Km5Archive::Hourly ? HoursHeld : DaysHeld);
    }
    template <typename Item>
    static std::time_t held_of(const std::vector<Item>& ever, std::size_t capacity) {
        if (ever.empty()) return 0;
        return ever[ever.size() > capacity ? ever.size() - capacity : 0].time;
    }

    void set_faults(double rate, std::uint64_t seed, const std::vector<sim::Km5Fault>& faults) {
        for (sim::Km5Meter* meter : {&own_, &other_}) {
            meter->behave();
            if (rate > 0) meter->misbehave_randomly(rate, seed, faults);
        }
    }

    /// The other meter says the same serial number, so its records are told by their values.
    void record_other(std::time_t now) {
        for (std::time_t next = other_done_ / Hour * Hour + Hour; next <= now; next += Hour) {
            other_done_ = next;
            for (unsigned part = 0; part < variant_.parts(); ++part) {
                const auto v = sim::Km5Meter::recorded_values(variant_.serial + 1, part, Km5Archive::Hourly, next);
                other_.store_hourly(
                    {next, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9], v[10], v[11], v[12], v[13]},
                    part);
            }
        }
    }
    void store_events(std::time_t now) {
        for (unsigned part = 0; part < variant_.parts(); ++part) {
            const unsigned kind = 60 + (event_ + 7 * part) % 40;
            own_.store_event(own_.clock(now), static_cast<std::uint8_t>(kind + (event_ % 2 == 0 ? 128 : 0)), part);
        }
        ++event_;
        next_event_ += HoursBetweenEvents * Hour;
    }

    void take(const sim::Km5Meter& meter, unsigned part, Km5Archive archive, std::size_t& taken, bool own,
              std::vector<YearRecord>& all) const {
        const auto& ever = meter.records(archive, part);
        for (; taken < ever.size(); ++taken) {
            sim::Km5StoredRecord record = ever[taken];
            const std::time_t twin = twin_of(record.time);
            const bool held = taken + held_by(archive) >= ever.size();
            all.push_back(record_of(part, archive, record, own && held && twin == record.time));
            if (twin == record.time) continue;
            record.time = twin;
            all.push_back(record_of(part, archive, record, false));
        }
    }
    static std::string place(unsigned part, const std::string& file) {
        return std::to_string(part + 1) + "/tc_archives/" + file;
    }
    YearRecord record_of(unsigned part, Km5Archive archive, const sim::Km5StoredRecord& record, bool promised) const {
        YearRecord result{.archive = archive_number(static_cast<int>(part), static_cast<int>(archive)),
                          .time = record.time,
                          .promised = promised};
        const bool daily = archive == Km5Archive::Daily;
        for (const Km5Line& line : km5_record_lines(variant_.model, archive, record, variant_.is_hot_water(part))) {
            const bool average = line.time != record.time;
            result.lines.push_back(
                {place(part, line.file),
                 average && daily ? std::to_string(day_of_averages(record.time)) + line.text.substr(line.text.find(','))
                                  : line.text,
                 tells_progress(line.file)});
        }
        return result;
    }
    /// The midnight before, but for the day on which summer time ends: its averages are dated an hour before the
    /// totals.
    static std::time_t day_of_averages(std::time_t time) {
        time -= 24 * Hour;
        std::tm tm{};
        ::localtime_r(&time, &tm);
        if (tm.tm_hour == 0) return time;
        tm.tm_hour = 0;
        ++tm.tm_mday;
        return std::mktime(&tm);
    }
    static void take_event(unsigned part, sim::Km5StoredEvent event, std::vector<YearRecord>& all) {
        const std::time_t time = event.time;
        for (const std::time_t shown : {time, twin_of(time)}) {
            event.time = shown;
            const Km5Line line = km5_event_line(event);
            all.push_back({.archive = archive_number(static_cast<int>(part), Events),
                           .time = shown,
                           .promised = twin_of(time) == time,
                           .lines = {{place(part, line.file), line.text}}});
            if (twin_of(time) == time) break;
        }
    }

    Variant variant_;
    sim::Km5Meter own_{variant_.config()};
    sim::Km5Meter other_{variant_.config()};
    std::array<Taken, sim::Km5MaxSubsystems> taken_ = {};
    std::time_t other_done_ = 0;
    std::time_t next_event_ = 0;
    unsigned event_ = 0;
};

}  // namespace

std::unique_ptr<YearMeter> make_km5_meter(int number, bool att, Dice& dice) {
    return std::make_unique<Km5Year>(draw_variant(number, att, dice));
}

}  // namespace faults
