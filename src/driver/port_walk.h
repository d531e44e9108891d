#pragma once
// The loop of a process that serves several meters of one family on one port.

#include <vector>

#include "driver/hcd_base_driver.h"

class UniLog;

/// Gives each driver its turn, for ever: a pause, the rule of `/tmp/extds_pause` with this number of seconds, then
/// run_main of every driver whose update is due. What it does goes to `log`, which may be null.
[[noreturn]] void walk_port(const std::vector<HCDBaseDriver*>& drivers, unsigned pause_seconds,
                            const char* extds_seconds, UniLog* log);
