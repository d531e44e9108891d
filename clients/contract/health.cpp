#include "contract/health.h"

#include <algorithm>

#include <fmt/format.h>

#include "contract/health_rules.h"

namespace contract {

using namespace health;

std::string_view text_of(Level level) {
    switch (level) {
        case Level::Ok:
            return "ok";
        case Level::Warning:
            return "warning";
        case Level::Critical:
            return "critical";
        default:
            return "unknown";
    }
}

namespace {

void judge_storage(const Storage& storage, std::vector<Reason>& reasons) {
    constexpr std::uint64_t Least = std::uint64_t{16} * 1024;  // room for a few records of one meter
    constexpr std::uint64_t FewPercent = 50;
    constexpr const char* MakeRoom = "make room, then restart the processes: they ask for what is newer than the files";
    if (!storage.there) {
        reasons.push_back({"storage-missing", Level::Critical, "/mnt/storage is not there: archives are lost",
                           "mount it, then restart the processes"});
    } else if (storage.read_only) {
        reasons.push_back({"storage-read-only", Level::Critical, "/mnt/storage cannot be written to: archives are lost",
                           "look at the medium, mount it writable, then restart the processes"});
    } else if (storage.free < Least || storage.out_of_inodes) {
        reasons.push_back({"storage-full", Level::Critical,
                           fmt::format("/mnt/storage is full, {} KiB are free: archives are lost", storage.free / 1024),
                           MakeRoom});
    } else if (!storage.mounted) {
        reasons.push_back({"storage-not-mounted", Level::Warning,
                           "/mnt/storage is a folder of the system's own storage, nothing is mounted there",
                           "mount it and restart the processes; what was written meanwhile is then hidden below it"});
    } else if (storage.free < storage.size / FewPercent) {
        reasons.push_back({"storage-full", Level::Warning,
                           fmt::format("/mnt/storage is nearly full: {} KiB are free", storage.free / 1024),
                           "make room"});
    }
}

void judge_service(const GatewayFacts& here, std::vector<Reason>& reasons) {
    constexpr const char* Help = "start the configuration service; a process asks it once, at its start";
    if (here.service == ServiceState::Off) {
        reasons.push_back({"service-off", Level::Warning, "the configuration service is off", Help});
    } else if (here.service == ServiceState::Silent) {
        reasons.push_back({"service-silent", Level::Warning, "the configuration service does not answer", Help});
    } else if (here.service == ServiceState::Nonsense) {
        reasons.push_back({"service-nonsense", Level::Warning,
                           "the configuration service answers nonsense: " + here.service_fault,
                           "mend the service: a process that starts now ends at once"});
    }
}

void judge_ports(const GatewayFacts& here, std::vector<Reason>& reasons) {
    for (const auto& [port, file] : here.ports) {
        if (file.problems.empty()) continue;
        reasons.push_back({"port-file", Level::Critical, file.problems.front(), "correct it, then start the port"});
    }
}

Verdict verdict_of(std::vector<Reason> reasons) {
    Verdict verdict{Level::Ok, std::move(reasons)};
    for (const Reason& reason : verdict.reasons) verdict.level = std::max(verdict.level, reason.level);
    return verdict;
}

}  // namespace

std::int64_t longest_age(const MeterFacts& meter) {
    constexpr std::int64_t Period = 360;
    constexpr std::int64_t Pass = 60;
    constexpr std::int64_t HourChange = 300;
    // All the tries of another meter: over Modbus thirty of each of 42 questions.
    const std::int64_t silent_neighbour = meter.meter.family == VISTmodbus ? 800 : 120;
    std::size_t neighbours = 0;
    for (const Process& process : meter.processes) neighbours = std::max(neighbours, process.uuids.size() - 1);
    return Period + 2 * Pass + (meter.meter.family == KM5 ? HourChange : 0) +
           static_cast<std::int64_t>(neighbours) * silent_neighbour;
}

std::optional<std::int64_t> lag_of(const SystemFacts& system, const std::optional<std::int64_t>& record) {
    const auto clock = system.clock ? system.clock : system.value;
    if (!clock || !record) return std::nullopt;
    return *clock - *record;
}

std::optional<std::int64_t> clock_gap(const SystemFacts& system) {
    if (!system.clock || !system.clock_read) return std::nullopt;
    return *system.clock - *system.clock_read;
}

Verdict judge(const GatewayFacts& here) {
    std::vector<Reason> reasons;
    if (here.live) {
        judge_storage(here.storage, reasons);
        judge_service(here, reasons);
        judge_ports(here, reasons);
    }
    return verdict_of(std::move(reasons));
}

Verdict judge(const MeterFacts& meter, const GatewayFacts& here) {
    std::vector<Reason> reasons;
    if (!here.live) {
        reasons.push_back({"copy", Level::Unknown, "files of another gateway: of its processes nothing is known", ""});
    } else if (meter.processes.empty()) {
        reasons.push_back(why_not_running(meter, here));
    } else if (auto cause = why_silent(meter, here)) {
        reasons.push_back(std::move(*cause));
    } else if (auto behind = why_behind(meter, here)) {
        reasons.push_back(std::move(*behind));
    }
    return verdict_of(std::move(reasons));
}

}  // namespace contract
