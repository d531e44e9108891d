#include "view/api.h"

#include <algorithm>

#include <fmt/format.h>

#include "contract/json.h"
#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/units.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "view/built_in.h"
#include "view/records.h"

namespace view {

namespace {

constexpr std::int64_t FreshLook = 10'000;        // milliseconds; for people
constexpr std::int64_t FreshForScrapes = 60'000;  // a scrape every 15 s looks at the processes once a minute

Json::Value json_of(const std::optional<std::int64_t>& number) {
    return number ? Json::Value(Json::Int64(*number)) : Json::Value();
}

Answer json_answer(const Json::Value& value) {
    return {.body = contract::json_line(value) + '\n'};
}

void put_verdict(Json::Value& into, const contract::Verdict& verdict) {
    into["level"] = std::string(text_of(verdict.level));
    into["reasons"] = Json::arrayValue;
    for (const contract::Reason& reason : verdict.reasons) {
        Json::Value& one = into["reasons"].append(Json::objectValue);
        one["word"] = reason.word;
        one["level"] = std::string(text_of(reason.level));
        one["text"] = contract::valid_utf8(reason.text);
        one["help"] = contract::valid_utf8(reason.help);
    }
}

/// What the page shows first: `status` with its reasons in words.
Json::Value overview_of(const contract::Status& status, std::int64_t now) {
    Json::Value whole;
    whole["time"] = Json::Int64(now);
    whole["version"] = HEATMETERD_VERSION;
    whole["level"] = std::string(text_of(status.level));
    put_verdict(whole["gateway"], status.gateway);
    whole["meters"] = Json::arrayValue;
    for (const contract::MeterStatus& meter : status.meters) {
        const contract::Meter& known = meter.facts.meter;
        Json::Value& one = whole["meters"].append(Json::objectValue);
        one["uuid"] = contract::valid_utf8(known.uuid);
        one["family"] = contract::json_or_null(std::string(family_name(known.family)));
        one["model"] = contract::json_or_null(known.model);
        one["serial"] = contract::json_or_null(known.serial);
        put_verdict(one, meter.verdict);
        one["systems"] = Json::arrayValue;
        for (const contract::SystemFacts& system : meter.facts.systems) {
            Json::Value& part = one["systems"].append(Json::objectValue);
            part["n"] = system.n;
            part["connected"] = system.connected ? Json::Value(*system.connected) : Json::Value();
            part["value"] = json_of(system.value);
            part["clock_gap_s"] = json_of(contract::clock_gap(system));
            part["state"] = contract::json_or_null(contract::state_of(meter.facts, system));
            part["hourly"] = json_of(system.hourly);
            part["daily"] = json_of(system.daily);
        }
    }
    return whole;
}

std::int64_t offset_at(std::int64_t moment) {
    return local_time(static_cast<std::time_t>(moment)).tm_gmtoff;
}

/// Since when which offset from UTC holds, found by looking every day.
std::string offsets_of_zone() {
    constexpr std::int64_t From = 631152000;  // 1990
    constexpr std::int64_t To = 2145916800;   // 2038
    constexpr std::int64_t Day = 86400;
    std::string text = fmt::format(R"({{"offsets":[[{},{}])", From, offset_at(From));
    std::int64_t last = offset_at(From);
    for (std::int64_t day = From; day < To; day += Day) {
        const std::int64_t next = offset_at(day + Day);
        if (next == last) continue;
        std::int64_t before = day;
        std::int64_t behind = day + Day;
        while (behind - before > 1) {
            const std::int64_t middle = (before + behind) / 2;
            (offset_at(middle) == last ? before : behind) = middle;
        }
        text += fmt::format(",[{},{}]", behind, next);
        last = next;
    }
    return text + "]}\n";
}

std::string unit_of(const contract::Units& units, const contract::LiveMeter& meter, int system,
                    const contract::Item& item) {
    return units.unit_of(meter.meter.uuid, system, item.name, item.entry != nullptr ? item.entry->unit : "");
}

Json::Value place_of(const contract::LiveMeter& meter, const contract::LiveSystem& system, std::int64_t now) {
    Json::Value place;
    place["time"] = Json::Int64(now);
    place["meter"] = contract::valid_utf8(meter.meter.uuid);
    place["system"] = system.number;
    return place;
}

}  // namespace

Answer refusal(unsigned status, const std::string& text) {
    Json::Value value;
    value["error"] = contract::valid_utf8(text);
    Answer answer = json_answer(value);
    answer.status = status;
    return answer;
}

Api::Api(contract::Live& files, Look& status)
    : live(files), look(status), open_tables(std::make_shared<std::atomic<int>>(0)) {}

Reply Api::answer(const Request& request, const Counts& counts, bool waited) {
    const auto& path = request.path;
    if (path.size() <= 1 && (path.empty() || (path[0] != "api" && path[0] != "metrics" && path[0] != "healthz"))) {
        const BuiltIn* const file = find_built_in(path.empty() ? "" : path[0]);
        if (file == nullptr) return refusal(404, "there is no such page");
        Answer answer;
        answer.type = file->type;
        answer.fixed_body = file->text;
        answer.headers = {{"ETag", std::string(file->tag)}, {"Cache-Control", "no-cache"}};
        return answer;
    }
    live.take_in();
    if (path.size() == 1) {
        if (path[0] == "healthz") return Answer{.type = "text/plain; charset=utf-8", .body = "ok\n"};
        if (path[0] == "metrics") return of_status(request, counts, waited);
        return refusal(404, "there is no such page");
    }
    if (path[0] != "api") return refusal(404, "there is no such page");
    if (path.size() == 2) {
        if (path[1] == "stream") return EventStream{};
        if (path[1] == "zone") return Answer{.body = zone()};
        if (path[1] == "meters" || path[1] == "overview") return of_status(request, counts, waited);
    }
    if (path.size() == 5 && path[1] == "meters") return of_system(request);
    return refusal(404, "there is no such page");
}

Reply Api::of_status(const Request& request, const Counts& counts, bool waited) {
    const bool is_scrape = request.path[0] == "metrics";
    const bool is_fresh = look.last() != nullptr && look.age() < (is_scrape ? FreshForScrapes : FreshLook);
    if (!is_fresh && !waited) return AfterStatus{};
    if (look.last() == nullptr) return refusal(503, "the status is not known yet");
    const std::int64_t now = gateway().now();
    if (is_scrape) {
        return Answer{.type = "text/plain; version=0.0.4; charset=utf-8",
                      .body = metrics_text(live, *look.last(), counts, now)};
    }
    if (request.path[1] == "meters") return json_answer(contract::json_of(*look.last()));
    return json_answer(overview_of(*look.last(), now));
}

Reply Api::of_system(const Request& request) {
    const auto& meters = live.meters();
    const auto meter =
        std::ranges::find_if(meters, [&](const contract::LiveMeter& one) { return one.meter.uuid == request.path[2]; });
    if (meter == meters.end()) return refusal(404, "there is no such meter");
    const auto system = std::ranges::find_if(
        meter->systems, [&](const contract::LiveSystem& one) { return std::to_string(one.number) == request.path[3]; });
    if (system == meter->systems.end()) return refusal(404, "the meter has no such system");
    const contract::MeterSystem place{.uuid = meter->meter.uuid, .system = system->number};
    const std::string& what = request.path[4];
    const std::int64_t now = gateway().now();
    if (what == "values") return values(*meter, *system);
    if (what == "archives") return Job([place] { return archives_answer(place); });
    if (what == "events") return Job([place, request, now] { return events_answer(place, request, now); });
    if (what == "archive") {
        return Job([place, request, now, count = open_tables] { return archive_answer(place, request, now, count); });
    }
    return refusal(404, "there is no such page");
}

Answer Api::values(const contract::LiveMeter& meter, const contract::LiveSystem& system) const {
    if (system.items.empty()) return refusal(404, "there are no values");
    const contract::Units units = contract::read_units();
    Json::Value whole;
    for (const contract::LiveItem& one : system.items) {
        whole["values"].append(contract::json_of(one.item, unit_of(units, meter, system.number, one.item)));
    }
    return json_answer(whole);
}

const std::string& Api::zone() {
    if (zone_text.empty()) zone_text = offsets_of_zone();
    return zone_text;
}

std::string Api::hello(std::int64_t now) {
    return fmt::format(R"({{"time":{}}})", now);
}

std::string Api::values_news(const contract::LiveMeter& meter, const contract::LiveSystem& system,
                             const std::vector<std::string>& names, std::int64_t now) const {
    const contract::Units units = contract::read_units();
    Json::Value news = place_of(meter, system, now);
    news["values"] = Json::arrayValue;
    for (const contract::LiveItem& one : system.items) {
        if (std::ranges::find(names, one.item.name) == names.end()) continue;
        news["values"].append(contract::json_of(one.item, unit_of(units, meter, system.number, one.item)));
    }
    return contract::json_line(news);
}

std::string Api::records_news(const contract::LiveMeter& meter, const contract::LiveSystem& system, std::int64_t now) {
    Json::Value news = place_of(meter, system, now);
    news["hourly"] = json_of(system.hourly);
    news["daily"] = json_of(system.daily);
    return contract::json_line(news);
}

}  // namespace view
