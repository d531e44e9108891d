#pragma once
// The stand of the archive walk: a meter whose ring holds some hours of one day, and passes over it.

#include <string>
#include <vector>

#include "support/vist_archive_scene.h"

inline constexpr int Hour = 3600;
inline constexpr std::time_t Midnight = 1709337600;  // 2024-03-02 00:00 UTC
inline constexpr std::time_t Ten = Midnight + 10 * Hour;

using VistTexts = std::vector<std::string>;
inline constexpr std::size_t AllTries = 15 * 5;

/// A ring of ten records, 01:00 to 10:00, at 10:05; the value of A3 is a hundredth of the hour.
class VistArchives : public VistArchiveStand {
  protected:
    void store(int hour) {
        meter.store_hourly({.at = Midnight + hour * Hour, .IT = hour / 100.0, .T1 = 71.2, .P1 = 6.1});
    }
    void store_hours(int first, int last) {
        for (int hour = first; hour <= last; ++hour) store(hour);
    }
    void start(int first = 1, int last = 10) {
        store_hours(first, last);
        start_described(meter);
    }
    /// The hours that A3 tells of, a line each: "1 2 3".
    std::string hours_filed(const std::string& file = "A3") const {
        const LineCounts all = lines_in("tmp_archives");
        std::string hours;
        if (!all.contains(file)) return hours;
        for (const auto& [line, times] : all.at(file)) {
            EXPECT_EQ(times, 1) << line;
            hours += (hours.empty() ? "" : " ") + std::to_string((std::stol(line) - Midnight) / Hour + 1);
        }
        return hours;
    }
    /// One pass, with nothing heard before it.
    bool pass() {
        meter.forget_requests();
        machine.forget_exchanges();
        return driver->get_archives(0);
    }
    /// An hour later, with a record more; another pass.
    bool pass_an_hour_later() {
        machine.sleep(Hour);
        store(static_cast<int>((machine.now() - Midnight) / Hour));
        return pass();
    }
    std::string set_position() const {
        for (const std::string& command : commands()) {
            if (command.starts_with("/ARC/DLD SET ")) return command.substr(13);
        }
        return "none";
    }

    sim::VistMeter meter{{.plus_starts_at_set = true}};
};
