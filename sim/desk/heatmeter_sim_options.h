#pragma once
// The command line of heatmeter-sim.

#include <optional>
#include <string>
#include <vector>

#include "desk_meter.h"

inline constexpr int BadUsage = 2;  // exit status

struct Options {
    sim::DeskRules rules{.line = "/tmp/heatmeter-line"};
    std::vector<std::string> meters;
    int port = 8082;
    std::string service = "right";
    std::string trace_path;
    std::string dump_path;
    double run_seconds = 0;  // 0: for ever
};

/// Reads the command line; an exit status when there is nothing more to do.
std::optional<int> read_options(int argc, char** argv, Options& options);
