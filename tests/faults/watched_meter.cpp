#include "faults/watched_meter.h"

#include <utility>
#include <vector>

#include "faults/broken_invariant.h"

namespace faults {

namespace {

constexpr std::time_t HeldMargin = 3 * 3600;  // what leaves the ring during a calm stretch is owed no more

}  // namespace

WatchedMeter::WatchedMeter(const std::string& storage, std::string its_uuid, YearMeter& its_meter, bool read)
    : uuid(std::move(its_uuid)),
      meter(its_meter),
      is_read(read),
      archives(storage + "/" + uuid, memory_folder(), ledger) {}

void WatchedMeter::take_new_records(std::time_t now) {
    for (YearRecord& record : meter.collect(now)) {
        record.promised = record.promised && is_read;
        ledger.add(std::move(record), now);
    }
    if (meter.is_misdated(now)) {
        if (!misdated_since_) misdated_since_ = now - YearMeter::Hour;  // the look before came before that
    } else if (misdated_since_) {
        // What was read under a wrong time is known as read.
        doubt_what_was_asked(*misdated_since_);
        ledger.give_up_doubtful();
        misdated_since_.reset();
    }
}

void WatchedMeter::doubt_what_was_asked(std::time_t since) {
    doubt(since, [this](int archive) { return meter.last_asked(archive, false); });
}

void WatchedMeter::doubt_what_another_was_asked(std::time_t since) {
    doubt(since, [this](int archive) { return meter.last_asked(archive, true); });
}

void WatchedMeter::doubt_events_asked(std::time_t since) {
    doubt(since, [this](int archive) { return YearMeter::is_event(archive) ? meter.last_asked(archive, false) : 0; });
}

void WatchedMeter::doubt(std::time_t since, const std::function<std::time_t(int)>& last_asked) {
    ledger.doubt_missing([&](int archive) {
        const std::time_t asked = last_asked(archive);
        return asked >= since ? asked + YearMeter::ClockAhead : 0;
    });
}

void WatchedMeter::look_for_missing(std::time_t known_by) {
    const auto missing =
        ledger.first_missing(known_by, [this](int archive) { return meter.oldest_held(archive) + HeldMargin; });
    if (missing) throw BrokenInvariant("lost, though " + uuid + " still holds its record: " + *missing);
}

}  // namespace faults
