// The views for people name what the catalogue names, and date it as the catalogue does.

#include <algorithm>
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "contract/catalogue.h"
#include "store/schema.h"

namespace {

using contract::ArchiveKind;

/// The text of one view, and of its columns' comments.
std::string view(const std::string& name) {
    std::string text;  // the last one's
    for (const store::Migration& migration : store::migrations()) {
        const std::size_t begin = migration.sql.find("CREATE VIEW " + name + " AS");
        if (begin == std::string_view::npos) continue;
        text = migration.sql.substr(begin, migration.sql.find("CREATE VIEW", begin + 1) - begin);
    }
    return text;
}

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// The names in the list behind "name IN (".
std::string list_in(const std::string& text) {
    const std::size_t begin = text.find("name IN (");
    return begin == std::string::npos ? "" : text.substr(begin, text.find(')', begin) - begin);
}

std::size_t names_in(const std::string& list) {
    return static_cast<std::size_t>(std::ranges::count(list, '\'')) / 2;
}

TEST(StoreViews, HaveAColumnForEachNameOfTheCatalogue) {
    for (const contract::ArchiveEntry& entry : contract::archives()) {
        if (entry.kind == ArchiveKind::Events) continue;
        const std::string record = entry.kind == ArchiveKind::Hourly ? "hourly_record" : "daily_record";
        const std::string text = view(record);
        EXPECT_TRUE(holds(text, fmt::format("FILTER (WHERE name = '{0}') AS {0}", entry.name))) << entry.name;
        EXPECT_TRUE(holds(text, fmt::format("{}.{} IS '{}';", record, entry.name, entry.title))) << entry.name;
        EXPECT_EQ(holds(list_in(text), fmt::format("'{}'", entry.name)), entry.dating == contract::Dating::End)
            << entry.name;
    }
}

TEST(StoreViews, CountConsumptionAndGapsByTheTotals) {
    std::size_t totals = 0;
    for (const contract::ArchiveEntry& entry : contract::archives()) {
        const bool is_total = entry.nature == contract::Nature::Counter;
        totals += is_total ? 1 : 0;
        for (const char* const name : {"monthly_consumption", "record_gap"}) {
            EXPECT_EQ(holds(list_in(view(name)), fmt::format("'{}'", entry.name)), is_total) << entry.name;
        }
    }
    EXPECT_EQ(names_in(list_in(view("monthly_consumption"))), totals);
    EXPECT_EQ(names_in(list_in(view("record_gap"))), totals);
}

}  // namespace
