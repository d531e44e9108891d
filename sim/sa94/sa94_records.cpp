#include "sa94_records.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "sa94_memory.h"
#include "sa94_wire.h"

namespace sim {

namespace {

constexpr std::int64_t SecondsPerHour = 3600;
constexpr std::int64_t SecondsPerDay = 86400;
constexpr std::int64_t FaceOf2020 = 1577836800;
constexpr unsigned DailyFilesAbove = 28;
constexpr std::uint8_t Over = 0x80;
constexpr double WidestWord = 65535.0;

void write_value(Sa94Bytes& record, const Sa94Column& column, double bare) {
    if (!column.word) {
        const auto bytes = sa94_float(static_cast<float>(bare));
        std::copy(bytes.begin(), bytes.end(), record.begin() + column.offset);
        return;
    }
    if (!(bare >= 0.0 && bare <= WidestWord) || bare != std::floor(bare)) {
        throw std::invalid_argument(std::string(column.name) + ": no word holds " + std::to_string(bare));
    }
    const auto word = static_cast<std::uint16_t>(bare);
    record[column.offset] = static_cast<std::uint8_t>(word >> 8);
    record[column.offset + 1] = static_cast<std::uint8_t>(word);
}

float read_value(std::span<const std::uint8_t> record, const Sa94Column& column) {
    if (!column.word) return sa94_float_value(record.subspan(column.offset).first<4>());
    return static_cast<float>(record[column.offset] * 0x100 + record[column.offset + 1]);
}

const Sa94Column& column_named(std::span<const Sa94Column> columns, const std::string& name) {
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const auto& row) { return row.name == name; });
    if (found == columns.end()) throw std::invalid_argument("no record of this firmware has " + name);
    return *found;
}

std::string file_name(const Sa94Quantity& quantity, Sa94Archive archive) {
    const unsigned number = quantity.file + (archive == Sa94Archive::Daily ? DailyFilesAbove : 0);
    const bool hidden = quantity.name == "T1" || quantity.name == "T2";
    return (hidden ? "_A" : "A") + std::to_string(number);
}

bool is_total(const Sa94Quantity& quantity) {
    return quantity.name[0] == 'I';
}

Sa94Bytes record_head(Sa94Archive archive, const Sa94Date& date, std::uint8_t status) {
    Sa94Bytes record{};
    record[1] = sa94_bcd(date.day);
    record[2] = sa94_bcd(date.month);
    record[3] = sa94_bcd(date.year);
    if (archive == Sa94Archive::Daily) return record;
    record[5] = sa94_bcd(date.hour);
    if (archive == Sa94Archive::Hourly) {
        record[4] = status;
        return record;
    }
    record[6] = sa94_bcd(date.minute);
    record[7] = sa94_bcd(date.second);
    return record;
}

}  // namespace

Sa94Bytes sa94_record(const Sa94Firmware& firmware, Sa94Archive archive, const Sa94Record& record,
                      std::uint8_t meter_status) {
    Sa94Bytes bytes = record_head(archive, record.at.date(), record.status.value_or(meter_status));
    const auto columns = firmware.columns(archive);
    for (const auto& [name, bare] : record.values) write_value(bytes, column_named(columns, name), bare);
    return bytes;
}

Sa94Bytes sa94_event(const Sa94Event& event) {
    if (event.code >= Over) throw std::invalid_argument("the code of an event is 0 to 127");
    Sa94Bytes bytes = record_head(Sa94Archive::Errors, event.at.date(), 0);
    bytes[0] = static_cast<std::uint8_t>(event.code | (event.stopped ? Over : 0));
    return bytes;
}

double sa94_amount(const Sa94Quantity& quantity, std::uint32_t address, std::int64_t face, double period_hours) {
    const double hours = static_cast<double>(face - FaceOf2020) / SecondsPerHour;
    const auto turn = face / SecondsPerHour % 24 + face / SecondsPerDay % 7;
    const double swing = quantity.swing * static_cast<double>(turn) / 30.0;
    // Downwards: no hour has more than 3600 seconds in it.
    const double own = 1.0 - static_cast<double>(address % 16) / 1000.0;
    const double amount = (quantity.base + quantity.per_hour * hours + swing) * own;
    return quantity.of_a_period ? amount * period_hours : amount;
}

Sa94Chronicle::Sa94Chronicle(const Sa94Firmware& firmware, Sa94Archive archive, std::uint32_t address,
                             std::uint8_t status)
    : archive_(archive), address_(address), status_(status) {
    for (const Sa94Column& column : firmware.columns(archive)) {
        parts_.push_back({column, &sa94_quantity(sa94_meaning(column.name, status))});
    }
}

Sa94Bytes Sa94Chronicle::bare_record(std::int64_t face) {
    return record_head(archive_, calendar_.date_of_face(face), status_);
}

Sa94Bytes Sa94Chronicle::record(std::int64_t face) {
    const std::int64_t period = archive_ == Sa94Archive::Daily ? SecondsPerDay : SecondsPerHour;
    const double hours = static_cast<double>(period) / SecondsPerHour;
    Sa94Bytes bytes = bare_record(face);
    for (const Part& part : parts_) {
        const double bare = part.column.scale.bare(sa94_amount(*part.quantity, address_, face + period, hours));
        write_value(bytes, part.column, part.column.word ? std::round(bare) : bare);
    }
    return bytes;
}

std::string_view sa94_meaning(std::string_view column, std::uint8_t status) {
    const bool volumes = (status & 0x44U) == 0x44U;
    if (column == "p1") return volumes ? "IV1" : "IM1";
    if (column == "p2") return volumes ? "IV2" : "IM2";
    if (column == "p3") return (status & 0x2AU) != 0 ? "IM3" : "IV3";
    return column;
}

bool sa94_has_third_temperature(int firmware_id, std::uint8_t status) {
    if (firmware_id >= 14) return (status & 0x04U) != 0;
    return firmware_id < 4 || (status & 0x02U) != 0;
}

std::vector<Sa94FileValue> sa94_record_files(const Sa94Firmware& firmware, Sa94Archive archive,
                                             std::span<const std::uint8_t> record, std::uint8_t meter_status) {
    const std::time_t time = sa94_record_time(archive, record);
    if (time == -1) return {};
    if (archive == Sa94Archive::Errors) {
        return {{"_A57", time, record[0] < Over ? 192 : 0, static_cast<double>(record[0] % Over)}};
    }
    const std::time_t period = archive == Sa94Archive::Daily ? SecondsPerDay : SecondsPerHour;
    std::vector<Sa94FileValue> lines;
    for (const Sa94Column& column : firmware.columns(archive)) {
        // A float is believed, also one of a sensor that is not there.
        const bool doubted = column.word && column.name == "T3";
        if (doubted && !sa94_has_third_temperature(firmware.id, meter_status)) continue;
        const Sa94Quantity& quantity = sa94_quantity(sa94_meaning(column.name, meter_status));
        lines.push_back({.file = file_name(quantity, archive),
                         .time = is_total(quantity) ? time + period : time,
                         .value = column.scale.filed(read_value(record, column))});
    }
    return lines;
}

}  // namespace sim
