#include "contract/json.h"

#include <charconv>

#include <json/writer.h>

#include "contract/plain_text.h"

namespace contract {

namespace {

template <typename Number>
bool is_whole(const std::string& text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

template <typename Number>
Json::Value json_or_null(const std::optional<Number>& number) {
    return number ? Json::Value(Json::Int64(*number)) : Json::Value();
}

Json::Value words_of(const Verdict& verdict) {
    Json::Value words(Json::arrayValue);
    for (const auto& reason : verdict.reasons) words.append(reason.word);
    return words;
}

std::optional<std::int64_t> age(const std::optional<std::int64_t>& time, const Status& status) {
    return time ? std::optional(status.here.now - *time) : std::nullopt;
}

std::string_view text_of(ServiceState state) {
    switch (state) {
        case ServiceState::Answers:
            return "answers";
        case ServiceState::Off:
            return "off";
        case ServiceState::Silent:
            return "silent";
        case ServiceState::Nonsense:
            return "nonsense";
        default:
            return "";
    }
}

}  // namespace

std::string json_line(const Json::Value& value) {
    Json::StreamWriterBuilder form;
    form["indentation"] = "";
    std::string line = Json::writeString(form, value);
    for (std::size_t at = 0; (at = line.find('\x7F', at)) != std::string::npos;) line.replace(at, 1, R"(\u007f)");
    return line;
}

std::string json_text(std::string_view text) {
    return json_line(valid_utf8(text));
}

Json::Value json_or_null(const std::string& text) {
    return text.empty() ? Json::Value() : Json::Value(valid_utf8(text));
}

Json::Value json_value_of(const Item& item) {
    if (item.text.empty()) return {};
    const bool is_text = item.entry != nullptr && item.entry->quantity == Quantity::Text;
    const auto number = is_text ? std::nullopt : number_in(item.text);
    if (!number) return valid_utf8(item.text);
    Json::Int64 whole = 0;
    Json::UInt64 large = 0;
    if (is_whole(item.text, whole)) return whole;
    if (is_whole(item.text, large)) return large;
    return *number;
}

Json::Value json_of(const Item& item, const std::string& unit) {
    Json::Value value;
    value["name"] = valid_utf8(item.name);
    value["title"] = item.entry != nullptr ? std::string(item.entry->title) : "";
    value["value"] = json_value_of(item);
    value["unit"] = unit;
    value["time"] = Json::Int64(item.time);
    return value;
}

std::string state_of(const MeterFacts& meter, const SystemFacts& system) {
    const std::string state = driver_state(meter.meter.uuid);
    return state.empty() ? system.state : state;
}

Json::Value json_of(const Status& status) {
    Json::Value whole;
    whole["level"] = std::string(text_of(status.level));
    Json::Value& gateway = whole["gateway"];
    gateway["level"] = std::string(text_of(status.gateway.level));
    gateway["reasons"] = words_of(status.gateway);
    gateway["time"] = Json::Int64(status.here.now);
    const std::string service(text_of(status.here.service));
    gateway["service"] = json_or_null(service);
    Json::Value& storage = gateway["storage"];
    storage["there"] = status.here.storage.there;
    storage["mounted"] = status.here.live ? Json::Value(status.here.storage.mounted) : Json::Value();
    storage["writable"] =
        status.here.live ? Json::Value(status.here.storage.there && !status.here.storage.read_only) : Json::Value();
    storage["free"] = status.here.live ? Json::Value(Json::UInt64(status.here.storage.free)) : Json::Value();
    gateway["flags"] = Json::arrayValue;
    for (const Flag& flag : status.here.flags) {
        Json::Value& entry = gateway["flags"].append(Json::objectValue);
        entry["path"] = valid_utf8(flag.path);
        entry["owner"] = flag.owner;
        entry["since"] = Json::Int64(flag.since);
        entry["text"] = valid_utf8(flag.text);
    }
    whole["uplink"] = Json::Value();
    if (status.uplink) {
        Json::Value& sinks = whole["uplink"]["sinks"] = Json::arrayValue;
        for (const SinkBacklog& backlog : *status.uplink) {
            Json::Value& sink = sinks.append(Json::objectValue);
            sink["name"] = valid_utf8(backlog.name);
            sink["pending_bytes"] = Json::UInt64(backlog.pending_bytes);
            sink["oldest_s"] = json_or_null(backlog.oldest_s);
            sink["last_confirmed"] = json_or_null(backlog.last_confirmed);
        }
    }
    whole["meters"] = Json::arrayValue;
    for (const MeterStatus& meter : status.meters) {
        Json::Value& entry = whole["meters"].append(Json::objectValue);
        entry["uuid"] = valid_utf8(meter.facts.meter.uuid);
        entry["family"] = json_or_null(std::string(family_name(meter.facts.meter.family)));
        entry["model"] = json_or_null(meter.facts.meter.model);
        entry["serial"] = json_or_null(meter.facts.meter.serial);
        entry["level"] = std::string(text_of(meter.verdict.level));
        entry["reasons"] = words_of(meter.verdict);
        entry["process"] = Json::Value();
        if (!meter.facts.processes.empty()) {
            entry["process"]["pid"] = meter.facts.processes.front().pid;
            entry["process"]["port"] = json_or_null(meter.facts.processes.front().port);
        }
        entry["systems"] = Json::arrayValue;
        for (const SystemFacts& system : meter.facts.systems) {
            Json::Value& part = entry["systems"].append(Json::objectValue);
            part["n"] = system.n;
            part["connected"] = json_or_null(system.connected);
            part["age_s"] = json_or_null(age(system.value, status));
            part["clock_gap_s"] = json_or_null(clock_gap(system));
            part["state"] = json_or_null(state_of(meter.facts, system));
            part["hourly"]["newest"] = json_or_null(system.hourly);
            part["hourly"]["lag_s"] = json_or_null(lag_of(system, system.hourly));
            part["daily"]["newest"] = json_or_null(system.daily);
            part["daily"]["lag_s"] = json_or_null(lag_of(system, system.daily));
        }
    }
    return whole;
}

}  // namespace contract
