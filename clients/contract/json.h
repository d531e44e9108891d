#pragma once
// What the contract knows, as JSON. One line of ASCII: nothing in it acts on a terminal or a page.

#include <string>
#include <string_view>
#include <vector>

#include <json/value.h>

#include "contract/items.h"
#include "contract/status.h"

namespace contract {

/// In one line, without its end.
std::string json_line(const Json::Value& value);
/// A text as JSON, in its quotes; valid UTF-8 of it.
std::string json_text(std::string_view text);
/// The same as a value; null for an empty one.
Json::Value json_or_null(const std::string& text);

/// A number as a number, a whole one with all its digits; null for an empty file; all else as a text. So is what only
/// looks like a number: a version, a serial number.
Json::Value json_value_of(const Item& item);
/// {"name","title","value","unit","time"}
Json::Value json_of(const Item& item, const std::string& unit);

/// {"level","gateway","uplink","meters"}
Json::Value json_of(const Status& status);

/// What the driver of a meter does, or what its system does when it tells nothing.
std::string state_of(const MeterFacts& meter, const SystemFacts& system);

}  // namespace contract
