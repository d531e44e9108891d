// One polling of a meter: what is asked for in which order, which items and files it leaves, and what a silent or
// forgetful meter makes of it.

#include <string>
#include <vector>

#include "support/child.h"
#include "support/modbus_scene.h"

namespace {

constexpr std::time_t Ten = 1709373600;  // 2024-03-02 10:00:00
constexpr std::time_t Hour = 3600;

class ModbusCycle : public ModbusStand {
  protected:
    ModbusCycle() { meter.record_archives(true, "2024-03-02 04:00"); }

    void start(std::vector<sim::ModbusVistSystem> systems = {{}}) {
        meter.swap_for({.serial = Serial, .systems = std::move(systems)});
        machine.connect(Port, meter);
        start_driver();
        clear_log();
    }
    /// The archive of every heat system is due.
    void let_archives_be_due() { machine.sleep(601); }
    /// The pass over the archive of system 0 will not get past its second record.
    void spoil_pass() {
        meter.misbehave_next(5, sim::modbus_bad_sum().on({.function = 20, .address = 0, .record = 2}));
    }
    std::string handed_over(const std::string& name, int n = 1) const {
        return scene.archive(Uuid, n, name, "tc_tmp_archives").value_or("(none)");
    }

    sim::ModbusVistMeter meter;
};

// ---- the object

TEST_F(ModbusCycle, ANewDriverKnowsNothing) {
    start_driver();
    EXPECT_EQ(log(), (Texts{"VISTmodbus creating.", "creating"}));
    EXPECT_EQ(driver->get_driver_type(), "VISTmodbus");
    EXPECT_EQ(driver->get_log_name(), "VISTmodbus(not_set)");
    EXPECT_EQ(driver->get_buffer_limit(), 0);
    EXPECT_EQ(driver->get_uuid(), "m1");
    EXPECT_TRUE(driver->is_all_archives_ok());
    EXPECT_TRUE(driver->is_update_due());
    EXPECT_FALSE(driver->is_update_due());
    driver->on_tick(1);
}

TEST_F(ModbusCycle, WhatHasBeenReadStandsInTheFilesOfEachSystem) {
    class Files final : public ArchiveHolder {
      public:
        Files() { uuid = Uuid; }
    };
    leave_record(Ten - 3 * Hour, 1);
    leave_staged("A7", stored_line(Ten - 2 * Hour, 192, 1) + "\n", 1);
    leave_staged("A2", stored_line(Ten, 192, 1) + "\n", 3);
    leave_header(Ten - 5 * Hour, 1);
    leave_header(Ten, 2);
    Files files;
    vist_modbus::Progress progress;
    using Times = vist_modbus::PerSystem<std::time_t>;
    progress.begin(files, Ten);
    EXPECT_EQ(progress.last_request_date, (Times{Ten - Hour, 0, Ten + Hour})) << "an hour behind the newest";
    EXPECT_EQ(progress.last_hour_update, (Times{Ten - 3000, Ten - 3000, Ten - 3000}));
    progress.last_request_date.fill(Ten + 5 * Hour);
    progress.last_request_date_header.fill(Ten + 5 * Hour);
    progress.look_at_files(files, 0);
    EXPECT_EQ(progress.last_request_date, (Times{Ten - 2 * Hour, Ten + 5 * Hour, Ten + 5 * Hour}));
    EXPECT_EQ(progress.last_request_date_header, (Times{Ten - 5 * Hour, Ten + 5 * Hour, Ten + 5 * Hour}));
}

TEST_F(ModbusCycle, ADriverTakesAnotherUuid) {
    start_driver();
    driver->set_uuid("m2");
    EXPECT_EQ(driver->get_uuid(), "m2");
}

TEST_F(ModbusCycle, TheLastLineOfAFileOfTheFirstSystemTellsItsTime) {
    start_driver();
    const std::string path = "/mnt/storage/m1/1/tc_archives/A6";
    EXPECT_EQ(driver->last_stored_value("A6"), 0) << "missing";
    scene.write(path, "");
    EXPECT_EQ(driver->last_stored_value("A6"), 0) << "empty";
    scene.write(path, "1709373600,192,1.500000\n");
    EXPECT_EQ(driver->last_stored_value("A6"), 1709373600);
    std::string text;
    for (std::time_t k = 0; k < 200; ++k) text += stored_line(Ten + k * Hour, 192, 1.5) + "\n";
    scene.write(path, text);
    EXPECT_EQ(driver->last_stored_value("A6"), Ten + 199 * Hour) << "longer than what is looked at";
}

// ---- one polling

TEST_F(ModbusCycle, TheStoryOfAPollingIsInTheLog) {
    start({{}, {}});
    run();
    EXPECT_TRUE(logged_in_order({
        "In run_main...",
        "Start reading 0 heat_system",
        "Virtdev count = 3",
        "Processing main config...",
        "Processing tc specs...",
        "Processing archive specs (8388607)...",
        "Requesting main data pack...",
        "Current VIST date/time: 02.03.2024 10:05:00",
        "M1max == 1234.560000",
        "T1 == 95.500000",
        "ER == 0",
        "MDateTime == 1709373900",
        "Archvie start read after 10.000000 minutes",
        "Difftime( MDateTime, last request Hour) > 4 hour",
        "Start reading 1 heat_system",
        "Virtdev count = 2",
        "VIST modbus run_main done.",
    }));
    EXPECT_EQ(logged_start("Start reading "), 2);
}

TEST_F(ModbusCycle, TheCountOfTheMeterEndsTheWalkButEveryRunBeginsWithThree) {
    start({{}, {}});
    run();
    EXPECT_EQ(logged("Start reading 1 heat_system"), 1);
    EXPECT_EQ(logged("Start reading 2 heat_system"), 0);
    clear_log();
    run();
    EXPECT_EQ(logged("Virtdev count = 3"), 1);
    EXPECT_EQ(logged("Virtdev count = 2"), 1);
}

TEST_F(ModbusCycle, TheSettingsSayWhetherAHeldBusHoldsThePolling) {
    start();
    scene.touch("/tmp/pause_tvk");
    run();
    EXPECT_TRUE(machine.sleeps().empty());
    set_pause_flag(*driver, true);
    machine.at(elapsed() + 25, [this] { scene.remove("/tmp/pause_tvk"); });
    run();
    EXPECT_EQ(machine.sleeps(), (std::vector<unsigned>{10, 10, 10}));
}

TEST_F(ModbusCycle, AMeterThatClaimsTwoHundredSystemsIsReadForThree) {
    start({{}, {}, {}});
    meter.claim_systems(200);
    run();
    EXPECT_EQ(logged("Start reading 2 heat_system"), 1);
    EXPECT_EQ(logged("Start reading 3 heat_system"), 0);
    EXPECT_EQ(logged("Only the first 3 heat systems are served."), 3);
}

TEST_F(ModbusCycle, AMeterThatClaimsNoSystemIsReadForOne) {
    start();
    meter.claim_systems(0);
    run();
    EXPECT_EQ(logged_start("Start reading "), 1);
    EXPECT_TRUE(driver->is_all_archives_ok());
}

TEST_F(ModbusCycle, TheStatusOfEachSystemGoesFromTheBeginningOverItsSetupAndValuesToTheEnd) {
    start();
    std::string begun;
    machine.at(0.001, [&] { begun = item("_DriverStatus"); });
    std::string at_setup;
    machine.at(0.72, [&] { at_setup = item("_DriverStatus"); });
    run();
    EXPECT_EQ(begun, "0");
    EXPECT_EQ(at_setup, "1") << "values are being asked for";
    EXPECT_EQ(item("_DriverStatus", 1), "6");
    EXPECT_EQ(item("_DriverStatus", 2), "(none)");
}

// ---- a meter that fails

TEST_F(ModbusCycle, WithoutTheSetupTheValuesAreReadAllTheSame) {
    start({{}, {}, {}});
    meter.misbehave_next(30, sim::modbus_silence().on({.function = 3, .address = 99}));
    run();
    EXPECT_EQ(item("DN1", 1), "(none)") << "not even what came";
    EXPECT_EQ(item("T1", 1), "95.500000");
    EXPECT_EQ(item("M1", 1), "(none)") << "nobody knows of the masses yet";
    EXPECT_EQ(item("DN1", 2), "50");
    EXPECT_EQ(logged("Virtdev count = 3"), 3);
}

TEST_F(ModbusCycle, WithoutTheValuesTheSetupIsPublishedAllTheSame) {
    start();
    meter.misbehave_next(30, sim::modbus_wrong_crc().on({.function = 4, .address = 518}));
    run();
    EXPECT_EQ(item("M1max"), "1234.560000");
    EXPECT_EQ(item("SC"), "1");
    EXPECT_EQ(item("T1"), "(none)");
    EXPECT_EQ(item("MDateTime"), "(none)");
}

TEST_F(ModbusCycle, ValuesThatAreNotReadStayAsTheyWere) {
    start();
    run();
    meter.set_value("T1", 5000);
    meter.misbehave_next(30, sim::modbus_silence().on({.function = 4, .address = 1078}));
    run();
    EXPECT_EQ(item("T1"), "95.500000");
    run();
    EXPECT_EQ(item("T1"), "50.000000");
}

TEST_F(ModbusCycle, ADeadMeterIsAskedForThreeHeatSystemsAndCosts18SecondsForEachRow) {
    start();
    machine.disconnect_all(Port);
    run();
    EXPECT_NEAR(elapsed(), 43 * 18, 20);
    EXPECT_EQ(machine.exchanges().size(), 43U * 30U) << "the header of the third: its archive is due by then";
    EXPECT_EQ(meter.requests(), 0U);
    EXPECT_EQ(connected(), "000000");
    for (const int n : {1, 2, 3}) EXPECT_EQ(item("_DriverStatus", n), "6");
    EXPECT_EQ(item("T1"), "(none)");
    EXPECT_TRUE(driver->is_all_archives_ok()) << "a clock of -1 is behind nothing";
}

// ---- the archive in a polling

TEST_F(ModbusCycle, AGoodPassIsHandedOverAndComesAgainAnHourLater) {
    start({{}, {}});
    run();
    EXPECT_EQ(meter.requests({.function = 20}), 0U);
    let_archives_be_due();
    run();
    EXPECT_EQ(logged("Start read archives"), 2);
    EXPECT_TRUE(
        logged_in_order({"Need update archives", "Start read archives", "Start get archive.. ", "difftime => 0.000000",
                         "Archives are actual: difftime(MDateTime, last_request_hour) < 4 hour",
                         "Start reading 1 heat_system", "Start read archives"}));
    for (const int n : {1, 2}) {
        EXPECT_EQ(lines_in("tc_tmp_archives", n), lines_in("tmp_archives", n));
        EXPECT_EQ(lines_in("tc_tmp_archives", n)["A5"].size(), 6U);
    }
    EXPECT_TRUE(lines_in("tc_archives").empty());
    meter.forget_requests();
    machine.sleep(3500);
    run();
    EXPECT_EQ(meter.requests({.function = 20, .record = 0}), 0U);
    machine.sleep(110);
    run();
    EXPECT_EQ(meter.requests({.function = 20, .record = 0}), 2U);
}

TEST_F(ModbusCycle, ABadPassIsNotHandedOverAndComesAgainTenMinutesLater) {
    start();
    let_archives_be_due();
    spoil_pass();
    run();
    EXPECT_EQ(lines_in("tmp_archives")["A5"].size(), 1U);
    EXPECT_TRUE(lines_in("tc_tmp_archives").empty());
    EXPECT_FALSE(scene.exists("/tmp/DRV_LCK_m1"));
    meter.forget_requests();
    machine.sleep(500);
    run();
    EXPECT_EQ(meter.requests({.function = 20, .record = 0}), 0U);
    machine.sleep(101);
    run();
    EXPECT_EQ(meter.requests({.function = 20, .record = 0}), 1U);
}

TEST_F(ModbusCycle, TheLockIsThereAsLongAsAPassGoesOn) {
    start();
    let_archives_be_due();
    meter.misbehave_next(30, sim::modbus_silence().on({.function = 20, .record = 3}));
    bool during = false;
    bool before = true;
    machine.at(0.2, [&] { before = scene.exists("/tmp/DRV_LCK_m1"); });
    machine.at(10, [&] { during = scene.exists("/tmp/DRV_LCK_m1"); });
    run();
    EXPECT_FALSE(before);
    EXPECT_TRUE(during);
    EXPECT_FALSE(scene.exists("/tmp/DRV_LCK_m1"));
}

TEST_F(ModbusCycle, TheLockIsThereUntilTheFilesAreHandedOver) {
    start();
    leave_header(Ten);
    leave_record(Ten - Hour);
    let_archives_be_due();
    // With the files gone behind a good pass the process ends in the middle of handing over, and leaves its lock.
    meter.misbehave_next(20, sim::modbus_silence().on({.function = 20, .record = 0}));
    machine.at(8, [this] { scene.remove("/mnt/storage/m1/1/tmp_archives"); });
    const ChildEnd end = in_child([this] {
        driver->run_main();
        return 0;
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_TRUE(end.out.ends_with("Directory not open, error\n"));
    EXPECT_EQ(logged("difftime => 0.000000"), 1);
    EXPECT_TRUE(scene.exists("/tmp/DRV_LCK_m1"));
}

TEST_F(ModbusCycle, WhileAReportIsMadeThereIsNoPassAndNoLock) {
    start();
    let_archives_be_due();
    scene.touch("/tmp/RPRT_LCK_m1");
    bool locked = false;
    machine.at(1, [&] { locked = scene.exists("/tmp/DRV_LCK_m1"); });
    run();
    EXPECT_FALSE(locked);
    EXPECT_EQ(meter.requests({.function = 20}), 0U);
    EXPECT_EQ(logged_start("Archvie start read after"), 0);
    EXPECT_EQ(item("T1"), "95.500000") << "values are read all the same";
    EXPECT_TRUE(scene.exists("/tmp/RPRT_LCK_m1"));
    scene.remove("/tmp/RPRT_LCK_m1");
    run();
    EXPECT_EQ(meter.requests({.function = 20, .record = 0}), 1U);
}

TEST_F(ModbusCycle, ASystemWhoseSetupDoesNotComeIsReadByThatOfTheOneBefore) {
    start({{.told_mask = 0x20}, {}});
    let_archives_be_due();
    meter.misbehave_next(30, sim::modbus_silence().on({.function = 3, .address = 284}));
    run();
    EXPECT_EQ(item("M1", 2) + " " + item("_HMsystem", 2), "(none) (none)");
    EXPECT_NE(item("M2", 2), "(none)");
    EXPECT_EQ(staged("A12", 2), "");
    EXPECT_NE(staged("A14", 2), "");
    run();
    EXPECT_NE(item("M1", 2), "(none)");
}

TEST_F(ModbusCycle, WithoutASetupThereAreNoTotals) {
    start();
    let_archives_be_due();
    meter.misbehave_next(30, sim::modbus_silence().on({.function = 3, .address = 99}));
    run();
    EXPECT_EQ(item("M1") + " " + item("IT1"), "(none) (none)");
    EXPECT_EQ(staged("A6"), "");
    EXPECT_NE(staged("A5"), "");
}

// ---- are the archives up to date

TEST_F(ModbusCycle, FourHoursBehindTheMetersClockAreNotTooMany) {
    start({{}, {}});
    for (const std::time_t late : {0, 1}) {
        // Until a pass the driver takes the files to be an hour further than they are.
        leave_record(Ten - 5 * Hour - late, 2);
        leave_record(Ten, 1);
        start_driver();
        meter.set_clock("2024-03-02 09:59:59", machine.now());
        clear_log();
        run();
        EXPECT_EQ(logged("MDateTime == 1709373600"), 1) << "of the second system";
        EXPECT_EQ(logged("Archives are actual: difftime(MDateTime, last_request_hour) < 4 hour"), 2 - late);
        EXPECT_EQ(logged("Difftime( MDateTime, last request Hour) > 4 hour"), late);
        EXPECT_EQ(driver->is_all_archives_ok(), late == 0);
    }
    meter.claim_systems(1);
    run();
    EXPECT_TRUE(driver->is_all_archives_ok()) << "only those that the meter has count";
    meter.claim_systems(std::nullopt);
    machine.disconnect_all(Port);
    clear_log();
    run();
    EXPECT_EQ(logged("Difftime( MDateTime, last request Hour) > 4 hour"), 2) << "without a clock its last one is taken";
}

TEST_F(ModbusCycle, APassWithoutAHeaderLooksAtTheFilesAllTheSame) {
    leave_record(machine.now() - 4 * Hour - 1800);
    start();
    run();
    EXPECT_TRUE(driver->is_all_archives_ok()) << "at the start they are taken to be an hour further";
    let_archives_be_due();
    meter.misbehave_next(30, sim::modbus_silence().on({.function = 20, .record = 0}));
    run();
    EXPECT_FALSE(driver->is_all_archives_ok());
}

TEST_F(ModbusCycle, AfterAGoodPassTheArchivesAreUpToDate) {
    start();
    run();
    EXPECT_FALSE(driver->is_all_archives_ok()) << "nothing has been read";
    let_archives_be_due();
    run();
    EXPECT_TRUE(driver->is_all_archives_ok());
}

}  // namespace
