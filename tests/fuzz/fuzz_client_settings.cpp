// What clients read of settings, any bytes: of a PORT.conf they know the words that the file lets through, and what it
// lets through `check` takes; of the configuration service's answer they know what the daemon takes from it, and call
// it nonsense when, and only when, the daemon ends.
//
// Input: a byte, 0 for a PORT.conf, all others for an answer; then its text.

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <json/value.h>

#include "config/config_client.h"
#include "config/json_rpc.h"
#include "contract/check.h"
#include "contract/plain_text.h"
#include "contract/service.h"
#include "fuzz_ground.h"

namespace {

constexpr const char* Names[] = {"KM5", "KM56i", "ATT", "VIST", "VISTmodbus", "SA94"};
constexpr std::size_t LongestUuid = 80;

bool has_control(std::string_view text) {
    return std::ranges::any_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

void check_findings(const contract::Findings& found) {
    for (const contract::Finding& finding : found) {
        expect(!finding.word.empty() && !finding.text.empty(), "a finding has a topic and a text");
        expect(finding.level == contract::Level::Ok || !finding.help.empty(), "a mistake has something to be done");
        expect(!has_control(contract::for_terminal(finding.text)), "no control character reaches a terminal");
    }
}

void look_at_port_file(std::string_view text) {
    const PortFile file = parse_port_file("p.conf", text);
    for (const std::string& problem : file.problems) {
        expect(problem.starts_with("p.conf:") && !has_control(problem), "a problem has its place, and is one line");
    }
    contract::Findings found;
    contract::check_form(file.words, found);
    check_findings(found);
    const Words uuids = meters_of(file.words);
    if (file.problems.empty()) {
        expect(!uuids.empty(), "a port without a problem has meters");
        Words sorted = uuids;
        std::ranges::sort(sorted);
        const bool is_odd = std::ranges::adjacent_find(sorted) != sorted.end() ||
                            std::ranges::any_of(uuids, [](const auto& uuid) { return uuid.size() > LongestUuid; });
        const bool is_error = std::ranges::any_of(
            found, [](const contract::Finding& finding) { return finding.level == contract::Level::Critical; });
        expect(is_error == is_odd,
               "what the file lets through is taken, but for a uuid that is too long or there twice");
    }

    const FuzzGateway machine(full_root());
    const std::string folder = full_root() + "/etc/heatmeterd";
    std::filesystem::create_directories(folder);
    for (const char* name : {"/p.conf", "/q.conf"}) std::ofstream(folder + name, std::ios::binary) << text;
    const contract::GatewayFacts here = contract::look_at_gateway();
    expect(here.ports.size() == 2 && here.ports.at("p").words == file.words, "the file of the gateway is the same");
    expect(here.ports.at("p").problems.size() == file.problems.size(), "and has the same problems");
    const auto known = known_meters(here);
    for (const std::string& uuid : uuids) {
        expect(!file.problems.empty() || std::ranges::count(known, uuid) == 1, "a configured meter is known");
    }
    auto ports = read_ports(folder);
    expect(ports["p"].words == file.words, "all ports of a folder are read in the same way");
    expect(uuids.empty() || (!ports["p"].problems.empty() && !ports["q"].problems.empty()),
           "a meter on two ports is a problem of both");
}

template <typename Work>
bool ends_the_daemon(Work work) {
    try {
        work();
        return false;
    } catch (const Json::Exception&) {
        return true;
    }
}

void look_at_answer(const std::string& text) {
    const contract::ServiceAnswer answer = contract::parse_service_answer(text);
    MeterSettings settings;
    PortRecord record;
    const bool ends = ends_the_daemon([&] {
        Json::Value whole;
        if (!json_rpc_parse(text, whole)) throw Json::RuntimeError("no JSON");
        take_driver_config(whole, settings);
        take_port_config(whole, FuzzUuid, record);
    });
    expect(ends == (answer.state == contract::ServiceState::Nonsense),
           "what ends the daemon is nonsense, nothing else");
    expect(ends == !answer.fault.empty(), "nonsense has its reason");
    if (!ends) {
        expect(answer.serial == settings.tc_sernum, "the serial number is the daemon's");
        // Which cuts a path that is too long.
        expect(answer.port.starts_with(settings.port_name), "the port is the daemon's");
        expect(answer.port.size() == settings.port_name.size() || settings.port_name.size() == 127, "all of it");
        expect((answer.parity == "E") == (settings.tc_parity == 1), "the parity is the daemon's");
        expect(answer.manufacturer == record.manufacturer, "the manufacturer is the daemon's");
        expect(static_cast<int>(answer.systems.size()) == record.subsystem_count, "the heat systems are the daemon's");
    }
    for (const char* name : Names) {
        for (const bool is_single_bus : {false, true}) {
            contract::Findings found;
            contract::check_settings(FuzzUuid, name, is_single_bus, answer, found);
            check_findings(found);
            expect(!found.empty(), "something is told of every answer");
        }
    }
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    quiet_stdout();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    if (input.byte() == 0) {
        look_at_port_file(input.rest());
    } else {
        look_at_answer(std::string(input.rest()));
    }
    return 0;
}
