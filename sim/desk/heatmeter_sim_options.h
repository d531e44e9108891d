#pragma once
// The command line of heatmeter-sim.

#include <optional>
#include <string>
#include <vector>

#include "desk.h"

inline constexpr int BadUsage = 2;  // exit status

struct Options {
    sim::DeskOptions desk;
    std::string control_path;
    std::vector<std::string> tell;  // in the place of all others: path of a control socket, and words
    std::string dump_path;
    double run_seconds = 0;  // 0: for ever
};

/// Reads the command line; an exit status when there is nothing more to do.
std::optional<int> read_options(int argc, char** argv, Options& options);
