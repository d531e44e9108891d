#include "store/run.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <optional>
#include <random>
#include <thread>

#include <fmt/format.h>

#include "contract/plain_text.h"
#include "store/writer.h"

namespace store {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int Portion = 64;                  // messages asked for at once: each may have 64 KiB, and a foreign one more
constexpr std::size_t BatchBytes = 8 << 20;  // of a batch, however few messages that are
constexpr milliseconds Moment{200};          // after its first message
constexpr int Patience = 1000;               // milliseconds until it is looked whether the end is asked for
constexpr milliseconds FirstWait{500};
constexpr milliseconds LongestWait{30'000};
constexpr std::chrono::minutes BetweenReports{5};
constexpr std::chrono::seconds BetweenSearches{60};
constexpr std::size_t FoundAtOnce = 500;  // messages

/// Grows, with a chance, so that many stores do not come back at the same moment.
class Wait {
  public:
    milliseconds next() {
        const milliseconds now = wait;
        wait = std::min(LongestWait, wait * 2);
        return milliseconds(std::uniform_int_distribution<long>(now.count() / 2, now.count())(random));
    }
    void begin_anew() { wait = FirstWait; }

  private:
    milliseconds wait = FirstWait;
    std::minstd_rand random{std::random_device{}()};
};

struct Batch {
    std::vector<Delivery> deliveries;
    std::vector<Item> items;
};

class Store {
  public:
    Store(const RunSettings& run_settings, const volatile std::sig_atomic_t& end) : settings(run_settings), ends(end) {}

    bool run();

  private:
    bool is_ending() const { return ends != 0; }
    /// False when there is no more to try.
    bool is_patient(const std::exception& error, Wait& wait);
    bool ready();
    Batch collect();
    void add(Batch& batch, Delivery delivery);
    bool next_batch();
    bool search();
    bool write(Batch& batch);
    void report(bool now);

    const RunSettings& settings;
    const volatile std::sig_atomic_t& ends;
    std::optional<Queue> queue;
    std::optional<Writer> writer;
    int stream = 0;  // the queue's, as the database numbers it
    bool gave_up = false;
    Wait queue_wait, writer_wait;
    Counts counts;
    Clock::time_point reported = Clock::now();
    Clock::time_point searched;

    // The batch that follows is taken and looked at while the database is at work.
    Decoder decoder;
    std::future<Batch> following;
};

bool Store::is_patient(const std::exception& error, Wait& wait) {
    if (settings.once || is_ending()) {
        say(error.what());
        return false;
    }
    const milliseconds time = wait.next();
    say(fmt::format("{}; again in {:.1f} s", error.what(), static_cast<double>(time.count()) / 1000));
    for (const auto end = Clock::now() + time; Clock::now() < end && !is_ending();) {
        std::this_thread::sleep_for(milliseconds(50));
    }
    return !is_ending();
}

/// Both ends are connected. False when that is not to be.
bool Store::ready() {
    while (!queue || !writer) {
        try {
            if (!writer) {
                writer.emplace(settings.postgres);
                stream = 0;
                searched = {};
                if (writer->migrated() > 0) say(fmt::format("{} migrations done", writer->migrated()));
            }
            if (!queue) {
                queue.emplace(settings.queue);
                stream = 0;
                if (!queue->difference().empty()) say(queue->difference());
            }
            if (stream == 0) stream = writer->stream(settings.queue.stream, queue->created());
        } catch (const DatabaseError& error) {
            writer.reset();
            if (!is_patient(error, writer_wait)) return false;
        } catch (const QueueError& error) {
            queue.reset();
            if (!is_patient(error, queue_wait)) return false;
        }
    }
    return true;
}

void Store::add(Batch& batch, Delivery delivery) {
    Item& item = batch.items.emplace_back();
    item.subject = delivery.subject();
    item.sequence = delivery.sequence();
    item.fault = unpack(delivery.encoding(), delivery.body(), item.body);
    if (item.sequence > MostSequence) item.fault = "a sequence out of range";
    if (item.fault.empty()) item.fault = decoder.decode(item.subject, item.body, item.message);
    batch.deliveries.push_back(std::move(delivery));
}

/// What comes within a moment, but not too much of it.
Batch Store::collect() {
    Batch batch;
    std::size_t bytes = 0;
    Clock::time_point end;
    const auto wanted = static_cast<std::size_t>(settings.batch);
    while (batch.items.size() < wanted && bytes < BatchBytes) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now()).count();
        if (!batch.items.empty() && left <= 0) break;
        const int patience = batch.items.empty() ? Patience : static_cast<int>(left);
        const auto missing = static_cast<int>(wanted - batch.items.size());
        std::vector<Delivery> portion = queue->fetch(std::min(Portion, missing), patience);
        if (portion.empty()) break;
        if (batch.items.empty()) end = Clock::now() + Moment;
        for (Delivery& delivery : portion) {
            add(batch, std::move(delivery));
            bytes += batch.items.back().body.size();
        }
    }
    if (!batch.items.empty()) queue->check_stream();
    return batch;
}

/// Until it is in the database. False when that is not to be.
bool Store::write(Batch& batch) {
    for (;;) {
        try {
            if (!writer) {  // it may be another database
                writer.emplace(settings.postgres);
                searched = {};
                stream = writer->stream(settings.queue.stream, queue->created());
            }
            const long rejected = counts.rejected;
            writer->write(stream, batch.items, counts);
            writer_wait.begin_anew();
            if (counts.rejected > rejected) {
                say(fmt::format("{} rejected, see the table rejected", counts.rejected - rejected));
            }
            return true;
        } catch (const DatabaseError& error) {
            writer.reset();
            gave_up = !is_patient(error, writer_wait);
            if (gave_up) return false;
        }
    }
}

void Store::report(bool now) {
    if ((!now && Clock::now() < reported + BetweenReports) || counts.messages == 0) return;
    say(fmt::format("{} messages, {} lines, {} rejected in {} s", counts.messages, counts.lines, counts.rejected,
                    std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - reported).count()));
    counts = {};
    reported = Clock::now();
}

/// False when nothing is left, and that is the end.
bool Store::next_batch() {
    const auto collect_beside = [this] { return std::async(std::launch::async, [this] { return collect(); }); };
    if (!following.valid()) following = collect_beside();
    Batch batch = following.get();
    queue_wait.begin_anew();
    if (batch.items.empty()) return search() || !settings.once || !queue->is_empty();
    following = collect_beside();
    if (write(batch)) queue->acknowledge(batch.deliveries);
    return true;
}

/// Writes what the stream has and the database lacks: a consumer forgets with its disk, a database that was put back
/// with all that came since. False when there is nothing of that, or it is not the time to look.
bool Store::search() {
    if (Clock::now() < searched + BetweenSearches || !queue->is_empty()) return false;
    searched = Clock::now();
    const auto [first, last] = queue->extent();
    queue->check_stream();
    Batch batch;
    std::vector<std::int64_t> gone;
    std::size_t bytes = 0;
    for (const std::int64_t sequence : writer->missing(stream, first, last, FoundAtOnce)) {
        if (bytes >= BatchBytes) break;
        if (auto found = queue->message_at(sequence)) {
            add(batch, std::move(*found));
            bytes += batch.items.back().body.size();
        } else {
            gone.push_back(sequence);
        }
    }
    if (batch.items.empty() && gone.empty()) return false;
    searched = {};  // there may be more
    if (!batch.items.empty()) {
        say(fmt::format("{} messages of the stream were not in the database", batch.items.size()));
        if (!write(batch)) return false;
    }
    if (!gone.empty()) writer->mark_done(stream, gone);
    return true;
}

bool Store::run() {
    bool is_done = false;
    while (!is_done && !gave_up && ready() && !is_ending()) {
        try {
            is_done = !next_batch();
        } catch (const QueueError& error) {
            following = {};  // what it has taken comes again
            queue.reset();
            gave_up = !is_patient(error, queue_wait);
        } catch (const DatabaseError& error) {
            writer.reset();
            gave_up = !is_patient(error, writer_wait);
        }
        report(false);
    }
    report(true);
    return is_done || is_ending();
}

}  // namespace

void say(const std::string& text) {
    std::fputs(fmt::format("heatmeter-store: {}\n", contract::for_terminal(text)).c_str(), stderr);
}

bool run(const RunSettings& settings, const volatile std::sig_atomic_t& ends) {
    return Store(settings, ends).run();
}

}  // namespace store
