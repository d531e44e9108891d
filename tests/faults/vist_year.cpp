// VIST: hourly records and the totals of headers, staged; files of one list that disagree are emptied, and the list is
// read again from the oldest record that the meter holds.

#include <array>
#include <cstdio>
#include <iterator>

#include "faults/fault_plan.h"
#include "faults/year_meter.h"
#include "vist_meter.h"

namespace faults {

namespace {

constexpr std::size_t HoursHeld = 72;
constexpr int Records = 0;
constexpr int Headers = 1;

constexpr int Minute = 60;

// A header is filed once, and nothing is read of an hour whose header is filed: a pass that broke off behind it goes on
// in the next hour. Then ten minutes to the pass and six to the poll.
constexpr double CalmOfNoDevice = 80 * Minute;
constexpr double CalmPerDevice = 4 * Minute;

/// Bits of what the meters of the field have: all, without the marks, without the third channel.
constexpr std::uint32_t Masks[] = {0x7FFFFF, 0x0FFFFF, 0x00DDB7};

sim::VistConfig draw_config(int number, bool alone, Dice& dice) {
    sim::VistConfig config{.network = 1 + number,
                           .serial = number == 0 ? 40123U : 40321U,
                           .version = dice.one_in(3) ? 101 : 102,
                           .order = dice.one_in(2) ? sim::VistOrder::Little : sim::VistOrder::Big,
                           .devices = {},
                           .answers_end = dice.one_in(2),
                           .plus_starts_at_set = !dice.one_in(3),
                           .capacity = HoursHeld,
                           .clock_offset = YearMeter::ClockAhead};
    // The more devices, the longer a year takes: most meters have few, and two of a line have the fewest.
    constexpr std::size_t Counts[] = {1, 1, 2, 3, 2, 6};
    const std::size_t count = Counts[dice.below(alone ? std::size(Counts) : std::size(Counts) - 2)];
    for (std::size_t n = 0; n < count; ++n) {
        sim::VistDevice device{.name = "TS" + std::to_string(n + 1)};
        device.archive_mask = Masks[dice.below(std::size(Masks))];
        if (dice.one_in(2)) device.precision = {3, 2, 1, 2};
        config.devices.push_back(device);
    }
    return config;
}

sim::VistConfig with_serial(sim::VistConfig config, std::uint32_t serial) {
    config.serial = serial;
    return config;
}

class VistYear final : public YearMeter {
  public:
    explicit VistYear(const sim::VistConfig& config)
        : own_(config), other_(with_serial(config, config.serial + 567)), taken_(config.devices.size()) {}

    std::string model() const override {
        const sim::VistConfig& config = own_.config();
        std::string masks;
        for (const sim::VistDevice& device : config.devices) {
            char text[16];
            std::snprintf(text, sizeof(text), " %X", device.archive_mask);
            masks += text;
        }
        return "VIST " + std::to_string(config.version) + " with " + std::to_string(config.devices.size()) +
               " devices," + masks + (config.order == sim::VistOrder::Little ? ", little-endian" : "") +
               (config.answers_end ? ", answers END" : "") + (config.plus_starts_at_set ? "" : ", + goes on");
    }

    sim::MeterSettings settings() const override {
        return {
            .serial = static_cast<unsigned>(own_.config().network), .port_name = "/dev/ttyS1", .manufacturer = "vis-t"};
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
        for (unsigned device = 0; device < taken_.size(); ++device) {
            take(own_, device, taken_[device][0], true, all);
            take(other_, device, taken_[device][1], false, all);
        }
        for (; headers_done_ <= now + Hour; headers_done_ += Hour) {
            for (unsigned device = 0; device < taken_.size(); ++device) {
                take_header(own_, device, headers_done_, all);
                take_header(other_, device, headers_done_, all);
            }
        }
        return all;
    }

    std::time_t oldest_held(int archive) override {
        const auto& records = own_.records(static_cast<unsigned>(archive / Kinds));
        return archive % Kinds != Records || records.empty() ? 0 : records.front().time;
    }

    std::time_t last_asked(int archive, bool other) override {
        const auto device = static_cast<unsigned>(archive / Kinds);
        return last_heard((other ? other_ : own_).heard(), [&](const sim::VistHeard& heard) {
            return heard.device == device && heard.line == "/ARC/DLD +";
        });
    }

    double least_calm() const override { return CalmOfNoDevice + CalmPerDevice * static_cast<double>(taken_.size()); }
    double calm_beside_another() const override { return CalmPerDevice * static_cast<double>(taken_.size()); }

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
    void set_faults(double rate, std::uint64_t seed, const std::vector<sim::VistFault>& faults) {
        for (sim::VistMeter* meter : {&own_, &other_}) {
            meter->behave();
            if (rate > 0) meter->misbehave_randomly(rate, seed, faults);
        }
    }

    static YearRecord lines_of(const std::vector<sim::VistFileValue>& values, unsigned device, int kind,
                               std::time_t time, std::time_t filed_at, bool promised) {
        YearRecord result{
            .archive = archive_number(static_cast<int>(device), kind), .time = time, .promised = promised};
        const std::string folder = std::to_string(device + 1) + "/tmp_archives/";
        for (const sim::VistFileValue& value : values) {
            result.lines.push_back({folder + value.file, stored_line(filed_at, value.quality, value.value)});
        }
        return result;
    }
    static void take(const sim::VistMeter& meter, unsigned device, std::time_t& taken, bool own,
                     std::vector<YearRecord>& all) {
        for (const sim::VistStoredRecord& record : meter.records(device)) {
            if (record.time <= taken) continue;
            taken = record.time;
            const auto values = meter.record_files(record, device);
            const std::time_t twin = twin_of(record.time);
            const bool alone = twin == record.time;
            all.push_back(lines_of(values, device, Records, record.time, record.time - Hour, own && alone));
            if (!alone) all.push_back(lines_of(values, device, Records, record.time, twin - Hour, false));
        }
    }
    static void take_header(const sim::VistMeter& meter, unsigned device, std::time_t time,
                            std::vector<YearRecord>& all) {
        // The meter's clock is ahead: this is what it says within the hour.
        const auto values = meter.header_files(time + 60, device);
        all.push_back(lines_of(values, device, Headers, time, time, false));
        if (twin_of(time) != time) all.push_back(lines_of(values, device, Headers, time, twin_of(time), false));
    }

    sim::VistMeter own_;
    sim::VistMeter other_;
    std::vector<std::array<std::time_t, 2>> taken_;  // of each device, by both meters
    std::time_t headers_done_ = 0;
};

}  // namespace

std::unique_ptr<YearMeter> make_vist_meter(int number, bool alone, Dice& dice) {
    return std::make_unique<VistYear>(draw_config(number, alone, dice));
}

}  // namespace faults
