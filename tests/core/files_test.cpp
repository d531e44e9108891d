#include "core/files.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/gateway.h"
#include "support/scene.h"

namespace fs = std::filesystem;

namespace {

class FilesTest : public ::testing::Test {
  protected:
    void link(const std::string& target, const std::string& path) const {
        fs::create_symlink(target, scene.real_path(path));
    }

    Scene scene;
};

TEST(SystemGateway, PathsOfTheDaemonAreAsTheyStand) {
    EXPECT_EQ(gateway().root(), "");
}

// ---- what is there

TEST_F(FilesTest, FolderAndALinkToAFolderAreFolders) {
    scene.touch("/tmp/folder/file");
    link(scene.real_path("/tmp/folder"), "/tmp/link");
    EXPECT_TRUE(is_directory("/tmp/folder"));
    EXPECT_TRUE(is_directory("/tmp/link"));
    EXPECT_TRUE(exists("/tmp/folder"));
    EXPECT_TRUE(exists("/tmp/link"));
}

TEST_F(FilesTest, FileIsNoFolderButIsThere) {
    scene.touch("/tmp/file");
    link(scene.real_path("/tmp/file"), "/tmp/link");
    EXPECT_FALSE(is_directory("/tmp/file"));
    EXPECT_FALSE(is_directory("/tmp/link"));
    EXPECT_TRUE(exists("/tmp/file"));
    EXPECT_TRUE(exists("/tmp/link"));
}

TEST_F(FilesTest, DanglingLinkCountsAsAbsent) {
    link("/nowhere/at/all", "/tmp/link");
    EXPECT_FALSE(is_directory("/tmp/link"));
    EXPECT_FALSE(exists("/tmp/link"));
}

TEST_F(FilesTest, MissingPathIsNeitherFolderNorThere) {
    scene.touch("/tmp/file");
    for (const std::string& path : {std::string("/tmp/none"), std::string("/tmp/none/deeper"),
                                    std::string("/tmp/file/deeper"), "/tmp/" + std::string(300, 'x')}) {
        EXPECT_FALSE(is_directory(path)) << path;
        EXPECT_FALSE(exists(path)) << path;
    }
}

// ---- folders

TEST_F(FilesTest, MakingAFolderMakesTheMissingOnesAboveIt) {
    make_directories("/tmp/a/b/c");
    EXPECT_TRUE(is_directory("/tmp/a/b/c"));
}

TEST_F(FilesTest, MakingAFolderThatIsThereKeepsWhatItHolds) {
    scene.write("/tmp/a/b/file", "text");
    make_directories("/tmp/a/b");
    make_directories("/tmp/a/c");
    EXPECT_EQ(scene.file("/tmp/a/b/file"), "text");
    EXPECT_TRUE(is_directory("/tmp/a/c"));
}

TEST_F(FilesTest, MakingAFolderGoesThroughALinkToAFolder) {
    make_directories("/tmp/a");
    link(scene.real_path("/tmp/a"), "/tmp/link");
    make_directories("/tmp/link/b");
    EXPECT_TRUE(is_directory("/tmp/a/b"));
}

TEST_F(FilesTest, MakingAFolderBelowAFileChangesNothing) {
    scene.write("/tmp/file", "text");
    make_directories("/tmp/file/b");
    make_directories("/tmp/file");
    EXPECT_EQ(scene.file("/tmp/file"), "text");
}

TEST_F(FilesTest, MakingAFolderWithAnImpossibleNameKeepsTheOnesAboveIt) {
    make_directories("/tmp/a/" + std::string(300, 'x') + "/b");
    EXPECT_EQ(scene.list("/tmp"), std::vector<std::string>{"a"});
    EXPECT_EQ(scene.list("/tmp/a"), std::vector<std::string>{});
}

TEST_F(FilesTest, FolderOfTheGatewayIsOpenToTheOtherProgramsAsTheUmaskTells) {
    const mode_t earlier = ::umask(022);
    make_directories("/tmp/a/b");
    ::umask(earlier);
    EXPECT_EQ(fs::status(scene.real_path("/tmp/a/b")).permissions(), fs::perms(0755));
    EXPECT_EQ(fs::status(scene.real_path("/tmp/a")).permissions(), fs::perms(0755));
}

TEST_F(FilesTest, SlashesInARowAreOne) {
    make_directories("/tmp//a///b/");
    EXPECT_TRUE(is_directory("/tmp/a/b"));
}

// ---- links

TEST_F(FilesTest, LinkLeadsToItsTarget) {
    scene.touch("/tmp/a/file");
    make_link("/tmp/a", "/tmp/link");
    EXPECT_TRUE(fs::is_symlink(scene.real_path("/tmp/link")));
    EXPECT_TRUE(scene.exists("/tmp/link/file"));
}

TEST_F(FilesTest, LinkToAMissingTargetIsMadeAllTheSame) {
    make_link("/tmp/later", "/tmp/link");
    EXPECT_FALSE(exists("/tmp/link"));
    make_directories("/tmp/later");
    EXPECT_TRUE(is_directory("/tmp/link"));
}

TEST_F(FilesTest, LinkThatNamesAFolderIsMadeInsideIt) {
    make_directories("/tmp/a/1");
    make_directories("/tmp/folder");
    make_link("/tmp/a/1", "/tmp/folder");
    EXPECT_EQ(scene.list("/tmp/folder"), std::vector<std::string>{"1"});
    EXPECT_TRUE(is_directory("/tmp/folder/1"));
}

TEST_F(FilesTest, LinkIsNotMadeOverSomethingThatIsThere) {
    scene.write("/tmp/file", "text");
    link("/nowhere", "/tmp/dangling");
    make_link("/tmp", "/tmp/file");
    make_link("/tmp", "/tmp/dangling");
    EXPECT_EQ(scene.file("/tmp/file"), "text");
    EXPECT_EQ(fs::read_symlink(scene.real_path("/tmp/dangling")), "/nowhere");
}

TEST_F(FilesTest, LinkInAMissingFolderIsNotMade) {
    make_link("/tmp", "/tmp/none/link");
    EXPECT_EQ(scene.list("/tmp"), std::vector<std::string>{});
}

// ---- texts

TEST_F(FilesTest, OverwritingReplacesALongerText) {
    EXPECT_TRUE(overwrite_file("/tmp/file", "a long text"));
    EXPECT_TRUE(overwrite_file("/tmp/file", "short"));
    EXPECT_EQ(scene.file("/tmp/file"), "short");
    EXPECT_TRUE(overwrite_file("/tmp/file", ""));
    EXPECT_EQ(scene.file("/tmp/file"), "");
}

TEST_F(FilesTest, DurableTextStandsBehindAPowerCutWhetherItIsLongerOrShorter) {
    const std::string path = "/mnt/storage/file";
    scene.write("/mnt/storage/here", "");
    for (const std::string text : {"12.5", "1234.500000", "7"}) {
        EXPECT_TRUE(overwrite_durably(path, text));
        EXPECT_EQ(scene.file(path), text);
        scene.gateway.cut_power_at(1, sim::Unsynced::Zeroed);
        EXPECT_THROW(overwrite_durably("/mnt/storage/another", "x"), sim::PowerCut);
        scene.gateway.cut_power_at(0, sim::Unsynced::Zeroed);
        EXPECT_EQ(scene.file(path), text);
    }
}

TEST_F(FilesTest, AppendingKeepsWhatIsThere) {
    EXPECT_TRUE(append_file("/tmp/file", "one\n"));
    EXPECT_TRUE(append_file("/tmp/file", "two\n"));
    EXPECT_EQ(scene.file("/tmp/file"), "one\ntwo\n");
}

TEST_F(FilesTest, TextMayHoldAnyBytes) {
    const std::string text("a\0%s\n\xFF", 6);
    EXPECT_TRUE(overwrite_file("/tmp/file", text));
    EXPECT_TRUE(append_file("/tmp/file", text));
    EXPECT_EQ(scene.file("/tmp/file"), text + text);
}

TEST_F(FilesTest, FileThatCannotBeOpenedIsToldAndNothingIsMade) {
    scene.write("/tmp/file", "text");
    for (const char* path : {"/tmp/none/file", "/tmp/file/below", "/tmp"}) {
        EXPECT_FALSE(overwrite_file(path, "x")) << path;
        EXPECT_FALSE(append_file(path, "x")) << path;
        EXPECT_FALSE(overwrite_durably(path, "x")) << path;
    }
    EXPECT_EQ(scene.list("/tmp"), std::vector<std::string>{"file"});
    EXPECT_EQ(scene.file("/tmp/file"), "text");
}

}  // namespace
