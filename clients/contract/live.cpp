#include "contract/live.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "contract/moments.h"
#include "contract/newest.h"
#include "contract/site.h"
#include "core/gateway.h"

namespace contract {

namespace {

constexpr long MillisecondsOfABurst = 100;  // a driver publishes all values of a pass at once

std::int64_t steady_milliseconds() {
    return gateway().steady_microseconds() / 1000;
}

}  // namespace

Live::Live(std::vector<std::string> uuids) : wanted(std::move(uuids)) {
    look_for_meters();
}

void Live::look_for_meters() {
    for (const std::string place : {"/tmp", "/mnt/storage"}) {
        changes.look_after_folders_in(place);
        // Any of them may become a meter's.
        for (const std::string& name : names_in(place)) changes.look_after_folders_in(place + '/' + name);
    }
    for (const std::string& uuid : wanted.empty() ? contract::meters() : wanted) {
        LiveMeter* watched = find(uuid);
        if (watched == nullptr) watched = &all.emplace_back();
        watched->meter.uuid = uuid;
        look_at_systems(*watched);
    }
}

LiveMeter* Live::find(const std::string& uuid) {
    const auto found = std::ranges::find_if(all, [&](const LiveMeter& watched) { return watched.meter.uuid == uuid; });
    return found == all.end() ? nullptr : &*found;
}

void Live::look_at_systems(LiveMeter& watched) {
    const std::string& uuid = watched.meter.uuid;
    watched.meter = look_at_meter(uuid, {});
    for (int number = 1; number <= Systems; ++number) {
        const std::string storage = storage_folder(uuid, number);
        changes.look_after_folders_in("/tmp/" + uuid + '/' + std::to_string(number));
        changes.look_after_folders_in(storage);
        changes.look_after(items_folder(uuid, number));
        // A driver that hands over whole passes is known by files that come later.
        for (const char* const folder : {"/tc_archives", "/tc_tmp_archives"}) changes.look_after(storage + folder);
        const bool is_there = std::ranges::count(watched.meter.systems, number) != 0;
        auto system = std::ranges::find_if(watched.systems, [=](const auto& one) { return one.number >= number; });
        if (system == watched.systems.end() || system->number != number) {
            if (!is_there) continue;
            system = watched.systems.emplace(system);
            system->number = number;
        }
        look_at_items(uuid, *system);
        look_at_records(uuid, *system);
    }
}

void Live::look_at_items(const std::string& uuid, LiveSystem& system) {
    LiveMeter* const watched = find(uuid);
    const Family family = watched != nullptr ? watched->meter.family : NoFamily;
    std::vector<LiveItem> items;
    std::vector<Item> plain;
    for (Item& item : read_items(uuid, system.number, family)) {
        const auto before =
            std::ranges::find_if(system.items, [&](const LiveItem& old) { return old.item.name == item.name; });
        LiveItem now{.item = item, .changed_at = 0};
        const bool is_new = before == system.items.end();
        const bool has_changed = !is_new && before->item.text != item.text && !item.text.empty();
        if (has_changed) {
            now.changed_at = steady_milliseconds();
        } else if (!is_new) {
            now.changed_at = before->changed_at;
        }
        if (is_new || has_changed) {
            news.push_back({News::What::Value, uuid, system.number, item.name, item.text});
        } else if (before->item.time != item.time) {
            news.push_back({News::What::Rewritten, uuid, system.number, item.name, item.text});
        }
        if (watched != nullptr && item.name == "MeterModel" && !item.text.empty()) watched->meter.model = item.text;
        plain.push_back(item);
        items.push_back(std::move(now));
    }
    system.items = std::move(items);
    system.value = newest_value(plain);
}

void Live::look_at_records(const std::string& uuid, LiveSystem& system) {
    const auto look = [&](ArchiveKind kind, std::optional<std::int64_t>& newest) {
        const auto time = newest_record(uuid, system.number, kind, Copies::AsTheyAre);
        if (time && time != newest) {
            news.push_back({News::What::Record, uuid, system.number, std::string(text_of(kind)), moment_text(*time)});
        }
        newest = time;
    };
    look(ArchiveKind::Hourly, system.hourly);
    look(ArchiveKind::Daily, system.daily);
    ++system.looks;
}

bool Live::look_at_folder(const std::string& folder) {
    for (LiveMeter& watched : all) {
        const std::string& uuid = watched.meter.uuid;
        for (LiveSystem& system : watched.systems) {
            if (folder == items_folder(uuid, system.number)) {
                look_at_items(uuid, system);
                return true;
            }
            if (folder.starts_with(storage_folder(uuid, system.number) + '/')) {
                look_at_records(uuid, system);
                return true;
            }
        }
    }
    return false;
}

void Live::look_at_folders(std::vector<std::string> folders) {
    std::ranges::sort(folders);
    folders.erase(std::unique(folders.begin(), folders.end()), folders.end());
    bool is_other = false;
    for (const std::string& folder : folders) is_other = !look_at_folder(folder) || is_other;
    if (is_other) look_for_meters();
}

bool Live::wait(int other, int milliseconds) {
    std::vector<std::string> folders = changes.wait(other, milliseconds);
    if (folders.empty()) return false;
    gateway().sleep_nanoseconds(MillisecondsOfABurst * 1'000'000);
    std::ranges::move(changes.wait(-1, 0), std::back_inserter(folders));
    look_at_folders(std::move(folders));
    return true;
}

bool Live::take_in() {
    std::vector<std::string> folders = changes.wait(-1, 0);
    if (folders.empty()) return false;
    look_at_folders(std::move(folders));
    return true;
}

std::vector<News> Live::take_news() {
    return std::exchange(news, {});
}

}  // namespace contract
