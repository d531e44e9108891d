#include "contract/logs.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>

#include "contract/site.h"
#include "core/files.h"
#include "core/local_time.h"

namespace contract {

namespace {

constexpr std::string_view WrapMarker = "---------------";
constexpr std::string_view Form = "00/00/00 00:00:00.000 : ";  // 0 stands for any digit
constexpr std::size_t LongestLog = std::size_t{1024} * 1024;
constexpr std::size_t Remembered = 32;  // lines that a follower knows again

bool has_prefix(std::string_view text) {
    if (text.size() < Form.size()) return false;
    for (std::size_t i = 0; i < Form.size(); ++i) {
        const bool is_digit = text[i] >= '0' && text[i] <= '9';
        if (Form[i] == '0' ? !is_digit : text[i] != Form[i]) return false;
    }
    return true;
}

/// Of a text that has the prefix.
std::int64_t milliseconds_of(std::string_view text) {
    const auto two = [text](std::size_t at) { return (text[at] - '0') * 10 + (text[at + 1] - '0'); };
    std::tm date{};
    date.tm_mday = two(0);
    date.tm_mon = two(3) - 1;
    date.tm_year = two(6) + 100;
    date.tm_hour = two(9);
    date.tm_min = two(12);
    date.tm_sec = two(15);
    date.tm_isdst = -1;
    return std::int64_t{make_time(date)} * 1000 + two(18) * 10 + (text[20] - '0');
}

/// Lines that the daemon writes without a time of their own.
bool goes_on(std::string_view text) {
    return text.starts_with("Error, ErrorCount = ") || text.starts_with("#define INIT_");
}

/// Where a second line begins in one whose end was written over; npos without any.
std::size_t next_prefix(std::string_view text) {
    for (std::size_t at = text.find(" : ", 1); at != std::string_view::npos; at = text.find(" : ", at + 1)) {
        constexpr std::size_t Lead = Form.size() - 3;
        if (at > Lead && has_prefix(text.substr(at - Lead))) return at - Lead;
    }
    return std::string_view::npos;
}

void add_lines(std::vector<LogLine>& lines, std::string_view text) {
    for (std::size_t second = 0; second != std::string_view::npos;) {
        text.remove_prefix(second);
        second = next_prefix(text);
        LogLine line{.milliseconds = lines.empty() ? 0 : lines.back().milliseconds,
                     .has_time = has_prefix(text),
                     .whole = text.substr(0, second),
                     .text = text.substr(0, second)};
        if (line.has_time) {
            line.milliseconds = milliseconds_of(text);
            line.text.remove_prefix(Form.size());
        }
        lines.push_back(line);
    }
}

}  // namespace

Log::Log(std::string_view text, std::int64_t written) : bytes(text.begin(), text.end()), written_at(written) {
    std::string_view rest(bytes.data(), bytes.size());
    bool has_hole = false;
    while (!rest.empty()) {
        constexpr std::string_view Ends("\n\0", 2);
        const std::size_t end = std::min(rest.find_first_of(Ends), rest.size());
        add_lines(ordered, rest.substr(0, end));
        const bool hole = end < rest.size() && rest[end] == '\0';
        has_hole = has_hole || hole;
        if (hole && end == 0) ordered.pop_back();
        rest.remove_prefix(hole ? std::min(rest.find_first_not_of('\0', end), rest.size())
                                : std::min(end + 1, rest.size()));
    }
    wrapped = !ordered.empty() && ordered.front().whole == WrapMarker;
    if (wrapped) put_in_order();
    // Behind a hole goes on what another process writes.
    if (has_hole) {
        std::ranges::stable_sort(ordered, {}, [](const LogLine& line) { return line.milliseconds; });
    }
}

void Log::put_in_order() {
    ordered.erase(ordered.begin());
    // Behind the newest line time jumps back, or a piece of an old line is left. So it does behind a clock that was set
    // back: the newest line is the one that was written when the file was.
    std::size_t seam = ordered.size();
    std::optional<std::int64_t> nearest;
    std::optional<std::int64_t> last;
    bool has_piece = false;
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        const LogLine& line = ordered[i];
        has_piece = has_piece || (!line.has_time && !goes_on(line.whole) && !line.whole.empty());
        if (!line.has_time) continue;
        if (last && (line.milliseconds < *last || has_piece)) {
            const std::int64_t gap = written_at == 0 ? -*last : std::llabs(written_at - *last / 1000);
            if (!nearest || gap < *nearest) {
                nearest = gap;
                seam = i;
            }
        }
        last = line.milliseconds;
        has_piece = false;
    }
    order_from(seam);
}

void Log::order_from(std::size_t seam) {
    const auto drop_pieces = [this](std::size_t end) {
        std::size_t begin = end;
        while (begin > 0 && !ordered[begin - 1].has_time) --begin;
        while (begin < end && goes_on(ordered[begin].whole)) ++begin;
        torn_count += end - begin;
        ordered.erase(ordered.begin() + static_cast<std::ptrdiff_t>(begin),
                      ordered.begin() + static_cast<std::ptrdiff_t>(end));
        return begin;
    };
    // At the file's end stands what the turn before the last one has left.
    const bool is_turned = seam < ordered.size();
    drop_pieces(ordered.size());
    if (is_turned) {
        seam = drop_pieces(seam);
    } else {
        // Nothing was written below the dashes yet but they themselves.
        const auto first = std::ranges::find(ordered, true, &LogLine::has_time);
        torn_count += static_cast<std::size_t>(first - ordered.begin());
        seam = 0;
        ordered.erase(ordered.begin(), first);
    }
    std::rotate(ordered.begin(), ordered.begin() + static_cast<std::ptrdiff_t>(seam), ordered.end());
}

Log read_log(const std::string& path) {
    File file = open_for_reading(path);
    struct stat status {};
    if (!file || !file.look(status)) return Log();
    std::string text(LongestLog, '\0');
    text.resize(file.read(text));
    return Log(text, status.st_mtime);
}

std::size_t LogFollower::new_lines(const Log& log, bool& began_anew) {
    const auto& lines = log.lines();
    std::size_t first = lines.size() + 1;
    const auto is_seen_up_to = [&](std::size_t end) {
        const std::size_t count = std::min(end, seen.size());
        for (std::size_t i = 1; i <= count; ++i) {
            if (lines[end - i].whole != seen[seen.size() - i]) return false;
        }
        return true;
    };
    for (std::size_t end = lines.size(); !seen.empty() && end > 0; --end) {
        if (!is_seen_up_to(end)) continue;
        first = end;
        break;
    }
    began_anew = !seen.empty() && first > lines.size() && !lines.empty();
    if (first > lines.size()) {
        if (lines.empty()) return 0;  // emptied a moment ago: the next look tells
        first = 0;
    }
    seen.clear();
    for (std::size_t i = lines.size() - std::min(Remembered, lines.size()); i < lines.size(); ++i) {
        seen.emplace_back(lines[i].whole);
    }
    return first;
}

std::string log_path(const std::string& name) {
    const std::string begin = "/tmp/uni_logs.";
    if (name == "general") return begin + "general.txt";
    const std::size_t colon = name.rfind(':');
    const std::string uuid = name.substr(0, colon);
    if (!is_meter_name(uuid)) return "";
    if (colon == std::string::npos) {
        const std::string only = begin + uuid + ".txt";
        const std::string debug = begin + uuid + ".debug.txt";
        return exists(only) && !exists(debug) ? only : debug;
    }
    const std::string kind = name.substr(colon + 1);
    constexpr std::array Kinds = {"debug", "messages", "general"};
    if (std::ranges::find(Kinds, kind) == Kinds.end()) return "";
    return begin + uuid + '.' + kind + ".txt";
}

}  // namespace contract
