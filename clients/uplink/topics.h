#pragma once
// How names of a gateway, a meter and a record become parts of a subject or a topic.

#include <string>
#include <string_view>

namespace uplink {

/// A token of a NATS subject: letters, digits, '-' and '_' as they stand, every other byte as %XX.
std::string subject_token(std::string_view text);
/// A level of an MQTT topic: '+', '#', '/', '%' and control bytes as %XX; what is no UTF-8 as well.
std::string topic_level(std::string_view text);

/// "heatmeter.<gateway>.<uuid>.<n>.record.<kind>"
std::string record_subject(const std::string& gateway, const std::string& uuid, int system, std::string_view kind);

}  // namespace uplink
