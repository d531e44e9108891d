#pragma once

namespace uplink {

/// All of heatmeter-uplink; its exit status.
int run_program(int argc, const char* const* argv);

}  // namespace uplink
