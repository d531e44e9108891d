#pragma once
// What `watch` shows, and what of it has just changed. No terminal is known here.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/changes.h"
#include "contract/installation.h"
#include "contract/items.h"

namespace ctl {

struct WatchedItem {
    contract::Item item;
    std::int64_t changed_at = 0;  ///< the steady clock's milliseconds; 0 as long as it is as it was at first
};

struct WatchedSystem {
    int number = 1;
    std::vector<WatchedItem> items;
    std::optional<std::int64_t> value;   ///< the newest one's writing
    std::optional<std::int64_t> hourly;  ///< newest records
    std::optional<std::int64_t> daily;
    unsigned looks = 0;  ///< at its records, so that it is known what is shown of them is still true
};

struct WatchedMeter {
    contract::Meter meter;
    std::vector<WatchedSystem> systems;
};

/// One thing that has changed, or that was not there before.
struct News {
    std::string uuid;
    int system;
    std::string name;  ///< of an item; "hourly" or "daily" of a record
    std::string text;  ///< of an item; of a record its time
    bool is_record;
};

class WatchModel {
  public:
    /// These meters; without any all that are there and those that come.
    explicit WatchModel(std::vector<std::string> uuids);

    const std::vector<WatchedMeter>& meters() const { return all; }
    /// As given; empty: all.
    const std::vector<std::string>& asked_for() const { return wanted; }
    /// Waits as contract::Changes does, and takes in what has changed. False when nothing has.
    bool wait(int other, int milliseconds);
    /// What has come since the last call.
    std::vector<News> take_news();

  private:
    void look_for_meters();
    WatchedMeter* find(const std::string& uuid);
    void look_at_systems(WatchedMeter& watched);
    void look_at_items(const std::string& uuid, WatchedSystem& system);
    void look_at_records(const std::string& uuid, WatchedSystem& system);
    void look_at_folder(const std::string& folder);

    std::vector<std::string> wanted;
    contract::Changes changes;
    std::vector<WatchedMeter> all;
    std::vector<News> news;
};

}  // namespace ctl
