#pragma once
// A stream of NATS JetStream, by libnats, in a thread of its own. What was published is the stream's when it says so
// with its number in it; what it says comes in threads of the library.

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <nats/nats.h>

#include "uplink/settings.h"
#include "uplink/sink.h"

namespace uplink {

class NatsSink : public Sink {
  public:
    /// The settings and the mailbox outlive this.
    /// `is_trial`: it makes no stream.
    NatsSink(const Settings& settings, Mailbox& mailbox, std::size_t number, bool is_trial = false);
    ~NatsSink() override;

    const char* name() const override { return "nats"; }
    void connect() override;
    void send(std::uint64_t number, Message message) override;
    void end(bool orderly) override;
    std::string record_topic(const std::string& uuid, int system, std::string_view kind) const override;

  private:
    friend struct NatsCallbacks;

    void work();
    std::string hold_connection();
    std::string hold_stream(natsConnection* connection);
    std::string have_stream(jsCtx* context, std::string& remark);
    std::string publish(jsCtx* stream, std::uint64_t number, const Message& message);
    void tell(Event event);

    const Settings& settings;
    Mailbox& mailbox;
    const std::size_t sink_number;
    const bool is_trial;

    std::mutex mutex;
    std::condition_variable changed;
    bool is_wanted = false;  // a connection
    bool is_ending = false;
    bool is_closed = false;  // by the other side
    bool is_over = false;
    std::vector<std::pair<std::uint64_t, Message>> to_send;
    std::map<std::string, std::uint64_t, std::less<>> messages;  // by id
    std::thread thread;
};

}  // namespace uplink
