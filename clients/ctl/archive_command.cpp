#include <fmt/format.h>

#include "contract/archive_text.h"
#include "ctl/archive_words.h"

namespace ctl {

namespace {

using contract::ArchiveCell;
using contract::ArchiveTable;

struct Words : ArchiveWords {
    std::string format = "table";
    std::string by = "time";
    bool good = false;
    bool as_long = false;
    bool quality = false;
};

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
    using Form = contract::ArchiveText::Form;
    if (words.format == "table" && !words.as_long && !console.json) {
        print_rows(table, console);
    } else {
        const bool json = words.format == "json" || console.json;
        contract::ArchiveText text(table, {.form = json            ? Form::Json
                                                   : words.as_long ? Form::Long
                                                                   : Form::Csv,
                                           .meter = meter,
                                           .kind = words.kind(),
                                           .quality = words.quality,
                                           .epoch = console.epoch});
        Output out;
        for (std::string piece; text.next(piece); piece.clear()) out << piece;
        out.flush();
    }
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
