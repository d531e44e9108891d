#pragma once
// The flags under /tmp by which programs hold each other back: which there are, who made them, since when.

#include <cstdint>
#include <string>
#include <vector>

#include "contract/catalogue.h"

namespace contract {

enum class FlagKind {
    Pause,          ///< holds most ports
    PauseAll,       ///< holds every port
    ForceUpdate,    ///< poll a meter now
    ForceArchives,  ///< nobody looks at it
    ExtdsPause,     ///< the daemon's own: an outside service is to keep off the bus
    DriverLock,     ///< the daemon's own: archives of a VIST on Modbus are being read
    ReportLock,     ///< a neighbour holds a VIST's archives
};

struct Flag {
    FlagKind kind = FlagKind::Pause;
    std::string path;
    std::string uuid;        ///< empty: of all meters
    std::int64_t since = 0;  ///< seconds since the epoch
    std::string owner;       ///< the user's name, or number
    std::string text;        ///< what stands in it, one line
};

/// All that are there, those of the bus first.
std::vector<Flag> flags();

/// True for a pause that holds this family's port. `alias`: the port's alias by the configuration service.
bool holds(const Flag& flag, Family family, const std::string& alias);

/// What the driver of a KM5 does, from its state file: the text behind time and name; empty without one.
std::string driver_state(const std::string& uuid);
/// An item _DriverStatus in words; empty for another text.
std::string status_text(const std::string& driver_status);

}  // namespace contract
