#include "uplink/value_messages.h"

#include <algorithm>
#include <array>
#include <map>

#include <fmt/format.h>
#include <json/value.h>

#include "contract/json.h"
#include "contract/plain_text.h"
#include "contract/units.h"
#include "uplink/mqtt_sink.h"
#include "uplink/topics.h"

namespace uplink {

namespace {

using contract::Quantity;

/// The units that Home Assistant knows for a class; with another one a value has none, and stays a plain number.
struct DeviceClass {
    Quantity quantity;
    std::string_view units;  // each with a blank on both sides
    const char* name;
};
constexpr auto DeviceClasses = std::to_array<DeviceClass>({
    {Quantity::Heat, " Wh kWh MWh GWh MJ GJ ", "energy"},
    {Quantity::Volume, " m³ L ", "volume"},
    {Quantity::Mass, " kg ", "weight"},
    {Quantity::Temperature, " °C K ", "temperature"},
    {Quantity::Pressure, " Pa kPa MPa bar mbar ", "pressure"},
    {Quantity::Flow, " m³/h L/min ", "volume_flow_rate"},
    {Quantity::Power, " W kW MW ", "power"},
    {Quantity::Time, " s min h d ", "duration"},
});

/// Letters, digits, '-' and '_': all that such a name may have. Two of them stay two.
std::string object_name(const std::string& text) {
    std::string name = subject_token(text);
    std::ranges::replace(name, '%', '_');
    if (name == text) return name;
    std::uint32_t sum = 0x811C9DC5;  // FNV-1a: the same on every machine
    for (const char sign : text) sum = (sum ^ static_cast<unsigned char>(sign)) * 0x01000193;
    return fmt::format("{}_{:08x}", name, sum);
}

std::string system_topic(const Settings& settings, const std::string& uuid, int system) {
    return fmt::format("{}/{}/{}", MqttSink::base_topic(settings), topic_level(uuid), system);
}

}  // namespace

Message discovery_message(const Settings& settings, const Values::Value& value, const std::string& unit) {
    const contract::ItemEntry& entry = *value.item.entry;
    const std::string topic = system_topic(settings, value.uuid, value.system);
    const std::string device = object_name(settings.gateway) + '_' + object_name(value.uuid);
    const std::string name = fmt::format("heatmeter_{}_{}_{}", device, value.system, object_name(value.item.name));
    Json::Value config;
    config["name"] = fmt::format("{} {}", entry.title, value.system);
    config["unique_id"] = name;
    config["state_topic"] = topic + "/value/" + topic_level(value.item.name);
    config["availability_topic"] = MqttSink::base_topic(settings) + "/status";
    const bool is_number = entry.quantity != Quantity::Text && contract::number_in(value.item.text).has_value();
    if (is_number && !unit.empty()) config["unit_of_measurement"] = unit;
    if (is_number && entry.quantity != Quantity::Setting && entry.quantity != Quantity::State) {
        const bool is_clock = value.item.name == "MDateTime";
        const auto found = std::ranges::find_if(DeviceClasses, [&](const DeviceClass& one) {
            return one.quantity == entry.quantity && one.units.find(' ' + unit + ' ') != std::string_view::npos;
        });
        if (found != DeviceClasses.end() && !unit.empty() && !is_clock) config["device_class"] = found->name;
        if (!is_clock) {
            config["state_class"] = entry.nature == contract::Nature::Counter ? "total_increasing" : "measurement";
        }
    }
    if (entry.quantity == Quantity::Setting || entry.quantity == Quantity::Text)
        config["entity_category"] = "diagnostic";
    Json::Value& whole = config["device"];
    whole["identifiers"].append("heatmeter_" + device);
    whole["name"] = contract::valid_utf8(value.uuid);
    whole["via_device"] = "heatmeter_" + object_name(settings.gateway);
    return {
        .topic = "homeassistant/sensor/" + name + "/config", .body = contract::json_line(config), .is_retained = true};
}

void append_value_messages(const Settings& settings, const std::vector<Values::Value>& values,
                           std::vector<Message>& messages) {
    const contract::Units units = settings.discovery ? contract::read_units() : contract::Units();
    std::map<std::string, std::int64_t> newest;  // by topic
    for (const Values::Value& value : values) {
        const std::string topic = system_topic(settings, value.uuid, value.system);
        if (settings.discovery && value.is_first) {
            messages.push_back(discovery_message(settings, value, units.unit_of(value.uuid, value.system, value.item)));
        }
        messages.push_back({.topic = topic + "/value/" + topic_level(value.item.name),
                            .body = value.item.text,
                            .time = value.item.time,
                            .is_retained = true});
        std::int64_t& time = newest[topic];
        time = std::max(time, value.item.time);
    }
    for (const auto& [topic, time] : newest) {
        messages.push_back({.topic = topic + "/time", .body = std::to_string(time), .is_retained = true});
    }
}

}  // namespace uplink
