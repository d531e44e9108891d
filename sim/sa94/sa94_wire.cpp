#include "sa94_wire.h"

#include <bit>
#include <stdexcept>
#include <string>

namespace sim {

namespace {

constexpr std::uint8_t Leave = 0x01;
constexpr std::uint8_t ExtendedMark = 0xB7;
constexpr std::uint8_t TopBit = 0x80;
constexpr std::uint8_t LowSeven = 0x7F;
constexpr std::uint32_t ExponentExcess = 2;  // over the exponent field of a common 32-bit number

bool is(std::uint8_t byte, std::uint8_t mask, std::uint8_t bits) {
    return (byte & mask) == bits;
}

std::optional<Sa94Question> single(std::uint8_t byte) {
    if (byte == Leave) return Sa94Question{.kind = Sa94Kind::Disconnect};
    if (!is(byte, 0xE0, 0x80)) return std::nullopt;
    return Sa94Question{.kind = Sa94Kind::Parameter, .code = byte & 0x1FU};
}

std::optional<Sa94Question> pair(std::uint8_t first, std::uint8_t second) {
    if (!is(first, 0xF8, 0xA0) || !is(second, TopBit, 0)) return std::nullopt;
    return Sa94Question{.kind = Sa94Kind::Block, .segment = first & 7U, .block = second};
}

std::optional<Sa94Question> triple(std::uint8_t first, std::uint8_t second, std::uint8_t third) {
    if (is(first, 0xC0, 0xC0) && is(second, TopBit, 0) && is(third, TopBit, 0)) {
        return Sa94Question{.kind = Sa94Kind::Connect, .address = (first & 0x3FU) << 14 | second * 0x80U | third};
    }
    if (first != ExtendedMark || !is(second, 0xC0, 0x40) || !is(third, 0xC0, 0)) return std::nullopt;
    return Sa94Question{.kind = Sa94Kind::Block,
                        .segment = second >> 3 & 7U,
                        .block = (second & 7U) << 6 | third,
                        .extended_form = true};
}

}  // namespace

std::optional<Sa94Question> sa94_question(std::span<const std::uint8_t> bytes) {
    switch (bytes.size()) {
        case 1:
            return single(bytes[0]);
        case 2:
            return pair(bytes[0], bytes[1]);
        case 3:
            return triple(bytes[0], bytes[1], bytes[2]);
        default:
            return std::nullopt;
    }
}

std::array<std::uint8_t, 4> sa94_float(float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const std::uint32_t exponent = bits >> 23 & 0xFFU;
    if (exponent + ExponentExcess > 0xFFU) throw std::invalid_argument("too large: " + std::to_string(value));
    const std::uint32_t shifted = exponent == 0 ? 0 : exponent + ExponentExcess;
    const auto sign = static_cast<std::uint8_t>(bits >> 24 & TopBit);
    return {static_cast<std::uint8_t>(shifted), static_cast<std::uint8_t>(sign | (bits >> 16 & LowSeven)),
            static_cast<std::uint8_t>(bits >> 8), static_cast<std::uint8_t>(bits)};
}

float sa94_float_value(std::span<const std::uint8_t, 4> bytes) {
    const std::uint32_t exponent = bytes[0] > ExponentExcess ? bytes[0] - ExponentExcess : 0;
    const std::uint32_t sign = bytes[1] >> 7;
    const std::uint32_t mantissa = (bytes[1] & 0x7FU) << 16 | bytes[2] * 0x100U | bytes[3];
    return std::bit_cast<float>(sign << 31 | exponent << 23 | mantissa);
}

std::uint8_t sa94_bcd(int number) {
    if (number < 0 || number > 99) throw std::invalid_argument(std::to_string(number) + " has no two digits");
    return static_cast<std::uint8_t>(number / 10 * 16 + number % 10);
}

int sa94_bcd_value(std::uint8_t byte) {
    return byte / 16 * 10 + byte % 16;
}

}  // namespace sim
