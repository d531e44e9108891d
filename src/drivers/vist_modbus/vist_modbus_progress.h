#pragma once
// How far a meter's archives have been read, and when they are looked at again. After a start the files tell it.

#include <cstdint>
#include <ctime>

#include "archive/archive_holder.h"
#include "drivers/vist_modbus/vist_modbus_decode.h"

namespace vist_modbus {

struct Progress {
    /// As the files tell after a start; nothing is due for ten minutes.
    void begin(ArchiveHolder& files, std::time_t now);
    /// Before a pass over the archive of a heat system: what is in the files, whatever was thought.
    void look_at_files(ArchiveHolder& files, int system);

    PerSystem<std::time_t> last_request_date{};         ///< newest record in the files
    PerSystem<std::time_t> last_request_date_header{};  ///< newest header in the files
    PerSystem<std::time_t> last_hour_update{};          ///< a pass is due an hour later
    PerSystem<bool> archives_ok{};                      ///< the files are not far behind the meter's clock
};

constexpr std::int64_t HourSeconds = 3600;  // in 64 bits: sums of times may pass 32
constexpr int CheckLead = 3000;             // after a start and a bad pass the next one comes after 600 seconds

/// The gateway's time has 32 bits.
constexpr std::time_t in_32_bits(std::int64_t seconds) {
    return static_cast<std::int32_t>(seconds);
}

}  // namespace vist_modbus
