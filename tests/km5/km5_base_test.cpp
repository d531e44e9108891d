// All KM5 meters of a process: the port, the settings, the endless walk, and the file that keeps others off the bus.

#include <termios.h>

#include <string>
#include <vector>

#include "core/uni_log.h"
#include "support/child.h"
#include "support/configured.h"
#include "support/km5_scene.h"

namespace {

class Km5Process : public Km5Stand {
  protected:
    using Km5Stand::Km5Stand;

    void configure(const std::string& uuid, unsigned serial, const std::string& port = Port) {
        scene.make_tree(uuid);
        scene.service.set_meter(uuid, {.serial = serial,
                                       .port_name = port,
                                       .manufacturer = "km-5",
                                       .system_types = {"heat"},
                                       .port_alias = "serial485.4"});
    }
    /// A process for these meters, run for a while.
    void run(double seconds, const std::vector<std::string>& uuids = {Uuid}) {
        Km5Daemon daemon(uuids);
        machine.run_for(seconds, [&daemon] { daemon(); });
    }
    /// The serial numbers' lowest pairs in the order in which the meters were asked with this command.
    std::string asked_meters(std::uint8_t command) const {
        std::string all;
        for (const auto& request : requests()) {
            if (request[4] == command) all += static_cast<char>('0' + request[0] % 16);
        }
        return all;
    }

    sim::Km5Meter meter{{.model = 2}};
};

// ---- the object

TEST_F(Km5Process, AProcessHasItsMetersInTheOrderOfTheCommandLine) {
    KM5_base base({"m1", "m2"}, false, false);
    EXPECT_EQ(base.get_driver_type(), "KM5");
    EXPECT_EQ(base.get_buffer_limit(), 768);
    EXPECT_EQ(base.get_uuid(), "m1");
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.m2.messages.txt"));
    base.on_tick(1);
}

// ---- the line

struct Speed {
    unsigned configured;
    speed_t bits;
};

class Km5Speed : public Km5Process, public ::testing::WithParamInterface<Speed> {};

TEST_P(Km5Speed, TheLineRunsAtTheConfiguredSpeed) {
    scene.service.set_meter(Uuid, {.serial = 12345678, .port_name = Port, .speed = GetParam().configured});
    Km5Daemon daemon({Uuid});
    EXPECT_EQ(machine.line_of(Port).c_cflag & CBAUD, GetParam().bits);
}

INSTANTIATE_TEST_SUITE_P(Speeds, Km5Speed,
                         ::testing::Values(Speed{1200, B9600}, Speed{2400, B2400}, Speed{4800, B4800},
                                           Speed{9600, B9600}, Speed{19200, B19200}, Speed{38400, B38400},
                                           Speed{57600, B57600}, Speed{115200, B115200}, Speed{600, B2400}));

TEST_F(Km5Process, TheLineHasEightBitsWithoutParityAndSixTenthsOfPatience) {
    for (const char* parity : {"N", "E", "O"}) {
        scene.service.set_meter(Uuid, {.serial = 12345678, .port_name = Port, .parity = parity});
        Km5Daemon daemon({Uuid});
        const termios& line = machine.line_of(Port);
        EXPECT_EQ(line.c_cflag & ~static_cast<tcflag_t>(CBAUD), static_cast<tcflag_t>(CS8 | CREAD | CLOCAL | PARODD));
        EXPECT_EQ(line.c_cc[VMIN], 0);
        EXPECT_EQ(line.c_cc[VTIME], 6);
        EXPECT_EQ(line.c_iflag, 0U);
        EXPECT_EQ(line.c_oflag, 0U);
        EXPECT_EQ(line.c_lflag, static_cast<tcflag_t>(IEXTEN));
    }
}

TEST_F(Km5Process, OpeningThePortIsToldNowhere) {
    UniLog general(UniLog::ToFile, "/tmp/uni_logs.general.txt", "");
    g_log = &general;
    KM5_base base({Uuid}, false, false);
    for (const char* kind : {"messages", "debug", "general"}) clear_log(kind);
    for (const char* port : {Port, "/dev/none"}) {
        set_port_name(base, port);
        EXPECT_EQ(stdout_of([&base] { base.open_tty(); }), "") << port;
        EXPECT_EQ(scene.file("/tmp/uni_logs.general.txt"), "");
        for (const char* kind : {"messages", "debug", "general"}) EXPECT_TRUE(log(kind).empty());
    }
    g_log = nullptr;
}

TEST_F(Km5Process, APortThatDoesNotOpenIsNotTriedAgain) {
    configure(Uuid, 12345678, "/dev/none");
    run(1000);
    EXPECT_TRUE(requests().empty());
    EXPECT_EQ(logged("messages", "KM5::set_tty, tty_fd = -1"), 1);
    EXPECT_EQ(item("MeterModel"), "(none)");
}

// ---- the walk

TEST_F(Km5Process, AMeterIsDescribedOnceAndThenPolledEvery360Seconds) {
    configure(Uuid, 12345678);
    machine.connect(Port, meter);
    run(1400);
    EXPECT_EQ(meter.requests(0), 1U) << "the description";
    EXPECT_EQ(meter.requests(8), 4U) << "a status at each poll; 360 to 370 seconds lie between two";
    EXPECT_EQ(item("MeterModel"), "KM5-2");
    EXPECT_EQ(item("T1"), "95.500000");
    EXPECT_EQ(item("_DriverStatus"), "6");
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Km5Process, TheSettingsOfEachMeterAreAskedForOnce) {
    configure("m1", 12345678);
    configure("m2", 22345671);
    run(3000, {"m1", "m2"});
    EXPECT_EQ(scene.service.requests().size(), 3U) << "the process itself as its first meter, then each meter";
}

TEST_F(Km5Process, MetersOfOneLineArePolledOneAfterTheOther) {
    sim::Km5Meter second({.serial = 22345671, .model = 2});
    configure("m1", 12345678);
    configure("m2", 22345671);
    machine.connect(Port, meter);
    machine.connect(Port, second);
    second.set_value("T1", 33.5F);
    run(1000, {"m1", "m2"});
    EXPECT_EQ(asked_meters(8), "818181");
    EXPECT_EQ(item("T1"), "95.500000");
    EXPECT_EQ(scene.item("m2", 1, "T1"), "33.500000\n");
}

TEST_F(Km5Process, BetweenPassesTheProcessSleepsTenSeconds) {
    configure(Uuid, 12345678);
    machine.connect(Port, meter);
    run(300);
    ASSERT_FALSE(machine.sleeps().empty());
    for (const unsigned seconds : machine.sleeps()) EXPECT_EQ(seconds, 10U);
}

TEST_F(Km5Process, ADeadMeterIsProbedAllTheTimeWithTenSecondsBetween) {
    configure(Uuid, 12345678);
    run(220);
    EXPECT_EQ(requests().size(), 210U) << "21 exchanges of 0.62 seconds, then ten seconds: ten times in 220 seconds";
    for (const auto& request : requests()) EXPECT_EQ(request[4], 44);
    EXPECT_EQ(connected(), "(none)(none)(none)(none)(none)(none)");
}

TEST_F(Km5Process, ADeadMeterDoesNotKeepAnotherFromItsTurn) {
    sim::Km5Meter second({.serial = 22345671, .model = 2});
    configure("m1", 12345678);
    configure("m2", 22345671);
    machine.connect(Port, second);
    run(800, {"m1", "m2"});
    EXPECT_EQ(second.requests(8), 3U);
}

TEST_F(Km5Process, AForceFlagBringsAPollAtTheNextPass) {
    configure(Uuid, 12345678);
    machine.connect(Port, meter);
    machine.at(100, [this] { scene.touch("/tmp/tvk_force_update_m1"); });
    run(200);
    EXPECT_EQ(meter.requests(8), 2U);
}

TEST_F(Km5Process, AMeterWithoutSerialNumberIsNeverPolledNotEvenByForce) {
    configure(Uuid, 0);
    scene.touch("/tmp/tvk_force_update_m1");
    run(3000);
    EXPECT_TRUE(requests().empty());
    EXPECT_EQ(item("_DriverStatus"), "(none)") << "the interval was over from the start: never due";
    EXPECT_GT(logged("debug", "tc_tmp_sernum = 0, ERROR."), 100);
}

TEST_F(Km5Process, AMeterTheServiceDoesNotKnowIsNeverPolled) {
    configure("m1", 12345678);
    machine.connect(Port, meter);
    run(1000, {"m1", "unknown"});
    EXPECT_EQ(meter.requests(8), 3U);
    EXPECT_EQ(asked_meters(44).find_first_not_of('8'), std::string::npos);
}

TEST_F(Km5Process, AFailedDescriptionIsTriedAgainAtTheNextDueTime) {
    configure(Uuid, 12345678);
    machine.connect(Port, meter);
    meter.misbehave_next(21, sim::km5_silence().on(0));
    run(350);
    EXPECT_EQ(meter.requests(0), 21U);
    EXPECT_EQ(meter.requests(8), 0U) << "no pass without a description";
    EXPECT_EQ(item("MeterModel"), "(none)");
    Km5Daemon daemon({Uuid});
    meter.misbehave_next(21, sim::km5_silence().on(0));
    machine.run_for(800, [&daemon] { daemon(); });
    EXPECT_EQ(meter.requests(0), 43U);
    EXPECT_EQ(meter.requests(8), 2U);
    EXPECT_EQ(item("MeterModel"), "KM5-2");
}

TEST_F(Km5Process, AMeterOfTheWrongKindIsNeverRead) {
    sim::Km5Meter att({.att = true});
    configure(Uuid, 12345678);
    machine.connect(Port, att);
    run(1000);
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(att.requests(8), 0U);
    EXPECT_EQ(att.requests(0), 3U) << "asked again every 360 seconds";
}

TEST_F(Km5Process, AMeterSwappedForTheRightKindIsRead) {
    sim::Km5Meter swapped({.att = true});
    configure(Uuid, 12345678);
    machine.connect(Port, swapped);
    machine.at(100, [&] { swapped.swap_for({.att = true, .model_index = 1}); });
    Km5Daemon daemon({Uuid}, false, true);
    machine.run_for(500, [&daemon] { daemon(); });
    EXPECT_EQ(item("MeterModel"), "AT-T-1") << "described before the swap, and not again";
    EXPECT_EQ(connected(), "111111");
}

TEST_F(Km5Process, AKm56iThatIsNotStartedAsOneIsRecognised) {
    // Serial 12345678 has the digit 2 where a KM5-6i has its subsystem: the third one answers first.
    sim::Km5Meter i6({.km56i = true, .subsystems = 3});
    scene.service.set_meter(Uuid, {.serial = 12345678, .port_name = Port, .system_types = {"heat", "heat", "heat"}});
    machine.connect(Port, i6);
    run(200);
    for (int n = 1; n <= 3; ++n) {
        EXPECT_EQ(item("MeterModel", n), "KM5-6и") << n;
        EXPECT_EQ(item("_DriverStatus", n), "6") << n;
    }
}

TEST_F(Km5Process, AMeterThatIsNoKm56iIsNotFoundUnderTheAddressOfOne) {
    sim::Km5Meter other({.serial = 10999991, .model = 2});
    configure("m1", 12345678);
    configure("m2", 10999991);  // the digit is 0 already
    machine.connect(Port, meter);
    machine.connect(Port, other);
    Km5Daemon daemon({"m1", "m2"}, true, false);
    machine.run_for(300, [&daemon] { daemon(); });
    EXPECT_EQ(meter.requests(), 0U);
    EXPECT_EQ(scene.item("m2", 1, "MeterModel"), "KM5-2\n");
    EXPECT_EQ(scene.item("m2", 1, "_DriverStatus"), "6\n");
}

TEST_F(Km5Process, PollsKeepAwayFromTheHourChangeOfTheMeter) {
    configure(Uuid, 12345678);
    machine.connect(Port, meter);
    meter.set_clock("2024-03-02 17:33:00", machine.now());
    run(4 * 3600);
    for (const auto& heard : meter.heard()) {
        const std::time_t shown = meter.clock(heard.at);
        if (heard.command() == 8) {
            EXPECT_GE(shown / 60 % 60, 1);
            EXPECT_LE(shown / 60 % 60, 56);
        }
    }
    EXPECT_GT(meter.requests(8), 35U);
}

TEST_F(Km5Process, APauseFlagFreezesTheWholeWalk) {
    configure(Uuid, 12345678);
    machine.connect(Port, meter);
    machine.at(200, [this] { scene.touch("/tmp/pause_tvk_all"); });
    machine.at(1400, [this] { scene.remove("/tmp/pause_tvk_all"); });
    run(2000);
    EXPECT_EQ(meter.requests(8), 3U) << "after 0 seconds, when the flag has gone, and 360 seconds later";
}

// ---- the file that keeps the data service off the bus

class Km5Extds : public Km5Process {
  protected:
    // 9:00 UTC is hour 474825 since the epoch, a third hour.
    Km5Extds() : Km5Process("2024-03-02 08:40:00") {
        configure(Uuid, 12345678);
        machine.connect(Port, meter);
    }
    std::optional<std::string> pause() const { return scene.file("/tmp/extds_pause"); }
    void caught_up() {
        scene.write("/mnt/storage/m1/1/tc_archives/A1", "1709366400,192,1.000000\n");
        scene.write("/mnt/storage/m1/1/tc_archives/A29", "1709337600,192,1.000000\n");
    }
};

TEST_F(Km5Extds, InEveryThirdHourAProcessThatIsBehindAsksForTheBus) {
    machine.at(19 * 60 + 55, [this] { EXPECT_EQ(pause(), std::nullopt) << "still 08:59"; });
    run(20 * 60 + 15);
    EXPECT_EQ(pause(), "7200");
}

TEST_F(Km5Extds, TheFileIsWrittenAtTheTopOfTheFirstPassBecauseNothingIsKnownYet) {
    caught_up();
    machine.step_clock(30 * 60);  // 09:10
    run(1);
    EXPECT_EQ(pause(), "7200");
}

TEST_F(Km5Extds, InOtherHoursNothingIsWritten) {
    for (const int hours : {2, 1}) {  // 10:40, then 11:40
        machine.step_clock(hours * 3600);
        run(60);
        EXPECT_EQ(pause(), std::nullopt) << hours;
    }
}

TEST_F(Km5Extds, TheFileGoesWhenAllMetersHaveCaughtUp) {
    scene.write("/tmp/extds_pause", "7200");
    caught_up();
    run(60);
    EXPECT_EQ(pause(), std::nullopt);
}

TEST_F(Km5Extds, TheFileStaysWhileOneMeterIsBehind) {
    sim::Km5Meter second({.serial = 22345671, .model = 2});
    configure("m2", 22345671);
    machine.connect(Port, second);
    caught_up();
    scene.write("/tmp/extds_pause", "7200");
    run(60, {"m1", "m2"});
    EXPECT_EQ(pause(), "7200");
}

TEST_F(Km5Extds, AMeterBehindCatchesUpByItsArchivesAndTheFileGoes) {
    meter.record_archives(true, "2024-03-01 12:00");
    run(21 * 60);
    EXPECT_EQ(pause(), "7200");
    run(60 * 60);
    EXPECT_EQ(pause(), std::nullopt);
}

}  // namespace
