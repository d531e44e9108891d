#include "core/file.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "core/files.h"
#include "core/gateway.h"
#include "support/machines.h"
#include "support/scene.h"

namespace fs = std::filesystem;

namespace {

constexpr int Append = O_WRONLY | O_CREAT | O_APPEND;
constexpr int Overwrite = O_WRONLY | O_CREAT | O_TRUNC;

class FileTest : public ::testing::Test {
  protected:
    /// No way of opening it works, and none waits.
    static void expect_closed(const std::string& path) {
        for (const int flags : {O_RDONLY, Append, Overwrite, O_RDWR | O_CREAT | O_APPEND}) {
            EXPECT_FALSE(File(path, flags)) << path << " " << flags;
        }
    }

    void fifo(const std::string& path) const { ::mkfifo(scene.real_path(path).c_str(), 0666); }
    void link(const std::string& target, const std::string& path) const {
        fs::create_symlink(target, scene.real_path(path));
    }

    Scene scene;
};

// ---- what opens

TEST_F(FileTest, RegularFileOpensAndClosesItself) {
    scene.write("/tmp/file", "text");
    const File none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.descriptor(), -1);
    File file("/tmp/file", O_RDONLY);
    EXPECT_TRUE(file);
    const int descriptor = file.descriptor();
    File taken(std::move(file));
    EXPECT_FALSE(file);
    EXPECT_EQ(taken.descriptor(), descriptor);
    taken = File();
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST_F(FileTest, NewFileHasTheModeThatIsAskedFor) {
    const mode_t earlier = ::umask(0);
    const File file("/tmp/file", Overwrite, 0640);
    ::umask(earlier);
    EXPECT_EQ(fs::status(scene.real_path("/tmp/file")).permissions(), fs::perms(0640));
}

TEST_F(FileTest, FifoDeviceFolderAndLinksToThemAreNoFiles) {
    for (const std::string top : {"/tmp/", "/mnt/storage/"}) {
        fifo(top + "fifo");
        scene.touch(top + "folder/file");
        link(scene.real_path(top + "fifo"), top + "to-fifo");
        link(scene.real_path(top + "folder"), top + "to-folder");
        link("/dev/null", top + "to-device");
        link("/dev/full", top + "to-full");
        for (const char* name : {"fifo", "to-fifo", "folder", "to-folder", "to-device", "to-full", "none/file"}) {
            expect_closed(top + name);
        }
    }
}

TEST_F(FileTest, FifoThatSomebodyReadsIsNoFileEither) {
    fifo("/mnt/storage/fifo");
    const int reader = ::open(scene.real_path("/mnt/storage/fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    expect_closed("/mnt/storage/fifo");
    ::close(reader);
}

TEST_F(FileTest, LinkBelowTmpIsNotFollowedAndItsTargetStaysAsItIs) {
    scene.write("/mnt/storage/target", "text");
    link(scene.real_path("/mnt/storage/target"), "/tmp/link");
    link(scene.real_path("/mnt/storage/missing"), "/tmp/dangling");
    expect_closed("/tmp/link");
    expect_closed("/tmp/dangling");
    EXPECT_EQ(scene.file("/mnt/storage/target"), "text");
    EXPECT_FALSE(scene.exists("/mnt/storage/missing"));
}

TEST_F(FileTest, LinkedFolderBelowTmpAndLinkedFileOnTheStorageAreFollowed) {
    scene.touch("/tmp/folder/here");
    link(scene.real_path("/tmp/folder"), "/tmp/link");
    EXPECT_TRUE(File("/tmp/link/file", Overwrite));
    scene.write("/mnt/storage/target", "text");
    link(scene.real_path("/mnt/storage/target"), "/mnt/storage/link");
    EXPECT_TRUE(File("/mnt/storage/link", Append).write("!"));
    EXPECT_EQ(scene.file("/mnt/storage/target"), "text!");
}

// ---- reading and writing

TEST_F(FileTest, ClosedFileTakesAndGivesNothing) {
    File none;
    char byte = 'x';
    EXPECT_FALSE(none.write("text"));
    EXPECT_FALSE(none.write(""));
    EXPECT_EQ(none.read(std::span(&byte, 1)), 0U);
    EXPECT_FALSE(none.make_durable());
    EXPECT_FALSE(none.resize(0));
    EXPECT_FALSE(none.last_line_is_open());
    EXPECT_EQ(none.seek(0, SEEK_CUR), -1);
    struct stat status {};
    EXPECT_FALSE(none.look(status));
    none.lock();
    none.close();
}

TEST_F(FileTest, LastLineIsOpenWhenItsEndIsMissing) {
    for (const auto& [text, open] : std::vector<std::pair<std::string, bool>>{{"", false},
                                                                              {"\n", false},
                                                                              {"a", true},
                                                                              {"a\nb", true},
                                                                              {"a\nb\n", false},
                                                                              {std::string(3, '\0'), true}}) {
        scene.write("/mnt/storage/file", text);
        File file("/mnt/storage/file", O_RDWR | O_APPEND);
        EXPECT_EQ(file.last_line_is_open(), open) << text;
        EXPECT_TRUE(file.write("!")) << "at the end, wherever was read";
        EXPECT_EQ(scene.file("/mnt/storage/file"), text + "!");
    }
}

TEST_F(FileTest, EndOfAFileIsAllOfAShorterOne) {
    scene.write("/mnt/storage/file", "0123456789");
    EXPECT_EQ(end_of_file("/mnt/storage/file", 3), "789");
    EXPECT_EQ(end_of_file("/mnt/storage/file", 10), "0123456789");
    EXPECT_EQ(end_of_file("/mnt/storage/file", 11), "0123456789");
    EXPECT_EQ(end_of_file("/mnt/storage/none", 11), "");
}

TEST_F(FileTest, CopyReplacesTheTargetAndGivesANewOneTheModeOfItsSource) {
    scene.write("/mnt/storage/source", std::string(200'000, 's'));
    scene.write("/mnt/storage/target", std::string(300'000, 't'));
    fs::permissions(scene.real_path("/mnt/storage/source"), fs::perms(0600));
    EXPECT_TRUE(copy_file("/mnt/storage/source", "/mnt/storage/target"));
    EXPECT_EQ(scene.file("/mnt/storage/target"), std::string(200'000, 's'));
    EXPECT_TRUE(copy_file("/mnt/storage/source", "/mnt/storage/new"));
    EXPECT_EQ(fs::status(scene.real_path("/mnt/storage/new")).permissions(), fs::perms(0600));
    EXPECT_FALSE(copy_file("/mnt/storage/none", "/mnt/storage/target"));
    EXPECT_FALSE(copy_file("/mnt/storage/source", "/mnt/none/target"));
    EXPECT_EQ(scene.file("/mnt/storage/target"), std::string(200'000, 's'));
}

// ---- a storage that takes less, later or nothing

/// All that is done with a file, through the machine in use.
void use_everything() {
    EXPECT_TRUE(overwrite_file("/tmp/a", "one\n"));
    EXPECT_TRUE(append_file("/tmp/a", "two\n"));
    EXPECT_TRUE(overwrite_durably("/mnt/storage/b", "three\n"));
    EXPECT_TRUE(copy_file("/tmp/a", "/mnt/storage/c"));
    EXPECT_EQ(end_of_file("/mnt/storage/c", 5), "\ntwo\n");
    File("/tmp/a", O_RDWR).lock();
}

TEST_F(FileTest, StorageThatTakesAByteAtATimeGetsAll) {
    const ByteByByte machine;
    use_everything();
    EXPECT_EQ(scene.file("/tmp/a"), "one\ntwo\n");
    EXPECT_EQ(scene.file("/mnt/storage/b"), "three\n");
    EXPECT_EQ(scene.file("/mnt/storage/c"), "one\ntwo\n");
}

TEST_F(FileTest, CallThatASignalInterruptsIsMadeAgain) {
    const Interrupted machine;
    use_everything();
    for (const char* call : {"open /tmp/a", "read", "write", "send", "lock", "resize", "sync"}) {
        EXPECT_TRUE(machine.calls().contains(call)) << call;
    }
    EXPECT_EQ(scene.file("/tmp/a"), "one\ntwo\n");
    EXPECT_EQ(scene.file("/mnt/storage/b"), "three\n");
    EXPECT_EQ(scene.file("/mnt/storage/c"), "one\ntwo\n");
}

TEST_F(FileTest, FullStorageIsTold) {
    scene.write("/tmp/a", "text");
    const FullStorage machine;
    EXPECT_FALSE(overwrite_file("/tmp/file", "x"));
    EXPECT_FALSE(append_file("/tmp/file", "x"));
    EXPECT_FALSE(overwrite_durably("/mnt/storage/file", "x"));
    EXPECT_FALSE(copy_file("/tmp/a", "/tmp/b"));
    EXPECT_EQ(scene.file("/tmp/file"), "");
    EXPECT_EQ(scene.gateway.durable_writes(), 0);
}

TEST_F(FileTest, StorageThatIsFullInTheMiddleOfATextKeepsItsBeginning) {
    const FullStorage machine(3);
    EXPECT_FALSE(append_file("/tmp/file", "12345"));
    EXPECT_EQ(scene.file("/tmp/file"), "123");
}

}  // namespace
