#include "contract/capture.h"

#include <algorithm>
#include <optional>

namespace contract {

namespace {

constexpr std::size_t MostTyped = std::size_t{16} * 1024;  // bytes of hex text that are looked at together

bool is_digit(char letter) {
    return letter >= '0' && letter <= '9';
}

int hex_value(char letter) {
    if (is_digit(letter)) return letter - '0';
    if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
    if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
    return -1;
}

/// True when a text begins like the pattern, where a 0 stands for any digit.
bool looks_like(std::string_view text, std::string_view pattern) {
    return text.size() >= pattern.size() && std::equal(pattern.begin(), pattern.end(), text.begin(),
                                                       [](char p, char t) { return p == '0' ? is_digit(t) : p == t; });
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view Blanks = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(Blanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(Blanks) - begin + 1);
}

/// Takes the word in front away from a text.
std::string_view word_of(std::string_view& text) {
    text = trimmed(text);
    const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

/// What stands between two texts; nothing unless it begins and ends with them.
std::optional<std::string_view> between(std::string_view text, std::string_view begin, std::string_view end) {
    if (text.size() < begin.size() + end.size() || !text.starts_with(begin) || !text.ends_with(end)) return {};
    return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

Direction direction_of(std::string_view word) {
    if (word == ">" || word == "tx" || word == "TX" || word == "Send:") return Direction::Question;
    if (word == "<" || word == "rx" || word == "RX" || word == "Recv:") return Direction::Answer;
    return Direction::Unknown;
}

}  // namespace

std::vector<std::uint8_t> bytes_of_hex(std::string_view text, std::string& reason) {
    std::vector<std::uint8_t> bytes;
    int high = -1;
    const auto complain = [&reason](const char* what) {
        if (reason.empty()) reason = what;
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char letter = text[i];
        const bool is_prefix = letter == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X');
        const int value = is_prefix ? -1 : hex_value(letter);
        if (value >= 0 && high >= 0) {
            bytes.push_back(static_cast<std::uint8_t>(high << 4 | value));
            high = -1;
            continue;
        }
        if (value >= 0) {
            high = value;
            continue;
        }
        if (high >= 0) complain("an odd number of hex digits");
        high = -1;
        if (is_prefix) {
            ++i;
        } else if (std::string_view(" \t\r\n,;:-").find(letter) == std::string_view::npos) {
            complain("letters that are no hex digits");
        }
    }
    if (high >= 0) complain("an odd number of hex digits");
    return bytes;
}

void CaptureReader::take_row(std::string_view row) {
    constexpr std::size_t LogTime = 21;  // "DD/MM/YY hh:mm:ss.mmm", and then " : "
    constexpr std::size_t TraceTime = 23;
    while (!row.empty() && row.back() == '\n') row.remove_suffix(1);
    if (looks_like(row, "00/00/00 00:00:00.000 :")) {
        is_log = true;
        std::string_view text = row.substr(LogTime + 2);
        if (text.starts_with(' ')) text.remove_prefix(1);
        return take_log_text(row.substr(0, LogTime), text);
    }
    if (looks_like(row, "0000-00-00 00:00:00.000 ")) {
        give_typed();
        std::string_view rest = row.substr(TraceTime);
        Piece piece;
        piece.time = row.substr(0, TraceTime);
        piece.line = word_of(rest);
        piece.direction = direction_of(word_of(rest));
        piece.bytes = bytes_of_hex(rest, piece.reason);
        if (piece.direction == Direction::Unknown) piece.reason = "no > and no < behind the line";
        if (piece.bytes.empty() && piece.reason.empty()) piece.reason = "no bytes";
        return give(piece);
    }
    // Where a log has begun anew.
    if (row.starts_with("---") && row.find_first_not_of('-') == std::string_view::npos) return;
    // In a log, what has no time goes on from the row before it, and is no traffic.
    if (!is_log && !row.starts_with('#')) take_hex_row(row);
}

void CaptureReader::take_log_text(std::string_view time, std::string_view text) {
    if (is_dump) {
        if (trimmed(text) == "Dumping packet done.") return give_answer();
        if (take_dump_row(text)) return;
        give_answer();  // the log has begun anew in the middle of it
    }
    const auto announce = [&](Direction direction, std::string_view title = {}) {
        waiting.time = time;
        waiting.direction = direction;
        waiting.bytes.clear();
        waiting.bare = direction == Direction::Answer && !waiting.title.empty();
        if (direction == Direction::Question) waiting.title = title;
        has_waiting = true;
    };
    const std::string_view plain = trimmed(text);
    if (plain == "Dumping packet:") {
        is_dump = has_waiting;
    } else if (plain == "Send dump:" || between(plain, "Send ", " bytes:")) {
        announce(Direction::Question);
    } else if (plain == "ReadTubeSettings") {
        repeats = true;
    } else if (plain == "Recv dump:" || between(plain, "Recv ", " bytes:") ||
               between(plain, "send_request::Received ", " bytes.")) {
        if (repeats) {
            repeats = has_waiting = false;
            return;
        }
        announce(Direction::Answer);
    } else if (const auto name = between(plain, "Sending req '", "'...")) {
        announce(Direction::Question, *name);
        give(waiting);
        has_waiting = false;
    } else if (plain.starts_with("Received: ") && !waiting.title.empty()) {
        announce(Direction::Answer);
    } else if (text.starts_with("Requesting: ")) {
        announce(Direction::Question);
        const std::string_view words = text.substr(text.find(' ') + 1);
        waiting.bytes.assign(words.begin(), words.end());
        give(waiting);
        has_waiting = false;
    }
}

bool CaptureReader::take_dump_row(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    while (!trimmed(text).empty()) {
        std::string_view word = word_of(text);
        // "12:0x4F" in the log of a VISTmodbus
        if (const std::size_t colon = word.find(':'); colon != std::string_view::npos) word.remove_prefix(colon + 1);
        if (word.size() != 4 || !word.starts_with("0x") || hex_value(word[2]) < 0 || hex_value(word[3]) < 0)
            return false;
        bytes.push_back(static_cast<std::uint8_t>(hex_value(word[2]) << 4 | hex_value(word[3])));
    }
    waiting.bytes.insert(waiting.bytes.end(), bytes.begin(), bytes.end());
    return true;
}

void CaptureReader::give_answer() {
    give(waiting);
    is_dump = has_waiting = false;
}

void CaptureReader::take_hex_row(std::string_view row) {
    row = trimmed(row);
    if (row.empty()) return give_typed();
    std::string_view rest = row;
    const Direction direction = direction_of(word_of(rest));
    std::string reason;
    const auto bytes = bytes_of_hex(direction == Direction::Unknown ? row : rest, reason);
    const bool stands_alone = !joins || direction != Direction::Unknown || !reason.empty();
    if (stands_alone || typed.bytes.size() + bytes.size() > MostTyped) give_typed();
    typed.direction = direction;
    typed.bytes.insert(typed.bytes.end(), bytes.begin(), bytes.end());
    typed.ends.push_back(typed.bytes.size());
    typed.reason = reason;
    if (bytes.empty() && reason.empty()) typed.reason = "no bytes";
    if (stands_alone) give_typed();
}

void CaptureReader::give_typed() {
    if (!typed.ends.empty()) give(typed);
    typed = {};
}

void CaptureReader::finish() {
    if (is_dump) give_answer();
    give_typed();
}

}  // namespace contract
