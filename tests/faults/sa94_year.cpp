// SA-94: hourly and daily records, written once a pass has read them. Events are not owed: a run of events passes over
// some of each later block.

#include <array>
#include <map>
#include <optional>
#include <utility>

#include "config/config_client.h"
#include "core/gateway.h"
#include "drivers/sa94/sa94.h"
#include "faults/year_family.h"
#include "sa94_meter.h"

namespace faults {

namespace {

using sim::Sa94Archive;

constexpr std::uint32_t Address = 0x2A13F;
constexpr std::time_t HoursBetweenEvents = 9;
constexpr unsigned IterationPause = 5;
constexpr std::array Archives = {Sa94Archive::Errors, Sa94Archive::Hourly, Sa94Archive::Daily};

class Sa94Year final : public YearFamily {
  public:
    sim::MeterSettings settings() const override {
        return {.serial = Address, .port_name = "/dev/ttyS1", .manufacturer = "sa-94-2m"};
    }

    void begin(std::time_t now) override {
        own_.fill(Sa94Archive::Hourly, {.records = 24 * 20, .newest = now / Hour * Hour - 3 * Hour});
        own_.fill(Sa94Archive::Daily, {.records = 30, .newest = sim::Sa94When(now / 86400 * 86400 - 3 * 86400)});
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
            take(own_, archive, taken_[{false, archive}], archive != Sa94Archive::Errors, all);
            take(other_, archive, taken_[{true, archive}], false, all);
        }
        return all;
    }

    std::time_t oldest_held(int archive) override {
        const auto records = own_.records(static_cast<Sa94Archive>(archive));
        return records.empty() ? 0 : records.front().time;
    }

    bool has_check_sums() const override { return false; }

    void live(const std::string& uuid) override {
        SA94 driver(uuid);
        read_driver_config(driver);
        driver.open_tty();
        while (true) {
            driver.run_main();
            gateway().sleep(IterationPause);
        }
    }

  private:
    static sim::Sa94Config config() {
        return {.address = Address, .firmware = "M300", .status = 0x06, .clock_offset = 40};
    }
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
                result.lines.push_back(
                    {"1/tc_archives/" + value.file, year_line(value.time, value.quality, value.value)});
            }
            all.push_back(std::move(result));
        }
    }

    sim::Sa94Meter own_{config()};
    sim::Sa94Meter other_{config()};
    std::map<std::pair<bool, Sa94Archive>, Taken> taken_;
    std::time_t next_event_ = 0;
    unsigned event_ = 0;
};

}  // namespace

std::unique_ptr<YearFamily> make_sa94_year() {
    return std::make_unique<Sa94Year>();
}

}  // namespace faults
