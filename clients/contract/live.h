#pragma once
// The meters that have files here, their values and newest records, and what of it has just changed.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/changes.h"
#include "contract/installation.h"
#include "contract/items.h"

namespace contract {

struct LiveItem {
    Item item;
    std::int64_t changed_at = 0;  ///< the steady clock's milliseconds; 0 as long as it is as it was at first
};

struct LiveSystem {
    int number = 1;
    std::vector<LiveItem> items;
    std::optional<std::int64_t> value;   ///< the newest one's writing
    std::optional<std::int64_t> hourly;  ///< newest records
    std::optional<std::int64_t> daily;
    unsigned looks = 0;  ///< at its records, so that it is known what is shown of them is still true
};

struct LiveMeter {
    Meter meter;
    std::vector<LiveSystem> systems;
};

/// One thing that has changed, or that was not there before.
struct News {
    enum class What {
        Value,      ///< has another text
        Rewritten,  ///< has the same one again
        Record,
    };
    What what;
    std::string uuid;
    int system;
    std::string name;  ///< of an item; "hourly" or "daily" of a record
    std::string text;  ///< of an item; of a record its time
};

class Live {
  public:
    /// These meters; without any all that are there and those that come.
    explicit Live(std::vector<std::string> uuids);

    const std::vector<LiveMeter>& meters() const { return all; }
    /// As given; empty: all.
    const std::vector<std::string>& asked_for() const { return wanted; }
    /// Waits as Changes does, and takes in what has changed. False when nothing has.
    bool wait(int other, int milliseconds);
    /// Readable when something has changed; `take_in` then takes it in, without waiting. False when nothing has.
    int descriptor() const { return changes.descriptor(); }
    bool take_in();
    /// What has come since the last call.
    std::vector<News> take_news();

  private:
    void look_for_meters();
    LiveMeter* find(const std::string& uuid);
    void look_at_systems(LiveMeter& watched);
    void look_at_items(const std::string& uuid, LiveSystem& system);
    void look_at_records(const std::string& uuid, LiveSystem& system);
    /// False for one that is of no system.
    bool look_at_folder(const std::string& folder);
    void look_at_folders(std::vector<std::string> folders);

    std::vector<std::string> wanted;
    Changes changes;
    std::vector<LiveMeter> all;
    std::vector<News> news;
};

}  // namespace contract
