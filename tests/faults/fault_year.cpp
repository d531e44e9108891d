#include "faults/fault_year.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "core/uni_log.h"

namespace faults {

namespace {

constexpr const char* Berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr double Hour = 3600;
constexpr double Day = 24 * Hour;
constexpr double FreeWindow = 8 * 60;
constexpr double TimeToChangeAMeter = 15 * 60;
constexpr double SingleBusTurn = 5;  // its loop never sleeps: two turns of a driver lie so many seconds apart
constexpr const char* BusFlag = "/tmp/pause_tvk_all";

Installation::Uuids uuids_of(const Installation& installation) {
    Installation::Uuids uuids;
    for (std::size_t number = 1; number <= installation.places.size(); ++number) {
        uuids.push_back("soak-meter-" + std::to_string(number));
    }
    return uuids;
}

}  // namespace

FaultYear::FaultYear(const std::string& family, std::uint64_t seed, int days)
    : name_(family),
      seed_(seed),
      seconds_(days * Day),
      installation_(draw_installation(family, seed)),
      plan_(draw_plan(seed, days, installation_.least_calm())),
      scene_(plan_.start, Berlin),
      storage_(scene_.real_path("/mnt/storage")),
      uuids_(uuids_of(installation_)),
      watch_((scene_.remove("/proc/leds"), scene_.root()), uuids_),
      begin_(machine_.seconds()) {
    machine_.add_device(Port);
    if (installation_.is_single_bus) machine_.let_line_setting_take(SingleBusTurn);
    for (std::size_t number = 0; number < uuids_.size(); ++number) {
        auto& place = installation_.places[number];
        meters_.push_back(std::make_unique<WatchedMeter>(scene_.real_path("/mnt/storage"), uuids_[number], *place.meter,
                                                         place.is_read));
        scene_.service.set_meter(uuids_[number], place.meter->settings());
        place.meter->begin(right_time());
    }
    connect();
}

FaultYear::~FaultYear() {
    g_log = nullptr;
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
        machine_.forget_exchanges();  // noted while the process ran, and counted as its memory till now
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
        for (const auto& meter : meters_) meter->meter.misbehave(episode.background, episode.number);
        schedule_free_windows(episode);
        schedule(number + 1);
    });
    at(episode.fault_at, [this, &episode] { begin_fault(episode); });
    at(episode.fault_end, [this, &episode] { end_fault(episode); });
    at(episode.calm_at, [this, &episode] { begin_calm(episode); });
    at(episode.calm_end - 1, [this] { end_calm(); });
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
        if (elapsed() < episode.calm_at && !bus_stays_free_) hold_bus(true);
    });
    const auto number = static_cast<std::uint64_t>(moment) ^ episode.number;
    for (const std::string& uuid : uuids_) {
        if (number % 3 == 0) at(moment + 60, [this, uuid] { scene_.touch("/tmp/tvk_force_update_" + uuid); });
        if (number % 5 == 0) at(moment, [this, uuid] { scene_.touch("/tmp/tvk_force_update_archives_" + uuid); });
    }
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
        case Fault::CutAnswers:
            return disturb(episode);
        case Fault::Silence:
        case Fault::Swap:
            return begin_absence(episode);
        case Fault::StrayBytes:
            return strew_bytes(episode);
        case Fault::ClockForward:
        case Fault::ClockBack: {
            constexpr double Steps[] = {90, 3700, 5 * Hour, 8 * Hour, 50 * Hour};
            const double step = Steps[dice.below(std::size(Steps))];
            return step_clock(episode.fault == Fault::ClockForward ? step : -step);
        }
        case Fault::Pause:
            for (const std::string& uuid : uuids_) scene_.touch("/tmp/RPRT_LCK_" + uuid);
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

void FaultYear::disturb(const Episode& episode) {
    for (const auto& meter : meters_) {
        Dice dice(episode.number);
        const double rate = dice.between(0.1, 0.7);
        if (episode.fault == Fault::Noise) {
            meter->meter.misbehave(rate, dice.next());
        } else {
            meter->meter.cut_answers(rate, dice.next());
        }
    }
}

/// One meter is silent, or another one hangs in its place. Its neighbours must go on being read meanwhile, for which
/// they have the bus.
void FaultYear::begin_absence(const Episode& episode) {
    absent_ = &victim(episode);
    connect();
    if (meters_.size() > 1 && !installation_.is_single_bus) {
        bus_stays_free_ = true;
        hold_bus(false);
    }
    if (episode.fault == Fault::Silence) return;
    // Nobody changes a meter faster than a pass over the archive breaks off.
    at(elapsed() + TimeToChangeAMeter, [this] {
        replaced_ = std::exchange(absent_, nullptr);
        connect();
    });
}

void FaultYear::end_fault(const Episode& episode) {
    for (const auto& meter : meters_) meter->meter.misbehave(episode.background, episode.number + 1);
    for (const std::string& uuid : uuids_) scene_.remove("/tmp/RPRT_LCK_" + uuid);
    machine_.fail_durable(0);
    if (episode.fault == Fault::LostDurability) machine_.settle_storage();  // written in the background by now
    storage_.recover();
    absent_ = replaced_ = nullptr;
    connect();
    look();
    if (bus_stays_free_) {
        look_at_neighbours(episode);
        bus_stays_free_ = false;
        hold_bus(true);
    }
    doubt_after(episode);
    if (episode.fault != Fault::ClockForward && episode.fault != Fault::ClockBack) return;
    step_clock(-stepped_);
    if (episode.number % 5 < 3) kill();
}

/// What the process may take for read, though it was not written.
void FaultYear::doubt_after(const Episode& episode) {
    // An answer that came before the fault may have been written in it.
    const auto since = static_cast<std::time_t>(begin_ + episode.fault_at) - 60;
    switch (episode.fault) {
        case Fault::DiskFull:
        case Fault::ReadOnly:
            if (!storage_fault_) return;
            storage_fault_ = false;
            for (const auto& meter : meters_) {
                meter->archives.note_tears();
                meter->doubt_what_was_asked(since);
            }
            return;
        case Fault::Swap:
            return victim(episode).doubt_what_another_was_asked(since);
        case Fault::VanishedFolder:
            make_folder_again(episode);
            // All that was ever read is gone, and the process does not look.
            if (!victim(episode).meter.is_staging()) victim(episode).doubt_what_was_asked(0);
            return;
        case Fault::ClockBack:
            // An event of the future, which is more than an hour ahead, is passed over for good.
            for (const auto& meter : meters_) {
                if (stepped_ < -Hour) meter->doubt_events_asked(since);
            }
            return;
        default:
            return;
    }
}

void FaultYear::connect() {
    machine_.disconnect_all(Port);
    for (const auto& meter : meters_) {
        if (meter.get() != absent_) machine_.connect(Port, meter->meter.meter(meter.get() == replaced_));
    }
}

WatchedMeter& FaultYear::victim(const Episode& episode) const {
    return *meters_[Dice(episode.number + 7).below(meters_.size())];
}

void FaultYear::step_clock(double seconds) {
    latest_wall_ = std::max(latest_wall_, machine_.seconds());
    machine_.step_clock(seconds);
    stepped_ += seconds;
    latest_wall_ = std::max(latest_wall_, machine_.seconds());
}

void FaultYear::strew_bytes(const Episode& episode) {
    for (const auto& meter : meters_) {
        if (meter->is_read && !meter->meter.has_check_sums()) return;
    }
    Dice dice(episode.number + 2);
    for (double moment = elapsed(); moment < episode.fault_end; moment += dice.between(1, 600)) {
        sim::ByteVector bytes(1 + dice.below(40));
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(dice.next() >> 13);
        at(moment, [this, bytes] { machine_.put_noise(Port, bytes); });
    }
}

/// Without the folder that it stages into, a process ends when a pass is over; such a folder goes with a restart.
std::string FaultYear::folder_to_vanish(const Episode& episode) const {
    if (!victim(episode).meter.is_staging()) return "tc_archives";
    constexpr const char* Folders[] = {"tc_archives", "tc_tmp_archives", "tmp_archives"};
    return Folders[episode.number % 3];
}

void FaultYear::vanish(const Episode& episode) {
    const std::string folder = folder_to_vanish(episode);
    look();
    for (int n = 1; n <= 6; ++n) {
        const std::string place = std::to_string(n) + "/" + folder;
        scene_.remove("/mnt/storage/" + victim(episode).uuid + "/" + place);
        victim(episode).archives.forget(place);
    }
    machine_.settle_storage();
    if (folder == "tmp_archives") kill();
}

void FaultYear::make_folder_again(const Episode& episode) {
    for (int n = 1; n <= 6; ++n) {
        const std::string file = "/mnt/storage/" + victim(episode).uuid + "/" + std::to_string(n) + "/" +
                                 folder_to_vanish(episode) + "/.again";
        scene_.write(file, "");
        scene_.remove(file);
    }
}

void FaultYear::begin_calm(const Episode& episode) {
    machine_.cut_power_at(0, unsynced_);
    hold_bus(false);
    look();
    for (const auto& meter : meters_) {
        meter->meter.misbehave(0, 0);
        const bool deaf = is_deaf(*meter) && !episode.restart_for_calm;
        const bool owed = meter->is_read && !deaf && !meter->meter.is_held_up(right_time());
        meter->calm_since = owed ? std::optional(right_time()) : std::nullopt;
        if (meter->is_read && !owed) ++skipped_;
    }
    if (episode.restart_for_calm) kill();
}

void FaultYear::end_calm() {
    look();
    for (const auto& meter : meters_) {
        if (meter->meter.is_staging()) meter->archives.look_at_copies();
        if (!meter->calm_since || meter->meter.is_misdated(right_time())) continue;
        ++calm_looks_;
        meter->ledger.give_up_doubtful();
        meter->look_for_missing(*meter->calm_since);
    }
}

}  // namespace faults
