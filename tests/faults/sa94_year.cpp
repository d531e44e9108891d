// SA-94: hourly and daily records, written once a pass has read them. Events are not owed: a run of events passes over
// some of each later block.

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

#include "faults/fault_plan.h"
#include "faults/year_meter.h"
#include "sa94_meter.h"

namespace faults {

namespace {

using sim::Sa94Archive;

constexpr std::uint32_t Address = 0x2A13F;
constexpr std::time_t HoursBetweenEvents = 9;
constexpr int Minute = 60;
constexpr std::array Archives = {Sa94Archive::Errors, Sa94Archive::Hourly, Sa94Archive::Daily};

static_assert(static_cast<int>(Sa94Archive::Errors) == YearMeter::EventKind);

/// Every form of memory and records. M411, as 100, 101 and 300, has records of which nobody knows the form: of those
/// nothing is filed.
constexpr const char* Firmwares[] = {"M100", "200",  "M300", "M101", "201",    "MTE1",
                                     "301",  "M301", "M451", "M461", "M451-m", "M411"};
/// Masses; volumes in the first two channels of those that have the choice; no third temperature.
constexpr std::uint8_t Statuses[] = {0x06, 0x46, 0x00};

sim::Sa94Config draw_config(Dice& dice) {
    return {.address = Address,
            .firmware = Firmwares[dice.below(std::size(Firmwares))],
            .status = Statuses[dice.below(std::size(Statuses))],
            .clock_offset = YearMeter::ClockAhead};
}

/// A process that starts looks into these for the newest time.
bool tells_progress(const std::string& file) {
    if (!file.starts_with("A")) return file == "_A57";
    constexpr int LastHourly = 16;
    constexpr int Daily[] = {29, 32, 34, 40, 42};
    const int number = std::stoi(file.substr(1));
    return number <= LastHourly || std::find(std::begin(Daily), std::end(Daily), number) != std::end(Daily);
}

class Sa94Year final : public YearMeter {
  public:
    explicit Sa94Year(const sim::Sa94Config& config) : own_(config), other_(config) {}

    std::string model() const override {
        char text[32];
        std::snprintf(text, sizeof(text), ", status 0x%02X", own_.config().status);
        return "SA-94 with " + own_.config().firmware + text;
    }

    sim::MeterSettings settings() const override {
        return {.serial = Address, .port_name = "/dev/ttyS1", .manufacturer = "sa-94-2m"};
    }

    void begin(std::time_t now) override {
        own_.fill(Sa94Archive::Hourly, {.records = 24 * 20, .newest = now / Hour * Hour - 3 * Hour});
        own_.fill(Sa94Archive::Daily, {.records = 30, .newest = sim::Sa94When(now - 24 * Hour)});
        own_.record_archives(true, now / Hour * Hour - 2 * Hour);
        other_.record_archives(true, now - 60 * 24 * Hour);
        next_event_ = now + Hour;
    }

    sim::SimMeter& meter(bool other) override { return other ? other_ : own_; }

    void misbehave(double rate, std::uint64_t seed) override {
        set_faults(rate, seed, {sim::sa94_silence(), sim::sa94_lost()});
    }
    void cut_answers(double rate, std::uint64_t seed) override {
        // There is no sum and no length in an answer, so a cut block is believed: only present values are cut here.
        set_faults(
            rate, seed,
            {sim::sa94_single_byte().on(sim::Sa94Kind::Parameter), sim::sa94_short(3).on(sim::Sa94Kind::Parameter)});
    }

    std::vector<YearRecord> collect(std::time_t now) override {
        own_.catch_up(now);
        other_.catch_up(now);
        if (now >= next_event_) {
            own_.store_event(
                {.at = now, .code = static_cast<std::uint8_t>(event_ / 2 % 20), .stopped = event_ % 2 == 1});
            ++event_;
            next_event_ += HoursBetweenEvents * Hour;
        }
        std::vector<YearRecord> all;
        for (const Sa94Archive archive : Archives) {
            const bool promised = archive != Sa94Archive::Errors && !firmware().columns(archive).empty();
            take(own_, archive, taken_[{false, archive}], promised, all);
            take(other_, archive, taken_[{true, archive}], false, all);
        }
        return all;
    }

    std::time_t oldest_held(int archive) override {
        const auto records = own_.records(static_cast<Sa94Archive>(archive));
        return records.empty() ? 0 : records.front().time;
    }

    bool has_check_sums() const override { return false; }

    std::time_t last_asked(int archive, bool other) override {
        const unsigned low_segment = own_.memory().shape(static_cast<Sa94Archive>(archive)).low_segment;
        return last_heard((other ? other_ : own_).heard(), [&](const sim::Sa94Heard& heard) {
            const unsigned segment = heard.request.segment;
            return heard.request.kind == sim::Sa94Kind::Block && segment - low_segment < 2;
        });
    }

    double least_calm() const override { return (own_.memory().extended() ? 75 : 45) * Minute; }
    double calm_beside_another() const override { return least_calm(); }

  private:
    sim::Sa94Firmware firmware() const { return sim::sa94_firmware(own_.config().firmware); }
    void set_faults(double rate, std::uint64_t seed, const std::vector<sim::Sa94Fault>& faults) {
        for (sim::Sa94Meter* meter : {&own_, &other_}) {
            meter->behave();
            if (rate > 0) meter->misbehave_randomly(rate, seed, faults);
        }
    }

    struct Taken {
        std::time_t newest = 0;
        std::optional<sim::Sa94StoredRecord> next = std::nullopt;  ///< where the next record will go
    };
    static void take(const sim::Sa94Meter& meter, Sa94Archive archive, Taken& taken, bool promised,
                     std::vector<YearRecord>& all) {
        if (taken.next == meter.memory().next(archive)) return;
        taken.next = meter.memory().next(archive);
        for (const sim::Sa94StoredRecord& record : meter.records(archive)) {
            if (record.time <= taken.newest) continue;
            taken.newest = record.time;
            YearRecord result{.archive = static_cast<int>(archive), .time = record.time, .promised = promised};
            for (const sim::Sa94FileValue& value : meter.record_files(archive, record)) {
                result.lines.push_back({"1/tc_archives/" + value.file,
                                        stored_line(value.time, value.quality, value.value),
                                        tells_progress(value.file)});
            }
            all.push_back(std::move(result));
        }
    }

    sim::Sa94Meter own_;
    sim::Sa94Meter other_;
    std::map<std::pair<bool, Sa94Archive>, Taken> taken_;
    std::time_t next_event_ = 0;
    unsigned event_ = 0;
};

}  // namespace

std::unique_ptr<YearMeter> make_sa94_meter(Dice& dice) {
    return std::make_unique<Sa94Year>(draw_config(dice));
}

}  // namespace faults
