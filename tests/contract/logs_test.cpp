#include "contract/logs.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include <gtest/gtest.h>

#include "contract/log_story.h"
#include "core/uni_log.h"
#include "support/bare_gateway.h"

using contract::Log;
using contract::LogFollower;

namespace {

constexpr const char* Path = "/tmp/uni_logs.m1.txt";

class Machine : public BareGateway {
  public:
    using BareGateway::BareGateway;
    timeval time_of_day() override { return {milliseconds / 1000, milliseconds % 1000 * 1000}; }
    std::int64_t milliseconds = 1709380800000;
};

class Logs : public testing::Test {
  protected:
    Logs() : folder(testing::TempDir() + "logs-" + std::to_string(::getpid())), machine(folder) {
        ::setenv("TZ", "UTC-3", 1);
        ::tzset();
        std::filesystem::create_directories(folder + "/tmp");
        set_gateway(&machine);
    }
    ~Logs() override {
        set_gateway(nullptr);
        std::filesystem::remove_all(folder);
    }

    void write(UniLog& log, const std::string& text) {
        machine.milliseconds += 10;
        written.push_back(log.time_prefix() + text);
        log_line(&log, text);
    }
    static std::vector<std::string> lines_of(const Log& log) {
        std::vector<std::string> lines;
        for (const auto& line : log.lines()) lines.emplace_back(line.whole);
        return lines;
    }
    /// The log tells of the last lines that were written, all of them and nothing else.
    void expect_order(const Log& log) const {
        const auto lines = lines_of(log);
        ASSERT_LE(lines.size(), written.size());
        EXPECT_TRUE(std::equal(lines.rbegin(), lines.rend(), written.rbegin()));
    }

    std::string folder;
    Machine machine;
    std::vector<std::string> written;
};

TEST_F(Logs, ALogThatWritesOverItselfIsReadInOrder) {
    std::mt19937 random(1);
    UniLog log(UniLog::ToFile, Path, "");
    for (int turn = 0; turn < 60; ++turn) {
        for (int i = 0; i < 400; ++i) write(log, std::string(random() % 60, 'x'));
        const Log read = contract::read_log(Path);
        expect_order(read);
        if (HasFailure()) return;
        EXPECT_TRUE(!read.is_wrapped() || read.lines().size() > 3000);
    }
}

TEST_F(Logs, AClockThatWasSetBackBeforeTheNewestLineIsNoSeam) {
    UniLog log(UniLog::ToFile, Path, "");
    for (int i = 0; i < 6000; ++i) write(log, "before the clock was set");
    machine.milliseconds -= 3600 * 1000;
    for (int i = 0; i < 100; ++i) write(log, "and after it");
    std::ifstream file(folder + Path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    expect_order(Log(text, machine.now()));
}

TEST_F(Logs, HolesOfOtherProcessesAreNoLines) {
    std::string bytes = "02/03/24 12:00:05.000 : of the one that was started last\n";
    bytes += std::string(5000, '\0');
    bytes += "02/03/24 12:00:04.000 : of another\n02/03/24 12:00:06.000 : and more\n";
    const Log log(bytes);
    const std::vector<std::string> expected = {"02/03/24 12:00:04.000 : of another",
                                               "02/03/24 12:00:05.000 : of the one that was started last",
                                               "02/03/24 12:00:06.000 : and more"};
    EXPECT_EQ(lines_of(log), expected);
}

TEST_F(Logs, ALineThatWasWrittenOverEndsWhereTheNextOneBegins) {
    const Log log("02/03/24 12:00:05.000 : half a li02/03/24 12:00:06.000 : a whole one\nand what belongs to it\n");
    ASSERT_EQ(log.lines().size(), 3u);
    EXPECT_EQ(log.lines()[0].text, "half a li");
    EXPECT_EQ(log.lines()[1].text, "a whole one");
    EXPECT_FALSE(log.lines()[2].has_time);
    EXPECT_EQ(log.lines()[2].milliseconds, log.lines()[1].milliseconds);
    EXPECT_EQ(log.lines()[1].milliseconds - log.lines()[0].milliseconds, 1000);
}

TEST_F(Logs, AnyNumberOfLinesMayBeGluedTogether) {
    constexpr std::size_t Many = 40'000;
    std::string text;
    for (std::size_t i = 0; i < Many; ++i) text += "02/03/24 12:00:05.000 : ";
    EXPECT_EQ(Log(text).lines().size(), Many);
}

TEST_F(Logs, AFollowerSeesEachLineOnceAcrossTheSeam) {
    std::mt19937 random(2);
    UniLog log(UniLog::ToFile, Path, "");
    LogFollower follower;
    std::vector<std::string> seen;
    for (int turn = 0; turn < 400; ++turn) {
        for (unsigned i = random() % 100; i > 0; --i) write(log, std::string(random() % 80, 'y'));
        const Log read = contract::read_log(Path);
        bool anew = false;
        for (std::size_t i = follower.new_lines(read, anew); i < read.lines().size(); ++i) {
            seen.emplace_back(read.lines()[i].whole);
        }
        ASSERT_FALSE(anew) << turn;
    }
    EXPECT_EQ(seen, written);
}

TEST_F(Logs, AFollowerNoticesThatAProcessWasStartedAgain) {
    LogFollower follower;
    bool anew = false;
    EXPECT_EQ(follower.new_lines(Log("02/03/24 12:00:05.000 : one\n02/03/24 12:00:06.000 : two\n"), anew), 0u);
    EXPECT_FALSE(anew);
    EXPECT_EQ(follower.new_lines(Log(""), anew), 0u);
    EXPECT_FALSE(anew);
    EXPECT_EQ(follower.new_lines(Log("02/03/24 12:00:09.000 : one\n"), anew), 0u);
    EXPECT_TRUE(anew);
}

TEST_F(Logs, HaveNames) {
    EXPECT_EQ(contract::log_path("general"), "/tmp/uni_logs.general.txt");
    EXPECT_EQ(contract::log_path("m1:messages"), "/tmp/uni_logs.m1.messages.txt");
    EXPECT_EQ(contract::log_path("m1"), "/tmp/uni_logs.m1.debug.txt");
    UniLog log(UniLog::ToFile, Path, "");
    EXPECT_EQ(contract::log_path("m1"), Path);
    for (const char* name : {"", "..", "a/b", "m1:secrets", ":debug", "../../etc/passwd"}) {
        EXPECT_EQ(contract::log_path(name), "") << name;
    }
}

std::string story_of(const std::string& text) {
    const Log log(text);
    contract::LogStory story;
    std::vector<contract::StoryLine> lines;
    for (const auto& line : log.lines()) story.take(line, lines);
    story.finish(lines);
    std::string result;
    for (const auto& line : lines) result += line.text + '\n';
    return result;
}

std::string km5_try(const std::string& clock, const std::string& bytes, const std::string& end) {
    const std::string begin = "02/03/24 " + clock + ".000 : ";
    return begin + "Send request, cmd: 44, " + bytes + " bytes received.\n" + begin + "Send dump:\n" + begin +
           "Dumping packet:\n" + begin + " 0x78 0x56\n\n" + begin + "Dumping packet done.\n" + begin +
           "Checking control sum...\n" + begin + end + "\n";
}

TEST_F(Logs, TriesWithoutAnAnswerAreFoldedIntoALine) {
    const std::string silent =
        "Checking control sum : failure\n02/03/24 22:29:10.001 : Request: Failure\nError, ErrorCount = 1";
    std::string text = "02/03/24 22:29:00.000 : Subsystem = 0\n";
    for (const char* clock : {"22:29:10", "22:29:12", "22:29:14"}) text += km5_try(clock, "0", silent);
    text += km5_try("22:29:16", "9", "Checking control sum : failure");
    text += km5_try("22:29:18", "9", "Checking control sum : failure");
    text += "02/03/24 22:29:19.000 : ErrorCount > MAX, Connected = false\n";
    EXPECT_EQ(story_of(text),
              "02/03/24 22:29:00.000 : Subsystem = 0\n"
              "22:29:10 to 22:29:14: 3 tries, nothing heard\n"
              "22:29:16 to 22:29:18: 2 tries, something heard that is no answer\n"
              "02/03/24 22:29:19.000 : ErrorCount > MAX, Connected = false\n");
    const contract::Silence silence = contract::silence_at_end(Log(text));
    EXPECT_EQ(silence.tries, 5);
    EXPECT_EQ(silence.with_bytes, 2);
    EXPECT_EQ(silence.until - silence.since, 8);
    EXPECT_FALSE(silence.last_answer);
}

TEST_F(Logs, AnsweredAndSingleTriesStayAsTheyAre) {
    const std::string text = km5_try("22:29:10", "16", "Checking control sum : success") +
                             km5_try("22:29:11", "0", "Checking control sum : failure") +
                             km5_try("22:29:12", "16", "Checking control sum : success");
    EXPECT_EQ(story_of(text), text);
    EXPECT_EQ(contract::silence_at_end(Log(text)).tries, 0);
}

TEST_F(Logs, TriesOfTheOtherFamiliesAreKnown) {
    const auto lines = [](std::initializer_list<const char*> texts) {
        std::string log;
        for (const char* text : texts) log += std::string("02/03/24 22:29:10.000 : ") + text + '\n';
        return contract::silence_at_end(Log(log));
    };
    EXPECT_EQ(lines({"Send 3 bytes: ", "Dumping packet:", "Recv 0 bytes: ", "Must be response"}).tries, 1);
    EXPECT_EQ(lines({"Send 3 bytes: ", "Recv 2 bytes: ", "Must be response"}).tries, 0);
    EXPECT_EQ(lines({"Send 3 bytes: ", "Recv 0 bytes: ", "Response must not be, return."}).tries, 0);
    EXPECT_EQ(lines({"Sending req 'x'...", "Received: -1 bytes (4 awaiting)."}).tries, 1);
    EXPECT_EQ(lines({"Sending req 'x'...", "Received: 6 bytes (4 awaiting)."}).tries, 0);
    EXPECT_EQ(lines({"Requesting: VER", "send_request::send 4 bytes.", "send_request::Received 0 bytes."}).tries, 1);
    EXPECT_EQ(lines({"Requesting: VER", "send_request::Received 9 bytes.", "Response = x",
                     "TC : ", "Packet 0 in Call FAIL [error format, text].", "setConnected(true)"})
                  .with_bytes,
              1);
    EXPECT_EQ(lines({"Requesting: /ARC", "send_request::Received 12 bytes.", "Response error.", "TC : E:PARAM",
                     "Packet 0 in Call FAIL [error format, text]."})
                  .tries,
              0);
    EXPECT_EQ(lines({"Requesting: END", "send_request::Request is END => return false;"}).tries, 0);
}

}  // namespace
