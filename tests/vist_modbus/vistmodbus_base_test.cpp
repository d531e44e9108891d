// All VIST meters on Modbus of a process: the port, the settings, the endless walk, and the file that keeps others off
// the bus.

#include <termios.h>

#include <string>
#include <vector>

#include "core/uni_log.h"
#include "support/child.h"
#include "support/configured.h"
#include "support/modbus_scene.h"

namespace {

class ModbusProcess : public ModbusStand {
  protected:
    explicit ModbusProcess(const std::string& start = "2024-03-02 10:05:00") : ModbusStand(start) {}

    void configure(const std::string& uuid, unsigned serial, const std::string& port = Port) {
        scene.make_tree(uuid);
        scene.service.set_meter(uuid, {.serial = serial, .port_name = port, .manufacturer = "vis-t-modbus"});
    }
    /// A process for these meters, run for a while.
    void run(double seconds, const std::vector<std::string>& uuids = {Uuid}) {
        quietly([&] {
            ModbusDaemon daemon(uuids);
            machine.run_for(seconds, [&daemon] { daemon(); });
        });
    }
    void set_line_for(const sim::MeterSettings& settings) {
        scene.service.set_meter(Uuid, settings);
        quietly([] { const ModbusDaemon daemon({Uuid}); });
    }
    std::string extds() const { return scene.file("/tmp/extds_pause").value_or("(none)"); }
    std::size_t polls() const { return meter.requests({.function = 3, .address = 0}); }

    sim::ModbusVistMeter meter{{.serial = Serial}};
};

// 9:05 lies in an hour that three divides, counted since the epoch; 10:05 and 11:05 do not.
class ModbusProcessAtNine : public ModbusProcess {
  protected:
    ModbusProcessAtNine() : ModbusProcess("2024-03-02 09:05:00") {}
};

// ---- the object and the line

TEST_F(ModbusProcess, AProcessHasItsMetersInTheOrderOfTheCommandLine) {
    VISTmodbus_base base({"m1", "m2"});
    EXPECT_EQ(base.get_driver_type(), "VISTmodbus");
    EXPECT_EQ(base.get_buffer_limit(), 768);
    EXPECT_EQ(base.get_uuid(), "m1");
    EXPECT_TRUE(base.is_all_archives_ok());
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.m1.txt"));
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.m2.txt"));
    base.on_tick(1);
}

TEST_F(ModbusProcess, TheLineRunsAtTheConfiguredSpeed) {
    const std::vector<std::pair<unsigned, speed_t>> speeds = {{2400, B2400},   {4800, B4800},  {9600, B9600},
                                                              {19200, B19200}, {38400, B4800}, {115200, B4800}};
    for (const auto& [configured, bits] : speeds) {
        set_line_for({.serial = Serial, .port_name = Port, .speed = configured});
        EXPECT_EQ(machine.line_of(Port).c_cflag & CBAUD, bits) << configured;
    }
}

TEST_F(ModbusProcess, TheLineHasEightBitsAndThreeSecondsOfPatience) {
    for (const char* parity : {"N", "E"}) {
        set_line_for({.serial = Serial, .port_name = Port, .parity = parity});
        const termios& line = machine.line_of(Port);
        const tcflag_t parity_bit = std::string(parity) == "E" ? PARENB : 0;
        EXPECT_EQ(line.c_cflag & ~static_cast<tcflag_t>(CBAUD),
                  static_cast<tcflag_t>(CS8 | CREAD | CLOCAL) | parity_bit);
        EXPECT_EQ(line.c_cc[VMIN], 0);
        EXPECT_EQ(line.c_cc[VTIME], 30);
        EXPECT_EQ(line.c_lflag, static_cast<tcflag_t>(IEXTEN));
    }
}

TEST_F(ModbusProcess, AMeterWithParityIsRead) {
    machine.connect(Port, meter);
    scene.service.set_meter(Uuid, {.serial = Serial, .port_name = Port, .speed = 19200, .parity = "E"});
    run(60);
    EXPECT_EQ(item("T1"), "95.500000");
}

TEST_F(ModbusProcess, OpeningThePortIsToldNowhere) {
    UniLog general(UniLog::ToFile, "/tmp/uni_logs.general.txt", "");
    g_log = &general;
    VISTmodbus_base base({Uuid});
    clear_log();
    for (const char* port : {Port, "/dev/none"}) {
        set_port_name(base, port);
        EXPECT_EQ(stdout_of([&base] { base.open_tty(); }), "") << port;
        EXPECT_EQ(scene.file("/tmp/uni_logs.general.txt"), "");
        EXPECT_TRUE(log().empty());
    }
    g_log = nullptr;
}

TEST_F(ModbusProcess, APortThatDoesNotOpenIsNotTriedAgain) {
    configure(Uuid, Serial, "/dev/none");
    run(12);
    EXPECT_EQ(item("Connected"), "0");
    EXPECT_EQ(logged("VISTmodbus::set_tty, tty_fd = -1"), 1);
    EXPECT_EQ(item("_DriverStatus", 3), "6") << "the walk goes on regardless";
}

// ---- the walk

TEST_F(ModbusProcess, EveryMeterIsToldItsPort) {
    configure("m1", Serial);
    configure("m2", 18);
    run(2, {"m1", "m2"});
    EXPECT_EQ(logged_start("VISTmodbus::set_tty, tty_fd = "), 1);
    const std::string other = scene.file("/tmp/uni_logs.m2.txt").value_or("");
    EXPECT_NE(other.find("VISTmodbus::set_tty, tty_fd = "), std::string::npos);
}

TEST_F(ModbusProcess, FiveSecondsLieBeforeEachPass) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    run(4.9);
    EXPECT_TRUE(machine.exchanges().empty());
    run(60);
    EXPECT_FALSE(machine.exchanges().empty());
    for (const unsigned seconds : machine.sleeps()) EXPECT_EQ(seconds, 5U);
}

TEST_F(ModbusProcess, AMeterIsPolledAtOnceAndThenEvery360Seconds) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    run(1400);
    EXPECT_EQ(polls(), 4U);
    EXPECT_EQ(item("MeterModel"), "VIST-TC-3");
}

TEST_F(ModbusProcess, AForcedUpdateComesAtOnce) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    machine.at(100, [this] { scene.touch("/tmp/tvk_force_update_m1"); });
    run(200);
    EXPECT_EQ(polls(), 2U);
    EXPECT_FALSE(scene.exists("/tmp/tvk_force_update_m1"));
}

TEST_F(ModbusProcess, MetersOfOneLineArePolledOneAfterTheOther) {
    sim::ModbusVistMeter second({.serial = 22, .systems = {{.name = "SOUTH"}}});
    configure("m1", Serial);
    configure("m2", 22);
    machine.connect(Port, meter);
    machine.connect(Port, second);
    second.set_value("T1", 3350);
    run(1000, {"m1", "m2"});
    std::string slaves;
    for (const auto& exchange : machine.exchanges()) {
        const char called = exchange.request[0] == 22 ? '2' : '1';
        if (slaves.empty() || slaves.back() != called) slaves += called;
    }
    EXPECT_EQ(slaves, "121212");
    EXPECT_EQ(item("T1"), "95.500000");
    EXPECT_EQ(item("T1", 1, "m2"), "33.500000");
    EXPECT_EQ(item("_HMsystem"), "TS1");
    EXPECT_EQ(item("_HMsystem", 1, "m2"), "SOUTH");
}

TEST_F(ModbusProcess, ADeadMeterKeepsAnotherWaitingButNotFromItsTurn) {
    sim::ModbusVistMeter second({.serial = 22});
    configure("m1", Serial);
    configure("m2", 22);
    machine.connect(Port, second);
    run(1700, {"m1", "m2"});
    EXPECT_EQ(second.requests({.function = 3, .address = 0}), 2U) << "770 seconds for the dead one";
    EXPECT_EQ(item("Connected"), "0");
    EXPECT_EQ(item("Connected", 1, "m2"), "1");
}

TEST_F(ModbusProcess, TheSettingsOfEachMeterAreAskedForOnce) {
    configure("m1", Serial);
    configure("m2", 22);
    machine.connect(Port, meter);
    run(1000, {"m1", "m2"});
    EXPECT_EQ(scene.service.requests().size(), 3U) << "the process itself as its first meter, then each meter";
}

TEST_F(ModbusProcess, WhileAnotherProgramHoldsTheBusTheMetersAreLeftAlone) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    scene.touch("/tmp/pause_tvk_all");
    run(500);
    EXPECT_TRUE(machine.exchanges().empty());
    scene.remove("/tmp/pause_tvk_all");
    run(30);
    EXPECT_FALSE(machine.exchanges().empty());
}

TEST_F(ModbusProcess, TheArchiveIsReadWithTheThirdPoll) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    meter.record_archives(true, "2024-03-02 00:00");
    run(700);
    EXPECT_EQ(meter.requests({.function = 20}), 0U) << "polled at 5 and 365 seconds, too early";
    run(800);
    EXPECT_EQ(meter.requests({.function = 20, .record = 0}), 1U);
    EXPECT_EQ(lines_in("tc_tmp_archives").at("A3").size(), 10U);
}

// ---- keeping others off the bus

TEST_F(ModbusProcessAtNine, InAnHourThatThreeDividesTheBusIsClaimedUntilTheArchivesAreRead) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    meter.record_archives(true, "2024-03-02 00:00");
    std::string early;
    std::string later;
    machine.at(5.5, [&] { early = extds(); });
    machine.at(700, [&] { later = extds(); });
    run(800);
    EXPECT_EQ(early, "3600");
    EXPECT_EQ(later, "3600") << "the archive is behind";
    EXPECT_EQ(extds(), "(none)") << "the archive has been read";
}

TEST_F(ModbusProcess, InOtherHoursTheBusIsNotClaimed) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    meter.record_archives(true, "2024-03-02 00:00");
    run(700);
    EXPECT_EQ(extds(), "(none)");
}

TEST_F(ModbusProcess, WhileSomeArchiveIsBehindTheFileOfAnotherHourStays) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    scene.write("/tmp/extds_pause", "3600");
    run(700);
    EXPECT_EQ(extds(), "3600");
}

TEST_F(ModbusProcess, WhenAllArchivesAreReadTheFileIsRemovedOnEveryPass) {
    configure(Uuid, Serial);
    machine.connect(Port, meter);
    meter.record_archives(true, "2024-03-02 00:00");
    std::string between;
    machine.at(900, [this] { scene.write("/tmp/extds_pause", "7200"); });
    machine.at(911, [&] { between = extds(); });
    run(1000);
    EXPECT_EQ(between, "(none)");
}

TEST_F(ModbusProcessAtNine, OneMeterBehindKeepsTheClaimForAll) {
    sim::ModbusVistMeter second({.serial = 22});
    configure("m1", Serial);
    configure("m2", 22);
    machine.connect(Port, meter);
    machine.connect(Port, second);
    meter.record_archives(true, "2024-03-02 00:00");
    run(1200, {"m1", "m2"});
    EXPECT_EQ(extds(), "3600") << "the second meter has no archive";
}

}  // namespace
