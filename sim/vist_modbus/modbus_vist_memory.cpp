#include "modbus_vist_memory.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::int64_t BrokenSensor = -1000;
constexpr std::size_t FirstTemperature = 7;
constexpr std::size_t LastTemperature = 10;

bool fits(std::int64_t number, std::size_t width, bool is_signed) {
    const std::int64_t span = std::int64_t{1} << (8 * width);
    return is_signed ? number >= -span / 2 && number < span / 2 : number >= 0 && number < span;
}

int power_of_ten(int precision, int power, const ModbusVistSystem& system) {
    return precision < 0 ? power : system.precision.at(static_cast<std::size_t>(precision));
}

std::int64_t scaled(double value, const ModbusVistFieldRow& row, const ModbusVistSystem& system) {
    constexpr double BeyondAll = 1e15;
    const double number = std::round(value * std::pow(10.0, power_of_ten(row.precision, row.power, system)));
    const bool whole = std::abs(number) < BeyondAll;  // also no NaN
    if (!whole || !fits(static_cast<std::int64_t>(number), row.width, row.is_signed)) {
        throw std::invalid_argument("no room in a record for " + std::to_string(value));
    }
    return static_cast<std::int64_t>(number);
}

}  // namespace

// ---- ring

void ModbusVistRing::push(const ModbusVistStored& record) {
    places_[pushed_ % capacity()] = record;
    ++pushed_;
}

void ModbusVistRing::forget() {
    places_.assign(capacity(), std::nullopt);
    pushed_ = 0;
}

ModbusVistCounts ModbusVistRing::counts() const {
    return {.held = static_cast<std::uint16_t>(std::min(pushed_, capacity())),
            .next = static_cast<std::uint16_t>(pushed_ % capacity()),
            .most = static_cast<std::uint16_t>(capacity())};
}

const ModbusVistStored* ModbusVistRing::at(std::size_t place) const {
    const auto& found = places_.at(place - 1);
    return found ? &*found : nullptr;
}

ModbusVistStored* ModbusVistRing::at(std::size_t place) {
    auto& found = places_.at(place - 1);
    return found ? &*found : nullptr;
}

std::size_t ModbusVistRing::place_of(std::size_t age) const {
    return (pushed_ - age) % capacity() + 1;
}

std::size_t ModbusVistRing::find(std::time_t time) const {
    for (std::size_t age = 1; age <= counts().held; ++age) {
        if (at(place_of(age))->time == time) return place_of(age);
    }
    throw std::out_of_range("no record of that hour");
}

const ModbusVistStored* ModbusVistRing::newest() const {
    return pushed_ == 0 ? nullptr : at(place_of(1));
}

std::vector<ModbusVistStored> ModbusVistRing::oldest_first() const {
    std::vector<ModbusVistStored> records;
    for (std::size_t age = counts().held; age > 0; --age) records.push_back(*at(place_of(age)));
    return records;
}

// ---- records

ModbusVistStored modbus_vist_stored(const ModbusVistSystem& system, const ModbusVistRecord& record) {
    constexpr std::size_t Rest20 = 20;
    constexpr std::uint32_t WidestRest20 = 0xFFFFFF;
    if (record.rest20 > WidestRest20) throw std::invalid_argument("three bytes have no room for that");
    const std::array<double, VistRecordFields> values = {
        record.worked, record.V1,     record.V2,     record.V3,     record.M1, record.M2, record.M3,    record.T1,
        record.T2,     record.T3,     record.T4,     record.P1,     record.P2, record.P3, record.E,     0.0,
        record.share1, record.share2, record.share3, record.share4, 0.0,       0.0,       record.share5};
    ModbusVistStored stored{.time = record.at.time()};
    for (std::size_t k = 0; k < VistRecordFields; ++k) {
        stored.numbers[k] = scaled(values[k], modbus_vist_field_rows()[k], system);
    }
    stored.numbers[ModbusVistStatusField] = record.status;
    stored.numbers[Rest20] = record.rest20;
    stored.numbers[Rest20 + 1] = record.rest21;
    return stored;
}

// ---- files

std::vector<VistFileValue> modbus_vist_record_files(const ModbusVistSystem& system, const ModbusVistStored& record) {
    std::vector<VistFileValue> lines;
    for (std::size_t k = 0; k < VistRecordFields; ++k) {
        const ModbusVistFieldRow& row = modbus_vist_field_rows()[k];
        if (row.file.empty() || (system.archive_mask >> k & 1U) == 0) continue;
        VistFileValue line{.file = std::string(row.file), .time = record.time};
        line.integer = k == ModbusVistStatusField;
        line.value = line.integer ? modbus_vist_status(static_cast<std::uint32_t>(record.numbers[k]))
                                  : static_cast<double>(record.numbers[k]) /
                                        std::pow(10.0, power_of_ten(row.precision, row.power, system));
        const bool temperature = k >= FirstTemperature && k <= LastTemperature;
        line.quality = temperature && record.numbers[k] == BrokenSensor ? 0 : 192;
        lines.push_back(line);
    }
    return lines;
}

std::vector<VistFileValue> modbus_vist_header_files(const ModbusVistSystem& system, const ModbusVistHeader& header) {
    const std::uint32_t told = system.told_mask.value_or(system.archive_mask);
    std::vector<VistFileValue> lines;
    for (std::size_t k = 0; k < VistTotals; ++k) {
        const ModbusVistTotalRow& row = modbus_vist_total_rows()[k];
        if (!row.always && (told >> row.mask_bit & 1U) == 0) continue;
        const double value =
            static_cast<double>(header.totals[k]) / std::pow(10.0, power_of_ten(row.precision, row.power, system));
        lines.push_back({.file = std::string(row.file), .time = header.time, .value = value});
    }
    return lines;
}

}  // namespace sim
