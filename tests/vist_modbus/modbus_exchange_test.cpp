// One question and its answer on the line: what is sent, what is waited for and how long, and what ends the waiting.

#include "drivers/vist_modbus/modbus_exchange.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "driver/leds.h"
#include "driver/line_settings.h"
#include "support/bare_gateway.h"
#include "support/child.h"
#include "support/modbus_scene.h"
#include "support/scene.h"
#include "support/scripted_meter.h"

namespace {

using sim::ByteVector;

constexpr int Slave = 0x11;
constexpr int Timeout = 600;

/// Three registers: 0xAE41, 0x5652, 0x4340.
ByteVector example(int function = 4) {
    return modbus_bytes::answer(Slave, function, {0xAE, 0x41, 0x56, 0x52, 0x43, 0x40});
}

class ModbusExchange : public ModbusStand {
  protected:
    ModbusExchange() : fd(open_line(Port, LineOfVistModbus, 3, 2)) { machine.connect(Port, meter); }

    int ask_input() { return read_input(fd, area, Slave, 8, 10, Timeout); }
    void will_say(const ByteVector& bytes, double delay = 0.0) { meter.will_say(sim::Answer{{delay, bytes}}); }
    ByteVector heard(std::size_t i = 0) const { return {meter.heard().at(i).begin(), meter.heard().at(i).end()}; }
    ByteVector kept(int length) const { return {area.begin(), area.begin() + length}; }

    ScriptedMeter meter;
    int fd;
    std::array<std::uint8_t, 512> area{};
};

// ---- what is sent

TEST_F(ModbusExchange, HoldingRegistersAreAskedFromTheFirstToTheLast) {
    will_say(example(3));
    int length = 0;
    quietly([&] { length = read_holding(fd, area, Slave, 0x6B, 0x6D, Timeout); });
    EXPECT_EQ(heard(), (ByteVector{0x11, 0x03, 0x00, 0x6B, 0x00, 0x03, 0x76, 0x87}));
    EXPECT_EQ(length, 8);
    EXPECT_EQ(kept(8), (ByteVector{0x03, 0x06, 0x41, 0xAE, 0x52, 0x56, 0x40, 0x43}));
}

TEST_F(ModbusExchange, InputRegistersAreAskedFromTheFirstToTheLast) {
    will_say(modbus_bytes::answer(Slave, 4, {0x00, 0x0A}));
    EXPECT_EQ(read_input(fd, area, Slave, 8, 8, Timeout), 4);
    EXPECT_EQ(heard(), (ByteVector{0x11, 0x04, 0x00, 0x08, 0x00, 0x01, 0xB2, 0x98}));
    EXPECT_EQ(kept(4), (ByteVector{0x04, 0x02, 0x0A, 0x00}));
}

TEST_F(ModbusExchange, AnArchiveRecordIsAskedWithTheSizeOfARecord) {
    will_say(modbus_bytes::answer(Slave, 20, {1, 6}));
    EXPECT_EQ(read_archive_record(fd, area, Slave, 2, 0x0123, Timeout, 54), 4);
    EXPECT_EQ(heard(), sim::modbus_sealed({0x11, 20, 7, 6, 0, 2, 0x01, 0x23, 0, 54}));
}

TEST_F(ModbusExchange, AnArchiveHeaderIsRecordZeroWithTheLengthUpToTheLast) {
    will_say(modbus_bytes::answer(Slave, 20, {1, 6}));
    EXPECT_EQ(read_archive_header(fd, area, Slave, 2, 2 + 47, Timeout), 4);
    EXPECT_EQ(heard(), sim::modbus_sealed({0x11, 20, 7, 6, 0, 2, 0, 0, 0, 48}));
}

TEST_F(ModbusExchange, OnlyFunctionThreeIsShownOnStandardOutput) {
    EXPECT_EQ(stdout_of([&] { read_holding(fd, area, Slave, 0x6B, 0x6D, Timeout); }),
              "Send: 0x11 0x03 0x00 0x6B 0x00 0x03 0x76 0x87 \n");
    EXPECT_EQ(stdout_of([&] {
                  ask_input();
                  read_archive_record(fd, area, Slave, 0, 1, Timeout, 54);
                  read_archive_header(fd, area, Slave, 0, 47, Timeout);
              }),
              "");
}

TEST_F(ModbusExchange, WhatFollowsAnAnswerIsNotTakenForTheNextOne) {
    will_say(modbus_bytes::joined(example(), modbus_bytes::answer(Slave, 4, {1, 2})));
    will_say(example());
    EXPECT_EQ(ask_input(), 8);
    machine.sleep(1);
    EXPECT_EQ(ask_input(), 8);
}

// ---- how long

TEST_F(ModbusExchange, ASilentMeterCosts600Milliseconds) {
    const double before = elapsed();
    EXPECT_EQ(ask_input(), -1);
    EXPECT_GE(elapsed() - before, 0.6);
    EXPECT_LT(elapsed() - before, 0.62);
}

TEST_F(ModbusExchange, ACompleteAnswerEndsTheWaiting) {
    will_say(example(), 0.02);
    const double before = elapsed();
    EXPECT_EQ(ask_input(), 8);
    EXPECT_LT(elapsed() - before, 0.05);
}

TEST_F(ModbusExchange, AnAnswerWithin600MillisecondsIsTaken) {
    will_say(example(), 0.57);
    EXPECT_EQ(ask_input(), 8);
}

TEST_F(ModbusExchange, AnAnswerAfter600MillisecondsIsTooLate) {
    will_say(example(), 0.62);
    EXPECT_EQ(ask_input(), -1);
}

TEST_F(ModbusExchange, AByteCountOf251IsWaitedForUntilTheTimeIsOver) {
    ByteVector long_one = {Slave, 4, 251};
    long_one.resize(3 + 251);
    will_say(sim::modbus_sealed(long_one));
    EXPECT_EQ(ask_input(), -1);
    EXPECT_GE(elapsed(), 0.6);
}

// ---- 300 bytes

TEST_F(ModbusExchange, AnAnswerThatEndsWithThe300thByteIsTaken) {
    will_say(modbus_bytes::joined(ByteVector(300 - 11, 0x00), example()));
    EXPECT_EQ(ask_input(), 8);
}

TEST_F(ModbusExchange, AnAnswerThatEndsBehindThe300thByteIsNot) {
    will_say(modbus_bytes::joined(ByteVector(300 - 10, 0x00), example()));
    EXPECT_EQ(ask_input(), -1);
}

// ---- a line that fails

// ---- the calls, one after the other

/// A port that plays a script. What is called is noted; a flash of a LED too.
class ScriptedPort : public BareGateway {
  public:
    struct Step {
        int result = 1;  ///< of the waiting, or of the reading when bytes are none
        int error = 0;
        ByteVector bytes = {};
        std::int64_t takes = 0;  ///< microseconds
    };

    ScriptedPort() : BareGateway("") {
        root_folder = scene_.root();
        set_gateway(this);
        led_tx_pulse();
        led_rx_pulse();
        has_leds_ = !calls.empty();
        calls.clear();
    }
    ~ScriptedPort() override { set_gateway(nullptr); }
    ScriptedPort(const ScriptedPort&) = delete;
    ScriptedPort& operator=(const ScriptedPort&) = delete;

    std::int64_t steady_microseconds() override { return clock_; }
    void sleep_nanoseconds(long nanoseconds) override { calls += nanoseconds == 50 ? "flash " : "sleep "; }
    void flush_port(int /*fd*/) override { calls += "flush "; }
    int drain_port(int /*fd*/) override {
        calls += "drain ";
        return 0;
    }
    ssize_t write_port(int /*fd*/, std::span<const std::uint8_t> bytes) override {
        calls += "write ";
        return written.value_or(static_cast<ssize_t>(bytes.size()));
    }
    int wait_readable(int /*fd*/, std::int64_t microseconds) override {
        calls += "wait ";
        waits.push_back(microseconds);
        const Step step = next();
        clock_ += step.result == 0 ? microseconds : step.takes;
        errno = step.error;
        return step.result;
    }
    ssize_t read_port(int /*fd*/, std::span<std::uint8_t> into) override {
        calls += "read ";
        rooms.push_back(into.size());
        const Step step = next();
        if (step.bytes.empty()) {
            errno = step.error;
            return step.result;
        }
        std::copy(step.bytes.begin(), step.bytes.end(), into.begin());
        return static_cast<ssize_t>(step.bytes.size());
    }
    void end_exchange(int /*fd*/) override { calls += "end"; }

    int ask() {
        std::array<std::uint8_t, 512> area{};
        return read_input(7, area, Slave, 8, 10, Timeout);
    }

    /// `wanted` as it is in a process whose first LED was not there: it never looks again, and nothing waits for a
    /// flash. Under ctest each of these tests has a process of its own, and flashes.
    std::string here(std::string wanted) const {
        for (std::size_t at = 0; !has_leds_ && (at = wanted.find("flash ")) != std::string::npos;) wanted.erase(at, 6);
        return wanted;
    }

    std::deque<Step> script;         ///< waiting and reading in turn; behind it the time is over
    std::optional<ssize_t> written;  ///< of the bytes to write, where not all of them
    std::string calls;
    std::vector<std::int64_t> waits;  ///< microseconds asked for
    std::vector<std::size_t> rooms;   ///< bytes that a read had room for

  private:
    Step next() {
        if (script.empty()) return {.result = 0};
        Step step = script.front();
        script.pop_front();
        return step;
    }
    std::int64_t clock_ = 1'000'000;
    Scene scene_;
    bool has_leds_ = false;
};

TEST(ModbusCalls, OfAnExchangeComeInTheirOrder) {
    ScriptedPort port;
    port.script = {{}, {.bytes = example()}};
    EXPECT_EQ(port.ask(), 8);
    EXPECT_EQ(port.calls, port.here("flush write flash wait read flash end"));
    EXPECT_EQ(port.waits, std::vector<std::int64_t>{600'000});
    EXPECT_EQ(port.rooms, std::vector<std::size_t>{300});
}

TEST(ModbusCalls, TheExchangeIsEndedAfterSilenceToo) {
    ScriptedPort port;
    EXPECT_EQ(port.ask(), -1);
    EXPECT_EQ(port.calls, port.here("flush write flash wait end"));
}

TEST(ModbusCalls, AFailedWriteIsFollowedByNothing) {
    for (const ssize_t written : {-1, 0, 7}) {
        ScriptedPort port;
        port.written = written;
        port.script = {{}, {.bytes = example()}};
        EXPECT_EQ(port.ask(), -1) << written;
        EXPECT_EQ(port.calls, "flush write ") << written;
    }
}

TEST(ModbusCalls, EachReadThatBringsBytesFlashesTheLed) {
    ScriptedPort port;
    const ByteVector whole = example();
    port.script = {{}, {.bytes = {whole.begin(), whole.begin() + 4}}, {}, {.bytes = {whole.begin() + 4, whole.end()}}};
    EXPECT_EQ(port.ask(), 8);
    EXPECT_EQ(port.calls, port.here("flush write flash wait read flash wait read flash end"));
    EXPECT_EQ(port.rooms, (std::vector<std::size_t>{300, 296}));
}

TEST(ModbusCalls, EachWaitLastsOnlyWhatIsLeftOfTheTime) {
    ScriptedPort port;
    port.script = {{.takes = 200'000}, {.bytes = {0}}, {.takes = 150'000}, {.bytes = {0}}};
    EXPECT_EQ(port.ask(), -1);
    EXPECT_EQ(port.waits, (std::vector<std::int64_t>{600'000, 400'000, 250'000}));
}

TEST(ModbusCalls, AnInterruptedWaitGoesOnWithWhatIsLeft) {
    ScriptedPort port;
    port.script = {{.result = -1, .error = EINTR, .takes = 100'000}, {}, {.bytes = example()}};
    EXPECT_EQ(port.ask(), 8);
    EXPECT_EQ(port.waits, (std::vector<std::int64_t>{600'000, 500'000}));
}

TEST(ModbusCalls, AnInterruptedOrEmptyReadIsTriedAgain) {
    ScriptedPort port;
    port.script = {
        {}, {.result = -1, .error = EINTR}, {}, {.result = -1, .error = EAGAIN}, {}, {.bytes = example()},
    };
    EXPECT_EQ(port.ask(), 8);
    EXPECT_EQ(port.calls, port.here("flush write flash wait read wait read wait read flash end"));
}

TEST(ModbusCalls, AnyOtherErrorEndsTheWaiting) {
    for (const int error : {EIO, EBADF}) {
        ScriptedPort waiting;
        waiting.script = {{.result = -1, .error = error}, {}, {.bytes = example()}};
        EXPECT_EQ(waiting.ask(), -1);
        EXPECT_EQ(waiting.calls, waiting.here("flush write flash wait end"));
        ScriptedPort reading;
        reading.script = {{}, {.result = -1, .error = error}, {}, {.bytes = example()}};
        EXPECT_EQ(reading.ask(), -1);
        EXPECT_EQ(reading.calls, reading.here("flush write flash wait read end"));
    }
}

TEST(ModbusCalls, AReadOfNothingEndsTheWaiting) {
    ScriptedPort port;
    port.script = {{}, {.result = 0}, {}, {.bytes = example()}};
    EXPECT_EQ(port.ask(), -1);
    EXPECT_EQ(port.calls, port.here("flush write flash wait read end"));
}

TEST(ModbusCalls, AFullAreaEndsTheWaiting) {
    ScriptedPort port;
    for (int i = 0; i < 4; ++i) {
        port.script.push_back({});
        port.script.push_back({.bytes = ByteVector(100, 0)});
    }
    EXPECT_EQ(port.ask(), -1);
    EXPECT_EQ(port.rooms, (std::vector<std::size_t>{300, 200, 100}));
    EXPECT_EQ(port.script.size(), 2U);
}

}  // namespace
