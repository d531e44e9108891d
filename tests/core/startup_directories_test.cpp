#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/entry/startup.h"
#include "core/uni_log.h"
#include "gateway_wrapper.h"
#include "support/start.h"

namespace fs = std::filesystem;

namespace {

using Names = std::vector<std::string>;

class StartupDirectories : public ::testing::Test {
  protected:
    /// A start that makes the folders of one uuid and then ends.
    void start(const std::string& uuid) { EXPECT_EQ(start_process(scene, {"a", "b", uuid}).status, 0); }

    void expect_tree(const std::string& uuid) const {
        for (const std::string n : {"1", "2", "3", "4", "5", "6"}) {
            EXPECT_EQ(scene.list("/mnt/storage/" + uuid + "/" + n),
                      (Names{"tc_archives", "tc_tmp_archives", "tmp_archives"}));
            EXPECT_EQ(scene.list("/tmp/" + uuid + "/" + n), Names{"tc_items"});
            EXPECT_EQ(scene.file("/tmp/" + uuid + "/" + n + "/tc_items/Connected"), "0\n");
        }
        EXPECT_EQ(scene.list("/mnt/storage/" + uuid), (Names{"1", "2", "3", "4", "5", "6", "default"}));
        EXPECT_EQ(scene.list("/tmp/" + uuid), (Names{"1", "2", "3", "4", "5", "6", "default"}));
    }

    Scene scene;
};

TEST_F(StartupDirectories, EveryUuidGetsSixSubsystemsWithTheirFoldersAndItems) {
    start_process(scene, {"a", "b", "u1", "u2"});
    expect_tree("u1");
    expect_tree("u2");
}

TEST_F(StartupDirectories, DefaultIsALinkToTheFirstSubsystem) {
    start("u1");
    for (const std::string top : {"/mnt/storage/u1/", "/tmp/u1/"}) {
        EXPECT_TRUE(fs::is_symlink(scene.real_path(top + "default"))) << top;
        EXPECT_TRUE(fs::equivalent(scene.real_path(top + "default"), scene.real_path(top + "1"))) << top;
    }
}

TEST_F(StartupDirectories, MissingFoldersAboveAreMadeToo) {
    scene.remove("/mnt");
    start("u1");
    expect_tree("u1");
}

TEST_F(StartupDirectories, SecondStartMakesNothingAgainButWritesConnectedAndRemovesTheDriverFlag) {
    start("u1");
    scene.write("/tmp/u1/3/tc_items/Connected", "1\n");
    scene.write("/tmp/u1/3/tc_items/T1", "71.250000\n");
    scene.write("/mnt/storage/u1/1/tc_archives/A1", "1700000000,192,1.500000\n");
    scene.touch("/tmp/DRV_LCK_u1");
    start("u1");
    expect_tree("u1");  // a second link would lie in the folder behind the first one
    EXPECT_EQ(scene.item("u1", 3, "T1"), "71.250000\n");
    EXPECT_EQ(scene.archive("u1", 1, "A1"), "1700000000,192,1.500000\n");
    EXPECT_FALSE(scene.exists("/tmp/DRV_LCK_u1"));
}

TEST_F(StartupDirectories, StaleDriverFlagDoesNotSurviveTheStart) {
    scene.touch("/tmp/DRV_LCK_u1");
    scene.touch("/tmp/DRV_LCK_u2");
    scene.touch("/tmp/RPRT_LCK_u1");
    start("u1");
    EXPECT_FALSE(scene.exists("/tmp/DRV_LCK_u1"));
    EXPECT_TRUE(scene.exists("/tmp/DRV_LCK_u2"));   // another process's meter
    EXPECT_TRUE(scene.exists("/tmp/RPRT_LCK_u1"));  // a neighbour's flag
}

TEST_F(StartupDirectories, AfterARestartOfTheGatewayTheFoldersBelowTmpComeBack) {
    start("u1");
    scene.clear_tmp();
    start("u1");
    expect_tree("u1");
}

TEST_F(StartupDirectories, LinkToAFolderCountsAsTheFolder) {
    fs::create_directories(scene.real_path("/mnt/disk/tc_archives"));
    fs::create_directories(scene.real_path("/mnt/storage/u1/2"));
    fs::create_directory_symlink(scene.real_path("/mnt/disk/tc_archives"),
                                 scene.real_path("/mnt/storage/u1/2/tc_archives"));
    start("u1");
    EXPECT_TRUE(fs::is_symlink(scene.real_path("/mnt/storage/u1/2/tc_archives")));
    expect_tree("u1");
}

TEST_F(StartupDirectories, DefaultThatIsAFolderStaysAFolder) {
    scene.touch("/mnt/storage/u1/default/file");
    start("u1");
    EXPECT_EQ(scene.list("/mnt/storage/u1/default"), Names{"file"});
}

TEST_F(StartupDirectories, DanglingDefaultLinkIsNotReplaced) {
    fs::create_directories(scene.real_path("/tmp/u1"));
    fs::create_symlink("/nowhere/at/all", scene.real_path("/tmp/u1/default"));
    start("u1");
    EXPECT_EQ(fs::read_symlink(scene.real_path("/tmp/u1/default")), "/nowhere/at/all");
    EXPECT_EQ(scene.item("u1", 1, "Connected"), "0\n");
}

/// A machine on which one folder belongs to somebody.
class Owned : public sim::GatewayWrapper {
  public:
    Owned(std::string path, uid_t owner) : path_(std::move(path)), owner_(owner) {}

    int look_at_name(const std::string& path, struct stat& status) override {
        const int result = GatewayWrapper::look_at_name(path, status);
        if (path == path_) status.st_uid = owner_;
        return result;
    }

  private:
    std::string path_;
    uid_t owner_;
};

TEST_F(StartupDirectories, FolderOfAnotherUserBelowTmpIsToldOnceAndUsed) {
    const auto told = [&](const std::string& folder, uid_t owner) {
        init_directories();
        scene.write("/tmp/uni_logs.general.txt", "");
        UniLog log(UniLog::ToFile, "/tmp/uni_logs.general.txt", "");
        g_log = &log;
        const Owned machine(folder, owner);
        init_directories();
        g_log = nullptr;
        const std::string text = scene.file("/tmp/uni_logs.general.txt").value();
        return text.empty() ? text : text.substr(text.find(" : ") + 3);
    };
    g_uuid_list = {"u1"};
    const std::string stranger = std::to_string(::geteuid() + 4711);
    for (const std::string folder : {"/tmp/u1", "/tmp/u1/1", "/tmp/u1/6/tc_items"}) {
        EXPECT_EQ(told(folder, ::geteuid() + 4711), folder + " belongs to another user: " + stranger + "\n");
        EXPECT_EQ(told(folder, ::geteuid()), "");
        EXPECT_EQ(told(folder, 0), "");
    }
    EXPECT_EQ(told("/mnt/storage/u1", ::geteuid() + 4711), "");
    EXPECT_EQ(scene.item("u1", 6, "Connected"), "0\n");
    g_uuid_list.clear();
}

TEST_F(StartupDirectories, FileInTheWayOfAFolderIsIgnored) {
    scene.write("/mnt/storage/u1/2", "in the way");
    start("u1");
    EXPECT_EQ(scene.file("/mnt/storage/u1/2"), "in the way");
    EXPECT_TRUE(scene.exists("/mnt/storage/u1/3/tc_archives"));
    EXPECT_EQ(scene.item("u1", 2, "Connected"), "0\n");
}

TEST_F(StartupDirectories, StorageThatIsNoFolderIsIgnored) {
    scene.remove("/mnt/storage");
    scene.write("/mnt/storage", "in the way");
    start("u1");
    EXPECT_EQ(scene.file("/mnt/storage"), "in the way");
    EXPECT_EQ(scene.item("u1", 1, "Connected"), "0\n");
}

// ---- uuids that are no uuids

TEST_F(StartupDirectories, UuidWithABlankIsOneFolder) {
    start("a b");
    expect_tree("a b");
    EXPECT_EQ(scene.list("/mnt/storage"), Names{"a b"});
}

TEST_F(StartupDirectories, UuidIsNoFormatAndNoShellText) {
    for (const std::string uuid : {"%s%n", "$HOME", "`x`", "\"", "*", ";x"}) {
        start(uuid);
        EXPECT_TRUE(scene.exists("/mnt/storage/" + uuid + "/6/tc_tmp_archives")) << uuid;
        EXPECT_EQ(scene.item(uuid, 6, "Connected"), "0\n") << uuid;
    }
}

TEST_F(StartupDirectories, UuidOfTwoPointsIsTheFolderAbove) {
    start("..");
    EXPECT_TRUE(scene.exists("/mnt/1/tc_archives"));
    EXPECT_TRUE(scene.exists("/mnt/default/tmp_archives"));
    EXPECT_EQ(scene.file("/1/tc_items/Connected"), "0\n");
    EXPECT_EQ(scene.list("/mnt/storage"), Names{});
}

TEST_F(StartupDirectories, EmptyUuidIsTheFolderItself) {
    start("");
    EXPECT_EQ(scene.list("/mnt/storage"), (Names{"1", "2", "3", "4", "5", "6", "default"}));
    EXPECT_EQ(scene.file("/tmp/1/tc_items/Connected"), "0\n");
}

TEST_F(StartupDirectories, NameOfAFolderIsCutWhereTheCommandOf255CharactersEnds) {
    // "mkdir -p /mnt/storage/" takes 22 characters, the uuid 223, and 10 are left of "/1/tc_archives".
    const std::string uuid(223, 'u');
    start(uuid);
    EXPECT_EQ(scene.list("/mnt/storage/" + uuid + "/1"), (Names{"tc_arch", "tc_tmp_", "tmp_arc"}));
    EXPECT_EQ(scene.list("/tmp/" + uuid + "/6"), Names{"tc_items"});
}

TEST_F(StartupDirectories, NameOfTheDefaultLinkIsCutWhereTheCommandOf255CharactersEnds) {
    // "ln -s /mnt/storage/", "/1 /mnt/storage/" and "/default" have 43 characters, the uuid stands there twice.
    const std::string uuid(108, 'u');
    start(uuid);
    EXPECT_EQ(scene.list("/mnt/storage/" + uuid), (Names{"1", "2", "3", "4", "5", "6", "def"}));
    EXPECT_EQ(scene.list("/tmp/" + uuid), (Names{"1", "2", "3", "4", "5", "6", "default"}));
}

TEST_F(StartupDirectories, DefaultLinkIsMadeWhereItsCutCommandLeads) {
    const std::string uuid(112, 'u');
    start(uuid);
    const std::string shorter(108, 'u');
    EXPECT_EQ(scene.list("/mnt/storage"), (Names{shorter, uuid}));
    EXPECT_EQ(scene.list("/mnt/storage/" + shorter), (Names{"tc_archives", "tc_tmp_archives", "tmp_archives"}));
    EXPECT_EQ(scene.list("/mnt/storage/" + uuid), (Names{"1", "2", "3", "4", "5", "6"}));
}

TEST_F(StartupDirectories, UuidOf300CharactersIsCutAndDoesNoHarm) {
    start(std::string(300, 'u'));
    EXPECT_EQ(scene.list("/mnt/storage"), Names{std::string(233, 'u')});
    EXPECT_EQ(scene.list("/mnt/storage/" + std::string(233, 'u')), Names{});
    // Beside the folder, the file in which all six `Connected` end.
    EXPECT_EQ(scene.list("/tmp"), (Names{"uni_logs.general.txt", std::string(133, 'u'), std::string(241, 'u')}));
}

}  // namespace
