// One pass over a meter: its stages, its subsystems, the comparison of archive times; and what a new driver remembers.

#include <string>
#include <vector>

#include "support/configured.h"
#include "support/km5_scene.h"
#include "support/machines.h"

namespace {

/// What a driver says in its state file, one after the other.
class StateTrail : public FileTrail {
  public:
    using FileTrail::FileTrail;

    std::vector<std::string> states() const {
        std::vector<std::string> all;
        for (const std::string& line : texts()) {
            const std::size_t from = line.find("]  ") + 3;
            all.push_back(line.substr(from, line.size() - 1 - from));
        }
        return all;
    }
};

class Km5Cycle : public Km5Stand {
  protected:
    using Km5Stand::Km5Stand;

    /// One poll, the first one at which archives are due as well.
    void poll_with_archives() {
        machine.sleep(1801);
        driver->run_main();
    }
    /// What an earlier run has left in the files of system `n`.
    void leave_read(std::time_t hour, std::time_t day, int n = 1) {
        leave_hours_until(hour, n);
        leave_archive("A40", stored_line(day, 192, 0) + "\n", n);
    }

    sim::Km5Meter meter{{.model = 2}};
};

TEST_F(Km5Cycle, APassReadsStatusAndPagesAndEndsWithStatusSix) {
    start_described(meter);
    driver->run_main();
    EXPECT_EQ(requests().size(), 12U);
    EXPECT_EQ(item("_DriverStatus"), "6");
    EXPECT_EQ(item("T1"), "95.500000");
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(logged("general", "START: RUN_MAIN"), 1);
    EXPECT_EQ(logged("general", "END: RUN_MAIN"), 1);
    EXPECT_EQ(logged("messages", "Start main function"), 1);
    EXPECT_EQ(logged("messages", "Get all commands and has description: success."), 1);
    EXPECT_EQ(state(), "need update archives ? ");
}

TEST_F(Km5Cycle, APassReadsValuesThenHourlyThenDailyArchives) {
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.store_daily({.at = "2024-03-02 00:00"});
    start_described(meter);
    poll_with_archives();
    const auto all = asked(requests());
    const std::vector<std::vector<int>> archives(all.begin() + 12, all.end());
    EXPECT_EQ(archives, (std::vector<std::vector<int>>{{51, 4},
                                                       {51, 4},
                                                       {51, 4},
                                                       {55, 4},  // events
                                                       {51, 0},
                                                       {51, 0},
                                                       {51, 0},
                                                       {65, 0},  // hourly
                                                       {51, 4},
                                                       {51, 4},
                                                       {51, 4},
                                                       {55, 4},  // events
                                                       {51, 1},
                                                       {51, 1},
                                                       {51, 1},
                                                       {65, 1}}));  // daily
    EXPECT_EQ(logged("general", "Need update hourly DB"), 1);
    EXPECT_EQ(logged("general", "Need update daily DB"), 1);
    EXPECT_EQ(archive("A12"), "1709373600,192,0.000000\n");
    EXPECT_EQ(archive("A40"), "1709337600,192,0.000000\n");
}

TEST_F(Km5Cycle, ArchivesAreReadAgainAfterMoreThanAnHour) {
    start_described(meter);
    poll_with_archives();
    machine.sleep(3500);
    meter.forget_requests();
    driver->run_main();
    EXPECT_EQ(meter.requests(51), 0U);
    machine.sleep(101);
    driver->run_main();
    EXPECT_GT(meter.requests(51), 0U);
}

TEST_F(Km5Cycle, TheStatusItemFollowsTheStagesOfAPass) {
    meter.store_hourly({.at = "2024-03-02 10:00"});
    meter.store_daily({.at = "2024-03-02 00:00"});
    std::string seen;
    WatchedMeter watched(meter, [&](std::span<const std::uint8_t>) {
        const std::string status = item("_DriverStatus");
        if (seen.empty() || seen.substr(seen.size() - 1) != status) seen += status;
    });
    start_described(meter);
    machine.disconnect_all(Port);
    machine.connect(Port, watched);
    poll_with_archives();
    EXPECT_EQ(seen + item("_DriverStatus"), "253546");
}

TEST_F(Km5Cycle, TheStateFileFollowsTheStagesOfAPass) {
    start_described(meter);
    StateTrail trail("/tmp/driver.m1.state");
    poll_with_archives();
    const std::vector<std::string> bounds = {"get record count for archives", "get last record idx for archives",
                                             "get first record idx for archives"};
    std::vector<std::string> wanted = {
        "run main",    "get all", "Flush instant data", "End flush instant data", "need update archives ? ",
        "get archives"};
    const auto read = [&](std::vector<std::string> begin, std::vector<std::string> end) {
        wanted.insert(wanted.end(), begin.begin(), begin.end());
        wanted.insert(wanted.end(), bounds.begin(), bounds.end());
        wanted.insert(wanted.end(), end.begin(), end.end());
    };
    // An empty archive is asked for its index 0.
    read({"get error archives"}, {"get error archives", "end error archives"});
    read({}, {});
    read({"get error archives"}, {"get error archives", "end error archives"});
    read({"need update archives ? ", "get archives"}, {});
    EXPECT_EQ(trail.states(), wanted);
}

TEST_F(Km5Cycle, ASilentMeterRunsOutOfItsAttemptsAndThePassEnds) {
    start_described(meter);
    machine.disconnect_all(Port);
    poll_with_archives();
    // Status and eleven pages; the count of events, hourly, daily: hourly and daily end at the first failure.
    EXPECT_EQ(requests().size(), (12U + 1 + 1 + 1) * 21);
    EXPECT_EQ(item("_DriverStatus"), "6");
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(logged("messages", "Get all commands and has description: success."), 1) << "all the same";
}

TEST_F(Km5Cycle, WithoutASerialNumberThePassEndsAtOnce) {
    start_described(meter);
    set_serial(*driver, 0);
    driver->run_main();
    EXPECT_EQ(state(), "run main");
    EXPECT_TRUE(requests().empty());
    EXPECT_EQ(item("_DriverStatus"), "6");
    EXPECT_EQ(logged("messages", "Get all commands and has description: failure."), 1);
}

// ---- subsystems

TEST_F(Km5Cycle, AMeterThatIsNoKm56iIsReadAsOneSystemWhateverIsConfigured) {
    start_described(meter, {.systems = {"heat", "gvs", "heat"}});
    EXPECT_EQ(carried().subsystem, 2);
    driver->run_main();
    EXPECT_EQ(requests().size(), 12U);
    EXPECT_EQ(carried().subsystem, 0);
    EXPECT_EQ(item("_DriverStatus", 2), "(none)");
}

class Km56iCycle : public Km5Cycle {
  protected:
    Km56iCycle() { meter.swap_for({.km56i = true, .subsystems = 3}); }

    void set_systems(int count) {
        reconfigure(*driver, [count](MeterSettings& settings) { settings.subsystem_count = count; });
    }
    std::vector<unsigned> asked_subsystems() const {
        std::vector<unsigned> all;
        for (const auto& heard : meter.heard()) {
            if (heard.command() == 8) all.push_back(heard.subsystem);
        }
        return all;
    }
};

TEST_F(Km56iCycle, AKm56iIsReadSubsystemBySubsystem) {
    meter.set_value("T1", 10.5F, 0);
    meter.set_value("T1", 20.5F, 1);
    meter.set_value("T1", 30.5F, 2);
    start_described(meter, {.km56i = true, .systems = {"heat", "gvs", "heat"}});
    driver->run_main();
    EXPECT_EQ(requests().size(), 36U);
    EXPECT_EQ(asked_subsystems(), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ(item("T1", 1), "10.500000");
    EXPECT_EQ(item("T1", 2), "20.500000");
    EXPECT_EQ(item("T1", 3), "30.500000");
    for (int n = 1; n <= 3; ++n) {
        for (const char* name : {"_DriverStatus", "EG", "ER", "TSMode", "SC", "MDateTime", "MeterModel"}) {
            EXPECT_NE(item(name, n), "(none)") << name << " of " << n;
        }
    }
    EXPECT_EQ(logged("messages", "Start main function, km5-6i"), 1);
    EXPECT_EQ(logged("messages", "Set subsystem = 2"), 1);
    EXPECT_EQ(logged("general", "START 1subsystem read"), 1);
    EXPECT_EQ(logged("general", "END 1subsystem read"), 1);
}

TEST_F(Km56iCycle, AKm56iHasAStateOfItsOwn) {
    start_described(meter, {.km56i = true, .systems = {"heat"}});
    set_serial(*driver, 0);
    driver->run_main();
    EXPECT_EQ(state(), "run main km56i");
}

TEST_F(Km56iCycle, EachSubsystemHasItsOwnArchives) {
    for (unsigned s = 0; s < 3; ++s) {
        meter.store_hourly({.at = "2024-03-02 10:00", .IM1 = static_cast<float>(s)}, s);
        meter.store_event("2024-03-02 10:00", static_cast<std::uint8_t>(0x81 + s), s);
    }
    start_described(meter, {.km56i = true, .systems = {"heat", "heat", "heat"}});
    poll_with_archives();
    for (int n = 1; n <= 3; ++n) {
        EXPECT_EQ(archive("A12", n), "1709373600,192," + std::to_string(n - 1) + ".000000\n");
        EXPECT_EQ(archive("_A57", n), "1709373600,192," + std::to_string(n) + ".000000\n");
        EXPECT_EQ(archive("_EXISTS_FIRST_RECORD", n), "0") << "daily was counted last";
    }
}

TEST_F(Km56iCycle, WithOneSystemConfiguredOnlyAddressNibbleZeroIsUsed) {
    start_described(meter, {.km56i = true, .systems = {"heat"}});
    driver->run_main();
    EXPECT_TRUE(driver->is_update_due());
    for (const auto& heard : meter.heard()) EXPECT_EQ(heard.subsystem, 0U);
}

TEST_F(Km56iCycle, OfMoreThanThreeSystemsTheFirstThreeAreReadAndTheGeneralLogSaysSoOnce) {
    start_described(meter, {.km56i = true, .systems = {"heat", "heat", "heat", "heat", "heat", "heat"}});
    driver->run_main();
    driver->run_main();
    EXPECT_EQ(asked_subsystems(), (std::vector<unsigned>{0, 1, 2, 0, 1, 2}));
    EXPECT_EQ(item("MeterModel", 4), "(none)");
    EXPECT_EQ(item("_DriverStatus", 4), "(none)");
    EXPECT_FALSE(driver->is_all_archives_ok());
    EXPECT_EQ(logged_parts("general", {"three"}), 1);
}

// ---- the comparison of archive times

TEST(Km5Lag, HourlyRecordsMayBeFourHoursBehindAndDailyOnesNotQuiteADay) {
    constexpr std::time_t Clock = 1709375000;
    const auto is_behind = [](std::time_t hour, std::time_t day) {
        KM5Progress progress;
        progress.last_request_HOUR = hour;
        progress.last_request_DAY = day;
        return progress.is_behind(Clock);
    };
    EXPECT_FALSE(is_behind(Clock - 14400, Clock));
    EXPECT_TRUE(is_behind(Clock - 14401, Clock));
    EXPECT_FALSE(is_behind(Clock, Clock - 86399));
    EXPECT_TRUE(is_behind(Clock, Clock - 86400));
    EXPECT_FALSE(is_behind(Clock + 100000, Clock + 100000)) << "ahead of the meter's clock";
}

TEST_F(Km5Cycle, BeforeAnyArchiveWasReadTheArchivesAreNotOk) {
    start_described(meter);
    EXPECT_TRUE(driver->is_all_archives_ok()) << "before the first pass";
    driver->run_main();
    EXPECT_FALSE(driver->is_all_archives_ok()) << "although the archives were not due yet";
}

TEST_F(Km5Cycle, ASilentMeterDoesNotFallBehindByItself) {
    leave_read(machine.now(), machine.now());
    start_described(meter);
    driver->run_main();
    EXPECT_EQ(logged("general", "Archives are OK. Start EXTDS"), 1);
    machine.disconnect_all(Port);
    machine.sleep(200000);
    driver->run_main();
    EXPECT_TRUE(driver->is_all_archives_ok());
}

TEST_F(Km5Cycle, TheComparisonIsToldInAllLogs) {
    start_described(meter);
    driver->run_main();
    EXPECT_EQ(logged("messages", "Comapare archive times for regularing EXTDS"), 1);
    EXPECT_EQ(logged_parts("messages", {"param_MDateTime = 17093"}), 1);
    EXPECT_EQ(logged("messages", "Difftime very large. Need stop EXTDS"), 1);
    EXPECT_EQ(logged("messages", "last Hour request for 0 subsystem = 0"), 1);
    EXPECT_EQ(logged("messages", "last Day request for 0 subsystem = 0"), 1);
    for (const char* kind : {"general", "messages", "debug"}) {
        EXPECT_EQ(logged(kind, "Archives are not OK. Stop EXTDS"), 1) << kind;
    }
}

TEST_F(Km56iCycle, AllConfiguredSystemsMustHaveCaughtUp) {
    leave_read(machine.now(), machine.now());
    leave_read(machine.now(), machine.now(), 3);
    start_described(meter, {.km56i = true, .systems = {"heat", "heat", "heat"}});
    driver->run_main();
    EXPECT_FALSE(driver->is_all_archives_ok()) << "the second system has not";
    set_systems(2);
    EXPECT_FALSE(driver->is_all_archives_ok());
    set_systems(1);
    EXPECT_TRUE(driver->is_all_archives_ok()) << "the second system is not configured";
    set_systems(0);
    EXPECT_TRUE(driver->is_all_archives_ok()) << "nor is any";
    for (const char* kind : {"messages", "debug"}) {
        EXPECT_EQ(logged(kind, "KM5::is_all_archives_ok, fResult = true"), 2);
        EXPECT_EQ(logged(kind, "KM5::is_all_archives_ok, fResult = false"), 2);
    }
}

TEST_F(Km56iCycle, EachSubsystemHasItsOwnTimesOfLookingIntoTheArchives) {
    start_described(meter, {.km56i = true, .systems = {"heat", "heat", "heat"}});
    poll_with_archives();
    EXPECT_EQ(logged("general", "Need update hourly DB"), 3);
    EXPECT_EQ(logged("general", "Need update daily DB"), 3);
}

}  // namespace
