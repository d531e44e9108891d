#include "drivers/km5/km5_decode.h"

#include "core/local_time.h"
#include "drivers/km5/km5_frame.h"

namespace {

constexpr int HourSeconds = 3600;
constexpr int DaySeconds = 86400;
constexpr std::size_t FirstValuePosition = 13;  // of the fourteen floats in a record
constexpr std::uint8_t NoFirstRecordFlag = 0x80;
constexpr std::uint8_t StateBit = 0x80;
constexpr std::uint8_t ServiceBits = 0x0C;
constexpr int HighestTSMode = 3;
constexpr int UnknownTSMode = 4;

/// One of the meter's status bits and the bits published for it.
struct StatusBit {
    std::size_t position;
    std::uint8_t mask;
    unsigned bits;
};

constexpr StatusBit StatusBits[] = {
    {7, 0x01, 0x2},     {7, 0x02, 0x4},    {7, 0x10, 0x20000}, {7, 0x20, 0x40000},
    {7, 0x08, 0x80008}, {9, 0x0C, 0x4000}, {10, 0x01, 0x40},   {10, 0x02, 0x100000},
};

}  // namespace

namespace km5 {

std::tm decode_date(Bytes answer) {
    std::tm date{};
    date.tm_mday = bcd_to_int(u8_at(answer, 6));
    date.tm_mon = bcd_to_int(u8_at(answer, 7)) - 1;
    date.tm_year = bcd_to_int(u8_at(answer, 8)) + 100;
    date.tm_hour = bcd_to_int(u8_at(answer, 10));
    date.tm_min = bcd_to_int(u8_at(answer, 11));
    date.tm_sec = bcd_to_int(u8_at(answer, 12));
    date.tm_isdst = -1;
    return date;
}

KM5_status decode_status(Bytes answer) {
    KM5_status status;
    // The block begins with the echoed command, so the low byte of the published number is always 8.
    status.Gstatus = le_u64(answer, 4);
    for (const StatusBit& bit : StatusBits) {
        if ((u8_at(answer, bit.position) & bit.mask) != 0) status.Cstatus |= bit.bits;
    }
    status.SC = (u8_at(answer, 9) & ServiceBits) != 0 ? 0 : 1;
    status.TSMode = u8_at(answer, 8) > HighestTSMode ? UnknownTSMode : u8_at(answer, 8);
    return status;
}

KM5_bounds decode_bounds(Bytes answer) {
    return {.has_first_record = (u8_at(answer, 5) & NoFirstRecordFlag) == 0,
            .first = le_u16(answer, 6),
            .last = le_u16(answer, 16),
            .count = le_u16(answer, 26)};
}

int decode_index(Bytes answer) {
    return le_u16(answer, 6);
}

KM5_record decode_record(Bytes answer) {
    KM5_record record{.date = decode_date(answer), .values = {}};
    for (std::size_t k = 0; k < record.values.size(); ++k) {
        record.values[k] = le_float(answer, FirstValuePosition + 4 * k);
    }
    return record;
}

KM5_event decode_event(Bytes answer) {
    const std::uint8_t raw = u8_at(answer, 5);
    return {.date = decode_date(answer), .code = raw & ~StateBit, .state = (raw & StateBit) != 0};
}

std::vector<KM5_value> decode_page(int cmd, int page, Bytes answer, const KM5_meter& meter, bool hot_water) {
    std::vector<KM5_value> values;
    for (const KM5_page_value& row : page_values()) {
        if (row.cmd != cmd || row.page != page) continue;
        const bool readable = meter.isATT || !(static_cast<double>(meter.version) < row.from_version);
        if (row.from_version > 0.0 && !readable) continue;
        if (!row.when(meter.model, meter.model == 1 && hot_water)) continue;
        const auto position = static_cast<std::size_t>(row.position);
        values.emplace_back(row.name, row.position == ConstantOne ? 1.0F : le_float(answer, position));
    }
    return values;
}

KM5_sorted sort_record(const KM5_record& record, int model, bool hot_water) {
    KM5_sorted sorted;
    const KM5_model_table* const table = find_model_table(model);
    for (std::size_t k = 0; table != nullptr && k < table->params.size(); ++k) {
        const KM5_param& param = table->params[k];
        if (!param.enabled) continue;
        std::string name = param.name;
        if (param.integrating == 1) {
            sorted.totals.emplace_back(name, record.values[k]);
            continue;
        }
        if (model == 1 && hot_water && name == "T2") name = "T3";
        if (model == 1 && hot_water && name == "P2") name = "P3";
        if (model == 7 && !hot_water && (name == "T3" || name == "P3")) continue;
        sorted.averages.emplace_back(name, record.values[k]);
    }
    return sorted;
}

std::tm average_date(std::tm date, int type) {
    const std::time_t time = make_time(date);
    if (type == ArchiveHourly) return local_time(time - HourSeconds);
    if (type != ArchiveDaily) return local_time(time);
    std::tm earlier = local_time(time - DaySeconds);
    if (earlier.tm_hour != 0 || earlier.tm_min != 0 || earlier.tm_sec != 0) {
        // Summer time changed in between.
        earlier.tm_mday += 1;
        earlier.tm_hour = earlier.tm_min = earlier.tm_sec = 0;
    }
    return earlier;
}

}  // namespace km5
