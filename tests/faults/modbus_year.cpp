// VIST over Modbus: hourly records and the totals of headers, staged; nothing is thrown away. A record has no time of
// its own: it is dated by its place behind the header's time.

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "faults/fault_plan.h"
#include "faults/year_meter.h"
#include "modbus_vist_meter.h"

namespace faults {

namespace {

constexpr std::size_t HoursHeld = 120;
constexpr int Records = 0;
constexpr int Headers = 1;

constexpr int Minute = 60;

// Nothing is read of an hour whose header is filed: a pass that broke off behind it goes on in the next hour. Then ten
// minutes to the pass and six to the poll.
constexpr double CalmOfNoSystem = 80 * Minute;
constexpr double CalmPerSystem = 4 * Minute;
constexpr double CalmBesideASilentOne = 20 * Minute;  // each poll asks it for everything, thirty times

/// A process that starts looks into these for the newest time.
constexpr const char* ProgressFiles[] = {"A3", "A5", "A7", "A9", "A11", "A13", "A15", "A2"};

bool tells_progress(const std::string& file) {
    return std::find(std::begin(ProgressFiles), std::end(ProgressFiles), file) != std::end(ProgressFiles);
}

constexpr std::uint32_t Masks[] = {0x7FFFFF, 0x0FFFFF, 0x00DDB7};

sim::ModbusVistConfig draw_config(int number, Dice& dice) {
    sim::ModbusVistConfig config{.serial = number == 0 ? 40001U : 40322U,
                                 .systems = {},
                                 .capacity = HoursHeld,
                                 .short_records = dice.one_in(3),
                                 .clock_offset = YearMeter::ClockAhead};
    const std::size_t count = 1 + dice.below(sim::ModbusVistSystems);
    for (std::size_t n = 0; n < count; ++n) {
        sim::ModbusVistSystem system{.name = "TS" + std::to_string(n + 1)};
        system.archive_mask = Masks[dice.below(std::size(Masks))];
        if (dice.one_in(2)) system.precision = {3, 2, 1, 2};
        config.systems.push_back(system);
    }
    return config;
}

/// Under the same address: that is the low byte.
sim::ModbusVistConfig with_another_serial(sim::ModbusVistConfig config) {
    config.serial += 256;
    return config;
}

class ModbusYear final : public YearMeter {
  public:
    explicit ModbusYear(const sim::ModbusVistConfig& config)
        : own_(config), other_(with_another_serial(config)), taken_(config.systems.size()) {}

    std::string model() const override {
        std::string masks;
        for (const sim::ModbusVistSystem& system : own_.config().systems) {
            char text[16];
            std::snprintf(text, sizeof(text), " %X", system.archive_mask);
            masks += text;
        }
        return "VIST on Modbus with " + std::to_string(taken_.size()) + " systems," + masks +
               (own_.config().short_records ? ", short records" : "");
    }

    sim::MeterSettings settings() const override {
        return {.serial = own_.config().serial, .port_name = "/dev/ttyS1", .manufacturer = "vis-t-modbus"};
    }

    void begin(std::time_t now) override {
        const std::time_t since = now - static_cast<std::time_t>(HoursHeld + 30) * Hour;
        for (sim::ModbusVistMeter* meter : {&own_, &other_}) meter->record_archives(true, since);
        own_.catch_up(now - 2 * Hour);
        other_.catch_up(now - 2 * Hour);
        headers_done_ = since / Hour * Hour;
    }

    sim::SimMeter& meter(bool other) override { return other ? other_ : own_; }

    void misbehave(double rate, std::uint64_t seed) override {
        set_faults(rate, seed,
                   {sim::modbus_silence(), sim::modbus_exception(), sim::modbus_wrong_crc(), sim::modbus_noise(),
                    sim::modbus_trailing(), sim::modbus_pieces(), sim::modbus_wrong_slave(5),
                    sim::modbus_wrong_function(3), sim::modbus_wrong_function(0x84), sim::modbus_byte_count(),
                    sim::modbus_byte_count(12), sim::modbus_bad_sum()});
    }
    void cut_answers(double rate, std::uint64_t seed) override {
        set_faults(rate, seed, {sim::modbus_cut(1), sim::modbus_cut(2), sim::modbus_cut(20), sim::modbus_cut(60)});
    }

    std::vector<YearRecord> collect(std::time_t now) override {
        own_.catch_up(now);
        other_.catch_up(now);
        std::vector<YearRecord> all;
        for (unsigned system = 0; system < taken_.size(); ++system) {
            take(own_, system, taken_[system][0], true, all);
            take(other_, system, taken_[system][1], false, all);
            if (!is_misdated(now)) continue;
            for (const sim::ModbusVistMeter* meter : {&own_, &other_}) take_misdated(*meter, system, now, all);
        }
        for (; headers_done_ <= now + Hour; headers_done_ += Hour) {
            for (unsigned system = 0; system < taken_.size(); ++system) {
                take_header(own_, system, headers_done_, all);
                take_header(other_, system, headers_done_, all);
            }
        }
        return all;
    }

    std::time_t oldest_held(int archive) override {
        const auto records = own_.records(static_cast<unsigned>(archive / Kinds));
        return archive % Kinds != Records || records.empty() ? 0 : records.front().time;
    }

    std::time_t last_asked(int archive, bool other) override {
        const auto file = static_cast<std::uint16_t>(archive / Kinds);
        return last_heard((other ? other_ : own_).heard(), [&](const sim::ModbusHeard& heard) {
            const sim::ModbusQuestion& question = heard.question;
            return question.function == sim::ModbusReadFile && question.address == file && question.record != 0;
        });
    }

    double least_calm() const override { return CalmOfNoSystem + CalmPerSystem * static_cast<double>(taken_.size()); }
    double calm_beside_another() const override {
        return CalmBesideASilentOne + CalmPerSystem * static_cast<double>(taken_.size());
    }

    /// All that is read is dated from the header, and where that names one of the two hours of one name it may be taken
    /// for the other.
    bool is_misdated(std::time_t now) const override { return twin_of(header_time(now)) != header_time(now); }
    bool is_staging() const override { return true; }

  private:
    void set_faults(double rate, std::uint64_t seed, const std::vector<sim::ModbusFault>& faults) {
        for (sim::ModbusVistMeter* meter : {&own_, &other_}) {
            meter->behave();
            if (rate > 0) meter->misbehave_randomly(rate, seed, faults);
        }
    }

    /// `shift` moves the lines into the other of two hours of one name.
    static YearRecord lines_of(const std::vector<sim::VistFileValue>& values, unsigned system, int kind,
                               std::time_t time, std::time_t shift, bool promised) {
        YearRecord result{
            .archive = archive_number(static_cast<int>(system), kind), .time = time, .promised = promised};
        const std::string folder = std::to_string(system + 1) + "/tmp_archives/";
        for (const sim::VistFileValue& value : values) {
            result.lines.push_back({folder + value.file, stored_line(value.time + shift, value.quality, value.value),
                                    tells_progress(value.file)});
        }
        return result;
    }
    static void take(const sim::ModbusVistMeter& meter, unsigned system, std::time_t& taken, bool own,
                     std::vector<YearRecord>& all) {
        for (const sim::ModbusVistStored& record : meter.records(system)) {
            if (record.time <= taken) continue;
            taken = record.time;
            const auto values = meter.record_files(record, system);
            const std::time_t shift = twin_of(record.time) - record.time;
            all.push_back(lines_of(values, system, Records, record.time, 0, own && shift == 0));
            if (shift != 0) all.push_back(lines_of(values, system, Records, record.time, shift, false));
        }
    }
    std::time_t header_time(std::time_t now) const { return own_.clock(now) / Hour * Hour; }
    void take_misdated(const sim::ModbusVistMeter& meter, unsigned system, std::time_t now,
                       std::vector<YearRecord>& all) const {
        const std::time_t shift = twin_of(header_time(now)) - header_time(now);
        for (const sim::ModbusVistStored& record : meter.records(system)) {
            all.push_back(lines_of(meter.record_files(record, system), system, Records, record.time, shift, false));
        }
    }
    /// What a system measures is read anew in every poll, and where that fails the answer of another system stands:
    /// then totals are filed that the meter keeps, and its mask leaves out.
    static sim::ModbusVistSystem with_all_totals(sim::ModbusVistMeter& meter, unsigned system) {
        sim::ModbusVistSystem result = meter.system(system);
        for (unsigned n = 0; n < meter.config().systems.size(); ++n) {
            result.archive_mask |= meter.system(n).archive_mask;
        }
        return result;
    }
    static void take_header(sim::ModbusVistMeter& meter, unsigned system, std::time_t time,
                            std::vector<YearRecord>& all) {
        sim::ModbusVistHeader header{.time = time};
        for (std::size_t total = 0; total < sim::VistTotals; ++total) {
            header.totals[total] = sim::ModbusVistMeter::recorded_total(meter.config().serial, system, time, total);
        }
        const auto values = sim::modbus_vist_header_files(with_all_totals(meter, system), header);
        all.push_back(lines_of(values, system, Headers, time, 0, false));
        const std::time_t shift = twin_of(time) - time;
        if (shift != 0) all.push_back(lines_of(values, system, Headers, time, shift, false));
    }

    sim::ModbusVistMeter own_;
    sim::ModbusVistMeter other_;
    std::vector<std::array<std::time_t, 2>> taken_;  // of each system, by both meters
    std::time_t headers_done_ = 0;
};

}  // namespace

std::unique_ptr<YearMeter> make_modbus_meter(int number, Dice& dice) {
    return std::make_unique<ModbusYear>(draw_config(number, dice));
}

}  // namespace faults
