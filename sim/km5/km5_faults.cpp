#include "km5_faults.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

constexpr std::size_t HeadSize = 5;  // address and command
constexpr std::size_t SumsSize = 2;

using Kind = Km5Fault::Kind;

ByteVector with_payload(const ByteVector& right, const ByteVector& payload) {
    ByteVector frame = right;
    frame.resize(HeadSize);
    frame.insert(frame.end(), payload.begin(), payload.end());
    km5_append_sums(frame);
    return frame;
}

ByteVector with_code(const ByteVector& right, std::uint8_t code, std::size_t payload_size) {
    ByteVector frame(right.begin(), right.begin() + static_cast<std::ptrdiff_t>(HeadSize + payload_size));
    frame[4] = code;
    km5_append_sums(frame);
    return frame;
}

ByteVector filled_up(const ByteVector& right, std::size_t length) {
    ByteVector frame(right.begin(), right.end() - SumsSize);
    if (frame.size() + SumsSize < length) frame.resize(length - SumsSize, 0x55);
    km5_append_sums(frame);
    return frame;
}

ByteVector garbage(std::size_t size, Km5Random& generator) {
    ByteVector payload(size);
    for (auto& byte : payload) byte = static_cast<std::uint8_t>(generator.next() >> 32);
    return payload;
}

ByteVector spoilt_frame(const ByteVector& right, const Km5Fault& fault, Km5Random& generator) {
    const std::size_t payload_size = right.size() - HeadSize - SumsSize;
    ByteVector frame = right;
    switch (fault.kind) {
        case Kind::Noise:
            frame.insert(frame.begin(), fault.bytes.begin(), fault.bytes.end());
            return frame;
        case Kind::WrongCs1:
            frame[frame.size() - 2] ^= 0xFF;
            return frame;
        case Kind::WrongCs2:
            ++frame.back();
            return frame;
        case Kind::WrongEcho:
            return with_code(right, fault.code.value_or(static_cast<std::uint8_t>(right[4] + 1)), payload_size);
        case Kind::ErrorAnswer:
            return with_code(right, fault.code.value_or(0xF0), 0);
        case Kind::Short:
            frame.resize(std::min(fault.length, frame.size()));
            return frame;
        case Kind::OverLong:
            return filled_up(right, fault.length);
        case Kind::Garbage:
            return with_payload(right, fault.bytes.empty() ? garbage(payload_size, generator) : fault.bytes);
        case Kind::Erased:
            return with_payload(right, ByteVector(payload_size, 0xFF));
        case Kind::Silence:
            return {};
        case Kind::None:
        case Kind::Halved:
            break;
    }
    return frame;
}

}  // namespace

Km5Fault Km5Fault::on(std::uint8_t command, std::optional<std::uint8_t> data0) const {
    Km5Fault narrowed = *this;
    narrowed.only_command = command;
    narrowed.only_data0 = data0;
    return narrowed;
}

bool Km5Fault::fits(std::uint8_t command, std::uint8_t data0) const {
    return only_command.value_or(command) == command && only_data0.value_or(data0) == data0;
}

Km5Fault km5_good() {
    return {.kind = Kind::None};
}
Km5Fault km5_silence() {
    return {.kind = Kind::Silence};
}
Km5Fault km5_noise(ByteVector bytes) {
    return {.kind = Kind::Noise, .bytes = std::move(bytes)};
}
Km5Fault km5_wrong_cs1() {
    return {.kind = Kind::WrongCs1};
}
Km5Fault km5_wrong_cs2() {
    return {.kind = Kind::WrongCs2};
}
Km5Fault km5_wrong_echo(std::optional<std::uint8_t> code) {
    return {.kind = Kind::WrongEcho, .code = code};
}
Km5Fault km5_short(std::size_t length) {
    return {.kind = Kind::Short, .length = length};
}
Km5Fault km5_over_long(std::size_t length) {
    return {.kind = Kind::OverLong, .length = length};
}
Km5Fault km5_error(std::uint8_t code) {
    return {.kind = Kind::ErrorAnswer, .code = code};
}
Km5Fault km5_halved(double gap) {
    return {.kind = Kind::Halved, .gap = gap};
}
Km5Fault km5_garbage(ByteVector payload) {
    return {.kind = Kind::Garbage, .bytes = std::move(payload)};
}
Km5Fault km5_erased() {
    return {.kind = Kind::Erased};
}

Answer km5_spoil(const ByteVector& right, const Km5Fault& fault, double delay, Km5Random& generator) {
    const ByteVector frame = spoilt_frame(right, fault, generator);
    if (frame.empty()) return {};
    if (fault.kind != Kind::Halved) return {{.delay_seconds = delay, .bytes = frame}};
    const auto middle = frame.begin() + static_cast<std::ptrdiff_t>(frame.size() / 2);
    return {{.delay_seconds = delay, .bytes = ByteVector(frame.begin(), middle)},
            {.delay_seconds = fault.gap, .bytes = ByteVector(middle, frame.end())}};
}

void km5_append_sums(ByteVector& frame) {
    std::uint8_t exclusive_or = 0;
    std::uint8_t sum = 0;
    for (const auto byte : frame) {
        exclusive_or ^= byte;
        sum = static_cast<std::uint8_t>(sum + byte);
    }
    frame.push_back(exclusive_or);
    frame.push_back(sum);
}

}  // namespace sim
