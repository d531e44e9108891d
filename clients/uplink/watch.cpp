#include "uplink/watch.h"

#include <stdexcept>
#include <utility>

#include "contract/site.h"
#include "core/files.h"
#include "core/gateway.h"

namespace uplink {

namespace {

std::int64_t steady_now() {
    return gateway().steady_microseconds() / 1000;
}

}  // namespace

Watch::Watch() {
    if (!changes.is_usable()) {
        throw std::runtime_error(
            "nothing can tell what changes: too many of this user do (fs.inotify.max_user_instances)");
    }
    look_for_meters();
}

void Watch::look_after(const std::string& folder, const System& system, bool is_items) {
    if (!changes.look_after(folder)) {
        if (!exists(folder)) return;
        is_blind = true;
    }
    // One that has come, or another one under its name.
    folders[folder] = {system, is_items};
    (is_items ? news.items : news.archives).insert(system);
}

void Watch::look_for_meters() {
    looked_at = steady_now();
    is_blind = false;
    for (const char* const place : {"/tmp", "/mnt/storage"}) changes.look_after_folders_in(place);
    for (const std::string& uuid : contract::meters()) {
        for (int number = 1; number <= contract::Systems; ++number) {
            const System system(uuid, number);
            const std::string items = contract::items_folder(uuid, number);
            const std::string storage = contract::storage_folder(uuid, number);
            changes.look_after_folders_in(items.substr(0, items.rfind('/')));
            changes.look_after_folders_in(storage);
            look_after(items, system, true);
            look_after(storage + "/tc_archives", system, false);
            look_after(storage + "/tmp_archives", system, false);
        }
    }
    for (const std::string place : {"/tmp", "/mnt/storage"}) {
        // Any of them may become a meter's.
        for (const std::string& name : contract::names_in(place)) changes.look_after_folders_in(place + '/' + name);
    }
}

Watch::News Watch::take() {
    bool is_other = false;
    for (const std::string& folder : changes.wait(-1, 0)) {
        const auto found = folders.find(folder);
        if (found == folders.end()) {
            is_other = true;
            continue;
        }
        (found->second.is_items ? news.items : news.archives).insert(found->second.system);
    }
    // A folder that came, went, or came again: what is looked after has no name in it.
    if (is_other || steady_now() - looked_at >= BetweenLooks) look_for_meters();
    return std::exchange(news, {});
}

}  // namespace uplink
