#include "contract/events.h"

#include <algorithm>
#include <compare>
#include <map>
#include <set>

#include "contract/site.h"

namespace contract {

namespace {

struct EventLine {
    std::int32_t time;
    bool begun;
    std::string code;
    auto operator<=>(const EventLine&) const = default;  // NOLINT(modernize-use-nullptr): no pointer is compared
};

/// All lines in order of time, those of one second as they were written; a line that was read again counts once.
std::vector<EventLine> lines_of(const std::string& folder, std::size_t& unreadable) {
    File file = open_archive(folder + "/_A57");
    struct stat status {};
    if (!file || !file.look(status)) return {};
    ArchiveLines lines(file, 0, status.st_size);
    std::vector<EventLine> all;
    for (ArchiveLine line; lines.next(line);) {
        all.push_back({line.time, line.quality == 192, std::string(line.value.substr(0, line.value.find('.')))});
    }
    unreadable = lines.unreadable();
    std::ranges::stable_sort(all, {}, &EventLine::time);
    std::set<EventLine> known;
    std::erase_if(all, [&known](const EventLine& line) { return !known.insert(line).second; });
    return all;
}

}  // namespace

std::vector<Event> read_events(const std::string& folder, const TimeSpan& span, std::size_t& unreadable) {
    std::vector<Event> events;
    std::map<std::string, std::size_t> lasting;
    for (const EventLine& line : lines_of(folder, unreadable)) {
        const auto open = lasting.find(line.code);
        if (line.begun) {
            lasting[line.code] = events.size();
            events.push_back({.code = line.code, .begin = line.time, .end = std::nullopt});
        } else if (open != lasting.end()) {
            events[open->second].end = line.time;
            lasting.erase(open);
        } else {
            events.push_back({.code = line.code, .begin = std::nullopt, .end = line.time});
        }
    }
    std::erase_if(events, [&span](const Event& event) {
        const std::int64_t first = event.begin ? *event.begin : *event.end;
        return first >= span.to || (event.end && *event.end < span.from);
    });
    return events;
}

}  // namespace contract
