#include "sa94_faults.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

using Kind = Sa94Fault::Kind;

ByteVector garbled(ByteVector bytes, const Sa94Fault& fault) {
    for (std::size_t k = fault.number; k < bytes.size() && k - fault.number < fault.length; ++k) bytes[k] ^= fault.mask;
    return bytes;
}

ByteVector spoilt_bytes(const ByteVector& right, const Sa94Fault& fault) {
    ByteVector bytes = right;
    switch (fault.kind) {
        case Kind::Silence:
        case Kind::Lost:
            return {};
        case Kind::Noise:
            bytes.insert(bytes.begin(), fault.bytes.begin(), fault.bytes.end());
            return bytes;
        case Kind::Trailing:
            bytes.insert(bytes.end(), fault.bytes.begin(), fault.bytes.end());
            return bytes;
        case Kind::Short:
            bytes.resize(std::min(fault.number, bytes.size()));
            return bytes;
        case Kind::Garbled:
            return garbled(std::move(bytes), fault);
        case Kind::Raw:
            return fault.bytes;
        case Kind::None:
        case Kind::Late:
        case Kind::Halved:
        case Kind::WrongBlock:
            break;
    }
    return bytes;
}

}  // namespace

Sa94Fault Sa94Fault::on(Sa94Kind request, std::optional<unsigned> segment_or_code,
                        std::optional<unsigned> block) const {
    Sa94Fault narrowed = *this;
    narrowed.only_kind = request;
    narrowed.only_which = segment_or_code;
    narrowed.only_block = block;
    return narrowed;
}

bool Sa94Fault::fits(const Sa94Question& request) const {
    if (only_kind.value_or(request.kind) != request.kind) return false;
    const unsigned which = request.kind == Sa94Kind::Block ? request.segment : request.code;
    if (only_which.value_or(which) != which || only_block.value_or(request.block) != request.block) return false;
    if (request.kind == Sa94Kind::Disconnect) return kind == Kind::Silence && only_kind.has_value();
    return kind != Kind::WrongBlock || request.kind == Sa94Kind::Block;
}

Sa94Fault sa94_good() {
    return {.kind = Kind::None};
}
Sa94Fault sa94_silence() {
    return {.kind = Kind::Silence};
}
Sa94Fault sa94_lost() {
    return {.kind = Kind::Lost};
}
Sa94Fault sa94_noise(ByteVector bytes) {
    return {.kind = Kind::Noise, .bytes = std::move(bytes)};
}
Sa94Fault sa94_short(std::size_t length) {
    return {.kind = Kind::Short, .number = length};
}
Sa94Fault sa94_single_byte() {
    return sa94_short(1);
}
Sa94Fault sa94_trailing(ByteVector bytes) {
    return {.kind = Kind::Trailing, .bytes = std::move(bytes)};
}
Sa94Fault sa94_garbled(std::size_t from, std::size_t length, std::uint8_t mask) {
    return {.kind = Kind::Garbled, .number = from, .length = length, .mask = mask};
}
Sa94Fault sa94_late(double gap) {
    return {.kind = Kind::Late, .gap = gap};
}
Sa94Fault sa94_halved(double gap) {
    return {.kind = Kind::Halved, .gap = gap};
}
Sa94Fault sa94_wrong_block(std::size_t further_on) {
    return {.kind = Kind::WrongBlock, .number = further_on};
}
Sa94Fault sa94_raw(ByteVector bytes) {
    return {.kind = Kind::Raw, .bytes = std::move(bytes)};
}

Answer sa94_spoil(const ByteVector& right, const Sa94Fault& fault, double delay) {
    const ByteVector bytes = spoilt_bytes(right, fault);
    if (bytes.empty()) return {};
    if (fault.kind == Kind::Late) return {{.delay_seconds = delay + fault.gap, .bytes = bytes}};
    if (fault.kind != Kind::Halved) return {{.delay_seconds = delay, .bytes = bytes}};
    const auto middle = bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2);
    if (middle == bytes.begin()) return {{.delay_seconds = delay + fault.gap, .bytes = bytes}};
    return {{.delay_seconds = delay, .bytes = ByteVector(bytes.begin(), middle)},
            {.delay_seconds = fault.gap, .bytes = ByteVector(middle, bytes.end())}};
}

}  // namespace sim
