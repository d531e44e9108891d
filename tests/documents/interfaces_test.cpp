// What docs/interfaces.md tells of items, archives and logs, against what simulated runs of every model leave behind.

#include <regex>

#include <gtest/gtest.h>

#include "documents/markdown_tables.h"
#include "drivers/vist/vist_packet.h"
#include "drivers/vist_modbus/hcd_vistmodbus.h"
#include "km5_meter.h"
#include "support/family_runs.h"
#include "support/start.h"

namespace {

using Names = std::set<std::string>;

constexpr const char* Items = "## Item files";
constexpr const char* Archives = "## Archive files";

std::vector<TableRow> rows(const std::string& section, const std::string& part, const std::string& first) {
    return table_rows(HEATMETERD_DOCS "/interfaces.md", section, part, first);
}

template <typename Map>
Names keys(const Map& map) {
    Names names;
    for (const auto& [name, value] : map) names.insert(name);
    return names;
}

/// What `all` has and `some` has not, in a line.
std::string missing(const Names& some, const Names& all) {
    std::string text;
    for (const std::string& name : all) text += some.contains(name) ? "" : " " + name;
    return text;
}

void expect_same(const Names& told, const Names& found, const std::string& of) {
    EXPECT_EQ(missing(told, found), "") << "left behind, and not in the table: " << of;
    EXPECT_EQ(missing(found, told), "") << "in the table, and not left behind: " << of;
}

/// By the word of the table; a string may be anything.
bool is_of_kind(const std::string& text, const std::string& kind) {
    static const std::map<std::string, std::regex> Forms = {
        {"int", std::regex("-?\\d+\n")},    {"long", std::regex("-?\\d+\n")},
        {"unsigned", std::regex("\\d+\n")}, {"double", std::regex("(-?\\d+\\.\\d{6}|-?inf|-?nan)\n")},
        {"string", std::regex("[^]*\n")},
    };
    return std::regex_match(text, Forms.at(kind));
}

class Documented : public ::testing::TestWithParam<const char*> {
  protected:
    std::string heading() const { return std::string("### ") + GetParam() + " family"; }

    void look_at_items() const;
    void look_at_archives() const;
    void look_at_times(const TableRow& row, const std::string& column, std::time_t period) const;
    void look_at_models() const;
    void look_at_state_and_logs() const;

    const std::vector<MeterRun> runs = family_runs(GetParam());
    const Traces all = sum_of(runs);
};

void Documented::look_at_items() const {
    std::vector<TableRow> told = rows(Items, heading(), "item");
    for (TableRow& row : rows(Items, "### Of every driver", "item")) {
        const std::string& kind = row["kind"];
        if (kind.find(',') != std::string::npos) row["kind"] = std::string(GetParam()) == "KM5" ? "double" : "string";
        told.push_back(row);
    }
    expect_same(names_of(told, "item"), keys(all.items), "items");
    for (const TableRow& row : told) {
        for (const std::string& name : names_in_cell(row.at("item"))) {
            if (!all.items.contains(name)) continue;
            for (const std::string& text : all.items.at(name)) {
                EXPECT_TRUE(is_of_kind(text, row.at("kind"))) << name << " is " << text;
            }
        }
    }
}

void Documented::look_at_archives() const {
    const std::vector<TableRow> told = rows(Archives, heading(), "hourly");
    const std::vector<TableRow> others = rows(Archives, heading(), "other file");
    Names files = names_of(told, "hourly");
    files.merge(names_of(told, "daily"));
    files.merge(names_of(others, "other file"));
    Names found = keys(all.archives);
    found.insert(all.marks.begin(), all.marks.end());
    expect_same(files, found, "archive files");
    for (const TableRow& row : told) {
        look_at_times(row, "hourly", 3600);
        look_at_times(row, "daily", 86400);
    }
    const bool stages = std::string(GetParam()).starts_with("VIST");
    for (const auto& [name, folders] : all.folders) {
        EXPECT_EQ(folders, stages ? Names({"tmp_archives", "tc_tmp_archives"}) : Names({"tc_archives"})) << name;
    }
}

/// Full hours or days; the last record's end is the newest hour or midnight of the run, its beginning a period before.
void Documented::look_at_times(const TableRow& row, const std::string& column, std::time_t period) const {
    const std::string& dated = row.at("dated");
    ASSERT_TRUE(dated == "end" || dated == "beginning") << dated;
    for (const std::string& name : names_in_cell(row.at(column))) {
        if (!all.archives.contains(name)) continue;
        const std::set<std::time_t>& times = all.archives.at(name);
        for (const std::time_t time : times) EXPECT_EQ(time % period, 0) << name;
        const std::time_t end = newest_record_end(period);
        EXPECT_EQ(*times.rbegin(), dated == "end" ? end : end - period) << name;
    }
}

/// The tables that tell which model has what: exactly that.
void Documented::look_at_models() const {
    const auto look = [this](const std::string& section, const std::string& first, const std::string& column,
                             const auto& found) {
        for (const TableRow& row : rows(section, heading(), first)) {
            Names told;
            for (const std::string& name : names_in_cell(row.at(column))) told.insert(name);
            for (const std::string& model : names_in_cell(row.at(first))) {
                std::vector<MeterRun> of_model;
                std::copy_if(runs.begin(), runs.end(), std::back_inserter(of_model),
                             [&model](const MeterRun& run) { return run.model == model; });
                ASSERT_FALSE(of_model.empty()) << model;
                expect_same(told, found(sum_of(of_model)), model + ", " + column);
            }
        }
    };
    const auto filed = [this](const std::string& column) {
        const Names of_column = names_of(rows(Archives, heading(), "hourly"), column);
        return [of_column](const Traces& traces) {
            Names names = keys(traces.archives);
            std::erase_if(names, [&of_column](const std::string& name) { return !of_column.contains(name); });
            return names;
        };
    };
    Names of_a_model;
    for (const TableRow& row : rows(Items, heading(), "firmware")) {
        for (const std::string& name : names_in_cell(row.at("present values"))) of_a_model.insert(name);
    }
    look(Items, "firmware", "present values", [&of_a_model](const Traces& traces) {
        Names names = keys(traces.items);
        std::erase_if(names, [&of_a_model](const std::string& name) { return !of_a_model.contains(name); });
        return names;
    });
    look(Archives, "firmware", "hourly files", filed("hourly"));
    look(Archives, "firmware", "daily files", filed("daily"));
    look(Archives, "model", "files of an hourly record; those of a daily one have numbers 28 higher", filed("hourly"));
    look(Archives, "model", "files of an hourly record; those of a daily one have numbers 28 higher",
         [&filed](const Traces& traces) {
             Names names;
             for (const std::string& daily : filed("daily")(traces)) {
                 names.insert("A" + std::to_string(std::stoi(daily.substr(1)) - 28));
             }
             return names;
         });
}

void Documented::look_at_state_and_logs() const {
    EXPECT_EQ(all.has_state, std::string(GetParam()) == "KM5");
    Names told;
    for (const TableRow& row : rows("## State and logs", "", "log")) {
        const std::string families = ", " + row.at("families") + ",";
        if (families.find(std::string(", ") + GetParam() + ",") == std::string::npos) continue;
        for (const std::string& name : names_in_cell(row.at("log"))) told.insert(name);
    }
    expect_same(told, all.logs, "logs");
}

TEST_P(Documented, FamilyLeavesBehindWhatTheTablesTell) {
    look_at_items();
    look_at_archives();
    look_at_models();
    look_at_state_and_logs();
}

INSTANTIATE_TEST_SUITE_P(Families, Documented, ::testing::Values("KM5", "VIST", "VIST Modbus", "SA-94"),
                         [](const auto& family) {
                             std::string name = family.param;
                             std::erase_if(name, [](char letter) { return letter == ' ' || letter == '-'; });
                             return name;
                         });

/// The bits "byte.bit" of a cell as one word.
std::uint32_t word_of(const std::string& cell) {
    static const std::regex Bit("(\\d)\\.(\\d)");
    std::uint32_t word = 0;
    for (std::sregex_iterator bit(cell.begin(), cell.end(), Bit), end; bit != end; ++bit) {
        word |= 1U << (8 * std::stoi((*bit)[1]) + std::stoi((*bit)[2]));
    }
    return word;
}

/// The daemon's first items of a KM5 whose status has this one bit set.
std::string km5_item(unsigned byte, unsigned bit, const std::string& name) {
    sim::Km5Config config{.status = {}};
    config.status.at(byte - 1) = static_cast<std::uint8_t>(1U << bit);
    sim::Km5Meter meter(config);
    Scene scene("2024-03-06 10:05:00");
    scene.gateway.connect("/dev/ttyS1", meter);
    scene.service.set_meter("u1", {.serial = config.serial, .port_name = "/dev/ttyS1", .system_types = {"heat"}});
    start_process(scene, {"KM5", "-r", "u1"}, 20);
    return scene.item("u1", 1, name).value_or("none");
}

TEST(DocumentedStatusBits, OfAKm5AreThoseThatItsStatusIsTranslatedTo) {
    for (unsigned byte = 1; byte < 8; ++byte) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            const std::string place = std::to_string(byte) + "." + std::to_string(bit);
            std::uint32_t told = 0;
            for (const TableRow& row : rows(Items, "### Status bits", "ER")) {
                if ((" " + row.at("KM5") + " ").find(" " + place + " ") == std::string::npos) continue;
                told |= static_cast<std::uint32_t>(std::stoul(row.at("ER"), nullptr, 16));
            }
            EXPECT_EQ(km5_item(byte, bit, "ER"), std::to_string(told) + "\n") << place;
        }
    }
    EXPECT_EQ(km5_item(7, 7, "EG"), std::to_string((1ULL << 63U) + 8) + "\n") << "byte 0 is always 8";
}

TEST(DocumentedStatusBits, OfAVistAreThoseThatItsStatusIsTranslatedTo) {
    const std::vector<TableRow> told = rows(Items, "### Status bits", "ER");
    ASSERT_FALSE(told.empty());
    for (unsigned bit = 0; bit < 32; ++bit) {
        const std::uint32_t status = 1U << bit;
        std::uint32_t present = 0;
        std::uint32_t archived = 0;
        std::uint32_t modbus = 0;
        for (const TableRow& row : told) {
            const auto er = static_cast<std::uint32_t>(std::stoul(row.at("ER"), nullptr, 16));
            const std::string& vist = row.at("VIST");
            if ((word_of(vist) & status) != 0) archived |= er;
            if ((word_of(vist) & status) != 0 && !vist.ends_with("in archives")) present |= er;
            if ((word_of(row.at("VIST Modbus")) & status) != 0) modbus |= er;
        }
        std::array<std::uint8_t, 4> bytes{};
        bytes.at(bit / 8) = static_cast<std::uint8_t>(1U << bit % 8);
        EXPECT_EQ(convert_errors(bytes, false), present) << "bit " << bit;
        EXPECT_EQ(convert_errors(bytes, true), archived) << "bit " << bit;
        EXPECT_EQ(convert_status(status), modbus) << "bit " << bit;
    }
}

}  // namespace
