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

/// The time at the beginning of a line, which is the line's time if the line parses; -1 for a text that begins unlike
/// the daemon's lines.
long leading_time(std::string_view piece) {
    if (piece.size() <= TimeDigits || piece[TimeDigits] != ',') return -1;
    std::int64_t time = 0;
    bool digits = true;
    for (std::size_t i = 0; i < TimeDigits; ++i) {
        const unsigned digit = static_cast<unsigned>(piece[i]) - '0';
        digits = digits && digit <= 9;
        time = time * 10 + digit;
    }
    return digits && time <= std::numeric_limits<long>::max() ? static_cast<long>(time) : -1;
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

/// How much of `text` belongs to a piece that has so much room left: up to and with its line end, if that is near.
std::size_t piece_part(std::string_view text, std::size_t room) {
    const std::string_view near = text.substr(0, room);
    const std::size_t line_end = near.find('\n');
    return line_end != near.npos ? line_end + 1 : near.size();
}

bool is_whole(std::string_view piece) {
    return piece.size() == PieceBytes || (!piece.empty() && piece.back() == '\n');
}

/// Cuts the next piece off the block; nothing when the block ends before the piece does.
std::string_view next_piece(std::string_view& block) {
    const std::string_view piece = block.substr(0, piece_part(block, PieceBytes));
    if (!is_whole(piece)) return {};
    block.remove_prefix(piece.size());
    return piece;
}

}  // namespace

void RecordTimeScan::take_piece(std::string_view piece) {
    greatest = std::max(greatest, time_of_any_line(piece));
}

void RecordTimeScan::take_carried(std::string_view& block) {
    if (carried.empty()) return;
    const std::size_t missing = piece_part(block, PieceBytes - carried.size());
    carried += block.substr(0, missing);
    block.remove_prefix(missing);
    if (!is_whole(carried)) return;
    take_piece(carried);
    carried.clear();
}

void RecordTimeScan::feed(std::string_view block) {
    take_carried(block);
    std::string_view rest = block;
    std::string_view newest;
    long newest_time = greatest;
    for (auto piece = next_piece(rest); !piece.empty(); piece = next_piece(rest)) {
        const long time = leading_time(piece);
        if (time < 0) take_piece(piece);
        if (time <= newest_time) continue;
        newest_time = time;
        newest = piece;
    }
    carried += rest;
    if (newest.empty()) return;
    take_piece(newest);
    if (greatest >= newest_time) return;
    for (auto piece = next_piece(block); !piece.empty(); piece = next_piece(block)) take_piece(piece);
}

std::time_t RecordTimeScan::finish() {
    if (!carried.empty()) take_piece(carried);
    carried.clear();
    return greatest;
}
