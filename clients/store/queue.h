#pragma once
// The stream of JetStream, read by a durable pull consumer that any number of stores share.

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nats/nats.h>

namespace store {

struct QueueSettings {
    std::string url;  ///< several with commas between
    std::string stream = "HEATMETER";
    std::string consumer = "store";
    int replicas = 1;   ///< of a stream that is made
    int keep_days = 0;  ///< the same; 0: for ever
    std::string user;
    std::string password_file;
    std::string ca;
    std::string cert;
    std::string key;
};

class QueueError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Delivery {
  public:
    explicit Delivery(natsMsg* nats_message, std::int64_t sequence = 0)
        : message(nats_message), sequence_in_stream(sequence) {}

    /// Throws a QueueError for a message that is none of a stream.
    void read_sequence();

    std::string_view subject() const { return ::natsMsg_GetSubject(message.get()); }
    std::string_view body() const;
    /// Content-Encoding, "" without one.
    std::string encoding() const;
    std::int64_t sequence() const { return sequence_in_stream; }
    natsMsg* get() const { return message.get(); }

  private:
    struct Destroy {
        void operator()(natsMsg* nats_message) const { ::natsMsg_Destroy(nats_message); }
    };
    std::unique_ptr<natsMsg, Destroy> message;
    std::int64_t sequence_in_stream;
};

class Queue {
  public:
    /// Connects; makes the stream and the consumer that are not there, and takes others as they are. Throws a
    /// QueueError, as all of this does.
    explicit Queue(const QueueSettings& settings);

    /// When the stream was made, nanoseconds since 1970.
    std::int64_t created() const { return stream_created; }
    /// How the stream differs from what was asked for; "" when it does not.
    const std::string& difference() const { return stream_difference; }
    /// Throws when the stream has been made anew: its sequences have begun anew, too.
    void check_stream();
    /// At most so many messages, what is there at once; waits for the first.
    std::vector<Delivery> fetch(int most, int wait_milliseconds);
    void acknowledge(const std::vector<Delivery>& deliveries);
    /// All has been delivered and acknowledged, as far as the consumer remembers.
    bool is_empty();
    /// The first and the last sequence that the stream has; it may lack some between them.
    std::pair<std::int64_t, std::int64_t> extent();
    /// A message of the stream, without the consumer; nothing when it is not there any more.
    std::optional<Delivery> message_at(std::int64_t sequence);

  private:
    template <typename Thing, void (*Free)(Thing*)>
    struct Destroy {
        void operator()(Thing* thing) const { Free(thing); }
    };
    template <typename Thing, void (*Free)(Thing*)>
    using Owned = std::unique_ptr<Thing, Destroy<Thing, Free>>;

    void find_stream(const QueueSettings& settings);
    void find_consumer();

    std::string stream, consumer;
    Owned<natsConnection, natsConnection_Destroy> connection;
    Owned<jsCtx, jsCtx_Destroy> context;
    Owned<natsSubscription, natsSubscription_Destroy> subscription;
    std::int64_t stream_created = 0;
    std::string stream_difference;
};

}  // namespace store
