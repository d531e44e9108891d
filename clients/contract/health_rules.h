#pragma once
// The rules of one meter, from the root of a trouble to its consequences: the first one that holds is the reason.

#include <optional>

#include "contract/health.h"

namespace contract::health {

/// Of a meter that no process reads.
Reason why_not_running(const MeterFacts& meter, const GatewayFacts& here);
/// Why no values come, or will not come for long; nothing when they do.
std::optional<Reason> why_silent(const MeterFacts& meter, const GatewayFacts& here);
/// Of a meter whose values come: why its archives do not.
std::optional<Reason> why_behind(const MeterFacts& meter, const GatewayFacts& here);

}  // namespace contract::health
