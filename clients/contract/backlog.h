#pragma once
// What heatmeter-uplink has still to bring to its brokers, from the outside: what it keeps of what was confirmed, and
// the sizes of the archive files.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace contract {

/// A small SQLite database, below the machine's root.
constexpr const char* UplinkState = "/var/lib/heatmeterd/uplink.db";

struct SinkBacklog {
    std::string name;                            ///< "mqtt", "nats"
    std::uint64_t pending_bytes = 0;             ///< of lines that were not confirmed
    std::optional<std::int64_t> oldest_s;        ///< age of the oldest record among them
    std::optional<std::int64_t> last_confirmed;  ///< when the broker confirmed lines, seconds since the epoch
};

/// Of the sinks in use; nothing without an uplink. A file that was filled anew up to the same place counts as whole for
/// the moment until the uplink looks at it.
std::optional<std::vector<SinkBacklog>> read_backlog(std::int64_t now);

}  // namespace contract
