#include "store/rows.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <compare>
#include <cstring>
#include <tuple>

namespace store {

namespace {

constexpr std::int64_t Seconds2000 = 946684800;  // PostgreSQL counts from there
constexpr std::int64_t Microseconds = 1'000'000;

auto key_of(const Row& row) {
    return std::tuple(row.system, row.time, row.name);
}

/// As PostgreSQL orders values: all NaN are the same, and the greatest.
std::weak_ordering compare(double one, double other) {
    if (std::isnan(one) || std::isnan(other)) return std::isnan(one) <=> std::isnan(other);
    return one < other   ? std::weak_ordering::less
           : one > other ? std::weak_ordering::greater
                         : std::weak_ordering::equivalent;
}

template <typename Number>
void put(char*& to, Number number) {
    for (std::size_t i = sizeof number; i-- > 0;) *to++ = static_cast<char>(number >> (8 * i));
}

void put_long(char*& to, std::int64_t number) {
    put(to, std::uint32_t{8});
    put(to, static_cast<std::uint64_t>(number));
}

void put_int(char*& to, std::int32_t number) {
    put(to, std::uint32_t{4});
    put(to, static_cast<std::uint32_t>(number));
}

}  // namespace

std::int64_t written_at(int stream, std::int64_t sequence, int place) {
    return std::int64_t{stream} << 55 | sequence << 13 | place;
}

void put_in_order(std::vector<Row>& rows, bool are_events) {
    const auto identity = [are_events](const Row& one, const Row& other) -> std::weak_ordering {
        if (const auto by_key = key_of(one) <=> key_of(other); std::is_neq(by_key)) return by_key;
        if (!are_events) return std::weak_ordering::equivalent;
        if (const auto by_quality = one.quality <=> other.quality; std::is_neq(by_quality)) return by_quality;
        return compare(one.value, other.value);
    };
    std::ranges::sort(rows, [&identity](const Row& one, const Row& other) {
        const auto order = identity(one, other);
        return std::is_eq(order) ? one.written > other.written : std::is_lt(order);
    });
    const auto same = [&identity](const Row& one, const Row& other) { return std::is_eq(identity(one, other)); };
    rows.erase(std::unique(rows.begin(), rows.end(), same), rows.end());
}

std::string encode(const std::vector<Row>& rows) {
    static constexpr char Begin[] = "PGCOPY\n\xFF\r\n\0\0\0\0\0\0\0\0";  // and the zero that ends a text
    constexpr std::size_t RowBytes = 2 + 3 * (4 + 8) + 3 * (4 + 4);
    std::string text(sizeof Begin + rows.size() * RowBytes + 2, '\0');
    char* to = text.data();
    std::memcpy(to, Begin, sizeof Begin);
    to += sizeof Begin;
    for (const Row& row : rows) {
        put(to, std::uint16_t{6});
        put_long(to, (row.time - Seconds2000) * Microseconds);
        put_long(to, std::bit_cast<std::int64_t>(row.value));
        put_long(to, row.written);
        put_int(to, row.system);
        put_int(to, row.name);
        put_int(to, row.quality);
    }
    put(to, std::uint16_t{0xFFFF});
    return text;
}

}  // namespace store
