#include "drivers/sa94/sa94_decode.h"

#include <algorithm>

#include "core/local_time.h"
#include "drivers/sa94/sa94_values.h"

namespace {

constexpr std::size_t FirmwareAt = 1;
constexpr int FirmwareBytes = 14;
constexpr std::size_t TubeAt[] = {36, 44};
constexpr unsigned StatusMask = 0x7F;
constexpr float LeastTemperature = -63.0F;

bool measures_t3(int firmware_id, unsigned status) {
    if (firmware_id < FirstIdByStatus) return firmware_id < 4 || (status & BitOldT3) != 0;
    return (status & BitT3) != 0;
}

std::time_t time_of(std::tm tm) {
    return make_time(tm);
}

}  // namespace

std::string firmware_text(Bytes reply) {
    std::string text;
    for (const std::uint8_t byte : part_of(reply, FirmwareAt, FirmwareBytes)) {
        if (byte != ' ') text += static_cast<char>(byte);
    }
    return text.substr(0, text.find('\0'));
}

const SA94Version* find_version(const std::string& firmware) {
    const auto row = std::find_if(Versions.begin(), Versions.end(),
                                  [&](const SA94Version& version) { return firmware.starts_with(version.name); });
    return row == Versions.end() ? nullptr : &*row;
}

SA94Status sa94::decode_status(std::uint8_t status, int firmware_id) {
    return {.subsystem_type = (status & BitT3) != 0 ? 1 : 0,
            .status_byte = static_cast<std::uint8_t>(status & StatusMask),
            .sc_flag = (status & BitSC) != 0 ? 1 : 0,
            .support_t3 = measures_t3(firmware_id, status)};
}

SA94Tube sa94::decode_tube(Bytes reply, int number) {
    const std::size_t at = TubeAt[number - 1];
    return {.dn_code = u8_at(reply, at), .q_max_code = u8_at(reply, at + 1), .q_min_code = u8_at(reply, at + 2)};
}

std::optional<float> sa94::decode_parameter(const SA94CurrentParameter& parameter, Bytes reply, std::tm& clock) {
    if (parameter.kind == ParameterValue) return scaled(decodeSaFloat(reply), parameter.scale, parameter.operation);
    if (parameter.kind == ParameterDate) {
        const std::tm date = record_date(reply);
        clock.tm_mday = date.tm_mday;
        clock.tm_mon = date.tm_mon;
        clock.tm_year = date.tm_year;
    } else {
        clock.tm_hour = bcdToInt(u8_at(reply, 1));
        clock.tm_min = bcdToInt(u8_at(reply, 2));
        clock.tm_sec = bcdToInt(u8_at(reply, 3));
    }
    return std::nullopt;
}

const SA94Layout* find_layout(int archive_type, int firmware_id) {
    const auto& layouts = archive_type == HOURLY_DB ? HourlyLayouts : DailyLayouts;
    const auto row = std::find_if(layouts.begin(), layouts.end(),
                                  [firmware_id](const SA94Layout& layout) { return layout.id == firmware_id; });
    return row == layouts.end() ? nullptr : &*row;
}

SA94Record sa94::decode_record(Bytes record, const SA94Layout& layout, bool support_t3) {
    SA94Record decoded;
    std::size_t offset = 0;
    for (const SA94Column& column : layout.columns) {
        const Bytes bytes = part_of(record, offset, column.size);
        offset += static_cast<std::size_t>(column.size);
        if (!column.active) continue;
        if (column.kind == ColumnDate) {
            decoded.tm = record_date(bytes);
            decoded.date = time_of(decoded.tm);
        } else if (column.kind == ColumnHour) {
            decoded.tm.tm_hour = bcdToInt(u8_at(bytes, 0));
        } else {
            const bool word = column.kind == ColumnWord;
            const float number = word ? decodeWord(u8_at(bytes, 0), u8_at(bytes, 1)) : decodeSaFloat(bytes);
            const float value = scaled(number, column.scale, column.operation);
            // A word has no sign, so the second test never holds; it is meant to stay.
            if (word && is_third_temperature(column.name) && (!support_t3 || value < LeastTemperature)) continue;
            decoded.values.emplace_back(column.name, value);
        }
    }
    return decoded;
}

SA94Event sa94::decode_event(Bytes record) {
    const int event = u8_at(record, 0);
    return {.code = event % 128, .started = event < 128, .tm = record_tm_of(ERROR_DB, record)};
}
