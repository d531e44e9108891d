#include "config/publisher.h"

#include <climits>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/uni_log.h"
#include "support/child.h"
#include "support/fresh_process.h"
#include "support/machines.h"
#include "support/scene.h"

namespace {

using Names = std::vector<std::string>;

class PublisherTest : public ::testing::Test {
  protected:
    void SetUp() override { scene.make_tree("u"); }

    /// The file that a value of the item "T1" of subsystem 1 leaves.
    template <typename Value>
    std::optional<std::string> published(const Value& value) {
        EXPECT_EQ(put_item(value, "u", "T1", nullptr, 1), 1);
        return scene.item("u", 1, "T1");
    }

    Scene scene{"2024-03-02 10:00:00"};
};

// ---- texts of values

TEST_F(PublisherTest, WholeNumberIsItsDigitsAndALineEnd) {
    EXPECT_EQ(published(3), "3\n");
    EXPECT_EQ(published(-1), "-1\n");
    EXPECT_EQ(published(INT_MIN), "-2147483648\n");
}

TEST_F(PublisherTest, TimeIsItsSecondsSinceTheEpoch) {
    EXPECT_EQ(published(1700000000L), "1700000000\n");
    EXPECT_EQ(published(-1L), "-1\n");
}

TEST_F(PublisherTest, LargestSerialNumberFits) {
    EXPECT_EQ(published(18446744073709551615ULL), "18446744073709551615\n");
}

TEST_F(PublisherTest, MeasuredValueHasSixDigitsBehindThePoint) {
    EXPECT_EQ(published(12.5), "12.500000\n");
    EXPECT_EQ(published(0.0), "0.000000\n");
    EXPECT_EQ(published(-0.0000005), "-0.000000\n");
    EXPECT_EQ(published(1e15), "1000000000000000.000000\n");
}

TEST_F(PublisherTest, MeasuredValueThatIsNoNumberIsPublishedAsSuch) {
    EXPECT_EQ(published(std::numeric_limits<double>::quiet_NaN()), "nan\n");
    EXPECT_EQ(published(-std::numeric_limits<double>::infinity()), "-inf\n");
}

TEST_F(PublisherTest, TextIsItselfAndALineEnd) {
    EXPECT_EQ(published("KM5-6"), "KM5-6\n");
    EXPECT_EQ(published(std::string("a  b ")), "a  b \n");
    EXPECT_EQ(published(std::string("6\xD0\xB8")), "6\xD0\xB8\n");
    EXPECT_EQ(published(""), "\n");
}

TEST_F(PublisherTest, TextThatMeansSomethingToAShellIsWrittenLiterally) {
    for (const char* text :
         {"*", "~", "!", "#", "%d%s%n", "a;b", "a>b", "'a'", "a\"b", "$HOME", "`id`", "\\n", "a\nb"}) {
        EXPECT_EQ(published(text), std::string(text) + "\n");
    }
}

TEST_F(PublisherTest, PlainTextIsWrittenAsAShellWouldEchoIt) {
    constexpr char Plain[] = " \t\n!#%&'()*+,./0123456789:;<=>?@ABZ[]^_abz{|}~\xD0\xB8";  // no quote, \, $ and `
    std::mt19937 random(20240302);
    for (int round = 0; round < 60; ++round) {
        std::string text;
        for (std::size_t length = random() % 40; text.size() < length;) text += Plain[random() % (sizeof Plain - 1)];
        const std::string command = "echo \"" + text + "\" > " + scene.real_path("/tmp/echoed");
        ASSERT_EQ(std::system(command.c_str()), 0);
        EXPECT_EQ(published(text), scene.file("/tmp/echoed")) << text;
    }
}

TEST_F(PublisherTest, TextThatLooksLikeAnOptionIsText) {
    for (const std::string value : {"-n", "-n ", "-e", "-x"}) EXPECT_EQ(published(value), value + "\n");
}

TEST_F(PublisherTest, TextEndsAtItsFirstZeroByte) {
    EXPECT_EQ(published(std::string("ab\0cd", 5)), "ab\n");
}

// ---- files of items

TEST_F(PublisherTest, ItemStandsInItsSubsystem) {
    put_item(7, "u", "Status", nullptr, 6);
    EXPECT_EQ(scene.item("u", 6, "Status"), "7\n");
    EXPECT_FALSE(scene.item("u", 1, "Status"));
}

TEST_F(PublisherTest, NewValueReplacesALongerOne) {
    EXPECT_EQ(published("a long text"), "a long text\n");
    EXPECT_EQ(published("b"), "b\n");
}

TEST_F(PublisherTest, LogIsNotUsed) {
    UniLog log(UniLog::ToFile, "/tmp/log.txt", "");
    EXPECT_EQ(put_item(7, "u", "Status", &log, 1), 1);
    EXPECT_EQ(scene.file("/tmp/log.txt"), "");
}

TEST_F(PublisherTest, MissingFolderIsNotMadeAndNotReported) {
    const std::string err = stderr_of([] {
        EXPECT_EQ(put_item(7, "unknown", "T1", nullptr, 1), 1);
        EXPECT_EQ(put_item(7, "u", "T1", nullptr, 7), 1);
        EXPECT_EQ(put_item(7, "u", "none/T1", nullptr, 1), 1);
    });
    EXPECT_EQ(err, "");
    EXPECT_EQ(scene.list("/tmp"), Names{"u"});
    EXPECT_FALSE(scene.exists("/tmp/u/7"));
}

TEST_F(PublisherTest, FolderThatIsAFileIsNotReported) {
    scene.remove("/tmp/u/1/tc_items");
    scene.write("/tmp/u/1/tc_items", "in the way");
    EXPECT_FALSE(published(7));
    EXPECT_EQ(scene.file("/tmp/u/1/tc_items"), "in the way");
}

TEST_F(PublisherTest, FullStorageIsNotReported) {
    const FullStorage machine;
    EXPECT_EQ(put_item(7, "u", "T1", nullptr, 1), 1);
}

TEST_F(PublisherTest, ItemWhoseNameIsAFolderIsNotPublished) {
    scene.touch("/tmp/u/1/tc_items/T1/file");
    EXPECT_FALSE(published(7));
    EXPECT_EQ(scene.list("/tmp/u/1/tc_items/T1"), Names{"file"});
}

// ---- the limit: the command [echo "<value>" > /tmp/<uuid>/<n>/tc_items/<item>] has 149 characters at most; without
// value, uuid and item it has 27

TEST_F(PublisherTest, CommandOf149CharactersIsWhole) {
    const std::string value(149 - 27 - 1 - 2, 'v');
    EXPECT_EQ(published(value), value + "\n");
}

TEST_F(PublisherTest, LongerCommandLosesTheEndOfTheItemsName) {
    const std::string value(149 - 27 - 1 - 2, 'v');
    EXPECT_EQ(put_item(value, "u", "T12", nullptr, 1), 1);
    EXPECT_EQ(scene.list("/tmp/u/1/tc_items"), Names{"T1"});
    EXPECT_EQ(scene.item("u", 1, "T1"), value + "\n");
}

TEST_F(PublisherTest, CommandThatEndsBeforeTheItemsNameWritesWhereItsPathEnds) {
    const std::string value(149 - 27 - 1 + 2, 'v');
    EXPECT_EQ(put_item(value, "u", "T1", nullptr, 1), 1);
    EXPECT_EQ(scene.list("/tmp/u/1"), (Names{"tc_item", "tc_items"}));
    EXPECT_EQ(scene.file("/tmp/u/1/tc_item"), value + "\n");
    EXPECT_EQ(scene.list("/tmp/u/1/tc_items"), Names{});
}

TEST_F(PublisherTest, CommandThatEndsAtOrBeforeAFolderWritesNothing) {
    // Behind the value the command goes on with [" > /tmp/u/1/tc_items/T1].
    for (const std::size_t length :
         {121, 122, 130, 131, 132, 133, 134, 135, 136, 138, 140, 141, 142, 143, 149, 150, 1000}) {
        EXPECT_EQ(put_item(std::string(length, 'v'), "u", "T1", nullptr, 1), 1);
    }
    EXPECT_EQ(scene.list("/tmp/u/1/tc_items"), Names{});
    EXPECT_EQ(scene.list("/tmp/u/1"), Names{"tc_items"});
    EXPECT_EQ(scene.list("/tmp"), Names{"u"});
}

TEST_F(PublisherTest, HugeMeasuredValueDoesNotFitItsCommand) {
    EXPECT_FALSE(published(1e300));
}

TEST_F(PublisherTest, LongUuidShortensTheItemsName) {
    const std::string uuid(149 - 27 - 1 - 6, 'u');  // six of nine letters are left
    scene.make_tree(uuid);
    setConnected(true, uuid);
    for (int n = 1; n <= 6; ++n) EXPECT_EQ(scene.item(uuid, n, "Connec"), "1\n");
    EXPECT_FALSE(scene.item(uuid, 1, "Connected"));
}

TEST_F(PublisherTest, UuidOf300CharactersWritesOneFileBelowTmp) {
    setConnected(true, std::string(300, 'u'));
    const std::string name(149 - 11 - 5, 'u');  // what the command holds behind its first words and "/tmp/"
    EXPECT_EQ(scene.list("/tmp"), (Names{"u", name}));
    EXPECT_EQ(scene.file("/tmp/" + name), "1\n");
}

// ---- Connected

TEST_F(PublisherTest, ConnectedIsWrittenIntoAllSixSubsystems) {
    setConnected(true, "u");
    for (int n = 1; n <= 6; ++n) EXPECT_EQ(scene.item("u", n, "Connected"), "1\n");
    setConnected(false, "u");
    for (int n = 1; n <= 6; ++n) EXPECT_EQ(scene.item("u", n, "Connected"), "0\n");
    EXPECT_EQ(scene.list("/tmp/u"), (Names{"1", "2", "3", "4", "5", "6", "default"}));
}

TEST_F(PublisherTest, ConnectedOfOneMissingSubsystemDoesNotKeepItFromTheOthers) {
    scene.remove("/tmp/u/3");
    setConnected(true, "u");
    EXPECT_FALSE(scene.exists("/tmp/u/3"));
    EXPECT_EQ(scene.item("u", 6, "Connected"), "1\n");
}

TEST_F(PublisherTest, StagesOfAPassHaveTheirNumbers) {
    EXPECT_EQ(published(static_cast<int>(StatusIterationBegun)), "0\n");
    EXPECT_EQ(published(static_cast<int>(StatusDescription)), "1\n");
    EXPECT_EQ(published(static_cast<int>(StatusCurrentValues)), "2\n");
    EXPECT_EQ(published(static_cast<int>(StatusHourlyArchive)), "3\n");
    EXPECT_EQ(published(static_cast<int>(StatusDailyArchive)), "4\n");
    EXPECT_EQ(published(static_cast<int>(StatusErrorArchive)), "5\n");
    EXPECT_EQ(published(static_cast<int>(StatusIterationOver)), "6\n");
}

// ---- the state file

TEST_F(PublisherTest, StateFileIsOneLineWithTheLocalTime) {
    driver_state("u", "reading archives");
    EXPECT_EQ(scene.file("/tmp/driver.u.state"), "[02.03.2024 10:00:00] [u]  reading archives\n");
}

TEST(PublisherZoneTest, StateFileHasTheTimeOfTheGatewaysZone) {
    const Scene scene("2024-07-01 00:30:09", "CET-1CEST,M3.5.0,M10.5.0/3");
    driver_state("u", "x");
    EXPECT_EQ(scene.file("/tmp/driver.u.state"), "[01.07.2024 00:30:09] [u]  x\n");
}

TEST_F(PublisherTest, StateFileHoldsOnlyTheLastLine) {
    driver_state("u", "a long text about archives");
    driver_state("u", "ready");
    EXPECT_EQ(scene.file("/tmp/driver.u.state"), "[02.03.2024 10:00:00] [u]  ready\n");
}

TEST_F(PublisherTest, StateLineIsCutAt511Characters) {
    driver_state("u", std::string(600, 'x'));
    const std::string head = "[02.03.2024 10:00:00] [u]  ";
    EXPECT_EQ(scene.file("/tmp/driver.u.state"), head + std::string(511 - head.size(), 'x'));
}

TEST_F(PublisherTest, TextOfTheStateIsNoFormat) {
    driver_state("%s", "%d%n");
    EXPECT_EQ(scene.file("/tmp/driver.%s.state"), "[02.03.2024 10:00:00] [%s]  %d%n\n");
}

TEST_F(PublisherTest, StateFileThatCannotBeOpenedIsNothing) {
    const std::string err = stderr_of([] {
        driver_state("none/u", "x");
        driver_state(std::string(300, 'u'), "x");
    });
    scene.remove("/tmp");
    driver_state("u", "x");
    EXPECT_EQ(err, "");
    EXPECT_FALSE(scene.exists("/tmp"));
}

TEST_F(PublisherTest, FullStorageUnderTheStateFileIsNotReported) {
    const FullStorage machine;
    EXPECT_EQ(stderr_of([] { driver_state("u", "x"); }), "");
}

// ---- the service's twin of an item

TEST_F(PublisherTest, ValueForTheServiceIsACallWithFourParameters) {
    put_current_value("T1", 71.25, 3, -4);
    const auto values = scene.service.current_values();
    ASSERT_EQ(values.size(), 1U);
    EXPECT_EQ(values[0].name, "T1");
    EXPECT_EQ(values[0].value, 71.25);
    EXPECT_EQ(values[0].a, 3);
    EXPECT_EQ(values[0].b, -4);
    const std::string request = scene.service.requests().at(0);
    EXPECT_EQ(request.substr(request.find(',')),
              ",\"jsonrpc\":\"2.0\",\"method\":\"put_current_value\",\"params\":[\"T1\",71.25,3,-4]}\n");
}

int ids_start_at_one() {
    Scene scene;
    put_current_value("T1", 1.5, 0, 0);
    put_current_value("T1", 1.5, 0, 0);
    const Names requests = scene.service.requests();
    return requests.size() == 2 && requests[0].starts_with("{\"id\":1,") && requests[1].starts_with("{\"id\":2,") ? 0
                                                                                                                  : 1;
}

TEST(PublisherDeathTest, IdsOfValuesForTheServiceStartAtOne) {
    use_fresh_process();  // the counter lives as long as the process
    EXPECT_EXIT(std::exit(ids_start_at_one()), ::testing::ExitedWithCode(0), "");
}

TEST_F(PublisherTest, LostCallIsToldAndDoesNotEndTheProcess) {
    scene.service.hang_up();
    EXPECT_EQ(stderr_of([] { put_current_value("T1", 1.5, 0, 0); }), "Error while receiving data!\n");
    scene.gateway.set_service_address("http://127.0.0.1:1/");
    EXPECT_EQ(stderr_of([] { put_current_value("T1", 1.5, 0, 0); }), "Error while sending data!\n");
}

TEST_F(PublisherTest, AnswerOfTheServiceIsNotLookedAt) {
    scene.service.answer_with("<html>");
    EXPECT_EQ(stderr_of([] { put_current_value("T1", 1.5, 0, 0); }), "");
}

}  // namespace
