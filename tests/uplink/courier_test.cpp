// What a courier does when a broker answers, does not, or answers what nobody has asked.

#include "uplink/courier.h"

#include "uplink/stand.h"

using uplink::Event;
using uplink::State;

namespace {

class ACourier : public testing::Test {
  protected:
    void write_hours(int first, int count) {
        const std::string path = "/mnt/storage/m1/1/tc_archives/A1";
        scene.write(path, scene.file(path).value_or("") + hour_lines(first, count));
    }

    Scene scene;
    Folder folder;
    State state{folder.path};
    Stream stream;
};

TEST_F(ACourier, KeepsWhatWasConfirmedAndNothingElse) {
    write_hours(0, 2);
    {
        Life life(state);
        life.connect();
        life.courier->look_at_records("m1", 1);
        life.pass_all(stream);
        write_hours(2, 1);
        life.courier->look_at_records("m1", 1);
        life.courier->act(life.now);
        EXPECT_EQ(life.sink->sent.size(), 1U);  // and it dies before the answer
    }
    Life life(state);
    life.connect();
    life.courier->look_at_records("m1", 1);
    life.pass_all(stream);
    EXPECT_EQ(stream.lines(), (std::vector<std::string>{"m1/A1 1709377200 192 0.0", "m1/A1 1709380800 192 1.0",
                                                        "m1/A1 1709384400 192 2.0"}));
}

TEST_F(ACourier, TakesNoAnswerToWhatItHasNotSent) {
    write_hours(0, 2);
    Life life(state);
    life.connect();
    life.courier->look_at_records("m1", 1);
    life.courier->act(life.now);
    ASSERT_EQ(life.sink->sent.size(), 1U);
    const std::uint64_t number = life.sink->sent.front().first;
    for (const std::uint64_t other : {number + 1, number + 1000, std::uint64_t{0}}) {
        life.courier->take({.what = Event::What::Confirmed, .number = other, .sequence = 7}, life.now);
    }
    life.courier->take({.what = Event::What::Lost}, life.now);
    life.courier->take({.what = Event::What::Confirmed, .number = number, .sequence = 7}, life.now);
    life.courier->finish();
    Life later(state);
    later.connect();
    later.courier->look_at_records("m1", 1);
    later.pass_all(stream);
    EXPECT_EQ(stream.lines().size(), 2U);
}

TEST_F(ACourier, WaitsLongerAfterEachFailureAndNeverLongerThanFiveMinutes) {
    Life life(state);
    std::int64_t longest = 0;
    for (int failure = 0; failure < 20; ++failure) {
        life.courier->act(life.now);
        EXPECT_EQ(life.sink->connects, failure + 1);
        life.courier->take({.what = Event::What::Lost, .reason = "away"}, life.now);
        const std::int64_t pause = life.courier->next_due() - life.now;
        const std::int64_t most = std::min<std::int64_t>(300'000, 1000LL << std::min(failure, 10));
        EXPECT_GE(pause, most / 2);
        EXPECT_LE(pause, most);
        longest = std::max(longest, pause);
        life.now += pause - 1;
        life.courier->act(life.now);
        EXPECT_EQ(life.sink->connects, failure + 1);
        ++life.now;
    }
    EXPECT_GT(longest, 150'000);
}

TEST_F(ACourier, IsWokenForNothingWhileThereIsNothingToDo) {
    write_hours(0, 2);
    Life life(state);
    life.connect();
    life.courier->look_at_records("m1", 1);
    life.pass_all(stream);
    EXPECT_EQ(life.courier->next_due(), -1);
}

TEST_F(ACourier, LeavesABrokerThatDoesNotAnswer) {
    write_hours(0, 2);
    Life life(state);
    life.connect();
    life.courier->look_at_records("m1", 1);
    life.courier->act(life.now);
    EXPECT_EQ(life.courier->next_due(), life.now + 60'000);
    life.now += 60'000;
    life.courier->act(life.now);
    EXPECT_EQ(life.sink->ends, 1);
    life.courier->take({.what = Event::What::Lost}, life.now);
    life.now += 1000;
    life.sink->sent.clear();
    life.connect();
    life.pass_all(stream);
    EXPECT_EQ(stream.lines().size(), 2U);
}

TEST_F(ACourier, OneAnswerThatDoesNotComeIsMissedAlthoughOthersDo) {
    write_hours(0, 2);
    Life life(state);
    life.connect();
    life.courier->look_at_records("m1", 1);
    life.courier->act(life.now);
    const std::int64_t sent_at = life.now;
    ASSERT_EQ(std::exchange(life.sink->sent, {}).size(), 1U);  // whose answer gets lost
    for (int i = 0; life.sink->ends == 0 && i < 20; ++i) {
        scene.write("/mnt/storage/m2/1/tc_archives/A1", hour_lines(0, i + 1));
        life.courier->look_at_records("m2", 1);
        life.pass(stream);
        life.now += 10'000;
        life.courier->act(life.now);
    }
    EXPECT_EQ(life.sink->ends, 1);
    EXPECT_LT(life.now - sent_at, 75'000);
}

TEST_F(ACourier, RecordsHaveTheirTurnAlthoughValuesWouldFillTheLine) {
    write_hours(0, 500);
    const auto large = [](const std::vector<uplink::Values::Value>& values, std::vector<uplink::Message>& messages) {
        for (const auto& value : values) messages.push_back({.topic = value.item.name, .body = std::string(9000, 'v')});
    };
    Life life(state, plain_settings(), large);
    life.connect();
    life.courier->look_at_records("m1", 1);
    int records = 0;
    for (int i = 0; i < 10; ++i) {
        scene.write("/tmp/m1/1/tc_items/T1", std::to_string(i) + ".5\n");
        life.courier->look_at_values("m1", 1);
        life.courier->act(life.now);
        life.now += 2000;  // not fast: the line lets no more through
        for (const auto& [number, message] : std::exchange(life.sink->sent, {})) {
            records += message.topic.ends_with("hourly") ? 1 : 0;
            life.courier->take({.what = Event::What::Confirmed, .number = number, .sequence = number}, life.now);
        }
    }
    EXPECT_GE(records, 4);
}

TEST_F(ACourier, WhatIsRefusedIsSentAgainLater) {
    write_hours(0, 2);
    Life life(state);
    life.connect();
    life.courier->look_at_records("m1", 1);
    life.courier->act(life.now);
    life.courier->take({.what = Event::What::Refused, .number = 1, .reason = "no room"}, life.now);
    EXPECT_EQ(life.sink->ends, 1);
    life.courier->take({.what = Event::What::Lost}, life.now);
    life.now += 1000;
    life.sink->sent.clear();
    life.connect();
    life.pass_all(stream);
    EXPECT_EQ(stream.lines().size(), 2U);
}

// The stream has forgotten the first batch, and remembers the second: sent again, the second would be dropped, and the
// first would stand behind it.
TEST_F(ACourier, WhatAStreamRemembersComesAgainBehindWhatItHasForgotten) {
    write_hours(0, 2);
    Folder other;
    State before(other.path);
    {
        Life life(before);
        life.connect();
        life.courier->look_at_records("m1", 1);
        life.pass_all(stream);
        write_hours(2, 2);
        life.courier->look_at_records("m1", 1);
        life.pass_all(stream);
    }
    ASSERT_EQ(stream.messages.size(), 2U);
    stream.ids.erase(stream.messages.front().id);
    scene.write("/mnt/storage/m1/1/tc_archives/A1", hour_lines(0, 2));
    Life life(state);
    life.connect();
    life.courier->look_at_records("m1", 1);
    life.pass_all(stream);
    write_hours(2, 2);
    life.courier->look_at_records("m1", 1);
    life.pass_all(stream);
    const std::vector<std::string> lines = stream.lines();
    ASSERT_EQ(lines.size(), 8U);
    EXPECT_EQ(std::vector(lines.begin() + 4, lines.end()), std::vector(lines.begin(), lines.begin() + 4));
    EXPECT_EQ(life.courier->next_due(), -1);
}

TEST_F(ACourier, SendsNoMoreLinesThanItMay) {
    write_hours(0, 5000);
    uplink::Settings settings = plain_settings();
    settings.lines_per_second = 50;
    Life life(state, settings);
    life.connect();
    life.courier->look_at_records("m1", 1);
    for (int second = 0; second < 20; ++second) life.pass(stream);  // of 1.1 s each
    EXPECT_NEAR(static_cast<double>(stream.lines().size()), 20 * 1.1 * 50, 100);
    EXPECT_GE(life.courier->next_due(), 0);
}

TEST_F(ACourier, AnotherNameOfTheGatewaySendsAllAgain) {
    write_hours(0, 2);
    for (const char* const name : {"g", "h", "h"}) {
        uplink::Settings settings = plain_settings();
        settings.gateway = name;
        Life life(state, settings);
        life.connect();
        life.courier->look_at_records("m1", 1);
        life.pass_all(stream);
    }
    EXPECT_EQ(stream.lines().size(), 4U);
}

TEST_F(ACourier, ABrokenStateIsPutAsideAndAllIsSentAgain) {
    const std::string path = folder.path + "/uplink.db";
    Folder other;
    std::ofstream(other.path + "/uplink.db") << std::string(5000, 'x');
    State broken(other.path);
    EXPECT_TRUE(broken.was_broken());
    EXPECT_TRUE(std::filesystem::exists(other.path + "/uplink.db.broken"));
    write_hours(0, 2);
    Life life(broken);
    life.connect();
    life.courier->look_at_records("m1", 1);
    life.pass_all(stream);
    EXPECT_EQ(stream.lines().size(), 2U);
}

}  // namespace
