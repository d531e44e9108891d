// Connections have their time, and streams their room.

#include "view/guests.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include <gtest/gtest.h>

#include "view/broadcast.h"
#include "view/worker.h"

using view::Broadcast;
using view::Guest;
using view::Guests;
using view::Place;

namespace {

class Visits : public testing::Test {
  protected:
    ~Visits() override {
        for (const auto& pair : pairs) {
            ::close(pair[0]);
            ::close(pair[1]);
        }
    }
    Guest* come(std::int64_t now) {
        auto& pair = pairs.emplace_back();
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
        return guests.come(pair[0], "10.0.0.1", now);
    }
    /// The other end sees the end of the connection.
    bool is_cut(std::size_t visit) {
        char byte = 0;
        return ::recv(pairs[visit][1], &byte, 1, MSG_DONTWAIT) == 0;
    }

    Guests guests;
    std::list<std::array<int, 2>> all;
    std::vector<std::array<int, 2>> pairs;
};

TEST_F(Visits, ThatSayNothingEndAfterAWhile) {
    come(1000);
    EXPECT_EQ(guests.look_round(1000), 1000 + Guests::Patience);
    EXPECT_EQ(guests.look_round(999 + Guests::Patience), 1000 + Guests::Patience);
    EXPECT_FALSE(is_cut(0));
    EXPECT_EQ(guests.look_round(1000 + Guests::Patience), -1);
    EXPECT_TRUE(is_cut(0));
}

TEST_F(Visits, HaveTimeForAnAnswerAndMoreForALongOne) {
    Guest* const guest = come(0);
    Guests::change(*guest, Guest::State::Asked, 100);
    EXPECT_EQ(guests.look_round(100), 100 + Guests::Leisure);
    guest->sent = 1000;
    EXPECT_EQ(guests.look_round(100), 100 + Guests::Leisure + 2000);
    Guests::change(*guest, Guest::State::Silent, 200);
    EXPECT_EQ(guests.look_round(200), 200 + Guests::Patience);
}

TEST_F(Visits, OfListenersLastAsLongAsTheyLike) {
    Guests::change(*come(0), Guest::State::Listening, 0);
    EXPECT_EQ(guests.look_round(1'000'000'000), -1);
    EXPECT_FALSE(is_cut(0));
}

TEST_F(Visits, ThatAreTooManySendAwayTheOneThatIsSilentLongest) {
    Guest* const asks = come(0);
    Guests::change(*asks, Guest::State::Asked, 0);
    for (std::size_t i = 1; i < Guests::Most; ++i) come(static_cast<std::int64_t>(i));
    EXPECT_FALSE(is_cut(1));
    come(1000);
    EXPECT_FALSE(is_cut(0));
    EXPECT_TRUE(is_cut(1));
    EXPECT_FALSE(is_cut(2));
    come(1001);
    EXPECT_TRUE(is_cut(2));
    guests.go(asks);
    EXPECT_EQ(guests.count(), Guests::Most + 1);
}

std::string rest_of(const Broadcast& broadcast, Place& place, std::size_t most = 1000) {
    std::string text;
    for (std::string_view piece; !(piece = broadcast.take(place, most)).empty();) text += piece;
    return text;
}

TEST(Stream, BeginsWithWhatIsToldNext) {
    Broadcast broadcast;
    broadcast.tell("values", "1");
    Place place = broadcast.newest();
    EXPECT_FALSE(broadcast.has_news(place));
    broadcast.tell("values", "{\"a\":2}");
    EXPECT_TRUE(broadcast.has_news(place));
    EXPECT_EQ(rest_of(broadcast, place), "event: values\ndata: {\"a\":2}\n\n");
    EXPECT_FALSE(broadcast.has_news(place));
}

TEST(Stream, IsTakenInPiecesOfAnySize) {
    Broadcast broadcast;
    Place place = broadcast.newest();
    broadcast.tell("a", "1");
    broadcast.tell("b", "2");
    EXPECT_EQ(rest_of(broadcast, place, 3), "event: a\ndata: 1\n\nevent: b\ndata: 2\n\n");
}

TEST(Stream, ThatFallsBehindIsLost) {
    Broadcast broadcast;
    Place slow = broadcast.newest();
    Place fast = broadcast.newest();
    const std::string data(10'000, 'x');
    for (int i = 0; i < 40; ++i) {
        broadcast.tell("values", data);
        rest_of(broadcast, fast);
    }
    EXPECT_TRUE(broadcast.has_lost(slow));
    EXPECT_TRUE(broadcast.take(slow, 100).empty());
    EXPECT_FALSE(broadcast.has_lost(fast));
}

TEST(Worker, DoesOneJobAfterTheOtherAndTellsTheLoop) {
    view::Mailbox mailbox;
    std::vector<int> done;
    {
        view::Worker worker(10);
        for (int i = 0; i < 5; ++i) {
            EXPECT_TRUE(worker.post([&mailbox, &done, i] { mailbox.post([&done, i] { done.push_back(i); }); }));
        }
        while (done.size() < 5) mailbox.run();
    }
    EXPECT_EQ(done, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(Worker, TakesNoMoreThanItHasRoomFor) {
    view::Mailbox mailbox;
    view::Worker worker(1);
    std::mutex gate;
    gate.lock();
    std::atomic<bool> runs = false;
    worker.post([&] {
        runs = true;
        const std::lock_guard wait(gate);
    });
    while (!runs) {
    }
    EXPECT_TRUE(worker.post([] {}));
    EXPECT_FALSE(worker.post([] {}));
    gate.unlock();
    worker.stop();
}

}  // namespace
