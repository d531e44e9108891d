#pragma once
// Everybody who listens to what happens. All are told the same; one that does not take it is not waited for.

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <utility>

#include "view/broadcast.h"

struct MHD_Connection;

namespace view {

class Streams {
  public:
    static constexpr std::size_t Most = 32;

    struct Stream {
        Streams* all;
        MHD_Connection* connection;
        std::string greeting;  ///< said first
        Place place;
        bool waits = false;  ///< is suspended until there is news
    };

    /// Null when there are too many.
    Stream* open(MHD_Connection* connection, const std::string& greeting);
    void close(Stream* stream);
    std::size_t count() const { return all.size(); }

    /// To all of them.
    void tell(std::string_view event, std::string_view data);
    /// The end of all streams.
    void finish();
    /// Whether one goes on since this was asked last: the daemon is to be run before anybody waits.
    bool woke() { return std::exchange(has_woken, false); }

    /// As libmicrohttpd's content reader, of a Stream.
    static ssize_t read(void* stream, std::uint64_t at, char* into, std::size_t room);

  private:
    void wake();

    std::list<Stream> all;
    Broadcast broadcast;
    bool over = false;
    bool has_woken = false;
};

}  // namespace view
