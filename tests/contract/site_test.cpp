// What stands in the folders of a gateway may be anything.

#include "contract/site.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <fstream>

#include <gtest/gtest.h>

#include "contract/events.h"
#include "contract/items.h"
#include "contract/plain_text.h"
#include "core/gateway_wrapper.h"
#include "support/scene.h"

namespace {

using Texts = std::vector<std::string>;

class Site : public testing::Test {
  protected:
    void link(const std::string& target, const std::string& path) {
        ASSERT_EQ(::symlink(target.c_str(), scene.real_path(path).c_str()), 0);
    }

    Scene scene;
};

TEST_F(Site, MetersAreTheFoldersWithASystem) {
    scene.write("/tmp/a/1/tc_items/T1", "1\n");
    scene.write("/mnt/storage/b b/6/tc_archives/A1", "");
    scene.write("/tmp/other/file", "");
    scene.write("/tmp/c/7/x", "");
    EXPECT_EQ(contract::meters(), (Texts{"a", "b b"}));
}

TEST_F(Site, NothingOutsideOfTheRootIsReached) {
    link("/etc", "/tmp/outside");
    scene.write("/tmp/a/1/tc_items/T1", "1\n");
    link("/etc/passwd", "/tmp/a/1/tc_items/T2");
    link("/etc", "/tmp/a/2");
    scene.write("/mnt/storage/a/1/x", "");
    link("/etc/passwd", "/mnt/storage/a/1/A1");
    EXPECT_EQ(contract::meters(), Texts{"a"});
    EXPECT_FALSE(contract::open_for_reading("/tmp/a/1/tc_items/T2").is_open());
    EXPECT_FALSE(contract::open_for_reading("/mnt/storage/a/1/A1").is_open());
    EXPECT_FALSE(contract::open_for_reading("/../../../../../../../../etc/passwd").is_open());
    EXPECT_EQ(contract::names_in("/tmp/outside"), Texts{});
}

TEST_F(Site, LoopsAndPipesHangNothing) {
    link("b", "/tmp/a");
    link("a", "/tmp/b");
    scene.write("/tmp/m/1/tc_items/T1", "1\n");
    ASSERT_EQ(::mkfifo(scene.real_path("/tmp/m/1/tc_items/T2").c_str(), 0600), 0);
    EXPECT_EQ(contract::meters(), Texts{"m"});
    EXPECT_EQ(contract::read_items("m", 1).size(), 1u);
}

TEST_F(Site, ACopyThatIsBeingFilledIsWaitedFor) {
    class Filling : public GatewayWrapper {
      public:
        explicit Filling(std::string copy) : path_(std::move(copy)) {}
        void sleep_nanoseconds(long nanoseconds) override {
            slept += nanoseconds;
            if (++steps_ <= 5) std::ofstream(path_, std::ios::app) << "1709388000,192,1.000000\n";
        }
        timeval time_of_day() override { return {.tv_sec = ::time(nullptr), .tv_usec = 0}; }
        long slept = 0;

      private:
        std::string path_;
        int steps_ = 0;
    };
    const std::string path = "/mnt/storage/m/1/tc_tmp_archives/A1";
    scene.write(path, "");
    Filling machine(scene.real_path(path));
    File file = contract::open_archive(path);
    struct stat status {};
    ASSERT_TRUE(file.look(status));
    EXPECT_EQ(status.st_size, 5 * 24);
    EXPECT_LT(machine.slept, 1'000'000'000);
}

TEST_F(Site, AnItemIsItsTextAndAgeAndMeaning) {
    scene.write("/tmp/m/1/tc_items/T1", "71.250000\n");
    scene.write("/tmp/m/1/tc_items/empty", "");
    const auto items = contract::read_items("m", 1, contract::VISTmodbus);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].name, "T1");
    EXPECT_EQ(items[0].text, "71.250000");
    EXPECT_EQ(items[0].entry->unit, "°C");
    EXPECT_EQ(items[1].text, "");
    EXPECT_EQ(items[1].entry, nullptr);
}

TEST(MeterNames, NoneLeadsOutOfTheFolder) {
    contract::MeterSystem meter;
    for (const char* text : {"", ".", "..", "a/b", "../a", "a/0", "a/7", "a/1/2", "/1"}) {
        EXPECT_FALSE(contract::parse_meter_system(text, meter)) << text;
    }
    EXPECT_TRUE(contract::parse_meter_system("6f9619ff-8b86-d011-b42d-00c04fc964ff/3", meter));
    EXPECT_EQ(meter.system, 3);
    EXPECT_TRUE(contract::parse_meter_system("a", meter));
    EXPECT_EQ(meter.system, 1);
}

TEST(PlainText, NothingActsOnATerminal) {
    EXPECT_EQ(contract::for_terminal("ВИСТ-2 °C"), "ВИСТ-2 °C");
    const std::string mark = "\xEF\xBF\xBD";
    EXPECT_EQ(contract::for_terminal("a\033[2Jb\r\n\tc\x7F"), "a" + mark + "[2Jb" + mark + mark + mark + 'c' + mark);
    EXPECT_EQ(contract::for_terminal("\xC2\x9B"
                                     "31m"),
              mark + "31m");  // one character that begins a sequence
    EXPECT_EQ(contract::for_terminal("\xE2\x80\xAE"
                                     "abc"),
              mark + "abc");  // right to left
    EXPECT_EQ(contract::for_terminal("\xFF\xC0\xAF\xED\xA0\x80"), mark + mark + mark + mark + mark + mark);
    EXPECT_EQ(contract::valid_utf8("a\tb\xC3"), "a\tb" + mark);
}

TEST(PlainText, IsCutAtAWholeCharacter) {
    EXPECT_EQ(contract::within_columns("тепло", 3), "теп");
    EXPECT_EQ(contract::within_columns("°C", 1), "°");
    EXPECT_EQ(contract::within_columns("abc", 3), "abc");
    EXPECT_EQ(contract::within_columns("abc", 0), "");
}

TEST_F(Site, AnEventHasItsBeginAndItsEnd) {
    scene.write("/mnt/storage/m/1/tc_archives/_A57",
                "100,192,87.000000\n300,0,87.000000\n200,192,12.000000\n100,192,87.000000\n150,0,5.000000\nx\n");
    std::size_t unreadable = 0;
    const auto events = contract::read_events("/mnt/storage/m/1/tc_archives", {}, unreadable);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].code, "87");
    EXPECT_EQ(events[0].begin, 100);
    EXPECT_EQ(events[0].end, 300);
    EXPECT_EQ(events[1].code, "5");
    EXPECT_FALSE(events[1].begin);
    EXPECT_EQ(events[2].begin, 200);
    EXPECT_FALSE(events[2].end);
    EXPECT_EQ(unreadable, 1u);
}

}  // namespace
