#pragma once
// What is missing in a meter's archives, or stands there twice. A record is what belongs together by its end, though
// its totals and its means are dated one period apart.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/archive_table.h"

namespace contract {

struct Gaps {
    struct Hole {
        std::int64_t from;  ///< the first record that is missing
        std::int64_t to;    ///< the next one that is there
        std::size_t count;
    };
    struct Incomplete {
        std::int64_t time;
        std::vector<std::string> missing;
    };
    struct Contradiction {
        std::int64_t time;  ///< as in the file
        std::string name;
        std::vector<std::string> values;  ///< all different ones, in the order of writing
    };

    std::optional<std::int64_t> from;  ///< nothing when no time was asked for, and there is no record
    std::optional<std::int64_t> to;
    std::size_t expected = 0;  ///< records between these two
    std::size_t present = 0;   ///< of them
    std::vector<Hole> holes;
    std::vector<Incomplete> incomplete;
    std::vector<Contradiction> contradictions;
    std::size_t unreadable = 0;
    bool has_changed = false;

    bool any() const { return !holes.empty() || !incomplete.empty() || !contradictions.empty() || unreadable != 0; }
};

/// Between the times asked for, or from the first record to the newest one. `staged`: of a driver that stages its
/// records. Its totals come with a header only, one for each hour in which a pass ran: none is missed.
Gaps find_gaps(const std::string& folder, ArchiveKind kind, const ArchiveQuestion& question, bool staged);

}  // namespace contract
