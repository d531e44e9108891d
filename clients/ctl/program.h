#pragma once

namespace ctl {

/// heatmeterctl: reads the command line, runs one command. The exit status.
int run_program(int argc, const char* const* argv);

}  // namespace ctl
