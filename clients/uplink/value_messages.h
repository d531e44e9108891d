#pragma once
// Present values as messages of MQTT, and what Home Assistant wants to know of them.

#include <vector>

#include "uplink/settings.h"
#include "uplink/sink.h"
#include "uplink/values.h"

namespace uplink {

/// `<prefix>/<gateway>/<uuid>/<n>/value/<item>`: the text of each; for each system `.../time`, when the newest of these
/// was written; with discovery in front of a value's first message what it is.
void append_value_messages(const Settings& settings, const std::vector<Values::Value>& values,
                           std::vector<Message>& messages);

/// `homeassistant/sensor/<its name>/config`
Message discovery_message(const Settings& settings, const Values::Value& value, const std::string& unit);

}  // namespace uplink
