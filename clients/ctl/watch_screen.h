#pragma once
// `watch` on the whole screen.

#include <cstdint>
#include <optional>

#include "contract/live.h"
#include "ctl/console.h"

namespace ctl {

/// Shows it until a key or a signal ends it, or the time is over. False, and nothing was shown, on a terminal that can
/// do too little.
bool run_watch_screen(contract::Live& model, const Console& console, std::optional<std::int64_t> seconds);

}  // namespace ctl
