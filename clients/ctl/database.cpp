#include "ctl/database.h"

#include "ctl/console.h"

namespace ctl {

namespace {

constexpr int ApplicationId = 0x484D4358;  // of this kind of database
constexpr int BusyMilliseconds = 10'000;

constexpr char Tables[] = R"(
CREATE TABLE IF NOT EXISTS series (
    id INTEGER PRIMARY KEY, meter TEXT NOT NULL, system INTEGER NOT NULL, kind TEXT NOT NULL, name TEXT NOT NULL,
    inode INTEGER NOT NULL DEFAULT 0, offset INTEGER NOT NULL DEFAULT 0, last_line TEXT NOT NULL DEFAULT '',
    UNIQUE (meter, system, name));
CREATE TABLE IF NOT EXISTS line (
    series INTEGER NOT NULL REFERENCES series, time INTEGER NOT NULL, quality INTEGER NOT NULL, value REAL,
    PRIMARY KEY (series, time)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS event (
    series INTEGER NOT NULL REFERENCES series, time INTEGER NOT NULL, quality INTEGER NOT NULL, value REAL NOT NULL,
    PRIMARY KEY (series, time, value, quality)) WITHOUT ROWID;
CREATE VIEW IF NOT EXISTS record_line AS
    SELECT meter, system, kind, name, time, quality, value FROM line JOIN series ON series.id = line.series
    UNION ALL
    SELECT meter, system, kind, name, time, quality, value FROM event JOIN series ON series.id = event.series;
)";

}  // namespace

void Database::fail() {
    const std::string reason = database != nullptr ? ::sqlite3_errmsg(database.get()) : "no memory";
    throw Failure{file + ": " + reason};
}

void Database::run(const char* sql) {
    if (::sqlite3_exec(database.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

Database::Statement Database::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (::sqlite3_prepare_v2(database.get(), sql, -1, &statement, nullptr) != SQLITE_OK) fail();
    return Statement(statement);
}

void Database::step(sqlite3_stmt* statement) {
    const int result = ::sqlite3_step(statement);
    ::sqlite3_reset(statement);
    if (result != SQLITE_DONE && result != SQLITE_ROW) fail();
}

Database::Database(const std::string& path) : file(path) {
    sqlite3* opened = nullptr;
    const int result = ::sqlite3_open(path.c_str(), &opened);
    database.reset(opened);
    if (result != SQLITE_OK) fail();
    ::sqlite3_busy_timeout(opened, BusyMilliseconds);
    const auto number_of = [this](const char* pragma) {
        const Statement statement = prepare(pragma);
        return ::sqlite3_step(statement.get()) == SQLITE_ROW ? ::sqlite3_column_int(statement.get(), 0) : (fail(), 0);
    };
    const int id = number_of("PRAGMA application_id");
    if (id == 0 && number_of("SELECT count(*) FROM sqlite_master") == 0) {
        run("PRAGMA page_size = 8192");
        run(("PRAGMA application_id = " + std::to_string(ApplicationId)).c_str());
    } else if (id != ApplicationId) {
        throw Failure{path + " is another program's database: give a new file"};
    }
    run(Tables);
    add_line = prepare(
        "INSERT INTO line VALUES (?, ?, ?, ?) "
        "ON CONFLICT DO UPDATE SET quality = excluded.quality, value = excluded.value");
    add_event = prepare("INSERT OR IGNORE INTO event VALUES (?, ?, ?, ?)");
    find_series =
        prepare("SELECT id, inode, offset, last_line FROM series WHERE meter = ? AND system = ? AND name = ?");
    add_series = prepare("INSERT INTO series (meter, system, name, kind) VALUES (?, ?, ?, ?)");
    set_cursor = prepare("UPDATE series SET inode = ?, offset = ?, last_line = ? WHERE id = ?");
}

std::int64_t Database::series(const std::string& meter, int system, const std::string& kind, const std::string& name,
                              FileCursor& cursor) {
    const auto bind = [&](sqlite3_stmt* statement) {
        ::sqlite3_bind_text(statement, 1, meter.data(), static_cast<int>(meter.size()), SQLITE_TRANSIENT);
        ::sqlite3_bind_int(statement, 2, system);
        ::sqlite3_bind_text(statement, 3, name.data(), static_cast<int>(name.size()), SQLITE_TRANSIENT);
    };
    bind(find_series.get());
    std::int64_t id = 0;
    if (::sqlite3_step(find_series.get()) == SQLITE_ROW) {
        id = ::sqlite3_column_int64(find_series.get(), 0);
        cursor.inode = ::sqlite3_column_int64(find_series.get(), 1);
        cursor.offset = ::sqlite3_column_int64(find_series.get(), 2);
        const auto* const text = ::sqlite3_column_text(find_series.get(), 3);
        cursor.last_line.assign(reinterpret_cast<const char*>(text));
    }
    ::sqlite3_reset(find_series.get());
    if (id != 0) return id;
    bind(add_series.get());
    ::sqlite3_bind_text(add_series.get(), 4, kind.data(), static_cast<int>(kind.size()), SQLITE_TRANSIENT);
    step(add_series.get());
    cursor = FileCursor();
    return ::sqlite3_last_insert_rowid(database.get());
}

void Database::add(std::int64_t series, std::int64_t time, int quality, double value, bool is_event) {
    sqlite3_stmt* const statement = is_event ? add_event.get() : add_line.get();
    ::sqlite3_bind_int64(statement, 1, series);
    ::sqlite3_bind_int64(statement, 2, time);
    ::sqlite3_bind_int(statement, 3, quality);
    ::sqlite3_bind_double(statement, 4, value);  // not a number is stored as null
    step(statement);
}

void Database::move_cursor(std::int64_t series, const FileCursor& cursor) {
    ::sqlite3_bind_int64(set_cursor.get(), 1, cursor.inode);
    ::sqlite3_bind_int64(set_cursor.get(), 2, cursor.offset);
    ::sqlite3_bind_text(set_cursor.get(), 3, cursor.last_line.c_str(), -1, SQLITE_TRANSIENT);
    ::sqlite3_bind_int64(set_cursor.get(), 4, series);
    step(set_cursor.get());
}

void Database::begin() {
    run("BEGIN IMMEDIATE");
}

void Database::commit() {
    run("COMMIT");
}

}  // namespace ctl
