#pragma once
// Present values on their way to one sink: those that have changed, and those that were not sent for long.

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "contract/items.h"

namespace uplink {

class Values {
  public:
    /// Times are the steady clock's milliseconds.
    explicit Values(std::int64_t longest_pause) : pause(longest_pause) {}

    struct Value {
        std::string uuid;
        int system;
        contract::Item item;
        bool is_first = false;  ///< of this item, since all counts as not sent
    };

    void look_at(const std::string& uuid, int system);
    /// The next ones to be sent, at most so many; they count as sent.
    std::vector<Value> take(std::size_t most, std::int64_t now);
    /// All are to be sent again: nobody knows what has arrived.
    void forget_sent();
    /// When the next unchanged one is due; -1: none is waiting for its time.
    std::int64_t next_due() const;

  private:
    static constexpr std::int64_t Never = -1;
    struct Sent {
        std::string text;
        std::int64_t time = 0;  // of the text's writing
        std::int64_t at = Never;
        bool is_known = false;
    };
    struct System {
        contract::Family family = contract::NoFamily;
        std::map<std::string, Sent> items;
    };

    std::int64_t pause;
    std::map<std::pair<std::string, int>, System> systems;
};

}  // namespace uplink
