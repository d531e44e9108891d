#include "uplink/courier.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <utility>

#include <fmt/format.h>

#include "contract/plain_text.h"
#include "core/gateway.h"

namespace uplink {

namespace {

constexpr std::int64_t Second = 1000;
constexpr std::int64_t FirstPause = 1 * Second;
constexpr std::int64_t LongestPause = 300 * Second;
constexpr std::int64_t Patience = 60 * Second;     // for a connection, and for an answer
constexpr std::int64_t SteadyAfter = 10 * Second;  // two gateways of one name end each other's connections at once
constexpr std::int64_t BetweenKeeps = 1 * Second;  // flash wears out
constexpr std::int64_t AfterFailedKeep = 30 * Second;

constexpr std::size_t LongestBatch = std::size_t{60} * 1024;  // with what stands around the lines below 64 KiB
constexpr std::size_t ShortestBatch = std::size_t{2} * 1024;
constexpr std::size_t FirstWindow = std::size_t{8} * 1024;
constexpr std::size_t LeastWindow = std::size_t{4} * 1024;
constexpr std::size_t LargestWindow = std::size_t{256} * 1024;
constexpr std::int64_t Fast = 1 * Second;  // an answer within it lets more be sent
constexpr std::int64_t Slow = 5 * Second;
constexpr std::size_t ValuesAtOnce = 50;
constexpr std::size_t BytesOfALine = 40;

std::int64_t earlier(std::int64_t one, std::int64_t other) {
    if (one < 0 || other < 0) return std::max(one, other);
    return std::min(one, other);
}

/// As topics and messages have it.
std::string_view kind_of(const Group& group) {
    return group.kind == contract::ArchiveKind::Events ? "event" : contract::text_of(group.kind);
}

}  // namespace

Courier::Courier(const Settings& all_settings, std::unique_ptr<Sink> own_sink, State& all_state, ValueMessages messages,
                 std::uint32_t seed)
    : settings(all_settings),
      sink(std::move(own_sink)),
      state(all_state),
      value_messages(std::move(messages)),
      chance(seed),
      queue(settings.gateway, settings.newest_first),
      window(FirstWindow) {
    if (value_messages && settings.values) values.emplace(std::int64_t{settings.unchanged_minutes} * 60 * Second);
    state.load(sink->name(), settings.gateway,
               [this](const FileName& file, const Place& place) { queue.remember(file, place); });
}

void Courier::say(const std::string& text) {
    if (text == last_said) return;
    last_said = text;
    std::fputs(contract::for_terminal(fmt::format("heatmeter-uplink: {}: {}", sink->name(), text)).append("\n").c_str(),
               stderr);
}

void Courier::look_at_values(const std::string& uuid, int system) {
    if (values) values->look_at(uuid, system);
}

void Courier::act(std::int64_t now) {
    if (step == Step::Resting && !is_over && now >= step_due) {
        step = Step::Connecting;
        step_due = now + Patience;
        sink->connect();
    } else if ((step == Step::Connecting && now >= step_due) ||
               (step == Step::Connected && !on_its_way.empty() && now >= answer_due())) {
        say("it does not answer");
        step = Step::Ending;
        sink->end(false);
    }
    if (step == Step::Connected) send_all(now);
    for (const std::string& path : queue.take_closed()) say(path + ": cannot be read");
    for (State::Change& change : queue.take_passed()) unkept[change.file] = change.place;
    if (!unkept.empty() && keep_due < 0) keep_due = kept_at < 0 ? now : std::max(now, kept_at + BetweenKeeps);
    if (keep_due >= 0 && now >= keep_due) keep(now);
}

std::int64_t Courier::next_due() const {
    std::int64_t due = keep_due;
    if (step == Step::Resting && !is_over) due = earlier(due, step_due);
    if (step == Step::Connecting) due = earlier(due, step_due);
    if (step == Step::Connected) {
        if (!on_its_way.empty()) due = earlier(due, answer_due());
        due = earlier(due, send_due);
        if (values && bytes_on_their_way < window) due = earlier(due, values->next_due());
    }
    return due;
}

/// Until when an answer has to have come: the next one, and the oldest one when later ones were answered already.
std::int64_t Courier::answer_due() const {
    const auto& [number, oldest] = *on_its_way.begin();
    return number < last_confirmed ? oldest.since + Patience : step_due;
}

void Courier::send_all(std::int64_t now) {
    send_due = -1;
    for (int without = 0; without < 2 && bytes_on_their_way < window; ++without) {
        if (is_turn_of_records ? send_records(now) : send_values(now)) without = -1;
        is_turn_of_records = !is_turn_of_records;
    }
}

bool Courier::send_values(std::int64_t now) {
    if (!values) return false;
    std::vector<Message> messages;
    value_messages(values->take(ValuesAtOnce, now), messages);
    if (messages.empty()) return false;
    // The answer to the last one tells that the others have gone out, too.
    OnItsWay way{.batch = {}, .bytes = 0, .since = now};
    for (Message& message : messages) {
        way.bytes += message.topic.size() + message.body.size();
        message.is_confirmed = &message == &messages.back();
        sink->send(++last_number, std::move(message));
    }
    if (on_its_way.empty()) step_due = now + Patience;
    bytes_on_their_way += way.bytes;
    on_its_way.emplace(last_number, std::move(way));
    return true;
}

bool Courier::send_records(std::int64_t now) {
    std::size_t most = std::clamp(window / 2, ShortestBatch, LongestBatch);
    if (const double limit = settings.lines_per_second; limit > 0) {
        lines_left = std::min(limit, lines_left + limit * static_cast<double>(now - lines_at) / Second);
        lines_at = now;
        if (lines_left < 1) {
            send_due = now + 1 + static_cast<std::int64_t>((1 - lines_left) / limit * Second);
            return false;
        }
        most = std::min(most, static_cast<std::size_t>(lines_left) * BytesOfALine);
    }
    auto batch = queue.next(most);
    if (!batch) return false;
    lines_left -= static_cast<double>(batch->lines);
    send(std::move(*batch), now);
    return true;
}

void Courier::send(Batch batch, std::int64_t now) {
    Message message;
    message.topic = sink->record_topic(batch.group.uuid, batch.group.system, kind_of(batch.group));
    message.body = std::exchange(batch.body, {});
    message.id = batch.id;
    if (on_its_way.empty()) step_due = now + Patience;
    OnItsWay way{.batch = std::move(batch), .bytes = message.body.size(), .since = now};
    bytes_on_their_way += way.bytes;
    sink->send(++last_number, std::move(message));
    on_its_way.emplace(last_number, std::move(way));
}

void Courier::confirmed(const Event& event, std::int64_t now) {
    const auto found = on_its_way.find(event.number);
    if (found == on_its_way.end()) return;  // nobody has sent that
    const OnItsWay way = std::move(found->second);
    on_its_way.erase(found);
    last_confirmed = std::max(last_confirmed, event.number);
    bytes_on_their_way -= way.bytes;
    step_due = now + Patience;
    if (now - connected_at >= SteadyAfter) failures = 0;
    if (now - way.since <= Fast) {
        window = std::min(LargestWindow, window + way.bytes);
    } else if (now - way.since >= Slow) {
        window = std::max(LeastWindow, window / 2);
    }
    if (!way.batch) return;
    std::uint64_t& last_sequence = sequences[way.batch->group];
    if (!way.batch->is_ahead) {
        if (event.was_there && event.sequence <= last_sequence) {
            // The stream remembers this one from before what was sent in front of it now: it has to come behind that.
            queue.failed(*way.batch, last_sequence);
            return;
        }
        last_sequence = event.sequence;
    }
    for (State::Change& change : queue.confirmed(*way.batch)) unkept[change.file] = change.place;
}

void Courier::lost(const std::string& reason, std::int64_t now) {
    for (auto& [number, way] : on_its_way) {
        if (way.batch) queue.failed(*way.batch);
    }
    on_its_way.clear();
    bytes_on_their_way = 0;
    sequences.clear();
    window = FirstWindow;
    send_due = -1;
    if (values) values->forget_sent();
    if (!reason.empty() && !is_over) say(reason);
    const std::int64_t longest = std::min(LongestPause, FirstPause << std::min(failures, 10));
    ++failures;
    step = Step::Resting;
    step_due = now + longest / 2 + static_cast<std::int64_t>(chance() % static_cast<std::uint32_t>(longest / 2 + 1));
}

void Courier::take(const Event& event, std::int64_t now) {
    switch (event.what) {
        case Event::What::Connected:
            if (step != Step::Connecting) return;
            step = Step::Connected;
            connected_at = now;
            step_due = now + Patience;
            say(event.reason.empty() ? "connected" : "connected; " + event.reason);
            return;
        case Event::What::Confirmed:
            confirmed(event, now);
            return;
        case Event::What::Refused:
            say(fmt::format("it does not take {}: {}", what_is(event.number), event.reason));
            if (step == Step::Ending || step == Step::Resting) return;
            step = Step::Ending;
            sink->end(false);
            return;
        case Event::What::Lost:
            if (step != Step::Resting) lost(event.reason, now);
            return;
    }
}

/// A message on its way, for people.
std::string Courier::what_is(std::uint64_t number) const {
    const auto found = on_its_way.find(number);
    if (found == on_its_way.end() || !found->second.batch) return "what is sent";
    const Group& group = found->second.batch->group;
    return sink->record_topic(group.uuid, group.system, kind_of(group));
}

void Courier::keep(std::int64_t now) {
    std::vector<State::Change> changes;
    for (const auto& [file, place] : unkept) changes.push_back({file, place});
    kept_at = now;
    if (!state.keep(sink->name(), changes, gateway().now())) {
        say("what was confirmed cannot be kept: " + state.fault());
        keep_due = now + AfterFailedKeep;
        return;
    }
    unkept.clear();
    keep_due = -1;
}

void Courier::finish() {
    is_over = true;
    if (!unkept.empty()) keep(std::max<std::int64_t>(kept_at, 0));
    if (step == Step::Connecting || step == Step::Connected) {
        step = Step::Ending;
        sink->end(true);
    }
}

}  // namespace uplink
