#include "contract/devices.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <charconv>
#include <ctime>
#include <sstream>

#include <fmt/format.h>

#include "contract/site.h"
#include "contract/users.h"
#include "core/gateway.h"

namespace contract {

namespace {

/// By the kernel's table of terminal drivers.
bool is_terminal(dev_t number) {
    std::istringstream table(read_text("/proc/tty/drivers", std::size_t{64} * 1024));
    bool any = false;
    for (std::string row; std::getline(table, row);) {
        std::istringstream words(row);
        std::string name;
        std::string path;
        unsigned its_major = 0;
        std::string minors;
        if (!(words >> name >> path >> its_major >> minors)) continue;
        any = true;
        if (its_major != major(number)) continue;
        unsigned first = 0;
        unsigned last = 0;
        const char* const end = minors.data() + minors.size();
        const auto read = std::from_chars(minors.data(), end, first);
        last = first;
        if (read.ptr != end) std::from_chars(read.ptr + 1, end, last);
        if (minor(number) >= first && minor(number) <= last) return true;
    }
    constexpr unsigned FirstTerminal = 4;
    return !any && major(number) >= FirstTerminal;
}

std::string owner_text(const struct stat& status) {
    return fmt::format("{}:{} {:o}", user_name(status.st_uid), group_name(status.st_gid), status.st_mode & 07777);
}

pid_t pid_in(const std::string& name) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    return error == std::errc{} && end == name.data() + name.size() ? pid : 0;
}

/// Has the device open, and is no rival: who has the other end of a pseudo-terminal keeps its line alive.
bool has_open(pid_t pid, dev_t number) {
    constexpr unsigned MultiplexerMajor = 5;
    constexpr unsigned MultiplexerMinor = 2;
    const std::string folder = "/proc/" + std::to_string(pid) + "/fd";
    bool found = false;
    for (const std::string& name : names_in(folder)) {
        struct stat status {};
        if (gateway().look_at(folder + '/' + name, status) != 0 || !S_ISCHR(status.st_mode)) continue;
        if (status.st_rdev == makedev(MultiplexerMajor, MultiplexerMinor)) return false;
        found = found || status.st_rdev == number;
    }
    return found;
}

/// The numbers of /proc/PID/stat, as proc(5) counts them from 1; 0 for what is none.
std::vector<long long> fields_of(pid_t pid) {
    const std::string text = read_text("/proc/" + std::to_string(pid) + "/stat", 4096);
    // The name, in parentheses, may hold anything.
    const std::size_t name_end = text.rfind(')');
    if (name_end == std::string::npos) return {};
    std::vector<long long> fields = {pid, 0};
    std::istringstream words(text.substr(name_end + 1));
    for (std::string word; words >> word;) {
        long long number = 0;
        std::from_chars(word.data(), word.data() + word.size(), number);
        fields.push_back(number);
    }
    return fields;
}

}  // namespace

Device look_at_device(const std::string& name) {
    Device device{.name = name, .state = DeviceState::Unknown, .number = 0, .usable = false, .owner = {}};
    if (name.empty() || !gateway().root().empty()) return device;
    struct stat status {};
    device.state = DeviceState::Missing;
    if (gateway().look_at(name, status) != 0) return device;
    device.state =
        S_ISCHR(status.st_mode) && is_terminal(status.st_rdev) ? DeviceState::There : DeviceState::NoTerminal;
    device.number = status.st_rdev;
    device.usable = ::access(name.c_str(), R_OK | W_OK) == 0;
    device.owner = owner_text(status);
    return device;
}

std::vector<Holder> holders_of(const Device& device) {
    std::vector<Holder> holders;
    if (device.state != DeviceState::There) return holders;
    for (const std::string& name : names_in("/proc")) {
        const pid_t pid = pid_in(name);
        if (pid <= 0 || pid == ::getpid() || !has_open(pid, device.number)) continue;
        std::string program = read_text("/proc/" + name + "/comm", 64);
        program.resize(std::min(program.find('\n'), program.size()));
        holders.push_back({pid, program});
    }
    return holders;
}

std::optional<std::int64_t> age_of(pid_t pid) {
    constexpr std::size_t StartTime = 22;
    const auto fields = fields_of(pid);
    if (fields.size() < StartTime) return std::nullopt;
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec - fields[StartTime - 1] / ::sysconf(_SC_CLK_TCK);
}

std::optional<Usage> usage_of(pid_t pid) {
    constexpr std::size_t UserTime = 14;
    constexpr std::size_t SystemTime = 15;
    constexpr std::size_t Pages = 24;
    const auto fields = fields_of(pid);
    if (fields.size() < Pages) return std::nullopt;
    const auto ticks = static_cast<double>(::sysconf(_SC_CLK_TCK));
    return Usage{
        .cpu_seconds = static_cast<double>(fields[UserTime - 1] + fields[SystemTime - 1]) / ticks,
        .resident_bytes = static_cast<double>(fields[Pages - 1]) * static_cast<double>(::sysconf(_SC_PAGESIZE))};
}

Storage look_at_storage() {
    constexpr const char* Path = "/mnt/storage";
    Storage storage;
    struct stat status {};
    storage.there = gateway().look_at(Path, status) == 0 && S_ISDIR(status.st_mode);
    if (!storage.there) return storage;
    struct stat above {};
    storage.mounted = gateway().look_at("/mnt", above) == 0 && above.st_dev != status.st_dev;
    const std::string path = gateway().root() + Path;
    struct statvfs room {};
    if (::statvfs(path.c_str(), &room) == 0) {
        storage.read_only = (room.f_flag & ST_RDONLY) != 0;
        storage.free = std::uint64_t{room.f_bavail} * room.f_frsize;
        storage.size = std::uint64_t{room.f_blocks} * room.f_frsize;
        storage.out_of_inodes = room.f_files != 0 && room.f_favail == 0;
    }
    storage.usable = ::access(path.c_str(), W_OK) == 0;
    return storage;
}

}  // namespace contract
