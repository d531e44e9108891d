#include <algorithm>

#include <fmt/format.h>
#include <json/value.h>

#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "contract/status.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

using contract::Level;
using contract::MeterFacts;
using contract::MeterStatus;
using contract::Status;
using contract::Verdict;

/// As monitoring plug-ins say it.
int exit_status(Level level) {
    switch (level) {
        case Level::Ok:
            return 0;
        case Level::Warning:
            return 1;
        case Level::Critical:
            return 2;
        default:
            return 3;
    }
}

std::string_view capitals(Level level) {
    switch (level) {
        case Level::Ok:
            return "OK";
        case Level::Warning:
            return "WARNING";
        case Level::Critical:
            return "CRITICAL";
        default:
            return "UNKNOWN";
    }
}

template <typename Number>
Json::Value json_of(const std::optional<Number>& number) {
    return number ? Json::Value(Json::Int64(*number)) : Json::Value();
}

Json::Value json_of_text(const std::string& text) {
    return text.empty() ? Json::Value() : Json::Value(contract::valid_utf8(text));
}

Json::Value words_of(const Verdict& verdict) {
    Json::Value words(Json::arrayValue);
    for (const auto& reason : verdict.reasons) words.append(reason.word);
    return words;
}

std::optional<std::int64_t> age(const std::optional<std::int64_t>& time, const Status& status) {
    return time ? std::optional(status.here.now - *time) : std::nullopt;
}

std::string_view text_of(contract::ServiceState state) {
    switch (state) {
        case contract::ServiceState::Answers:
            return "answers";
        case contract::ServiceState::Off:
            return "off";
        case contract::ServiceState::Silent:
            return "silent";
        case contract::ServiceState::Nonsense:
            return "nonsense";
        default:
            return "";
    }
}

std::string state_of(const MeterFacts& meter, const contract::SystemFacts& system) {
    const std::string state = contract::driver_state(meter.meter.uuid);
    return state.empty() ? system.state : state;
}

Json::Value json_of(const Status& status) {
    Json::Value whole;
    whole["level"] = std::string(contract::text_of(status.level));
    Json::Value& gateway = whole["gateway"];
    gateway["level"] = std::string(contract::text_of(status.gateway.level));
    gateway["reasons"] = words_of(status.gateway);
    gateway["time"] = Json::Int64(status.here.now);
    const std::string service(text_of(status.here.service));
    gateway["service"] = json_of_text(service);
    Json::Value& storage = gateway["storage"];
    storage["there"] = status.here.storage.there;
    storage["mounted"] = status.here.live ? Json::Value(status.here.storage.mounted) : Json::Value();
    storage["writable"] =
        status.here.live ? Json::Value(status.here.storage.there && !status.here.storage.read_only) : Json::Value();
    storage["free"] = status.here.live ? Json::Value(Json::UInt64(status.here.storage.free)) : Json::Value();
    gateway["flags"] = Json::arrayValue;
    for (const contract::Flag& flag : status.here.flags) {
        Json::Value& entry = gateway["flags"].append(Json::objectValue);
        entry["path"] = contract::valid_utf8(flag.path);
        entry["owner"] = flag.owner;
        entry["since"] = Json::Int64(flag.since);
        entry["text"] = contract::valid_utf8(flag.text);
    }
    whole["meters"] = Json::arrayValue;
    for (const MeterStatus& meter : status.meters) {
        Json::Value& entry = whole["meters"].append(Json::objectValue);
        entry["uuid"] = contract::valid_utf8(meter.facts.meter.uuid);
        entry["family"] = json_of_text(std::string(family_name(meter.facts.meter.family)));
        entry["model"] = json_of_text(meter.facts.meter.model);
        entry["serial"] = json_of_text(meter.facts.meter.serial);
        entry["level"] = std::string(contract::text_of(meter.verdict.level));
        entry["reasons"] = words_of(meter.verdict);
        entry["process"] = Json::Value();
        if (!meter.facts.processes.empty()) {
            entry["process"]["pid"] = meter.facts.processes.front().pid;
            entry["process"]["port"] = json_of_text(meter.facts.processes.front().port);
        }
        entry["systems"] = Json::arrayValue;
        for (const contract::SystemFacts& system : meter.facts.systems) {
            Json::Value& part = entry["systems"].append(Json::objectValue);
            part["n"] = system.n;
            part["connected"] = json_of(system.connected);
            part["age_s"] = json_of(age(system.value, status));
            part["clock_gap_s"] = json_of(contract::clock_gap(system));
            part["state"] = json_of_text(state_of(meter.facts, system));
            part["hourly"]["newest"] = json_of(system.hourly);
            part["hourly"]["lag_s"] = json_of(contract::lag_of(system, system.hourly));
            part["daily"]["newest"] = json_of(system.daily);
            part["daily"]["lag_s"] = json_of(contract::lag_of(system, system.daily));
        }
    }
    return whole;
}

/// "3 meters, newest value 12 s old: m2 nothing-heard"
std::string summary(const Status& status) {
    std::optional<std::int64_t> newest;
    std::vector<std::string> troubles;
    const auto add = [&troubles](const std::string& whose, const Verdict& verdict) {
        for (const auto& reason : verdict.reasons) {
            if (reason.level != Level::Ok) troubles.push_back(whose + ' ' + reason.word);
        }
    };
    for (const MeterStatus& meter : status.meters) {
        newest = std::max(newest, meter.facts.newest_value());
        add(meter.facts.meter.uuid, meter.verdict);
    }
    add("gateway", status.gateway);
    const std::size_t count = status.meters.size();
    std::string text = count == 0 ? "no meter has files, a process or a port here"
                                  : fmt::format("{} meter{}, {}", count, count == 1 ? "" : "s",
                                                newest ? fmt::format("newest value {} old",
                                                                     contract::duration_text(status.here.now - *newest))
                                                       : "no values");
    if (!troubles.empty()) text += fmt::format(": {}", fmt::join(troubles, ", "));
    return text;
}

/// Reads the text of a sentence, and prints it.
class Page {
  public:
    explicit Page(const Console& console_of_page) : console(console_of_page) {}
    void line(std::string_view text) { out << contract::for_terminal(text) << '\n'; }
    void heading(Level level, const std::string& text) {
        constexpr const char* Colours[] = {"\033[32m", "\033[35m", "\033[33m", "\033[31m"};
        if (console.colour) out << Colours[static_cast<std::size_t>(level)];
        out << contract::for_terminal(text);
        if (console.colour) out << "\033[0m";
        out << '\n';
    }
    void reasons(const Verdict& verdict) {
        for (const auto& reason : verdict.reasons) {
            const std::string begin = reason.level == Level::Ok ? "note" : std::string(contract::text_of(reason.level));
            heading(reason.level, fmt::format("  {}: {} ({})", begin, reason.text, reason.word));
            if (!reason.help.empty()) line("    to do: " + reason.help);
        }
    }
    void flush() { out.flush(); }

  private:
    const Console& console;
    Output out;
};

std::string record_text(const char* kind, const std::optional<std::int64_t>& newest,
                        const std::optional<std::int64_t>& lag, const Console& console) {
    if (!newest) return "";
    return fmt::format(
        ", {} to {}{}", kind, console.time_text(*newest),
        lag ? fmt::format(" ({} behind)", contract::duration_text(std::max<std::int64_t>(*lag, 0))) : "");
}

std::string system_text(const MeterStatus& meter, const contract::SystemFacts& system, const Status& status,
                        const Console& console) {
    const auto gap = contract::clock_gap(system);
    const std::string state = state_of(meter.facts, system);
    return fmt::format(
        "  system {}: {}{}{}{}{}{}", system.n,
        system.value ? fmt::format("newest value {} old", contract::duration_text(status.here.now - *system.value))
                     : "no values",
        system.connected ? fmt::format(", Connected {}", *system.connected) : "",
        gap ? fmt::format(", clock {} {}", contract::duration_text(std::abs(*gap)), *gap < 0 ? "behind" : "ahead") : "",
        record_text("hours", system.hourly, contract::lag_of(system, system.hourly), console),
        record_text("days", system.daily, contract::lag_of(system, system.daily), console),
        state.empty() ? "" : ", driver: " + state);
}

void print(const Status& status, const Console& console) {
    Page page(console);
    page.heading(status.level, fmt::format("{} - {}", capitals(status.level), summary(status)));
    page.reasons(status.gateway);
    for (const MeterStatus& meter : status.meters) {
        const contract::Meter& known = meter.facts.meter;
        std::string text = known.uuid;
        for (const std::string& word : {std::string(family_name(known.family)), known.model, known.serial}) {
            if (!word.empty()) text += "  " + word;
        }
        for (const contract::Process& process : meter.facts.processes) {
            text += fmt::format("  process {}{}", process.pid, process.port.empty() ? "" : " on " + process.port);
        }
        page.line(text);
        for (const auto& system : meter.facts.systems) page.line(system_text(meter, system, status, console));
        page.reasons(meter.verdict);
    }
    page.flush();
}

}  // namespace

Command status_command(CLI::App& app, Console& console) {
    const auto wanted = std::make_shared<std::vector<std::string>>();
    CLI::App* const command = app.add_subcommand("status", "is all well? If not, why, and what helps");
    command->add_option("UUID", *wanted, "meters; all without any");
    command->footer(
        "The first line and the exit status are those of a monitoring plug-in: 0 well, 1 warning,\n"
        "2 critical, 3 unknown or wrong usage.");
    add_output_options(*command, console);
    return {command, [wanted, &console] {
                const Status status = contract::look_at_status(*wanted);
                if (console.json) {
                    print_json(json_of(status));
                } else {
                    print(status, console);
                }
                return exit_status(status.level);
            }};
}

}  // namespace ctl
