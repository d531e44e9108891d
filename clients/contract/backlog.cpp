#include "contract/backlog.h"

#include <algorithm>
#include <map>
#include <memory>
#include <tuple>

#include <sqlite3.h>

#include "contract/archive_lines.h"
#include "contract/archive_table.h"
#include "contract/site.h"
#include "core/gateway.h"

namespace contract {

namespace {

struct Close {
    void operator()(sqlite3* database) const { ::sqlite3_close(database); }
    void operator()(sqlite3_stmt* statement) const { ::sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Close>;

struct Sent {
    std::uint64_t inode;
    off_t offset;
};
using Places = std::map<std::tuple<std::string, int, std::string>, Sent>;  // by meter, system, name

Statement prepare(sqlite3* database, const char* sql) {
    sqlite3_stmt* statement = nullptr;
    ::sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
    return Statement(statement);
}

std::string bytes_of(sqlite3_stmt* statement, int at) {
    const auto* const bytes = static_cast<const char*>(::sqlite3_column_blob(statement, at));
    return bytes == nullptr ? std::string()
                            : std::string(bytes, static_cast<std::size_t>(::sqlite3_column_bytes(statement, at)));
}

Places places_of(sqlite3* database, const std::string& sink) {
    Places places;
    const Statement rows = prepare(database, "SELECT meter, system, name, inode, offset FROM place WHERE sink = ?");
    if (!rows) return places;
    ::sqlite3_bind_text(rows.get(), 1, sink.data(), static_cast<int>(sink.size()), SQLITE_TRANSIENT);
    while (::sqlite3_step(rows.get()) == SQLITE_ROW) {
        places[{bytes_of(rows.get(), 0), ::sqlite3_column_int(rows.get(), 1), bytes_of(rows.get(), 2)}] = {
            static_cast<std::uint64_t>(::sqlite3_column_int64(rows.get(), 3)),
            static_cast<off_t>(::sqlite3_column_int64(rows.get(), 4))};
    }
    return places;
}

void add_file(const std::string& path, const Sent& sent, std::int64_t now, SinkBacklog& backlog) {
    File file = open_for_reading(path);
    struct stat status {};
    if (!file || !file.look(status)) return;
    const bool goes_on = status.st_ino == sent.inode && status.st_size >= sent.offset;
    const off_t begin = goes_on ? sent.offset : 0;
    if (begin == status.st_size) return;
    backlog.pending_bytes += static_cast<std::uint64_t>(status.st_size - begin);
    ArchiveLines lines(file, begin, status.st_size);
    ArchiveLine line;
    if (!lines.next(line)) return;
    const std::int64_t age = std::max<std::int64_t>(0, now - line.time);
    backlog.oldest_s = std::max(backlog.oldest_s, std::optional(age));
}

void add_all(const Places& places, std::int64_t now, SinkBacklog& backlog) {
    for (const std::string& uuid : meters()) {
        for (int system = 1; system <= Systems; ++system) {
            const std::string folder = archive_folder(uuid, system, true);
            for (const auto kind : {ArchiveKind::Hourly, ArchiveKind::Daily, ArchiveKind::Events}) {
                for (const std::string& name : archive_names(folder, kind)) {
                    const auto found = places.find({uuid, system, name});
                    add_file(folder + '/' + name, found == places.end() ? Sent{} : found->second, now, backlog);
                }
            }
        }
    }
}

}  // namespace

std::optional<std::vector<SinkBacklog>> read_backlog(std::int64_t now) {
    constexpr int BusyMilliseconds = 1'000;
    if (!open_for_reading(UplinkState)) return std::nullopt;
    sqlite3* opened = nullptr;
    const int result =
        ::sqlite3_open_v2((gateway().root() + UplinkState).c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
    const std::unique_ptr<sqlite3, Close> database(opened);
    if (result != SQLITE_OK) return std::nullopt;
    ::sqlite3_busy_timeout(opened, BusyMilliseconds);
    const Statement sinks = prepare(opened, "SELECT name, confirmed FROM sink WHERE used ORDER BY name");
    if (!sinks) return std::nullopt;
    std::vector<SinkBacklog> all;
    while (::sqlite3_step(sinks.get()) == SQLITE_ROW) {
        SinkBacklog& backlog = all.emplace_back();
        backlog.name = bytes_of(sinks.get(), 0);
        if (::sqlite3_column_type(sinks.get(), 1) != SQLITE_NULL) {
            backlog.last_confirmed = ::sqlite3_column_int64(sinks.get(), 1);
        }
    }
    ::sqlite3_reset(sinks.get());
    for (SinkBacklog& backlog : all) add_all(places_of(opened, backlog.name), now, backlog);
    if (all.empty()) return std::nullopt;
    return all;
}

}  // namespace contract
