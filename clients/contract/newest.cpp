#include "contract/newest.h"

#include <algorithm>

#include "contract/archive_table.h"
#include "contract/site.h"

namespace contract {

namespace {

/// The newest time near the end of a file, in the last stretch that holds lines: as much as a meter remembers.
std::optional<std::int64_t> newest_in(File& file) {
    constexpr off_t Stretch = off_t{64} * 1024;
    struct stat status {};
    if (!file || !file.look(status)) return std::nullopt;
    std::optional<std::int64_t> newest;
    for (off_t begin = status.st_size; begin > 0 && !newest;) {
        const off_t end = std::min<off_t>(status.st_size, begin + static_cast<off_t>(ArchiveLines::LongestLine));
        begin = std::max<off_t>(0, begin - Stretch);
        ArchiveLines lines(file, begin, end);
        for (ArchiveLine line; lines.next(line);) newest = std::max<std::optional<std::int64_t>>(newest, line.time);
    }
    return newest;
}

}  // namespace

std::optional<std::int64_t> newest_record(const std::string& uuid, int system, ArchiveKind kind, Copies copies) {
    const std::string folder = archive_folder(uuid, system);
    const Period period = period_of(folder, kind);
    std::optional<std::int64_t> newest;
    for (const std::string& name : archive_names(folder, kind)) {
        File file = (copies == Copies::Wait ? open_archive : open_for_reading)(folder + '/' + name);
        auto time = newest_in(file);
        if (time && kind != ArchiveKind::Events && find_archive(name)->dating == Dating::Beginning) {
            time = end_of_period(*time, period);
        }
        newest = std::max(newest, time);
    }
    return newest;
}

std::optional<Extent> extent_of(const std::string& path) {
    File file = open_for_reading(path);
    const auto newest = newest_in(file);
    if (!newest) return std::nullopt;
    ArchiveLines lines(file, 0, std::numeric_limits<off_t>::max());
    ArchiveLine first;
    return lines.next(first) ? std::optional(Extent{first.time, *newest}) : std::nullopt;
}

}  // namespace contract
