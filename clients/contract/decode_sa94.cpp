#include "contract/decode_sa94.h"

#include <algorithm>

#include <fmt/format.h>

#include "drivers/sa94/sa94_values.h"

namespace contract {

namespace {

constexpr std::uint8_t DisconnectByte = 0x01;
constexpr std::uint8_t ExtendedByte = 0xB7;
constexpr int HighestSegment = 7;
constexpr int FirstArchiveSegment = 2;

int archive_of(int segment) {
    return segment >= low_segment(ERROR_DB) ? ERROR_DB : segment >= low_segment(DAILY_DB) ? DAILY_DB : HOURLY_DB;
}

}  // namespace

std::optional<Sa94Decoder::Asked> Sa94Decoder::parse(Bytes bytes) {
    Asked now{.subject = Subject::Connect, .bytes = {bytes.begin(), bytes.end()}};
    const std::uint8_t first = u8_at(bytes, 0);
    if (bytes.size() == 1 && first == DisconnectByte) {
        now.subject = Subject::Disconnect;
    } else if (bytes.size() == 1 && first >= 0x80 && first < 0xA0) {
        now.subject = Subject::Parameter;
        now.code = first & 0x7F;
    } else if (bytes.size() == 2 && first >= 0xA0 && first <= 0xA0 + HighestSegment && bytes[1] < 0x80) {
        now.subject = Subject::Block;
        now.segment = first & HighestSegment;
        now.block = bytes[1];
    } else if (bytes.size() == 3 && first == ExtendedByte && (bytes[1] & 0xC0) == 0x40 && bytes[2] < 0x40) {
        now.subject = Subject::Block;
        now.segment = bytes[1] >> 3 & HighestSegment;
        now.block = (bytes[1] & 7) << 6 | bytes[2];
    } else if (bytes.size() != 3 || (first & 0xC0) != 0xC0 || bytes[1] >= 0x80 || bytes[2] >= 0x80) {
        return {};
    }
    return now;
}

Frame Sa94Decoder::frame_of(Bytes bytes, Direction direction, bool whole) {
    const bool waits = asked && !is_answered;
    auto now = direction == Direction::Answer ? std::nullopt : parse(bytes);
    // Of bytes that nobody has told the direction of: an answer follows a question, unless that is said again.
    if (now && direction == Direction::Unknown && waits && now->bytes != asked->bytes) now.reset();
    if (now) return question(bytes, *now);
    if (direction == Direction::Question || (direction == Direction::Unknown && !waits)) {
        Frame frame;
        if (!whole) return frame;
        frame.reason = "no question of this family";
        return frame;
    }
    return answer(bytes);
}

Frame Sa94Decoder::silence() {
    Frame frame = Decoder::silence();
    if (!asked || asked->subject != Subject::Disconnect) return frame;
    frame.reason = "as it should be";
    return frame;
}

Frame Sa94Decoder::question(Bytes bytes, Asked now) {
    Frame frame;
    frame.direction = Direction::Question;
    frame.bytes.assign(bytes.begin(), bytes.end());
    switch (now.subject) {
        case Subject::Connect:
            frame.kind = "connect";
            frame.add("address", (bytes[0] & 0x3F) << 14 | (bytes[1] & 0x7F) << 7 | (bytes[2] & 0x7F));
            break;
        case Subject::Disconnect:
            frame.kind = "disconnect";
            break;
        case Subject::Parameter:
            frame.kind = "current parameter";
            frame.add("code", now.code);
            break;
        case Subject::Block:
            frame.kind = "block of memory";
            frame.add("segment", now.segment);
            frame.add("block", now.block);
            break;
    }
    is_answered = now.subject == Subject::Disconnect;
    asked = std::move(now);
    return frame;
}

Frame Sa94Decoder::answer(Bytes bytes) {
    Frame frame;
    frame.direction = Direction::Answer;
    frame.bytes.assign(bytes.begin(), bytes.end());
    is_answered = true;
    if (!asked || asked->subject == Subject::Disconnect) {
        frame.reason = asked ? "nothing answers a disconnect" : "what an answer means lies in the question";
        return frame;
    }
    switch (asked->subject) {
        case Subject::Connect: {
            status = bytes[0];
            // Which bit tells of a third temperature, the firmware decides.
            const SA94Status decoded =
                sa94::decode_status(bytes[0], version != nullptr ? version->id : FirstIdByStatus);
            frame.kind = "status";
            frame.add("_Status", status);
            frame.add("SC", decoded.sc_flag);
            frame.add("_SubsystemType", decoded.subsystem_type);
            if (version != nullptr) frame.add("_SupportT3", decoded.support_t3 ? 1 : 0);
            break;
        }
        case Subject::Parameter:
            frame.kind = "current parameter";
            frame.add("code", asked->code);
            add_parameter(frame, bytes);
            break;
        default:
            frame.kind = "block of memory";
            frame.add("segment", asked->segment);
            frame.add("block", asked->block);
            if (bytes.size() != BlockBytes) frame.reason = fmt::format("{} bytes, and a block has 128", bytes.size());
            add_block(frame, bytes);
    }
    return frame;
}

void Sa94Decoder::add_parameter(Frame& frame, Bytes bytes) const {
    constexpr std::size_t ParameterBytes = 4;
    if (bytes.size() != ParameterBytes) frame.reason = fmt::format("{} bytes, and a value has 4", bytes.size());
    const auto row = std::ranges::find(CurrentParameters, version != nullptr ? version->id : -1, &SA94ParameterRow::id);
    if (row == CurrentParameters.end()) {
        frame.add("number", decodeSaFloat(bytes));
        if (frame.reason.empty()) frame.reason = "its name and unit lie in the firmware";
        return;
    }
    for (const SA94CurrentParameter& parameter : row->entries) {
        if (!parameter.active || parameter.code != asked->code) continue;
        std::tm clock{};
        std::string name = parameter.name;
        if (status >= 0) renameCurrentParameter(name, version->id, static_cast<std::uint8_t>(status & 0x7F));
        if (const auto value = sa94::decode_parameter(parameter, bytes, clock)) {
            frame.add(name.empty() ? parameter.name : name, *value);
        } else if (parameter.kind == ParameterDate) {
            frame.add("date", fmt::format("{:04}-{:02}-{:02}", clock.tm_year + 1900, clock.tm_mon + 1, clock.tm_mday));
        } else {
            frame.add("time", fmt::format("{:02}:{:02}:{:02}", clock.tm_hour, clock.tm_min, clock.tm_sec));
        }
        return;
    }
    frame.add("number", decodeSaFloat(bytes));
    frame.reason = "this firmware has no such parameter";
}

void Sa94Decoder::add_block(Frame& frame, Bytes bytes) {
    if (isNullBlock(bytes)) return frame.add("memory", "erased");
    if (asked->segment >= FirstArchiveSegment) return add_records(frame, bytes);
    if (asked->segment == 0 && asked->block == 2) {
        const std::string firmware = firmware_text(bytes);
        version = find_version(firmware);
        frame.add("Firmware", firmware);
        frame.add("MeterModel", version != nullptr ? version->model : "unknown");
    } else if (asked->segment == 0 && asked->block == 0) {
        for (const int number : {1, 2}) {
            const SA94Tube tube = sa94::decode_tube(bytes, number);
            frame.add(fmt::format("DN{}", number), tube.diameter());
            frame.add(fmt::format("M{}max", number), tube.greatest_flow());
            frame.add(fmt::format("M{}min", number), tube.least_flow());
        }
    }
}

void Sa94Decoder::add_records(Frame& frame, Bytes bytes) const {
    const int type = archive_of(asked->segment);
    frame.add("archive", archive_name(type));
    if (version == nullptr && type != ERROR_DB) {
        frame.reason = "how its records are laid out lies in the firmware";
        return;
    }
    const SA94Memory memory{version != nullptr && version->extended};
    const SA94Layout* const layout = version != nullptr ? find_layout(type, version->id) : nullptr;
    const auto known = static_cast<std::uint8_t>(status >= 0 ? status & 0x7F : 0);
    const bool has_t3 = version == nullptr || status < 0 || sa94::decode_status(known, version->id).support_t3;
    for (int i = 0; i < memory.recordsPerBlock(type); ++i) {
        const Bytes record = memory.record_at(type, bytes, i);
        const std::string of = memory.recordsPerBlock(type) > 1 ? fmt::format("{}: ", i + 1) : "";
        if (record.size() < memory.recordSize(type)) return;
        if (memory.isNullRecord(type, record)) {
            frame.add(of + "record", "erased");
        } else if (type == ERROR_DB) {
            const SA94Event event = sa94::decode_event(record);
            frame.add(of + "time", event.tm);
            frame.add(of + "code", event.code);
            frame.add(of + "state", event.started ? "begins" : "ends");
        } else if (layout != nullptr) {
            const SA94Record decoded = sa94::decode_record(record, *layout, has_t3);
            frame.add(of + "time", decoded.tm);
            for (const auto& [name, value] : decoded.values) {
                frame.add(of + renameArchiveItem(type, name, version->id, known), value);
            }
        }
    }
}

}  // namespace contract
