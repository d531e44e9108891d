// One run of a meter: what is read in which order, what it says of itself meanwhile, when the archive is handed over,
// and when it counts as up to date.

#include <array>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/vist_archive_scene.h"
#include "support/vist_present.h"
#include "support/vist_scene.h"

namespace {

constexpr std::time_t Ten = 1709373600;  // 2024-03-02 10:00 UTC

/// Says nothing, and looks at the item _DriverStatus of a directory whenever something is asked.
class Watcher final : public sim::SimMeter {
  public:
    Watcher(const Scene& scene, int n) : scene_(scene), n_(n) {}

    sim::Answer hear(std::span<const std::uint8_t> request, std::time_t /*now*/) override {
        const std::string command(request.begin(), request.end());
        const std::string status = scene_.item("m1", n_, "_DriverStatus").value_or("none\n");
        if (!command.starts_with("/")) return {};
        const std::string seen = command.substr(0, command.size() - 1) + " " + status.substr(0, status.size() - 1);
        if (seen_.empty() || seen_.back() != seen) seen_.push_back(seen);
        return {};
    }
    const Texts& seen() const { return seen_; }

  private:
    const Scene& scene_;
    int n_;
    Texts seen_;
};

class VistCycle : public VistArchiveStand {
  protected:
    static sim::VistConfig two_devices() { return {.devices = {{}, {}}, .plus_starts_at_set = true}; }
    void store(int first, int last, unsigned device = 0) {
        for (int hour = first; hour <= last; ++hour) {
            meter.store_hourly({.at = Ten + (hour - 10) * 3600, .T1 = hour + 0.5}, device);
        }
    }
    /// A new driver at the line that has not said anything yet.
    void start() {
        machine.connect(Port, meter);
        start_driver();
    }
    void run() {
        meter.forget_requests();
        machine.forget_exchanges();
        driver->run_main();
    }
    /// Runs when the archive is due.
    void run_archives() {
        machine.sleep(601);
        run();
    }
    /// The commands that are neither CALL, VDN nor END.
    Texts questions() const {
        Texts all;
        for (const std::string& command : commands()) {
            if (!command.starts_with("CALL") && !command.starts_with("VDN") && command != "END") all.push_back(command);
        }
        return all;
    }

    sim::VistMeter meter{two_devices()};
};

// ---- a new driver

TEST_F(VistCycle, ANewDriverTellsStandardOutputWhereItIs) {
    const std::string said = stdout_of([this] { driver = std::make_unique<HCD_VIST>(Uuid); });
    std::array<char, 80> place{};
    std::snprintf(place.data(), place.size(), "VISTFunctions, pVISTdrv pointer = %p\n",
                  static_cast<void*>(driver.get()));
    EXPECT_EQ(said, place.data());
}

TEST_F(VistCycle, ANewDriverKnowsNothingOfItsMeterYet) {
    start_driver();
    EXPECT_EQ(driver->get_log_name(), "VIST(not_set)");
    EXPECT_EQ(driver->get_driver_type(), "VISThydralink");
    EXPECT_EQ(driver->get_buffer_limit(), 0);
    EXPECT_EQ(driver->get_uuid(), Uuid);
    EXPECT_TRUE(driver->is_all_archives_ok());
    for (int n = 1; n <= 6; ++n) EXPECT_EQ(item("Connected", n), "0");
}

// ---- the order of a run

TEST_F(VistCycle, ARunDescribesTheMeterAndThenReadsTheValuesOfEachDevice) {
    start();
    run();
    const Texts expected = {"VER",        "VDC",        "/SYS SPC 0", "/MON G", "/SYS SPC 1", "/SYS CFG 1",
                            "/SYS SPC 1", "/SYS CFG 1", "/MON TG",    "/MON C", "/MON TG",    "/MON C"};
    EXPECT_EQ(questions(), expected) << "no archive is due yet";
    EXPECT_EQ(driver->get_log_name(), "VIST(TS1)");
    EXPECT_EQ(item("Connected"), "1");
}

TEST_F(VistCycle, ArchivesAreReadAfterTheValuesOfAllDevices) {
    start();
    store(9, 10, 0);
    store(9, 10, 1);
    run_archives();
    const Texts archive = {"/ARC/DLD H", "/ARC/DLD OLD",
                           "/ARC/DLD =", "/ARC/DLD SET 2",
                           "/ARC/DLD +", "/ARC/DLD +",
                           "/ARC/DLD +", ".",
                           "/ARC/DLD +", ".",
                           "/ARC/DLD +", ".",
                           "/ARC/DLD +", ".",
                           "/ARC/DLD +", "."};
    Texts expected = archive;
    expected.insert(expected.end(), archive.begin(), archive.end());
    Texts asked = questions();
    ASSERT_EQ(asked.size(), 12 + expected.size());
    asked.erase(asked.begin(), asked.begin() + 12);
    EXPECT_EQ(asked, expected);
    EXPECT_EQ(logged("Runnig archives for subsystem 0, stopping EXT DS"), 1);
    EXPECT_EQ(logged("Runnig archives for subsystem 1, stopping EXT DS"), 1);
}

TEST_F(VistCycle, AMeterThatDoesNotAnswerIsGivenUpForThisRun) {
    start_driver();
    run();
    EXPECT_EQ(commands(), Texts(5, "CALL 1"));
    EXPECT_EQ(logged("EXIT"), 1);
    EXPECT_EQ(item("_DriverStatus"), "(none)");
    EXPECT_EQ(item("Connected"), "0");
    EXPECT_TRUE(driver->is_all_archives_ok()) << "of a meter without known devices nothing is behind";
}

TEST_F(VistCycle, ADeviceWhoseArchiveFailsDoesNotKeepTheNextFromItsTurn) {
    start();
    store(10, 10, 1);  // the ring of the first is empty
    run_archives();
    EXPECT_EQ(staged("A20", 2), stored_line(Ten - 3600, 192, 10.5) + "\n");
}

TEST_F(VistCycle, AfterTheWalkTheMeterIsConnectedAgainWithTheNextGoodAnswer) {
    start();
    store(10, 10, 0);
    store(10, 10, 1);
    run_archives();
    EXPECT_EQ(item("Connected"), "0") << "the refused step behind the newest record has used up its tries";
    run();
    EXPECT_EQ(item("Connected"), "1");
}

// ---- _DriverStatus

TEST_F(VistCycle, TheStatusGoesFromTwoToSixToThreeAndTheEndOfARunShowsBehindTheLastDevice) {
    Watcher first(scene, 1);
    Watcher second(scene, 2);
    machine.connect(Port, first);
    machine.connect(Port, second);
    start();
    store(9, 10, 0);
    store(9, 10, 1);
    run();
    EXPECT_EQ(item("_DriverStatus", 1), "6");
    EXPECT_EQ(item("_DriverStatus", 2), "6");
    EXPECT_EQ(item("_DriverStatus", 3), "6") << "the end of the run";
    EXPECT_EQ(item("_DriverStatus", 4), "(none)");
    scene.remove("/tmp/m1/3/tc_items/_DriverStatus");
    run_archives();
    EXPECT_EQ(item("_DriverStatus", 1), "3");
    EXPECT_EQ(item("_DriverStatus", 2), "3");
    EXPECT_EQ(item("_DriverStatus", 3), "6");
    const auto tail = [](const Texts& all, std::size_t count) {
        return Texts(all.end() - static_cast<std::ptrdiff_t>(count), all.end());
    };
    // The first device while its own archive and then that of the second is read.
    EXPECT_EQ(tail(first.seen(), 10),
              (Texts{"/ARC/DLD H 3", "/ARC/DLD OLD 3", "/ARC/DLD = 3", "/ARC/DLD SET 2 3", "/ARC/DLD + 3",
                     "/ARC/DLD H 3", "/ARC/DLD OLD 3", "/ARC/DLD = 3", "/ARC/DLD SET 2 3", "/ARC/DLD + 3"}));
    EXPECT_EQ(tail(second.seen(), 10),
              (Texts{"/ARC/DLD H 2", "/ARC/DLD OLD 2", "/ARC/DLD = 2", "/ARC/DLD SET 2 2", "/ARC/DLD + 2",
                     "/ARC/DLD H 3", "/ARC/DLD OLD 3", "/ARC/DLD = 3", "/ARC/DLD SET 2 3", "/ARC/DLD + 3"}));
    EXPECT_EQ(first.seen().at(first.seen().size() - 14), "/MON TG 2") << "values of the first device";
}

TEST_F(VistCycle, AMeterWithoutDevicesShowsTheEndOfItsRunInTheFirstDirectory) {
    meter.swap_for({.claimed_devices = 0});
    start();
    run();
    EXPECT_EQ(item("_DriverStatus", 1), "6");
    EXPECT_EQ(item("_DriverStatus", 2), "(none)");
    EXPECT_EQ(meter.requests("/MON TG") + meter.requests("/SYS SPC 1"), 0U);
    EXPECT_TRUE(driver->is_all_archives_ok());
}

TEST_F(VistCycle, OfAMeterWithNineDevicesSixAreServed) {
    meter.swap_for({.claimed_devices = 9, .last_device_repeats = true, .plus_starts_at_set = true});
    start();
    ASSERT_TRUE(driver->get_description());
    EXPECT_EQ(logged("VIST virtual devices count: 9"), 1);
    EXPECT_EQ(logged("Only the first 6 virtual devices are served."), 1);
    store(10, 10);
    run_archives();
    EXPECT_EQ(meter.requests("/MON C"), 6U);
    EXPECT_EQ(meter.requests("VDN 5"), 7U);
    EXPECT_EQ(meter.requests("VDN 6"), 0U);
    for (int n = 1; n <= 6; ++n) EXPECT_EQ(handed_over("A20", n), stored_line(Ten - 3600, 192, 10.5) + "\n");
}

// ---- items of the archive

TEST_F(VistCycle, TheCountsOfTheArchiveAreZeroUntilAHeaderHasBeenRead) {
    start();
    store(9, 10);
    run();
    EXPECT_EQ(item("ArchiveRecNum") + item("ArchiveRecMax") + item("ArchiveRecNew"), "000");
    run_archives();
    EXPECT_EQ(item("ArchiveRecNum"), "0") << "values go out before the archive is read";
    run();
    EXPECT_EQ(item("ArchiveRecMax"), "1536");
    EXPECT_EQ(item("ArchiveRecNum", 2), "0") << "the header read last is that of the second device, which has none";
}

// ---- handing over

TEST_F(VistCycle, AWholePassIsHandedOverAndStaysStaged) {
    start();
    store(8, 10);
    run_archives();
    EXPECT_EQ(lines_in("tc_tmp_archives"), lines_in("tmp_archives"));
    EXPECT_EQ(lines_in("tc_tmp_archives").size(), 8U + 19U);
    EXPECT_EQ(handed_over("A20").substr(0, 28), "1709362800,192,8.500000\n1709");
    EXPECT_EQ(lines_in("tc_archives").size(), 0U);
    EXPECT_EQ(lines_in("tc_tmp_archives", 2).size(), 0U) << "the other device has nothing to hand over";
}

TEST_F(VistCycle, APassThatDidNotReachTheHeaderIsNotHandedOver) {
    start();
    store(6, 8);
    run_archives();
    EXPECT_NE(staged("A20"), "");
    EXPECT_EQ(lines_in("tc_tmp_archives").size(), 0U);
}

TEST_F(VistCycle, WhatWasHandedOverEarlierStaysUntilTheNextWholePass) {
    start();
    store(10, 10);
    run_archives();
    const LineCounts earlier = lines_in("tc_tmp_archives");
    ASSERT_EQ(earlier, lines_in("tmp_archives"));
    machine.sleep(3600);  // no record of 11:00, but one of 12:00
    store(12, 12);
    run_archives();
    machine.sleep(3600);
    run_archives();
    EXPECT_EQ(lines_in("tc_tmp_archives").at("A20"), earlier.at("A20"));
    EXPECT_NE(lines_in("tmp_archives").at("A6"), earlier.at("A6"));
    EXPECT_NE(lines_in("tmp_archives"), lines_in("tc_tmp_archives"));
}

// ---- up to date or not

TEST_F(VistCycle, UntilTheFirstPassTheArchiveIsBehind) {
    start();
    store(10, 10, 0);
    store(10, 10, 1);
    run();
    EXPECT_FALSE(driver->is_all_archives_ok());
    run_archives();
    EXPECT_TRUE(driver->is_all_archives_ok());
}

TEST_F(VistCycle, AMeterIsBehindWhenOneOfItsDevicesIs) {
    for (const unsigned caught_up : {0U, 1U}) {
        sim::VistMeter another{two_devices()};
        another.store_hourly({.at = Ten}, caught_up);
        machine.disconnect_all(Port);
        machine.connect(Port, another);
        start_driver();
        run_archives();
        EXPECT_EQ(logged("Actual Archives = TRUE;"), 1) << caught_up;
        EXPECT_FALSE(driver->is_all_archives_ok()) << caught_up;
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
    }
}

class VistLag : public VistDescribedStand, public ::testing::WithParamInterface<int> {};

TEST_P(VistLag, AnArchiveIsBehindWhenItsRecordsEndMoreThanFourHoursBeforeTheMetersClock) {
    constexpr std::time_t Clock = 1709373899;  // of the puppet, 2024-03-02 10:04:59
    const std::time_t newest = Clock - 14400 - GetParam();
    meter.put_packet("/MON TG", 12, vist_present::with_clock(vist_present::integrators()));
    meter.put_packet("/MON C", 11, vist_present::moments());
    leave_staged("A3", stored_line(newest - 3600, 192, 1) + "\n");
    machine.sleep(601);
    run();
    EXPECT_EQ(driver->is_all_archives_ok(), GetParam() <= 0);
    EXPECT_EQ(logged("Actual Archives = TRUE;"), GetParam() <= 0 ? 1 : 0);
    EXPECT_EQ(logged("Actual Archives = FALSE; Difftime( MDateTime(1709373899), last request Hour(" +
                     std::to_string(newest) + ")) > 4 hour"),
              GetParam() <= 0 ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(Lags, VistLag, ::testing::Values(-14400, -1, 0, 1));

}  // namespace
