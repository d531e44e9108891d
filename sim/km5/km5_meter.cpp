#include "km5_meter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "meter_time.h"

namespace sim {

namespace {

constexpr std::size_t RequestSize = 16;
constexpr std::time_t SecondsPerDay = 86400;

bool sums_are_right(std::span<const std::uint8_t> request) {
    std::uint8_t exclusive_or = 0;
    std::uint8_t sum = 0;
    for (std::size_t k = 0; k < 14; ++k) {
        if (k < 13) exclusive_or ^= request[k];
        sum = static_cast<std::uint8_t>(sum + request[k]);
    }
    return request[14] == exclusive_or && request[15] == sum;
}

// The first midnight of the local clock after `time`; where the calendar leaves midnight out, the hour that follows it.
std::time_t next_midnight(std::time_t time) {
    std::tm tm = local(time);
    const int hour_limit = 3;
    for (int hour = 0; hour < hour_limit; ++hour) {
        std::tm midnight{};
        midnight.tm_year = tm.tm_year;
        midnight.tm_mon = tm.tm_mon;
        midnight.tm_mday = tm.tm_mday + 1;
        midnight.tm_hour = hour;
        midnight.tm_isdst = -1;
        const std::time_t next = std::mktime(&midnight);
        if (next > time && midnight.tm_mday != tm.tm_mday) return next;
    }
    return time + SecondsPerDay;
}

void check(const Km5Config& config) {
    if (config.serial > 99999999) throw std::invalid_argument("a serial number has up to eight digits");
    if (config.model < 1 || config.model > 7) throw std::invalid_argument("models are 1 to 7");
    const unsigned most = config.km56i ? Km5MaxSubsystems : 1;
    if (config.subsystems < 1 || config.subsystems > most) throw std::invalid_argument("too many subsystems, or none");
    if (config.firmware.size() != 4) throw std::invalid_argument("a firmware text has four characters");
    if (config.type_letters && config.type_letters->size() != 4) throw std::invalid_argument("type letters are four");
}

}  // namespace

Km5Meter::Km5Meter(Km5Config config) {
    swap_for(std::move(config));
}

Answer Km5Meter::hear(std::span<const std::uint8_t> request, std::time_t now) {
    catch_up(now);
    if (request.size() != RequestSize) return {};
    const auto subsystem = addressed(request);
    if (!subsystem) return {};
    if (!sums_are_right(request)) {
        ++refused_;
        return {};
    }
    Km5Heard heard{.at = now, .subsystem = *subsystem};
    std::copy(request.begin(), request.end(), heard.frame.begin());
    note(heard, heard.command());
    const Km5Fault fault = fault_script.choose(heard.command(), heard.data(0));
    return km5_spoil(answer_frame(heard), fault, config_.answer_delay, garbage_);
}

std::array<std::uint8_t, 4> Km5Meter::address(unsigned subsystem) const {
    std::array<std::uint8_t, 4> bytes{};
    std::uint32_t digits = config_.serial;
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>((digits / 10 % 10) << 4 | digits % 10);
        digits /= 100;
    }
    if (config_.km56i) bytes[3] = static_cast<std::uint8_t>((bytes[3] & 0xF0) | subsystem);
    return bytes;
}

std::optional<unsigned> Km5Meter::addressed(std::span<const std::uint8_t> request) const {
    for (unsigned subsystem = 0; subsystem < config_.subsystems; ++subsystem) {
        const auto own = address(subsystem);
        if (std::equal(own.begin(), own.end(), request.begin())) return subsystem;
    }
    return std::nullopt;
}

std::size_t Km5Meter::requests() const {
    return count([](std::uint8_t /*command*/) { return true; });
}

std::size_t Km5Meter::requests(std::uint8_t command) const {
    return count([=](std::uint8_t heard) { return heard == command; });
}

void Km5Meter::forget_requests() {
    MeterLife::forget_requests();
    refused_ = 0;
}

Km5Memory& Km5Meter::memory(unsigned subsystem) {
    return memories_.at(subsystem);
}

const Km5Memory& Km5Meter::memory(unsigned subsystem) const {
    return memories_.at(subsystem);
}

// ---- present state

void Km5Meter::set_value(const std::string& name, float value, unsigned subsystem) {
    memory(subsystem).set_value(name, value, config_.model);
}

void Km5Meter::set_value_at(const Km5Place& place, float value, unsigned subsystem) {
    memory(subsystem).set_value_at(place, value);
}

float Km5Meter::value(const std::string& name, unsigned subsystem) const {
    return memory(subsystem).value(name);
}

void Km5Meter::set_eeprom(int number, float value, unsigned subsystem) {
    memory(subsystem).eeprom[number] = value;
}

void Km5Meter::set_status(std::size_t position, std::uint8_t value, unsigned subsystem) {
    if (position < 5 || position > 11) throw std::out_of_range("the status stands at 5 to 11");
    memory(subsystem).status[position - 5] = value;
}

// ---- clock

std::time_t Km5Meter::clock(std::time_t now) const {
    return now + meter_clock.ahead(now);
}

void Km5Meter::set_clock(const Km5When& shown, std::time_t now) {
    catch_up(now);
    meter_clock.set(shown.time() - now, now);
    hours_.pass_over(shown.time());
    days_.pass_over(shown.time());
}

// ---- archives

void Km5Meter::store_hourly(const Km5Record& record, unsigned subsystem) {
    store(Km5Archive::Hourly, record, subsystem);
}

void Km5Meter::store_daily(const Km5Record& record, unsigned subsystem) {
    store(Km5Archive::Daily, record, subsystem);
}

void Km5Meter::store_monthly(const Km5Record& record, unsigned subsystem) {
    store(Km5Archive::Monthly, record, subsystem);
}

void Km5Meter::store_yearly(const Km5Record& record, unsigned subsystem) {
    store(Km5Archive::Yearly, record, subsystem);
}

void Km5Meter::store(Km5Archive archive, const Km5Record& record, unsigned subsystem) {
    memory(subsystem).records(archive).push(
        {.time = record.at.time(), .date = record.at.date(), .values = record.floats()});
}

void Km5Meter::store_event(const Km5When& at, std::uint8_t code, unsigned subsystem) {
    memory(subsystem).events.push({.time = at.time(), .date = at.date(), .code = code});
}

void Km5Meter::record_archives(bool on, const Km5When& from) {
    on ? hours_.begin(from.time()) : hours_.end();
    on ? days_.begin(from.time()) : days_.end();
}

void Km5Meter::catch_up(std::time_t now) {
    meter_clock.begin(now);
    hours_.catch_up(clock(now), next_full_hour, [this](std::time_t time) { record_at(Km5Archive::Hourly, time); });
    days_.catch_up(clock(now), next_midnight, [this](std::time_t time) { record_at(Km5Archive::Daily, time); });
}

void Km5Meter::record_at(Km5Archive archive, std::time_t time) {
    for (unsigned subsystem = 0; subsystem < config_.subsystems; ++subsystem) {
        memory(subsystem).records(archive).push({.time = time,
                                                 .date = Km5When(time).date(),
                                                 .values = recorded_values(config_.serial, subsystem, archive, time)});
    }
}

float Km5Meter::recorded_value(std::uint32_t serial, unsigned subsystem, Km5Archive archive, std::time_t record_time,
                               std::size_t field) {
    constexpr std::int64_t Year2000 = 946684800;
    constexpr std::size_t FirstTotal = 7;
    constexpr float LowestAverage[FirstTotal] = {20.0F, 6.0F, 4.0F, 2.0F, 90.0F, 50.0F, 10.0F};
    const std::int64_t hours = (static_cast<std::int64_t>(record_time) - Year2000) / SecondsPerHour;
    const auto type = static_cast<std::int64_t>(archive);
    const std::int64_t place = subsystem;
    const std::int64_t meter = serial % 1000;
    if (field < FirstTotal) {
        const std::int64_t phase = (hours * 7 + meter + place * 29 + type * 41) % 64;
        const bool pressure = field >= 1 && field <= 3;
        return LowestAverage[field] + static_cast<float>(phase) / (pressure ? 64.0F : 8.0F);
    }
    const auto rate = static_cast<std::int64_t>(field) + 1;
    const std::int64_t eighths = hours * rate + meter * 8 + place * 3 + type * 5;
    return static_cast<float>(eighths) / 8.0F;
}

Km5Floats Km5Meter::recorded_values(std::uint32_t serial, unsigned subsystem, Km5Archive archive,
                                    std::time_t record_time) {
    Km5Floats values{};
    for (std::size_t field = 0; field < values.size(); ++field) {
        values[field] = recorded_value(serial, subsystem, archive, record_time, field);
    }
    return values;
}

void Km5Meter::leave_gap(Km5Archive archive, unsigned subsystem) {
    if (archive == Km5Archive::Errors) return memory(subsystem).events.leave_gap();
    memory(subsystem).records(archive).leave_gap();
}

void Km5Meter::erase_record(Km5Archive archive, std::size_t index, unsigned subsystem) {
    if (archive == Km5Archive::Errors) return memory(subsystem).events.erase(index);
    memory(subsystem).records(archive).erase(index);
}

void Km5Meter::erase_archive(Km5Archive archive, unsigned subsystem) {
    if (archive == Km5Archive::Errors) return memory(subsystem).events.forget();
    memory(subsystem).records(archive).forget();
}

void Km5Meter::claim_bounds(Km5Archive archive, std::optional<Km5Bounds> bounds, unsigned subsystem) {
    memory(subsystem).claimed.at(static_cast<std::size_t>(archive)) = bounds;
}

const std::vector<Km5StoredRecord>& Km5Meter::records(Km5Archive archive, unsigned subsystem) const {
    return memory(subsystem).records(archive).ever();
}

const std::vector<Km5StoredEvent>& Km5Meter::events(unsigned subsystem) const {
    return memory(subsystem).events.ever();
}

Km5Bounds Km5Meter::bounds(Km5Archive archive, unsigned subsystem) const {
    return memory(subsystem).bounds(archive);
}

// ---- another meter

void Km5Meter::swap_for(Km5Config config) {
    check(config);
    std::vector<Km5Memory> memories;
    for (unsigned subsystem = 0; subsystem < Km5MaxSubsystems; ++subsystem) memories.emplace_back(config, subsystem);
    memories_ = std::move(memories);
    config_ = std::move(config);
    meter_clock.replace(config_.clock_offset, config_.clock_drift_ppm);
}

void Km5Meter::change(Km5Config config) {
    check(config);
    config_ = std::move(config);
}

void Km5Meter::set_serial(std::uint32_t serial) {
    Km5Config config = config_;
    config.serial = serial;
    change(std::move(config));
}

void Km5Meter::set_model(int model) {
    Km5Config config = config_;
    config.model = model;
    change(std::move(config));
}

void Km5Meter::set_type(bool att, bool km56i, unsigned subsystems) {
    Km5Config config = config_;
    config.att = att;
    config.km56i = km56i;
    config.subsystems = subsystems;
    change(std::move(config));
}

void Km5Meter::set_firmware(const std::string& text) {
    Km5Config config = config_;
    config.firmware = text;
    change(std::move(config));
}

}  // namespace sim
