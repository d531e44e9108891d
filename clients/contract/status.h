#pragma once
// All meters and their gateway, seen and judged.

#include <optional>
#include <string>
#include <vector>

#include "contract/backlog.h"
#include "contract/health.h"

namespace contract {

struct MeterStatus {
    MeterFacts facts;
    Verdict verdict;
};

struct Status {
    GatewayFacts here;
    Verdict gateway;
    std::vector<MeterStatus> meters;
    std::optional<std::vector<SinkBacklog>> uplink;  ///< nothing without one
    Level level = Level::Ok;                         ///< the worst
};

/// These meters; without any all that are known. Asks the configuration service, and takes as long as that does, some
/// seconds at most.
Status look_at_status(const std::vector<std::string>& wanted);

}  // namespace contract
