// The processes of a faulty year, and the looks at what holds at every moment.

#include <algorithm>
#include <cstdio>
#include <utility>

#include "core/entry/startup.h"
#include "core/uni_log.h"
#include "faults/fault_year.h"

namespace faults {

namespace {

constexpr double Hour = 3600;
constexpr double Day = 24 * Hour;
constexpr int ProcessesToALoudOne = 4;  // half of the time goes into log lines

// A neighbour of a silent meter has each of its polls behind a vain one of that, and the next pass over its archives
// begins an hour after the one before.
constexpr double ShortestLookedAt = 4 * Hour;
constexpr std::time_t NeighbourMargin = 3 * 3600;

}  // namespace

double FaultYear::day() const {
    return elapsed() / Day;
}

std::string FaultYear::situation() const {
    char text[256];
    std::snprintf(text, sizeof(text), "%s, seed %llu: day %.3f (%s), %s since day %.3f; ", name_.c_str(),
                  static_cast<unsigned long long>(seed_), day(), plan_.start.c_str(),
                  episode_ == nullptr ? "nothing" : fault_name(episode_->fault).c_str(),
                  episode_ == nullptr ? 0.0 : episode_->fault_at / Day);
    return text + models();
}

std::string FaultYear::summary() const {
    char text[400];
    std::snprintf(
        text, sizeof(text),
        "%s, seed %llu: %.0f days from %s, %d faults, %d processes, %d power cuts, %d of %d calm looks, %d at "
        "neighbours; "
        "%zu records, %zu promised, %zu found, %zu given up; %zu lines, %zu torn, %zu files emptied; log "
        "%zu, heap %lld; ",
        name_.c_str(), static_cast<unsigned long long>(seed_), day(), plan_.start.c_str(), faults_, processes_,
        power_cuts_, calm_looks_, calm_looks_ + skipped_, neighbour_looks_,
        sum_of([](const WatchedMeter& meter) { return meter.ledger.records(); }),
        sum_of([](const WatchedMeter& meter) { return meter.ledger.promised(); }), records_found(),
        sum_of([](const WatchedMeter& meter) { return meter.ledger.given_up(); }), lines_read(),
        sum_of([](const WatchedMeter& meter) { return meter.archives.torn(); }),
        sum_of([](const WatchedMeter& meter) { return meter.archives.emptied(); }), watch_.largest_log(),
        watch_.heap_growth());
    return text + models();
}

template <typename Number>
std::size_t FaultYear::sum_of(Number number) const {
    std::size_t sum = 0;
    for (const auto& meter : meters_) sum += number(*meter);
    return sum;
}

std::size_t FaultYear::lines_read() const {
    return sum_of([](const WatchedMeter& meter) { return meter.archives.lines_read(); });
}

std::size_t FaultYear::records_found() const {
    return sum_of([](const WatchedMeter& meter) { return meter.ledger.kept(); });
}

// ---- processes

void FaultYear::live() {
    ++processes_;
    bool cut = false;
    watch_.process_begins();
    latest_wall_ = machine_.seconds();
    process_began_ = right_time();
    try {
        open_logs(processes_ % ProcessesToALoudOne == 1);
        g_uuid_list = uuids_;
        running_ = true;
        machine_.run_for(seconds_ - elapsed(), [this] {
            init_directories();
            installation_.live(uuids_);
        });
    } catch (const ProcessKilled&) {
        watch_.end_own_work();
    } catch (const sim::PowerCut&) {
        cut = true;
    }
    running_ = false;
    g_log = nullptr;
    general_.reset();
    machine_.forget_exchanges();
    watch_.process_is_gone(explained_bytes());
    watch_.process_ended();
    if (cut) return after_power_cut();
    look();
    for (const auto& meter : meters_) meter->process_is_gone();
}

/// What the simulated machine, and the watch over it, may have taken by now.
std::size_t FaultYear::explained_bytes() const {
    const std::size_t sleeps = 2 * machine_.sleeps().size() * sizeof(unsigned);
    return sleeps +
           sum_of([](const WatchedMeter& meter) { return 4 * meter.archives.bytes() + 400 * meter.ledger.records(); });
}

/// A log whose path is a folder is not written.
void FaultYear::open_logs(bool loud) {
    for (const std::string& uuid : uuids_) {
        for (const char* name : {".txt", ".messages.txt", ".debug.txt", ".general.txt"}) {
            const std::string path = "/tmp/uni_logs." + uuid + name;
            scene_.remove(path);
            if (!loud) scene_.touch(path + "/no file");
        }
    }
    if (!loud) return;
    general_ = std::make_unique<UniLog>(UniLog::ToFile, "/tmp/uni_logs.general.txt", "");
    g_log = general_.get();
}

void FaultYear::kill() const {
    if (running_) throw ProcessKilled{};
}

void FaultYear::after_power_cut() {
    ++power_cuts_;
    machine_.cut_power_at(0, unsynced_);
    may_have_thrown_away_ = true;
    for (const auto& meter : meters_) {
        if (tear_length_ > 0) meter->archives.tear_zeros(tear_length_);
    }
    if (tear_length_ > 0) machine_.settle_storage();
    for (const auto& meter : meters_) meter->archives.note_tears();
    look();
    for (const auto& meter : meters_) meter->process_is_gone();
    scene_.clear_tmp();
    if (bus_held_) hold_bus(true);
    trail_ = 0;
    Dice dice(episode_->number + 3);
    const double off = dice.one_in(2) ? dice.between(30, 600) : dice.between(Hour, 4 * Hour);
    const double until = std::min({elapsed() + off, episode_->fault_end, seconds_});
    if (until > elapsed()) machine_.sleep(static_cast<unsigned>(until - elapsed()));
}

// ---- looks

std::size_t FaultYear::trail_bytes() const {
    std::size_t sum = 0;
    for (int n = 1; n <= 6; ++n) {
        sum += scene_.file("/tmp/arch.integrity.fail." + std::to_string(n)).value_or("").size();
    }
    return sum;
}

void FaultYear::look() {
    latest_wall_ = std::max(latest_wall_, machine_.seconds());
    const std::size_t trail = trail_bytes();
    const bool thrown_away = trail != trail_ || may_have_thrown_away_ || storage_fault_;
    for (const auto& meter : meters_) {
        meter->take_new_records(right_time());
        meter->archives.look({.may_tear = storage_fault_, .may_shrink = meter->meter.throws_away() && thrown_away});
    }
    trail_ = trail;
    may_have_thrown_away_ = false;
    watch_.look();
}

/// The process waits for a time that has been already, or cannot read that meter for as long as it lives.
bool FaultYear::is_deaf(const WatchedMeter& meter) const {
    if (machine_.seconds() + 1 < latest_wall_) return true;
    // Once described, the meter of a single bus has had its turn.
    return installation_.is_single_bus || meter.meter.is_lost_to_process_since(process_began_);
}

void FaultYear::look_at_neighbours(const Episode& episode) {
    const bool lived = process_began_ <= static_cast<std::time_t>(begin_ + episode.fault_at);
    if (!lived || episode.fault_end - episode.fault_at < ShortestLookedAt) return;
    for (const auto& meter : meters_) {
        const bool late = meter->meter.is_held_up(right_time()) || meter->meter.is_misdated(right_time());
        const bool owed = meter.get() != &victim(episode) && !is_deaf(*meter) && !late;
        if (!owed) continue;
        meter->look_for_missing(right_time() - NeighbourMargin);
        ++neighbour_looks_;
    }
}

}  // namespace faults
