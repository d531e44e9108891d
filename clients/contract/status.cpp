#include "contract/status.h"

#include <algorithm>

namespace contract {

Status look_at_status(const std::vector<std::string>& wanted) {
    Status status;
    status.here = look_at_gateway();
    const std::vector<std::string> known = known_meters(status.here);
    for (const std::string& uuid : wanted.empty() ? known : wanted) {
        MeterStatus meter;
        if (std::ranges::count(known, uuid) != 0) {
            meter.facts = look_at(uuid, status.here);
        } else {
            meter.facts.meter.uuid = uuid;
            meter.verdict = {Level::Unknown,
                             {{"no-files", Level::Unknown, "there is no such meter here: no files, no process, no port",
                               "heatmeterctl list tells which there are"}}};
        }
        status.meters.push_back(std::move(meter));
    }
    status.uplink = read_backlog(status.here.now);
    // What is known of the gateway counts for all, so it is judged when all was seen.
    status.gateway = judge(status.here);
    status.level = status.meters.empty() ? std::max(Level::Unknown, status.gateway.level) : status.gateway.level;
    for (MeterStatus& meter : status.meters) {
        if (meter.verdict.reasons.empty()) meter.verdict = judge(meter.facts, status.here);
        status.level = std::max(status.level, meter.verdict.level);
    }
    return status;
}

}  // namespace contract
