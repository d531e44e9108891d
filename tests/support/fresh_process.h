// Death tests that want a process in which nothing has happened yet.
#pragma once

#include <gtest/gtest.h>

/// The statement of a death test runs in a process that is started anew. An emulated program cannot start itself: there
/// it is a copy of this one, which is as fresh when each test has a process of its own, as under ctest.
inline void use_fresh_process() {
#ifdef HEATMETERD_EMULATED
    GTEST_FLAG_SET(death_test_style, "fast");
#else
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#endif
}
