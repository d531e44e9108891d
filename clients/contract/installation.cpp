#include "contract/installation.h"

#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "contract/items.h"
#include "contract/site.h"
#include "core/files.h"
#include "core/gateway.h"

namespace contract {

namespace {

constexpr std::size_t LongestCommandLine = std::size_t{64} * 1024;

Words command_line(pid_t pid) {
    const std::string text = read_text("/proc/" + std::to_string(pid) + "/cmdline", LongestCommandLine);
    Words words;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\0', at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

/// The serial port among the open files of a process: the only terminal that is not a standard stream.
void look_for_port(Process& process) {
    const std::string folder = gateway().root() + "/proc/" + std::to_string(process.pid) + "/fd";
    if (::access(folder.c_str(), R_OK | X_OK) != 0) return;
    process.has_port = false;
    constexpr unsigned FirstTerminal = 4;
    constexpr unsigned LastTerminal = 255;
    for (const std::string& name : names_in("/proc/" + std::to_string(process.pid) + "/fd")) {
        if (name.size() == 1 && name < "3") continue;
        struct stat status {};
        if (gateway().look_at("/proc/" + std::to_string(process.pid) + "/fd/" + name, status) != 0) continue;
        // Memory devices and the like have major numbers below, and so has the controlling terminal.
        const unsigned kind = major(status.st_rdev);
        if (!S_ISCHR(status.st_mode) || kind < FirstTerminal || kind > LastTerminal || kind == 5) continue;
        std::array<char, 512> target{};
        const ssize_t length = ::readlink((folder + '/' + name).c_str(), target.data(), target.size());
        if (length <= 0) continue;
        process.port.assign(target.data(), static_cast<std::size_t>(length));
        process.has_port = true;
    }
}

std::string item_text(const std::string& uuid, int system, const char* name) {
    const auto item = read_item(uuid, system, name);
    return item ? item->text : std::string();
}

Family family_of_model(const std::string& model) {
    if (model.starts_with("KM5") || model.starts_with("AT-T")) return KM5;
    if (model.starts_with("SA94")) return SA94;
    if (model.starts_with("VIST-TC")) return VISTmodbus;
    return NoFamily;
}

bool has_log(const std::string& uuid, const char* ending) {
    return exists("/tmp/uni_logs." + uuid + ending);
}

}  // namespace

std::vector<Process> processes() {
    std::vector<Process> found;
    for (const std::string& name : names_in("/proc")) {
        Process process;
        std::from_chars(name.data(), name.data() + name.size(), process.pid);
        if (process.pid <= 0) continue;
        process.words = command_line(process.pid);
        if (process.words.empty()) continue;
        const std::string& program = process.words.front();
        if (program.substr(program.rfind('/') + 1) != "heatmeterd") continue;
        process.words.erase(process.words.begin());
        process.uuids = meters_of(process.words);
        if (process.uuids.empty()) continue;
        if (!is_single_bus(process.words)) process.family = family_of(process.words.front());
        look_for_port(process);
        found.push_back(std::move(process));
    }
    return found;
}

Family look_at_family(const std::string& uuid) {
    for (int system = 1; system <= Systems; ++system) {
        const Family family = family_of_model(item_text(uuid, system, "MeterModel"));
        if (family != NoFamily) return family;
    }
    // A model of a VIST is any text. Its log is one, those of KM5 and SA-94 are three.
    if (exists("/tmp/driver." + uuid + ".state")) return KM5;
    if (has_log(uuid, ".messages.txt")) return exists(items_folder(uuid, 1) + "/dT") ? SA94 : NoFamily;
    for (int system = 1; system <= Systems; ++system) {
        const std::string folder = items_folder(uuid, system);
        if (exists(folder + "/ArchiveRecNum") || exists(folder + "/IT")) return VIST;
        const std::string archives = storage_folder(uuid, system) + "/tc_archives";
        if (exists(archives + "/_EXISTS_FIRST_RECORD")) return KM5;
        if (exists(archives + "/_hPrevE") || exists(archives + "/_A20")) return SA94;
        if (exists(storage_folder(uuid, system) + "/tmp_archives/T4")) return VISTmodbus;
    }
    return NoFamily;
}

Meter look_at_meter(const std::string& uuid, const std::vector<Process>& running) {
    Meter meter{.uuid = uuid, .family = NoFamily, .model = {}, .serial = {}, .systems = {}};
    for (const Process& process : running) {
        if (std::ranges::count(process.uuids, uuid) != 0 && process.family != NoFamily) meter.family = process.family;
    }
    if (meter.family == NoFamily) meter.family = look_at_family(uuid);
    for (int system = 1; system <= Systems; ++system) {
        const std::vector<std::string> names = names_in(items_folder(uuid, system));
        const bool has_values = std::ranges::any_of(names, [](const std::string& name) { return name != "Connected"; });
        if (has_values || !names_in(archive_folder(uuid, system)).empty()) meter.systems.push_back(system);
        if (meter.model.empty()) meter.model = item_text(uuid, system, "MeterModel");
        if (meter.serial.empty()) meter.serial = item_text(uuid, system, "SerialNumber");
    }
    return meter;
}

}  // namespace contract
