// The contents of the meter's archive files: what they hold, a header, a record.

#include <algorithm>
#include <string>

#include "core/local_time.h"
#include "core/text.h"
#include "drivers/vist/vist_packet.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"
#include "drivers/vist_modbus/modbus_frame.h"

namespace {

// The data of a file answer begin with its length and the reference type.
constexpr std::size_t FileHeadBytes = 2;

// Offsets in an archive header.
constexpr std::size_t MaskAt = 6;
constexpr std::size_t CountAt = 10;
constexpr std::size_t NextAt = 12;
constexpr std::size_t CapacityAt = 14;
constexpr std::size_t TimeAt = 16;
constexpr std::size_t VolumesAt = 22;
constexpr std::size_t MassesAt = 34;
constexpr std::size_t WorkTimeAt = 46;
constexpr std::size_t EnergyAt = 50;
constexpr std::size_t PrecisionAt = 58;

constexpr const char* VolumeTotals[] = {"A6", "A8", "A10"};
constexpr const char* MassTotals[] = {"A12", "A14", "A16"};

constexpr int NoTemperature = -1000;  // raw, of a sensor that gives none
constexpr int QualityBad = 0;
constexpr int Staged = 1;

// Bytes of a record's fields by mask bit.
constexpr std::uint8_t arch_field_size[] = {1, 4, 4, 4, 4, 4, 4, 2, 2, 2, 2, 1, 1, 1, 4, 4, 1, 1, 1, 1, 3, 1, 1};

enum class Field {
    Tenths,       // one byte, by 10
    Hundredths,   // one byte, by 100
    Long,         // signed, by a precision of the header
    Temperature,  // signed, by 10, with a mark for a sensor that gives none
    Status,
};

struct ArchiveField {
    std::size_t bit;  // of the mask
    Field field;
    const char* name;
    std::size_t precision = 0;
};

// As the table of the text dialect in its order only: signed numbers stand here where that one has unsigned ones.
constexpr ArchiveField ArchiveFields[] = {
    {0, Field::Hundredths, "A3"},   {1, Field::Long, "A5", 0},      {2, Field::Long, "A7", 1},
    {3, Field::Long, "A9", 2},      {4, Field::Long, "A11", 0},     {5, Field::Long, "A13", 1},
    {6, Field::Long, "A15", 2},     {7, Field::Temperature, "A20"}, {8, Field::Temperature, "A21"},
    {9, Field::Temperature, "A22"}, {10, Field::Temperature, "T4"}, {11, Field::Tenths, "A17"},
    {12, Field::Tenths, "A18"},     {13, Field::Tenths, "A19"},     {14, Field::Long, "A2", 3},
    {15, Field::Status, "A28"},     {16, Field::Hundredths, "A25"}, {17, Field::Hundredths, "A26"},
    {18, Field::Hundredths, "A24"}, {19, Field::Hundredths, "A23"}, {22, Field::Hundredths, "A27"},
};

constexpr std::size_t BitBehindUnread = 22;
constexpr std::size_t UnreadBytes = 4;  // of bits 20 and 21, passed over whether they are set or not

bool is_same_moment(const std::tm& a, const std::tm& b) {
    return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour && a.tm_mday == b.tm_mday &&
           a.tm_mon == b.tm_mon && a.tm_year == b.tm_year;
}

std::time_t time_of(std::tm tm) {
    return make_time(tm);
}

}  // namespace

int archive_record_size(std::uint32_t mask) {
    int size = 1;  // the check sum
    for (std::size_t bit = 0; bit < std::size(arch_field_size); ++bit) {
        if ((mask >> bit & 1) != 0) size += arch_field_size[bit];
    }
    return size;
}

std::time_t HCD_VISTmodbus::record_time() const {
    return time_of(record_tm);
}

void HCD_VISTmodbus::process_archive_specs(Bytes data, const ModbusRequest& /*row*/) {
    // The blocks of the three systems are not aligned alike.
    const std::uint32_t spec_mask = read_u32(data, selected_subsystem == 1 ? 3 : 2);
    log_line(log.get(), "Processing archive specs (", spec_mask, ")...");
    const auto has = [spec_mask](std::size_t bit) { return (spec_mask >> bit & 1) != 0; };
    hasC = has(0);
    hasE = has(14);
    for (std::size_t i = 0; i < 3; ++i) {
        hasV[i] = true;  // whatever bits 1 to 3 say
        hasM[i] = has(4 + i);
    }
}

void HCD_VISTmodbus::process_archive_header(Bytes data, const ModbusRequest& /*row*/) {
    const Bytes header = data.subspan(FileHeadBytes);
    pending_double.clear();
    log_line(log.get(), "Processing archive header...");
    if (hasC) {
        const std::uint32_t raw = read_u32(header, WorkTimeAt);
        const double c = raw / 100.0;
        log_line(log.get(),
                 "set_worktime_value:", format_cut(64, "%d -> %s", static_cast<int>(raw), std::to_string(c).c_str()));
        add_value("A4", c);
        publish_item("IT1", c);
    }
    for (std::size_t i = 0; i < arch_precision.size(); ++i) arch_precision[i] = u8_at(header, PrecisionAt + i);
    if (hasE) add_value("A1", scale_down(static_cast<double>(read_u64(header, EnergyAt)), arch_precision[3]));
    for (std::size_t i = 0; i < 3; ++i) {
        const auto total = [&](std::size_t at) { return scale_down(read_u32(header, at + 4 * i), arch_precision[i]); };
        if (hasV[i]) add_value(VolumeTotals[i], total(VolumesAt));
        if (hasM[i]) add_value(MassTotals[i], total(MassesAt));
    }
    record_ok = true;
    arch_continue = true;
    arch_mask = read_u32(header, MaskAt);
    recs_count = read_u16(header, CountAt);
    max_records = read_u16(header, CapacityAt);
    next_rec_index = static_cast<std::uint16_t>(read_u16(header, NextAt) + 1);
    header_tm = record_tm = packet_time(header, TimeAt);

    const std::time_t header_date = record_time();
    std::time_t& last = last_request_date_header[static_cast<std::size_t>(selected_subsystem)];
    if (last >= header_date) {
        arch_continue = false;
        clear_values();
        return;
    }
    last = header_date;
    flush_values(record_tm, 0, QualityGood, selected_subsystem + 1, Staged);
}

void HCD_VISTmodbus::process_archive_record(Bytes data, const ModbusRequest& /*row*/) {
    record_ok = false;
    const Bytes record = data.subspan(FileHeadBytes);
    const std::uint8_t sum = checksum(record.subspan(1, static_cast<std::size_t>(std::max(arch_record_size, 1) - 1)));
    const std::uint8_t crc = u8_at(record, 0);
    if (sum != crc) {
        log_line(log.get(), "Archive record CRC FAIL:", int{sum}, " vs ", int{crc});
        return;
    }
    record_ok = true;
    log_line(log.get(), is_same_moment(record_tm, header_tm)
                            ? "Archive record initialized earlier, integrators included"
                            : "Archive record initialized now, no integrators");
    log_line(log.get(), "Archive record date/time: ", date_text(record_tm));
    add_record_values(record);
    log_line(log.get(), "Data ready. Try write.");
    store_record();
    clear_values();
    pending_float_q.clear();
    pending_double_q.clear();
}

void HCD_VISTmodbus::add_record_values(Bytes record) {
    std::size_t at = 1;
    for (const auto& [bit, field, name, precision] : ArchiveFields) {
        if (bit == BitBehindUnread) at += UnreadBytes;
        if ((arch_mask >> bit & 1) == 0) continue;
        switch (field) {
            case Field::Tenths:
                add_value(name, u8_at(record, at) / 10.0);
                break;
            case Field::Hundredths:
                add_value(name, u8_at(record, at) / 100.0);
                break;
            case Field::Long:
                add_value(name, scale_down(read_i32(record, at), arch_precision[precision]));
                break;
            case Field::Temperature: {
                const int raw = read_i16(record, at);
                add_value_q(name, raw / 10.0, raw == NoTemperature ? QualityBad : QualityGood);
                break;
            }
            case Field::Status:
                add_value(name, static_cast<int>(convert_status(read_u32(record, at))));
                break;
        }
        at += arch_field_size[bit];
    }
}

void HCD_VISTmodbus::store_record() {
    const std::time_t t = record_time();
    std::time_t& last = last_request_date[static_cast<std::size_t>(selected_subsystem)];
    log_line(log.get(), "last_request_date = ", last, ", arch_rawtime = ", t);
    if (t >= time_of(header_tm)) {
        arch_continue = false;  // the walk has caught up with the header
        return;
    }
    last = t;
    arch_continue = true;
    log_line(log.get(), "flush_archives as ", t);
    flush_values(local_time(t), 0, QualityGood, selected_subsystem + 1, Staged);
    flush_values_q(local_time(t), 0, selected_subsystem + 1, Staged);
}
