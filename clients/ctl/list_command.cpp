#include <fmt/format.h>
#include <json/value.h>

#include "contract/archive_table.h"
#include "contract/installation.h"
#include "contract/items.h"
#include "contract/newest.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

Json::Value json_of(const std::optional<std::int64_t>& time) {
    return time ? Json::Value(Json::Int64(*time)) : Json::Value();
}

Json::Value json_of(const std::string& text) {
    return text.empty() ? Json::Value() : Json::Value(contract::valid_utf8(text));
}

int run_list(const Console& console) {
    const auto running = contract::processes();
    Json::Value meters(Json::arrayValue);
    std::vector<std::vector<std::string>> rows;
    for (const std::string& uuid : contract::meters()) {
        const contract::Meter meter = contract::look_at_meter(uuid, running);
        std::optional<std::int64_t> value, hourly, daily;
        for (const int system : meter.systems) {
            value = std::max(value, contract::newest_value(contract::read_items(uuid, system)));
            hourly = std::max(hourly, contract::newest_record(uuid, system, contract::ArchiveKind::Hourly));
            daily = std::max(daily, contract::newest_record(uuid, system, contract::ArchiveKind::Daily));
        }
        if (console.json) {
            Json::Value& entry = meters.append(Json::objectValue);
            entry["uuid"] = contract::valid_utf8(uuid);
            entry["family"] = json_of(std::string(family_name(meter.family)));
            entry["model"] = json_of(meter.model);
            entry["serial"] = json_of(meter.serial);
            entry["systems"] = Json::arrayValue;
            for (const int system : meter.systems) entry["systems"].append(system);
            entry["value"] = json_of(value);
            entry["hourly"] = json_of(hourly);
            entry["daily"] = json_of(daily);
            continue;
        }
        const auto text = [&console](const std::optional<std::int64_t>& time) {
            return time ? console.time_text(*time) : "-";
        };
        rows.push_back({uuid, std::string(family_name(meter.family)), meter.model, meter.serial,
                        fmt::format("{}", fmt::join(meter.systems, ",")), text(value), text(hourly), text(daily)});
    }
    if (console.json) {
        Json::Value whole;
        whole["meters"] = std::move(meters);
        print_json(whole);
    } else {
        print_table({"uuid", "family", "model", "serial", "systems", "newest value", "newest hour", "newest day"}, rows,
                    console);
    }
    return Done;
}

}  // namespace

Command list_command(CLI::App& app, Console& console) {
    CLI::App* const command = app.add_subcommand("list", "meters that have files here");
    add_output_options(*command, console);
    return {command, [&console] { return run_list(console); }};
}

}  // namespace ctl
