// A record of a VIST meter on Modbus carries no time of its own: its hour is reckoned from its place. Here are the
// situations in which that reckoning goes wrong, or in which a record comes twice, each by its name. The meters are
// what they are, and outside readers know the files as they are.

#include <cstdio>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/modbus_month_scene.h"

namespace {

using Stamps = std::vector<std::pair<std::time_t, std::time_t>>;

class ModbusWrongHours : public ModbusMonthStand {
  protected:
    ModbusWrongHours() : ModbusMonthStand("2024-03-02 10:05:00"), ten(machine.now() / Hour * Hour) {
        scene.service.set_meter("m1", {.serial = 17, .port_name = Port, .manufacturer = "VISTmodbus"});
        be_quiet({Uuid});
    }

    static sim::ModbusVistConfig config(std::uint32_t mask = 0x7F, double answer_delay = 0.02) {
        return {.serial = 17,
                .systems = {{.archive_mask = mask, .precision = {0, 0, 0, 0}}},
                .capacity = 48,
                .answer_delay = answer_delay};
    }
    /// The meter holds so many records before ten o'clock.
    void connect(sim::ModbusVistMeter& meter, int held) {
        meter.record_archives(true, ten - held * Hour);
        machine.connect(Port, meter);
    }
    /// One pass over the archive, some twelve minutes from the start of a process.
    void pass() { live({Uuid}, 900); }
    /// The same at so many hours past ten.
    void pass_at(int hours) {
        machine.sleep(static_cast<unsigned>(ten + hours * Hour + 300 - machine.now()));
        pass();
    }

    /// The hours of the lines of a file, and behind each the hour whose value it holds; both counted from ten o'clock.
    Stamps hours_of(const std::string& file, std::size_t field) const {
        Stamps all;
        std::istringstream lines(staged(file));
        for (std::string line; std::getline(lines, line);) {
            long time = 0;
            double value = 0.0;
            if (std::sscanf(line.c_str(), "%ld,%*d,%lf", &time, &value) != 2) ADD_FAILURE() << line;
            std::time_t origin = ten - 30 * Hour;
            while (origin < ten + 30 * Hour &&
                   static_cast<double>(sim::ModbusVistMeter::recorded_number(17, 0, origin, field)) != value) {
                origin += Hour;
            }
            all.emplace_back((time - ten) / Hour, (origin - ten) / Hour);
        }
        return all;
    }
    /// By volume 1.
    Stamps hours() const { return hours_of("A5", 1); }

    const std::time_t ten;
};

TEST_F(ModbusWrongHours, ARingThatIsNotFullAndLongUnreadFilesItsNewestRecordBeforeItsOldest) {
    sim::ModbusVistMeter meter(config());
    connect(meter, 8);
    leave_staged("A3", stored_line(ten - 10 * Hour, 192, 1) + "\n");
    pass();
    EXPECT_EQ(hours(), (Stamps{{-9, -1}, {-8, -8}, {-7, -7}, {-6, -6}, {-5, -5}, {-4, -4}, {-3, -3}, {-2, -2}}));
    EXPECT_EQ(lines_of(Uuid, 1, "tc_tmp_archives").size(), 0U) << "the files do not reach the header";
    pass_at(1);
    EXPECT_EQ(
        hours(),
        (Stamps{{-9, -1}, {-8, -8}, {-7, -7}, {-6, -6}, {-5, -5}, {-4, -4}, {-3, -3}, {-2, -2}, {-1, -1}, {0, 0}}));
}

TEST_F(ModbusWrongHours, ARingThatHoldsMuchLessThanWasMissedIsAskedForPlacesItDoesNotHave) {
    sim::ModbusVistMeter meter(config());
    connect(meter, 3);
    leave_staged("A3", stored_line(ten - 10 * Hour, 192, 1) + "\n");
    pass();
    // 9 hours are missed and 3 held, of which the next is place 4: 3 - (9 - 4), as a number of two bytes.
    EXPECT_EQ(meter.requests({.function = 20, .address = 0, .record = 65534}), 5U * 30U);
    EXPECT_EQ(hours(), Stamps());
    pass_at(1);
    EXPECT_EQ(meter.requests({.function = 20, .address = 0, .record = 65535}), 5U * 30U);
    EXPECT_EQ(hours(), Stamps()) << "until more hours are missed than the ring has places";
    EXPECT_EQ(lines_of(Uuid, 1).at("A6").size(), 2U) << "headers are filed";
    pass_at(40);
    EXPECT_EQ(hours().size(), 43U);
    EXPECT_EQ(hours().front(), std::pair(std::time_t{-3}, std::time_t{-3}));
}

TEST_F(ModbusWrongHours, AnHourThatTheMeterMissedGetsTheRecordBeforeIt) {
    sim::ModbusVistMeter meter(config());
    connect(meter, 2);
    meter.miss_hour(ten);
    pass();
    pass_at(2);
    EXPECT_EQ(hours(), (Stamps{{-2, -2}, {-1, -1}, {0, -1}, {1, 1}}));
}

TEST_F(ModbusWrongHours, WhatWasStoredBeforeAMissedHourIsFiledAnHourLateByAFirstReading) {
    sim::ModbusVistMeter meter(config());
    meter.miss_hour(ten - 2 * Hour);
    connect(meter, 4);
    pass();
    EXPECT_EQ(hours(), (Stamps{{-3, -4}, {-2, -3}, {-1, -1}}));
}

TEST_F(ModbusWrongHours, RecordsWithoutAFileThatTellsTheirTimeComeAgainWithEveryHeader) {
    sim::ModbusVistMeter meter(config(0x880));  // temperature 1 and pressure 1
    connect(meter, 2);
    pass();
    pass_at(1);
    const auto temperatures = lines_of(Uuid, 1).at("A20");
    EXPECT_EQ(temperatures.size(), 3U);
    for (const auto& [line, times] : temperatures) {
        EXPECT_EQ(times, line.starts_with(std::to_string(ten)) ? 1 : 2) << line;
    }
    EXPECT_EQ(lines_of(Uuid, 1, "tc_tmp_archives"), lines_of(Uuid, 1)) << "and are handed over";
}

TEST_F(ModbusWrongHours, AnAnswerThatComesAfterItsTimeIsTakenForTheNextAndAllThatFollowShift) {
    // The meter needs 0.2 s, and once 0.62 s: its late answer is taken for that to the second try, and from then on
    // each question gets the answer to the one before.
    sim::ModbusVistMeter meter(config(0x7F, 0.2));
    connect(meter, 5);
    meter.misbehave_next(3, sim::modbus_good().on({.function = 20}));  // a header and two records
    meter.misbehave_next(1, sim::modbus_slow(0.62).on({.function = 20}));
    pass();
    EXPECT_EQ(hours(), (Stamps{{-5, -5}, {-4, -4}, {-3, -3}, {-2, -3}, {-1, -2}}));
}

}  // namespace
