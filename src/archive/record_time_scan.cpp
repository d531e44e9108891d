#include "archive/record_time_scan.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

constexpr std::size_t PieceBytes = 63;  // what fgets takes at once into a buffer of 64
constexpr std::size_t TimeDigits = 10;  // of all times from 2001 to 2286

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

const char* skip_digits(const char* at, const char* end) {
    while (at != end && is_digit(*at)) ++at;
    return at;
}

/// The time of a line in the very form that the daemon writes; -1 for any other text.
long time_of_own_line(std::string_view piece) {
    if (piece.size() <= TimeDigits || piece.back() != '\n') return -1;
    std::int64_t time = 0;
    for (std::size_t i = 0; i < TimeDigits; ++i) {
        if (!is_digit(piece[i])) return -1;
        time = time * 10 + (piece[i] - '0');
    }
    if (time > std::numeric_limits<long>::max()) return -1;

    const char* const end = piece.data() + piece.size() - 1;  // the line end stops every search of digits
    const char* const quality = piece.data() + TimeDigits + 1;
    if (quality[-1] != ',') return -1;
    const char* at = skip_digits(quality, end);
    if (at == quality || at - quality > 9 || *at++ != ',') return -1;
    if (*at == '-') ++at;
    const char* const whole = at;
    at = skip_digits(at, end);
    if (at == whole || *at++ != '.') return -1;
    const char* const fraction = at;
    at = skip_digits(at, end);
    return at != fraction && at == end ? static_cast<long>(time) : -1;
}

/// The time of any text that sscanf takes for a line; -1 for one that it does not.
long time_of_any_line(std::string_view piece) {
    std::array<char, PieceBytes + 1> text{};
    std::copy(piece.begin(), piece.end(), text.begin());
    long time = 0;
    int quality = 0;
    double value = 0.0;
    return std::sscanf(text.data(), "%ld,%d,%lf\n", &time, &quality, &value) == 3 ? time : -1;
}

}  // namespace

void RecordTimeScan::take_piece(std::string_view piece) {
    long time = time_of_own_line(piece);
    if (time < 0) time = time_of_any_line(piece);
    greatest = std::max(greatest, time);
}

void RecordTimeScan::feed(std::string_view block) {
    while (!block.empty()) {
        const std::size_t room = std::min(block.size(), PieceBytes - carried.size());
        const void* const line_end = std::memchr(block.data(), '\n', room);
        const std::size_t taken = line_end != nullptr
                                      ? static_cast<std::size_t>(static_cast<const char*>(line_end) - block.data()) + 1
                                      : room;
        const std::string_view part = block.substr(0, taken);
        block.remove_prefix(taken);
        const bool whole = line_end != nullptr || carried.size() + taken == PieceBytes;
        if (carried.empty() && whole) {
            take_piece(part);
            continue;
        }
        carried += part;
        if (!whole) return;
        take_piece(carried);
        carried.clear();
    }
}

std::time_t RecordTimeScan::finish() {
    if (!carried.empty()) take_piece(carried);
    carried.clear();
    return greatest;
}
