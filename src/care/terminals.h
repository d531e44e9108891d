#pragma once
// The port of a running process, and the device that it ought to have open. The process never opens its port again, so
// one whose adapter was unplugged has to be started again when the adapter is back.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "care/port_file.h"

using Devices = std::vector<std::string>;

enum class PortLook {
    Fine,    // also of a process that is no more
    Gone,    // it holds a device that is no more, or not what its name leads to now
    Closed,  // it holds none
};
PortLook look_at_port(pid_t pid, const Devices& devices);

/// Tells one state of the devices from another: which of them there are, and since when. "" while there is none.
std::string state_of(const Devices& devices);

/// The devices that the configuration service names for the process's words; nothing without an answer in JSON.
std::optional<Devices> configured_devices(const Words& words);

/// The same, but waits until the service answers, at most so many seconds.
std::optional<Devices> wait_for_devices(const Words& words, unsigned seconds);

/// A running process of a program by its name, without folders, that reads one of the meters; 0 without any.
pid_t reader_of(const Words& meters, const std::string& program);

/// For a process that this program has not started: false when it wants to be started again.
bool port_is_fine(pid_t pid);
