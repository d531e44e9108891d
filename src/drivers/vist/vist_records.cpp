// The packets of the meter's archive: the header with its totals, and the hourly record.

#include <cmath>

#include "core/local_time.h"
#include "core/text.h"
#include "drivers/vist/hcd_vist.h"

namespace {

constexpr int HourSeconds = 3600;
constexpr int Staged = 1;
constexpr std::uint8_t LittleEndianBit = 0x80;
constexpr int QualityBad = 0;

// Offsets in a header packet.
constexpr std::size_t HeaderCrc = PacketBodyAt + 1;
constexpr std::size_t HeaderSummed = PacketBodyAt + 2;
constexpr std::size_t HeaderEnumer = PacketBodyAt + 4;
constexpr std::size_t HeaderMask = PacketBodyAt + 6;
constexpr std::size_t HeaderRecNum = PacketBodyAt + 10;
constexpr std::size_t HeaderRecNew = PacketBodyAt + 12;
constexpr std::size_t HeaderRecMax = PacketBodyAt + 14;
constexpr std::size_t HeaderTime = PacketBodyAt + 16;
constexpr std::size_t HeaderPrecision = PacketBodyAt + 58;

// Offsets in a record packet.
constexpr std::size_t RecordTime = PacketBodyAt;
constexpr std::size_t RecordCrc = PacketBodyAt + 6;
constexpr std::size_t RecordFields = PacketBodyAt + 7;

enum Divisor : int { ByPrecision0 = 0, ByPrecision1 = 1, ByPrecision2 = 2, ByPrecision3 = 3, By10 = 10, By100 = 100 };

/// One total of the header, in the order in which they are filed.
struct HeaderTotal {
    const char* name;
    std::size_t at;
    int bit;      ///< of the mask: the total is filed
    int divisor;  ///< Divisor
};

constexpr HeaderTotal HeaderTotals[] = {
    // name  at                   bit divisor
    {"A6", PacketBodyAt + 22, 1, ByPrecision0},  {"A8", PacketBodyAt + 26, 2, ByPrecision1},
    {"A10", PacketBodyAt + 30, 3, ByPrecision2}, {"A12", PacketBodyAt + 34, 4, ByPrecision0},
    {"A14", PacketBodyAt + 38, 5, ByPrecision1}, {"A16", PacketBodyAt + 42, 6, ByPrecision2},
    {"A1", PacketBodyAt + 50, 14, ByPrecision3}, {"A4", PacketBodyAt + 46, 7, By100},
};

/// The total of heat is a signed number of eight bytes, the others are unsigned ones of four.
std::size_t total_width(const HeaderTotal& total) {
    return total.divisor == ByPrecision3 ? 8 : 4;
}

/// How a record's field is decoded and filed.
enum class FieldKind { Skip, Unsigned, Signed, Temperature, Pressure, Status };

struct RecordField {
    std::size_t width;
    FieldKind kind;
    int divisor;
    const char* name;
};

// In the order of the mask bits, bit 0 first. A24 and A23 stand behind A26: the meter's order.
constexpr RecordField RecordFieldsByBit[] = {
    {1, FieldKind::Unsigned, By100, "A3"},
    {4, FieldKind::Unsigned, ByPrecision0, "A5"},
    {4, FieldKind::Unsigned, ByPrecision1, "A7"},
    {4, FieldKind::Unsigned, ByPrecision2, "A9"},
    {4, FieldKind::Unsigned, ByPrecision0, "A11"},
    {4, FieldKind::Unsigned, ByPrecision1, "A13"},
    {4, FieldKind::Unsigned, ByPrecision2, "A15"},
    {2, FieldKind::Temperature, By10, "A20"},
    {2, FieldKind::Temperature, By10, "A21"},
    {2, FieldKind::Temperature, By10, "A22"},
    {2, FieldKind::Skip, By10, ""},
    {1, FieldKind::Pressure, By10, "A17"},
    {1, FieldKind::Pressure, By10, "A18"},
    {1, FieldKind::Pressure, By10, "A19"},
    {4, FieldKind::Signed, ByPrecision3, "A2"},
    {4, FieldKind::Status, 0, "A28"},
    {1, FieldKind::Unsigned, By100, "A25"},
    {1, FieldKind::Unsigned, By100, "A26"},
    {1, FieldKind::Unsigned, By100, "A24"},
    {1, FieldKind::Unsigned, By100, "A23"},
    {3, FieldKind::Skip, 0, ""},
    {1, FieldKind::Skip, 0, ""},
    {1, FieldKind::Skip, 0, ""},
};

constexpr double TemperatureLimit = 500.0;

double divided(double value, int divisor, const std::array<std::uint8_t, 4>& precision) {
    if (divisor == By10) return value / 10.0;
    if (divisor == By100) return value / 100.0;
    return value / std::pow(10.0, precision[static_cast<std::size_t>(divisor)]);
}

std::uint32_t unsigned_at(Bytes bytes, std::size_t at, std::size_t width) {
    return width == 1 ? u8_at(bytes, at) : width == 2 ? le_u16(bytes, at) : le_u32(bytes, at);
}

int packet_size(Bytes packet) {
    return u8_at(packet, PacketSizeAt);
}

/// The record's own check sum over its fields.
std::uint8_t record_crc(Bytes packet) {
    return checksum(part_of(packet, RecordFields, packet_size(packet) - 9));
}

std::string clock_text(const std::tm& tm) {
    return format_cut(31, "%02d:%02d:%02d", tm.tm_hour, tm.tm_min, tm.tm_sec);
}

std::string day_text(const std::tm& tm) {
    return format_cut(31, "%02d:%02d:%02d", tm.tm_mday, tm.tm_mon + 1, tm.tm_year - 100);
}

}  // namespace

bool HCD_VIST::flush_archive_header() {
    log_line(log.get(), "Start flush archive header");
    const PacketBuffer bytes = packet(functions.archheader);
    fSwapArch = (u8_at(bytes, HeaderEnumer) & LittleEndianBit) == 0;
    if (fSwapArch) {
        swap_bytes(bytes, HeaderMask, 4);
        for (const std::size_t at : {HeaderRecNum, HeaderRecNew, HeaderRecMax}) swap_bytes(bytes, at, 2);
    }
    arch_mask = le_u32(bytes, HeaderMask);
    if (u8_at(bytes, HeaderCrc) != checksum(part_of(bytes, HeaderSummed, packet_size(bytes) - 4))) {
        log_line(log.get(), "Incoming CRC != calc CRC, return false");
        return false;
    }
    log_line(log.get(), "CRC ok");

    std::tm tm = packet_time(bytes, HeaderTime);
    log_line(log.get(), "Archive header time: ", clock_text(tm));
    log_line(log.get(), "Archive header date: ", day_text(tm));
    const std::time_t ts = make_time(tm);
    ArchiveRecNum = static_cast<std::int16_t>(le_u16(bytes, HeaderRecNum));
    ArchiveRecNew = static_cast<std::int16_t>(le_u16(bytes, HeaderRecNew));
    ArchiveRecMax = static_cast<std::int16_t>(le_u16(bytes, HeaderRecMax));
    for (std::size_t i = 0; i < arch_precision.size(); ++i) arch_precision[i] = u8_at(bytes, HeaderPrecision + i);

    if (fSwapArch) {
        for (const HeaderTotal& total : HeaderTotals) swap_bytes(bytes, total.at, total_width(total));
    }

    std::time_t& newest = last_request_archive_header[static_cast<std::size_t>(selected_subsystem)];
    if (newest >= ts) {
        log_line(log.get(), "Current header timestamp is exists, return false");
        return false;
    }
    log_line(log.get(), "Ok, flush_archives. New max timestamp = ", ts);
    newest = ts;
    for (const HeaderTotal& total : HeaderTotals) {
        if ((arch_mask >> total.bit & 1) == 0) continue;
        const double raw = total_width(total) == 8
                               ? static_cast<double>(static_cast<std::int64_t>(le_u64(bytes, total.at)))
                               : static_cast<double>(le_u32(bytes, total.at));
        add_value(total.name, divided(raw, total.divisor, arch_precision));
    }
    ArchiveHolder::flush_values(tm, 0, QualityGood, selected_subsystem + 1, Staged);
    return true;
}

bool HCD_VIST::getDateFromArchiveBuff(std::time_t& out) {
    const PacketBuffer bytes = packet(functions.archheader);
    if (u8_at(bytes, RecordCrc) != record_crc(bytes)) {
        log_line(log.get(), "pRec->crc != calc_crc");
        return false;
    }
    log_line(log.get(), "pRec->crc == calc_crc");
    std::tm tm = packet_time(bytes, RecordTime);
    out = make_time(tm);
    return true;
}

bool HCD_VIST::flush_archive_data(int& error) {
    error = 0;
    log_line(log.get(), "Start flush archive data");
    const PacketBuffer bytes = packet(functions.archheader);
    if (u8_at(bytes, RecordCrc) != record_crc(bytes)) {
        log_line(log.get(), "Incoming CRC != calc CRC  ==> error = error_crc_calc, return true");
        error = 1;
        functions.do_request(reqArchivePrev);  // so that the next step brings the same record again
        return true;
    }
    log_line(log.get(), "CRC ok");

    bytes[RecordTime + 1] = bytes[RecordTime + 2] = 0;  // a record's time is always a full hour
    std::tm tm = packet_time(bytes, RecordTime);
    const std::time_t ts = make_time(tm);
    log_line(log.get(), "Archive record timestamp: ", ts);
    std::time_t& last = last_request_archive_data[static_cast<std::size_t>(selected_subsystem)];
    if (last > 0 && std::difftime(ts, last) > HourSeconds) {
        log_line(log.get(), "Record's timestamp less that coming record's timestamp ");
        log_line(log.get(), "return false");
        return false;
    }
    if (last >= ts) {
        log_line(log.get(), "Current data timestamp is exists, return true");
        return true;
    }
    last = ts;
    if (last_archive_record == ts) {
        log_line(log.get(), "pVISTdrv->last_archive_record != current_timestamp, return true");
        log_line(log.get(), "Last request archive data = ", last);
        return true;
    }
    last_archive_record = ts;
    store_record(bytes, local_time(ts - HourSeconds));
    return true;
}

void HCD_VIST::store_record(PacketBuffer bytes, const std::tm& record_tm) {
    std::size_t at = RecordFields;
    for (std::size_t bit = 0; bit < std::size(RecordFieldsByBit); ++bit) {
        if ((arch_mask >> bit & 1) == 0) continue;
        const RecordField& field = RecordFieldsByBit[bit];
        if (fSwapArch && field.kind != FieldKind::Skip) swap_bytes(bytes, at, field.width);
        const std::uint32_t raw = unsigned_at(bytes, at, field.width);
        const double value = divided(raw, field.divisor, arch_precision);
        switch (field.kind) {
            case FieldKind::Skip:
                break;
            case FieldKind::Unsigned:
                add_value(field.name, value);
                break;
            case FieldKind::Signed:
                add_value(field.name, divided(static_cast<std::int32_t>(raw), field.divisor, arch_precision));
                break;
            case FieldKind::Temperature:
                add_value_q(field.name, value, value < TemperatureLimit ? QualityGood : QualityBad);
                break;
            case FieldKind::Pressure:
                add_value_q(field.name, value, raw == 0 ? QualityBad : QualityGood);
                break;
            case FieldKind::Status:
                add_value(field.name, static_cast<int>(convert_errors(bytes.subspan(at).first<4>(), true)));
                break;
        }
        at += field.width;
    }
    ArchiveHolder::flush_values(record_tm, 0, QualityGood, selected_subsystem + 1, Staged);
    flush_values_q(record_tm, 0, selected_subsystem + 1, Staged);
}
