#include "sim_gateway.h"

#include <array>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/scene.h"

namespace {

using sim::Answer;
using sim::ByteVector;

/// Says the same to every request, and remembers what it heard and when.
class Parrot final : public sim::SimMeter {
  public:
    explicit Parrot(Answer says) : answer(std::move(says)) {}

    Answer hear(std::span<const std::uint8_t> request, std::time_t now) override {
        heard.emplace_back(request.begin(), request.end());
        heard_at.push_back(now);
        return answer;
    }

    Answer answer;
    std::vector<ByteVector> heard;
    std::vector<std::time_t> heard_at;
};

class SimMachine : public ::testing::Test {
  protected:
    static constexpr const char* Port = "/dev/ttyS1";

    /// An open port, eight bits without parity unless told, 0.6 s of patience.
    int open_line(tcflag_t speed, tcflag_t more = 0) {
        machine.add_device(Port);
        const int fd = machine.open_port(Port);
        termios line{};
        line.c_cflag = CS8 | CREAD | CLOCAL | speed | more;
        line.c_cc[VTIME] = 6;
        EXPECT_EQ(machine.set_line(fd, line), 0);
        return fd;
    }

    void send(int fd, const ByteVector& request) {
        EXPECT_EQ(machine.write_port(fd, request), static_cast<ssize_t>(request.size()));
        EXPECT_EQ(machine.drain_port(fd), 0);
    }

    /// Reads of one byte up to a silence.
    ByteVector answer(int fd) {
        ByteVector result;
        std::uint8_t byte = 0;
        while (machine.read_port(fd, {&byte, 1}) == 1) result.push_back(byte);
        return result;
    }

    double elapsed() { return machine.seconds() - start; }

    Scene scene{"2024-03-02 10:00:00"};
    sim::SimGateway& machine = scene.gateway;
    const double start = machine.seconds();
    static constexpr double Tick = 10e-6;  // what a few looks at the clock may cost
};

TEST_F(SimMachine, TheClockMovesOnlyWhenSomebodySleeps) {
    EXPECT_EQ(machine.now(), 1709373600);
    machine.sleep(3600);
    EXPECT_EQ(machine.now(), 1709377200);
    machine.sleep_nanoseconds(500'000'000);
    EXPECT_NEAR(elapsed(), 3600.5, Tick);
    EXPECT_EQ(machine.sleeps(), std::vector<unsigned>{3600});
}

TEST_F(SimMachine, AnEndlessLoopIsLeftAtTheEndOfTheRun) {
    int passes = 0;
    machine.run_for(60, [&] {
        for (;;) {
            ++passes;
            machine.sleep(25);
        }
    });
    EXPECT_EQ(passes, 3);
    EXPECT_DOUBLE_EQ(elapsed(), 60.0);
    machine.sleep(60);
    EXPECT_DOUBLE_EQ(elapsed(), 120.0) << "the end holds for its run only";
}

TEST_F(SimMachine, ALoopThatOnlyLooksAtTheClockEndsToo) {
    machine.run_for(0.01, [&] {
        while (machine.now() < 2'000'000'000) continue;
    });
    EXPECT_NEAR(elapsed(), 0.01, Tick);
}

TEST_F(SimMachine, ALoopOverAPortThatDoesNotOpenEndsToo) {
    machine.run_for(0.01, [&] {
        for (;;) EXPECT_EQ(machine.open_port("/dev/none"), -1);
    });
    EXPECT_NEAR(elapsed(), 0.01, Tick);
}

TEST_F(SimMachine, AnActionThatReturnsEndsItsRun) {
    machine.run_for(60, [&] { machine.sleep(7); });
    EXPECT_DOUBLE_EQ(elapsed(), 7.0);
}

TEST_F(SimMachine, ARunUntilALocalTimeEndsThereInTheTimeZoneOfTheScene) {
    machine.run_until("2024-03-02 11:31", [&] { machine.sleep(100'000); });
    EXPECT_EQ(machine.now(), 1709373600 + 91 * 60);
}

TEST(SimMachineElsewhere, TheStartIsLocalTime) {
    Scene scene("2024-03-02 10:00", "MSK-3");
    EXPECT_EQ(gateway().now(), 1709373600 - 3 * 3600);
}

TEST_F(SimMachine, ActionsFallDueInTheMiddleOfASleepInTheirOrder) {
    std::vector<std::pair<char, double>> fired;
    machine.at(5, [&] { fired.emplace_back('b', elapsed()); });
    machine.at(2, [&] { fired.emplace_back('a', elapsed()); });
    machine.at(5, [&] { fired.emplace_back('c', elapsed()); });
    machine.at(11, [&] { fired.emplace_back('d', elapsed()); });
    machine.sleep(10);
    EXPECT_EQ(fired, (std::vector<std::pair<char, double>>{{'a', 2.0}, {'b', 5.0}, {'c', 5.0}}));
    EXPECT_DOUBLE_EQ(elapsed(), 10.0);
}

TEST_F(SimMachine, ASteppedClockMovesNeitherTheMetersTimeNorTheEndOfTheRun) {
    Parrot meter(Answer{});
    machine.connect(Port, meter);
    const int fd = open_line(B9600);
    machine.step_clock(-3600);
    EXPECT_EQ(machine.now(), 1709370000);
    send(fd, {1});
    EXPECT_EQ(meter.heard_at, std::vector<std::time_t>{1709373600});
    machine.run_for(10, [&] { machine.sleep(1000); });
    EXPECT_NEAR(elapsed(), -3590.0, 0.01);
}

TEST_F(SimMachine, AnUnknownDescriptorIsAnError) {
    std::uint8_t byte = 0;
    EXPECT_EQ(machine.read_port(3, {&byte, 1}), -1);
    EXPECT_EQ(machine.write_port(-1, {&byte, 1}), -1);
    EXPECT_EQ(machine.drain_port(0), -1);
    EXPECT_EQ(machine.set_line(100000, termios{}), -1);
}

TEST_F(SimMachine, TheMeterHearsARequestWhenItHasBeenSentWhole) {
    Parrot meter(Answer{});
    machine.connect(Port, meter);
    const int fd = open_line(B2400);
    send(fd, ByteVector(240, 0x55));
    EXPECT_NEAR(elapsed(), 1.0, Tick) << "240 bytes of 10 bits at 2400 baud";
    ASSERT_EQ(meter.heard.size(), 1U);
    EXPECT_EQ(meter.heard[0].size(), 240U);
    ASSERT_EQ(machine.exchanges().size(), 1U);
    EXPECT_EQ(machine.exchanges()[0].device, Port);
    EXPECT_NEAR(machine.exchanges()[0].at, start, Tick);
}

TEST_F(SimMachine, ParityMakesAByteElevenBitsLong) {
    const int fd = open_line(B4800, PARENB);
    send(fd, ByteVector(480, 0));
    EXPECT_NEAR(elapsed(), 1.1, Tick);
}

TEST_F(SimMachine, ALineWithoutSpeedBitsRunsAt9600) {
    const int fd = open_line(B0);
    send(fd, ByteVector(960, 0));
    EXPECT_NEAR(elapsed(), 1.0, Tick);
}

TEST_F(SimMachine, AnAnswerComesAfterTheTurnaroundByteByByte) {
    Parrot meter(Answer{{.delay_seconds = 0, .bytes = {7, 8, 9}}});
    machine.connect(Port, meter);
    const int fd = open_line(B1200);
    send(fd, {1, 2});
    std::uint8_t byte = 0;
    for (int i = 1; i <= 3; ++i) {
        ASSERT_EQ(machine.read_port(fd, {&byte, 1}), 1);
        EXPECT_EQ(byte, 6 + i);
        EXPECT_NEAR(elapsed(), 2 / 120.0 + 0.020 + i / 120.0, Tick);
    }
    EXPECT_EQ(machine.read_port(fd, {&byte, 1}), 0);
    EXPECT_NEAR(elapsed(), 5 / 120.0 + 0.020 + 0.6, Tick);
}

TEST_F(SimMachine, ALargeReadReturnsWhatHasArrived) {
    Parrot meter(Answer{{.delay_seconds = 0.1, .bytes = {7, 8, 9}}});
    machine.connect(Port, meter);
    const int fd = open_line(B9600);
    send(fd, {1});
    std::array<std::uint8_t, 16> into{};
    EXPECT_EQ(machine.read_port(fd, into), 1) << "the first byte wakes the reader";
    machine.sleep(1);
    EXPECT_EQ(machine.read_port(fd, into), 2);
    EXPECT_EQ(into[1], 9);
    EXPECT_EQ(machine.read_port(fd, {}), 0);
}

TEST_F(SimMachine, BytesWrittenAndNotDrainedAreSentBeforeARead) {
    Parrot meter(Answer{{.delay_seconds = 0, .bytes = {7}}});
    machine.connect(Port, meter);
    const int fd = open_line(B9600);
    machine.write_port(fd, ByteVector{1});
    EXPECT_EQ(answer(fd), ByteVector{7});
}

TEST_F(SimMachine, WhatComesAfterTheSilenceStaysForTheNextExchange) {
    Parrot meter(Answer{{.delay_seconds = 0, .bytes = {1}}, {.delay_seconds = 0.7, .bytes = {2}}});
    machine.connect(Port, meter);
    const int fd = open_line(B9600);
    send(fd, {0});
    EXPECT_EQ(answer(fd), ByteVector{1});
    machine.disconnect_all(Port);
    send(fd, {0});
    EXPECT_EQ(answer(fd), ByteVector{2});
}

TEST_F(SimMachine, SettingTheLineDropsWhatHasArrivedAndKeepsWhatComesLater) {
    Parrot meter(Answer{{.delay_seconds = 0, .bytes = {1}}, {.delay_seconds = 2, .bytes = {2}}});
    machine.connect(Port, meter);
    const int fd = open_line(B9600);
    send(fd, {0});
    machine.sleep(1);
    EXPECT_EQ(machine.set_line(fd, termios(machine.line_of(Port))), 0);
    machine.sleep(2);
    EXPECT_EQ(answer(fd), ByteVector{2});
    EXPECT_EQ(machine.times_line_set(Port), 2);
}

TEST_F(SimMachine, NoiseIsReadBeforeTheAnswer) {
    Parrot meter(Answer{{.delay_seconds = 0, .bytes = {1}}});
    machine.connect(Port, meter);
    const int fd = open_line(B9600);
    machine.put_noise(Port, {0xFF, 0xFE});
    send(fd, {0});
    EXPECT_EQ(answer(fd), (ByteVector{0xFF, 0xFE, 1}));
}

TEST_F(SimMachine, NoiseInTheMiddleOfASilenceIsReadAtItsMoment) {
    const int fd = open_line(B9600);
    machine.at(0.25, [&] { machine.put_noise(Port, {0xFF}); });
    std::uint8_t byte = 0;
    EXPECT_EQ(machine.read_port(fd, {&byte, 1}), 1);
    EXPECT_NEAR(elapsed(), 0.25, Tick);
}

TEST_F(SimMachine, TwoMetersSpeakingAtOnceCollide) {
    Parrot one(Answer{{.delay_seconds = 0, .bytes = {0x0F, 0x11}}});
    Parrot other(Answer{{.delay_seconds = 0, .bytes = {0xF1, 0x10, 0x22}}});
    machine.connect(Port, one);
    machine.connect(Port, other);
    const int fd = open_line(B9600);
    send(fd, {0});
    EXPECT_EQ(answer(fd), (ByteVector{0xFE, 0x01, 0x22}));
}

TEST_F(SimMachine, TwoMetersSpeakingOneAfterTheOtherAreBothHeard) {
    Parrot late(Answer{{.delay_seconds = 0.3, .bytes = {3, 4}}});
    Parrot early(Answer{{.delay_seconds = 0.1, .bytes = {1, 2}}});
    machine.connect(Port, late);
    machine.connect(Port, early);
    const int fd = open_line(B9600);
    send(fd, {0});
    EXPECT_EQ(answer(fd), (ByteVector{1, 2, 3, 4}));
}

TEST_F(SimMachine, APortCanTakeLessThanWasWritten) {
    const int fd = open_line(B9600);
    machine.limit_writes(Port, 2);
    EXPECT_EQ(machine.write_port(fd, ByteVector{1, 2, 3}), 2);
    machine.limit_writes(Port, 0);
    EXPECT_EQ(machine.write_port(fd, ByteVector{1, 2, 3}), -1);
}

}  // namespace
