#include <fmt/format.h>
#include <json/writer.h>

#include "contract/moments.h"
#include "contract/plain_text.h"
#include "ctl/archive_words.h"

namespace ctl {

namespace {

using contract::ArchiveCell;
using contract::ArchiveKind;
using contract::ArchiveTable;

struct Words : ArchiveWords {
    std::string format = "table";
    std::string by = "time";
    bool good = false;
    bool as_long = false;
    bool quality = false;
};

/// A number as it stands, or null for what JSON has no number for. JSON knows no zeros in front of one.
std::string json_number(std::string_view text) {
    if (text.ends_with('f') || text.ends_with('n')) return "null";
    const bool negative = text.starts_with('-');
    if (negative) text.remove_prefix(1);
    const std::size_t digits = text.find('.');
    text.remove_prefix(std::min(text.find_first_not_of('0'), digits - 1));
    return (negative ? "-" : "") + std::string(text);
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

/// The column of times.
class Times {
  public:
    explicit Times(const Console& form) : console(form) {}
    std::string_view of(std::int64_t moment) {
        if (!console.epoch) return texts.of(moment);
        seconds = std::to_string(moment);
        return seconds;
    }

  private:
    const Console& console;
    contract::MomentTexts texts;
    std::string seconds;
};

void print_csv(ArchiveTable& table, bool quality, Output& out, const Console& console) {
    out << "time";
    for (const std::string& name : table.names()) {
        out << ',' << csv_name(name);
        if (quality) out << ',' << csv_name(name + ".q");
    }
    out << '\n';
    Times time(console);
    while (table.next()) {
        out << time.of(table.time());
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
    Times time(console);
    while (table.next()) {
        const std::string_view when = time.of(table.time());
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
        std::vector<std::string> row = {console.time_text(table.time())};
        for (const ArchiveCell& cell : table.cells()) {
            row.push_back(cell.there ? std::string(cell.value) + (cell.quality == 192 ? " " : "!") : "");
        }
        rows.push_back(std::move(row));
        if (rows.size() < RowsAtOnce) continue;
        printed.print(rows);
        rows.clear();
    }
    printed.print(rows);
}

int run_archive(const Words& words, const Console& console) {
    const contract::MeterSystem meter = words.meter();
    contract::ArchiveQuestion question = words.question(console);
    question.good = words.good;
    question.by_record = words.by == "record";
    ArchiveTable table(words.folder(), words.kind(), question);
    if (table.names().empty() || !table.is_open()) {
        throw Failure{fmt::format("{}/{} has no {} archive{} in {}. `heatmeterctl list` tells what there is",
                                  meter.uuid, meter.system, text_of(words.kind()),
                                  words.names.empty() ? "" : " of these names", words.folder())};
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
    tell_unreadable(table);
    return Done;
}

}  // namespace

Command archive_command(CLI::App& app, Console& console) {
    const auto words = std::make_shared<Words>();
    CLI::App* const command = app.add_subcommand("archive", "stored records, a row for each time");
    add_span_options(*command, *words);
    CLI::Option* const daily = add_kind_options(*command, *words);
    command->add_flag("--events", words->events, "event records; see also the command events")
        ->excludes(daily)
        ->excludes(command->get_option("--hourly"));
    command->add_option("--names", words->names, "archives, with commas between them; all that there are without it")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("A1,A12");
    command->add_flag("--good", words->good, "values of quality 192 alone");
    command->add_flag("--long", words->as_long, "a line for each value: time,name,quality,value");
    command->add_flag("--quality", words->quality, "with --format csv: a column NAME.q behind each name");
    command->add_option("--by", words->by, "record: what belongs to one record of the meter in one row, under its end")
        ->check(CLI::IsMember({"time", "record"}));
    command->add_option("--format", words->format, "table, csv or json")
        ->check(CLI::IsMember({"table", "csv", "json"}));
    add_output_options(*command, console);
    return {command, [words, &console] { return run_archive(*words, console); }};
}

}  // namespace ctl
