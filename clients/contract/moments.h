#pragma once
// Times as people type and read them, in the gateway's zone.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace contract {

/// "2026-11-01", "2026-11-01 10:00", "2026-11-01T10:00:00+03:00", "now", "-7d", "-12h" ("m" and "s" as well),
/// "@1700000000". Nothing for another text. Without an offset the gateway's zone counts. What
/// the gateway's clock cannot hold is the end of what it can: 2038 and 1901.
std::optional<std::int64_t> parse_moment(std::string_view text, std::int64_t now);
/// "7d", "12h", "90m", "30s" in seconds.
std::optional<std::int64_t> parse_duration(std::string_view text);

/// "2026-11-01T10:00:00+03:00", local time with its offset.
std::string moment_text(std::int64_t moment);
/// The same for many moments, one after the other: the calendar is asked once a day.
class MomentTexts {
  public:
    /// Stands until the next call.
    std::string_view of(std::int64_t moment);

  private:
    std::int64_t day = 0;      // when it begins
    std::int64_t day_end = 0;  // not in it; the beginning itself while no day is known
    std::string text;
};
/// "2026-11-01 10:00:00", for people who know where they are.
std::string plain_moment_text(std::int64_t moment);
/// "45 s", "12 min", "3 h 20 min", "5 d".
std::string duration_text(std::int64_t seconds);

}  // namespace contract
