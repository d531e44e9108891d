// All VIST meters of a process: the port, the settings, the endless walk, and the file that keeps others off the bus.

#include <termios.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/configured.h"
#include "support/vist_archive_scene.h"

namespace {

class VistProcess : public VistArchiveStand {
  protected:
    using VistArchiveStand::VistArchiveStand;

    void configure(const std::string& uuid, unsigned network, const std::string& port = Port) {
        scene.make_tree(uuid);
        scene.service.set_meter(uuid, {.serial = network, .port_name = port, .manufacturer = "VIST"});
    }
    /// A process for these meters, run for a while.
    void run(double seconds, const std::vector<std::string>& uuids = {Uuid}) {
        VistDaemon daemon(uuids);
        machine.run_for(seconds, [&daemon] { daemon(); });
    }
    std::string extds() const { return scene.file("/tmp/extds_pause").value_or("(none)"); }

    sim::VistMeter meter{{.network = 1, .plus_starts_at_set = true}};
};

// 9:05 lies in an hour that three divides, counted since the epoch; 10:05 and 11:05 do not.
class VistProcessAtNine : public VistProcess {
  protected:
    VistProcessAtNine() : VistProcess("2024-03-02 09:05:00") {}
};

// ---- the object and the line

TEST_F(VistProcess, AProcessHasItsMetersInTheOrderOfTheCommandLine) {
    VIST_base base({"m1", "m2"});
    EXPECT_EQ(base.get_driver_type(), "VISThydralink");
    EXPECT_EQ(base.get_buffer_limit(), 768);
    EXPECT_EQ(base.get_uuid(), "m1");
    EXPECT_TRUE(base.is_all_archives_ok());
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.m2.txt"));
    base.on_tick(1);
}

struct Speed {
    unsigned configured;
    speed_t bits;
};

class VistSpeed : public VistProcess, public ::testing::WithParamInterface<Speed> {};

TEST_P(VistSpeed, TheLineRunsAtTheConfiguredSpeed) {
    scene.service.set_meter(Uuid, {.serial = 1, .port_name = Port, .speed = GetParam().configured});
    VistDaemon daemon({Uuid});
    EXPECT_EQ(machine.line_of(Port).c_cflag & CBAUD, GetParam().bits);
}

INSTANTIATE_TEST_SUITE_P(Speeds, VistSpeed,
                         ::testing::Values(Speed{2400, B2400}, Speed{4800, B4800}, Speed{9600, B9600},
                                           Speed{19200, B19200}, Speed{38400, B4800}, Speed{115200, B4800}));

TEST_F(VistProcess, TheLineHasEightBitsAndHalfASecondOfPatience) {
    for (const char* parity : {"N", "E"}) {
        scene.service.set_meter(Uuid, {.serial = 1, .port_name = Port, .parity = parity});
        VistDaemon daemon({Uuid});
        const termios& line = machine.line_of(Port);
        const tcflag_t parity_bit = std::string(parity) == "E" ? PARENB : 0;
        EXPECT_EQ(line.c_cflag & ~static_cast<tcflag_t>(CBAUD),
                  static_cast<tcflag_t>(CS8 | CREAD | CLOCAL) | parity_bit);
        EXPECT_EQ(line.c_cc[VMIN], 0);
        EXPECT_EQ(line.c_cc[VTIME], 5);
        EXPECT_EQ(line.c_iflag, 0U);
        EXPECT_EQ(line.c_oflag, 0U);
        EXPECT_EQ(line.c_lflag, static_cast<tcflag_t>(IEXTEN));
    }
    EXPECT_EQ(general_logged("Open tty = /dev/ttyS1"), 2);
    EXPECT_EQ(general_logged("VIST opening port - FAIL"), 0);
}

TEST_F(VistProcess, ThePortIsNamedOnStandardOutputWhetherItOpensOrNot) {
    VIST_base base({Uuid});
    set_port_name(base, Port);
    EXPECT_EQ(stdout_of([&base] { base.open_tty(); }), "Open tty = /dev/ttyS1\n");
    set_port_name(base, "/dev/none");
    EXPECT_EQ(stdout_of([&base] { base.open_tty(); }), "Open tty = /dev/none\n");
}

TEST_F(VistProcess, APortThatDoesNotOpenIsToldOfAndNotTriedAgain) {
    configure(Uuid, 1, "/dev/none");
    run(1000);
    EXPECT_TRUE(machine.exchanges().empty());
    EXPECT_EQ(general_logged("Open tty = /dev/none"), 1);
    EXPECT_EQ(general_logged("VIST opening port - FAIL"), 1);
    EXPECT_EQ(item("Connected"), "0");
    EXPECT_GT(general_logged("driver number 0 start"), 190) << "the walk goes on regardless";
}

// ---- the walk

TEST_F(VistProcess, TheStoryOfTheWalkIsInTheGeneralLog) {
    configure("m1", 1);
    configure("m2", 2);
    run(12, {"m1", "m2"});
    EXPECT_EQ(general_logged("setUUID driver number 0, uuid = m1"), 1);
    EXPECT_EQ(general_logged("setUUID driver number 1, uuid = m2"), 1);
    EXPECT_EQ(general_logged("drivers size: 2"), 1);
    EXPECT_EQ(general_logged("driver number 0 start"), 1);
    EXPECT_EQ(general_logged("driver number 1 start"), 1);
    EXPECT_EQ(general_logged("Driver uuid = m2"), 1);
    EXPECT_EQ(general_logged("its Time!"), 2);
    const std::string text = scene.file("/tmp/uni_logs.general.txt").value_or("");
    EXPECT_NE(text.find("tc_sernum = 1, uuid = m1, tty_fd = "), std::string::npos);
    EXPECT_NE(text.find("tc_sernum = 2, uuid = m2, tty_fd = "), std::string::npos);
}

TEST_F(VistProcess, FiveSecondsLieBeforeEachPass) {
    configure(Uuid, 1);
    run(4.9);
    EXPECT_TRUE(machine.exchanges().empty());
    machine.connect(Port, meter);
    run(300);
    ASSERT_FALSE(machine.sleeps().empty());
    for (const unsigned seconds : machine.sleeps()) EXPECT_EQ(seconds, 5U);
}

TEST_F(VistProcess, AMeterIsPolledAtOnceAndThenEvery360Seconds) {
    configure(Uuid, 1);
    machine.connect(Port, meter);
    run(1400);
    EXPECT_EQ(meter.requests("VER"), 4U);
    EXPECT_EQ(meter.requests("/MON C"), 4U);
    EXPECT_EQ(item("MeterModel"), "ВИСТ-2");
}

TEST_F(VistProcess, AForcedUpdateComesAtOnce) {
    configure(Uuid, 1);
    machine.connect(Port, meter);
    machine.at(100, [this] { scene.touch("/tmp/tvk_force_update_m1"); });
    run(200);
    EXPECT_EQ(meter.requests("VER"), 2U);
    EXPECT_FALSE(scene.exists("/tmp/tvk_force_update_m1"));
}

TEST_F(VistProcess, TheArchiveIsReadForTheFirstTimeWithTheSecondPoll) {
    configure(Uuid, 1);
    machine.connect(Port, meter);
    meter.record_archives(true, "2024-03-02 00:00");
    run(700);
    EXPECT_EQ(meter.requests("/ARC/DLD H"), 0U) << "polled at 5 and 365 seconds, too early";
    run(1);
    run(700);
    EXPECT_EQ(meter.requests("/ARC/DLD H"), 0U) << "a new process begins to count anew";
    run(800);
    EXPECT_EQ(meter.requests("/ARC/DLD H"), 1U);
    EXPECT_EQ(lines_in("tc_tmp_archives").at("A3").size(), 10U);
}

TEST_F(VistProcess, MetersOfOneLineArePolledOneAfterTheOther) {
    sim::VistDevice south{.name = "SOUTH"};
    sim::VistMeter second({.network = 22, .serial = 22345, .devices = {south}, .plus_starts_at_set = true});
    configure("m1", 1);
    configure("m2", 22);
    machine.connect(Port, meter);
    machine.connect(Port, second);
    second.set_value("T1", {.number = 335, .scale = 1});
    run(1000, {"m1", "m2"});
    std::string calls;
    for (const std::string& command : commands()) {
        if (!command.starts_with("CALL ")) continue;
        const char called = command == "CALL 22" ? '2' : '1';
        if (calls.empty() || calls.back() != called) calls += called;
    }
    EXPECT_EQ(calls, "121212");
    EXPECT_EQ(item("T1"), "95.500000");
    EXPECT_EQ(scene.item("m2", 1, "T1"), "33.500000\n");
    EXPECT_EQ(item("_HMsystem"), "TS1");
    EXPECT_EQ(scene.item("m2", 1, "_HMsystem"), "SOUTH\n");
}

TEST_F(VistProcess, ADeadMeterDoesNotKeepAnotherFromItsTurn) {
    sim::VistMeter second({.network = 22});
    configure("m1", 1);
    configure("m2", 22);
    machine.connect(Port, second);
    run(800, {"m1", "m2"});
    EXPECT_EQ(second.requests("VER"), 3U);
    EXPECT_EQ(item("Connected"), "0");
    EXPECT_EQ(scene.item("m2", 1, "Connected"), "1\n");
    EXPECT_EQ(std::ranges::count(commands(), "CALL 1"), 3 * 5) << "five tries a run, and no more";
}

TEST_F(VistProcess, TheSettingsOfEachMeterAreAskedForOnce) {
    configure("m1", 1);
    configure("m2", 22);
    run(3000, {"m1", "m2"});
    EXPECT_EQ(scene.service.requests().size(), 3U) << "the process itself as its first meter, then each meter";
}

TEST_F(VistProcess, WhileAnotherProgramHoldsTheBusTheMetersAreLeftAlone) {
    configure(Uuid, 1);
    machine.connect(Port, meter);
    for (const char* flag : {"/tmp/pause_tvk", "/tmp/pause_tvk_all"}) {
        scene.touch(flag);
        run(500);
        EXPECT_TRUE(machine.exchanges().empty()) << flag;
        scene.remove(flag);
    }
    run(30);
    EXPECT_FALSE(machine.exchanges().empty());
}

// ---- keeping others off the bus

TEST_F(VistProcessAtNine, InAnHourThatThreeDividesTheBusIsClaimedUntilTheArchivesAreRead) {
    configure(Uuid, 1);
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

TEST_F(VistProcess, InOtherHoursTheBusIsNotClaimed) {
    configure(Uuid, 1);
    machine.connect(Port, meter);
    meter.record_archives(true, "2024-03-02 00:00");
    run(700);
    EXPECT_EQ(extds(), "(none)");
}

TEST_F(VistProcess, WhileSomeArchiveIsBehindTheFileOfAnotherHourStays) {
    configure(Uuid, 1);
    machine.connect(Port, meter);
    scene.write("/tmp/extds_pause", "3600");
    run(700);
    EXPECT_EQ(extds(), "3600");
}

TEST_F(VistProcess, WhenAllArchivesAreReadTheFileIsRemovedOnEveryPass) {
    configure(Uuid, 1);
    machine.connect(Port, meter);
    meter.record_archives(true, "2024-03-02 00:00");
    VistDaemon daemon({Uuid});
    std::string between;
    machine.at(900, [this] { scene.write("/tmp/extds_pause", "7200"); });
    machine.at(911, [&] { between = extds(); });
    machine.run_for(1000, [&daemon] { daemon(); });
    EXPECT_EQ(between, "(none)");
}

TEST_F(VistProcessAtNine, OneMeterBehindKeepsTheClaimForAll) {
    sim::VistMeter second({.network = 22});
    configure("m1", 1);
    configure("m2", 22);
    machine.connect(Port, meter);
    machine.connect(Port, second);
    meter.record_archives(true, "2024-03-02 00:00");
    run(1200, {"m1", "m2"});
    EXPECT_EQ(extds(), "3600") << "the second meter has no archive";
}

TEST_F(VistProcessAtNine, AMeterThatNeverAnsweredClaimsNothingAfterItsFirstRun) {
    configure(Uuid, 1);
    run(60);
    EXPECT_EQ(extds(), "(none)");
}

}  // namespace
