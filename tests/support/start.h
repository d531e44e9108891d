#pragma once
// The whole process in a child, on the simulated machine of a scene.

#include <string>
#include <vector>

#include "support/child.h"
#include "support/scene.h"

/// The exit status of a child whose process was still at work when its time was over.
constexpr int StillAtWork = 77;

/// Starts the daemon with these words, and ends it after so many seconds of simulated time.
ChildEnd start_process(Scene& scene, const std::vector<std::string>& words, double seconds = 30);

/// As start_process, within a child already.
int run_words(Scene& scene, const std::vector<std::string>& words, double seconds = 30);
