#include "view/metrics.h"

#include <unistd.h>

#include <optional>
#include <sstream>

#include <fmt/format.h>
#include <prometheus/text_serializer.h>

#include "contract/devices.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "contract/units.h"

namespace view {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricType;

using Labels = std::vector<std::pair<const char*, std::string_view>>;

/// Metrics of one name.
class Family {
  public:
    Family(const char* name, const char* help, MetricType type) {
        family.name = name;
        family.help = help;
        family.type = type;
    }

    void add(double value, const Labels& labels = {}) {
        ClientMetric& metric = family.metric.emplace_back();
        for (const auto& [name, text] : labels) metric.label.push_back({name, contract::valid_utf8(text)});
        (family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
    }
    template <typename Number>
    void add(const std::optional<Number>& value, const Labels& labels) {
        if (value) add(static_cast<double>(*value), labels);
    }

    prometheus::MetricFamily family;
};

Family gauge(const char* name, const char* help) {
    return {name, help, MetricType::Gauge};
}

Family counter(const char* name, const char* help) {
    return {name, help, MetricType::Counter};
}

class Text {
  public:
    void add(Family& family) {
        if (!family.family.metric.empty()) families.push_back(std::move(family.family));
    }
    std::string text() const {
        std::ostringstream out;
        prometheus::TextSerializer().Serialize(out, families);
        return std::move(out).str();
    }

  private:
    std::vector<prometheus::MetricFamily> families;
};

/// As the exit statuses of monitoring plug-ins.
double number_of(contract::Level level) {
    switch (level) {
        case contract::Level::Ok:
            return 0;
        case contract::Level::Warning:
            return 1;
        case contract::Level::Critical:
            return 2;
        default:
            return 3;
    }
}

void add_values(Text& text, const contract::Live& live, std::int64_t now) {
    Family values = gauge("heatmeter_value", "Present value of a meter, in the unit of its label.");
    Family totals = counter("heatmeter_value_total", "Total that a meter counts, in the unit of its label.");
    Family ages = gauge("heatmeter_value_age_seconds", "Time since the newest present value came from the meter.");
    const contract::Units units = contract::read_units();
    for (const contract::LiveMeter& meter : live.meters()) {
        const std::string& uuid = meter.meter.uuid;
        for (const contract::LiveSystem& system : meter.systems) {
            const std::string n = std::to_string(system.number);
            for (const contract::LiveItem& live_item : system.items) {
                const contract::Item& item = live_item.item;
                if (item.entry == nullptr || item.entry->quantity == contract::Quantity::Text) continue;
                const auto number = contract::number_in(item.text);
                if (!number || item.name == "Connected") continue;
                const bool is_total = item.entry->nature == contract::Nature::Counter;
                const std::string unit = units.unit_of(uuid, system.number, item.name, item.entry->unit);
                (is_total ? totals : values)
                    .add(*number, {{"meter", uuid},
                                   {"system", n},
                                   {"name", item.name},
                                   {"quantity", text_of(item.entry->quantity)},
                                   {"unit", unit}});
            }
            if (system.value) ages.add(static_cast<double>(now - *system.value), {{"meter", uuid}, {"system", n}});
        }
    }
    text.add(values);
    text.add(totals);
    text.add(ages);
}

void add_records(Text& text, const contract::Status& status) {
    Family newest = gauge("heatmeter_archive_newest_timestamp_seconds", "End of the newest record on file.");
    Family lags = gauge("heatmeter_archive_lag_seconds", "What the newest record is behind the meter's clock.");
    Family connected = gauge("heatmeter_connected", "The last exchange with the meter worked.");
    Family gaps = gauge("heatmeter_clock_gap_seconds", "What the meter's clock is ahead of the gateway's.");
    for (const contract::MeterStatus& meter : status.meters) {
        for (const contract::SystemFacts& system : meter.facts.systems) {
            const std::string n = std::to_string(system.n);
            const Labels place = {{"meter", meter.facts.meter.uuid}, {"system", n}};
            const auto add = [&](const char* kind, const std::optional<std::int64_t>& record) {
                Labels labels = place;
                labels.emplace_back("kind", kind);
                newest.add(record, labels);
                lags.add(contract::lag_of(system, record), labels);
            };
            add("hourly", system.hourly);
            add("daily", system.daily);
            connected.add(system.connected, place);
            gaps.add(contract::clock_gap(system), place);
        }
    }
    for (Family* const family : {&newest, &lags, &connected, &gaps}) text.add(*family);
}

void add_levels(Text& text, const contract::Status& status) {
    Family levels = gauge("heatmeter_level", "0 well, 1 warning, 2 critical, 3 unknown.");
    Family whole = gauge("heatmeter_gateway_level", "Of the gateway itself: 0 well, 1 warning, 2 critical, 3 unknown.");
    Family reasons = gauge("heatmeter_reason", "A trouble that there is, of the gateway where no meter is named.");
    Family infos = gauge("heatmeter_meter_info", "Who a meter is.");
    Family up = gauge("heatmeter_daemon_up", "A process reads the meter.");
    const auto add = [&reasons](std::string_view meter, const contract::Verdict& verdict) {
        for (const contract::Reason& reason : verdict.reasons) {
            reasons.add(1, {{"meter", meter}, {"reason", reason.word}, {"level", text_of(reason.level)}});
        }
    };
    whole.add(number_of(status.gateway.level));
    add("", status.gateway);
    for (const contract::MeterStatus& meter : status.meters) {
        const contract::Meter& known = meter.facts.meter;
        levels.add(number_of(meter.verdict.level), {{"meter", known.uuid}});
        add(known.uuid, meter.verdict);
        infos.add(1, {{"meter", known.uuid},
                      {"family", family_name(known.family)},
                      {"model", known.model},
                      {"serial", known.serial}});
        if (status.here.live) up.add(meter.facts.processes.empty() ? 0 : 1, {{"meter", known.uuid}});
    }
    for (Family* const family : {&levels, &whole, &reasons, &infos, &up}) text.add(*family);
}

void add_gateway(Text& text, const contract::GatewayFacts& here) {
    Family flags = gauge("heatmeter_bus_flags", "Flags that hold the bus.");
    flags.add(static_cast<double>(here.flags.size()));
    text.add(flags);
    if (!here.live) return;
    Family free = gauge("heatmeter_storage_free_bytes", "Room left for archives.");
    Family writable = gauge("heatmeter_storage_writable", "Archives can be written.");
    Family service = gauge("heatmeter_service_up", "The configuration service answers.");
    free.add(static_cast<double>(here.storage.free));
    writable.add(here.storage.there && !here.storage.read_only ? 1 : 0);
    if (here.service != contract::ServiceState::NotAsked) {
        service.add(here.service == contract::ServiceState::Answers ? 1 : 0);
    }
    for (Family* const family : {&free, &writable, &service}) text.add(*family);
}

void add_uplink(Text& text, const contract::Status& status) {
    if (!status.uplink) return;
    Family pending = gauge("heatmeter_uplink_pending_bytes", "Archive lines that a broker has not confirmed.");
    Family confirmed =
        gauge("heatmeter_uplink_last_confirmed_timestamp_seconds", "When a broker last confirmed archive lines.");
    for (const contract::SinkBacklog& sink : *status.uplink) {
        pending.add(static_cast<double>(sink.pending_bytes), {{"sink", sink.name}});
        confirmed.add(sink.last_confirmed, {{"sink", sink.name}});
    }
    text.add(pending);
    text.add(confirmed);
}

void add_daemons(Text& text, const contract::GatewayFacts& here, std::int64_t now) {
    Family memory = gauge("heatmeter_daemon_resident_memory_bytes", "Memory of a process that reads meters.");
    Family cpu = counter("heatmeter_daemon_cpu_seconds_total", "Processor time of a process that reads meters.");
    Family started = gauge("heatmeter_daemon_start_time_seconds", "When a process that reads meters was started.");
    for (const contract::Process& process : here.processes) {
        const auto usage = contract::usage_of(process.pid);
        const auto age = contract::age_of(process.pid);
        if (!usage || !age) continue;
        const std::string pid = std::to_string(process.pid);
        const std::string meters = fmt::format("{}", fmt::join(process.uuids, " "));
        const Labels labels = {{"pid", pid}, {"meters", meters}};
        memory.add(usage->resident_bytes, labels);
        cpu.add(usage->cpu_seconds, labels);
        started.add(static_cast<double>(now - *age), labels);
    }
    for (Family* const family : {&memory, &cpu, &started}) text.add(*family);
}

void add_itself(Text& text, const Counts& counts, std::int64_t now) {
    Family info = gauge("heatmeter_view_info", "The program that tells all this.");
    Family answers = counter("heatmeter_view_requests_total", "Requests that were answered, by status.");
    Family connections = gauge("heatmeter_view_connections", "Connections that are open.");
    Family streams = gauge("heatmeter_view_streams", "Streams of events that are open.");
    info.add(1, {{"version", HEATMETERD_VERSION}});
    for (const auto& [status, count] : counts.answers) {
        answers.add(static_cast<double>(count), {{"code", std::to_string(status)}});
    }
    connections.add(static_cast<double>(counts.connections));
    streams.add(static_cast<double>(counts.streams));
    for (Family* const family : {&info, &answers, &connections, &streams}) text.add(*family);
    const auto usage = contract::usage_of(::getpid());
    const auto age = contract::age_of(::getpid());
    if (!usage || !age) return;  // a copy of files has no processes
    Family cpu = counter("process_cpu_seconds_total", "Processor time.");
    Family memory = gauge("process_resident_memory_bytes", "Memory.");
    Family files = gauge("process_open_fds", "Open files and connections.");
    Family started = gauge("process_start_time_seconds", "When it was started.");
    cpu.add(usage->cpu_seconds);
    memory.add(usage->resident_bytes);
    files.add(static_cast<double>(contract::names_in(fmt::format("/proc/{}/fd", ::getpid())).size()));
    started.add(static_cast<double>(now - *age));
    for (Family* const family : {&cpu, &memory, &files, &started}) text.add(*family);
}

}  // namespace

std::string metrics_text(const contract::Live& live, const contract::Status& status, const Counts& counts,
                         std::int64_t now) {
    Text text;
    add_values(text, live, now);
    add_records(text, status);
    add_levels(text, status);
    add_gateway(text, status.here);
    add_uplink(text, status);
    add_daemons(text, status.here, now);
    add_itself(text, counts, now);
    return text.text();
}

}  // namespace view
