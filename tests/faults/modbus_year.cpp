// VIST over Modbus: hourly records and the totals of headers, staged; nothing is thrown away. A record has no time of
// its own: it is dated by its place behind the header's time.

#include <array>

#include "config/config_client.h"
#include "drivers/vist_modbus/vistmodbus_base.h"
#include "faults/year_family.h"
#include "modbus_vist_meter.h"

namespace faults {

namespace {

constexpr std::size_t HoursHeld = 120;
constexpr int Records = 0;
constexpr int Headers = 1;

class ModbusYear final : public YearFamily {
  public:
    sim::MeterSettings settings() const override {
        return {.serial = 40001, .port_name = "/dev/ttyS1", .manufacturer = "vis-t-modbus"};
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
        VISTmodbus_base base({uuid});
        read_driver_config(base);
        base.open_tty();
        base.run_main();
    }

    bool is_staging() const override { return true; }

  private:
    static sim::ModbusVistConfig config(std::uint32_t serial) {
        return {.serial = serial, .systems = {{.archive_mask = 0x7FFFFF}}, .capacity = HoursHeld, .clock_offset = 40};
    }
    void set_faults(double rate, std::uint64_t seed, const std::vector<sim::ModbusFault>& faults) {
        for (sim::ModbusVistMeter* meter : {&own_, &other_}) {
            meter->behave();
            if (rate > 0) meter->misbehave_randomly(rate, seed, faults);
        }
    }

    /// `shift` moves the lines into the other of two hours of one name.
    static YearRecord lines_of(const std::vector<sim::VistFileValue>& values, int archive, std::time_t time,
                               std::time_t shift, bool promised) {
        YearRecord result{.archive = archive, .time = time, .promised = promised};
        for (const sim::VistFileValue& value : values) {
            result.lines.push_back(
                {"1/tmp_archives/" + value.file, year_line(value.time + shift, value.quality, value.value)});
        }
        return result;
    }
    static void take(const sim::ModbusVistMeter& meter, std::time_t& taken, bool own, std::vector<YearRecord>& all) {
        for (const sim::ModbusVistStored& record : meter.records()) {
            if (record.time <= taken) continue;
            taken = record.time;
            const std::time_t shift = twin_of(record.time) - record.time;
            all.push_back(lines_of(meter.record_files(record), Records, record.time, 0, own && shift == 0));
            if (shift != 0) all.push_back(lines_of(meter.record_files(record), Records, record.time, shift, false));
        }
    }
    static void take_header(sim::ModbusVistMeter& meter, std::time_t time, std::vector<YearRecord>& all) {
        sim::ModbusVistHeader header{.time = time};
        for (std::size_t total = 0; total < sim::vist_totals; ++total) {
            header.totals[total] = sim::ModbusVistMeter::recorded_total(meter.config().serial, 0, time, total);
        }
        const auto values = sim::modbus_vist_header_files(meter.system(), header);
        all.push_back(lines_of(values, Headers, time, 0, false));
        const std::time_t shift = twin_of(time) - time;
        if (shift != 0) all.push_back(lines_of(values, Headers, time, shift, false));
    }

    sim::ModbusVistMeter own_{config(40001)};
    sim::ModbusVistMeter other_{config(40001 + 256)};
    std::array<std::time_t, 2> taken_ = {};
    std::time_t headers_done_ = 0;
};

}  // namespace

std::unique_ptr<YearFamily> make_modbus_year() {
    return std::make_unique<ModbusYear>();
}

}  // namespace faults
