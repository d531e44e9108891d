#include "contract/archive_lines.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>

namespace contract {

namespace {

constexpr std::size_t TimeDigits = 10;  // of all times from 2001 to 2038
constexpr int Decimals = 6;

/// How many digits stand at the beginning.
std::size_t digits_at(std::string_view text) {
    std::size_t count = 0;
    while (count < text.size() && static_cast<unsigned char>(text[count] - '0') <= 9) ++count;
    return count;
}

bool is_value(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    if (text == "inf" || text == "nan") return true;
    const std::size_t whole = digits_at(text);
    if (whole == 0 || text.size() != whole + 1 + Decimals || text[whole] != '.') return false;
    return digits_at(text.substr(whole + 1)) == Decimals;
}

/// Eight characters, the first one lowest.
std::uint64_t eight_at(const char* text) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, text, sizeof eight);
    static_assert(std::endian::native == std::endian::little);
    return eight;
}

/// True when the lowest `Count` characters are digits: as they stand and with 6 added the upper half of each is 3.
template <int Count>
bool are_digits(std::uint64_t characters) {
    constexpr std::uint64_t All = ~std::uint64_t{0} >> (64 - 8 * Count);
    constexpr std::uint64_t Upper = 0xF0F0F0F0F0F0F0F0 & All;
    characters &= All;
    const std::uint64_t and_six = (characters + (0x0606060606060606 & All)) & Upper;
    return ((characters & Upper) | and_six >> 4) == (0x3333333333333333 & All);
}

/// The eight digits at `text` as a number, -1 when one of them is none. Each step takes neighbours together.
std::int64_t eight_digits(const char* text) {
    std::uint64_t digits = eight_at(text);
    if (!are_digits<8>(digits)) return -1;
    digits -= 0x3030303030303030;
    digits = digits * 10 + (digits >> 8);
    constexpr std::uint64_t Pairs = 0x000000FF000000FF;
    digits = (digits & Pairs) * 0x000F424000000064 + (digits >> 16 & Pairs) * 0x0000271000000001;
    return static_cast<std::int64_t>(digits >> 32);
}

bool is_digit(char character) {
    return static_cast<unsigned char>(character - '0') <= 9;
}

/// A line as nearly all of them are, "1709388000,192,12.345000" and its end, out of a text that may be read 64 bytes
/// further. Its length, or 0 for any other line.
std::size_t usual_line(const char* text, ArchiveLine& line) {
    const std::int64_t front = eight_digits(text);
    if (front < 0 || !is_digit(text[8]) || !is_digit(text[9])) return 0;
    const std::int64_t time = front * 100 + (text[8] - '0') * 10 + (text[9] - '0');
    if (time > INT32_MAX || std::memcmp(text + TimeDigits, ",192,", 5) != 0) return 0;
    const char* const value = text + TimeDigits + 5;
    const char* point = value;
    while (is_digit(*point) && point < value + 20) ++point;
    if (point == value || *point != '.') return 0;
    const char* const line_end = point + 1 + Decimals;
    if (*line_end != '\n' || !are_digits<Decimals>(eight_at(point + 1))) return 0;
    line.time = static_cast<std::int32_t>(time);
    line.quality = 192;
    line.value = {value, static_cast<std::size_t>(line_end - value)};
    return static_cast<std::size_t>(line_end - text) + 1;
}

template <typename Number>
bool take_number(std::string_view& text, Number& number) {
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto length = static_cast<std::size_t>(stop - text.data());
    if (error != std::errc{} || length == text.size() || text[length] != ',') return false;
    text.remove_prefix(length + 1);
    return true;
}

}  // namespace

bool parse_archive_line(std::string_view text, ArchiveLine& line) {
    if (!take_number(text, line.time) || !take_number(text, line.quality) || line.quality < 0) return false;
    line.value = text;
    return is_value(text);
}

ArchiveLines::ArchiveLines(File& source, off_t begin, off_t stop)
    : file(&source), end(stop), buffer_at(begin), buffer(BlockBytes + Padding) {
    if (begin <= 0) return;
    go_to(begin - 1);
    skip_line();
}

void ArchiveLines::go_to(off_t begin) {
    whole_until = begin;
    if (begin >= buffer_at && begin <= buffer_at + static_cast<off_t>(filled)) {
        at = static_cast<std::size_t>(begin - buffer_at);
        return;
    }
    buffer_at = begin;
    at = filled = 0;
}

/// Makes room by dropping what has been read, and reads on.
void ArchiveLines::fill() {
    const std::size_t kept = filled - at;
    std::memmove(buffer.data(), buffer.data() + at, kept);
    buffer_at = offset();
    at = 0;
    filled = kept;
    const off_t from = buffer_at + static_cast<off_t>(kept);
    const auto wanted = static_cast<std::size_t>(std::min<off_t>(end - from, static_cast<off_t>(BlockBytes - kept)));
    if (file->seek(from, SEEK_SET) != from) {
        was_short = true;
        end = from;
        return;
    }
    const std::size_t got = file->read(std::span(buffer).subspan(kept, wanted));
    filled += got;
    if (got < wanted) {
        was_short = true;
        end = from + static_cast<off_t>(got);
    }
    std::memset(buffer.data() + filled, 0, Padding);
}

/// Passes over the rest of a line of any length. False when the file ends before it does.
bool ArchiveLines::skip_line() {
    for (;;) {
        const std::size_t line_end = rest().find('\n');
        if (line_end != std::string_view::npos) {
            at += line_end + 1;
            return true;
        }
        at = filled;
        if (offset() >= end) return false;
        fill();
    }
}

bool ArchiveLines::next(ArchiveLine& line) {
    for (;;) {
        if (filled - at < LongestLine && buffer_at + static_cast<off_t>(filled) < end) fill();
        if (at == filled) return false;
        line_at = offset();
        const std::size_t length = usual_line(buffer.data() + at, line);
        if (length != 0) {
            at += length;
            whole_until = offset();
            return true;
        }
        const std::string_view text = rest().substr(0, LongestLine);
        const std::size_t line_end = text.find('\n');
        // The last line may have lost its end, or may still be being written: whole is what has all its digits.
        const bool whole = line_end != std::string_view::npos || offset() + static_cast<off_t>(text.size()) == end;
        if (whole && parse_archive_line(text.substr(0, line_end), line)) {
            at += line_end == std::string_view::npos ? text.size() : line_end + 1;
            if (line_end != std::string_view::npos) whole_until = offset();
            return true;
        }
        ++unreadable_count;
        if (skip_line()) whole_until = offset();
    }
}

}  // namespace contract
