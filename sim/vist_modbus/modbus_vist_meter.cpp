#include "modbus_vist_meter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "meter_time.h"

namespace sim {

namespace {

constexpr std::size_t MostRecords = 65534;  // places are numbers of two bytes, and readers count one further
constexpr std::size_t NameWidth = 12;
constexpr std::size_t TextWidth = 21;
constexpr std::size_t SerialWidth = 59;

void check_text(const std::string& text, std::size_t width) {
    if (text.find('\0') != std::string::npos) throw std::invalid_argument("a zero ends a text");
    if (text.size() > width) throw std::invalid_argument("no room for the text " + text);
}

const ModbusVistValueRow& value_row(std::string_view name) {
    const auto rows = modbus_vist_value_rows();
    const auto row =
        std::find_if(rows.begin(), rows.end(), [&](const auto& candidate) { return candidate.name == name; });
    if (row == rows.end()) throw std::invalid_argument("no register has a value " + std::string(name));
    return *row;
}

void check_value(const std::string& name, std::uint32_t number) {
    constexpr std::uint32_t WidestRegister = 0xFFFF;
    if (value_row(name).registers == 1 && number > WidestRegister) {
        throw std::invalid_argument("no room in a register for " + name);
    }
}

void check(const ModbusVistConfig& config) {
    if (config.systems.empty() || config.systems.size() > ModbusVistSystems) {
        throw std::invalid_argument("a meter has one to three heat systems");
    }
    if (config.capacity < 1 || config.capacity > MostRecords) throw std::invalid_argument("a ring holds 1 to 65534");
    check_text(config.firmware, TextWidth);
    check_text(config.name, TextWidth);
    check_text(config.serial_text.value_or(""), SerialWidth);
    for (const auto& system : config.systems) {
        check_text(system.name, NameWidth);
        for (const auto& [name, number] : system.values) check_value(name, number);
    }
}

}  // namespace

ModbusVistMeter::ModbusVistMeter(ModbusVistConfig config) {
    swap_for(std::move(config));
}

// ---- present state

void ModbusVistMeter::set_value(const std::string& name, std::uint32_t number, unsigned system) {
    check_value(name, number);
    systems_.at(system).values[name] = number;
}

std::uint32_t ModbusVistMeter::value(const std::string& name, std::time_t now, unsigned system) const {
    const ModbusVistValueRow& row = value_row(name);
    const auto& set = systems_.at(system).values;
    const auto found = set.find(name);
    if (found != set.end()) return found->second;
    const std::time_t shown = clock(now);
    const auto seconds = static_cast<std::uint32_t>(shown - last_full_hour(shown));
    return row.when_unset + system + seconds * row.per_second;
}

ModbusVistSystem& ModbusVistMeter::system(unsigned system) {
    return systems_.at(system);
}

// ---- clock

std::time_t ModbusVistMeter::clock(std::time_t now) const {
    return now + meter_clock.ahead(now);
}

void ModbusVistMeter::set_clock(const VistWhen& shown, std::time_t now) {
    catch_up(now);
    meter_clock.set(shown.time() - now, now);
    hours_.pass_over(shown.time());
}

// ---- archive

void ModbusVistMeter::store_hourly(const ModbusVistRecord& record, unsigned system) {
    memories_.at(system).ring.push(modbus_vist_stored(systems_.at(system), record));
}

void ModbusVistMeter::record_archives(bool on, const VistWhen& from) {
    on ? hours_.begin(from.time()) : hours_.end();
}

void ModbusVistMeter::catch_up(std::time_t now) {
    meter_clock.begin(now);
    hours_.catch_up(clock(now), next_full_hour, [this](std::time_t end) { record_at_hour(end); });
}

void ModbusVistMeter::record_at_hour(std::time_t end) {
    if (hours_.misses(end - SecondsPerHour)) return;
    for (unsigned system = 0; system < systems_.size(); ++system) {
        ModbusVistStored record{.time = end - SecondsPerHour};
        for (std::size_t field = 0; field < VistRecordFields; ++field) {
            record.numbers[field] = recorded_number(config_.serial, system, record.time, field);
        }
        memories_[system].ring.push(record);
    }
}

void ModbusVistMeter::miss_hour(const VistWhen& at) {
    hours_.miss(at.time());
}

std::int64_t ModbusVistMeter::recorded_number(std::uint32_t serial, unsigned system, std::time_t record_time,
                                              std::size_t field) {
    return modbus_vist_recorded_number(serial, system, record_time, field);
}

std::uint64_t ModbusVistMeter::recorded_total(std::uint32_t serial, unsigned system, std::time_t header_time,
                                              std::size_t total) {
    return modbus_vist_recorded_total(serial, system, header_time, total);
}

void ModbusVistMeter::spoil_record(const VistWhen& at, std::size_t readings, unsigned system) {
    ModbusVistRing& ring = memories_.at(system).ring;
    ring.at(ring.find(at.time()))->bad_readings = readings;
}

void ModbusVistMeter::erase_record(const VistWhen& at, unsigned system) {
    ModbusVistRing& ring = memories_.at(system).ring;
    ring.at(ring.find(at.time()))->erased = true;
}

void ModbusVistMeter::erase_archive(unsigned system) {
    memories_.at(system).ring.forget();
}

void ModbusVistMeter::claim_counts(std::optional<ModbusVistCounts> counts, unsigned system) {
    memories_.at(system).claimed_counts = counts;
}

void ModbusVistMeter::set_header_time(std::optional<VistWhen> time, unsigned system) {
    memories_.at(system).header_time = time;
}

void ModbusVistMeter::set_totals(std::optional<std::array<std::uint64_t, VistTotals>> totals, unsigned system) {
    constexpr std::uint64_t Widest = 0xFFFFFFFF;  // of all but the last, which has eight bytes
    for (std::size_t k = 0; totals && k + 1 < VistTotals; ++k) {
        if ((*totals)[k] > Widest) throw std::invalid_argument("no room in a header for a total");
    }
    memories_.at(system).totals = totals;
}

// ---- another meter

void ModbusVistMeter::swap_for(ModbusVistConfig config) {
    check(config);
    memories_.assign(config.systems.size(), Memory{.ring = ModbusVistRing(config.capacity)});
    systems_ = config.systems;
    config_ = std::move(config);
    meter_clock.replace(config_.clock_offset, config_.clock_drift_ppm);
}

// ---- what a test looks at

std::vector<ModbusVistStored> ModbusVistMeter::records(unsigned system) const {
    return memories_.at(system).ring.oldest_first();
}

const ModbusVistStored* ModbusVistMeter::record_at(std::size_t place, unsigned system) const {
    return memories_.at(system).ring.at(place);
}

ModbusVistHeader ModbusVistMeter::header(std::time_t now, unsigned system) const {
    const Memory& memory = memories_.at(system);
    const ModbusVistStored* newest = memory.ring.newest();
    const std::time_t own = newest == nullptr ? last_full_hour(clock(now)) : newest->time + SecondsPerHour;
    const VistWhen when = memory.header_time.value_or(own);
    ModbusVistHeader header{.time = when.time(), .date = when.date()};
    header.counts = memory.claimed_counts.value_or(memory.ring.counts());
    for (std::size_t k = 0; k < VistTotals; ++k) {
        header.totals[k] = memory.totals ? (*memory.totals)[k] : recorded_total(config_.serial, system, header.time, k);
    }
    return header;
}

std::size_t ModbusVistMeter::record_size(unsigned system) const {
    return modbus_vist_record_size(systems_.at(system).archive_mask);
}

std::vector<VistFileValue> ModbusVistMeter::record_files(const ModbusVistStored& record, unsigned system) const {
    return modbus_vist_record_files(systems_.at(system), record);
}

std::vector<VistFileValue> ModbusVistMeter::header_files(std::time_t now, unsigned system) const {
    return modbus_vist_header_files(systems_.at(system), header(now, system));
}

std::size_t ModbusVistMeter::requests(const ModbusWhich& which) const {
    return count([&](const ModbusPlace& place) {
        const auto& [function, address, record] = place;
        return which.fits({.function = function, .address = address, .record = record});
    });
}

}  // namespace sim
