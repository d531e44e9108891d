#pragma once
// The one loop: a batch out of the stream, into the database, and then acknowledged.

#include <csignal>
#include <string>

#include "store/queue.h"

namespace store {

struct RunSettings {
    QueueSettings queue;
    std::string postgres;
    int batch = 500;    ///< messages
    bool once = false;  ///< ends when nothing is left, or with the first trouble
};

/// One line on standard error.
void say(const std::string& text);

/// Until somebody asks for the end, which `ends` tells. False when it gave up.
bool run(const RunSettings& settings, const volatile std::sig_atomic_t& ends);

}  // namespace store
