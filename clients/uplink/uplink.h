#pragma once
// The whole: one thread that acts on what changes in files, on what brokers say, and on the few times that are due.

#include <string>

#include "uplink/settings.h"

namespace uplink {

/// Until `end` is readable. A std::runtime_error when the state cannot be kept in this folder.
void run(const Settings& settings, const std::string& state_folder, int end);

/// What would keep it from working, and what would not: lines for a keeper. True when all is well.
bool check(const Settings& settings, const std::string& state_folder);

}  // namespace uplink
