#pragma once
// Connections that are open, and how long each may stay. A gateway has room for few of them: one that says nothing
// gives way to one that comes.

#include <cstdint>
#include <list>
#include <string>

namespace view {

struct Guest {
    enum class State {
        Silent,     ///< nothing asked yet, or everything answered
        Asked,      ///< waits for an answer, or takes it
        Listening,  ///< to the stream of events
    };
    int socket = -1;
    std::string address;
    State state = State::Silent;
    std::int64_t since = 0;  ///< milliseconds
    std::uint64_t sent = 0;  ///< bytes of the answer so far
    bool cut = false;        ///< is being closed
};

class Guests {
  public:
    static constexpr std::size_t Most = 100;          ///< from here on the one that has been silent longest goes
    static constexpr std::size_t MostAccepted = 200;  ///< more stay at the door
    static constexpr std::int64_t Patience = 20'000;  ///< milliseconds in which a whole request must have come
    static constexpr std::int64_t Leisure = 60'000;   ///< milliseconds for an answer, and for each of its bytes 2 more
    static constexpr std::int64_t PerByte = 2;

    Guest* come(int socket, std::string address, std::int64_t now);
    void go(const Guest* guest);
    static void change(Guest& guest, Guest::State state, std::int64_t now);

    std::size_t count() const { return all.size(); }
    /// Closes those whose time is over. When to look again; -1: never.
    std::int64_t look_round(std::int64_t now);

  private:
    static void cut(Guest& guest);
    static std::int64_t deadline(const Guest& guest);

    std::list<Guest> all;
};

}  // namespace view
