#pragma once
// What is left of bytes when the two ends of a line are set to different speeds.

#include <cstdint>
#include <span>

#include "sim_meter.h"

namespace sim {

/// What a receiver at `heard` bits per second makes of bytes sent at `sent`, neither of them 0: a fall of the line is
/// a start bit, and the line in the middle of the next eight bits is a byte, whether a stop bit follows or not.
ByteVector misheard(std::span<const std::uint8_t> bytes, unsigned sent, unsigned heard);

}  // namespace sim
