#include "contract/archive_reader.h"

#include <algorithm>

#include "contract/site.h"

namespace contract {

namespace {

constexpr off_t Stretch = off_t{64} * 1024;

off_t size_of(File& file) {
    struct stat status {};
    return file.is_open() && file.look(status) ? status.st_size : 0;
}

constexpr std::int64_t NoLine = std::numeric_limits<std::int64_t>::min();

/// The newest line that begins in this part of the file.
std::int64_t newest_in(File& file, off_t begin, off_t end) {
    ArchiveLines lines(file, begin, end);
    std::int64_t newest = NoLine;
    for (ArchiveLine line; lines.next(line);) newest = std::max<std::int64_t>(newest, line.time);
    return newest;
}

}  // namespace

off_t begin_of(File& file, off_t size, std::int64_t from) {
    constexpr off_t OfSomeLines = 256;
    if (from <= std::numeric_limits<std::int32_t>::min()) return 0;
    off_t begin = size;
    while (begin > 0) {
        const off_t stretch = std::max<off_t>(0, begin - Stretch);
        // With the line that begins here and ends behind it.
        const off_t end = std::min<off_t>(size, begin + static_cast<off_t>(ArchiveLines::LongestLine));
        const std::int64_t newest = newest_in(file, stretch, end);
        if (newest < from && newest != NoLine) break;
        begin = stretch;
    }
    // A line of each further stretch. One that is newer than a later one was written by a clock that was ahead, and so
    // were neighbours of it.
    std::int64_t oldest_behind = from;
    off_t found = begin;
    for (off_t at = (begin - 1) / Stretch * Stretch; begin > 0 && at >= 0; at -= Stretch) {
        const std::int64_t time = newest_in(file, at, std::min(begin, at + OfSomeLines));
        if (time == NoLine) continue;
        if (time >= oldest_behind) found = std::max<off_t>(0, at - Stretch);
        oldest_behind = std::min(oldest_behind, time);
    }
    return found;
}

ArchiveReader::ArchiveReader(const std::string& path, const TimeSpan& wanted, Order order)
    : ArchiveReader(open_archive(path), wanted, order) {}

ArchiveReader::ArchiveReader(File source, const TimeSpan& wanted, Order order)
    : file(std::move(source)), span(wanted), trusts(order == Order::Trusted), lines(file, 0, 0) {
    const off_t size = size_of(file);
    const off_t begin = begin_of(file, size, span.from);
    if (!trusts) {
        in_order = is_in_order(begin, size);
        if (!in_order) put_in_order(begin, size);
    }
    lines = ArchiveLines(file, begin, size);
}

bool ArchiveReader::is_in_order(off_t begin, off_t size) {
    ArchiveLines all(file, begin, size);
    std::int64_t last = std::numeric_limits<std::int64_t>::min();
    for (ArchiveLine line; all.next(line); last = line.time) {
        if (line.time <= last) return false;
    }
    unreadable_count = all.unreadable();
    changed = all.is_short();
    return true;
}

void ArchiveReader::put_in_order(off_t begin, off_t size) {
    ArchiveLines all(file, begin, size);
    for (ArchiveLine line; all.next(line);) {
        if (span.holds(line.time)) places.push_back({line.time, all.position()});
    }
    unreadable_count = all.unreadable();
    changed = all.is_short();
    // By time, and of one time the last one of the file first, which alone stays.
    std::ranges::sort(places, [](const Place& one, const Place& other) {
        return one.time != other.time ? one.time < other.time : one.offset > other.offset;
    });
    const auto same_time = [](const Place& one, const Place& other) { return one.time == other.time; };
    places.erase(std::unique(places.begin(), places.end(), same_time), places.end());
}

bool ArchiveReader::next(ArchiveLine& line) {
    if (trusts) {
        while (lines.next(line)) {
            if (line.time <= last_time) in_order = false;
            last_time = line.time;
            if (span.holds(line.time)) return true;
        }
        return false;
    }
    if (in_order) {
        while (lines.next(line)) {
            if (line.time >= span.to) return false;
            if (line.time >= span.from) return true;
        }
        return false;
    }
    if (next_place == places.size()) return false;
    const Place& place = places[next_place++];
    lines.go_to(place.offset);
    if (lines.next(line) && line.time == place.time) return true;
    changed = true;
    return false;
}

}  // namespace contract
