// The walk through the meter's ring of hourly records: when it is due, where it begins, where it ends.

#include <string>
#include <vector>

#include "support/modbus_scene.h"

namespace {

constexpr std::time_t Ten = 1709373600;  // 2024-03-02 10:00:00, the time of the header
constexpr std::time_t Hour = 3600;

class ModbusArchive : public ModbusStand {
  protected:
    using ModbusStand::ModbusStand;

    /// A meter whose newest record, of so many, is that of 09:00, and a driver that knows what it holds.
    void start(int records, std::size_t capacity = 1536) {
        meter.swap_for({.serial = Serial, .capacity = capacity});
        for (int k = records; k > 0; --k) store(Ten - k * Hour);
        machine.connect(Port, meter);
        start_described();
    }
    /// The polling leaves what the last heat system of the meter holds.
    void start_described() {
        start_driver();
        run();
        clear_log();
        meter.forget_requests();
        machine.forget_exchanges();
    }
    /// The record of the hour that begins then; the hour of the day is its volume.
    void store(std::time_t at, unsigned system = 0) {
        meter.store_hourly({.at = at, .V1 = static_cast<double>(at / Hour % 24)}, system);
    }
    bool pass(int system = 0) {
        machine.forget_exchanges();
        bool good = false;
        quietly([&] { good = driver->get_archive(system); });
        return good;
    }
    /// The records asked for, by their numbers in the ring.
    std::string places() const {
        std::string all;
        for (const std::string& question : asked()) {
            const auto slash = question.find('/');
            const std::string place = question.substr(slash + 1, question.find(' ') - slash - 1);
            if (slash != std::string::npos && place != "0") all += (all.empty() ? "" : " ") + place;
        }
        return all;
    }
    /// The volumes filed, as hours of the day, each at the time of its line: a record at the wrong time shows as "7!".
    std::string hours_filed(int n = 1) const {
        std::string all;
        LineCounts files = lines_in("tmp_archives", n);
        for (const auto& [line, times] : files["A5"]) {
            long time = 0;
            double value = 0;
            std::sscanf(line.c_str(), "%ld,192,%lf", &time, &value);
            const bool right = value == static_cast<double>(time / Hour % 24);
            if (times != 1 || value < 0) return "twice: " + line;
            all += (all.empty() ? "" : " ") + std::to_string(static_cast<int>(value)) + (right ? "" : "!");
        }
        return all;
    }

    sim::ModbusVistMeter meter;
};

// ---- where the walk begins

TEST_F(ModbusArchive, WithoutFilesAYoungRingIsReadFromItsFirstRecord) {
    start(10);
    EXPECT_TRUE(pass());
    EXPECT_EQ(places(), "1 2 3 4 5 6 7 8 9 10");
    EXPECT_EQ(hours_filed(), "0 1 2 3 4 5 6 7 8 9");
    EXPECT_TRUE(logged_in_order({
        "Start get archive.. ",
        "Read archive records...",
        "Read archive header for 0 subsystem",
        "Processing 'Архивы: заголовок архивного файла теплосистемы'",
        "Processing archive header...",
        "Archive specs: mask = 0x7FFFFF, recs count = 10, next rec = 11, max recs count = 1536. Time: 02.03.2024 "
        "10:00:00",
        "offsetIndex > max_records",
        "archiveStartIndex = next_rec_index = 11",
        "recs_count( 10 ) < max_records( 1536 ) ",
        "archiveStartIndex = 1",
        "Requesting archive record #1, subsystem = 0",
        "Processing 'Архивы: вычитка архивной записи'",
        "Archive record initialized now, no integrators",
        "Archive record date/time: 02.03.2024 00:00:00",
        "Data ready. Try write.",
        "last_request_date = 0, arch_rawtime = 1709337600",
        "flush_archives as 1709337600",
        "Arch record OK",
        "Requesting archive record #10, subsystem = 0",
        "Arch record OK",
        "Determine get_archive() end.. ",
        "header_date = 1709373600",
        "delta_date + 3600 = 1709373600",
        "difftime => 0.000000",
    }));
    EXPECT_EQ(item("_DriverStatus"), "3");
}

TEST_F(ModbusArchive, WithoutFilesAFullRingIsReadFromItsOldestRecord) {
    start(8, 5);
    EXPECT_TRUE(pass());
    EXPECT_EQ(places(), "4 5 1 2 3");
    EXPECT_EQ(hours_filed(), "5 6 7 8 9");
    EXPECT_EQ(logged("archiveStartIndex = next_rec_index = 4"), 1);
    EXPECT_EQ(logged_start("recs_count( "), 0);
    EXPECT_EQ(logged("archiveStartIndex = 4"), 1);
}

TEST_F(ModbusArchive, FilesThatAreThreeHoursBehindAreReadOn) {
    start(10);
    leave_record(Ten - 4 * Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(places(), "8 9 10 1") << "behind the newest one the ring is turned, and the time is the header's";
    EXPECT_EQ(lines_in("tmp_archives")["A5"].size(), 4U) << "one of earlier, three new ones";
    EXPECT_TRUE(logged_in_order(
        {"offsetIndex < max_records", "startTimestamp = 1709362800", "Offset index = 3", "archiveStartIndex = 8"}));
    EXPECT_EQ(staged("A7").substr(0, 10), "1709359200");
}

TEST_F(ModbusArchive, TheRecordAtTheHeadersTimeEndsTheWalk) {
    start(10);
    leave_record(Ten - Hour);
    leave_header(Ten - Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(places(), "11");
    EXPECT_TRUE(logged_in_order({"startTimestamp = 1709373600", "Offset index = 0", "archiveStartIndex = 11",
                                 "Requesting archive record #11, subsystem = 0",
                                 "Archive record initialized earlier, integrators included",
                                 "Archive record date/time: 02.03.2024 10:00:00", "Data ready. Try write.",
                                 "last_request_date = 1709370000, arch_rawtime = 1709373600", "Arch record OK"}));
    EXPECT_EQ(logged_start("flush_archives as "), 0);
    EXPECT_EQ(staged("A5"), stored_line(Ten - Hour, 192, 1) + "\n") << "it is not filed";
}

TEST_F(ModbusArchive, ARingThatHasTurnedIsReadAcrossItsEnd) {
    start(7, 5);
    leave_record(Ten - 5 * Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(places(), "4 5 1 2 3") << "the fifth is one too many, at the header's time";
    EXPECT_TRUE(logged_in_order({"Offset index = 4", "offsetIndex -= arch_header_data.next_rec_index = 1",
                                 "archiveStartIndex = arch_header_data.max_records - offsetIndex = 4",
                                 "archiveStartIndex = 4"}));
    std::string hours;
    LineCounts files = lines_in("tmp_archives");
    for (const auto& [line, times] : files["A5"]) hours += line.substr(15) + " ";
    EXPECT_EQ(hours, "1.000000 6.000000 7.000000 8.000000 9.000000 ");
}

TEST_F(ModbusArchive, APlaceOfExactlyZeroWrapsToo) {
    start(8, 5);  // the next one is number 4
    leave_record(Ten - 5 * Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(logged("offsetIndex -= arch_header_data.next_rec_index = 0"), 1);
    EXPECT_EQ(places(), "5 1 2 3 4");
}

TEST_F(ModbusArchive, TheNumberBehindTheCountOfRecordsIsOne) {
    start(6);
    meter.claim_counts(sim::ModbusVistCounts{.held = 6, .next = 4, .most = 6});
    pass();
    EXPECT_EQ(places(), "5 6 1 2 3 4");
}

TEST_F(ModbusArchive, AsManyHoursAsTheRingHoldsAreNotMoreThanItHolds) {
    start(8, 5);
    leave_record(Ten - 6 * Hour);
    pass();
    EXPECT_EQ(logged("offsetIndex < max_records"), 1) << "five hours, five records";
    leave_record(Ten - 7 * Hour);
    leave_header(Ten - Hour);
    clear_log();
    pass();
    EXPECT_EQ(logged("offsetIndex > max_records"), 1);
}

TEST_F(ModbusArchive, PartsOfAnHourAreCutOffTowardsZero) {
    start(10);
    const std::vector<std::pair<std::time_t, int>> lasts = {
        {Ten - 3 * Hour - 1, 2}, {Ten - 3 * Hour, 2}, {Ten - 3 * Hour + 1, 1}, {Ten - 2 * Hour + 1, 0}, {Ten - 1, 0},
        {Ten - Hour + 3599, 0},  {Ten, -1},           {Ten + Hour - 1, -1},
    };
    for (const auto& [last, offset] : lasts) {
        leave_record(last);
        leave_header(Ten - Hour);
        clear_log();
        pass();
        EXPECT_EQ(logged("Offset index = " + std::to_string(offset)), 1) << Ten - last;
        EXPECT_EQ(logged("archiveStartIndex = " + std::to_string(11 - offset)), 1) << Ten - last;
        EXPECT_EQ(logged("startTimestamp = " + std::to_string(Ten - offset * Hour)), 1) << Ten - last;
    }
}

TEST_F(ModbusArchive, MoreHoursThanTheRingHoldsAreReadAsFarAsTheCountGoes) {
    start(5);
    leave_record(Ten - 9 * Hour);
    EXPECT_FALSE(pass()) << "the hours of the records are not those that were awaited";
    EXPECT_EQ(places(), "3 4 5 1 2");
    EXPECT_EQ(logged("Arch record OK"), 5);
}

TEST_F(ModbusArchive, AnEmptyRingHasAHeaderAndNothingElse) {
    start(0);
    EXPECT_FALSE(pass());
    EXPECT_EQ(asked(), Texts{"20:0/0 (48)"});
    EXPECT_EQ(logged_start("Requesting archive record"), 0);
    EXPECT_EQ(staged("A6").substr(0, 11), "1709373600,");
}

TEST_F(ModbusArchive, TheNewestLineOfAnyFileTellsHowFarTheRecordsAre) {
    start(10);
    leave_record(Ten - 4 * Hour);
    for (const char* name : {"A3", "A5", "A7", "A9", "A11", "A13", "A15", "A2"}) {
        leave_record(Ten - 4 * Hour);
        leave_header(Ten - Hour);
        leave_staged(name, stored_line(Ten - 2 * Hour, 192, 1) + "\n");
        clear_log();
        pass();
        EXPECT_EQ(logged("Offset index = 1"), 1) << name;
    }
    leave_record(Ten - 4 * Hour);
    leave_header(Ten - Hour);
    leave_staged("A20", stored_line(Ten - 2 * Hour, 192, 1) + "\n");
    clear_log();
    pass();
    EXPECT_EQ(logged("Offset index = 3"), 1) << "a temperature does not count";
}

// ---- the old header

TEST_F(ModbusArchive, AnOldHeaderEndsThePassBeforeARecordIsAskedFor) {
    start(10);
    for (const char* name : {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"}) {
        leave_header(Ten - Hour);
        leave_staged(name, stored_line(Ten, 192, 1) + "\n");
        leave_record(Ten - Hour);
        EXPECT_TRUE(pass()) << name;
        EXPECT_EQ(asked(), Texts{"20:0/0 (48)"}) << name;
    }
}

TEST_F(ModbusArchive, BehindAnOldHeaderThePassIsAsGoodAsTheFilesAre) {
    start(10);
    leave_header(Ten);
    leave_record(Ten - Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(logged("difftime => 0.000000"), 1);
    leave_record(Ten - Hour - 1);
    EXPECT_FALSE(pass());
    EXPECT_EQ(logged("difftime => -1.000000"), 1);
    EXPECT_EQ(logged("delta_date + 3600 = 1709373600"), 1);
    EXPECT_EQ(meter.requests({.function = 20}), 2U);
}

TEST_F(ModbusArchive, AnOldHeaderStillTellsOfTheTimeWorked) {
    start(10);
    meter.set_totals({{0, 0, 0, 0, 0, 0, 12345, 0}});
    leave_header(Ten);
    pass();
    EXPECT_EQ(item("IT1"), "123.450000");
    EXPECT_EQ(logged("set_worktime_value:12345 -> 123.450000"), 1);
    EXPECT_EQ(staged("A4"), stored_line(Ten, 192, 1) + "\n") << "and is not filed";
    EXPECT_EQ(logged_start("Archive specs: mask = 0x7FFFFF, recs count = 10, next rec = 11, "), 1);
}

TEST_F(ModbusArchive, ANewPassAfterAGoodOneReadsOnWithTheNextHour) {
    start(10);
    ASSERT_TRUE(pass());
    EXPECT_TRUE(pass());
    EXPECT_EQ(asked(), Texts{"20:0/0 (48)"}) << "nothing new";
    store(Ten);
    EXPECT_TRUE(pass());
    EXPECT_EQ(places(), "11 1");
    EXPECT_EQ(hours_filed(), "0 1 2 3 4 5 6 7 8 9 10");
    const LineCounts before = lines_in("tmp_archives");
    store(Ten + Hour);
    EXPECT_TRUE(pass());
    for (const auto& [name, lines] : lines_in("tmp_archives")) {
        EXPECT_EQ(lines.size(), before.at(name).size() + 1)
            << "of the record that was not filed nothing is left, " << name;
    }
}

TEST_F(ModbusArchive, ARecordBehindTheHeadersTimeEndsTheWalkToo) {
    start(10);
    leave_record(Ten);
    leave_header(Ten - Hour);
    EXPECT_TRUE(pass());
    EXPECT_EQ(places(), "12");
    EXPECT_EQ(logged("Archive record initialized now, no integrators"), 1);
    EXPECT_EQ(logged_start("flush_archives as "), 0);
}

TEST_F(ModbusArchive, AHeaderBehindTheEndOfTheGatewaysTimeIsAnOldOne) {
    start(10);
    meter.set_header_time("2099-01-01 00:00");
    pass();
    EXPECT_EQ(asked(), Texts{"20:0/0 (48)"});
    EXPECT_TRUE(lines_in("tmp_archives").empty());
}

// ---- summer time

class ModbusArchiveInBerlin : public ModbusArchive, public ::testing::WithParamInterface<const char*> {
  protected:
    ModbusArchiveInBerlin() : ModbusArchive(GetParam(), "CET-1CEST,M3.5.0,M10.5.0/3") {}
};

TEST_P(ModbusArchiveInBerlin, AnHourLiesBetweenAllRecordsWhetherOneOfTheDayIsLeftOutOrComesTwice) {
    meter.swap_for({.serial = Serial, .systems = {{.archive_mask = 0x2}}});
    for (int k = 12; k > 0; --k) meter.store_hourly({.at = machine.now() - k * Hour});
    machine.connect(Port, meter);
    start_described();
    EXPECT_TRUE(pass());
    LineCounts expected;
    for (int k = 12; k > 0; --k) ++expected["A5"][stored_line(machine.now() / Hour * Hour - k * Hour, 192, 0)];
    EXPECT_EQ(lines_in("tmp_archives")["A5"], expected["A5"]);
}

INSTANTIATE_TEST_SUITE_P(InSpringAndAutumn, ModbusArchiveInBerlin,
                         ::testing::Values("2024-03-31 09:00:00", "2024-10-27 08:00:00"));

// ---- what is asked and filed

TEST_F(ModbusArchive, EveryLineIsThatOfTheMetersOwnTables) {
    const sim::ModbusVistSystem south{.name = "SOUTH", .archive_mask = 0x0000FFFF, .precision = {0, 3, 1, 2}};
    meter.swap_for({.serial = Serial, .systems = {{}, south, {}}});
    meter.record_archives(true, "2024-03-01 22:00");
    machine.connect(Port, meter);
    start_driver();
    machine.sleep(601);
    run();
    for (const unsigned system : {0U, 1U, 2U}) {
        LineCounts expected;
        const auto add = [&](const std::vector<sim::VistFileValue>& values) {
            for (const auto& each : values) {
                ++expected[each.file][stored_line(each.time, each.quality, each.value)];
            }
        };
        ASSERT_EQ(meter.records(system).size(), 12U);
        for (const auto& record : meter.records(system)) add(meter.record_files(record, system));
        add(meter.header_files(machine.now(), system));
        EXPECT_EQ(lines_in("tmp_archives", static_cast<int>(system) + 1), expected);
    }
}

TEST_F(ModbusArchive, AMeterThatCountsBytesInALengthIsReadAsWell) {
    meter.swap_for({.serial = Serial, .short_records = true});
    for (int k = 3; k > 0; --k) store(Ten - k * Hour);
    machine.connect(Port, meter);
    start_described();
    EXPECT_TRUE(pass());
    EXPECT_EQ(hours_filed(), "7 8 9");
}

TEST_F(ModbusArchive, EachHeatSystemHasItsFileItsRecordSizeAndItsHeaderTime) {
    meter.swap_for({.serial = Serial, .systems = {{}, {}, {.archive_mask = 0x3}}});
    store(Ten - Hour, 2);
    machine.connect(Port, meter);
    start_described();
    leave_header(Ten, 1);
    leave_record(Ten - Hour, 1);
    EXPECT_TRUE(pass(0));
    EXPECT_EQ(asked(), (Texts{"20:0/0 (48)"})) << "its header is an old one";
    EXPECT_TRUE(pass(2));
    EXPECT_EQ(asked(), (Texts{"20:2/0 (48)", "20:2/1 (6)"})) << "a sum, one byte and four";
    EXPECT_EQ(hours_filed(3), "9");
    EXPECT_EQ(item("_DriverStatus", 3), "3");
    EXPECT_EQ(logged("Requesting archive record #1, subsystem = 2"), 1);
}

TEST_F(ModbusArchive, OnlyTotalsThatTheMeterTellsOfAreFiled) {
    meter.swap_for({.serial = Serial, .systems = {{.told_mask = 0x20}}});
    store(Ten - Hour);
    machine.connect(Port, meter);
    start_described();
    EXPECT_TRUE(pass());
    std::string totals;
    for (const char* name : {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"}) {
        if (!staged(name).empty()) totals += std::string(name) + " ";
    }
    EXPECT_EQ(totals, "A6 A8 A10 A14 ") << "volumes in any case";
    EXPECT_EQ(item("IT1"), "(none)");
    EXPECT_EQ(logged_start("set_worktime_value:"), 0);
}

}  // namespace
