#include "contract/decode_vist.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#include "contract/plain_text.h"
#include "drivers/vist/vist_packet.h"

namespace contract {

namespace {

constexpr std::size_t BufferBytes = 300;  // of the driver's packets: a short one is read into zeros
constexpr std::size_t LongestText = 300;
constexpr std::size_t HeadBytes = 4;  // of a packet, in front of what its size counts

struct QuestionRow {
    std::string_view begin;
    const char* kind;
    const char* number;  ///< what stands behind it, or null
};

constexpr QuestionRow Questions[] = {
    {"CALL ", "open a dialog", "network number"},
    {"VDN ", "choose a virtual device", "device"},
    {"END", "close the dialog", nullptr},
    {".", "end a packet answer", nullptr},
    {"VER", "software version", nullptr},
    {"VDC", "number of virtual devices", nullptr},
    {"/ARC/DLD RC", "number of archive records", nullptr},
    {"/ARC/DLD SET ", "choose an archive record", "position"},
    {"/ARC/DLD OLD", "choose the oldest archive record", nullptr},
    {"/ARC/DLD H", "archive header", nullptr},
    {"/ARC/DLD +", "next archive record", nullptr},
    {"/ARC/DLD -", "archive record before", nullptr},
    {"/ARC/DLD =", "archive record", nullptr},
    {"/SYS SPC 0", "device description", nullptr},
    {"/SYS SPC 1", "virtual device description", nullptr},
    {"/SYS CFG 1", "virtual device configuration", nullptr},
    {"/MON G", "integrators", nullptr},
    {"/MON TG", "integrators with the clock", nullptr},
    {"/MON C", "current values", nullptr},
};

enum PacketType : std::uint8_t {
    CurrentPacket = 11,
    IntegratorPacket = 10,
    IntegratorClockPacket = 12,
    HeaderPacket = 20,
    RecordPacket = 21,
    DevicePacket = 30,
    VirtualDevicePacket = 31,
    ConfigPacket = 33,
};

struct PacketRow {
    std::uint8_t type;
    const char* kind;
};

constexpr PacketRow Packets[] = {
    {CurrentPacket, "current values"},
    {IntegratorPacket, "integrators"},
    {IntegratorClockPacket, "integrators with the clock"},
    {HeaderPacket, "archive header"},
    {RecordPacket, "archive record"},
    {DevicePacket, "device description"},
    {VirtualDevicePacket, "virtual device description"},
    {ConfigPacket, "virtual device configuration"},
};

// Slots of a packet with integrators, and of one with current values; the mask has a bit for each.
constexpr const char* IntegratorNames[] = {"IT in hours", "IQ1", "IQ2", "IQ3", "IM1", "IM2", "IM3", "IE"};
constexpr const char* CurrentNames[] = {"Q1", "Q2", "Q3", "M1", "M2", "M3", "T1", "T2", "T3", "", "P1", "P2", "P3"};

bool is_packet(Bytes bytes) {
    return bytes.size() > PacketTypeAt && bytes[0] == 'H' && bytes[1] == 'P' && bytes[2] == 'T';
}

std::size_t packet_length(Bytes bytes) {
    return HeadBytes + u8_at(bytes, PacketSizeAt);
}

/// The length of a text that some bytes begin with, its end included; 0 for none.
std::size_t text_length(Bytes bytes, std::string_view end) {
    const Bytes part = part_of(bytes, 0, LongestText);
    const auto found = std::search(part.begin(), part.end(), end.begin(), end.end(),
                                   [](std::uint8_t byte, char letter) { return static_cast<char>(byte) == letter; });
    return found == part.end() ? 0 : static_cast<std::size_t>(found - part.begin()) + end.size();
}

bool begins_with(Bytes bytes, std::string_view text) {
    return bytes.size() >= text.size() && std::memcmp(bytes.data(), text.data(), text.size()) == 0;
}

const QuestionRow* find_question(Bytes bytes) {
    for (const QuestionRow& row : Questions) {
        if (!begins_with(bytes, row.begin)) continue;
        const std::uint8_t next = u8_at(bytes, row.begin.size());
        if (row.number != nullptr ? (next >= '0' && next <= '9') || next == '-' : next == '\r') return &row;
    }
    return nullptr;
}

/// Windows letters of the meter's texts, and nothing that could act on a screen.
std::string letters_of(Bytes bytes) {
    return utf8_of_cp1251({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace

Frame VistDecoder::frame_of(Bytes bytes, Direction direction, bool whole) {
    if (direction != Direction::Answer && find_question(bytes) != nullptr) {
        if (const std::size_t length = text_length(bytes, "\r"); length != 0) return question(bytes.first(length));
    }
    if (direction == Direction::Question) {
        Frame frame;
        if (whole) frame.reason = "no question of this family: " + letters_text(part_of(bytes, 0, LongestText));
        return frame;
    }
    if (begins_with(bytes, "HL0[")) {
        if (const std::size_t length = text_length(bytes, "}>"); length != 0) return text_answer(bytes.first(length));
    }
    if (is_packet(bytes)) {
        const std::size_t length = packet_length(bytes);
        if (length > PacketTypeAt && length <= bytes.size() &&
            is_good_packet(bytes.first(length), bytes[PacketTypeAt])) {
            return packet_answer(bytes.first(length));
        }
    }
    if (!whole) return {};
    if (is_packet(bytes)) return packet_answer(bytes);
    Frame frame;
    frame.reason = begins_with(bytes, "HL0[") ? "a text answer without its end" : "neither a text nor a packet";
    return frame;
}

Frame VistDecoder::question(Bytes bytes) {
    Frame frame;
    frame.direction = Direction::Question;
    frame.bytes.assign(bytes.begin(), bytes.end());
    const QuestionRow& row = *find_question(bytes);
    frame.kind = row.kind;
    const Bytes rest = bytes.subspan(row.begin.size(), bytes.size() - row.begin.size() - 1);
    if (row.number != nullptr) frame.add(row.number, letters_text(rest));
    return frame;
}

Frame VistDecoder::text_answer(Bytes bytes) {
    Frame frame;
    frame.direction = Direction::Answer;
    frame.bytes.assign(bytes.begin(), bytes.end());
    frame.kind = "text";
    const std::string text = letters_of(bytes);
    int number = 0;
    int device = 0;
    int at = 0;
    if (std::sscanf(text.c_str(), "HL0[%9d:%9d]{%n", &number, &device, &at) != 2 || at == 0) {
        frame.reason = "no network number and device in it";
        return frame;
    }
    const auto begin = static_cast<std::size_t>(at);
    const std::string body = text.substr(begin, text.size() - begin - std::min<std::size_t>(2, text.size() - begin));
    frame.add("network number", number);
    frame.add("device", device);
    if (const std::size_t equals = body.find('='); equals != std::string::npos && equals != 0) {
        frame.add(body.substr(0, equals), body.substr(equals + 1));
        if (body.starts_with("VER=")) has_clock = std::atoi(body.c_str() + equals + 1) > vist::LowestServedVersion;
    } else {
        frame.kind = body.starts_with("E:") ? "error" : "text";
        frame.add("says", body);
    }
    return frame;
}

Frame VistDecoder::packet_answer(Bytes bytes) {
    Frame frame;
    frame.direction = Direction::Answer;
    frame.bytes.assign(bytes.begin(), bytes.end());
    const std::uint8_t type = bytes[PacketTypeAt];
    const auto* const row = std::ranges::find(Packets, type, &PacketRow::type);
    const bool is_known = row != std::end(Packets);
    frame.kind = is_known ? row->kind : "unknown packet";
    frame.add("type", int{type});
    frame.add_check("sum", bytes[PacketCrcAt], checksum(bytes.subspan(PacketTypeAt)));
    if (packet_length(bytes) != bytes.size()) {
        frame.reason = fmt::format("{} bytes, and it says {}", bytes.size(), packet_length(bytes));
    }
    if (!frame.is_right() || !is_known) return frame;
    std::array<std::uint8_t, BufferBytes> buffer{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), buffer.size()), buffer.begin());
    add_packet(frame, buffer);
    return frame;
}

void VistDecoder::add_values(Frame& frame, std::span<std::uint8_t> packet, bool moment) const {
    const int version = vist::LowestServedVersion + (has_clock ? 1 : 0);
    const vist::CurrentValues current = vist::decode_values(packet, moment, version, {});
    if (current.clock) frame.add("MDateTime", *current.clock);
    const std::span<const char* const> names =
        moment ? std::span<const char* const>(CurrentNames) : std::span<const char* const>(IntegratorNames);
    for (std::size_t slot = 0; slot < names.size(); ++slot) {
        if (*names[slot] != '\0' && (current.published >> slot & 1) != 0) frame.add(names[slot], current.values[slot]);
    }
    if (!moment) return;
    frame.add_bits("EG", current.EG);
    frame.add_bits("ER", current.ER);
    frame.add("SC", current.SC ? 1 : 0);
}

void VistDecoder::add_packet(Frame& frame, std::span<std::uint8_t> packet) {
    const auto add_all = [&frame](const std::vector<vist::ArchiveValue>& values) {
        for (const vist::ArchiveValue& value : values) {
            frame.add(value.name, value.value);
            if (!value.good) frame.add(value.name + " quality", 0);
        }
    };
    switch (packet[PacketTypeAt]) {
        case CurrentPacket:
            return add_values(frame, packet, true);
        case IntegratorPacket:
            has_clock = false;
            return add_values(frame, packet, false);
        case IntegratorClockPacket:
            has_clock = true;
            return add_values(frame, packet, false);
        case DevicePacket: {
            const vist::DeviceSpecials specials = vist::decode_specials(packet);
            frame.add("SerialNumber", specials.dev_serial);
            frame.add("Firmware", specials.firmware);
            frame.add("MeterModel", specials.model);
            return;
        }
        case VirtualDevicePacket: {
            const vist::VirtualDevice device = vist::decode_virtual_device(packet.subspan(PacketBodyAt), big_endian);
            frame.add("_HMsystem", device.sub_name);
            frame.add_bits("device type", device.type);
            frame.add("_Formula", device.formula);
            int channel = 0;
            for (const vist::ChannelLimits& limits : device.channel_limits) {
                ++channel;
                if (!limits.range) continue;
                frame.add(fmt::format("M{}min", channel), (*limits.range)[0]);
                frame.add(fmt::format("M{}max", channel), (*limits.range)[1]);
            }
            return;
        }
        case ConfigPacket: {
            int channel = 0;
            for (const int diameter : vist::decode_config(packet.subspan(PacketBodyAt))) {
                frame.add(fmt::format("DN{}", ++channel), diameter);
            }
            return;
        }
        case HeaderPacket: {
            const vist::InnerSum sum = vist::header_sum(packet);
            frame.add_check("header", sum.is, sum.should_be);
            header = vist::decode_header(packet);
            frame.add_bits("fields", header->arch_mask);
            if (!header->good) return;
            frame.add("time", header->time);
            frame.add("ArchiveRecNum", header->ArchiveRecNum);
            frame.add("ArchiveRecMax", header->ArchiveRecMax);
            frame.add("ArchiveRecNew", header->ArchiveRecNew);
            return add_all(header->totals);
        }
        default: {
            const vist::InnerSum sum = vist::record_sum(packet);
            frame.add_check("record", sum.is, sum.should_be);
            frame.add("time", packet_time(packet, PacketBodyAt));
            if (!header) {
                frame.reason = "which fields a record has lies in the header before it";
                return;
            }
            const vist::ArchiveRecord record = vist::decode_record(packet, *header);
            add_all(record.values);
            add_all(record.measured);
            if (record.A28) frame.add("A28", *record.A28);
        }
    }
}

}  // namespace contract
