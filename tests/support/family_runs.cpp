#include "support/family_runs.h"

#include <array>
#include <sstream>
#include <stdexcept>

#include "km5_meter.h"
#include "modbus_vist_meter.h"
#include "sa94_meter.h"
#include "support/start.h"
#include "vist_meter.h"

namespace {

constexpr const char* Port = "/dev/ttyS1";
constexpr const char* Start = "2024-03-06 10:05:00";
constexpr const char* RecordsFrom = "2024-03-04 00:00";
constexpr double RunSeconds = 2700;  // a KM5 reads its archives half an hour after the start

std::set<std::time_t> times_in(const std::string& text) {
    std::set<std::time_t> times;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) times.insert(std::stol(line));
    return times;
}

void gather_archives(const Scene& scene, int n, const std::string& folder, Traces& traces) {
    for (const std::string& name : scene.list("/mnt/storage/u1/" + std::to_string(n) + "/" + folder)) {
        const std::string text = scene.archive("u1", n, name, folder).value_or("");
        if (text.find(',') == std::string::npos) {
            traces.marks.insert(name);
            continue;
        }
        traces.archives[name].merge(times_in(text));
        traces.folders[name].insert(folder);
    }
}

Traces gather(const Scene& scene) {
    Traces traces;
    for (int n = 1; n <= 6; ++n) {
        for (const std::string& name : scene.list("/tmp/u1/" + std::to_string(n) + "/tc_items")) {
            traces.items[name].insert(scene.item("u1", n, name).value_or(""));
        }
        for (const char* folder : {"tc_archives", "tmp_archives", "tc_tmp_archives"}) {
            gather_archives(scene, n, folder, traces);
        }
    }
    const std::string log = "uni_logs.u1.";
    for (const std::string& name : scene.list("/tmp")) {
        if (name.starts_with(log)) traces.logs.insert("<uuid>." + name.substr(log.size()));
    }
    traces.has_state = scene.exists("/tmp/driver.u1.state");
    return traces;
}

/// A process, begun with the meter's memory full of a few days.
MeterRun run(const std::string& model, const std::string& name, sim::SimMeter& meter, sim::MeterSettings settings) {
    Scene scene(Start);
    settings.port_name = Port;
    scene.gateway.connect(Port, meter);
    scene.service.set_meter("u1", settings);
    if (start_process(scene, {name, "-r", "u1"}, RunSeconds).status != StillAtWork) {
        throw std::runtime_error(model + ": the process has ended");
    }
    return {model, gather(scene)};
}

MeterRun run_km5(const std::string& model, const std::string& name, const sim::Km5Config& config, const char* system) {
    const Scene zone(Start);  // the meter's past is local time
    sim::Km5Meter meter(config);
    meter.record_archives(true, RecordsFrom);
    meter.store_event("2024-03-06 09:10", 61);
    sim::MeterSettings settings{.serial = config.serial, .manufacturer = config.km56i ? "km-5-6i" : "km-5"};
    for (unsigned s = 0; s < config.subsystems; ++s) settings.system_types.at(s) = system;
    return run(model, name, meter, settings);
}

std::vector<MeterRun> km5_runs() {
    std::vector<MeterRun> runs;
    const auto add = [&runs](int model, const std::string& text, const char* system) {
        for (const char* firmware : {"1.50", "2.15"}) {
            runs.push_back(run_km5(text, "KM5", {.model = model, .firmware = firmware}, system));
        }
        runs.push_back(run_km5(text, "ATT", {.model = model, .att = true, .firmware = "1.50"}, system));
    };
    for (int model = 1; model <= 6; ++model) add(model, std::to_string(model), "heat");
    add(1, "1, hot water", "gvs");
    const sim::Km5Config km56i{.serial = 10345678, .km56i = true, .subsystems = 3};
    runs.push_back(run_km5("KM5-6и", "KM56i", km56i, "heat"));
    runs.push_back(run_km5("KM5-6и, hot water", "KM56i", km56i, "gvs"));
    return runs;
}

std::vector<MeterRun> vist_runs() {
    std::vector<MeterRun> runs;
    for (const int version : {101, 102}) {
        const Scene zone(Start);
        sim::VistConfig config{.version = version, .devices = {sim::VistDevice{}, sim::VistDevice{}}};
        for (sim::VistDevice& device : config.devices) device.archive_mask = 0x7FFFFF;
        sim::VistMeter meter(config);
        meter.record_archives(true, RecordsFrom);
        runs.push_back(run(std::to_string(version), "VIST", meter, {.serial = 1, .manufacturer = "vis-t"}));
    }
    return runs;
}

std::vector<MeterRun> vist_modbus_runs() {
    const Scene zone(Start);
    sim::ModbusVistMeter meter({.systems = {sim::ModbusVistSystem{}, sim::ModbusVistSystem{}}});
    meter.record_archives(true, RecordsFrom);
    return {run("VIST", "VISTmodbus", meter, {.serial = meter.config().serial, .manufacturer = "vis-t-modbus"})};
}

std::vector<MeterRun> sa94_runs() {
    // Masses, the third one too; volumes; of the newer firmwares only the status tells which.
    constexpr std::array<std::uint8_t, 2> Statuses = {0x06, 0x44};
    std::vector<MeterRun> runs;
    for (const char* firmware : {"M461-m", "M451-m", "M461", "M451", "M411", "M401", "M301", "M300", "301", "300",
                                 "MTE1", "201", "200", "M101", "M100", "101", "100", "SA94_UNKNOWN", "Z1"}) {
        for (const std::uint8_t status : Statuses) {
            const Scene zone(Start);
            sim::Sa94Meter meter({.firmware = firmware, .status = status});
            meter.record_archives(true, RecordsFrom);
            meter.start_error(5, "2024-03-06 09:10");
            runs.push_back(run(firmware, "SA94", meter, {.serial = 1, .manufacturer = "sa-94-2m"}));
        }
    }
    return runs;
}

}  // namespace

std::vector<MeterRun> family_runs(const std::string& family) {
    if (family == "KM5") return km5_runs();
    if (family == "VIST") return vist_runs();
    if (family == "VIST Modbus") return vist_modbus_runs();
    if (family == "SA-94") return sa94_runs();
    throw std::invalid_argument(family);
}

Traces sum_of(const std::vector<MeterRun>& runs) {
    Traces sum;
    for (const auto& [model, traces] : runs) {
        for (const auto& [name, texts] : traces.items) sum.items[name].insert(texts.begin(), texts.end());
        for (const auto& [name, times] : traces.archives) sum.archives[name].insert(times.begin(), times.end());
        for (const auto& [name, folders] : traces.folders) sum.folders[name].insert(folders.begin(), folders.end());
        sum.marks.insert(traces.marks.begin(), traces.marks.end());
        sum.logs.insert(traces.logs.begin(), traces.logs.end());
        sum.has_state |= traces.has_state;
    }
    return sum;
}

std::time_t newest_record_end(std::time_t period) {
    const Scene zone(Start);
    const auto start = static_cast<std::time_t>(zone.gateway.seconds());
    return start / period * period;
}
