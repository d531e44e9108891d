#pragma once
// Is all well? The rules that turn what can be seen of a gateway and its meters into a level, with the reason of each
// trouble and what to do about it. A trouble is told once, by its cause: what follows from it is not told.
//
// A meter is judged by the age of its values: that it is `Connected` says little.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "contract/facts.h"

namespace contract {

enum class Level { Ok, Unknown, Warning, Critical };  ///< the worst one last
std::string_view text_of(Level level);                ///< "ok"

struct Reason {
    std::string word;  ///< stable, for programs: "nothing-heard"
    Level level = Level::Ok;
    std::string text;  ///< what is the matter
    std::string help;  ///< what to do; empty where there is nothing to be done
};

struct Verdict {
    Level level = Level::Ok;
    std::vector<Reason> reasons;
};

Verdict judge(const GatewayFacts& here);
Verdict judge(const MeterFacts& meter, const GatewayFacts& here);

/// From which age on values are old: the pause between two polls, the hour change of a KM5, and the passes of the other
/// meters on the line. Seconds.
std::int64_t longest_age(const MeterFacts& meter);

/// How far a newest record is behind the meter's clock; nothing without one of them.
std::optional<std::int64_t> lag_of(const SystemFacts& system, const std::optional<std::int64_t>& record);

/// What the meter's clock was ahead of the gateway's when it was read last.
std::optional<std::int64_t> clock_gap(const SystemFacts& system);

}  // namespace contract
