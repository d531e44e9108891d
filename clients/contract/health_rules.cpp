#include "contract/health_rules.h"

#include <algorithm>

#include <fmt/format.h>

#include "contract/check.h"
#include "contract/moments.h"

namespace contract::health {

namespace {

constexpr std::int64_t Minute = 60;
constexpr std::int64_t Hour = 3600;
constexpr std::int64_t Recent = 60;  // seconds: a process that ends is started again sooner
constexpr const char* Restart = "restart the process";

/// The log that tells what the driver does.
std::string story_of(const MeterFacts& meter) {
    const bool has_one_log = (meter.meter.family & (VIST | VISTmodbus)) != 0;
    return "heatmeterctl log " + meter.meter.uuid + (has_one_log ? "" : ":messages");
}

/// Old values make a cause critical; before it is one that will make them old.
Level level_of(const MeterFacts& meter, const GatewayFacts& here) {
    const auto newest = meter.newest_value();
    return newest && here.now - *newest <= longest_age(meter) ? Level::Warning : Level::Critical;
}

std::string start_text(const MeterFacts& meter) {
    if (meter.port_file.empty()) return "start its process: heatmeterd FAMILY -r " + meter.meter.uuid;
    return "start it: /etc/init.d/heatmeterd start " + meter.port_file;
}

std::optional<Reason> service_trouble(const ServiceAnswer& service, const std::string& consequence) {
    switch (service.state) {
        case ServiceState::Off:
            return Reason{"service-off", Level::Critical, "the configuration service is off: " + consequence,
                          "start the service, then restart the process"};
        case ServiceState::Silent:
            return Reason{"service-silent", Level::Critical,
                          "the configuration service does not answer: " + consequence,
                          "mend the service, then restart the process"};
        case ServiceState::Nonsense:
            return Reason{"service-nonsense", Level::Critical,
                          "the configuration service answers nonsense, " + service.fault + ": " + consequence,
                          "mend the service, then restart the process"};
        default:
            return std::nullopt;
    }
}

std::optional<Reason> uuid_trouble(const MeterFacts& meter) {
    if (meter.service.state != ServiceState::Answers || meter.service.knows()) return std::nullopt;
    return Reason{"uuid-unknown", Level::Critical, "the configuration service does not know this uuid",
                  "correct the uuid here or there, then restart the process"};
}

/// A process whose port is not open, or no longer.
std::optional<Reason> port_trouble(const MeterFacts& meter) {
    if (meter.open_port != OpenPort::Closed && meter.open_port != OpenPort::Gone) return std::nullopt;
    const bool gone = meter.open_port == OpenPort::Gone;
    const std::string& name = meter.device.name;
    if (!gone) {
        if (auto reason = service_trouble(meter.service, "the process has no settings")) return reason;
        if (auto reason = uuid_trouble(meter)) return reason;
    }
    if (meter.device.state == DeviceState::Missing) {
        return Reason{gone ? "port-gone" : "port-missing", Level::Critical,
                      gone ? fmt::format("the port {} is gone: its adapter was unplugged", name)
                           : fmt::format("the port {} is not there", name),
                      fmt::format("plug it in, or correct the service's port_params.name; then {}", Restart)};
    }
    if (gone) {
        return Reason{"port-gone", Level::Critical,
                      "the process holds a port that is gone; another device has its name now", Restart};
    }
    if (meter.device.state == DeviceState::NoTerminal) {
        return Reason{"port-no-terminal", Level::Critical, fmt::format("{} is no serial port", name),
                      fmt::format("correct the service's port_params.name, then {}", Restart)};
    }
    if (name.empty()) {
        return Reason{"port-missing", Level::Critical, "the configuration service names no port for this process",
                      fmt::format("complete the service's port_params.name, then {}", Restart)};
    }
    return Reason{
        "port-closed", Level::Critical,
        fmt::format("the process has not opened {} ({}): the service was off, or the port was not there or not "
                    "allowed, when it was started",
                    name, meter.device.owner),
        fmt::format("look at its rights, then {}", Restart)};
}

std::optional<Reason> pause_trouble(const MeterFacts& meter, const GatewayFacts& here) {
    for (const Flag& flag : here.flags) {
        const bool held = holds(flag, meter.meter.family, meter.service.alias) &&
                          (flag.kind == FlagKind::PauseAll || !meter.single_bus);
        if (!held) continue;
        const std::string text = flag.text.empty() ? "" : fmt::format(", it says \"{}\"", flag.text);
        return Reason{"bus-held", level_of(meter, here),
                      fmt::format("the bus is held by {}, made by {} {} ago{}", flag.path, flag.owner,
                                  duration_text(here.now - flag.since), text),
                      "ask who made it to remove it, or remove it: heatmeterctl resume"};
    }
    return std::nullopt;
}

std::optional<Reason> clock_trouble(const MeterFacts& meter, const GatewayFacts& here) {
    const std::int64_t latest = std::max(meter.log_written, meter.newest_value().value_or(0));
    if (latest - here.now <= Minute) return std::nullopt;
    return Reason{
        "clock-back", Level::Critical,
        fmt::format("the gateway's clock was set back: the newest file is from {}, {} ahead; nothing is asked "
                    "before",
                    plain_moment_text(latest), duration_text(latest - here.now)),
        "set the clock right, then restart the process"};
}

/// What the word in front of -r and the meter, or the service, say of one another.
std::optional<Reason> kind_trouble(const MeterFacts& meter) {
    constexpr const char* Help = "correct the word in front of -r, or the service's manufacturer; then restart";
    if (!meter.kind_fault.empty()) {
        return Reason{"wrong-family", Level::Critical,
                      meter.kind_fault.ends_with("yes") ? "the meter is an AT-T, and its process is told KM5"
                                                        : "the meter is no AT-T, and its process is told ATT",
                      Help};
    }
    const Family made = family_of_manufacturer(meter.service.manufacturer);
    if (meter.single_bus || made == NoFamily || meter.processes.front().family == made) return std::nullopt;
    return Reason{"wrong-family", Level::Critical,
                  fmt::format("the process is told {}, and the service says {}", meter.processes.front().words.front(),
                              meter.service.manufacturer),
                  Help};
}

std::optional<Reason> other_meter(const MeterFacts& meter) {
    const std::string serial = std::to_string(meter.service.serial);
    const bool settings_changed = meter.meter.family == KM5 && meter.service.serial != 0 &&
                                  !meter.meter.serial.empty() && meter.meter.serial != serial;
    if (meter.sees_serial_fault) {
        return Reason{"other-meter", Level::Critical, "another meter answers under this number than at the start",
                      "when it was replaced on purpose, restart the process"};
    }
    if (!settings_changed) return std::nullopt;
    return Reason{"other-meter", Level::Critical,
                  fmt::format("the service names serial number {}, the process asks {}", serial, meter.meter.serial),
                  Restart};
}

/// Tries that are enough to tell a silent meter from one that does not answer a single question: what each family asks
/// before it gives a question up.
int enough_tries(Family family) {
    return family == KM5 || family == SA94 ? 12 : family == VISTmodbus ? 8 : 5;
}

std::optional<Reason> line_trouble(const MeterFacts& meter, const GatewayFacts& here) {
    const Silence& silence = meter.silence;
    const bool is_misunderstood = meter.sees_description_fault && silence.tries == 0;
    if (!is_misunderstood && silence.tries < enough_tries(meter.meter.family)) return std::nullopt;
    if (auto reason = kind_trouble(meter)) return reason;
    if (auto reason = other_meter(meter)) return reason;
    const Level level = level_of(meter, here);
    if (is_misunderstood || silence.with_bytes * 2 > silence.tries) {
        // Whom nobody understands is asked who it is again and again, and what it says then is published.
        return Reason{"no-answer", is_misunderstood ? Level::Critical : level,
                      is_misunderstood ? "something answers that is no meter of a known firmware"
                                       : fmt::format("something is heard that is no answer: {} tries since {}",
                                                     silence.tries, plain_moment_text(silence.since)),
                      "look at parity, speed, noise, and other devices on the line"};
    }
    return Reason{"nothing-heard", level,
                  fmt::format("nothing is heard from the meter: {} tries since {}", silence.tries,
                              plain_moment_text(silence.since)),
                  "look at wiring, power, speed, serial number, and the meter's type, in this order"};
}

/// The meter is being asked, and answers.
bool answers_now(const MeterFacts& meter, const GatewayFacts& here) {
    constexpr std::int64_t Fresh = 3 * Minute;
    return meter.silence.tries == 0 && meter.silence.last_answer && here.now - *meter.silence.last_answer < Fresh &&
           here.now - meter.log_written < Fresh;
}

std::optional<Reason> age_trouble(const MeterFacts& meter, const GatewayFacts& here) {
    const auto newest = meter.newest_value();
    const std::int64_t longest = longest_age(meter);
    const bool is_read = answers_now(meter, here);  // a long archive keeps values waiting
    const bool is_new = meter.started && here.now - *meter.started <= longest;
    if (is_new || is_read || (newest && here.now - *newest <= longest)) return std::nullopt;
    if (meter.log_written < here.now - Minute && meter.neighbour_log_written >= here.now - Minute) {
        return Reason{"line-busy", Level::Warning,
                      (newest ? fmt::format("the newest value is {} old", duration_text(here.now - *newest))
                              : std::string("there are no values yet")) +
                          ": the process is busy with another meter on its line",
                      "wait, or help the other meter: look at its status"};
    }
    Findings settings;
    check_settings(meter.meter.uuid, meter.processes.front().words.front(), meter.single_bus, meter.service, settings);
    const auto mistake = std::ranges::find(settings, Level::Critical, &Finding::level);
    if (mistake != settings.end() && meter.service.state == ServiceState::Answers) {
        return Reason{"settings", Level::Critical, mistake->text, mistake->help + ", then restart the process"};
    }
    return Reason{"values-old", Level::Critical,
                  newest ? fmt::format("the newest value is {} old", duration_text(here.now - *newest))
                         : std::string("there are no values yet"),
                  "look at " + story_of(meter)};
}

bool starts_again_and_again(const MeterFacts& meter, const GatewayFacts& here) {
    if (meter.keeper.starts_with("1 ")) return true;
    // Without a keeper the general log tells: it is new again and again.
    return here.now - here.general_written < Recent && std::ranges::count(here.general_meters, meter.meter.uuid) != 0;
}

}  // namespace

Reason why_not_running(const MeterFacts& meter, const GatewayFacts& here) {
    const bool restarts = starts_again_and_again(meter, here);
    const bool waits = meter.keeper.starts_with("3 waits");
    if (restarts || waits) {
        if (auto reason = service_trouble(meter.service, "the process ends at its start, again and again")) {
            return *reason;
        }
        const std::string said =
            meter.keeper.size() > 2 ? meter.keeper.substr(2) : "its log ends with \"" + here.general_end + "\"";
        return {"restarting", Level::Critical, "the process ends, and is started again: " + said,
                meter.port_file.empty() ? "look at what it wrote to its standard error"
                                        : "look at /var/log/heatmeterd/" + meter.port_file + ".log"};
    }
    const bool others_are_configured = meter.port_file.empty() && !here.ports.empty();
    if (others_are_configured) {
        return {"not-configured", Level::Ok, "no configured port names this meter; its files are of former days", ""};
    }
    return {"no-process", Level::Critical, "no process reads this meter", start_text(meter)};
}

std::optional<Reason> why_silent(const MeterFacts& meter, const GatewayFacts& here) {
    if (meter.processes.size() > 1) {
        return Reason{"two-writers", Level::Critical,
                      fmt::format("two processes read this meter, {} and {}: they write every line twice",
                                  meter.processes[0].pid, meter.processes[1].pid),
                      "end one of them"};
    }
    // It waits for the service, up to half a minute, and ends then.
    const bool asks_service =
        here.general_end == "Read configs from rpc" && std::ranges::count(here.general_meters, meter.meter.uuid) != 0;
    if (meter.keeper.starts_with("1 is restarting") || asks_service) {
        if (auto reason = service_trouble(meter.service, "the process ends at its start, again and again")) {
            return reason;
        }
        if (meter.keeper.starts_with("1 is restarting")) return why_not_running(meter, here);
    }
    if (auto reason = port_trouble(meter)) return reason;
    if (auto reason = pause_trouble(meter, here)) return reason;
    if (auto reason = clock_trouble(meter, here)) return reason;
    if (!meter.kind_fault.empty()) return kind_trouble(meter);
    // Of a VIST the other one's values come, under this one's name.
    if (meter.sees_serial_fault) return other_meter(meter);
    if (auto reason = line_trouble(meter, here)) return reason;
    if (auto reason = age_trouble(meter, here)) return reason;
    if (auto reason = uuid_trouble(meter)) {
        reason->level = Level::Warning;  // what runs has its settings
        return reason;
    }
    return std::nullopt;
}

std::optional<Reason> why_behind(const MeterFacts& meter, const GatewayFacts& here) {
    constexpr std::int64_t HourlyLimit = 4 * Hour;
    constexpr std::int64_t DailyLimit = 26 * Hour;  // a day, and the hour in which the next record is looked for
    std::string text;
    for (const SystemFacts& system : meter.systems) {
        const auto hourly = lag_of(system, system.hourly);
        const auto daily = lag_of(system, system.daily);
        const std::string of = meter.systems.size() > 1 ? fmt::format(" of system {}", system.n) : "";
        if (hourly && *hourly > HourlyLimit) {
            text = fmt::format("hourly archives{} are {} behind the meter's clock", of, duration_text(*hourly));
        } else if (daily && *daily > DailyLimit) {
            text = fmt::format("daily archives{} are {} behind the meter's clock", of, duration_text(*daily));
        } else if (!hourly && system.value && (meter.meter.family & (KM5 | VIST | VISTmodbus)) != 0) {
            text = fmt::format("there are no hourly archives{} yet", of);
        }
        if (!text.empty()) break;
    }
    if (text.empty()) return std::nullopt;
    constexpr std::int64_t First = 40 * Minute;  // the half hour, a pass, an hour change
    if (meter.single_bus) {
        return Reason{"single-bus", Level::Ok, text + "; in single-bus mode nothing else is to be expected", ""};
    }
    if (meter.started && here.now - *meter.started < First) {
        return Reason{"first-half-hour", Level::Ok,
                      fmt::format("{}; the process was started {} ago", text, duration_text(here.now - *meter.started)),
                      fmt::format("wait: archives are read {} after the start",
                                  meter.meter.family == KM5 ? "half an hour" : "ten minutes")};
    }
    const auto reads_archive = [](const SystemFacts& system) {
        return system.state.starts_with("reads ") && system.state.ends_with(" archive");
    };
    if (answers_now(meter, here) && std::ranges::any_of(meter.systems, reads_archive)) {
        return Reason{"archives-read", Level::Ok, text + ", and are being read", "wait"};
    }
    for (const Flag& flag : here.flags) {
        if (flag.kind != FlagKind::ReportLock || flag.uuid != meter.meter.uuid) continue;
        return Reason{
            "archives-held", Level::Warning,
            fmt::format("{}; {} made {} {} ago", text, flag.owner, flag.path, duration_text(here.now - flag.since)),
            "ask who made it to remove it, or remove it"};
    }
    return Reason{"archives-behind", Level::Warning, text, "look at " + story_of(meter)};
}

}  // namespace contract::health
