#pragma once
// The client of the gateway's configuration service: one JSON-RPC call for one uuid, whose answer becomes the
// settings of a driver or a record of the scheduler. There is no configuration file and no cached copy; a changed
// setting takes effect with the next start of the process.

#include <array>
#include <cstdint>
#include <string>

#include "config/meter_settings.h"

namespace Json {
class Value;
}

/// One uuid's settings in single-bus mode.
struct PortRecord {
    std::string uuid;
    std::uint32_t serial = 0;
    std::string manufacturer;
    std::string port_name;
    int subsystem_count = 0;  ///< system types that are not empty
    int parity = 0;           ///< parity code
    int speed = 0;            ///< speed code
    std::array<std::string, 6> system_type;
};

/// What a record of the single bus sets of a driver; the rest is as it is without a configuration.
MeterSettings settings_of(const PortRecord& record);

/// Normal mode: fills the settings of a meter; the count of system types goes on from what they hold. A service that
/// cannot be reached leaves them as they are; one that answers nothing, or no JSON, ends the process with status 1.
void read_driver_config(const std::string& uuid, MeterSettings& settings);

/// Single-bus mode: fills the record for `uuid`; failures as above.
void read_port_config(const std::string& uuid, PortRecord& record);

// The decoding of an answer. A missing key reads as "" or 0; a member of the wrong type raises jsoncpp's exception.
void take_driver_config(const Json::Value& answer, MeterSettings& settings);
void take_port_config(const Json::Value& answer, const std::string& uuid, PortRecord& record);
