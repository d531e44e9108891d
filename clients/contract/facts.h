#pragma once
// All that can be seen of a gateway and of one meter, gathered once, without any judgement.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "contract/devices.h"
#include "contract/flags.h"
#include "contract/installation.h"
#include "contract/service.h"
#include "contract/tries.h"

namespace contract {

struct GatewayFacts {
    std::int64_t now = 0;
    bool live = true;  ///< this machine; else a copy of files, of whose processes and devices nothing is known
    Storage storage;
    ServiceState service = ServiceState::NotAsked;  ///< the worst of what was answered
    std::string service_fault;
    std::vector<Flag> flags;
    std::vector<Process> processes;
    std::map<std::string, PortFile> ports;    ///< configured ones
    std::int64_t general_written = 0;         ///< the general log, seconds since the epoch
    std::vector<std::string> general_meters;  ///< whose start stands in it
    std::string general_end;                  ///< its last line
    bool general_port_failed = false;         ///< that process has not got its port
};

/// What the open port of a meter's process is.
enum class OpenPort {
    Unknown,  ///< this user may not see it
    Open,
    Closed,
    Gone,  ///< its device is no more, or another one has its name
};

struct SystemFacts {
    int n = 1;
    std::optional<int> connected;
    std::optional<std::int64_t> value;  ///< when the newest one came
    std::optional<std::int64_t> clock;  ///< of the meter, when it was read
    std::optional<std::int64_t> clock_read;
    std::string state;
    std::optional<std::int64_t> hourly;  ///< end of the newest record
    std::optional<std::int64_t> daily;
};

struct MeterFacts {
    Meter meter;
    std::vector<Process> processes;  ///< that read it
    std::string port_file;           ///< the configured port that names it
    std::string keeper;              ///< what the keeper of that port says: "1 is restarting ..."
    bool single_bus = false;
    std::optional<std::int64_t> started;  ///< its process
    OpenPort open_port = OpenPort::Unknown;
    Device device;  ///< that the service names for the port of its process
    ServiceAnswer service;
    Silence silence;
    bool log_is_there = false;
    std::int64_t log_written = 0;
    std::int64_t neighbour_log_written = 0;  ///< of another meter that the same process reads
    bool sees_serial_fault = false;  ///< a VIST with another serial number than at the start, in its last description
    bool sees_description_fault = false;  ///< an SA-94 that answers, and was not understood
    std::string kind_fault;               ///< a KM5 that is an AT-T, or the other way round: the log's words
    std::vector<SystemFacts> systems;

    std::optional<std::int64_t> newest_value() const;
};

GatewayFacts look_at_gateway();
/// All meters that have files, a process, or a configured port.
std::vector<std::string> known_meters(const GatewayFacts& here);
/// Asks the configuration service, and tells the gateway's facts when it does not answer: then nobody asks again.
MeterFacts look_at(const std::string& uuid, GatewayFacts& here);

}  // namespace contract
