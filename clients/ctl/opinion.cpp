#include "ctl/opinion.h"

#include <chrono>

#include "core/gateway.h"

namespace ctl {

bool Opinion::look(bool has_changed) {
    constexpr std::int64_t Pause = 30'000'000;
    constexpr std::int64_t LongPause = 120'000'000;
    const std::int64_t now = gateway().steady_microseconds();
    const bool is_ready = found.valid() && found.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    if (is_ready) {
        const contract::Status status = found.get();
        verdicts.clear();
        for (const contract::MeterStatus& meter : status.meters) verdicts[meter.facts.meter.uuid] = meter.verdict;
        here = status.gateway;
        found_at = now;
    }
    has_news = has_news || has_changed;
    if (!found.valid() && (found_at == 0 || now >= found_at + (has_news ? Pause : LongPause))) {
        has_news = false;
        found = std::async(std::launch::async, [meters = uuids] { return contract::look_at_status(meters); });
    }
    return is_ready;
}

const contract::Verdict* Opinion::of(const std::string& uuid) const {
    const auto verdict = verdicts.find(uuid);
    return verdict == verdicts.end() ? nullptr : &verdict->second;
}

}  // namespace ctl
