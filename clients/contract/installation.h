#pragma once
// Who serves which meter here: running processes and what they hold open, configured ports, and what a meter's files
// tell of it.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "care/port_file.h"
#include "contract/catalogue.h"

namespace contract {

/// A running heatmeterd.
struct Process {
    pid_t pid = 0;
    Words words;  ///< as after the program's name: "KM5", "-r", uuids
    std::vector<std::string> uuids;
    Family family = NoFamily;      ///< none in single-bus mode
    std::optional<bool> has_port;  ///< a serial port is open; nothing when this user may not see it
    std::string port;              ///< its path; " (deleted)" behind the name of one that is gone
};
std::vector<Process> processes();

/// What a meter's files and its process tell of it.
struct Meter {
    std::string uuid;
    Family family = NoFamily;
    std::string model;  ///< empty: not known
    std::string serial;
    std::vector<int> systems;  ///< that have values or records
};
Meter look_at_meter(const std::string& uuid, const std::vector<Process>& running);
/// The same of the files alone, and only the family.
Family look_at_family(const std::string& uuid);

}  // namespace contract
