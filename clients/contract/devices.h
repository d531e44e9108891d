#pragma once
// Serial ports as one sees them without opening one, and who has them open.

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace contract {

enum class DeviceState {
    Unknown,  ///< no name, or files of another gateway
    Missing,
    NoTerminal,
    There,
};

struct Device {
    std::string name;
    DeviceState state = DeviceState::Unknown;
    dev_t number = 0;
    bool usable = false;  ///< this user may read and write it
    std::string owner;    ///< "root:dialout 660"
};
Device look_at_device(const std::string& name);

struct Holder {
    pid_t pid = 0;
    std::string program;
};
/// Who has a terminal open, as far as this user may see it.
std::vector<Holder> holders_of(const Device& device);

/// Seconds since a process was started; nothing for one that is no more.
std::optional<std::int64_t> age_of(pid_t pid);

/// What a process has taken.
struct Usage {
    double cpu_seconds = 0;
    double resident_bytes = 0;
};
std::optional<Usage> usage_of(pid_t pid);

/// What can be written to: the folder of the archives.
struct Storage {
    bool there = false;
    bool mounted = false;  ///< another file system than that of "/mnt"
    bool read_only = false;
    bool usable = false;     ///< this user may write
    std::uint64_t free = 0;  ///< bytes
    std::uint64_t size = 0;
    bool out_of_inodes = false;
};
Storage look_at_storage();

}  // namespace contract
