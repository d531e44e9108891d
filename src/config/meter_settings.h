#pragma once
// The settings of one meter and its port, as the configuration service gives them: the same value for a driver of
// normal mode and for one of the single bus.

#include <array>
#include <cstdint>
#include <string>

struct MeterSettings {
    std::uint32_t tc_sernum = 0xFFFFFFFF;
    std::string port_name{};
    int tc_baud = -1;             ///< speed code
    int tc_parity = -1;           ///< parity code: 1 even, 2 otherwise
    bool use_pause_flag = false;  ///< "/tmp/pause_tvk" holds this driver back
    int is_km56i = 0;             ///< 1 when the configured manufacturer is "km-5-6i"
    int subsystem_count = 0;      ///< configured system types that are not empty
    std::array<std::string, 6> system_type{};
};
