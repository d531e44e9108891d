#include "contract/decode_modbus.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "drivers/vist/vist_packet.h"
#include "drivers/vist_modbus/modbus_frame.h"

namespace contract {

namespace {

constexpr std::size_t RegisterQuestion = 8;
constexpr std::size_t FileQuestion = 12;
constexpr std::size_t CrcBytes = 2;
constexpr std::size_t ExceptionBytes = 5;
constexpr std::size_t DataAt = 3;
constexpr std::uint8_t ExceptionBit = 0x80;

bool is_function(std::uint8_t function) {
    return function == ReadHolding || function == ReadInput || function == ReadFileRecord;
}

unsigned crc_in(Bytes frame) {
    return le_u16(frame, frame.size() - CrcBytes);
}

unsigned crc_of(Bytes frame) {
    return modbus_crc(frame.first(frame.size() - CrcBytes));
}

bool has_right_crc(Bytes frame) {
    return crc_in(frame) == crc_of(frame);
}

std::size_t question_length(Bytes bytes) {
    const std::uint8_t function = u8_at(bytes, 1);
    if (!is_function(function)) return 0;
    if (function != ReadFileRecord) return RegisterQuestion;
    return u8_at(bytes, 2) == 7 && u8_at(bytes, 3) == 6 ? FileQuestion : 0;
}

std::size_t answer_length(Bytes bytes) {
    const std::uint8_t function = u8_at(bytes, 1);
    if (!is_function(function & ~ExceptionBit) || bytes.size() < ExceptionBytes) return 0;
    return (function & ExceptionBit) != 0 ? ExceptionBytes : DataAt + bytes[2] + CrcBytes;
}

bool is_right(Bytes bytes, std::size_t length) {
    return length != 0 && bytes.size() >= length && has_right_crc(bytes.first(length));
}

template <typename Use>
void for_each_row(Use use) {
    for (const ModbusRequest& row : reqSpecs) use(row, std::uint8_t{ReadHolding});
    for (const ModbusRequest& row : reqValues) use(row, std::uint8_t{ReadInput});
}

const char* function_text(std::uint8_t function) {
    return function == ReadHolding ? "holding registers" : function == ReadInput ? "input registers" : "file record";
}

const char* exception_text(int code) {
    constexpr const char* Texts[] = {
        "",           "illegal function", "illegal data address", "illegal data value", "device failure", "acknowledge",
        "device busy"};
    return code > 0 && code < static_cast<int>(std::size(Texts)) ? Texts[code] : "unknown";
}

}  // namespace

Frame ModbusDecoder::frame_of(Bytes bytes, Direction direction, bool whole) {
    const std::size_t asking = direction == Direction::Answer ? 0 : question_length(bytes);
    if (is_right(bytes, asking)) return question(bytes.first(asking));
    const std::size_t answering = direction == Direction::Question ? 0 : answer_length(bytes);
    if (is_right(bytes, answering)) return answer(bytes.first(answering));
    if (!whole) return {};
    if (bytes.size() == asking) return question(bytes);
    if (bytes.size() == answering) return answer(bytes);
    Frame frame;
    if (!is_function(u8_at(bytes, 1) & ~ExceptionBit)) {
        frame.reason = "no function that this meter is asked with (3, 4, 20)";
    } else {
        frame.reason = fmt::format("{} bytes where {} were expected", bytes.size(),
                                   direction == Direction::Question || answering == 0 ? asking : answering);
    }
    return frame;
}

void ModbusDecoder::add_asked(Frame& frame) const {
    if (asked->function == ReadFileRecord) {
        frame.add("file", asked->first);
        frame.add("record", asked->record);
    } else {
        frame.add("registers", fmt::format("{} to {}", asked->first, asked->first + asked->count - 1));
    }
    if (asked->row != nullptr) frame.add("block", asked->row->name);
    if (asked->knows_system) frame.add("system", asked->system + 1);
}

Frame ModbusDecoder::question(Bytes bytes) {
    Frame frame;
    frame.direction = Direction::Question;
    frame.bytes.assign(bytes.begin(), bytes.end());
    Asked now;
    now.slave = bytes[0];
    now.function = bytes[1];
    frame.kind = function_text(now.function);
    frame.add("address", now.slave);
    if (now.function == ReadFileRecord) {
        now.first = read_u16(bytes, 4);
        now.record = read_u16(bytes, 6);
        now.count = read_u16(bytes, 8);
        now.row = now.record == 0 ? &reqArchiveHeaderFile : &reqArchiveRecordFile;
        now.system = std::min(now.first, vist_modbus::HeatSystems - 1);
        now.knows_system = now.first < vist_modbus::HeatSystems;
    } else {
        now.first = read_u16(bytes, 2);
        now.count = read_u16(bytes, 4);
        for_each_row([&now](const ModbusRequest& row, std::uint8_t function) {
            for (std::size_t system = row.address.size(); system-- > 0;) {
                if (function != now.function || row.address[system] != now.first || row.count != now.count) continue;
                now.row = &row;
                now.system = static_cast<int>(system);
                now.knows_system = row.address[0] != row.address[1];
            }
        });
    }
    frame.add_check("CRC", crc_in(bytes), crc_of(bytes), 2);
    asked = now;
    add_asked(frame);
    if (now.function == ReadFileRecord) frame.add("length", now.count);
    if (!frame.is_right()) asked.reset();
    return frame;
}

Frame ModbusDecoder::answer(Bytes bytes) {
    Frame frame;
    frame.direction = Direction::Answer;
    frame.bytes.assign(bytes.begin(), bytes.end());
    const std::uint8_t function = bytes[1] & ~ExceptionBit;
    frame.kind = (bytes[1] & ExceptionBit) != 0 ? "exception" : function_text(function);
    frame.add("address", int{bytes[0]});
    frame.add_check("CRC", crc_in(bytes), crc_of(bytes), 2);
    if (!frame.is_right()) return frame;
    if ((bytes[1] & ExceptionBit) != 0) {
        frame.add("function", int{function});
        frame.add("code", int{bytes[2]});
        frame.add("meaning", exception_text(bytes[2]));
        return frame;
    }
    const Bytes data = bytes.subspan(DataAt, bytes[2]);
    if (!asked || asked->slave != bytes[0] || asked->function != function) {
        frame.reason = "which block this is lies in the question";
        frame.add("data", hex_text(data));
        return frame;
    }
    add_asked(frame);
    add_block(frame, data);
    return frame;
}

/// The log has the name of a block and the data of its answer.
Frame ModbusDecoder::told(const Piece& piece) {
    Frame frame;
    frame.direction = piece.direction;
    frame.kind = "block";
    if (piece.direction == Direction::Question) {
        asked.reset();
        const auto take = [&](const ModbusRequest& row, std::uint8_t function) {
            if (piece.title != row.name) return;
            asked = Asked{.slave = -1, .function = function, .first = row.address[0], .count = row.count, .row = &row};
        };
        for_each_row(take);
        take(reqArchiveHeaderFile, ReadFileRecord);
        take(reqArchiveRecordFile, ReadFileRecord);
        if (asked) frame.kind = function_text(asked->function);
        frame.add("block", piece.title);
        return frame;
    }
    if (asked) frame.kind = function_text(asked->function);
    const Bytes data = part_of(piece.bytes, 2, static_cast<int>(piece.bytes.size()));
    if (!asked) {
        frame.reason = "which block this is lies in the question";
        frame.add("data", hex_text(data));
        return frame;
    }
    frame.add("block", asked->row->name);
    add_block(frame, data);
    return frame;
}

void ModbusDecoder::add_block(Frame& frame, Bytes data) {
    using namespace vist_modbus;
    const auto add_all = [&frame](const Values& values) {
        for (const auto& [name, value] : values) frame.add(name, value);
    };
    switch (asked->row == nullptr ? ModbusProcess::None : asked->row->process) {
        case ModbusProcess::None:
            frame.add("data", hex_text(data));
            break;
        case ModbusProcess::MainConfig: {
            const MainConfig config = decode_main_config(data);
            frame.add("Firmware", config.PO_ver);
            frame.add("MeterModel", config.model);
            frame.add("SerialNumber", config.Serial_num);
            frame.add("systems", config.Systems_count);
            break;
        }
        case ModbusProcess::TcSpecs: {
            const SystemSetup described = decode_tc_specs(data);
            frame.add("_HMsystem", described.sub_name);
            frame.add("_Formula", described.formula);
            add_all(described.limits);
            frame.add_bits("EG", described.errors);
            frame.add_bits("ER", described.status);
            frame.add("SC", described.is_counting ? 1 : 0);
            break;
        }
        case ModbusProcess::ArchiveSetup:
            setup = decode_archive_specs(data, asked->system);
            frame.add_bits("fields", setup.spec_mask);
            break;
        case ModbusProcess::DateTime:
            frame.add("MDateTime", packet_time(data, 0));
            break;
        case ModbusProcess::Array16: {
            const Words words = decode_words(data);
            if (asked->row->kind == '0') decimal_points = words;
            const Values values = decode_array16(data, asked->row->kind);
            add_all(values);
            if (values.empty()) frame.add("words", fmt::format("{}", fmt::join(words, " ")));
            break;
        }
        case ModbusProcess::Array32:
            add_all(decode_array32(data, asked->row->kind, decimal_points, setup.hasM));
            break;
        case ModbusProcess::ArchiveHeader:
            header = decode_header(data);
            frame.add_bits("fields", header->arch_mask);
            frame.add("records", int{header->recs_count});
            frame.add("next", int{header->next_rec_index});
            frame.add("room", int{header->max_records});
            frame.add("time", header->header_tm);
            for (std::size_t i = 0; i < header->V.size(); ++i) frame.add(fmt::format("V{}", i + 1), header->V[i]);
            for (std::size_t i = 0; i < header->M.size(); ++i) frame.add(fmt::format("M{}", i + 1), header->M[i]);
            frame.add("hours of work", header->C / 100.0);
            frame.add("E", header->E);
            break;
        case ModbusProcess::ArchiveRecord: {
            if (!header) {
                frame.reason = "which fields a record has lies in the header before it";
                frame.add("data", hex_text(data));
                break;
            }
            const ArchiveRecord record = decode_record(data, *header);
            frame.add_check("record", record.crc, record.sum);
            for (const ArchiveValue& value : record.values) {
                frame.add(value.file, value.value);
                if (value.quality != 192) frame.add(std::string(value.file) + " quality", value.quality);
            }
            break;
        }
    }
}

}  // namespace contract
