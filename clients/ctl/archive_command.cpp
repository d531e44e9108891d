#include <fmt/format.h>
#include <json/writer.h>

#include "contract/archive_table.h"
#include "contract/items.h"
#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

using contract::ArchiveCell;
using contract::ArchiveKind;
using contract::ArchiveTable;

struct Words {
    std::string place;
    bool hourly = false;
    bool daily = false;
    bool events = false;
    std::string from, to;
    std::vector<std::string> names;
    std::string format = "table";
    std::string by = "time";
    bool good = false;
    bool as_long = false;
    bool quality = false;
    bool staged = false;

    ArchiveKind kind() const { return events ? ArchiveKind::Events : daily ? ArchiveKind::Daily : ArchiveKind::Hourly; }
};

/// A number as it stands, or null for what JSON has no number for.
std::string json_number(std::string_view text) {
    return text.ends_with('f') || text.ends_with('n') ? "null" : std::string(text);
}

std::string json_text(std::string_view text) {
    return Json::valueToQuotedString(contract::valid_utf8(text).c_str());
}

/// A name in a line of CSV: quoted where it would be read as something else.
std::string csv_name(const std::string& name) {
    if (name.find_first_of(",\"\r\n") == std::string::npos) return name;
    std::string text = "\"";
    for (const char letter : name) text += letter == '"' ? std::string("\"\"") : std::string(1, letter);
    return text + '"';
}

void print_csv(ArchiveTable& table, bool quality, Output& out, const Console& console) {
    out << "time";
    for (const std::string& name : table.names()) {
        out << ',' << csv_name(name);
        if (quality) out << ',' << csv_name(name + ".q");
    }
    out << '\n';
    while (table.next()) {
        out << console.time_text(table.time());
        for (const ArchiveCell& cell : table.cells()) {
            out << ',';
            if (cell.there) out << cell.value;
            if (!quality) continue;
            out << ',';
            if (cell.there) out << std::to_string(cell.quality);
        }
        out << '\n';
    }
}

void print_long(ArchiveTable& table, Output& out, const Console& console) {
    out << "time,name,quality,value\n";
    while (table.next()) {
        const std::string when = console.time_text(table.time());
        for (std::size_t i = 0; i < table.cells().size(); ++i) {
            const ArchiveCell& cell = table.cells()[i];
            if (!cell.there) continue;
            out << when << ',' << csv_name(table.names()[i]) << ',' << std::to_string(cell.quality) << ',' << cell.value
                << '\n';
        }
    }
}

void print_json_rows(ArchiveTable& table, const contract::MeterSystem& meter, ArchiveKind kind, Output& out) {
    out << R"({"meter":)" << json_text(meter.uuid) << R"(,"system":)" << std::to_string(meter.system) << R"(,"kind":")"
        << text_of(kind) << R"(","names":[)";
    std::string_view comma;
    for (const std::string& name : table.names()) {
        out << comma << json_text(name);
        comma = ",";
    }
    out << R"(],"rows":[)";
    comma = "";
    while (table.next()) {
        out << comma << '[' << std::to_string(table.time());
        for (const ArchiveCell& cell : table.cells()) out << ',' << (cell.there ? json_number(cell.value) : "null");
        out << ']';
        comma = ",";
    }
    out << "]}\n";
}

/// A table whose columns are as wide as what its first rows need, so that one of any length can be printed.
void print_rows(ArchiveTable& table, const Console& console) {
    constexpr std::size_t RowsAtOnce = 1000;
    std::vector<std::string> headings = {"time"};
    for (const std::string& name : table.names()) headings.push_back('>' + name);
    std::vector<std::vector<std::string>> rows;
    Table printed(headings, console);
    while (table.next()) {
        std::vector<std::string>& row = rows.emplace_back();
        row.push_back(console.time_text(table.time()));
        for (const ArchiveCell& cell : table.cells()) {
            row.push_back(cell.there ? std::string(cell.value) + (cell.quality == 192 ? " " : "!") : "");
        }
        if (rows.size() < RowsAtOnce) continue;
        printed.print(rows);
        rows.clear();
    }
    printed.print(rows);
}

int run_archive(const Words& words, const Console& console) {
    const contract::MeterSystem meter = meter_system_of(words.place);
    contract::ArchiveQuestion question;
    if (!words.from.empty()) question.span.from = moment_of(words.from, console);
    if (!words.to.empty()) question.span.to = moment_of(words.to, console);
    question.names = words.names;
    for (const std::string& name : words.names) {
        if (!contract::is_meter_name(name)) throw Failure{"no name of an archive: \"" + name + '"', Usage};
    }
    question.good = words.good;
    question.by_record = words.by == "record";
    const std::string folder = contract::archive_folder(meter.uuid, meter.system, words.staged);
    ArchiveTable table(folder, words.kind(), question);
    if (table.names().empty()) {
        throw Failure{
            fmt::format("{}/{} has no {} archive in {}", meter.uuid, meter.system, text_of(words.kind()), folder)};
    }
    Output out;
    if (words.format == "json" || console.json) {
        print_json_rows(table, meter, words.kind(), out);
    } else if (words.as_long) {
        print_long(table, out, console);
    } else if (words.format == "csv") {
        print_csv(table, words.quality, out, console);
    } else {
        print_rows(table, console);
    }
    out.flush();
    if (table.unreadable() != 0) {
        std::fputs(fmt::format("heatmeterctl: {} lines could not be read; `heatmeterctl gaps` tells more\n",
                               table.unreadable())
                       .c_str(),
                   stderr);
    }
    if (table.has_changed()) throw Failure{"a file was emptied or replaced while it was read: ask again"};
    return Done;
}

}  // namespace

Command archive_command(CLI::App& app, Console& console) {
    const auto words = std::make_shared<Words>();
    CLI::App* const command = app.add_subcommand("archive", "stored records, a row for each time");
    command->add_option("METER", words->place, "uuid, or uuid/system")->required();
    CLI::Option* const hourly = command->add_flag("--hourly", words->hourly, "hourly records, as without a kind");
    CLI::Option* const daily = command->add_flag("--daily", words->daily, "daily records")->excludes(hourly);
    command->add_flag("--events", words->events, "event records; see also the command events")
        ->excludes(hourly)
        ->excludes(daily);
    command->add_option("--from", words->from, "records from this time on")->type_name("TIME");
    command->add_option("--to", words->to, "records before this time")->type_name("TIME");
    command->add_option("--names", words->names, "archives, with commas between them; all that there are without it")
        ->delimiter(',')
        ->type_name("A1,A12");
    command->add_flag("--good", words->good, "values of quality 192 alone");
    command->add_flag("--long", words->as_long, "a line for each value: time,name,quality,value");
    command->add_flag("--quality", words->quality, "with --format csv: a column NAME.q behind each name");
    command->add_option("--by", words->by, "record: what belongs to one record of the meter in one row, under its end")
        ->check(CLI::IsMember({"time", "record"}));
    command->add_flag("--staged", words->staged, "the working folder of a driver that hands over whole passes");
    command->add_option("--format", words->format, "table, csv or json")
        ->check(CLI::IsMember({"table", "csv", "json"}));
    add_output_options(*command, console);
    return {command, [words, &console] { return run_archive(*words, console); }};
}

}  // namespace ctl
