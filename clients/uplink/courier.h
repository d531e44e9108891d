#pragma once
// Brings what a queue has to one sink: connects, sends, keeps what was confirmed, and after a failure waits, longer
// each time and by chance, so that a fleet does not come back all at once.
//
// How much is on its way follows how fast it is confirmed: a thin line stays usable for what is new.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "uplink/queue.h"
#include "uplink/settings.h"
#include "uplink/sink.h"
#include "uplink/state.h"
#include "uplink/values.h"

namespace uplink {

/// Makes messages of values; empty for a sink that takes none.
using ValueMessages = std::function<void(const std::vector<Values::Value>&, std::vector<Message>&)>;

class Courier {
  public:
    /// Times are the steady clock's milliseconds.
    Courier(const Settings& settings, std::unique_ptr<Sink> sink, State& state, ValueMessages value_messages,
            std::uint32_t seed);

    void look_at_records(const std::string& uuid, int system) { queue.look_at(uuid, system); }
    void look_at_values(const std::string& uuid, int system);
    void take(const Event& event, std::int64_t now);
    /// Does what is due.
    void act(std::int64_t now);
    /// When `act` has something to do; -1: only after news.
    std::int64_t next_due() const;
    /// Ends the connection and keeps what was confirmed.
    void finish();
    bool is_ended() const { return step == Step::Resting; }

  private:
    enum class Step { Resting, Connecting, Connected, Ending };
    struct OnItsWay {
        std::optional<Batch> batch;  // none: values
        std::size_t bytes = 0;
        std::int64_t since = 0;
    };

    std::int64_t answer_due() const;
    void send_all(std::int64_t now);
    bool send_values(std::int64_t now);
    bool send_records(std::int64_t now);
    void send(Batch batch, std::int64_t now);
    void confirmed(const Event& event, std::int64_t now);
    void lost(const std::string& reason, std::int64_t now);
    void keep(std::int64_t now);
    std::string what_is(std::uint64_t number) const;
    void say(const std::string& text);

    const Settings& settings;
    std::unique_ptr<Sink> sink;
    State& state;
    ValueMessages value_messages;
    std::minstd_rand chance;
    Queue queue;
    std::optional<Values> values;

    Step step = Step::Resting;
    std::int64_t step_due = 0;  // resting: until; connecting: at the latest; connected: when an answer has to have come
    std::int64_t connected_at = 0;
    int failures = 0;
    bool is_over = false;
    std::string last_said;

    std::uint64_t last_number = 0;
    std::map<std::uint64_t, OnItsWay> on_its_way;
    std::uint64_t last_confirmed = 0;  // the highest number
    bool is_turn_of_records = false;   // values that fill the line leave them a place
    std::size_t bytes_on_their_way = 0;
    std::size_t window;                        // bytes that may be on their way
    std::map<Group, std::uint64_t> sequences;  // of the last batch in order

    double lines_left = 0;  // of the limit
    std::int64_t lines_at = 0;
    std::int64_t send_due = -1;  // when the limit lets more through

    std::map<FileName, Place> unkept;
    std::int64_t keep_due = -1;
    std::int64_t kept_at = -1;
};

}  // namespace uplink
