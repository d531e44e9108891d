#pragma once

namespace view {

/// The program heatmeter-view. Its exit status.
int run_program(int argc, const char* const* argv);

}  // namespace view
