#pragma once
// What every simulated meter is to the line it hangs on: bytes in, bytes out. A simulated meter is written against the
// wire, not against the driver, and shares no table and no decoder with src/.

#include <cstdint>
#include <ctime>
#include <span>
#include <vector>

namespace sim {

using ByteVector = std::vector<std::uint8_t>;

/// Bytes that come in one piece, `delay_seconds` after the end of what came before on the line.
struct Burst {
    double delay_seconds = 0.0;
    ByteVector bytes;
};

/// Everything a meter says to one request; empty when it keeps silent.
using Answer = std::vector<Burst>;

class SimMeter {
  public:
    virtual ~SimMeter() = default;

    /// One request as heard on the line (all bytes up to a silence), at `now` by a clock that is right. A meter that
    /// is not meant, or does not understand, keeps silent.
    virtual Answer hear(std::span<const std::uint8_t> request, std::time_t now) = 0;
};

}  // namespace sim
