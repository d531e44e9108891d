// VIST: hourly records and the totals of headers, staged; files of one list that disagree are emptied, and the list is
// read again from the oldest record that the meter holds.

#include <array>

#include "config/config_client.h"
#include "drivers/vist/vist_base.h"
#include "faults/year_family.h"
#include "vist_meter.h"

namespace faults {

namespace {

constexpr std::size_t HoursHeld = 72;
constexpr int Records = 0;
constexpr int Headers = 1;

class VistYear final : public YearFamily {
  public:
    sim::MeterSettings settings() const override {
        return {.serial = 1, .port_name = "/dev/ttyS1", .manufacturer = "vis-t"};
    }

    void begin(std::time_t now) override {
        const std::time_t since = now - static_cast<std::time_t>(HoursHeld + 30) * Hour;
        for (sim::VistMeter* meter : {&own_, &other_}) meter->record_archives(true, since);
        own_.catch_up(now - 2 * Hour);
        other_.catch_up(now - 2 * Hour);
        headers_done_ = since / Hour * Hour;
    }

    sim::SimMeter& meter(bool other) override { return other ? other_ : own_; }

    void misbehave(double rate, std::uint64_t seed) override {
        set_faults(rate, seed,
                   {sim::vist_noise(), sim::vist_wrong_sum(), sim::vist_wrong_type(), sim::vist_wrong_inner(),
                    sim::vist_wrong_magic(), sim::vist_trailing(), sim::vist_halved(), sim::vist_silence(),
                    sim::vist_error(), sim::vist_wrong_device(5)});
    }
    void cut_answers(double rate, std::uint64_t seed) override {
        set_faults(rate, seed, {sim::vist_short(1), sim::vist_short(5), sim::vist_short(12), sim::vist_short(40)});
    }

    std::vector<YearRecord> collect(std::time_t now) override {
        own_.catch_up(now);
        other_.catch_up(now);
        std::vector<YearRecord> all;
        take(own_, taken_[0], true, all);
        take(other_, taken_[1], false, all);
        for (; headers_done_ <= now + Hour; headers_done_ += Hour) {
            take_header(own_, headers_done_, all);
            take_header(other_, headers_done_, all);
        }
        return all;
    }

    std::time_t oldest_held(int archive) override {
        return archive != Records || own_.records().empty() ? 0 : own_.records().front().time;
    }

    void live(const std::string& uuid) override {
        VIST_base base({uuid});
        read_driver_config(base);
        base.open_tty();
        base.run_main();
    }

    bool is_staging() const override { return true; }
    /// To the driver the hour that autumn repeats is a hole, and what lies behind a hole is read when all that lay
    /// before it has left the ring.
    bool is_held_up(std::time_t now) const override {
        for (std::size_t hour = 0; hour <= HoursHeld + 6; ++hour) {
            const std::time_t then = now - static_cast<std::time_t>(hour) * Hour;
            if (twin_of(then) != then) return true;
        }
        return false;
    }
    bool throws_away() const override { return true; }

  private:
    static sim::VistConfig config(std::uint32_t serial) {
        return {.network = 1,
                .serial = serial,
                .devices = {{.archive_mask = 0x7FFFFF}},
                .plus_starts_at_set = true,
                .capacity = HoursHeld,
                .clock_offset = 40};
    }
    void set_faults(double rate, std::uint64_t seed, const std::vector<sim::VistFault>& faults) {
        for (sim::VistMeter* meter : {&own_, &other_}) {
            meter->behave();
            if (rate > 0) meter->misbehave_randomly(rate, seed, faults);
        }
    }

    static YearRecord lines_of(const std::vector<sim::VistFileValue>& values, int archive, std::time_t time,
                               std::time_t filed_at, bool promised) {
        YearRecord result{.archive = archive, .time = time, .promised = promised};
        for (const sim::VistFileValue& value : values) {
            result.lines.push_back({"1/tmp_archives/" + value.file, year_line(filed_at, value.quality, value.value)});
        }
        return result;
    }
    static void take(const sim::VistMeter& meter, std::time_t& taken, bool own, std::vector<YearRecord>& all) {
        for (const sim::VistStoredRecord& record : meter.records()) {
            if (record.time <= taken) continue;
            taken = record.time;
            const auto values = meter.record_files(record);
            const std::time_t twin = twin_of(record.time);
            const bool alone = twin == record.time;
            all.push_back(lines_of(values, Records, record.time, record.time - Hour, own && alone));
            if (!alone) all.push_back(lines_of(values, Records, record.time, twin - Hour, false));
        }
    }
    static void take_header(const sim::VistMeter& meter, std::time_t time, std::vector<YearRecord>& all) {
        // The meter's clock is ahead: this is what it says within the hour.
        const auto values = meter.header_files(time + 60);
        all.push_back(lines_of(values, Headers, time, time, false));
        if (twin_of(time) != time) all.push_back(lines_of(values, Headers, time, twin_of(time), false));
    }

    sim::VistMeter own_{config(40123)};
    sim::VistMeter other_{config(40999)};
    std::array<std::time_t, 2> taken_ = {};
    std::time_t headers_done_ = 0;
};

}  // namespace

std::unique_ptr<YearFamily> make_vist_year() {
    return std::make_unique<VistYear>();
}

}  // namespace faults
