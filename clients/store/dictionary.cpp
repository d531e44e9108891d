#include "store/dictionary.h"

#include <map>
#include <set>

#include <fmt/format.h>

namespace store {

namespace {

constexpr std::size_t MostKnown = 500'000;  // about 100 MB

/// One row for each: by its place a number is of its text.
void expect_rows(const Result& found, std::size_t count) {
    if (found.rows() != static_cast<int>(count)) throw DatabaseError("the dictionaries have changed meanwhile", "");
}

}  // namespace

std::string Dictionary::system_key(const Message& message) {
    std::string key;
    key.reserve(message.gateway.size() + message.meter.size() + 12);
    key.append(message.gateway).append(1, '\0').append(message.meter).append(1, '\0');
    return key.append(std::to_string(message.system));
}

Dictionary::Numbers& Dictionary::names_of(std::string_view kind) {
    return kind == "hourly" ? hourly : kind == "daily" ? daily : event;
}

std::int32_t Dictionary::name(std::string_view kind, const std::string& name) {
    return names_of(kind).at(name);
}

void Dictionary::forget() {
    for (Numbers* const numbers : {&systems, &hourly, &daily, &event}) numbers->clear();
}

void Dictionary::learn(Database& database, const std::vector<const Message*>& messages) {
    if (systems.size() > MostKnown || hourly.size() + daily.size() + event.size() > MostKnown) forget();
    learn_systems(database, messages);
    learn_names(database, messages);
}

// Both add in one order, so that two stores never wait for each other.

void Dictionary::learn_systems(Database& database, const std::vector<const Message*>& messages) {
    std::map<std::string, const Message*> unknown;
    for (const Message* const message : messages) {
        std::string key = system_key(*message);
        if (!systems.contains(key)) unknown.emplace(std::move(key), message);
    }
    if (unknown.empty()) return;
    TextArray gateways;
    TextArray meters;
    TextArray numbers;
    for (const auto& [key, message] : unknown) {
        gateways.add(message->gateway);
        meters.add(message->meter);
        numbers.add(std::to_string(message->system));
    }
    const auto run = [&](const char* sql) {
        return database.run(sql, {gateways.text(), meters.text(), numbers.text()});
    };
    const char* const look =
        "SELECT s.id FROM unnest($1::text[], $2::text[], $3::integer[]) WITH ORDINALITY AS w (gateway, meter, system, "
        "n)"
        " JOIN meter_system AS s USING (gateway, meter, system) ORDER BY w.n";
    Result found = run(look);
    if (found.rows() != static_cast<int>(unknown.size())) {
        run("INSERT INTO meter_system (gateway, meter, system) SELECT w.*"
            " FROM unnest($1::text[], $2::text[], $3::integer[]) AS w (gateway, meter, system)"
            " WHERE NOT EXISTS (SELECT FROM meter_system AS s WHERE (s.gateway, s.meter, s.system) ="
            " (w.gateway, w.meter, w.system)) ON CONFLICT DO NOTHING");
        found = run(look);
        expect_rows(found, unknown.size());
    }
    int row = 0;
    for (const auto& [key, message] : unknown) systems[key] = static_cast<std::int32_t>(found.number(row++, 0));
}

void Dictionary::learn_names(Database& database, const std::vector<const Message*>& messages) {
    std::set<std::pair<std::string_view, std::string_view>> unknown;
    for (const Message* const message : messages) {
        const Numbers& numbers = names_of(message->kind);
        for (const Line& line : message->lines) {
            if (!numbers.contains(line.name)) unknown.emplace(message->kind, line.name);
        }
    }
    if (unknown.empty()) return;
    TextArray kinds;
    TextArray names;
    for (const auto& [kind, name] : unknown) {
        kinds.add(kind);
        names.add(name);
    }
    database.run(
        "INSERT INTO archive_name (kind, name) SELECT w.* FROM unnest($1::text[], $2::text[]) AS w (kind, name)"
        " WHERE NOT EXISTS (SELECT FROM archive_name AS a WHERE (a.kind, a.name) = (w.kind, w.name))"
        " ON CONFLICT DO NOTHING",
        {kinds.text(), names.text()});
    const Result found = database.run(
        "SELECT a.id FROM unnest($1::text[], $2::text[]) WITH ORDINALITY AS w (kind, name, n)"
        " JOIN archive_name AS a USING (kind, name) ORDER BY w.n",
        {kinds.text(), names.text()});
    expect_rows(found, unknown.size());
    int row = 0;
    for (const auto& [kind, name] : unknown) {
        names_of(kind)[std::string(name)] = static_cast<std::int32_t>(found.number(row++, 0));
    }
}

}  // namespace store
