#include "contract/check.h"

#include <algorithm>
#include <array>
#include <map>

#include <fmt/format.h>

#include "contract/moments.h"
#include "contract/newest.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "contract/units.h"
#include "core/gateway.h"
#include "core/local_time.h"

namespace contract {

namespace {

constexpr std::int64_t Hour = 3600;

void check_uuid(const std::string& uuid, Findings& found) {
    constexpr std::string_view Plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    constexpr std::string_view Trouble = " \t\"'`\\$/";
    constexpr std::size_t Longest = 80;  // with more, values do not fit into what the daemon writes them with
    const auto add = [&](Level level, const std::string& what) {
        found.push_back({"uuid", level, fmt::format("\"{}\" {}", uuid.substr(0, Longest), what),
                         "use letters, digits, '.', '_' and '-'"});
    };
    const bool has_control =
        std::ranges::any_of(uuid, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; });
    if (!is_meter_name(uuid) || uuid.front() == '-') {
        add(Level::Critical, "cannot be a uuid: it is the name of a folder");
    } else if (has_control || uuid.find_first_of(Trouble) != std::string::npos) {
        add(Level::Critical, "has blanks, quotes or other letters that make trouble in names of files");
    } else if (uuid.size() > Longest) {
        add(Level::Critical, fmt::format("is too long: of more than {} letters values and links are lost", Longest));
    } else if (uuid.find_first_not_of(Plain) != std::string::npos) {
        add(Level::Warning, "has letters that a PORT.conf does not take");
    }
}

/// The zone's clock is set twice a year.
bool has_summer_time(std::int64_t now) {
    constexpr std::int64_t Week = 7 * 24 * Hour;
    const long offset = local_time(static_cast<std::time_t>(now)).tm_gmtoff;
    for (int week = 1; week <= 52; ++week) {
        if (local_time(static_cast<std::time_t>(now + week * Week)).tm_gmtoff != offset) return true;
    }
    return false;
}

void check_clock(const Words& uuids, const GatewayFacts& here, Findings& found) {
    constexpr std::int64_t Year2020 = 1577836800;
    std::int64_t newest = 0;
    for (const std::string& uuid : uuids) {
        for (int system = 1; system <= Systems && is_meter_name(uuid); ++system) {
            for (const ArchiveKind kind : {ArchiveKind::Hourly, ArchiveKind::Daily}) {
                newest = std::max(newest, newest_record(uuid, system, kind).value_or(0));
            }
        }
    }
    const std::string now = plain_moment_text(here.now);
    if (here.now < Year2020) {
        found.push_back({"clock", Level::Critical, "the clock says " + now, "set it before the start"});
    } else if (newest > here.now + Hour) {
        found.push_back(
            {"clock", Level::Critical,
             fmt::format("the clock says {}, and there are records up to {}", now, plain_moment_text(newest)),
             "set it before the start; or a meter's clock was wrong"});
    } else {
        found.push_back({"clock", Level::Ok, "the clock says " + now, ""});
    }
    if (has_summer_time(here.now)) {
        found.push_back({"zone", Level::Warning, "the zone has summer time, which a meter's clock may not follow",
                         "choose the zone by what the meters do: their dates are read in it"});
    } else {
        found.push_back({"zone", Level::Ok, "the zone has no summer time", ""});
    }
}

void check_flags(const Words& uuids, Family family, const GatewayFacts& here, Findings& found) {
    for (const Flag& flag : here.flags) {
        const bool is_mine = std::ranges::count(uuids, flag.uuid) != 0;
        const std::string who =
            fmt::format("{}, made by {} {} ago", flag.path, flag.owner, duration_text(here.now - flag.since));
        if (holds(flag, family, "")) {
            found.push_back({"flags", Level::Warning, "the bus is held by " + who,
                             "ask who made it to remove it, or remove it: heatmeterctl resume"});
        } else if (is_mine && flag.kind == FlagKind::ReportLock) {
            found.push_back({"flags", Level::Warning, "archives are held by " + who, "ask who made it to remove it"});
        } else if (is_mine && flag.kind == FlagKind::ForceArchives) {
            found.push_back({"flags", Level::Warning, "nobody looks at " + who, "remove it"});
        }
    }
}

void check_owner(const Words& uuids, Findings& found) {
    for (const std::string& uuid : uuids) {
        struct stat status {};
        if (!is_meter_name(uuid) || gateway().look_at_name("/tmp/" + uuid, status) != 0 || status.st_uid == 0) continue;
        struct stat storage {};
        const bool is_daemons =
            gateway().look_at_name("/mnt/storage/" + uuid, storage) == 0 && storage.st_uid == status.st_uid;
        if (is_daemons) continue;
        found.push_back(
            {"folder", Level::Warning,
             fmt::format("/tmp/{} belongs to the user {}, who can change what is published there", uuid, status.st_uid),
             "find out who it is, and remove it"});
    }
}

}  // namespace

void check_form(const Words& words, Findings& found) {
    const std::size_t before = found.size();
    const auto add = [&found](Level level, const std::string& text) {
        found.push_back({"words", level, text, "such as KM5 -r UUID... or any word -j UUID..."});
    };
    if (words.size() < 2 || (words[1] != "-r" && words[1] != "-j")) {
        return add(Level::Critical, "the words are not NAME -r UUID... or WORD -j UUID...");
    }
    constexpr std::array Names = {"KM5", "KM56i", "ATT", "VIST", "VISTmodbus", "SA94"};
    if (words[1] == "-r" && std::ranges::find(Names, words[0]) == Names.end()) {
        add(Level::Critical,
            fmt::format("there is no \"{}\"; there are {}. Capitals count", words[0], fmt::join(Names, ", ")));
    }
    const Words uuids = meters_of(words);
    if (uuids.empty()) add(Level::Critical, "there is no uuid");
    if (words[1] == "-r" && words[0] == "SA94" && uuids.size() > 1) {
        add(Level::Warning, "of several SA-94 a process reads the first one only");
    }
    std::map<std::string, int> seen;
    for (const std::string& uuid : uuids) {
        if (++seen[uuid] == 2) add(Level::Critical, "the uuid " + uuid + " stands twice");
        check_uuid(uuid, found);
    }
    if (found.size() == before) found.push_back({"words", Level::Ok, fmt::format("{}", fmt::join(words, " ")), ""});
}

void check_port(const Device& device, const Words& words, const GatewayFacts& here, Findings& found) {
    constexpr std::size_t LongestName = 127;
    const char* const where = "correct the service's port_params.name, or plug it in";
    const auto add = [&found](Level level, const std::string& text, const std::string& help) {
        found.push_back({"port", level, text, help});
    };
    if (device.name.empty()) return add(Level::Critical, "the configuration service names no port", where);
    if (device.name.size() > LongestName) return add(Level::Critical, "the name of the port is too long", where);
    if (device.state == DeviceState::Missing) return add(Level::Critical, device.name + " is not there", where);
    if (device.state == DeviceState::NoTerminal) return add(Level::Critical, device.name + " is no terminal", where);
    if (!device.usable) {
        add(Level::Warning, fmt::format("this user may not read and write {} ({})", device.name, device.owner),
            "root may; another user of the daemon wants to be in its group");
    }
    const Words uuids = meters_of(words);
    bool is_held = false;
    for (const Holder& holder : holders_of(device)) {
        const auto process = std::ranges::find(here.processes, holder.pid, &Process::pid);
        const bool is_this = process != here.processes.end() && process->words == words;
        is_held = true;
        if (is_this) {
            add(Level::Warning, fmt::format("{} is open already: process {} has these words", device.name, holder.pid),
                "it runs; do not start another one");
        } else {
            add(Level::Critical, fmt::format("{} is held by process {}, {}", device.name, holder.pid, holder.program),
                "end it first: one process a line");
        }
    }
    if (!is_held) add(Level::Ok, fmt::format("{} is there and free ({})", device.name, device.owner), "");
}

void check_ground(const Words& words, Family family, const GatewayFacts& here, Findings& found) {
    const Words uuids = meters_of(words);
    for (const Process& process : here.processes) {
        if (process.words == words) continue;
        for (const std::string& uuid : process.uuids) {
            if (std::ranges::count(uuids, uuid) == 0) continue;
            found.push_back(
                {"process", Level::Critical,
                 fmt::format("process {} reads {} already: two would write every line twice", process.pid, uuid),
                 "end it first"});
        }
    }
    const std::size_t before = found.size();
    for (const Reason& reason : judge(here).reasons) {
        if (!reason.word.starts_with("storage-")) continue;
        found.push_back({"storage", reason.level, reason.text, reason.help});
    }
    if (here.storage.there && !here.storage.read_only && !here.storage.usable && found.size() == before) {
        found.push_back({"storage", Level::Warning, "this user may not write to /mnt/storage",
                         "root may; for another user of the daemon make its folders by hand"});
    }
    if (found.size() == before) {
        found.push_back(
            {"storage", Level::Ok,
             fmt::format("/mnt/storage is mounted and writable, {} MiB are free", here.storage.free / 1024 / 1024),
             ""});
    }
    check_clock(uuids, here, found);
    check_flags(uuids, family, here, found);
    check_owner(uuids, found);
}

Findings check_units() {
    const Units units = read_units();
    Findings found;
    for (const std::string& problem : units.problems()) {
        found.push_back({"units", Level::Warning, problem, "correct the line; until then it counts for nothing"});
    }
    if (found.empty() && units.size() > 0) {
        found.push_back({"units", Level::Ok, fmt::format("{}: {} units", UnitsFile, units.size()), ""});
    }
    return found;
}

Findings check_words(const Words& words, const GatewayFacts& here) {
    Findings found;
    check_form(words, found);
    const bool has_form = words.size() > 2 && (words[1] == "-r" || words[1] == "-j");
    const bool single_bus = has_form && is_single_bus(words);
    const Family family = !has_form || single_bus ? NoFamily : family_of(words[0]);
    std::map<std::string, std::string> by_address;
    bool asks = has_form;
    std::string port;
    bool knows_port = false;
    for (const std::string& uuid : has_form ? meters_of(words) : Words()) {
        if (!asks) break;
        const ServiceAnswer answer = ask_service(uuid);
        check_settings(uuid, words[0], single_bus, answer, found);
        asks = answer.state != ServiceState::Off && answer.state != ServiceState::Silent;
        if (answer.state != ServiceState::Answers || !answer.knows()) continue;
        const auto [other, is_new] = by_address.emplace(std::to_string(answer.serial), uuid);
        if (!is_new) {
            found.push_back({"serial", Level::Critical,
                             fmt::format("{} and {} have one serial number", other->second, uuid),
                             "correct it in the configuration service"});
        }
        if (!knows_port) {
            port = answer.port;
            knows_port = true;
        } else if (answer.port != port) {
            found.push_back(
                {"port", Level::Warning,
                 fmt::format("{}: its port {} does not count, that of the first meter does", uuid, answer.port),
                 "a process has one port; correct the service or the words"});
        }
    }
    if (knows_port) check_port(look_at_device(port), words, here, found);
    check_ground(words, family, here, found);
    return found;
}

}  // namespace contract
