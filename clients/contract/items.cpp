#include "contract/items.h"

#include <cmath>
#include <cstdlib>

#include "contract/site.h"
#include "core/gateway.h"

namespace contract {

namespace {

constexpr std::size_t LongestText = 4096;  // an item is a short text; what follows is cut
constexpr int Looks = 3;                   // at an empty file
constexpr long BetweenLooks = 2'000'000;   // nanoseconds

}  // namespace

std::optional<Item> read_item(const std::string& uuid, int system, const std::string& name, Family family) {
    const std::string path = items_folder(uuid, system) + '/' + name;
    Item item{.name = name, .text = {}, .time = 0, .entry = find_item(name, family)};
    for (int look = 0; look < Looks; ++look) {
        File file = open_for_reading(path);
        struct stat status {};
        if (!file || !file.look(status)) return std::nullopt;
        item.time = status.st_mtime;
        item.text.assign(LongestText, '\0');
        item.text.resize(file.read(item.text));
        if (!item.text.empty()) break;
        gateway().sleep_nanoseconds(BetweenLooks);
    }
    if (item.text.ends_with('\n')) item.text.pop_back();
    return item;
}

std::vector<Item> read_items(const std::string& uuid, int system, Family family) {
    std::vector<Item> items;
    for (const std::string& name : names_in(items_folder(uuid, system))) {
        if (auto item = read_item(uuid, system, name, family)) items.push_back(std::move(*item));
    }
    return items;
}

std::optional<std::int64_t> newest_value(const std::vector<Item>& items) {
    std::optional<std::int64_t> newest;
    for (const Item& item : items) {
        // Which are written when the meter is silent, too.
        if (item.name == "Connected" || item.name == "_DriverStatus") continue;
        if (!newest || item.time > *newest) newest = item.time;
    }
    return newest;
}

std::optional<double> number_in(const std::string& text) {
    if (text.find_first_not_of("0123456789.-+e") != std::string::npos) return std::nullopt;
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(number)) return std::nullopt;
    return number;
}

}  // namespace contract
