#pragma once
// Before the start: what is wrong with the words of a process, what the service says of its meters, its port, the
// storage, the clock.

#include <string>
#include <vector>

#include "contract/health.h"

namespace contract {

/// One line of a check: ok, a warning, or an error (Level::Critical).
using Finding = Reason;
using Findings = std::vector<Finding>;

/// The keeper's units; nothing of a gateway without them.
Findings check_units();
/// The words behind the program's name: "KM5", "-r", uuids. Asks the service.
Findings check_words(const Words& words, const GatewayFacts& here);

// Its parts.
void check_form(const Words& words, Findings& found);
void check_settings(const std::string& uuid, const std::string& name, bool is_single_bus, const ServiceAnswer& answer,
                    Findings& found);
void check_port(const Device& device, const Words& words, const GatewayFacts& here, Findings& found);
void check_ground(const Words& words, Family family, const GatewayFacts& here, Findings& found);

/// The speed that a configured one becomes on the port.
unsigned speed_on_port(Family family, bool is_single_bus, unsigned speed);

}  // namespace contract
