#include <algorithm>

#include <fmt/format.h>

#include "contract/installation.h"
#include "contract/items.h"
#include "contract/json.h"
#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "contract/units.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

int run_values(const std::string& place, const std::vector<std::string>& names, const Console& console) {
    const contract::MeterSystem meter = meter_system_of(place);
    const contract::Family family = contract::look_at_family(meter.uuid);
    std::vector<contract::Item> items;
    std::vector<std::string> missing;
    if (names.empty()) items = contract::read_items(meter.uuid, meter.system, family);
    for (const std::string& name : names) {
        auto item =
            contract::is_meter_name(name) ? contract::read_item(meter.uuid, meter.system, name, family) : std::nullopt;
        if (item) {
            items.push_back(std::move(*item));
        } else {
            missing.push_back(name);
        }
    }
    if (items.empty() && missing.empty()) {
        throw Failure{fmt::format("{}/{} has no values below /tmp. `heatmeterctl list` tells what there is", meter.uuid,
                                  meter.system)};
    }
    const contract::Units units = contract::read_units();
    if (console.json) {
        Json::Value values(Json::arrayValue);
        for (const contract::Item& item : items) {
            values.append(contract::json_of(item, units.unit_of(meter.uuid, meter.system, item)));
        }
        Json::Value whole;
        whole["values"] = std::move(values);
        print_json(whole);
    } else {
        std::vector<std::vector<std::string>> rows;
        rows.reserve(items.size());
        for (const contract::Item& item : items) {
            rows.push_back(
                {item.name, item.text, units.unit_of(meter.uuid, meter.system, item),
                 console.epoch ? std::to_string(item.time) : contract::duration_text(console.now - item.time),
                 item.entry != nullptr ? std::string(item.entry->title) : "not in the catalogue"});
        }
        print_table({"name", ">value", "unit", console.epoch ? ">time" : ">age", "title"}, rows, console);
    }
    if (!missing.empty()) {
        throw Failure{fmt::format("no value {} of {}/{}", fmt::join(missing, ", "), meter.uuid, meter.system)};
    }
    return Done;
}

}  // namespace

Command values_command(CLI::App& app, Console& console) {
    struct Words {
        std::string place;
        std::vector<std::string> names;
    };
    const auto words = std::make_shared<Words>();
    CLI::App* const command = app.add_subcommand("values", "present values of a meter, with title, unit and age");
    command->add_option("METER", words->place, "uuid, or uuid/system")->required();
    command->add_option("NAME", words->names, "items; all without any");
    add_output_options(*command, console);
    return {command, [words, &console] { return run_values(words->place, words->names, console); }};
}

}  // namespace ctl
