#pragma once
// Where messages go: a broker. Nothing of this waits for one; what comes of it arrives in a mailbox, from the threads
// of the broker's library.

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace uplink {

struct Message {
    std::string topic = {};
    std::string body = {};
    std::string id = {};    ///< by which a stream knows what it has
    std::int64_t time = 0;  ///< of a value, seconds since the epoch
    bool is_retained = false;
    bool is_confirmed = true;  ///< wanted
};

struct Event {
    enum class What {
        Connected,
        Confirmed,  ///< it is the broker's now
        Refused,    ///< the broker does not want it; the connection is of no more use
        Lost,       ///< the connection is over, or has not come about; nothing else comes until the next `connect`
    };
    What what = What::Lost;
    std::size_t sink = 0;
    std::uint64_t number = 0;    ///< of a message
    std::uint64_t sequence = 0;  ///< of a stream that counts: where it stands there
    bool was_there = false;      ///< the stream had it already, and has not taken it again
    std::string reason = {};
};

/// Events on their way to the one thread that acts on them.
class Mailbox {
  public:
    Mailbox();
    ~Mailbox();
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    void put(Event event);
    /// Readable while there are events.
    int descriptor() const { return fd; }
    std::vector<Event> take();

  private:
    std::mutex mutex;
    std::vector<Event> events;
    int fd;
};

class Sink {
  public:
    virtual ~Sink() = default;

    virtual const char* name() const = 0;
    /// Begins to; ends in Lost, sooner or later.
    virtual void connect() = 0;
    virtual void send(std::uint64_t number, Message message) = 0;
    /// Ends the connection: Lost follows. `orderly`: what was sent goes out first.
    virtual void end(bool orderly) = 0;
    virtual std::string record_topic(const std::string& uuid, int system, std::string_view kind) const = 0;
};

}  // namespace uplink
