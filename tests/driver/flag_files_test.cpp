#include "driver/flag_files.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/scene.h"

namespace {

using Names = std::vector<std::string>;

class FlagFilesTest : public ::testing::Test {
  protected:
    Scene scene;
    FlagFiles& flags = FlagFiles::instance();
};

TEST_F(FlagFilesTest, ThereIsOneInAProcess) {
    EXPECT_EQ(&FlagFiles::instance(), &flags);
}

TEST_F(FlagFilesTest, FlagIsSetAndCleared) {
    EXPECT_FALSE(flags.is_set("u", 0));
    flags.set("u", 0);
    EXPECT_TRUE(flags.is_set("u", 0));
    EXPECT_EQ(scene.file("/tmp/DRV_LCK_u"), "");
    flags.clear("u", 0);
    EXPECT_FALSE(flags.is_set("u", 0));
    EXPECT_EQ(scene.list("/tmp"), Names{});
}

TEST_F(FlagFilesTest, KindIsThePrefixOfTheName) {
    flags.set("u", FlagFiles::DriverLock);
    flags.set("u", FlagFiles::ReportLock);
    EXPECT_EQ(scene.list("/tmp"), (Names{"DRV_LCK_u", "RPRT_LCK_u"}));
    EXPECT_EQ(FlagFiles::DriverLock, 0);
    EXPECT_EQ(FlagFiles::ReportLock, 1);
    flags.clear("u", 1);
    EXPECT_TRUE(flags.is_set("u", 0));
}

TEST_F(FlagFilesTest, AnyOtherKindHasNoPrefix) {
    scene.touch("/tmp/u");
    for (const int kind : {2, -1}) EXPECT_TRUE(flags.is_set("u", kind)) << kind;
    flags.clear("u", 2);
    EXPECT_EQ(scene.list("/tmp"), Names{});
    flags.set("u", 7);
    EXPECT_EQ(scene.list("/tmp"), Names{"u"});
}

TEST_F(FlagFilesTest, FlagsOfTwoMetersDoNotMix) {
    flags.set("u1", 0);
    EXPECT_FALSE(flags.is_set("u2", 0));
    flags.clear("u2", 0);
    EXPECT_TRUE(flags.is_set("u1", 0));
}

TEST_F(FlagFilesTest, FlagOfANeighbourIsSeen) {
    scene.write("/tmp/RPRT_LCK_u", "since ten\n");
    EXPECT_TRUE(flags.is_set("u", 1));
}

TEST_F(FlagFilesTest, SettingAFlagThatIsSetKeepsItsContent) {
    scene.write("/tmp/DRV_LCK_u", "text");
    flags.set("u", 0);
    EXPECT_EQ(scene.file("/tmp/DRV_LCK_u"), "text");
}

TEST_F(FlagFilesTest, FlagThatCannotBeReadCountsAsAbsent) {
    std::filesystem::create_symlink("/nowhere/at/all", scene.real_path("/tmp/RPRT_LCK_dangling"));
    EXPECT_FALSE(flags.is_set("dangling", 1));
    EXPECT_FALSE(flags.is_set(std::string(300, 'u'), 1));
    EXPECT_FALSE(flags.is_set("none/u", 1));
}

TEST_F(FlagFilesTest, FlagThatCannotBeMadeOrRemovedIsNotReported) {
    const std::string err = stderr_of([&] {
        for (const std::string& uuid : {std::string(300, 'u'), std::string("none/u")}) {
            flags.set(uuid, 0);
            flags.clear(uuid, 0);
        }
        scene.remove("/tmp");
        flags.set("u", 0);
        flags.clear("u", 0);
    });
    EXPECT_EQ(err, "");
    EXPECT_FALSE(scene.exists("/tmp"));
}

// ---- the pause of the outside data service

class ExtdsPause : public FlagFilesTest {
  protected:
    static constexpr char Path[] = "/tmp/extds_pause";
};

TEST_F(ExtdsPause, IsAFileOfExactlyItsSeconds) {
    extds_pause(0, "7200");
    EXPECT_EQ(scene.file(Path), "7200");
}

TEST_F(ExtdsPause, ReplacesALongerOne) {
    scene.write(Path, "a longer text");
    extds_pause(0, "3600");
    EXPECT_EQ(scene.file(Path), "3600");
}

TEST_F(ExtdsPause, IsTakenBackByModeOneWhateverTheText) {
    extds_pause(0, "7200");
    extds_pause(1, "1800");
    EXPECT_FALSE(scene.exists(Path));
    extds_pause(1, "1800");
    EXPECT_FALSE(scene.exists(Path));
}

TEST_F(ExtdsPause, OfAnyOtherModeIsNothing) {
    for (const int mode : {2, -1}) {
        extds_pause(mode, "7200");
        EXPECT_FALSE(scene.exists(Path)) << mode;
    }
    extds_pause(0, "7200");
    extds_pause(2, "1");
    EXPECT_EQ(scene.file(Path), "7200");
}

TEST_F(ExtdsPause, ThatCannotBeWrittenIsNotReported) {
    scene.touch(std::string(Path) + "/in/the/way");
    const std::string err = stderr_of([&] {
        extds_pause(0, "7200");
        scene.remove("/tmp");
        extds_pause(0, "7200");
        extds_pause(1, "1800");
    });
    EXPECT_EQ(err, "");
    EXPECT_FALSE(scene.exists("/tmp"));
}

TEST_F(ExtdsPause, OnAFullStorageIsNotReported) {
    std::filesystem::create_symlink("/dev/full", scene.real_path(Path));
    EXPECT_EQ(stderr_of([] { extds_pause(0, "7200"); }), "");
}

// The hours 00, 03, 06 ... of UTC are those that are a multiple of three since the epoch.

TEST(ExtdsRule, AsksTheServiceOffTheBusInEveryThirdHourWhileArchivesAreBehind) {
    for (int hour = 0; hour < 24; ++hour) {
        const Scene scene("2024-03-02 " + std::to_string(hour) + ":59:59");
        regulate_extds(false, "7200");
        EXPECT_EQ(scene.file("/tmp/extds_pause"), hour % 3 == 0 ? std::optional<std::string>("7200") : std::nullopt)
            << hour;
    }
}

TEST(ExtdsRule, CountsHoursSinceTheEpochAndNotOfTheLocalDay) {
    const Scene scene("2024-03-02 01:00:00", "CET-1");
    regulate_extds(false, "3600");
    EXPECT_EQ(scene.file("/tmp/extds_pause"), "3600");
}

TEST(ExtdsRule, LeavesThePauseOfAnEarlierHourWhileArchivesAreBehind) {
    Scene scene("2024-03-02 10:00:00");
    scene.write("/tmp/extds_pause", "7200");
    regulate_extds(false, "7200");
    EXPECT_EQ(scene.file("/tmp/extds_pause"), "7200");
}

TEST(ExtdsRule, TakesThePauseBackInAnyHourOnceAllHaveCaughtUp) {
    for (const char* time : {"2024-03-02 09:00:00", "2024-03-02 10:00:00", "2024-03-02 11:00:00"}) {
        Scene scene(time);
        scene.write("/tmp/extds_pause", "7200");
        regulate_extds(true, "7200");
        EXPECT_FALSE(scene.exists("/tmp/extds_pause")) << time;
    }
}

TEST(ExtdsRule, RenewsThePauseWithEachPassOfTheThirdHour) {
    Scene scene("2024-03-02 09:00:00");
    regulate_extds(false, "7200");
    scene.remove("/tmp/extds_pause");
    scene.gateway.sleep(3599);
    regulate_extds(false, "7200");
    EXPECT_EQ(scene.file("/tmp/extds_pause"), "7200");
    scene.remove("/tmp/extds_pause");
    scene.gateway.sleep(1);
    regulate_extds(false, "7200");
    EXPECT_FALSE(scene.exists("/tmp/extds_pause"));
}

}  // namespace
