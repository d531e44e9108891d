#pragma once
// Time as the kernel keeps it. Below libfaketime the C library's clock and waits run faster than the kernel's own, but
// the VTIME of the terminal at the other end of a line does not: whatever gives bytes their time on a pseudo-terminal
// has to ask the kernel itself.

#include <poll.h>

#include <optional>
#include <span>

#include "sim_clock.h"

namespace sim {

/// Time since some beginning; never set, never hurried.
Micros real_time();

/// As poll(2), until the moment `until` of real_time() at the latest; for ever without one.
int poll_until(std::span<pollfd> watched, std::optional<Micros> until);

}  // namespace sim
