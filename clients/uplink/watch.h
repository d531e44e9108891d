#pragma once
// Tells which meters' items and archives have changed, woken by the system. It looks into none of them.
//
// A storage that is mounted over its folder tells nobody: with news that come long after the last look everything is
// looked for, and is news, once more.

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "contract/changes.h"

namespace uplink {

class Watch {
  public:
    using System = std::pair<std::string, int>;  // uuid and number
    struct News {
        std::set<System> items;
        std::set<System> archives;
    };

    /// At first everything that is there is news. Throws when the system lets nobody be woken.
    Watch();

    /// Readable when something has changed.
    int descriptor() const { return changes.descriptor(); }
    /// What has changed since the last call.
    News take();
    /// When it has to be looked although nothing has told so, by the steady clock's milliseconds: there are more
    /// folders than the system looks after. -1: never.
    std::int64_t next_look() const { return is_blind ? looked_at + BetweenLooks : -1; }

  private:
    static constexpr std::int64_t BetweenLooks = std::int64_t{15} * 60 * 1000;

    void look_for_meters();
    void look_after(const std::string& folder, const System& system, bool is_items);

    contract::Changes changes;
    struct Folder {
        System system;
        bool is_items;
    };
    std::map<std::string, Folder> folders;
    News news;
    bool is_blind = false;
    std::int64_t looked_at = 0;  // the steady clock's milliseconds
};

}  // namespace uplink
