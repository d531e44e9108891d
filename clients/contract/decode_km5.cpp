#include "contract/decode_km5.h"

#include <algorithm>

#include <fmt/format.h>

#include "drivers/km5/km5_decode.h"

namespace contract {

namespace {

constexpr std::size_t AddressBytes = 4;
constexpr std::size_t CommandAt = 4;
constexpr std::size_t DataAt = 5;
constexpr std::size_t SumBytes = 2;
constexpr std::size_t ShortestAnswer = AddressBytes + 1 + SumBytes;
constexpr float AnyFirmware = 99.0F;  // of a meter that has not told: all values that some firmware sends

struct CommandRow {
    std::uint8_t command;
    const char* kind;
};

constexpr CommandRow Commands[] = {
    {CmdIdentity, "identity"},
    {CmdStatus, "status"},
    {CmdVersion, "version"},
    {CmdReadEeprom, "parameter"},
    {CmdCurrent, "current values"},
    {CmdArchiveBounds, "archive bounds"},
    {CmdIndexByDate, "archive index of a date"},
    {CmdErrorRecord, "event record"},
    {CmdArchiveRecord, "archive record"},
    {CmdIntegralsNewer, "integrators"},
    {CmdCurrentNewer, "current values, one block"},
};

const char* kind_of(std::uint8_t command) {
    const auto* const row = std::ranges::find(Commands, command, &CommandRow::command);
    return row == std::end(Commands) ? nullptr : row->kind;
}

std::string address_text(Bytes bytes) {
    return fmt::format("{:02X}{:02X}{:02X}{:02X}", u8_at(bytes, 3), u8_at(bytes, 2), u8_at(bytes, 1), u8_at(bytes, 0));
}

std::string archive_text(int type) {
    return type > ArchiveErrors ? std::to_string(type) : archive_type_name(type);
}

KM5_request request_of(Bytes bytes) {
    KM5_request request;
    std::copy_n(bytes.begin(), AddressBytes, request.netaddr.begin());
    request.cmd = u8_at(bytes, CommandAt);
    std::copy_n(bytes.begin() + DataAt, request.data.size(), request.data.begin());
    build_frame(request);
    return request;
}

/// The sums over everything in front of them.
struct Sums {
    std::uint8_t exclusive_or = 0;
    std::uint8_t sum = 0;

    void take(std::uint8_t byte) {
        exclusive_or ^= byte;
        sum = static_cast<std::uint8_t>(sum + byte);
    }
    bool stand_at(Bytes bytes, std::size_t at) const {
        return u8_at(bytes, at) == exclusive_or && u8_at(bytes, at + 1) == sum;
    }
};

Sums sums_of(Bytes body) {
    Sums sums;
    for (const std::uint8_t byte : body) sums.take(byte);
    return sums;
}

bool is_question(Bytes bytes) {
    if (bytes.size() < RequestBytes || kind_of(u8_at(bytes, CommandAt)) == nullptr) return false;
    const KM5_request request = request_of(bytes);
    return bytes[RequestBytes - 2] == request.CS1 && bytes[RequestBytes - 1] == request.CS2;
}

bool is_error_code(std::uint8_t code) {
    KM5_request request;
    request.recv_buf[CommandAt] = code;
    return isError(request);
}

}  // namespace

Frame Km5Decoder::frame_of(Bytes bytes, Direction direction, bool whole) {
    if (direction != Direction::Answer && is_question(bytes)) return question(bytes.first(RequestBytes));
    if (direction == Direction::Question) return whole ? question(bytes) : Frame{};
    const bool of_asked = has_asked && bytes.size() >= AddressBytes &&
                          std::equal(asked.netaddr.begin(), asked.netaddr.end(), bytes.begin());
    Sums sums;
    for (std::size_t n = 0; n + SumBytes <= std::min(bytes.size(), AnswerBytes); ++n) {
        const bool may_end = n + SumBytes >= ShortestAnswer && (of_asked || n + SumBytes == bytes.size());
        if (may_end && sums.stand_at(bytes, n)) return answer(bytes.first(n + SumBytes));
        sums.take(bytes[n]);
    }
    if (!whole) return {};
    if (direction == Direction::Unknown && !of_asked && bytes.size() == RequestBytes) return question(bytes);
    return answer(bytes);
}

Frame Km5Decoder::question(Bytes bytes) {
    Frame frame;
    frame.direction = Direction::Question;
    frame.bytes.assign(bytes.begin(), bytes.end());
    if (bytes.size() != RequestBytes) {
        frame.reason = fmt::format("a question has 16 bytes, not {}", bytes.size());
        return frame;
    }
    const KM5_request request = request_of(bytes);
    const char* const kind = kind_of(request.cmd);
    frame.kind = kind != nullptr ? kind : "unknown command";
    frame.add("address", address_text(bytes));
    if (kind == nullptr) frame.add("command", int{request.cmd});
    switch (request.cmd) {
        case CmdCurrent:
            frame.add("page", int{request.data[0]});
            break;
        case CmdReadEeprom:
            frame.add("number", int{request.data[0]});
            frame.add("length", int{request.data[1]});
            break;
        case CmdArchiveBounds:
            frame.add("archive", archive_text(request.data[0]));
            break;
        case CmdIndexByDate:
            frame.add("archive", archive_text(request.data[0]));
            // The month is no packed number but one that was raised by one.
            frame.add("date", fmt::format("20{:02X}-{:02}-{:02X} {:02X}:00", request.data[3],
                                          int{request.data[2]} % 16 + request.data[2] / 16 * 10, request.data[1],
                                          request.data[4]));
            break;
        case CmdErrorRecord:
        case CmdArchiveRecord:
            frame.add("archive", archive_text(request.data[0]));
            frame.add("index", static_cast<unsigned>(le_u32(request.data, 1)));
            break;
        default:
            break;
    }
    frame.add_check("CS1", bytes[RequestBytes - 2], request.CS1);
    frame.add_check("CS2", bytes[RequestBytes - 1], request.CS2);
    if (frame.is_right()) {
        asked = request;
        has_asked = true;
    }
    return frame;
}

Frame Km5Decoder::answer(Bytes bytes) {
    Frame frame;
    frame.direction = Direction::Answer;
    frame.bytes.assign(bytes.begin(), bytes.end());
    if (bytes.size() < ShortestAnswer || bytes.size() > AnswerBytes) {
        frame.reason = fmt::format("an answer has 7 to 72 bytes, not {}", bytes.size());
        return frame;
    }
    const Bytes body = bytes.first(bytes.size() - SumBytes);
    const Sums sums = sums_of(body);
    const std::uint8_t command = bytes[CommandAt];
    const char* const kind = kind_of(command);
    frame.kind = is_error_code(command) ? "error" : kind != nullptr ? kind : "unknown command";
    frame.add("address", address_text(bytes));
    if (is_error_code(command) || kind == nullptr) frame.add("code", int{command});
    frame.add_check("CS1", bytes[body.size()], sums.exclusive_or);
    frame.add_check("CS2", bytes[body.size() + 1], sums.sum);
    if (!frame.is_right()) return frame;
    if (has_asked && command != asked.cmd && !is_error_code(command)) {
        const char* const wanted = kind_of(asked.cmd);
        frame.reason = wanted != nullptr ? fmt::format("the question was for {}", wanted)
                                         : fmt::format("the question had command {}", asked.cmd);
    }
    add_values(frame, body);
    return frame;
}

void Km5Decoder::add_values(Frame& frame, Bytes body) {
    const bool knows_data = has_asked && u8_at(body, CommandAt) == asked.cmd;
    const int data = knows_data ? asked.data[0] : -1;
    switch (u8_at(body, CommandAt)) {
        case CmdIdentity:
            meter.model = u8_at(body, 9) + 1;
            frame.add("network address", address_text(part_of(body, DataAt, 4)));
            frame.add("model", model_name(meter));
            break;
        case CmdStatus: {
            const KM5_status status = km5::decode_status(body);
            frame.add("EG", std::to_string(status.Gstatus));
            frame.add("ER", status.Cstatus);
            frame.add("SC", status.SC);
            frame.add("TSMode", status.TSMode);
            break;
        }
        case CmdVersion: {
            const std::string letters = letters_text(part_of(body, 11, 4));
            meter.version = parse_version(part_of(body, CommandAt, 5));
            meter.isATT = letters.starts_with("ATT");
            if (letters == "KM5I") {
                meter.km56i_mode = true;
                meter.model = 7;
            }
            frame.add("Firmware", meter.version);
            frame.add("type letters", letters);
            break;
        }
        case CmdReadEeprom:
            if (knows_data) frame.add("number", data);
            frame.add("value", le_float(body, DataAt));
            break;
        case CmdArchiveBounds: {
            const KM5_bounds bounds = km5::decode_bounds(body);
            if (knows_data) frame.add("archive", archive_text(data));
            frame.add("first record exists", bounds.has_first_record ? "yes" : "no");
            frame.add("first", bounds.first);
            frame.add("last", bounds.last);
            frame.add("count", bounds.count);
            break;
        }
        case CmdIndexByDate:
            frame.add("index", km5::decode_index(body));
            break;
        case CmdErrorRecord: {
            const KM5_event event = km5::decode_event(body);
            frame.add("time", event.date);
            frame.add("code", event.code);
            frame.add("state", event.state ? "begins" : "ends");
            break;
        }
        case CmdArchiveRecord:
            add_record(frame, body);
            break;
        case CmdCurrent:
        case CmdCurrentNewer:
        case CmdIntegralsNewer: {
            if (!knows_data) {
                frame.reason = "which values these are lies in the question";
                break;
            }
            if (asked.cmd == CmdCurrent) frame.add("page", data);
            if (asked.cmd == CmdCurrent && data == 0) {
                frame.add("MDateTime", km5::decode_date(body));
                break;
            }
            KM5_meter any = meter;
            if (any.version <= 0.0F) any.version = AnyFirmware;
            for (const auto& [name, value] : km5::decode_page(asked.cmd, data, body, any, false)) {
                frame.add(opc_name(opc_moment_names, name), value);
            }
            break;
        }
        default:
            break;
    }
}

void Km5Decoder::add_record(Frame& frame, Bytes body) const {
    const KM5_record record = km5::decode_record(body);
    const bool knows_type = has_asked && asked.cmd == CmdArchiveRecord;
    if (knows_type) frame.add("archive", archive_text(asked.data[0]));
    if (knows_type) frame.add("index", static_cast<unsigned>(le_u32(asked.data, 1)));
    frame.add("time", record.date);
    const bool hourly = knows_type && asked.data[0] == ArchiveHourly;
    const bool daily = knows_type && asked.data[0] == ArchiveDaily;
    // A meter that has not told its model: the table of the most positions.
    constexpr int ModelOfMost = 5;
    const KM5_model_table* table = find_model_table(meter.model);
    if (table == nullptr) table = find_model_table(ModelOfMost);
    for (std::size_t i = 0; table != nullptr && i < record.values.size(); ++i) {
        if (!table->params[i].enabled) continue;
        const std::string name = table->params[i].name;
        frame.add(hourly  ? opc_name(opc_hourly_names, name)
                  : daily ? opc_name(opc_daily_names, name)
                          : name,
                  record.values[i]);
    }
}

}  // namespace contract
