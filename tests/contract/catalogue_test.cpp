// The catalogue against what simulated runs of every model leave behind, and against docs/interfaces.md.

#include "contract/catalogue.h"

#include <gtest/gtest.h>

#include "documents/markdown_tables.h"
#include "support/family_runs.h"

using contract::ArchiveKind;
using contract::Dating;
using contract::Family;

namespace {

using Names = std::set<std::string>;

constexpr const char* Interfaces = HEATMETERD_DOCS "/interfaces.md";

std::string document_name(Family family) {
    switch (family) {
        case contract::VISTmodbus:
            return "VIST Modbus";
        case contract::SA94:
            return "SA-94";
        default:
            return std::string(family_name(family));
    }
}

class Catalogue : public testing::TestWithParam<Family> {
  protected:
    std::string heading() const { return "### " + document_name(GetParam()) + " family"; }
    bool is_mine(unsigned families) const { return (families & GetParam()) != 0; }
};

TEST_P(Catalogue, HoldsWhatEveryModelLeavesAndNothingElse) {
    const Traces left = sum_of(family_runs(document_name(GetParam())));
    Names items, archives;
    for (const auto& entry : contract::items()) {
        if (!is_mine(entry.families)) continue;
        EXPECT_TRUE(items.emplace(entry.name).second) << entry.name << " stands twice";
    }
    Names found;
    for (const auto& [name, texts] : left.items) found.insert(name);
    EXPECT_EQ(items, found);
    found.clear();
    for (const auto& [name, times] : left.archives) found.insert(name);
    for (const auto& entry : contract::archives()) {
        if (!is_mine(entry.families)) continue;
        const std::string name(entry.name);
        archives.insert(name);
        if (entry.kind == ArchiveKind::Events || !left.archives.contains(name)) continue;
        const std::time_t period = entry.kind == ArchiveKind::Hourly ? 3600 : 86400;
        const std::time_t end = newest_record_end(period);
        EXPECT_EQ(*left.archives.at(name).rbegin(), entry.dating == Dating::End ? end : end - period) << name;
    }
    EXPECT_EQ(archives, found);
}

TEST_P(Catalogue, AgreesWithTheDocument) {
    for (const TableRow& row : table_rows(Interfaces, "## Item files", heading(), "item")) {
        for (const std::string& name : names_in_cell(row.at("item"))) {
            const contract::ItemEntry* const entry = find_item(name, GetParam());
            ASSERT_NE(entry, nullptr) << name;
            EXPECT_EQ(entry->unit, row.at("unit")) << name;
        }
    }
    for (const TableRow& row : table_rows(Interfaces, "## Archive files", heading(), "hourly")) {
        for (const char* column : {"hourly", "daily"}) {
            for (const std::string& name : names_in_cell(row.at(column))) {
                const contract::ArchiveEntry* const entry = contract::find_archive(name);
                ASSERT_NE(entry, nullptr) << name;
                EXPECT_EQ(text_of(entry->kind), column) << name;
                EXPECT_EQ(text_of(entry->dating), row.at("dated")) << name;
                EXPECT_EQ(entry->unit, row.at("unit")) << name;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(OfEachFamily, Catalogue,
                         testing::Values(contract::KM5, contract::VIST, contract::VISTmodbus, contract::SA94),
                         [](const auto& family) { return std::string(family_name(family.param)); });

TEST(CatalogueNames, AFamilyIsKnownByTheDaemonsWords) {
    for (const char* word : {"KM5", "KM56i", "ATT", "km5"}) EXPECT_EQ(contract::family_of(word), contract::KM5) << word;
    EXPECT_EQ(contract::family_of("VISTmodbus"), contract::VISTmodbus);
    EXPECT_EQ(contract::family_of("VISTA"), contract::NoFamily);
}

}  // namespace
