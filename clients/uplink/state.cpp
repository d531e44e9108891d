#include "uplink/state.h"

#include <cstdio>
#include <stdexcept>

namespace uplink {

namespace {

constexpr int ApplicationId = 0x484D5550;  // of this kind of database
constexpr int BusyMilliseconds = 200;      // somebody reads it; brokers wait meanwhile

constexpr char Tables[] = R"(
CREATE TABLE IF NOT EXISTS sink (name TEXT PRIMARY KEY, gateway TEXT NOT NULL, confirmed INTEGER,
    used INTEGER NOT NULL DEFAULT 1) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS place (
    sink TEXT NOT NULL, meter BLOB NOT NULL, system INTEGER NOT NULL, name BLOB NOT NULL,
    device INTEGER NOT NULL, inode INTEGER NOT NULL, offset INTEGER NOT NULL, print INTEGER NOT NULL,
    PRIMARY KEY (sink, meter, system, name)) WITHOUT ROWID;
)";

void bind_text(sqlite3_stmt* statement, int at, const std::string& text) {
    ::sqlite3_bind_text(statement, at, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

/// Names of files are bytes.
void bind_bytes(sqlite3_stmt* statement, int at, const std::string& bytes) {
    ::sqlite3_bind_blob(statement, at, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
}

std::string bytes_of(sqlite3_stmt* statement, int at) {
    const auto* const bytes = static_cast<const char*>(::sqlite3_column_blob(statement, at));
    return bytes == nullptr ? std::string()
                            : std::string(bytes, static_cast<std::size_t>(::sqlite3_column_bytes(statement, at)));
}

bool step(sqlite3_stmt* statement) {
    const int result = ::sqlite3_step(statement);
    ::sqlite3_reset(statement);
    return result == SQLITE_DONE;
}

}  // namespace

bool State::fail() {
    last_fault = database != nullptr ? ::sqlite3_errmsg(database.get()) : "no memory";
    return false;
}

bool State::run(const char* sql) {
    return ::sqlite3_exec(database.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK || fail();
}

State::Statement State::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (::sqlite3_prepare_v2(database.get(), sql, -1, &statement, nullptr) != SQLITE_OK) fail();
    return Statement(statement);
}

bool State::use_file(const std::string& path, const char* vfs) {
    set_place.reset();
    set_confirmed.reset();
    sqlite3* opened = nullptr;
    const int result = ::sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, vfs);
    database.reset(opened);
    if (result != SQLITE_OK) return fail();
    ::sqlite3_busy_timeout(opened, BusyMilliseconds);
    // EXTRA: also the folder, in which a journal comes and goes, is made durable.
    if (!run("PRAGMA journal_mode = TRUNCATE") || !run("PRAGMA synchronous = EXTRA")) return false;
    ::sqlite3_exec(opened, "PRAGMA cache_size = -256", nullptr, nullptr, nullptr);
    const Statement id = prepare("PRAGMA application_id");
    if (!id || ::sqlite3_step(id.get()) != SQLITE_ROW) return fail();
    const int number = ::sqlite3_column_int(id.get(), 0);
    ::sqlite3_reset(id.get());
    if (number != 0 && number != ApplicationId) {
        last_fault = "it is another program's database";
        return false;
    }
    if (number == 0 && !run(("PRAGMA application_id = " + std::to_string(ApplicationId)).c_str())) return false;
    if (!run(Tables)) return false;
    const Statement look = prepare("PRAGMA quick_check(1)");
    if (!look || ::sqlite3_step(look.get()) != SQLITE_ROW || bytes_of(look.get(), 0) != "ok") {
        last_fault = "it is malformed";
        return false;
    }
    set_place = prepare("INSERT OR REPLACE INTO place VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    set_confirmed = prepare("UPDATE sink SET confirmed = ? WHERE name = ?");
    return set_place && set_confirmed;
}

State::State(const std::string& folder, const char* vfs) {
    const std::string path = folder + '/' + StateName;
    if (use_file(path, vfs)) return;
    const int code = database != nullptr ? ::sqlite3_errcode(database.get()) : SQLITE_NOMEM;
    const bool is_broken = code == SQLITE_CORRUPT || code == SQLITE_NOTADB || last_fault == "it is malformed";
    database.reset();
    if (is_broken) {
        put_aside = true;
        std::rename(path.c_str(), (path + ".broken").c_str());
        std::remove((path + "-journal").c_str());
        if (use_file(path, vfs)) return;
    }
    throw std::runtime_error(path + ": " + last_fault);
}

void State::load(const std::string& sink, const std::string& gateway,
                 const std::function<void(const FileName&, const Place&)>& take) {
    const Statement known = prepare("SELECT gateway FROM sink WHERE name = ?");
    bind_text(known.get(), 1, sink);
    const bool is_known = ::sqlite3_step(known.get()) == SQLITE_ROW;
    const bool is_same = is_known && bytes_of(known.get(), 0) == gateway;
    ::sqlite3_reset(known.get());
    if (!is_same) {
        const Statement forget = prepare("DELETE FROM place WHERE sink = ?");
        const Statement remember = prepare("INSERT OR REPLACE INTO sink VALUES (?, ?, NULL, 1)");
        bind_text(forget.get(), 1, sink);
        bind_text(remember.get(), 1, sink);
        bind_text(remember.get(), 2, gateway);
        if (!run("BEGIN IMMEDIATE") || !step(forget.get()) || !step(remember.get()) || !run("COMMIT")) {
            ::sqlite3_exec(database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        }
        return;
    }
    const Statement places =
        prepare("SELECT meter, system, name, device, inode, offset, print FROM place WHERE sink = ?");
    bind_text(places.get(), 1, sink);
    while (::sqlite3_step(places.get()) == SQLITE_ROW) {
        const auto number = [&](int at) { return ::sqlite3_column_int64(places.get(), at); };
        take({.uuid = bytes_of(places.get(), 0),
              .system = static_cast<int>(number(1)),
              .name = bytes_of(places.get(), 2)},
             {.device = static_cast<std::uint64_t>(number(3)),
              .inode = static_cast<std::uint64_t>(number(4)),
              .offset = static_cast<off_t>(number(5)),
              .print = static_cast<std::uint64_t>(number(6))});
    }
}

void State::use(const std::vector<std::string>& sinks) {
    run("UPDATE sink SET used = 0 WHERE used");
    const Statement use = prepare("UPDATE sink SET used = 1 WHERE name = ?");
    for (const std::string& sink : sinks) {
        bind_text(use.get(), 1, sink);
        step(use.get());
    }
}

bool State::keep(const std::string& sink, const std::vector<Change>& changes, std::int64_t now) {
    if (!run("BEGIN IMMEDIATE")) return false;
    bool is_well = true;
    for (const auto& [file, place] : changes) {
        sqlite3_stmt* const statement = set_place.get();
        bind_text(statement, 1, sink);
        bind_bytes(statement, 2, file.uuid);
        ::sqlite3_bind_int(statement, 3, file.system);
        bind_bytes(statement, 4, file.name);
        ::sqlite3_bind_int64(statement, 5, static_cast<std::int64_t>(place.device));
        ::sqlite3_bind_int64(statement, 6, static_cast<std::int64_t>(place.inode));
        ::sqlite3_bind_int64(statement, 7, place.offset);
        ::sqlite3_bind_int64(statement, 8, static_cast<std::int64_t>(place.print));
        is_well = is_well && (step(statement) || fail());
    }
    ::sqlite3_bind_int64(set_confirmed.get(), 1, now);
    bind_text(set_confirmed.get(), 2, sink);
    is_well = is_well && (step(set_confirmed.get()) || fail()) && run("COMMIT");
    if (!is_well) ::sqlite3_exec(database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    return is_well;
}

}  // namespace uplink
