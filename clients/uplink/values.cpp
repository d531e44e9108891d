#include "uplink/values.h"

#include <algorithm>
#include <utility>

#include "contract/installation.h"

namespace uplink {

void Values::look_at(const std::string& uuid, int number) {
    System& system = systems[{uuid, number}];
    if (system.family == contract::NoFamily) system.family = contract::look_at_family(uuid);
    std::vector<contract::Item> items = contract::read_items(uuid, number, system.family);
    std::erase_if(system.items, [&items](const auto& known) {  // which are gone
        return std::ranges::find(items, known.first, &contract::Item::name) == items.end();
    });
    for (contract::Item& item : items) {
        // An empty file is being written; to a broker no text would mean that there is no such value.
        if (item.entry == nullptr || item.text.empty()) continue;
        Sent& sent = system.items[item.name];
        if (sent.text != item.text) sent.at = Never;
        sent.text = std::move(item.text);
        sent.time = item.time;
    }
}

std::vector<Values::Value> Values::take(std::size_t most, std::int64_t now) {
    std::vector<Value> taken;
    for (auto& [key, system] : systems) {
        for (auto& [name, sent] : system.items) {
            if (sent.at != Never && now - sent.at < pause) continue;
            if (taken.size() == most) return taken;
            sent.at = now;
            taken.push_back({key.first,
                             key.second,
                             {.name = name,
                              .text = sent.text,
                              .time = sent.time,
                              .entry = contract::find_item(name, system.family)},
                             !std::exchange(sent.is_known, true)});
        }
    }
    return taken;
}

void Values::forget_sent() {
    for (auto& [key, system] : systems) {
        for (auto& [name, sent] : system.items) {
            sent.at = Never;
            sent.is_known = false;
        }
    }
}

std::int64_t Values::next_due() const {
    std::int64_t due = -1;
    for (const auto& [key, system] : systems) {
        for (const auto& [name, sent] : system.items) {
            const std::int64_t next = sent.at == Never ? 0 : sent.at + pause;
            if (due < 0 || next < due) due = next;
        }
    }
    return due;
}

}  // namespace uplink
