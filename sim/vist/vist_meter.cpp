#include "vist_meter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "meter_time.h"

namespace sim {

namespace {

constexpr std::size_t MostRecords = 32767;  // the counts of a header are signed numbers of two bytes
constexpr std::size_t NameWidth = 12;
constexpr std::uint8_t LittleEndianBit = 0x80;

bool holds_zero(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

void check(const VistConfig& config) {
    if (config.network < 0) throw std::invalid_argument("a network number is not negative");
    if (config.devices.empty() || config.devices.size() > VistMaxDevices) {
        throw std::invalid_argument("a meter has one to six virtual devices");
    }
    if (config.capacity < 1 || config.capacity > MostRecords) throw std::invalid_argument("a ring holds 1 to 32767");
    for (const auto& device : config.devices) {
        if (device.name.size() > NameWidth) throw std::invalid_argument("a name has up to 12 bytes");
    }
    const std::string serial = config.serial_text.value_or("");
    if (holds_zero(config.firmware) || holds_zero(config.model) || holds_zero(serial)) {
        throw std::invalid_argument("a zero ends a text");
    }
    vist_packet(VistSpecials, vist_specials_body(config));  // throws when the texts are too long
}

}  // namespace

VistMeter::VistMeter(VistConfig config) {
    swap_for(std::move(config));
}

VistMemory& VistMeter::memory(unsigned device) {
    return memories_.at(device);
}

const VistMemory& VistMeter::memory(unsigned device) const {
    return memories_.at(device);
}

VistWriting VistMeter::writing() const {
    const auto rest = static_cast<std::uint8_t>(config_.enumer_rest & ~LittleEndianBit);
    const bool little = config_.order == VistOrder::Little;
    return {.order = config_.order, .enumer = static_cast<std::uint8_t>(rest | (little ? LittleEndianBit : 0))};
}

// ---- present state

void VistMeter::set_value(const std::string& name, VistValue value, unsigned device) {
    memory(device).set_value(name, value);
}

VistValue VistMeter::value(const std::string& name, unsigned device) const {
    return memory(device).value(name);
}

void VistMeter::set_status(const std::array<std::uint8_t, 4>& status, unsigned device) {
    memory(device).device.status = status;
}

VistDevice& VistMeter::device(unsigned device) {
    return memory(device).device;
}

// ---- clock

std::time_t VistMeter::clock(std::time_t now) const {
    return now + meter_clock.ahead(now);
}

void VistMeter::set_clock(const VistWhen& shown, std::time_t now) {
    catch_up(now);
    meter_clock.set(shown.time() - now, now);
    hours_.pass_over(shown.time());
}

// ---- archive

void VistMeter::store_hourly(const VistRecord& record, unsigned device) {
    memory(device).ring.push(memory(device).stored(record));
}

void VistMeter::record_archives(bool on, const VistWhen& from) {
    on ? hours_.begin(from.time()) : hours_.end();
}

void VistMeter::catch_up(std::time_t now) {
    meter_clock.begin(now);
    hours_.catch_up(clock(now), next_full_hour, [this](std::time_t time) { record_at(time); });
}

void VistMeter::record_at(std::time_t time) {
    if (hours_.misses(time)) return;
    for (unsigned device = 0; device < memories_.size(); ++device) {
        VistStoredRecord record{.time = time, .date = VistWhen(time).date()};
        for (std::size_t field = 0; field < VistRecordFields; ++field) {
            record.numbers[field] = recorded_number(config_.serial, device, time, field);
        }
        memory(device).ring.push(record);
    }
}

void VistMeter::miss_hour(const VistWhen& at) {
    hours_.miss(at.time());
}

std::int64_t VistMeter::recorded_number(std::uint32_t serial, unsigned device, std::time_t record_time,
                                        std::size_t field) {
    return vist_recorded_number(serial, device, record_time, field);
}

std::int64_t VistMeter::recorded_total(std::uint32_t serial, unsigned device, std::time_t header_time,
                                       std::size_t total) {
    return vist_recorded_total(serial, device, header_time, total);
}

void VistMeter::spoil_record(const VistWhen& at, std::size_t readings, unsigned device) {
    VistRing& ring = memory(device).ring;
    ring.at(ring.find(at.date())).bad_readings = readings;
}

void VistMeter::erase_record(const VistWhen& at, unsigned device) {
    VistRing& ring = memory(device).ring;
    ring.at(ring.find(at.date())).erased = true;
}

void VistMeter::remove_record(const VistWhen& at, unsigned device) {
    VistRing& ring = memory(device).ring;
    ring.remove(ring.find(at.date()));
}

void VistMeter::erase_archive(unsigned device) {
    memory(device).ring.forget();
}

void VistMeter::spoil_header(std::size_t readings, unsigned device) {
    memory(device).header_bad_readings = readings;
}

void VistMeter::claim_counts(std::optional<VistCounts> counts, unsigned device) {
    memory(device).claimed_counts = counts;
}

void VistMeter::set_header_time(std::optional<VistWhen> time, unsigned device) {
    memory(device).header_time = time;
}

void VistMeter::set_totals(std::optional<std::array<std::int64_t, VistTotals>> totals, unsigned device) {
    constexpr std::int64_t Widest = 0xFFFFFFFF;  // of all but the last, which has eight bytes
    for (std::size_t k = 0; totals && k + 1 < VistTotals; ++k) {
        if ((*totals)[k] < 0 || (*totals)[k] > Widest) throw std::invalid_argument("no room in a header for a total");
    }
    memory(device).totals = totals;
}

// ---- another meter

void VistMeter::swap_for(VistConfig config) {
    check(config);
    std::vector<VistMemory> memories;
    for (unsigned device = 0; device < config.devices.size(); ++device) {
        memories.emplace_back(config.devices[device], device, config.capacity);
    }
    memories_ = std::move(memories);
    config_ = std::move(config);
    meter_clock.replace(config_.clock_offset, config_.clock_drift_ppm);
    dialog_.reset();
}

void VistMeter::set_serial(std::uint32_t serial) {
    config_.serial = serial;
    config_.serial_text.reset();
}

// ---- what a test looks at

const std::deque<VistStoredRecord>& VistMeter::records(unsigned device) const {
    return memory(device).ring.records();
}

VistHeader VistMeter::header(std::time_t now, unsigned device) const {
    const VistMemory& memory = this->memory(device);
    const VistWhen when = memory.header_time.value_or(last_full_hour(clock(now)));
    VistHeader header{.time = when.time(), .date = when.date()};
    header.counts = memory.claimed_counts.value_or(memory.ring.counts());
    for (std::size_t k = 0; k < VistTotals; ++k) {
        header.totals[k] = memory.totals ? (*memory.totals)[k] : recorded_total(config_.serial, device, header.time, k);
    }
    return header;
}

std::vector<VistFileValue> VistMeter::record_files(const VistStoredRecord& record, unsigned device) const {
    return vist_record_files(memory(device).device, record);
}

std::vector<VistFileValue> VistMeter::header_files(std::time_t now, unsigned device) const {
    return vist_header_files(memory(device).device, header(now, device));
}

std::optional<unsigned> VistMeter::selected() const {
    if (!dialog_) return std::nullopt;
    return dialog_->device;
}

std::size_t VistMeter::requests(std::string_view command) const {
    return count([=](const std::string& line) { return vist_begins(line, command); });
}

}  // namespace sim
