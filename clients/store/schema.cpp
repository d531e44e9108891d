#include "store/schema.h"

#include <algorithm>
#include <chrono>

#include <fmt/format.h>

namespace store {

namespace {

constexpr int MonthsUntil2000 = 30 * 12;

/// Nobody else is in here at the same time; ends with its transaction.
constexpr const char* Lock = "SELECT pg_advisory_xact_lock(hashtext('heatmeter-store schema'))";

}  // namespace

int migrate(Database& database) {
    // Without this look a store that starts would wait for the transactions of others.
    const auto newest = [&database] {
        return database.run("SELECT coalesce(max(number), 0) FROM schema_version").number(0, 0);
    };
    const bool is_new =
        database.run("SELECT to_regclass('schema_version') IS NULL").text(0, 0) == std::string_view("t");
    if (!is_new && newest() >= migrations().back().number) return 0;
    if (is_new) {
        database.run_all("BEGIN");
        database.run(Lock);
        database.run_all(
            "CREATE TABLE IF NOT EXISTS schema_version"
            " (number integer PRIMARY KEY, name text NOT NULL, applied timestamptz NOT NULL DEFAULT now())");
        database.run_all("COMMIT");
    }
    int count = 0;
    for (const Migration& migration : migrations()) {
        database.run_all("BEGIN");
        database.run(Lock);
        if (newest() < migration.number) {
            database.run_all(std::string(migration.sql));
            database.run("INSERT INTO schema_version (number, name) VALUES ($1::integer, $2)",
                         {std::to_string(migration.number), migration.name});
            ++count;
        }
        database.run_all("COMMIT");
    }
    return count;
}

int stream_number(Database& database, const std::string& name, std::int64_t created) {
    const std::string moment = std::to_string(created);
    database.run_all("BEGIN");
    database.run(Lock);
    database.run(
        "INSERT INTO stream SELECT coalesce(max(number), 0) + 1, $1, $2::bigint FROM stream"
        " HAVING NOT EXISTS (SELECT FROM stream WHERE name = $1 AND created = $2::bigint)",
        {name, moment});
    const auto number =
        database.run("SELECT number FROM stream WHERE name = $1 AND created = $2::bigint", {name, moment}).number(0, 0);
    database.run_all("COMMIT");
    return static_cast<int>(number);
}

int Months::month_of(std::int64_t time) {
    const auto day = std::chrono::floor<std::chrono::days>(std::chrono::sys_seconds(std::chrono::seconds(time)));
    const std::chrono::year_month_day date(day);
    return (static_cast<int>(date.year()) - 1970) * 12 + static_cast<int>(static_cast<unsigned>(date.month())) - 1;
}

void Months::make(Database& database, const std::set<int>& months) {
    for (const int month : months) {
        if (month < MonthsUntil2000 || known.contains(month)) continue;
        database.run("SELECT make_month($1::date)", {fmt::format("{}-{:02}-01", 1970 + month / 12, month % 12 + 1)});
        known.insert(month);
    }
}

void Months::make_ahead(Database& database) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const int month = month_of(std::chrono::duration_cast<std::chrono::seconds>(now).count());
    make(database, {month, month + 1, month + 2});
}

}  // namespace store
