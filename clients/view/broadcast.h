#pragma once
// What all streams are told: the last messages, kept once for all of them.

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace view {

/// Where a stream stands in what is told.
struct Place {
    std::uint64_t message = 0;
    std::size_t at = 0;  ///< bytes of it that were taken
};

class Broadcast {
  public:
    static constexpr std::size_t MostBytes = std::size_t{256} * 1024;

    /// "event: NAME", "data: DATA", an empty line.
    void tell(std::string_view event, std::string_view data);

    /// For a stream that begins now.
    Place newest() const { return {first + messages.size(), 0}; }
    bool has_news(const Place& place) const { return place.message < first + messages.size(); }
    /// The stream has fallen behind what is kept.
    bool has_lost(const Place& place) const { return place.message < first; }
    /// The next bytes for a stream, at most so many; empty without news.
    std::string_view take(Place& place, std::size_t most) const;

  private:
    std::deque<std::string> messages;
    std::uint64_t first = 0;  // number of the oldest one
    std::size_t bytes = 0;
};

}  // namespace view
