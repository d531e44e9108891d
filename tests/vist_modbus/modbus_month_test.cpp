// A month of two VIST meters on one line that are asked over Modbus, three heat systems each: a neighbour that leaves
// the bus free for six minutes of every twelve hours, disturbed and silent lines, records that come broken, restarts of
// the daemon, four days off the line, which is more than the meters' rings hold, and the change to summer time.
//
// In the end the staged and the handed-over files hold every record that a meter held while it could be asked, once,
// and the totals of one header for each time the bus was free.

#include <algorithm>
#include <string>
#include <vector>

#include "support/modbus_month_scene.h"

namespace {

constexpr const char* Berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr std::time_t RingHours = 72;
constexpr std::time_t FreeTime = 360;
constexpr std::time_t FreeEvery = 12 * 3600;
constexpr int Windows = 62;
constexpr std::uint16_t Systems = 3;

// The windows in which something happens.
constexpr int FourBadRecords = 11;
constexpr int FiveBadRecords = 12;
constexpr int SilentRecord = 13;
constexpr int SilentHeader = 14;
constexpr int LineGone = 19;
constexpr int LineBack = 27;

struct Device {
    const char* uuid;
    sim::ModbusVistMeter& meter;
    std::uint16_t system;

    int n() const { return system + 1; }
};

class ModbusMonth : public ModbusMonthStand {
  protected:
    ModbusMonth() : ModbusMonthStand("2024-03-05 09:40:00", Berlin), begun(machine.now()) {
        scene.make_tree("m2");
        scene.service.set_meter("m1", {.serial = 40001, .port_name = Port, .manufacturer = "VISTmodbus"});
        scene.service.set_meter("m2", {.serial = 50456, .port_name = Port, .manufacturer = "VISTmodbus"});
        be_quiet({"m1", "m2"});
        for (sim::ModbusVistMeter* meter : {&first, &second}) meter->record_archives(true, begun - 20 * Hour);
        connect();
        hold_bus();
        for (int window = 0; window < Windows; ++window) {
            const auto opens = static_cast<double>(opening(window) - begun);
            machine.at(opens, [this] { scene.remove("/tmp/pause_tvk_all"); });
            machine.at(opens + FreeTime, [this] { hold_bus(); });
        }
    }
    void connect() {
        machine.connect(Port, first);
        machine.connect(Port, second);
    }
    void hold_bus() { scene.touch("/tmp/pause_tvk_all"); }

    // ---- times

    std::time_t opening(int window) const { return begun + 2400 + window * FreeEvery; }
    /// Of the headers while the bus is free, which it is from 20 to 26 minutes past.
    std::time_t header_time(int window) const { return opening(window) / Hour * Hour; }
    std::time_t oldest_held(int window) const {
        return std::max(header_time(window) - RingHours * Hour, (begun - 20 * Hour) / Hour * Hour);
    }

    // ---- what happens

    /// A process that ends shortly before the bus becomes free for the `window`-th time.
    void live_until_window(int window) {
        live({"m1", "m2"}, static_cast<double>(opening(window) - 1500 - machine.now()));
    }
    void rough_until_window(int window) {
        const std::vector<sim::ModbusFault> faults = {sim::modbus_silence(),
                                                      sim::modbus_exception(),
                                                      sim::modbus_wrong_crc(),
                                                      sim::modbus_noise(),
                                                      sim::modbus_trailing(),
                                                      sim::modbus_cut(2),
                                                      sim::modbus_cut(20),
                                                      sim::modbus_pieces(),
                                                      sim::modbus_wrong_slave(5),
                                                      sim::modbus_wrong_function(3),
                                                      sim::modbus_wrong_function(0x84),
                                                      sim::modbus_byte_count(),
                                                      sim::modbus_byte_count(12),
                                                      sim::modbus_bad_sum()};
        for (sim::ModbusVistMeter* meter : {&first, &second}) {
            meter->misbehave_randomly(0.03, meter->config().serial + static_cast<unsigned>(window), faults);
        }
        live_until_window(window);
        for (sim::ModbusVistMeter* meter : {&first, &second}) meter->behave();
    }

    // ---- what is looked at

    LineCounts expected(const Device& device) const {
        LineCounts counts;
        for (std::time_t hour = oldest_held(0); hour < header_time(Windows - 1); hour += Hour) {
            if (hour >= header_time(LineGone - 1) && hour < oldest_held(LineBack)) continue;
            count_lines(counts, modbus_record_lines(device.meter, device.system, hour));
        }
        for (int window = 0; window < Windows; ++window) {
            if (window >= LineGone && window < LineBack) continue;
            if (window == SilentHeader && &device.meter == &first && device.system == 2) continue;
            count_lines(counts, modbus_header_lines(device.meter, device.system, header_time(window)));
        }
        return counts;
    }
    std::vector<Device> devices() {
        std::vector<Device> all;
        for (std::uint16_t system = 0; system < Systems; ++system) {
            all.push_back({"m1", first, system});
            all.push_back({"m2", second, system});
        }
        return all;
    }

    const std::time_t begun;
    sim::ModbusVistMeter first{{.serial = 40001,
                                .systems = {{.name = "A"},
                                            {.name = "B", .archive_mask = 0x45FFE, .precision = {0, 3, 2, 1}},
                                            {.name = "C", .archive_mask = 0x404482}},
                                .capacity = RingHours,
                                .clock_offset = 40,
                                .clock_drift_ppm = 20}};
    sim::ModbusVistMeter second{{.serial = 50456,
                                 .systems = {{.name = "D", .archive_mask = 0xFFFFF},
                                             {.name = "E", .archive_mask = 0x10810B},
                                             {.name = "F", .archive_mask = 0x7F}},
                                 .capacity = RingHours,
                                 .unwritten = sim::ModbusVistUnwritten::Refused,
                                 .clock_offset = -95}};
};

TEST_F(ModbusMonth, AfterARoughMonthEveryRecordThatCouldBeReadIsInTheFiles) {
    live_until_window(3);
    rough_until_window(6);
    rough_until_window(FourBadRecords);

    first.misbehave_next(4, sim::modbus_bad_sum().on({.function = 20, .address = 0}));
    live_until_window(FourBadRecords + 1);
    EXPECT_EQ(last_time("m1", 1, "A5"), header_time(FourBadRecords) - Hour) << "the fifth try is good";

    first.misbehave_next(3, sim::modbus_good().on({.function = 20, .address = 0}));  // a header and two records
    first.misbehave_next(5, sim::modbus_bad_sum().on({.function = 20, .address = 0}));
    live_until_window(FiveBadRecords + 1);
    EXPECT_EQ(last_time("m1", 1, "A1"), header_time(FiveBadRecords));
    EXPECT_EQ(last_time("m1", 1, "A5"), header_time(FiveBadRecords - 1) + Hour) << "the third record ends the walk";
    EXPECT_EQ(last_time("m1", 2, "A5"), header_time(FiveBadRecords) - Hour) << "the next heat system is read";

    second.misbehave_next(1, sim::modbus_good().on({.function = 20, .address = 1}));
    second.misbehave_next(5 * 30, sim::modbus_silence().on({.function = 20, .address = 1}));
    live_until_window(SilentRecord + 1);
    EXPECT_EQ(second.scripted_faults_left(), 0U);
    EXPECT_EQ(last_time("m2", 2, "A5"), header_time(SilentRecord - 1) - Hour) << "no record is read";
    EXPECT_EQ(last_time("m2", 2, "A6"), header_time(SilentRecord));

    first.misbehave_next(30, sim::modbus_silence().on({.function = 20, .address = 2, .record = 0}));
    live_until_window(SilentHeader + 1);
    EXPECT_EQ(first.scripted_faults_left(), 0U);
    EXPECT_EQ(last_time("m1", 3, "A6"), header_time(SilentHeader - 1));

    rough_until_window(LineGone - 1);
    live_until_window(LineGone);  // what a disturbed pass leaves unread would be lost with the line
    machine.disconnect_all(Port);
    live_until_window(23);
    live_until_window(LineBack);
    connect();
    live_until_window(LineBack + 2);
    for (const int window : {36, 41, 47, 54, Windows - 2}) rough_until_window(window);
    live({"m1", "m2"}, 3.0 * FreeEvery);

    EXPECT_GT(first.faults_made(), 100U);
    EXPECT_GT(second.faults_made(), 100U);
    for (const Device& device : devices()) {
        for (const char* directory : {"tmp_archives", "tc_tmp_archives"}) {
            EXPECT_EQ(difference(lines_of(device.uuid, device.n(), directory), expected(device)), "")
                << device.uuid << " " << device.n() << " " << directory;
        }
        EXPECT_EQ(lines_of(device.uuid, device.n(), "tc_archives").size(), 0U);
    }
}

}  // namespace
