#pragma once
// What a sink has still to be sent of the archive files, in batches.
//
// Lines of a file go out in its order. A batch joins files of one kind of a meter's system, and the next of them comes
// when this one was confirmed: so the last time that a line is sent comes behind the last time of all lines in front of
// it, whatever is sent twice. With the newest first the end of a long file is sent ahead, once more than it would be:
// its turn in the order comes too.

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "contract/catalogue.h"
#include "uplink/state.h"

namespace uplink {

struct Group {
    std::string uuid;
    int system = 1;
    contract::ArchiveKind kind = contract::ArchiveKind::Hourly;

    auto operator<=>(const Group&) const = default;  // NOLINT(modernize-use-nullptr): no pointer is compared
};

/// Lines of a group as one message.
struct Batch {
    Group group;
    bool is_ahead = false;
    struct Piece {
        std::string name;
        Place end;
    };
    std::vector<Piece> pieces = {};
    std::string id = {};    ///< the same for the same bytes of the same files
    std::string body = {};  ///< JSON
    std::size_t lines = 0;
};

class Queue {
  public:
    Queue(std::string gateway_name, bool is_newest_first)
        : gateway(std::move(gateway_name)), newest_first(is_newest_first) {}

    /// What was confirmed before this program began.
    void remember(const FileName& file, const Place& place);
    /// Files of a meter's system may have changed.
    void look_at(const std::string& uuid, int system);

    /// At most so many bytes of lines; none while all is sent or on its way.
    std::optional<Batch> next(std::size_t most);
    /// The places that have moved, to be kept.
    std::vector<State::Change> confirmed(const Batch& batch);
    /// Will be sent again.
    void failed(const Batch& batch);
    /// The same, as another one than the stream remembers.
    void failed(const Batch& batch, std::uint64_t last_sequence);
    /// Places that moved over what is no line, since the last call.
    std::vector<State::Change> take_passed() { return std::exchange(passed, {}); }
    /// Files that may not be read, each once.
    std::vector<std::string> take_closed() { return std::exchange(closed, {}); }

    std::uint64_t unreadable() const { return unreadable_count; }

  private:
    struct FileState {
        Place done;                // confirmed in order, or on its way
        Place ahead;               // of the newest: sent up to there; no offset when nothing is sent ahead
        std::uint64_t rested = 0;  // how the file looked when all of it was confirmed
    };
    struct GroupState {
        std::map<std::string, FileState> files;
        bool is_due = false;  // may have something to send
        bool is_on_its_way = false;
        std::string last_name;  // with which the last batch ended
        std::string mark;       // that makes the next batch another one than it was before
    };
    enum class Road { Ahead, InOrder };

    std::optional<Batch> take(const Group& group, GroupState& state, Road road, std::size_t most);
    void take_file(const Group& group, const std::string& path, const std::string& name, FileState& file, Road road,
                   std::size_t most, Batch& batch);

    std::string gateway;
    bool newest_first;
    std::map<Group, GroupState> groups;
    Group last_group;
    std::vector<State::Change> passed;
    std::vector<std::string> closed;
    std::set<std::string> known_closed;
    std::uint64_t unreadable_count = 0;
};

}  // namespace uplink
