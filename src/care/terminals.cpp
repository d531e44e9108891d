#include "care/terminals.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <exception>
#include <fstream>
#include <iterator>
#include <sstream>

#include <json/value.h>

#include "config/http_client.h"
#include "config/json_rpc.h"
#include "core/gateway.h"

namespace {

constexpr unsigned MemoryDevices = 1;  // major number of /dev/null and its like
constexpr int RequestId = 1;
constexpr double SecondsToOpen = 3;  // that a process is given after its start

std::string proc(pid_t pid, const char* name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

/// Character devices above the standard streams.
std::vector<struct stat> held_devices(pid_t pid) {
    std::vector<struct stat> held;
    for (const std::string& name : names_in(proc(pid, "fd"))) {
        int fd = 0;
        std::from_chars(name.data(), name.data() + name.size(), fd);
        struct stat status {};
        if (fd <= STDERR_FILENO || ::stat(proc(pid, ("fd/" + name).c_str()).c_str(), &status) != 0) continue;
        if (S_ISCHR(status.st_mode) && major(status.st_rdev) != MemoryDevices) held.push_back(status);
    }
    return held;
}

bool runs(pid_t pid) {
    std::ifstream file(proc(pid, "stat"));
    std::string text;
    std::getline(file, text);
    const std::size_t name_end = text.rfind(')');
    return name_end != std::string::npos && text.size() > name_end + 2 && text[name_end + 2] != 'Z';
}

/// Seconds since the process was started.
double age_of(pid_t pid) {
    constexpr int StartTime = 20;  // fields behind the name
    std::ifstream file(proc(pid, "stat"));
    std::string text;
    std::getline(file, text);
    std::istringstream fields(text.substr(std::min(text.rfind(')'), text.size() - 1) + 1));
    std::string field;
    for (int i = 0; i < StartTime; ++i) fields >> field;
    double ticks = 0;
    std::from_chars(field.data(), field.data() + field.size(), ticks);
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<double>(now.tv_sec) - ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

Words command_line_of(pid_t pid) {
    std::ifstream file(proc(pid, "cmdline"), std::ios::binary);
    Words words;
    for (std::string word; std::getline(file, word, '\0');) words.push_back(word);
    return words;
}

std::string device_in(const Json::Value& answer) {
    const Json::Value* value = &answer;
    for (const char* key : {"result", "port_params", "name"}) {
        if (!value->isObject()) return "";
        value = &(*value)[key];
    }
    return value->isString() ? value->asString() : "";
}

std::optional<std::string> configured_device(const std::string& uuid) {
    Json::Value params;
    params.append(uuid);
    Json::Rpc::HttpClient client(gateway().service_address());
    std::string text;
    if (client.Send(json_rpc_request(RequestId, "get_config", params)) == -1 || client.Recv(text) == -1) {
        return std::nullopt;
    }
    try {
        Json::Value answer;
        if (json_rpc_parse(text, answer)) return device_in(answer);
    } catch (const std::exception&) {  // jsoncpp's, of an answer that is nested too deeply
    }
    return std::nullopt;
}

}  // namespace

PortLook look_at_port(pid_t pid, const Devices& devices) {
    const auto held = held_devices(pid);
    if (held.empty()) return runs(pid) ? PortLook::Closed : PortLook::Fine;
    bool any_there = false;
    for (const std::string& device : devices) {
        struct stat there {};
        if (::stat(device.c_str(), &there) != 0) continue;
        any_there = true;
        for (const auto& mine : held) {
            if (mine.st_nlink > 0 && mine.st_rdev == there.st_rdev) return PortLook::Fine;
        }
    }
    // Without the name of a device it is enough that what is held still has one of its own.
    const bool alive = std::any_of(held.begin(), held.end(), [](const auto& mine) { return mine.st_nlink > 0; });
    return alive && !any_there ? PortLook::Fine : PortLook::Gone;
}

std::string state_of(const Devices& devices) {
    std::string state;
    for (const std::string& device : devices) {
        struct stat there {};
        if (::stat(device.c_str(), &there) != 0) continue;
        state += device;
        for (const auto number :
             {static_cast<std::intmax_t>(there.st_rdev), static_cast<std::intmax_t>(there.st_ino),
              static_cast<std::intmax_t>(there.st_ctim.tv_sec), static_cast<std::intmax_t>(there.st_ctim.tv_nsec)}) {
            state += " " + std::to_string(number);
        }
        state += "\n";
    }
    return state;
}

std::optional<Devices> configured_devices(const Words& words) {
    Words meters = meters_of(words);
    if (!is_single_bus(words) && meters.size() > 1) meters.resize(1);  // whose port is the port of all
    Devices devices;
    for (const std::string& uuid : meters) {
        const auto device = configured_device(uuid);
        if (!device) return std::nullopt;
        if (!device->empty()) devices.push_back(*device);
    }
    return devices;
}

std::optional<Devices> wait_for_devices(const Words& words, unsigned seconds) {
    const std::int64_t end = gateway().steady_microseconds() + std::int64_t{seconds} * 1000000;
    while (true) {
        if (auto devices = configured_devices(words)) return devices;
        if (gateway().steady_microseconds() >= end) return std::nullopt;
        gateway().sleep(1);
    }
}

pid_t reader_of(const Words& meters, const std::string& program) {
    for (const std::string& name : names_in("/proc")) {
        pid_t pid = 0;
        std::from_chars(name.data(), name.data() + name.size(), pid);
        Words words = pid > 0 ? command_line_of(pid) : Words();
        if (words.empty() || words[0].substr(words[0].rfind('/') + 1) != program) continue;
        words.erase(words.begin());
        const Words its = meters_of(words);
        if (std::find_first_of(its.begin(), its.end(), meters.begin(), meters.end()) != its.end()) return pid;
    }
    return 0;
}

bool port_is_fine(pid_t pid) {
    if (look_at_port(pid, {}) == PortLook::Gone) return false;
    while (runs(pid) && age_of(pid) < SecondsToOpen) gateway().sleep(1);
    Words words = command_line_of(pid);
    if (!words.empty()) words.erase(words.begin());  // the program itself
    // A new process would not come far without the service.
    const auto devices = configured_devices(words);
    if (!devices) return true;
    const PortLook look = look_at_port(pid, *devices);
    return look == PortLook::Fine || (look == PortLook::Closed && state_of(*devices).empty());
}
