#pragma once
// What a Prometheus scrapes. Names and units as its naming rules have them.

#include <map>
#include <string>

#include "contract/live.h"
#include "contract/status.h"

namespace view {

/// Of this program.
struct Counts {
    std::map<unsigned, std::uint64_t> answers;  ///< by HTTP status
    std::size_t connections = 0;
    std::size_t streams = 0;
};

/// In Prometheus's text format. Values and ages are of now, levels and reasons of the last look.
std::string metrics_text(const contract::Live& live, const contract::Status& status, const Counts& counts,
                         std::int64_t now);

}  // namespace view
