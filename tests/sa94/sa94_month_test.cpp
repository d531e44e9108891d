// A month of one SA-94 meter: a pass of values every six minutes and of archives every hour, in a daemon that is killed
// at any moment and stands still for hours; lost answers, a night of silence, a gateway that is off for five days, the
// change to summer time, and the turn of the ring of hours.
//
// In the end the files hold every record that the meter has had, once, but for
//  - the records of a run that a silence ended, which the next run of the same process writes again;
//  - the errors in front of the place at which a run of errors began, in each later block of that run, which it passes
//    over. Such a run is the first one after the five days.

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "config/config_client.h"
#include "support/sa94_archive_scene.h"

namespace {

using sim::Sa94Archive;
using sim::Sa94Kind;

constexpr const char* Berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr std::time_t Hour = 3600;
constexpr std::time_t Day = 24 * Hour;
constexpr double HoursOfErrors = 6.5;  // between two of them
constexpr std::size_t Tries = 24;
constexpr std::array Archives = {Sa94Archive::Errors, Sa94Archive::Hourly, Sa94Archive::Daily};

class Sa94Month : public Sa94ArchiveStand {
  protected:
    Sa94Month() : Sa94ArchiveStand("2024-03-05 09:40:00", Berlin) {
        scene.service.set_meter(Uuid, {.serial = meter.config().address, .port_name = Port, .manufacturer = "SA94"});
        mute_logs();
        scene.clear_tmp();  // no items either: nobody looks at them here
        meter.fill(Sa94Archive::Hourly, {.records = 24 * 30, .newest = "2024-03-05 08:00"});
        meter.fill(Sa94Archive::Daily, {.records = 30, .newest = "2024-03-04 00:00"});
        meter.record_archives(true, "2024-03-05 09:00");
        machine.connect(Port, meter);
        next_error();
    }

    /// An error begins or ends; each one arranges for the next.
    void next_error() {
        machine.at(HoursOfErrors * Hour, [this] {
            const auto number = static_cast<std::uint8_t>(errors_++);
            meter.store_event(
                {.at = machine.now(), .code = static_cast<std::uint8_t>(number / 2 % 20), .stopped = number % 2 == 1});
            next_error();
        });
    }

    /// A process that lives so long, and is killed then, wherever it is.
    void live(double hours) {
        start();
        go_on(hours);
    }
    void start() {
        driver = new_driver();
        read_driver_config(*driver);
        driver->open_tty();
    }
    /// The process lives on.
    void go_on(double hours) {
        machine.run_for(hours * static_cast<double>(Hour), [this] {
            while (true) {
                driver->run_main();
                machine.sleep(5);
            }
        });
        machine.forget_exchanges();
        remember();
    }
    /// Nobody asks the meter.
    void off(double hours) { machine.sleep(static_cast<unsigned>(hours * static_cast<double>(Hour))); }
    void silent(double hours) {
        machine.disconnect_all(Port);
        go_on(hours);
        machine.connect(Port, meter);
    }

    /// What lies in the meter now: the ring forgets.
    void remember() {
        meter.catch_up(machine.now());
        for (const Sa94Archive archive : Archives) {
            std::time_t& newest = remembered_[archive];
            for (const auto& record : meter.records(archive)) {
                if (record.time <= newest) continue;
                newest = record.time;
                for (const auto& value : meter.record_files(archive, record)) {
                    seen_[archive][value.file][sa94_line(value)] = record.time;
                }
            }
        }
    }
    /// All that has ever lain in it and is not newer than what the driver has got.
    LineCounts expected() const {
        LineCounts counts;
        for (const auto& [archive, files] : seen_) {
            const std::time_t last = archive == Sa94Archive::Errors  ? driver->progress().LastTimestampError
                                     : archive == Sa94Archive::Daily ? driver->progress().LastTimestampDaily
                                                                     : driver->progress().LastTimestampHourly;
            for (const auto& [file, lines_of_file] : files) {
                for (const auto& [line, time] : lines_of_file) {
                    if (time <= last) ++counts[file][line];
                }
            }
        }
        return counts;
    }

    sim::Sa94Meter meter{{.address = 0x2A13F, .firmware = "M300", .status = 0x06, .clock_offset = 40}};

  private:
    int errors_ = 0;
    std::map<Sa94Archive, std::time_t> remembered_;
    std::map<Sa94Archive, std::map<std::string, std::map<std::string, std::time_t>>> seen_;
};

TEST_F(Sa94Month, EveryRecordIsInTheFilesOnce) {
    live(5);
    EXPECT_EQ(difference(lines(), expected()), "");
    meter.misbehave_randomly(0.05, 1, {sim::sa94_silence(), sim::sa94_lost()});
    for (const double hours : {3.3, 0.05, 0.17, 0.19, 0.21, 0.23, 0.25, 0.27, 0.3, 2.77, 0.5, 2.0}) {
        live(hours);
        off(9);
    }
    start();
    go_on(1.5);
    silent(9);
    go_on(1.5);
    EXPECT_EQ(difference(lines(), expected()), "") << "neither a kill nor a silence between runs costs anything";

    // Five days, which are eighteen errors: more than what is left of their block, and than a block holds.
    const std::size_t errors_before = meter.records(Sa94Archive::Errors).size();
    off(5 * 24);
    live(1.5);
    const std::size_t errors_behind = meter.records(Sa94Archive::Errors).size();
    const std::size_t resumed_at = errors_before % 16;
    ASSERT_GT(resumed_at, 0U);
    ASSERT_GT(errors_behind % 16, resumed_at)
        << "so the run went into the next block, and further than it began in one";
    const std::string passed_over = difference(lines(), expected());
    LineCounts lost;
    const std::size_t next_block = errors_before / 16 * 16 + 16;
    count(lost, meter, Sa94Archive::Errors, next_block, next_block + resumed_at);
    EXPECT_EQ(passed_over, difference({}, lost));

    for (int n = 0; n < 45; ++n) {
        live(1.3 + n % 4 * 0.2);
        off(9);
    }
    EXPECT_GT(meter.faults_made(), 1000U);
    EXPECT_EQ(difference(lines(), expected()), passed_over) << "summer has begun, the ring has turned";
    EXPECT_GE(driver->progress().LastTimestampHourly, machine.now() - 13 * Hour);
    EXPECT_GE(driver->progress().LastTimestampDaily, machine.now() - 3 * Day);
    EXPECT_LT(meter.records(Sa94Archive::Hourly).size(), 1024U);
    EXPECT_GT(machine.now(), 1711846800 + Day) << "2024-03-31 01:00 UTC";
}

TEST_F(Sa94Month, ASilenceInTheMiddleOfARunDoublesWhatItHadReadSoFar) {
    live(5);
    ASSERT_EQ(difference(lines(), expected()), "");
    off(3 * 24);
    start();
    meter.catch_up(machine.now());
    const auto records = meter.records(Sa94Archive::Hourly);
    const std::time_t last = driver->progress().LastTimestampHourly;
    const auto next =
        std::find_if(records.begin(), records.end(), [last](const auto& each) { return each.time > last; });
    ASSERT_GT(records.end() - next, 60);
    // The block nine further on; the search does not come by there.
    const unsigned silent_block = next->block + 9;
    meter.misbehave_next(Tries, sim::sa94_silence().on(Sa94Kind::Block, next->segment, silent_block));
    meter.forget_requests();
    go_on(1);
    ASSERT_EQ(meter.scripted_faults_left(), 0U);
    EXPECT_EQ(driver->progress().LastTimestampHourly, last);
    go_on(3);
    LineCounts twice = expected();
    int doubled = 0;
    for (auto record = next; record != records.end() && record->block < silent_block; ++record) {
        ++doubled;
        for (const auto& value : meter.record_files(Sa94Archive::Hourly, *record))
            ++twice[value.file][sa94_line(value)];
    }
    EXPECT_GT(doubled, 30);
    EXPECT_EQ(difference(lines(), twice), "");
}

}  // namespace
