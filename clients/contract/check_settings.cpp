#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "contract/check.h"

namespace contract {

namespace {

constexpr const char* InService = "correct it in the configuration service";

void check_serial(const std::string& uuid, Family family, std::uint32_t serial, Findings& found) {
    struct Range {
        Family family;
        std::uint32_t modulus;  // what counts is the rest
        std::uint32_t most;
        const char* what;
    };
    constexpr std::array Ranges = {
        Range{KM5, 100'000'000, 99'999'999, "its lowest eight digits count"},
        Range{VIST, 0, 0x7FFFFFFF, "it is the network number"},
        Range{VISTmodbus, 256, 247, "its low byte is the address, 1 to 247"},
        Range{SA94, 0x100000, 0xFFFFF, "its low 20 bits count"},
    };
    const auto* const range = std::ranges::find(Ranges, family, &Range::family);
    if (range == Ranges.end()) return;
    const std::uint32_t address = range->modulus == 0 ? serial : serial % range->modulus;
    if (address == 0 || address > range->most) {
        found.push_back(
            {"serial", Level::Critical,
             fmt::format("{}: serial number {} gives the address {}; {}", uuid, serial, address, range->what),
             InService});
    } else if (address != serial) {
        found.push_back({"serial", Level::Warning,
                         fmt::format("{}: serial number {} becomes {}; {}", uuid, serial, address, range->what),
                         InService});
    } else {
        found.push_back({"serial", Level::Ok, fmt::format("{}: serial number {}", uuid, serial), ""});
    }
}

void check_line(const std::string& uuid, Family family, bool is_single_bus, const ServiceAnswer& answer,
                Findings& found) {
    const std::uint32_t told = is_single_bus && answer.own_speed != 0 ? answer.own_speed : answer.speed;
    const unsigned speed = speed_on_port(family, is_single_bus, told);
    if (speed != told) {
        found.push_back(
            {"speed", Level::Warning, fmt::format("{}: speed {} becomes {}", uuid, told, speed), InService});
    } else {
        found.push_back({"speed", Level::Ok, fmt::format("{}: speed {}", uuid, speed), ""});
    }
    const bool is_even = answer.parity == "E";
    const bool has_none = answer.parity.empty() || answer.parity == "N";
    const char* const on_port = is_single_bus    ? (is_even ? "even" : "none")
                                : family == KM5  ? "none"
                                : is_even        ? "even"
                                : family == SA94 ? "odd"
                                                 : "none";
    const char* const meant = is_even ? "even" : has_none ? "none" : answer.parity == "O" ? "odd" : "something else";
    if (std::string_view(on_port) != meant) {
        found.push_back({"parity", Level::Warning,
                         fmt::format("{}: parity \"{}\" becomes {}", uuid, answer.parity, on_port),
                         "say E or N; an SA-94 knows E and odd, a KM5 none"});
    } else {
        found.push_back({"parity", Level::Ok, fmt::format("{}: parity {}", uuid, on_port), ""});
    }
}

void check_manufacturer(const std::string& uuid, const std::string& name, bool is_single_bus,
                        const std::string& manufacturer, Findings& found) {
    constexpr const char* Known = "known are km-5-6i, km-5 and all that begins so, vis-t, vis-t-modbus, sa-94-2m";
    const Family made = family_of_manufacturer(manufacturer);
    if (made == NoFamily) {
        found.push_back({"manufacturer", is_single_bus ? Level::Critical : Level::Warning,
                         fmt::format("{}: the manufacturer \"{}\" is unknown{}", uuid, manufacturer,
                                     is_single_bus ? ": nobody reads the meter" : ""),
                         Known});
    } else if (!is_single_bus && made != family_of(name)) {
        found.push_back({"manufacturer", Level::Critical,
                         fmt::format("{}: the service says {}, the process {}", uuid, manufacturer, name),
                         "correct the word in front of -r, or the manufacturer in the service"});
    } else if (!is_single_bus && made == KM5 && (name == "KM56i") != (manufacturer == "km-5-6i")) {
        found.push_back({"manufacturer", Level::Warning,
                         fmt::format("{}: the service says {}, the process {}", uuid, manufacturer, name),
                         "KM56i goes with km-5-6i, KM5 and ATT with the others"});
    } else {
        found.push_back({"manufacturer", Level::Ok, fmt::format("{}: manufacturer {}", uuid, manufacturer), ""});
    }
}

}  // namespace

unsigned speed_on_port(Family family, bool is_single_bus, unsigned speed) {
    constexpr std::array Known = {2400u, 4800u, 9600u, 19200u, 38400u, 57600u, 115200u};
    constexpr unsigned Fallback = 2400;
    if (speed == 1200) return is_single_bus ? Fallback : family == KM5 ? 9600 : 4800;
    if (std::ranges::find(Known, speed) == Known.end()) return Fallback;
    return !is_single_bus && family != KM5 && speed > 19200 ? 4800 : speed;
}

void check_settings(const std::string& uuid, const std::string& name, bool is_single_bus, const ServiceAnswer& answer,
                    Findings& found) {
    if (answer.state == ServiceState::Off) {
        found.push_back({"service", Level::Critical, "the configuration service is off", "start it first"});
    } else if (answer.state == ServiceState::Silent) {
        found.push_back({"service", Level::Critical, "the configuration service does not answer", "mend it first"});
    } else if (answer.state == ServiceState::Nonsense) {
        found.push_back({"service", Level::Critical,
                         fmt::format("{}: the configuration service answers nonsense: {}", uuid, answer.fault),
                         "mend it first: a process that starts now ends at once"});
    } else if (answer.state == ServiceState::Answers && !answer.knows()) {
        found.push_back({"service", Level::Critical,
                         fmt::format("{}: the configuration service does not know this uuid", uuid),
                         "correct the uuid here or there"});
    }
    if (answer.state != ServiceState::Answers || !answer.knows()) return;
    found.push_back({"service", Level::Ok, fmt::format("{}: the configuration service knows it", uuid), ""});
    check_manufacturer(uuid, name, is_single_bus, answer.manufacturer, found);
    const Family family = is_single_bus ? family_of_manufacturer(answer.manufacturer) : family_of(name);
    check_serial(uuid, family, answer.serial, found);
    check_line(uuid, family, is_single_bus, answer, found);
    if (family != KM5) return;
    constexpr std::size_t MostSystems = 3;
    if (answer.systems.empty()) {
        found.push_back({"systems", Level::Critical,
                         fmt::format("{}: the service names no heat system: the meter is never read", uuid),
                         InService});
    } else if (answer.systems.size() > MostSystems) {
        found.push_back({"systems", Level::Warning,
                         fmt::format("{}: of {} heat systems the first three are read", uuid, answer.systems.size()),
                         InService});
    }
}

}  // namespace contract
