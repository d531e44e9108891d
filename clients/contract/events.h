#pragma once
// The event archive of a meter's system: what has begun when, and when it was over.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/archive_reader.h"

namespace contract {

struct Event {
    std::string code;                   ///< of the meter, "87"
    std::optional<std::int64_t> begin;  ///< nothing when only its end is on file
    std::optional<std::int64_t> end;    ///< nothing while it lasts, or when it has begun anew before
};

/// Those that touch the span, in the order of what is known of them first. `unreadable` counts lines that are none.
std::vector<Event> read_events(const std::string& folder, const TimeSpan& span, std::size_t& unreadable);

}  // namespace contract
