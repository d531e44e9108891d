#pragma once
// The loop of a process that serves several meters of one family on one port.

#include <vector>

#include "driver/hcd_base_driver.h"

class UniLog;

/// How a family walks its port.
struct PortWalk {
    unsigned pause_seconds;     ///< between two passes over the drivers
    bool pause_first;           ///< and before the first one
    const char* extds_seconds;  ///< what `/tmp/extds_pause` says
    UniLog* log;                ///< where the walk is told, or null
};

/// Gives each driver its turn, for ever: the rule of `/tmp/extds_pause`, then run_main of every driver whose update is
/// due and which has been initialised.
[[noreturn]] void walk_port(const std::vector<HCDBaseDriver*>& drivers, const PortWalk& walk);
