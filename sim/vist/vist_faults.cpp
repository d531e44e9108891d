#include "vist_faults.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "vist_packets.h"

namespace sim {

namespace {

constexpr std::size_t SumAt = 4;
constexpr std::size_t TypeAt = 5;
constexpr std::uint8_t Filling = 0x55;

using Kind = VistFault::Kind;

ByteVector text_frame(const VistReply& reply) {
    const std::string frame = vist_text_frame(reply.network, reply.device, reply.body);
    return {frame.begin(), frame.end()};
}

VistReply with_body(const VistReply& right, const std::string& body) {
    return {.network = right.network, .device = right.device, .body = body};
}

ByteVector filled_up(const VistReply& right, std::size_t length) {
    ByteVector frame = right.bytes();
    if (frame.size() >= length) return frame;
    if (!right.packet) return with_body(right, right.body + std::string(length - frame.size(), Filling)).bytes();
    frame.resize(length, Filling);
    vist_renew_sum(frame);
    return frame;
}

ByteVector spoilt_packet(const ByteVector& right, const VistFault& fault) {
    ByteVector packet = right;
    switch (fault.kind) {
        case Kind::WrongSum:
            ++packet[4];
            break;
        case Kind::WrongType:
            packet[TypeAt] = static_cast<std::uint8_t>(fault.number);
            vist_renew_sum(packet);
            break;
        case Kind::WrongMagic:
            packet[2] = 'X';
            break;
        case Kind::WrongInner:
            vist_spoil_inner_sum(packet);
            break;
        default:
            break;
    }
    return packet;
}

/// A sum of eight bits is right by chance in one of 256 packets that were cut; such a one loses a byte more.
ByteVector cut_off(ByteVector bytes, std::size_t length, bool is_packet) {
    if (length >= bytes.size()) return bytes;
    bytes.resize(length);
    while (is_packet && bytes.size() > TypeAt && bytes[SumAt] == vist_sum(std::span(bytes).subspan(TypeAt))) {
        bytes.pop_back();
    }
    return bytes;
}

ByteVector spoilt_bytes(const VistReply& right, const VistFault& fault) {
    ByteVector bytes = right.bytes();
    switch (fault.kind) {
        case Kind::Silence:
            return {};
        case Kind::Noise:
            bytes.insert(bytes.begin(), fault.bytes.begin(), fault.bytes.end());
            return bytes;
        case Kind::Trailing:
            bytes.insert(bytes.end(), fault.bytes.begin(), fault.bytes.end());
            return bytes;
        case Kind::Short:
            return cut_off(bytes, fault.number, right.packet.has_value());
        case Kind::OverLong:
            return filled_up(right, fault.number);
        case Kind::WrongDevice:
            return VistReply{right.network, static_cast<unsigned>(fault.number), right.body}.bytes();
        case Kind::Text:
            return with_body(right, fault.text).bytes();
        case Kind::Raw:
            return fault.bytes;
        case Kind::WrongSum:
        case Kind::WrongType:
        case Kind::WrongMagic:
        case Kind::WrongInner:
            return spoilt_packet(bytes, fault);
        case Kind::None:
        case Kind::Halved:
            break;
    }
    return bytes;
}

}  // namespace

ByteVector VistReply::bytes() const {
    return packet ? *packet : text_frame(*this);
}

VistFault VistFault::on(std::string command, std::optional<unsigned> device) const {
    VistFault narrowed = *this;
    narrowed.only_command = std::move(command);
    narrowed.only_device = device;
    return narrowed;
}

bool VistFault::fits(std::string_view line, const VistReply& right) const {
    if (!vist_begins(line, only_command) || only_device.value_or(right.device) != right.device) return false;
    switch (kind) {
        case Kind::WrongSum:
        case Kind::WrongType:
        case Kind::WrongMagic:
            return right.packet.has_value();
        case Kind::WrongInner: {
            ByteVector tried = right.packet.value_or(ByteVector{});
            return vist_spoil_inner_sum(tried);
        }
        case Kind::WrongDevice:
            return !right.packet;
        default:
            return true;
    }
}

bool vist_begins(std::string_view line, std::string_view command) {
    if (!line.starts_with(command)) return false;
    return command.empty() || line.size() == command.size() || line[command.size()] == ' ';
}

VistFault vist_good() {
    return {.kind = Kind::None};
}
VistFault vist_silence() {
    return {.kind = Kind::Silence};
}
VistFault vist_noise(ByteVector bytes) {
    return {.kind = Kind::Noise, .bytes = std::move(bytes)};
}
VistFault vist_wrong_sum() {
    return {.kind = Kind::WrongSum};
}
VistFault vist_wrong_type(std::uint8_t type) {
    return {.kind = Kind::WrongType, .number = type};
}
VistFault vist_wrong_magic() {
    return {.kind = Kind::WrongMagic};
}
VistFault vist_wrong_inner() {
    return {.kind = Kind::WrongInner};
}
VistFault vist_short(std::size_t length) {
    return {.kind = Kind::Short, .number = length};
}
VistFault vist_trailing(ByteVector bytes) {
    return {.kind = Kind::Trailing, .bytes = std::move(bytes)};
}
VistFault vist_over_long(std::size_t length) {
    return {.kind = Kind::OverLong, .number = length};
}
VistFault vist_halved(double gap) {
    return {.kind = Kind::Halved, .gap = gap};
}
VistFault vist_wrong_device(unsigned device) {
    return {.kind = Kind::WrongDevice, .number = device};
}
VistFault vist_error(std::string word) {
    return {.kind = Kind::Text, .text = std::move(word)};
}
VistFault vist_text_for_packet(std::string body) {
    return {.kind = Kind::Text, .text = std::move(body)};
}
VistFault vist_raw(ByteVector bytes) {
    return {.kind = Kind::Raw, .bytes = std::move(bytes)};
}

Answer vist_spoil(const VistReply& right, const VistFault& fault, double delay) {
    const ByteVector bytes = spoilt_bytes(right, fault);
    if (bytes.empty()) return {};
    if (fault.kind != Kind::Halved) return {{.delay_seconds = delay, .bytes = bytes}};
    const auto middle = bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2);
    return {{.delay_seconds = delay, .bytes = ByteVector(bytes.begin(), middle)},
            {.delay_seconds = fault.gap, .bytes = ByteVector(middle, bytes.end())}};
}

}  // namespace sim
