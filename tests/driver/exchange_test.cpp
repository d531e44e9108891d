#include "driver/exchange.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/gateway.h"
#include "driver/line_settings.h"
#include "support/bare_gateway.h"
#include "support/scene.h"
#include "support/scripted_meter.h"

namespace {

constexpr char Device[] = "/dev/ttyS1";
constexpr std::uint8_t Ask[] = {'a', 's', 'k'};
constexpr bool Pause = true;
constexpr bool NoPause = false;

/// What both routines have in common.
class EitherExchange : public ::testing::TestWithParam<ExchangeRoutine> {
  protected:
    void SetUp() override {
        scene.gateway.connect(Device, meter);
        fd = open_line(Device, LineOfKm5, 3, 2);  // 9600 baud, silent after 0.6 s
    }

    /// The answer to one request, as text.
    std::string ask(int rx_max = 100, const bool& pause = NoPause) {
        ExchangeAnswer rx{9, 9, 9};  // of an earlier exchange
        const ExchangeRoutine exchange = GetParam();
        EXPECT_EQ(exchange(fd, 10, Bytes(Ask), rx, rx_max, pause), 0);
        return {rx.begin(), rx.end()};
    }
    std::size_t requests() const { return scene.gateway.exchanges().size(); }
    const std::vector<unsigned>& sleeps() const { return scene.gateway.sleeps(); }

    static sim::Burst burst(double delay, const std::string& bytes) { return {delay, {bytes.begin(), bytes.end()}}; }

    Scene scene;
    ScriptedMeter meter;
    int fd = -1;
};

INSTANTIATE_TEST_SUITE_P(Exchange, EitherExchange, ::testing::Values(&exchange_read_all, &exchange_read_bytes),
                         [](const auto& routine) { return routine.index == 0 ? "ReadAll" : "ReadBytes"; });

TEST_P(EitherExchange, SendsTheRequestInOneWriteAndReturnsTheAnswer) {
    meter.will_say("answer");
    EXPECT_EQ(ask(), "answer");
    ASSERT_EQ(requests(), 1U);
    EXPECT_EQ(scene.gateway.exchanges()[0].device, Device);
    EXPECT_EQ(scene.gateway.exchanges()[0].request, (sim::ByteVector{'a', 's', 'k'}));
}

TEST_P(EitherExchange, AnswerMayHoldAnyBytes) {
    const std::string bytes("\0\xFF\n\r\x11\x13\0", 7);
    meter.will_say(bytes);
    EXPECT_EQ(ask(), bytes);
}

TEST_P(EitherExchange, SilentMeterIsAnEmptyAnswerAfterTheSilenceOfTheLine) {
    const double before = scene.gateway.seconds();
    EXPECT_EQ(ask(), "");
    const double took = scene.gateway.seconds() - before;
    EXPECT_GE(took, 0.6);
    EXPECT_LT(took, 0.62);  // the request's own three bytes at 9600 baud, and no more
}

TEST_P(EitherExchange, AnswerGoesOnThroughAPauseThatIsShorterThanTheSilence) {
    meter.will_say({burst(0.5, "one "), burst(0.55, "two "), burst(0.55, "three")});
    EXPECT_EQ(ask(), "one two three");
}

TEST_P(EitherExchange, AnswerEndsWithTheSilenceOfTheLine) {
    meter.will_say({burst(0.1, "one"), burst(0.65, "too late")});
    const double before = scene.gateway.seconds();
    EXPECT_EQ(ask(), "one");
    EXPECT_GE(scene.gateway.seconds() - before, 0.1 + 0.6);
}

TEST_P(EitherExchange, AnswerThatFillsTheBufferEndsThereWithoutAWaitForSilence) {
    meter.will_say("12345678");
    const double before = scene.gateway.seconds();
    EXPECT_EQ(ask(8), "12345678");
    EXPECT_LT(scene.gateway.seconds() - before, 0.1);
}

TEST_P(EitherExchange, RestOfAnAnswerThatIsLongerThanTheBufferIsTakenForTheNextOne) {
    meter.will_say("123456789");
    EXPECT_EQ(ask(8), "12345678");
    meter.will_say("next");
    EXPECT_EQ(ask(), "9next");
}

TEST_P(EitherExchange, LongAnswerIsReadWhole) {
    meter.will_say(std::string(5000, 't'));
    EXPECT_EQ(ask(10'000), std::string(5000, 't'));
}

TEST_P(EitherExchange, BufferWithoutRoomIsAnEmptyAnswer) {
    meter.will_say("12345678");
    EXPECT_EQ(ask(0), "");
    EXPECT_EQ(requests(), 1U);
}

TEST_P(EitherExchange, ShortWriteSkipsTheReading) {
    meter.will_say("answer");
    scene.gateway.limit_writes(Device, 2);
    const double before = scene.gateway.seconds();
    EXPECT_EQ(ask(), "");
    EXPECT_LT(scene.gateway.seconds() - before, 0.1);
}

TEST_P(EitherExchange, FailedWriteSkipsTheReading) {
    scene.gateway.limit_writes(Device, 0);
    const double before = scene.gateway.seconds();
    EXPECT_EQ(ask(), "");
    EXPECT_LT(scene.gateway.seconds() - before, 0.1);
}

TEST_P(EitherExchange, BytesThatLieOnTheLineAlreadyAreTakenForTheAnswer) {
    scene.gateway.put_noise(Device, {'n', 'o', 'i', 's', 'e', ' '});
    meter.will_say("answer");
    EXPECT_EQ(ask(), "noise answer");
}

// ---- no port

TEST_P(EitherExchange, WithoutAPortTheAnswerIsEmptyAndNothingIsWritten) {
    for (const int none : {0, -1}) {
        fd = none;
        EXPECT_EQ(ask(), "");
    }
    EXPECT_EQ(requests(), 0U);
}

TEST_P(EitherExchange, WithoutAPortThePausesAreHonouredAllTheSame) {
    fd = -1;
    scene.touch("/tmp/pause_tvk");
    scene.gateway.at(15, [&] { scene.remove("/tmp/pause_tvk"); });
    EXPECT_EQ(ask(100, Pause), "");
    scene.touch("/tmp/pause_tvk_all");
    scene.gateway.at(5, [&] { scene.remove("/tmp/pause_tvk_all"); });
    EXPECT_EQ(ask(100, Pause), "");
    EXPECT_EQ(sleeps(), (std::vector<unsigned>{10, 10, 10}));
}

// ---- pauses

TEST_P(EitherExchange, WithoutAFlagNobodyWaits) {
    ask(100, Pause);
    EXPECT_TRUE(sleeps().empty());
}

TEST_P(EitherExchange, PauseFlagHoldsTheExchangeBackTenSecondsAtATime) {
    scene.touch("/tmp/pause_tvk");
    scene.gateway.at(25, [&] {
        EXPECT_EQ(requests(), 0U);
        scene.remove("/tmp/pause_tvk");
    });
    meter.will_say("answer");
    EXPECT_EQ(ask(100, Pause), "answer");
    EXPECT_EQ(sleeps(), (std::vector<unsigned>{10, 10, 10}));
}

TEST_P(EitherExchange, PauseFlagDoesNotHoldADriverThatDoesNotHeedIt) {
    scene.touch("/tmp/pause_tvk");
    meter.will_say("answer");
    EXPECT_EQ(ask(100, NoPause), "answer");
    EXPECT_TRUE(sleeps().empty());
}

TEST_P(EitherExchange, PauseFlagForAllHoldsEveryExchange) {
    for (const bool pause : {true, false}) {
        scene.touch("/tmp/pause_tvk_all");
        scene.gateway.at(15, [&] { scene.remove("/tmp/pause_tvk_all"); });
        meter.will_say("answer");
        EXPECT_EQ(ask(100, pause), "answer");
    }
    EXPECT_EQ(sleeps(), (std::vector<unsigned>{10, 10, 10, 10}));
}

TEST_P(EitherExchange, DriverThatStopsHeedingThePauseFlagWaitsNoLonger) {
    bool pause = true;
    scene.touch("/tmp/pause_tvk");
    scene.gateway.at(15, [&] { pause = false; });
    meter.will_say("answer");
    EXPECT_EQ(ask(100, pause), "answer");
    EXPECT_EQ(sleeps(), (std::vector<unsigned>{10, 10}));
}

TEST_P(EitherExchange, FirstFlagIsNotLookedAtAgainAfterTheWaitForTheSecond) {
    scene.touch("/tmp/pause_tvk_all");
    scene.gateway.at(5, [&] {
        scene.touch("/tmp/pause_tvk");
        scene.remove("/tmp/pause_tvk_all");
    });
    meter.will_say("answer");
    EXPECT_EQ(ask(100, Pause), "answer");
    EXPECT_EQ(sleeps(), std::vector<unsigned>{10});
}

TEST_P(EitherExchange, SecondFlagIsWaitedForAfterTheFirst) {
    scene.touch("/tmp/pause_tvk");
    scene.touch("/tmp/pause_tvk_all");
    scene.gateway.at(15, [&] { scene.remove("/tmp/pause_tvk"); });
    scene.gateway.at(35, [&] { scene.remove("/tmp/pause_tvk_all"); });
    ask(100, Pause);
    EXPECT_EQ(sleeps().size(), 4U);
}

TEST_P(EitherExchange, FlagThatComesAfterTheWriteStopsTheNextExchangeOnly) {
    meter.will_say({burst(0.3, "answer")});
    scene.gateway.at(0.1, [&] { scene.touch("/tmp/pause_tvk_all"); });
    EXPECT_EQ(ask(), "answer");
    EXPECT_TRUE(sleeps().empty());
    scene.gateway.at(1, [&] { scene.remove("/tmp/pause_tvk_all"); });
    ask();
    EXPECT_EQ(sleeps(), std::vector<unsigned>{10});
}

TEST_P(EitherExchange, FolderAsAFlagIsAFlag) {
    scene.touch("/tmp/pause_tvk_all/file");
    scene.gateway.at(5, [&] { scene.remove("/tmp/pause_tvk_all"); });
    ask();
    EXPECT_EQ(sleeps(), std::vector<unsigned>{10});
}

TEST_P(EitherExchange, PauseThatIsNeverTakenBackHoldsTheDriverForEver) {
    scene.touch("/tmp/pause_tvk_all");
    scene.gateway.run_for(86400, [&] { ask(); });
    EXPECT_EQ(requests(), 0U);
    EXPECT_EQ(sleeps().size(), 8640U);
}

// ---- what the port is asked for, call by call

using Calls = std::vector<std::string>;

/// A machine that writes down the calls of its port, which has an answer of three bytes in two pieces.
class RecordedPort : public BareGateway {
  public:
    using BareGateway::BareGateway;

    void sleep_nanoseconds(long nanoseconds) override { calls.push_back("flash " + std::to_string(nanoseconds)); }
    ssize_t write_port(int /*fd*/, std::span<const std::uint8_t> bytes) override {
        calls.push_back("write " + std::to_string(bytes.size()));
        return static_cast<ssize_t>(bytes.size());
    }
    int drain_port(int /*fd*/) override {
        calls.emplace_back("drain");
        return 0;
    }
    ssize_t read_port(int /*fd*/, std::span<std::uint8_t> into) override {
        calls.push_back("read " + std::to_string(into.size()));
        const std::size_t piece = std::min({into.size(), left, std::size_t{2}});
        left -= piece;
        return static_cast<ssize_t>(piece);
    }

    std::size_t left = 3;
    Calls calls;
};

Calls calls_of(ExchangeRoutine exchange, int rx_max) {
    const Scene scene;
    RecordedPort port(scene.root());
    set_gateway(&port);
    ExchangeAnswer rx;
    exchange(3, 10, Bytes(Ask), rx, rx_max, NoPause);
    return port.calls;
}

TEST(ExchangeCalls, OfReadingAllTakeWhatIsThereUntilSilenceAndFlashForEachPiece) {
    EXPECT_EQ(calls_of(exchange_read_all, 8),
              (Calls{"write 3", "flash 50", "drain", "read 8", "flash 50", "read 6", "flash 50", "read 5"}));
}

TEST(ExchangeCalls, OfReadingAllAskForNothingMoreOnceTheBufferIsFull) {
    EXPECT_EQ(calls_of(exchange_read_all, 3),
              (Calls{"write 3", "flash 50", "drain", "read 3", "flash 50", "read 1", "flash 50", "read 0"}));
}

TEST(ExchangeCalls, OfReadingByteAfterByteTakeOneAtATimeAndFlashOnce) {
    EXPECT_EQ(calls_of(exchange_read_bytes, 8),
              (Calls{"write 3", "flash 50", "drain", "read 1", "read 1", "read 1", "read 1", "flash 50"}));
    EXPECT_EQ(calls_of(exchange_read_bytes, 2),
              (Calls{"write 3", "flash 50", "drain", "read 1", "read 1", "flash 50"}));
}

}  // namespace
