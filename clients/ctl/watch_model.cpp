#include "ctl/watch_model.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "contract/moments.h"
#include "contract/newest.h"
#include "contract/site.h"
#include "core/gateway.h"

namespace ctl {

namespace {

constexpr long MillisecondsOfABurst = 100;  // a driver publishes all values of a pass at once

std::int64_t steady_milliseconds() {
    return gateway().steady_microseconds() / 1000;
}

}  // namespace

WatchModel::WatchModel(std::vector<std::string> uuids) : wanted(std::move(uuids)) {
    look_for_meters();
}

void WatchModel::look_for_meters() {
    for (const std::string place : {"/tmp", "/mnt/storage"}) {
        changes.look_after_folders_in(place);
        // Any of them may become a meter's.
        for (const std::string& name : contract::names_in(place)) changes.look_after_folders_in(place + '/' + name);
    }
    for (const std::string& uuid : wanted.empty() ? contract::meters() : wanted) {
        WatchedMeter* watched = find(uuid);
        if (watched == nullptr) watched = &all.emplace_back();
        watched->meter.uuid = uuid;
        look_at_systems(*watched);
    }
}

WatchedMeter* WatchModel::find(const std::string& uuid) {
    const auto found =
        std::ranges::find_if(all, [&](const WatchedMeter& watched) { return watched.meter.uuid == uuid; });
    return found == all.end() ? nullptr : &*found;
}

void WatchModel::look_at_systems(WatchedMeter& watched) {
    const std::string& uuid = watched.meter.uuid;
    watched.meter = contract::look_at_meter(uuid, {});
    for (int number = 1; number <= contract::Systems; ++number) {
        const std::string storage = contract::storage_folder(uuid, number);
        changes.look_after_folders_in("/tmp/" + uuid + '/' + std::to_string(number));
        changes.look_after_folders_in(storage);
        changes.look_after(contract::items_folder(uuid, number));
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

void WatchModel::look_at_items(const std::string& uuid, WatchedSystem& system) {
    WatchedMeter* const watched = find(uuid);
    const contract::Family family = watched != nullptr ? watched->meter.family : contract::NoFamily;
    std::vector<WatchedItem> items;
    std::vector<contract::Item> plain;
    for (contract::Item& item : contract::read_items(uuid, system.number, family)) {
        const auto before =
            std::ranges::find_if(system.items, [&](const WatchedItem& old) { return old.item.name == item.name; });
        WatchedItem now{.item = item, .changed_at = 0};
        if (before == system.items.end()) {
            news.push_back({uuid, system.number, item.name, item.text, false});
        } else if (before->item.text != item.text && !item.text.empty()) {
            now.changed_at = steady_milliseconds();
            news.push_back({uuid, system.number, item.name, item.text, false});
        } else {
            now.changed_at = before->changed_at;
        }
        if (watched != nullptr && item.name == "MeterModel" && !item.text.empty()) watched->meter.model = item.text;
        plain.push_back(item);
        items.push_back(std::move(now));
    }
    system.items = std::move(items);
    system.value = contract::newest_value(plain);
}

void WatchModel::look_at_records(const std::string& uuid, WatchedSystem& system) {
    const auto look = [&](contract::ArchiveKind kind, std::optional<std::int64_t>& newest) {
        const auto time = contract::newest_record(uuid, system.number, kind);
        if (time && time != newest) {
            news.push_back({uuid, system.number, std::string(text_of(kind)), contract::moment_text(*time), true});
        }
        newest = time;
    };
    look(contract::ArchiveKind::Hourly, system.hourly);
    look(contract::ArchiveKind::Daily, system.daily);
    ++system.looks;
}

void WatchModel::look_at_folder(const std::string& folder) {
    for (WatchedMeter& watched : all) {
        const std::string& uuid = watched.meter.uuid;
        for (WatchedSystem& system : watched.systems) {
            if (folder == contract::items_folder(uuid, system.number)) return look_at_items(uuid, system);
            if (folder.starts_with(contract::storage_folder(uuid, system.number) + '/')) {
                return look_at_records(uuid, system);
            }
        }
    }
    look_for_meters();
}

bool WatchModel::wait(int other, int milliseconds) {
    std::vector<std::string> folders = changes.wait(other, milliseconds);
    if (folders.empty()) return false;
    gateway().sleep_nanoseconds(MillisecondsOfABurst * 1'000'000);
    std::ranges::move(changes.wait(-1, 0), std::back_inserter(folders));
    std::ranges::sort(folders);
    folders.erase(std::unique(folders.begin(), folders.end()), folders.end());
    for (const std::string& folder : folders) look_at_folder(folder);
    return true;
}

std::vector<News> WatchModel::take_news() {
    return std::exchange(news, {});
}

}  // namespace ctl
