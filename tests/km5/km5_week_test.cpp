// A week of two meters on one line: noise, silence, a night off the line, a neighbour that holds the bus most of the
// time, a restart of the daemon at each noon, clocks that drift, and the change to summer time in the middle.
//
// In the end each hourly record, each daily record and each event of both meters stands in the files, whole. Lines
// stand there once, with one exception: a pass that fails half-way keeps what it has written and remembers nothing,
// so that the next pass begins at the same date and writes those records once more. One pass of the first meter is made
// to fail like that; its two records are expected twice. A restart does not double anything, because the new daemon
// reads back from the files how far they go.

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "support/km5_lines.h"
#include "support/km5_scene.h"

namespace {

using sim::Km5Archive;
using sim::Km5Meter;

constexpr unsigned FirstSerial = 12345678;
constexpr unsigned SecondSerial = 22345671;

class Km5Week : public Km5Stand {
  protected:
    Km5Week() : Km5Stand("2024-03-27 09:40:00", Berlin) {
        configure("m1", FirstSerial);
        configure("m2", SecondSerial);
        for (Km5Meter* meter : {&first, &second}) {
            meter->record_archives(true, machine.now());
            meter->misbehave_randomly(
                0.06, meter->config().serial,
                {sim::km5_noise(), sim::km5_wrong_cs1(), sim::km5_wrong_cs2(), sim::km5_wrong_echo(), sim::km5_short(9),
                 sim::km5_short(1), sim::km5_halved(), sim::km5_silence(), sim::km5_error(0xFB), sim::km5_over_long()});
        }
        reconnect();
    }

    void configure(const std::string& uuid, unsigned serial) {
        scene.make_tree(uuid);
        scene.service.set_meter(
            uuid, {.serial = serial, .port_name = Port, .manufacturer = "km-5", .system_types = {"heat"}});
    }
    void reconnect() {
        machine.connect(Port, first);
        machine.connect(Port, second);
    }

    /// The neighbour leaves the bus free for ten minutes of every second hour.
    void neighbour_on_the_bus() {
        constexpr double TwoHours = 7200;
        scene.touch("/tmp/pause_tvk_all");
        for (double hour = 1800; hour < 8 * 86400; hour += TwoHours) {
            machine.at(hour, [this] { scene.remove("/tmp/pause_tvk_all"); });
            machine.at(hour + 600, [this] {
                if (!neighbour_gone) scene.touch("/tmp/pause_tvk_all");
            });
        }
    }
    void events_now_and_then() {
        for (int i = 0; i < 30; ++i) {
            machine.at(5.5 * 3600 * i + 77, [this, i] {
                Km5Meter& meter = i % 3 == 0 ? second : first;
                const auto code = static_cast<std::uint8_t>(60 + i + (i % 2 == 0 ? 128 : 0));
                meter.store_event(meter.clock(machine.now()), code);
            });
        }
    }
    /// Both meters are off the line overnight. When they are back, the first one falls silent for good at its fourth
    /// record: the first of the four is known and passed over, the next two are written, and the pass fails.
    void night_off_the_line() {
        machine.at(34 * 3600, [this] { machine.disconnect_all(Port); });
        machine.at(42 * 3600, [this] {
            reconnect();
            last_before_failure = newest_time("A12");
            first.misbehave_next(3, sim::km5_good().on(65, 0));
            first.misbehave_next(21 * 21, sim::km5_silence().on(65, 0));
        });
    }
    std::time_t newest_time(const std::string& name) const {
        std::time_t newest = 0;
        std::istringstream text(archive(name));
        for (std::string line; std::getline(text, line);) newest = std::max<std::time_t>(newest, std::stol(line));
        return newest;
    }

    void live_until(const std::string& time) {
        Km5Daemon daemon({"m1", "m2"});
        machine.run_until(time, [&daemon] { daemon(); });
    }

    LineCounts in_files(const std::string& uuid) const {
        LineCounts counts;
        for (const std::string& name : scene.list("/mnt/storage/" + uuid + "/1/tc_archives")) {
            if (name == "_EXISTS_FIRST_RECORD") continue;
            const std::string text = scene.archive(uuid, 1, name).value_or("");
            EXPECT_TRUE(text.ends_with('\n')) << name;
            std::istringstream stream(text);
            for (std::string line; std::getline(stream, line);) ++counts[name][line];
        }
        return counts;
    }
    LineCounts expected(const Km5Meter& meter) const {
        LineCounts counts;
        for (const auto& event : meter.events()) km5_count(counts, km5_event_line(event));
        for (const Km5Archive archive : {Km5Archive::Hourly, Km5Archive::Daily}) {
            for (const auto& record : meter.records(archive)) {
                const bool twice = &meter == &first && archive == Km5Archive::Hourly &&
                                   record.time > last_before_failure && record.time <= last_before_failure + 2 * 3600;
                for (const Km5Line& line : km5_record_lines(meter.config().model, archive, record)) {
                    km5_count(counts, line, twice ? 2 : 1);
                }
            }
        }
        return counts;
    }

    Km5Meter first{{.serial = FirstSerial, .model = 2, .clock_offset = 40, .clock_drift_ppm = 600}};
    Km5Meter second{{.serial = SecondSerial, .model = 4, .clock_offset = -95, .clock_drift_ppm = -400}};
    bool neighbour_gone = false;
    std::time_t last_before_failure = 0;
};

TEST_F(Km5Week, AfterARoughWeekEveryRecordIsInTheFiles) {
    neighbour_on_the_bus();
    events_now_and_then();
    night_off_the_line();
    for (const char* noon : {"2024-03-27 12:00", "2024-03-28 12:00", "2024-03-29 12:00", "2024-03-30 12:00",
                             "2024-03-31 12:00", "2024-04-01 12:00", "2024-04-02 12:00"}) {
        live_until(noon);
    }
    // A quiet morning, without new records, in which all that is left can be read.
    machine.at(20 * 3600, [this] {
        neighbour_gone = true;
        scene.remove("/tmp/pause_tvk_all");
        for (Km5Meter* meter : {&first, &second}) {
            meter->catch_up(machine.now());
            meter->record_archives(false);
            meter->behave();
        }
    });
    live_until("2024-04-03 11:00");

    EXPECT_GT(first.faults().faults_made(), 441U + 100);
    EXPECT_GT(second.faults().faults_made(), 100U);
    EXPECT_GT(first.records(Km5Archive::Hourly).size(), 160U);
    EXPECT_EQ(first.records(Km5Archive::Daily).size(), 7U);
    EXPECT_EQ(first.events().size() + second.events().size(), 30U);
    int doubled = 0;
    const LineCounts lines = in_files("m1");
    for (const auto& [line, times] : lines.at("A12")) doubled += times == 2 ? 1 : 0;
    EXPECT_EQ(doubled, 2) << "the records of the pass that failed";
    EXPECT_EQ(lines, expected(first));
    EXPECT_EQ(in_files("m2"), expected(second));
}

}  // namespace
