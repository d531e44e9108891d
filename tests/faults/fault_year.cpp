#include "faults/fault_year.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "core/entry/startup.h"
#include "core/uni_log.h"
#include "faults/broken_invariant.h"

namespace faults {

namespace {

constexpr const char* Berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr double Hour = 3600;
constexpr double Day = 24 * Hour;
constexpr double FreeWindow = 8 * 60;
constexpr int ProcessesToALoudOne = 4;        // half of the time goes into log lines
constexpr std::time_t HeldMargin = 3 * 3600;  // what leaves the ring during a calm stretch is owed no more
constexpr const char* BusFlag = "/tmp/pause_tvk_all";

}  // namespace

FaultYear::FaultYear(const std::string& family, std::uint64_t seed, int days)
    : name_(family),
      seed_(seed),
      seconds_(days * Day),
      family_(make_family(family)),
      plan_(draw_plan(seed, days)),
      scene_(plan_.start, Berlin),
      storage_(scene_.real_path("/mnt/storage")),
      archives_(scene_.real_path(std::string("/mnt/storage/") + Uuid),
                family_->is_staging() ? "tmp_archives" : "tc_archives", ledger_),
      watch_((scene_.remove("/proc/leds"), scene_.root()), Uuid),
      begin_(machine_.seconds()) {
    scene_.service.set_meter(Uuid, family_->settings());
    machine_.add_device(Port);
    family_->begin(right_time());
    connect(false);
}

FaultYear::~FaultYear() {
    g_log = nullptr;
}

double FaultYear::day() const {
    return elapsed() / Day;
}

std::string FaultYear::situation() const {
    char text[256];
    std::snprintf(text, sizeof(text), "%s, seed %llu, day %.3f (%s), %s since day %.3f", name_.c_str(),
                  static_cast<unsigned long long>(seed_), day(), plan_.start.c_str(),
                  episode_ == nullptr ? "nothing" : fault_name(episode_->fault).c_str(),
                  episode_ == nullptr ? 0.0 : episode_->fault_at / Day);
    return text;
}

std::string FaultYear::summary() const {
    char text[400];
    std::snprintf(text, sizeof(text),
                  "%s, seed %llu: %.0f days from %s, %d faults, %d processes, %d power cuts, %d of %d calm looks; "
                  "%zu records, %zu promised, %zu found, %zu given up; %zu lines, %zu torn, %zu files emptied; log "
                  "%zu, heap %lld",
                  name_.c_str(), static_cast<unsigned long long>(seed_), day(), plan_.start.c_str(), faults_,
                  processes_, power_cuts_, calm_looks_, calm_looks_ + skipped_, ledger_.records(), ledger_.promised(),
                  ledger_.kept(), ledger_.given_up(), archives_.lines_read(), archives_.torn(), archives_.emptied(),
                  watch_.largest_log(), watch_.heap_growth());
    return text;
}

// ---- the plan, put on the machine's clock

void FaultYear::run() {
    hold_bus(true);
    look();
    schedule_looks();
    schedule(0);
    while (elapsed() < seconds_) live();
    look();
}

void FaultYear::at(double moment, std::function<void()> action) {
    machine_.at(std::max(moment - elapsed(), 0.0), [this, action = std::move(action)] {
        struct OwnWork {
            explicit OwnWork(MachineWatch& its_watch) : watch(its_watch) { watch.begin_own_work(); }
            ~OwnWork() { watch.end_own_work(); }
            OwnWork(const OwnWork&) = delete;
            OwnWork& operator=(const OwnWork&) = delete;
            MachineWatch& watch;
        };
        const OwnWork own(watch_);
        action();
    });
}

void FaultYear::schedule_looks() {
    at(elapsed() + Hour, [this] {
        schedule_looks();
        look();
    });
}

void FaultYear::schedule(std::size_t number) {
    if (number >= plan_.episodes.size()) return;
    const Episode& episode = plan_.episodes[number];
    at(episode.begin, [this, number, &episode] {
        episode_ = &episode;
        hold_bus(true);
        family_->misbehave(episode.background, episode.number);
        schedule_free_windows(episode);
        schedule(number + 1);
    });
    at(episode.fault_at, [this, &episode] { begin_fault(episode); });
    at(episode.fault_end, [this, &episode] { end_fault(episode); });
    at(episode.calm_at, [this, &episode] { begin_calm(episode); });
    at(episode.calm_end - 1, [this, &episode] { end_calm(episode); });
}

void FaultYear::schedule_free_windows(const Episode& episode) {
    for (double moment = episode.begin + episode.free_offset; moment < episode.calm_at; moment += episode.free_every) {
        free_bus(episode, moment);
    }
    // Most faults are met by a process that is at work.
    if (episode.number % 3 != 0) free_bus(episode, episode.fault_at - 60);
}

void FaultYear::free_bus(const Episode& episode, double moment) {
    const bool paused = episode.fault == Fault::Pause && moment + FreeWindow > episode.fault_at;
    if (paused || moment + FreeWindow >= episode.calm_at) return;
    at(moment, [this] { hold_bus(false); });
    at(moment + FreeWindow, [this, &episode] {
        if (elapsed() < episode.calm_at) hold_bus(true);
    });
    const auto number = static_cast<std::uint64_t>(moment) ^ episode.number;
    if (number % 3 == 0) at(moment + 60, [this] { scene_.touch(std::string("/tmp/tvk_force_update_") + Uuid); });
    if (number % 5 == 0) at(moment, [this] { scene_.touch(std::string("/tmp/tvk_force_update_archives_") + Uuid); });
}

void FaultYear::hold_bus(bool held) {
    bus_held_ = held;
    if (held) {
        scene_.touch(BusFlag);
    } else {
        scene_.remove(BusFlag);
    }
}

// ---- faults

void FaultYear::begin_fault(const Episode& episode) {
    ++faults_;
    Dice dice(episode.number);
    switch (episode.fault) {
        case Fault::Noise:
            return family_->misbehave(dice.between(0.1, 0.7), dice.next());
        case Fault::CutAnswers:
            return family_->cut_answers(dice.between(0.1, 0.7), dice.next());
        case Fault::Silence:
            return machine_.disconnect_all(Port);
        case Fault::StrayBytes:
            if (family_->has_check_sums()) strew_bytes(episode);
            return;
        case Fault::Swap:
            // Nobody changes a meter faster than a pass over the archive breaks off.
            machine_.disconnect_all(Port);
            return at(elapsed() + 900, [this] { connect(true); });
        case Fault::ClockForward:
        case Fault::ClockBack: {
            constexpr double Steps[] = {90, 3700, 5 * Hour, 8 * Hour, 50 * Hour};
            const double step = Steps[dice.below(std::size(Steps))];
            return step_clock(episode.fault == Fault::ClockForward ? step : -step);
        }
        case Fault::Pause:
            scene_.touch(std::string("/tmp/RPRT_LCK_") + Uuid);
            return hold_bus(true);
        case Fault::Restart:
            return kill();
        case Fault::PowerCut:
            unsynced_ = static_cast<sim::Unsynced>(dice.below(3));
            tear_length_ = unsynced_ == sim::Unsynced::Zeroed && dice.one_in(2) ? 1 + dice.below(26) : 0;
            hold_bus(false);
            return machine_.cut_power_at(1 + static_cast<int>(dice.below(40)), unsynced_);
        case Fault::DiskFull:
            storage_fault_ = storage_.fill_up(static_cast<unsigned>(dice.below(4)));
            return;
        case Fault::ReadOnly:
            storage_fault_ = storage_.make_read_only();
            return;
        case Fault::LostDurability:
            return machine_.fail_durable(EIO);
        case Fault::VanishedFolder:
            return vanish(episode);
    }
}

void FaultYear::end_fault(const Episode& episode) {
    family_->misbehave(episode.background, episode.number + 1);
    scene_.remove(std::string("/tmp/RPRT_LCK_") + Uuid);
    machine_.fail_durable(0);
    if (episode.fault == Fault::LostDurability) machine_.settle_storage();  // written in the background by now
    storage_.recover();
    if (episode.fault == Fault::Silence || episode.fault == Fault::Swap) connect(false);
    look();
    if (episode.fault == Fault::DiskFull || episode.fault == Fault::ReadOnly) {
        archives_.note_tears();
        storage_fault_ = false;
        ledger_.give_up_missing();
    }
    if (episode.fault == Fault::Swap) ledger_.give_up_missing();
    if (episode.fault == Fault::VanishedFolder) {
        for (int n = 1; n <= 6; ++n) {
            scene_.write("/mnt/storage/" + std::string(Uuid) + "/" + std::to_string(n) + "/" +
                             folder_to_vanish(episode) + "/.again",
                         "");
            scene_.remove("/mnt/storage/" + std::string(Uuid) + "/" + std::to_string(n) + "/" +
                          folder_to_vanish(episode) + "/.again");
        }
        ledger_.give_up_missing();
    }
    if (episode.fault != Fault::ClockForward && episode.fault != Fault::ClockBack) return;
    step_clock(-stepped_);
    ledger_.give_up_missing(YearFamily::EventArchive);
    if (episode.number % 5 < 3) kill();
}

void FaultYear::connect(bool other) {
    other_there_ = other;
    machine_.disconnect_all(Port);
    machine_.connect(Port, family_->meter(other));
}

void FaultYear::step_clock(double seconds) {
    latest_wall_ = std::max(latest_wall_, machine_.seconds());
    machine_.step_clock(seconds);
    stepped_ += seconds;
    latest_wall_ = std::max(latest_wall_, machine_.seconds());
}

void FaultYear::strew_bytes(const Episode& episode) {
    Dice dice(episode.number + 2);
    for (double moment = elapsed(); moment < episode.fault_end; moment += dice.between(1, 600)) {
        sim::ByteVector bytes(1 + dice.below(40));
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(dice.next() >> 13);
        at(moment, [this, bytes] { machine_.put_noise(Port, bytes); });
    }
}

/// Without the folder that it stages into, a process ends when a pass is over; such a folder goes with a restart.
std::string FaultYear::folder_to_vanish(const Episode& episode) const {
    if (!family_->is_staging()) return "tc_archives";
    constexpr const char* Folders[] = {"tc_archives", "tc_tmp_archives", "tmp_archives"};
    return Folders[episode.number % 3];
}

void FaultYear::vanish(const Episode& episode) {
    const std::string folder = folder_to_vanish(episode);
    look();
    for (int n = 1; n <= 6; ++n) {
        const std::string place = std::to_string(n) + "/" + folder;
        scene_.remove("/mnt/storage/" + std::string(Uuid) + "/" + place);
        archives_.forget(place);
    }
    machine_.settle_storage();
    ledger_.give_up_all();
    if (folder == "tmp_archives") kill();
}

void FaultYear::begin_calm(const Episode& episode) {
    machine_.cut_power_at(0, unsynced_);
    family_->misbehave(0, 0);
    hold_bus(false);
    look();
    const bool deaf =
        (machine_.seconds() + 1 < latest_wall_ && !episode.restart_for_calm) || family_->is_held_up(right_time());
    calm_since_ = deaf ? std::nullopt : std::optional(right_time());
    if (deaf) ++skipped_;
    if (episode.restart_for_calm) kill();
}

void FaultYear::end_calm(const Episode& /*episode*/) {
    look();
    if (family_->is_staging()) archives_.look_at_copies();
    if (!calm_since_) return;
    ++calm_looks_;
    const auto missing =
        ledger_.first_missing(*calm_since_, [this](int archive) { return family_->oldest_held(archive) + HeldMargin; });
    if (missing) throw BrokenInvariant("lost, though the meter still holds its record: " + *missing);
}

// ---- processes

void FaultYear::live() {
    ++processes_;
    bool cut = false;
    watch_.process_begins();
    latest_wall_ = machine_.seconds();
    try {
        open_logs(processes_ % ProcessesToALoudOne == 1);
        g_uuid_list = {Uuid};
        running_ = true;
        machine_.run_for(seconds_ - elapsed(), [this] {
            init_directories();
            family_->live(Uuid);
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
    watch_.process_is_gone(2 * machine_.sleeps().size() * sizeof(unsigned) + 4 * archives_.bytes() +
                           400 * ledger_.records());
    watch_.process_ended();
    if (cut) return after_power_cut();
    look();
    ledger_.give_up_begun();
}

/// A log whose path is a folder is not written.
void FaultYear::open_logs(bool loud) {
    for (const char* name : {".txt", ".messages.txt", ".debug.txt", ".general.txt"}) {
        const std::string path = std::string("/tmp/uni_logs.") + Uuid + name;
        scene_.remove(path);
        if (!loud) scene_.touch(path + "/no file");
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
    if (tear_length_ > 0) {
        archives_.tear_zeros(tear_length_);
        machine_.settle_storage();
    }
    archives_.note_tears();
    look();
    ledger_.give_up_begun();
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
    machine_.forget_exchanges();
    latest_wall_ = std::max(latest_wall_, machine_.seconds());
    const std::time_t now = right_time();
    for (YearRecord& record : family_->collect(now)) ledger_.add(std::move(record), now);
    const std::size_t trail = trail_bytes();
    const bool thrown_away = trail != trail_ || may_have_thrown_away_ || storage_fault_;
    archives_.look({.may_tear = storage_fault_, .may_shrink = family_->throws_away() && thrown_away});
    trail_ = trail;
    may_have_thrown_away_ = false;
    watch_.look();
}

}  // namespace faults
