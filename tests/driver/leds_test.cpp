#include "driver/leds.h"

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "driver/exchange.h"
#include "driver/line_settings.h"
#include "support/fresh_process.h"
#include "support/scene.h"
#include "support/scripted_meter.h"

namespace {

// A LED's file is opened once in the life of the process. So each of these tests looks from a process of its own, and
// its file collects all that was written to the LED since.
class LedsDeathTest : public ::testing::Test {
  protected:
    void SetUp() override { use_fresh_process(); }

    static std::string transmit(const Scene& scene) { return scene.file("/proc/leds/kr_red").value_or("none"); }
    static std::string receive(const Scene& scene) { return scene.file("/proc/leds/lan").value_or("none"); }

    /// Ends the process: with status 0 if `work` found what it looked for.
    [[noreturn]] static void look(const std::function<bool(Scene&)>& work) {
        std::optional<Scene> scene(std::in_place);
        const bool found = work(*scene);
        scene.reset();
        std::exit(found ? 0 : 1);
    }

    /// What both LEDs got during one exchange with a meter that answers in two bursts.
    static bool exchange_shows(ExchangeRoutine routine, bool port_is_open, const std::string& answer,
                               const std::string& transmitted, const std::string& received) {
        Scene scene;
        ScriptedMeter meter;
        scene.gateway.connect("/dev/ttyS1", meter);
        const int fd = port_is_open ? open_line("/dev/ttyS1", LineOfKm5, 3, 2) : -1;
        if (!answer.empty()) {
            meter.will_say({{0.1, {answer.begin(), answer.end()}}, {0.3, {answer.begin(), answer.end()}}});
        }
        constexpr std::uint8_t Ask[] = {1, 2, 3};
        ExchangeAnswer rx;
        routine(fd, 10, Bytes(Ask), rx, 100, false);
        return transmit(scene) == transmitted && receive(scene) == received;
    }
};

const ::testing::ExitedWithCode Found(0);

TEST_F(LedsDeathTest, PulseIsOnAndOff) {
    EXPECT_EXIT(look([](Scene& scene) {
                    led_tx_pulse();
                    const bool one = transmit(scene) == "10" && receive(scene).empty();
                    led_tx_pulse();
                    led_rx_pulse();
                    return one && transmit(scene) == "1010" && receive(scene) == "10";
                }),
                Found, "");
}

TEST_F(LedsDeathTest, StateIsOneCharacter) {
    EXPECT_EXIT(look([](Scene& scene) {
                    set_led_tx(true);
                    set_led_rx(false);
                    return transmit(scene) == "1" && receive(scene) == "0";
                }),
                Found, "");
}

TEST_F(LedsDeathTest, BothAreOffWithALineEndAsTheProcessStarts) {
    EXPECT_EXIT(look([](Scene& scene) {
                    scene.write("/proc/leds/kr_red", "1");
                    scene.write("/proc/leds/lan", "1");
                    leds_off();
                    return transmit(scene) == "0\n" && receive(scene) == "0\n";
                }),
                Found, "");
}

TEST_F(LedsDeathTest, FilesThatAreMissingAreNotMade) {
    EXPECT_EXIT(look([](Scene& scene) {
                    scene.remove("/proc/leds/kr_red");
                    scene.remove("/proc/leds/lan");
                    led_tx_pulse();
                    led_rx_pulse();
                    return !scene.exists("/proc/leds/kr_red") && !scene.exists("/proc/leds/lan");
                }),
                Found, "");
}

TEST_F(LedsDeathTest, GatewayWithoutThemMissesNothing) {
    EXPECT_EXIT(look([](Scene& scene) {
                    scene.remove("/proc");
                    leds_off();
                    led_tx_pulse();
                    led_rx_pulse();
                    return !scene.exists("/proc");
                }),
                Found, "");
}

TEST_F(LedsDeathTest, FileThatCouldNotBeOpenedIsNotTriedAgain) {
    EXPECT_EXIT(look([](Scene& scene) {
                    scene.remove("/proc/leds/kr_red");
                    led_tx_pulse();
                    scene.touch("/proc/leds/kr_red");
                    led_tx_pulse();
                    return transmit(scene).empty();
                }),
                Found, "");
}

TEST_F(LedsDeathTest, ReadingAllShowsEachPieceOfTheAnswer) {
    EXPECT_EXIT(std::exit(exchange_shows(exchange_read_all, true, "x", "10", "1010") ? 0 : 1), Found, "");
}

TEST_F(LedsDeathTest, ReadingByteAfterByteShowsTheAnswerOnce) {
    EXPECT_EXIT(std::exit(exchange_shows(exchange_read_bytes, true, "several bytes", "10", "10") ? 0 : 1), Found, "");
}

TEST_F(LedsDeathTest, SilentMeterShowsTheRequestOnly) {
    EXPECT_EXIT(std::exit(exchange_shows(exchange_read_all, true, "", "10", "") ? 0 : 1), Found, "");
    EXPECT_EXIT(std::exit(exchange_shows(exchange_read_bytes, true, "", "10", "") ? 0 : 1), Found, "");
}

TEST_F(LedsDeathTest, ExchangeWithoutAPortShowsNothing) {
    EXPECT_EXIT(std::exit(exchange_shows(exchange_read_bytes, false, "", "", "") ? 0 : 1), Found, "");
}

TEST_F(LedsDeathTest, RequestThatWasNotSentWholeShowsNothing) {
    EXPECT_EXIT(look([](Scene& scene) {
                    scene.gateway.add_device("/dev/ttyS1");
                    const int fd = open_line("/dev/ttyS1", LineOfKm5, 3, 2);
                    scene.gateway.limit_writes("/dev/ttyS1", 2);
                    constexpr std::uint8_t ask[] = {1, 2, 3};
                    ExchangeAnswer rx;
                    exchange_read_bytes(fd, 10, ask, rx, 100, false);
                    return transmit(scene).empty() && receive(scene).empty();
                }),
                Found, "");
}

}  // namespace
