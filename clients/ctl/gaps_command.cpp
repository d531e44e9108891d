#include <algorithm>

#include <fmt/format.h>
#include <json/value.h>

#include "contract/gaps.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "ctl/archive_words.h"

namespace ctl {

namespace {

using contract::Gaps;

Json::Value json_of(const std::vector<std::string>& texts) {
    Json::Value array(Json::arrayValue);
    for (const std::string& text : texts) array.append(contract::valid_utf8(text));
    return array;
}

Json::Value json_of(const Gaps& gaps, const ArchiveWords& words) {
    Json::Value whole;
    whole["meter"] = contract::valid_utf8(words.meter().uuid);
    whole["system"] = words.meter().system;
    whole["kind"] = std::string(text_of(words.kind()));
    whole["from"] = gaps.from ? Json::Value(Json::Int64(*gaps.from)) : Json::Value();
    whole["to"] = gaps.to ? Json::Value(Json::Int64(*gaps.to)) : Json::Value();
    whole["expected"] = Json::UInt64(gaps.expected);
    whole["present"] = Json::UInt64(gaps.present);
    whole["unreadable"] = Json::UInt64(gaps.unreadable);
    whole["holes"] = whole["incomplete"] = whole["contradictions"] = Json::arrayValue;
    for (const Gaps::Hole& hole : gaps.holes) {
        Json::Value& entry = whole["holes"].append(Json::objectValue);
        entry["from"] = Json::Int64(hole.from);
        entry["to"] = Json::Int64(hole.to);
        entry["count"] = Json::UInt64(hole.count);
    }
    for (const Gaps::Incomplete& record : gaps.incomplete) {
        Json::Value& entry = whole["incomplete"].append(Json::objectValue);
        entry["time"] = Json::Int64(record.time);
        entry["missing"] = json_of(record.missing);
    }
    for (const Gaps::Contradiction& contradiction : gaps.contradictions) {
        Json::Value& entry = whole["contradictions"].append(Json::objectValue);
        entry["time"] = Json::Int64(contradiction.time);
        entry["name"] = contract::valid_utf8(contradiction.name);
        entry["values"] = json_of(contradiction.values);
    }
    return whole;
}

/// Neighbours that lack the same are told together.
void print_incomplete(const Gaps& gaps, const Console& console, Output& out) {
    for (std::size_t i = 0; i < gaps.incomplete.size();) {
        const Gaps::Incomplete& first = gaps.incomplete[i];
        std::size_t end = i + 1;
        while (end < gaps.incomplete.size() && gaps.incomplete[end].missing == first.missing) ++end;
        const std::string names = contract::for_terminal(fmt::format("{}", fmt::join(first.missing, ", ")));
        if (end - i == 1) {
            out << fmt::format("incomplete  {}: without {}\n", console.time_text(first.time), names);
        } else {
            out << fmt::format("incomplete  {} to {}: {} records without {}\n", console.time_text(first.time),
                               console.time_text(gaps.incomplete[end - 1].time), end - i, names);
        }
        i = end;
    }
}

void print_text(const Gaps& gaps, const Console& console) {
    Output out;
    out << fmt::format("{} of {} records", gaps.present, gaps.expected);
    if (gaps.from && gaps.to) {
        out << fmt::format(", {} to {}", console.time_text(*gaps.from), console.time_text(*gaps.to));
    }
    out << '\n';
    for (const Gaps::Hole& hole : gaps.holes) {
        out << fmt::format("hole        {} to {}: {} missing\n", console.time_text(hole.from),
                           console.time_text(hole.to), hole.count);
    }
    print_incomplete(gaps, console, out);
    for (const Gaps::Contradiction& contradiction : gaps.contradictions) {
        out << fmt::format("twice       {} {}: {}\n", console.time_text(contradiction.time),
                           contract::for_terminal(contradiction.name),
                           contract::for_terminal(fmt::format("{}", fmt::join(contradiction.values, ", "))));
    }
    if (gaps.unreadable != 0) out << fmt::format("unreadable  {} lines\n", gaps.unreadable);
    out.flush();
}

int run_gaps(const ArchiveWords& words, const Console& console) {
    const contract::MeterSystem meter = words.meter();
    const std::string folder = words.folder();
    const auto names = words.names.empty() ? contract::archive_names(folder, words.kind()) : words.names;
    const auto is_there = [&folder](const std::string& name) {
        return contract::open_for_reading(folder + '/' + name).is_open();
    };
    if (std::ranges::none_of(names, is_there)) {
        throw Failure{fmt::format("{}/{} has no {} archive{} in {}. `heatmeterctl list` tells what there is",
                                  meter.uuid, meter.system, text_of(words.kind()),
                                  words.names.empty() ? "" : " of these names", folder)};
    }
    const bool staged = !folder.ends_with("/tc_archives");
    const Gaps gaps = contract::find_gaps(folder, words.kind(), words.question(console), staged);
    if (gaps.has_changed) throw Failure{"a file was emptied or replaced while it was read: ask again"};
    if (console.json) {
        print_json(json_of(gaps, words));
    } else {
        print_text(gaps, console);
    }
    return gaps.any() ? Finding : Done;
}

}  // namespace

Command gaps_command(CLI::App& app, Console& console) {
    const auto words = std::make_shared<ArchiveWords>();
    CLI::App* const command = app.add_subcommand(
        "gaps", "missing records, records without some of their values, times with two values, torn lines");
    add_span_options(*command, *words);
    add_kind_options(*command, *words);
    command->add_option("--names", words->names, "archives that belong to a record; all that there are without it")
        ->delimiter(',')
        ->type_name("A1,A12");
    add_output_options(*command, console);
    return {command, [words, &console] { return run_gaps(*words, console); }};
}

}  // namespace ctl
