#pragma once
// Numbers out of bytes from a wire or a memory image. Every read is bounds-checked by construction: a byte
// behind the end of what was received reads as 0.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint8_t u8_at(Bytes bytes, std::size_t at) {
    return at < bytes.size() ? bytes[at] : std::uint8_t{0};
}

constexpr std::uint16_t le_u16(Bytes bytes, std::size_t at) {
    return static_cast<std::uint16_t>(u8_at(bytes, at) | u8_at(bytes, at + 1) << 8);
}

constexpr std::uint32_t le_u32(Bytes bytes, std::size_t at) {
    return le_u16(bytes, at) | static_cast<std::uint32_t>(le_u16(bytes, at + 2)) << 16;
}

constexpr std::uint64_t le_u64(Bytes bytes, std::size_t at) {
    return le_u32(bytes, at) | static_cast<std::uint64_t>(le_u32(bytes, at + 4)) << 32;
}

/// IEEE 754 single precision.
constexpr float le_float(Bytes bytes, std::size_t at) {
    return std::bit_cast<float>(le_u32(bytes, at));
}

/// `length` bytes from `at` on, as far as they exist; none for a negative length.
constexpr Bytes part_of(Bytes bytes, std::size_t at, int length) {
    if (at >= bytes.size() || length <= 0) return {};
    const std::size_t most = bytes.size() - at;
    return bytes.subspan(at, most < static_cast<std::size_t>(length) ? most : static_cast<std::size_t>(length));
}

/// Plain 8-bit sum, modulo 256; 0 over nothing.
constexpr std::uint8_t checksum(Bytes bytes) {
    unsigned sum = 0;
    for (const std::uint8_t byte : bytes) sum += byte;
    return static_cast<std::uint8_t>(sum);
}

/// Packed BCD: high nibble times 10 plus low nibble. Nibbles above 9 are not refused.
constexpr int bcd_to_int(std::uint8_t bcd) {
    return (bcd >> 4) * 10 + (bcd & 0x0F);
}
