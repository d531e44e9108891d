// KM5: hourly and daily records and events, each written once a pass has read it. In memory and in the files the
// reading goes on behind the newest record; nothing is ever thrown away.

#include <array>

#include "config/config_client.h"
#include "drivers/km5/km5_base.h"
#include "faults/year_family.h"
#include "km5_meter.h"
#include "support/km5_lines.h"

namespace faults {

namespace {

using sim::Km5Archive;

constexpr unsigned Serial = 12345678;
constexpr int Model = 4;
constexpr std::time_t HoursHeld = 120;
constexpr std::time_t DaysHeld = 30;
constexpr std::time_t HoursBetweenEvents = 7;
constexpr std::array Archives = {Km5Archive::Hourly, Km5Archive::Daily};
constexpr int Events = static_cast<int>(Km5Archive::Errors);

class Km5Year final : public YearFamily {
  public:
    sim::MeterSettings settings() const override {
        return {.serial = Serial, .port_name = "/dev/ttyS1", .manufacturer = "km-5", .system_types = {"heat"}};
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
        if (now >= next_event_) {
            const auto code = static_cast<std::uint8_t>(60 + event_ % 40 + (event_ % 2 == 0 ? 128 : 0));
            own_.store_event(own_.clock(now), code);
            ++event_;
            next_event_ += HoursBetweenEvents * Hour;
        }
        std::vector<YearRecord> all;
        for (const Km5Archive archive : Archives) {
            take(own_, archive, own_taken_[static_cast<std::size_t>(archive)], true, all);
            take(other_, archive, other_taken_[static_cast<std::size_t>(archive)], false, all);
        }
        for (; events_taken_ < own_.events().size(); ++events_taken_) take_event(own_.events()[events_taken_], all);
        return all;
    }

    std::time_t oldest_held(int archive) override {
        if (archive == Events) return own_.events().empty() ? 0 : held_of(own_.events(), config().capacity.errors);
        const auto kind = static_cast<Km5Archive>(archive);
        return held_of(own_.records(kind), held_by(kind));
    }

    void live(const std::string& uuid) override {
        KM5_base base({uuid}, false, false);
        read_driver_config(base);
        base.open_tty();
        base.run_main();
    }

  private:
    static sim::Km5Config config() {
        return {.serial = Serial,
                .model = Model,
                .clock_offset = 40,
                .capacity = {.hourly = HoursHeld, .daily = DaysHeld, .errors = 48}};
    }
    static std::size_t held_by(Km5Archive archive) {
        return archive == Km5Archive::Hourly ? config().capacity.hourly : config().capacity.daily;
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
            const auto v = sim::Km5Meter::recorded_values(Serial + 1, 0, Km5Archive::Hourly, next);
            other_.store_hourly(
                {next, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9], v[10], v[11], v[12], v[13]});
        }
    }

    static void take(const sim::Km5Meter& meter, Km5Archive archive, std::size_t& taken, bool own,
                     std::vector<YearRecord>& all) {
        const auto& ever = meter.records(archive);
        for (; taken < ever.size(); ++taken) {
            sim::Km5StoredRecord record = ever[taken];
            const std::time_t twin = twin_of(record.time);
            const bool held = taken + held_by(archive) >= ever.size();
            all.push_back(record_of(archive, record, own && held && twin == record.time));
            if (twin == record.time) continue;
            record.time = twin;
            all.push_back(record_of(archive, record, false));
        }
    }
    static YearRecord record_of(Km5Archive archive, const sim::Km5StoredRecord& record, bool promised) {
        YearRecord result{.archive = static_cast<int>(archive), .time = record.time, .promised = promised};
        for (const Km5Line& line : km5_record_lines(Model, archive, record)) {
            const bool average = line.time != record.time;
            const bool daily = archive == Km5Archive::Daily;
            result.lines.push_back(
                {"1/tc_archives/" + line.file,
                 average && daily ? std::to_string(day_of_averages(record.time)) + line.text.substr(line.text.find(','))
                                  : line.text});
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
    static void take_event(sim::Km5StoredEvent event, std::vector<YearRecord>& all) {
        const std::time_t time = event.time;
        for (const std::time_t shown : {time, twin_of(time)}) {
            event.time = shown;
            const Km5Line line = km5_event_line(event);
            all.push_back({.archive = Events,
                           .time = shown,
                           .promised = twin_of(time) == time,
                           .lines = {{"1/tc_archives/" + line.file, line.text}}});
            if (twin_of(time) == time) break;
        }
    }

    sim::Km5Meter own_{config()};
    sim::Km5Meter other_{config()};
    std::array<std::size_t, 2> own_taken_ = {};
    std::array<std::size_t, 2> other_taken_ = {};
    std::size_t events_taken_ = 0;
    std::time_t other_done_ = 0;
    std::time_t next_event_ = 0;
    unsigned event_ = 0;
};

}  // namespace

std::unique_ptr<YearFamily> make_km5_year() {
    return std::make_unique<Km5Year>();
}

}  // namespace faults
