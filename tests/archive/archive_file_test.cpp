#include "archive/archive_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/bare_gateway.h"
#include "support/child.h"
#include "support/machines.h"
#include "support/scene.h"

namespace {

using Names = std::vector<std::string>;
using sim::Unsynced;

constexpr char Line[] = "1700000000,192,1.500000\n";

// ---- the text of a line

TEST(ArchiveLine, IsTimeQualityAndAValueWithSixDigits) {
    EXPECT_EQ(archive_line(200, 1700000000, 192, 12.345), "1700000000,192,12.345000\n");
    EXPECT_EQ(archive_line(200, 1700000000, 0, 5), "1700000000,0,5.000000\n");
    EXPECT_EQ(archive_line(256, -1, 192, -0.5), "-1,192,-0.500000\n");
}

TEST(ArchiveLine, OfAValueThatIsNoNumberSaysSo) {
    EXPECT_EQ(archive_line(200, 1, 192, std::numeric_limits<double>::quiet_NaN()), "1,192,nan\n");
    EXPECT_EQ(archive_line(200, 1, 192, std::numeric_limits<double>::infinity()), "1,192,inf\n");
}

TEST(ArchiveLine, ThatDoesNotFitIsCutAndLosesItsEnd) {
    const std::string head = "1700000000,192,1";
    const std::string line = archive_line(200, 1700000000, 192, 1e300);  // 301 digits before the point
    EXPECT_EQ(line.size(), 199U);
    EXPECT_TRUE(line.starts_with(head));
    EXPECT_EQ(line.find_first_not_of("0123456789", head.size()), std::string::npos);
    EXPECT_EQ(archive_line(256, 1700000000, 192, 1e300).size(), 255U);
}

// ---- where a file stands

TEST(ArchivePath, NamesUuidSubsystemDirectoryAndParameter) {
    EXPECT_EQ(archive_path("u", 3, "tc_tmp_archives", "A12"), "/mnt/storage/u/3/tc_tmp_archives/A12");
}

TEST(ArchiveFileName, IsTheParameterWithoutAnExtension) {
    EXPECT_EQ(ArchiveFile("u", 3, "A12", 0).get_path(), "/mnt/storage/u/3/tc_archives/A12");
    EXPECT_EQ(ArchiveFile("u", 3, "A12", 0).get_name(), "A12");
}

TEST(ArchiveFileName, IsStagedForAFlagOfExactlyOne) {
    EXPECT_EQ(ArchiveFile("u", 3, "A12", 1).get_path(), "/mnt/storage/u/3/tmp_archives/A12");
    for (const int flag : {0, 2, -1, 257}) {
        EXPECT_EQ(ArchiveFile("u", 3, "A12", flag).get_path(), "/mnt/storage/u/3/tc_archives/A12") << flag;
    }
}

TEST(ArchiveFileName, OfTheDefaultSubsystemHasAWordForItsNumber) {
    EXPECT_EQ(ArchiveFile("u", "default", "Thv").get_path(), "/mnt/storage/u/default/tc_archives/Thv");
}

TEST(ArchiveFileName, KeepsTenBytesButThePathKeepsThemAll) {
    const ArchiveFile file("u", 1, "ABCDEFGHIJKL", 0);
    EXPECT_EQ(file.get_name(), "ABCDEFGHIJ");
    EXPECT_EQ(file.get_path(), "/mnt/storage/u/1/tc_archives/ABCDEFGHIJKL");
}

TEST(ArchiveFileName, PathIsCutAt119Characters) {
    // "/mnt/storage/" and "/1/tc_archives/" have 28 characters.
    const std::string fits(119 - 28 - 3, 'u');
    EXPECT_EQ(ArchiveFile(fits, 1, "A12", 0).get_path(), "/mnt/storage/" + fits + "/1/tc_archives/A12");
    EXPECT_EQ(ArchiveFile(fits + "u", 1, "A12", 0).get_path(), "/mnt/storage/" + fits + "u/1/tc_archives/A1");
    EXPECT_EQ(ArchiveFile(std::string(300, 'u'), 1, "A12", 0).get_path(), "/mnt/storage/" + std::string(106, 'u'));
}

TEST(ArchiveFileName, IsNoFormat) {
    EXPECT_EQ(ArchiveFile("%s", 1, "%n", 0).get_path(), "/mnt/storage/%s/1/tc_archives/%n");
}

// ---- opening, writing, closing

class ArchiveFileTest : public ::testing::Test {
  protected:
    void SetUp() override { scene.make_tree("u"); }

    std::optional<std::string> text() const { return scene.archive("u", 1, "Q"); }
    void put(const std::string& whole) { scene.write("/mnt/storage/u/1/tc_archives/Q", whole); }
    std::string real() const { return scene.real_path("/mnt/storage/u/1/tc_archives/Q"); }

    /// One line at the end of the file, as the daemon writes it.
    static void append(const std::string& line) {
        ArchiveFile file("u", 1, "Q", 0);
        EXPECT_TRUE(file.open_append());
        file.append(line);
        file.close();
    }

    bool locked() const {
        const int fd = ::open(real().c_str(), O_RDONLY | O_CLOEXEC);
        const bool free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        ::close(fd);
        return !free;
    }

    Scene scene;
};

TEST_F(ArchiveFileTest, MakingAFileObjectOpensNothing) {
    const ArchiveFile file("u", 1, "Q", 0);
    EXPECT_FALSE(text());
}

TEST_F(ArchiveFileTest, LineIsAppended) {
    append(Line);
    append("1700003600,192,2.500000\n");
    EXPECT_EQ(text(), "1700000000,192,1.500000\n1700003600,192,2.500000\n");
}

TEST_F(ArchiveFileTest, EachLineIsMadeDurableOnce) {
    append(Line);
    EXPECT_EQ(scene.gateway.durable_writes(), 1);
    append(Line);
    EXPECT_EQ(scene.gateway.durable_writes(), 2);
}

TEST_F(ArchiveFileTest, ClosedFileTakesNoLine) {
    ArchiveFile file("u", 1, "Q", 0);
    file.append(Line);
    file.close();
    EXPECT_FALSE(text());
    EXPECT_EQ(scene.gateway.durable_writes(), 0);
}

TEST_F(ArchiveFileTest, OpenFileStaysOpenWhenItIsOpenedAgain) {
    ArchiveFile file("u", 1, "Q", 0);
    EXPECT_TRUE(file.open_append());
    file.append(Line);
    EXPECT_TRUE(file.open_append());
    EXPECT_TRUE(file.open_truncate());  // and is not emptied
    file.close();
    EXPECT_EQ(text(), Line);
}

TEST_F(ArchiveFileTest, FileInAMissingFolderDoesNotOpen) {
    ArchiveFile file("unknown", 1, "Q", 0);
    EXPECT_FALSE(file.open_append());
    EXPECT_FALSE(file.open_truncate());
    file.append(Line);
    file.close();
    EXPECT_EQ(scene.list("/mnt/storage"), Names{"u"});
}

TEST_F(ArchiveFileTest, TruncatingEmptiesTheFile) {
    put(Line);
    ArchiveFile file("u", 1, "Q", 0);
    EXPECT_TRUE(file.open_truncate());
    EXPECT_EQ(text(), "");
    file.append("1,0,0.000000\n");
    file.close();
    EXPECT_EQ(text(), "1,0,0.000000\n");
}

TEST_F(ArchiveFileTest, FullStorageIsNotDetected) {
    const FullStorage machine(3);
    const std::string err = stderr_of([&] { append(Line); });
    EXPECT_EQ(err, "");
    EXPECT_EQ(text(), "170");
}

TEST_F(ArchiveFileTest, FailureToMakeALineDurableIsNotDetected) {
    scene.gateway.fail_durable(EIO);
    append(Line);
    EXPECT_EQ(text(), Line);
}

// ---- the lock

TEST_F(ArchiveFileTest, IsLockedFromOpeningToClosing) {
    ArchiveFile file("u", 1, "Q", 0);
    file.open_append();
    EXPECT_TRUE(locked());
    file.append(Line);
    EXPECT_TRUE(locked());
    file.close();
    EXPECT_FALSE(locked());
    file.open_truncate();
    EXPECT_TRUE(locked());
    file.close();
    EXPECT_FALSE(locked());
}

TEST_F(ArchiveFileTest, WriterWaitsForAReaderThatHoldsTheLock) {
    put("");
    const int reader = ::open(real().c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
    ::flock(reader, LOCK_EX);
    std::thread writer([] { append(Line); });
    EXPECT_EQ(::write(reader, "read up to here\n", 16), 16);
    ::close(reader);  // gives the lock back
    writer.join();
    EXPECT_EQ(text(), std::string("read up to here\n") + Line);
}

/// A machine that looks at a file in the moment in which it is made durable.
class WatchedDurability : public BareGateway {
  public:
    WatchedDurability(const std::string& folder, std::function<void()> look)
        : BareGateway(folder), look_(std::move(look)) {}

    int make_durable(int /*fd*/) override {
        look_();
        return 0;
    }

  private:
    std::function<void()> look_;
};

TEST_F(ArchiveFileTest, LineIsWholeInTheFileAndLockedWhenItIsMadeDurable) {
    int looks = 0;
    WatchedDurability machine(scene.root(), [&] {
        ++looks;
        EXPECT_TRUE(locked());
        EXPECT_EQ(text(), Line);
    });
    set_gateway(&machine);
    append(Line);
    set_gateway(&scene.gateway);
    EXPECT_EQ(looks, 1);
}

// ---- clear

TEST_F(ArchiveFileTest, ClearingLeavesTheFileEmptyOpenAndLocked) {
    put(Line);
    ArchiveFile file("u", 1, "Q", 0);
    EXPECT_EQ(stdout_of([&] { file.clear(); }), "");
    EXPECT_EQ(text(), "");
    EXPECT_TRUE(locked());
    file.append("1,0,0.000000\n");
    file.close();
    EXPECT_EQ(text(), "1,0,0.000000\n");
}

TEST_F(ArchiveFileTest, ClearingAFileThatCannotBeOpenedSaysSo) {
    ArchiveFile file("unknown", 1, "Q", 0);
    EXPECT_EQ(stdout_of([&] { file.clear(); }), "Error while open on clear (/mnt/storage/unknown/1/tc_archives/Q)\n");
}

// ---- after a power cut

TEST_F(ArchiveFileTest, LastLineThatLostItsEndIsEndedBeforeTheNext) {
    put("1700000000,192,1.500000\n1700003600,19");
    append("1700007200,192,2.500000\n");
    EXPECT_EQ(text(), "1700000000,192,1.500000\n1700003600,19\n1700007200,192,2.500000\n");
}

TEST_F(ArchiveFileTest, RunOfZeroBytesIsEndedBeforeTheNextLine) {
    put(Line + std::string(24, '\0'));
    append(Line);
    EXPECT_EQ(text(), Line + std::string(24, '\0') + "\n" + Line);
}

TEST_F(ArchiveFileTest, WholeLastLineGetsNoEmptyLineBehindIt) {
    put("\n");
    append(Line);
    EXPECT_EQ(text(), std::string("\n") + Line);
}

TEST_F(ArchiveFileTest, OpeningATornFileWithoutALineAddsNoLine) {
    put("1700003600,19");
    ArchiveFile file("u", 1, "Q", 0);
    file.open_append();
    file.close();
    append(Line);
    EXPECT_EQ(text(), std::string("1700003600,19\n") + Line);
}

TEST_F(ArchiveFileTest, CutWhileALineIsMadeDurableTakesAtMostThatLine) {
    for (const Unsynced unsynced : {Unsynced::Dropped, Unsynced::Kept, Unsynced::Zeroed}) {
        put("1700000000,192,1.500000\n");
        scene.gateway.cut_power_at(1, unsynced);
        EXPECT_THROW(append("1700003600,192,2.500000\n"), sim::PowerCut);
        append("1700007200,192,3.500000\n");
        const std::string left = text().value();
        EXPECT_TRUE(left.starts_with("1700000000,192,1.500000\n"));
        EXPECT_TRUE(left.ends_with("\n1700007200,192,3.500000\n"));
    }
}

}  // namespace
