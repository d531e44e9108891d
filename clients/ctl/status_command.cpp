#include <algorithm>

#include <fmt/format.h>

#include "contract/json.h"
#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

using contract::Level;
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
    const std::string state = contract::state_of(meter.facts, system);
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

std::string uplink_text(const contract::SinkBacklog& sink, const Status& status) {
    const auto ago = [&](std::int64_t time) {
        return contract::duration_text(std::max<std::int64_t>(0, status.here.now - time));
    };
    return fmt::format(
        "  uplink {}: {}{}{}", sink.name,
        sink.pending_bytes == 0 ? "nothing waits" : fmt::format("{} bytes wait", sink.pending_bytes),
        sink.oldest_s ? fmt::format(", the oldest record {} old", contract::duration_text(*sink.oldest_s)) : "",
        sink.last_confirmed ? fmt::format(", last confirmed {} ago", ago(*sink.last_confirmed))
                            : ", nothing confirmed so far");
}

void print(const Status& status, const Console& console) {
    Page page(console);
    page.heading(status.level, fmt::format("{} - {}", capitals(status.level), summary(status)));
    page.reasons(status.gateway);
    if (status.uplink) {
        for (const contract::SinkBacklog& sink : *status.uplink) page.line(uplink_text(sink, status));
    }
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
                    print_json(contract::json_of(status));
                } else {
                    print(status, console);
                }
                return exit_status(status.level);
            }};
}

}  // namespace ctl
