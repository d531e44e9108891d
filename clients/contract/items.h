#pragma once
// Present values: the item files of a meter's system.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/catalogue.h"

namespace contract {

struct Item {
    std::string name;
    std::string text;                  ///< as it stands, without the line end; empty while the file is being written
    std::int64_t time = 0;             ///< of its last writing, seconds since the epoch
    const ItemEntry* entry = nullptr;  ///< null for a name that is not in the catalogue
};

/// One item; nothing without its file. A file that is met empty is read again a moment later.
std::optional<Item> read_item(const std::string& uuid, int system, const std::string& name, Family family = NoFamily);

/// All items of a system, in natural order.
std::vector<Item> read_items(const std::string& uuid, int system, Family family = NoFamily);

/// The newest writing of any item that comes from the meter; nothing without one.
std::optional<std::int64_t> newest_value(const std::vector<Item>& items);

/// The decimal number in an item's text; nothing for another text, and for what is no finite number.
std::optional<double> number_in(const std::string& text);

}  // namespace contract
