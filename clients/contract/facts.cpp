#include "contract/facts.h"

#include <algorithm>
#include <set>

#include "care/terminals.h"
#include "contract/items.h"
#include "contract/logs.h"
#include "contract/newest.h"
#include "contract/site.h"
#include "core/files.h"
#include "core/gateway.h"

namespace contract {

namespace {

constexpr const char* PortFolder = "/etc/heatmeterd";

std::map<std::string, PortFile> configured_ports() {
    constexpr std::size_t LongestFile = std::size_t{65} * 1024;
    std::map<std::string, PortFile> ports;
    for (const std::string& name : names_in(PortFolder)) {
        const auto port = port_of_file(name);
        if (!port) continue;
        const std::string path = std::string(PortFolder) + '/' + name;
        ports[*port] = parse_port_file(path, read_text(path, LongestFile));
    }
    return ports;
}

void look_at_general_log(GatewayFacts& here) {
    constexpr std::string_view Added = "Add uuid: ";
    const Log log = read_log("/tmp/uni_logs.general.txt");
    here.general_written = log.written();
    for (const LogLine& line : log.lines()) {
        if (line.text.starts_with(Added)) here.general_meters.emplace_back(line.text.substr(Added.size()));
        if (line.text.starts_with("open_tty = ")) here.general_port_failed = line.text.ends_with(", fd = -1");
        if (line.has_time) here.general_end = line.text;
    }
}

OpenPort look_at_open_port(const Process& process, const Device& device) {
    if (!process.has_port) return OpenPort::Unknown;
    if (!*process.has_port) return OpenPort::Closed;
    Devices devices;
    if (!device.name.empty()) devices.push_back(device.name);
    switch (look_at_port(process.pid, devices)) {
        case PortLook::Gone:
            return OpenPort::Gone;
        case PortLook::Closed:
            return OpenPort::Closed;
        default:
            return OpenPort::Open;
    }
}

SystemFacts look_at_system(const std::string& uuid, int n, Family family) {
    SystemFacts facts{.n = n,
                      .connected = {},
                      .value = {},
                      .clock = {},
                      .clock_read = {},
                      .state = {},
                      .hourly = newest_record(uuid, n, ArchiveKind::Hourly),
                      .daily = newest_record(uuid, n, ArchiveKind::Daily)};
    const std::vector<Item> items = read_items(uuid, n, family);
    facts.value = newest_value(items);
    for (const Item& item : items) {
        const auto number = number_in(item.text);
        if (item.name == "_DriverStatus") facts.state = status_text(item.text);
        if (item.name == "Connected" && number) facts.connected = *number != 0 ? 1 : 0;
        if (item.name == "MDateTime" && number) {
            facts.clock = static_cast<std::int64_t>(*number);
            facts.clock_read = item.time;
        }
    }
    return facts;
}

void look_at_messages(MeterFacts& facts, const Log& log) {
    for (const LogLine& line : log.lines()) {
        if (line.text.starts_with("isATT_mustbe = ")) {
            const bool differs =
                line.text == "isATT_mustbe = yes, isATT = no" || line.text == "isATT_mustbe = no, isATT = yes";
            facts.kind_fault = differs ? line.text : "";
        } else if (line.text == "Try to get device serial") {
            facts.sees_serial_fault = false;
        } else if (line.text.find("Fail while compare serial numbers!") != std::string_view::npos) {
            facts.sees_serial_fault = true;
        } else if (line.text.starts_with("getDescription = ")) {
            facts.sees_description_fault = line.text.ends_with("Failure");
        }
    }
}

void look_at_logs(MeterFacts& facts) {
    const std::string& uuid = facts.meter.uuid;
    const std::string path = log_path(uuid);
    if (!exists(path)) return;
    const Log line_log = read_log(path);
    facts.log_is_there = true;
    facts.log_written = line_log.written();
    facts.silence = silence_at_end(line_log);
    const bool is_only = path.ends_with("." + uuid + ".txt");
    if (is_only) look_at_messages(facts, line_log);
    const Log messages = read_log(log_path(uuid + ":messages"));
    if (!is_only) look_at_messages(facts, messages);
    facts.log_written = std::max(facts.log_written, messages.written());
    // The beginning of a log that is whole is that of the process.
    const Log general = is_only ? Log() : read_log(log_path(uuid + ":general"));
    for (const Log* log : {&general, &messages, &line_log}) {
        if (facts.started || log->lines().empty() || log->is_wrapped() || !log->lines().front().has_time) continue;
        facts.started = log->lines().front().time();
    }
}

}  // namespace

std::optional<std::int64_t> MeterFacts::newest_value() const {
    std::optional<std::int64_t> newest;
    for (const SystemFacts& system : systems) newest = std::max(newest, system.value);
    return newest;
}

GatewayFacts look_at_gateway() {
    GatewayFacts here;
    here.now = gateway().now();
    here.live = gateway().root().empty();
    here.storage = look_at_storage();
    here.flags = flags();
    here.processes = processes();
    here.ports = configured_ports();
    look_at_general_log(here);
    return here;
}

std::vector<std::string> known_meters(const GatewayFacts& here) {
    const std::vector<std::string> with_files = meters();
    std::set<std::string> all(with_files.begin(), with_files.end());
    for (const Process& process : here.processes) all.insert(process.uuids.begin(), process.uuids.end());
    for (const auto& [port, file] : here.ports) {
        if (!file.problems.empty()) continue;
        for (const std::string& uuid : meters_of(file.words)) all.insert(uuid);
    }
    std::erase_if(all, [](const std::string& uuid) { return !is_meter_name(uuid); });
    return {all.begin(), all.end()};
}

MeterFacts look_at(const std::string& uuid, GatewayFacts& here) {
    MeterFacts facts;
    facts.meter = look_at_meter(uuid, here.processes);
    for (const Process& process : here.processes) {
        if (std::ranges::count(process.uuids, uuid) != 0) facts.processes.push_back(process);
    }
    for (const auto& [port, file] : here.ports) {
        const Words configured = meters_of(file.words);
        if (std::ranges::count(configured, uuid) == 0) continue;
        facts.port_file = port;
        if (facts.meter.family == NoFamily && !is_single_bus(file.words)) {
            facts.meter.family = family_of(file.words.front());
        }
    }
    if (!facts.port_file.empty()) facts.keeper = read_text("/run/heatmeterd." + facts.port_file + ".state", 500);
    facts.keeper.resize(std::min(facts.keeper.find('\n'), facts.keeper.size()));

    const bool is_deaf = here.service == ServiceState::Off || here.service == ServiceState::Silent;
    if (here.live && !is_deaf) {
        facts.service = ask_service(uuid);
        if (facts.service.state != ServiceState::Answers || here.service == ServiceState::NotAsked) {
            here.service = facts.service.state;
            here.service_fault = facts.service.fault;
        }
    } else {
        facts.service.state = here.service;
    }
    if (!facts.processes.empty()) {
        const Process& process = facts.processes.front();
        facts.single_bus = is_single_bus(process.words);
        // The port of a process is that of its first meter.
        const bool is_first = process.uuids.front() == uuid;
        const bool asks_first = !is_first && facts.service.state == ServiceState::Answers;
        facts.device = look_at_device(asks_first ? ask_service(process.uuids.front()).port : facts.service.port);
        facts.open_port = look_at_open_port(process, facts.device);
        // Who may not see what a process has open reads what it wrote at its start.
        const bool is_told = std::ranges::count(here.general_meters, uuid) != 0 && here.general_port_failed;
        if (facts.open_port == OpenPort::Unknown && is_told) facts.open_port = OpenPort::Closed;
    }
    look_at_logs(facts);
    for (const Process& process : facts.processes) {
        for (const std::string& other : process.uuids) {
            struct stat status {};
            if (other == uuid || gateway().look_at(log_path(other), status) != 0) continue;
            facts.neighbour_log_written = std::max<std::int64_t>(facts.neighbour_log_written, status.st_mtime);
        }
    }
    if (!facts.started && !facts.processes.empty()) {
        if (const auto age = age_of(facts.processes.front().pid)) facts.started = here.now - *age;
    }
    std::vector<int> systems = facts.meter.systems;
    if (systems.empty()) systems.push_back(1);
    for (const int n : systems) facts.systems.push_back(look_at_system(uuid, n, facts.meter.family));
    // At the end of a run a VIST's driver leaves its status behind the meter's last system.
    const auto is_empty = [](const SystemFacts& system) { return !system.value && !system.hourly && !system.daily; };
    const std::size_t empty = static_cast<std::size_t>(std::ranges::count_if(facts.systems, is_empty));
    if (empty < facts.systems.size()) std::erase_if(facts.systems, is_empty);
    return facts;
}

}  // namespace contract
