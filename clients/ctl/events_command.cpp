#include <fmt/format.h>
#include <json/value.h>

#include "contract/events.h"
#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "core/files.h"
#include "ctl/archive_words.h"

namespace ctl {

namespace {

int run_events(const ArchiveWords& words, const Console& console) {
    const contract::MeterSystem meter = words.meter();
    const std::string folder = words.folder();
    if (!exists(folder + "/_A57")) {
        throw Failure{fmt::format("{}/{} has no event archive in {}", meter.uuid, meter.system, folder)};
    }
    std::size_t unreadable = 0;
    const auto events = contract::read_events(folder, words.question(console).span, unreadable);
    if (console.json) {
        Json::Value whole;
        whole["meter"] = contract::valid_utf8(meter.uuid);
        whole["system"] = meter.system;
        whole["events"] = Json::arrayValue;
        for (const contract::Event& event : events) {
            Json::Value& entry = whole["events"].append(Json::objectValue);
            entry["code"] = event.code;
            entry["begin"] = event.begin ? Json::Value(Json::Int64(*event.begin)) : Json::Value();
            entry["end"] = event.end ? Json::Value(Json::Int64(*event.end)) : Json::Value();
        }
        whole["unreadable"] = Json::UInt64(unreadable);
        print_json(whole);
        return Done;
    }
    std::vector<std::vector<std::string>> rows;
    rows.reserve(events.size());
    for (const contract::Event& event : events) {
        rows.push_back({event.code, event.begin ? console.time_text(*event.begin) : "-",
                        event.end ? console.time_text(*event.end) : "-",
                        event.begin && event.end ? contract::duration_text(*event.end - *event.begin) : ""});
    }
    print_table({">code", "begin", "end", ">lasted"}, rows, console);
    if (unreadable != 0)
        std::fputs(fmt::format("heatmeterctl: {} lines could not be read\n", unreadable).c_str(), stderr);
    return Done;
}

}  // namespace

Command events_command(CLI::App& app, Console& console) {
    const auto words = std::make_shared<ArchiveWords>();
    CLI::App* const command = app.add_subcommand("events", "what the meter has noted, with begin and end");
    add_span_options(*command, *words);
    add_output_options(*command, console);
    return {command, [words, &console] { return run_events(*words, console); }};
}

}  // namespace ctl
