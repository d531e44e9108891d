#include "vist_memory.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

constexpr std::time_t FiledBefore = 3600;  // a record is dated at the end of its hour, its lines at the beginning

const VistPresentRow* row_named(std::string_view name) {
    for (const auto rows : {vist_integrator_rows(), vist_moment_rows()}) {
        const auto found = std::find_if(rows.begin(), rows.end(), [&](const auto& row) { return row.name == name; });
        if (found != rows.end()) return &*found;
    }
    return nullptr;
}

const VistPresentRow& present_row(std::string_view name) {
    const VistPresentRow* row = row_named(name);
    if (row == nullptr) throw std::invalid_argument("no packet has a value " + std::string(name));
    return *row;
}

bool fits(std::int64_t number, std::size_t width, bool is_signed) {
    if (width >= sizeof number) return true;
    const std::int64_t span = std::int64_t{1} << (8 * width);
    return is_signed ? number >= -span / 2 && number < span / 2 : number >= 0 && number < span;
}

std::int64_t scaled(double value, const VistFieldRow& row, const std::array<std::uint8_t, 4>& precision) {
    constexpr double BeyondAll = 1e15;
    const int power = row.precision < 0 ? row.power : precision.at(static_cast<std::size_t>(row.precision));
    const double number = std::round(value * std::pow(10.0, power));
    const bool whole = std::abs(number) < BeyondAll;  // also no NaN
    if (!whole || !fits(static_cast<std::int64_t>(number), row.width, row.is_signed)) {
        throw std::invalid_argument("no room in a record for " + std::to_string(value));
    }
    return static_cast<std::int64_t>(number);
}

std::int64_t joined(std::initializer_list<std::uint8_t> lowest_first) {
    std::int64_t number = 0;
    int shift = 0;
    for (const auto byte : lowest_first) {
        number |= std::int64_t{byte} << shift;
        shift += 8;
    }
    return number;
}

bool doubtful(double value, VistDoubt doubt) {
    constexpr double BrokenSensor = 500.0;
    switch (doubt) {
        case VistDoubt::From500:
            return value >= BrokenSensor;
        case VistDoubt::AtZero:
            return value == 0.0;
        case VistDoubt::Never:
            break;
    }
    return false;
}

double unscaled(std::int64_t number, int precision, int power, const VistDevice& device) {
    if (precision >= 0) power = device.precision.at(static_cast<std::size_t>(precision));
    return static_cast<double>(number) / std::pow(10.0, power);
}

std::uint32_t status_word(std::int64_t number) {
    std::array<std::uint8_t, 4> status{};
    for (std::size_t k = 0; k < status.size(); ++k) status[k] = static_cast<std::uint8_t>(number >> (8 * k));
    return vist_status_word(status, true);
}

}  // namespace

// ---- ring

void VistRing::push(const VistStoredRecord& record) {
    records_.push_back(record);
    if (records_.size() <= capacity_) return;
    records_.pop_front();
    ++first_;
}

void VistRing::forget() {
    first_ += records_.size();
    records_.clear();
}

void VistRing::remove(Sequence sequence) {
    records_.erase(records_.begin() + static_cast<std::ptrdiff_t>(sequence - first_));
}

VistCounts VistRing::counts() const {
    const auto newest_place = empty() ? 0 : (newest() - 1) % capacity_;
    return {.held = static_cast<std::int16_t>(records_.size()),
            .newest = static_cast<std::int16_t>(newest_place),
            .most = static_cast<std::int16_t>(capacity_)};
}

VistRing::Sequence VistRing::find(const VistDate& date) const {
    const auto found =
        std::find_if(records_.rbegin(), records_.rend(), [&](const auto& record) { return record.date == date; });
    if (found == records_.rend()) throw std::out_of_range("no record of that date");
    return newest() - static_cast<Sequence>(found - records_.rbegin());
}

// ---- device

VistMemory::VistMemory(VistDevice settings, unsigned number, std::size_t capacity)
    : device(std::move(settings)), ring(capacity), number_(number) {
    const std::map<std::string, VistValue> given = std::move(device.values);
    device.values.clear();
    for (const auto& [name, value] : given) set_value(name, value);
}

void VistMemory::set_value(const std::string& name, VistValue value) {
    const std::size_t width = present_row(name).width;
    if (!fits(value.number, width, width > 1)) throw std::invalid_argument("no room in a packet for " + name);
    device.values[name] = value;
}

VistValue VistMemory::value(std::string_view name) const {
    const VistPresentRow& row = present_row(name);
    const auto found = device.values.find(std::string(name));
    if (found != device.values.end()) return found->second;
    return {.number = row.when_unset.number + number_, .scale = row.when_unset.scale};
}

VistStoredRecord VistMemory::stored(const VistRecord& record) const {
    const auto& s = record.status;
    const auto& r = record.rest;
    const std::array<double, VistRecordFields> values = {
        record.IT, record.IQ1, record.IQ2,    record.IQ3,    record.IM1,    record.IM2,   record.IM3,
        record.T1, record.T2,  record.T3,     record.T4,     record.P1,     record.P2,    record.P3,
        record.IE, 0.0,        record.share1, record.share2, record.share3, record.share4};
    VistStoredRecord stored{.time = record.at.time(), .date = record.at.date()};
    for (std::size_t k = 0; k < VistRecordFields; ++k) {
        stored.numbers[k] = scaled(values[k], vist_field_rows()[k], device.precision);
    }
    stored.numbers[VistStatusField] = joined({s[0], s[1], s[2], s[3]});
    stored.numbers[20] = joined({r[0], r[1], r[2]});
    stored.numbers[21] = r[3];
    stored.numbers[22] = r[4];
    return stored;
}

// ---- files

std::vector<VistFileValue> vist_record_files(const VistDevice& device, const VistStoredRecord& record) {
    VistDate full_hour = record.date;
    full_hour.minute = 0;
    full_hour.second = 0;
    std::tm tm{};
    tm.tm_year = full_hour.year + 100;
    tm.tm_mon = full_hour.month - 1;
    tm.tm_mday = full_hour.day;
    tm.tm_hour = full_hour.hour;
    tm.tm_isdst = -1;
    const std::time_t time = std::mktime(&tm) - FiledBefore;

    std::vector<VistFileValue> lines;
    for (std::size_t k = 0; k < VistRecordFields; ++k) {
        const VistFieldRow& row = vist_field_rows()[k];
        if (row.file.empty() || (device.archive_mask >> k & 1U) == 0) continue;
        VistFileValue line{.file = std::string(row.file), .time = time};
        line.integer = k == VistStatusField;
        line.value = line.integer ? status_word(record.numbers[k])
                                  : unscaled(record.numbers[k], row.precision, row.power, device);
        line.quality = doubtful(line.value, row.doubt) ? 0 : 192;
        lines.push_back(line);
    }
    return lines;
}

std::vector<VistFileValue> vist_header_files(const VistDevice& device, const VistHeader& header) {
    std::vector<VistFileValue> lines;
    for (std::size_t k = 0; k < VistTotals; ++k) {
        const VistTotalRow& row = vist_total_rows()[k];
        if ((device.archive_mask >> row.mask_bit & 1U) == 0) continue;
        const double value = unscaled(header.totals[k], row.precision, row.power, device);
        lines.push_back({.file = std::string(row.file), .time = header.time, .value = value});
    }
    return lines;
}

}  // namespace sim
