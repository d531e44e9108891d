// What is read back from archive files: last times, agreement of a set, staged files.

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_holder.h"
#include "support/child.h"
#include "support/machines.h"
#include "support/scene.h"

namespace fs = std::filesystem;

namespace {

using Names = std::vector<std::string>;

class Holder : public ArchiveHolder {
  public:
    explicit Holder(const std::string& meter) { uuid = meter; }
};

class ArchiveReading : public ::testing::Test {
  protected:
    void SetUp() override { scene.make_tree("u"); }

    void put(const std::string& name, const std::string& text, const std::string& directory = "tc_archives") {
        scene.write("/mnt/storage/u/1/" + directory + "/" + name, text);
    }
    std::optional<std::string> text(const std::string& name, const std::string& directory = "tc_archives") const {
        return scene.archive("u", 1, name, directory);
    }
    /// The last record time of a file with this text.
    std::time_t last(const std::string& whole) {
        put("Q", whole);
        return holder.last_record_time("Q", 1, "tc_archives");
    }
    std::time_t check(const Names& names, int to_tmp = 0) {
        return holder.check_integrity(names.data(), static_cast<int>(names.size()), 1, to_tmp);
    }

    Scene scene{"2024-03-02 10:00:00"};
    Holder holder{"u"};
};

// ---- last record time

TEST_F(ArchiveReading, LastTimeOfAMissingOrEmptyFileIsZero) {
    EXPECT_EQ(holder.last_record_time("Q", 1, "tc_archives"), 0);
    EXPECT_EQ(holder.last_record_time("Q", 7, "tc_archives"), 0);
    EXPECT_EQ(last(""), 0);
}

TEST_F(ArchiveReading, LastTimeIsTheGreatestAlsoWhenLinesStandOutOfOrder) {
    EXPECT_EQ(last("100,192,1.000000\n"), 100);
    EXPECT_EQ(last("100,192,1.000000\n300,192,1.000000\n200,192,1.000000\n"), 300);
}

TEST_F(ArchiveReading, LastTimeIsLookedForInItsDirectoryAndSubsystem) {
    put("Q", "100,192,1.000000\n");
    put("Q", "200,192,1.000000\n", "tmp_archives");
    put("Q", "300,192,1.000000\n", "tc_tmp_archives");
    scene.write("/mnt/storage/u/2/tc_archives/Q", "400,192,1.000000\n");
    EXPECT_EQ(holder.last_record_time("Q", 1, "tc_archives"), 100);
    EXPECT_EQ(holder.last_record_time("Q", 1, "tmp_archives"), 200);
    EXPECT_EQ(holder.last_record_time("Q", 1, "tc_tmp_archives"), 300);
    EXPECT_EQ(holder.last_record_time("Q", 2, "tc_archives"), 400);
}

TEST_F(ArchiveReading, TimesBeforeTheEpochDoNotCount) {
    EXPECT_EQ(last("-1,192,1.000000\n"), 0);
    EXPECT_EQ(last("-5,192,1.000000\n100,192,1.000000\n-7,192,1.000000\n"), 100);
}

TEST_F(ArchiveReading, QualityAndValueDoNotMatterForTheLastTime) {
    EXPECT_EQ(last("100,0,-1.000000\n"), 100);
    EXPECT_EQ(last("100,-3,nan\n"), 100);
}

TEST_F(ArchiveReading, LineThatDoesNotParseHasNoEffect) {
    EXPECT_EQ(last("100,192,1.000000\nnonsense\n"), 100);
    EXPECT_EQ(last("nonsense\n100,192,1.000000\n"), 100);
    for (const char* line :
         {"200\n", "200,\n", "200,192\n", "200,192,\n", "200;192;1\n", ",192,1\n", "200,,1\n", "\n"}) {
        EXPECT_EQ(last(std::string("100,192,1.000000\n") + line), 100) << line;
    }
}

TEST_F(ArchiveReading, LastLineWithoutItsEndCountsWhenAllThreeFieldsAreThere) {
    EXPECT_EQ(last("100,192,1.000000\n200,192,1"), 200);
    EXPECT_EQ(last("100,192,1.000000\n200,192,"), 100);
    EXPECT_EQ(last("100,192,1.000000\n200,19"), 100);
}

TEST_F(ArchiveReading, ZeroBytesOfAPowerCutArePassedOver) {
    const std::string zeros(40, '\0');
    EXPECT_EQ(last("100,192,1.000000\n" + zeros + "\n200,192,1.000000\n"), 200);
    EXPECT_EQ(last("100,192,1.000000\n" + zeros), 100);
}

TEST_F(ArchiveReading, FolderInThePlaceOfAFileHasNoLastTime) {
    scene.touch("/mnt/storage/u/1/tc_archives/Q/file");
    EXPECT_EQ(holder.last_record_time("Q", 1, "tc_archives"), 0);
}

// ---- integrity of a set

TEST_F(ArchiveReading, SetThatEndsAtOneTimeIsSoundAndFilesWithoutALineDoNotCount) {
    put("A", "90,192,1.000000\n100,192,1.000000\n");
    put("C", "100,0,2.000000\n");
    EXPECT_EQ(check({"A", "B", "C"}), 100);
    EXPECT_EQ(text("A"), "90,192,1.000000\n100,192,1.000000\n");
    EXPECT_FALSE(text("B"));
    EXPECT_FALSE(scene.exists("/tmp/arch.integrity.fail.1"));
}

TEST_F(ArchiveReading, SetThatDisagreesIsEmptiedWholeAndTheTrailGetsTheDate) {
    put("A", "100,192,1.000000\n");
    put("B", "nonsense\n");
    put("C", "90,192,1.000000\n");
    EXPECT_EQ(check({"A", "B", "C"}), 0);
    EXPECT_EQ(text("A"), "");
    EXPECT_EQ(text("B"), "");
    EXPECT_EQ(text("C"), "");
    EXPECT_EQ(scene.file("/tmp/arch.integrity.fail.1"), "Sat Mar  2 10:00:00 UTC 2024\n");
    EXPECT_EQ(scene.gateway.durable_writes(), 3);
}

TEST_F(ArchiveReading, FileOfADisagreeingSetThatWasMissingIsThereAndEmptyAfterwards) {
    put("A", "100,192,1.000000\n");
    put("B", "90,192,1.000000\n");
    EXPECT_EQ(check({"A", "B", "C"}), 0);
    EXPECT_EQ(text("C"), "");
}

TEST_F(ArchiveReading, FilesBehindTheFirstDisagreementAreEmptiedToo) {
    put("A", "100,192,1.000000\n");
    put("B", "90,192,1.000000\n");
    put("C", "100,192,1.000000\n");
    put("other", "100,192,1.000000\n");
    EXPECT_EQ(check({"A", "B", "C"}), 0);
    EXPECT_EQ(text("C"), "");
    EXPECT_EQ(text("other"), "100,192,1.000000\n");
}

TEST_F(ArchiveReading, SetWithoutAnyLineEndsNowhereAndIsSound) {
    put("A", "");
    EXPECT_EQ(check({"A", "B"}), 0);
    EXPECT_EQ(check({}), 0);
    EXPECT_FALSE(scene.exists("/tmp/arch.integrity.fail.1"));
}

TEST_F(ArchiveReading, OnlyTheFirstNamesOfASetAreLookedAt) {
    put("A", "100,192,1.000000\n");
    put("B", "90,192,1.000000\n");
    const Names names{"A", "B"};
    EXPECT_EQ(holder.check_integrity(names.data(), 1, 1, 0), 100);
}

TEST_F(ArchiveReading, StagedSetIsCheckedForAFlagOfExactlyOne) {
    for (const char* name : {"A", "B"}) put(name, "100,192,1.000000\n");
    put("A", "100,192,1.000000\n", "tmp_archives");
    put("B", "90,192,1.000000\n", "tmp_archives");
    EXPECT_EQ(check({"A", "B"}, 2), 100);
    EXPECT_EQ(check({"A", "B"}, 1), 0);
    EXPECT_EQ(text("A"), "100,192,1.000000\n");
    EXPECT_EQ(text("A", "tmp_archives"), "");
}

TEST_F(ArchiveReading, TrailKeepsALineForEachDisagreementOfItsSubsystem) {
    for (const char* path : {"/mnt/storage/u/1/tc_archives/", "/mnt/storage/u/6/tc_archives/"}) {
        scene.write(std::string(path) + "A", "100,192,1.000000\n");
        scene.write(std::string(path) + "B", "90,192,1.000000\n");
    }
    const Names names{"A", "B"};
    check(names);
    holder.check_integrity(names.data(), 2, 6, 0);
    scene.gateway.sleep(3661);
    put("A", "1,192,1.000000\n");
    put("B", "2,192,1.000000\n");
    check(names);
    EXPECT_EQ(scene.file("/tmp/arch.integrity.fail.1"), "Sat Mar  2 10:00:00 UTC 2024\nSat Mar  2 11:01:01 UTC 2024\n");
    EXPECT_EQ(scene.file("/tmp/arch.integrity.fail.6"), "Sat Mar  2 10:00:00 UTC 2024\n");
}

TEST(ArchiveTrailZoneTest, TrailHasTheTimeOfTheGatewaysZone) {
    Scene scene("2024-07-11 00:30:00", "CET-1CEST,M3.5.0,M10.5.0/3");
    scene.write("/mnt/storage/u/1/tc_archives/A", "100,192,1.000000\n");
    scene.write("/mnt/storage/u/1/tc_archives/B", "90,192,1.000000\n");
    const Names names{"A", "B"};
    Holder("u").check_integrity(names.data(), 2, 1, 0);
    EXPECT_EQ(scene.file("/tmp/arch.integrity.fail.1"), "Thu Jul 11 00:30:00 CEST 2024\n");
}

TEST_F(ArchiveReading, TrailThatCannotBeWrittenIsNotReported) {
    put("A", "100,192,1.000000\n");
    put("B", "90,192,1.000000\n");
    scene.remove("/tmp");
    EXPECT_EQ(stderr_of([&] { EXPECT_EQ(check({"A", "B"}), 0); }), "");
    EXPECT_EQ(text("A"), "");
}

// ---- handing staged files over

TEST_F(ArchiveReading, StagedFilesAreCopiedOverTheirNamesakesAndStayInPlace) {
    put("A", "100,192,1.000000\n", "tmp_archives");
    put("B", "", "tmp_archives");
    put("A", "a longer text of an earlier pass\n100,192,1.000000\n", "tc_tmp_archives");
    put("C", "of an earlier pass", "tc_tmp_archives");
    const std::string out = stdout_of([&] { holder.copy_staged(1, "tc_tmp_archives"); });
    EXPECT_EQ(out, "Directory open\n");
    EXPECT_EQ(text("A", "tmp_archives"), "100,192,1.000000\n");
    EXPECT_EQ(text("A", "tc_tmp_archives"), "100,192,1.000000\n");
    EXPECT_EQ(text("B", "tc_tmp_archives"), "");
    EXPECT_EQ(text("C", "tc_tmp_archives"), "of an earlier pass");
}

TEST_F(ArchiveReading, StagedFilesGoToTheDirectoryThatIsNamedWhateverTheyAre) {
    put("_hidden", "x", "tmp_archives");
    put(".dot", "y", "tmp_archives");
    put("big", std::string(300'000, 'z'), "tmp_archives");
    stdout_of([&] { holder.copy_staged(1, "tc_archives"); });
    EXPECT_EQ(text("_hidden"), "x");
    EXPECT_EQ(text(".dot"), "y");
    EXPECT_EQ(text("big"), std::string(300'000, 'z'));
    EXPECT_FALSE(text("big", "tc_tmp_archives"));
}

TEST_F(ArchiveReading, CopyHasTheModeOfItsOriginal) {
    put("A", "x", "tmp_archives");
    fs::permissions(scene.real_path("/mnt/storage/u/1/tmp_archives/A"), fs::perms(0640));
    stdout_of([&] { holder.copy_staged(1, "tc_tmp_archives"); });
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(fs::status(scene.real_path("/mnt/storage/u/1/tc_tmp_archives/A")).permissions(), fs::perms(0640 & ~mask));
}

TEST_F(ArchiveReading, FolderAmongTheStagedFilesDoesNoHarm) {
    scene.touch("/mnt/storage/u/1/tmp_archives/sub/file");
    put("A", "x", "tmp_archives");
    scene.touch("/mnt/storage/u/1/tc_tmp_archives/sub/kept");
    stdout_of([&] { holder.copy_staged(1, "tc_tmp_archives"); });
    EXPECT_EQ(text("A", "tc_tmp_archives"), "x");
    EXPECT_EQ(scene.list("/mnt/storage/u/1/tc_tmp_archives/sub"), Names{"kept"});
}

TEST_F(ArchiveReading, MissingTargetOfACopyIsNotReported) {
    put("A", "x", "tmp_archives");
    EXPECT_EQ(stdout_of([&] { holder.copy_staged(1, "no_archives"); }), "Directory open\n");
    EXPECT_FALSE(scene.exists("/mnt/storage/u/1/no_archives"));
}

TEST_F(ArchiveReading, FullTargetOfACopyIsNotReported) {
    put("A", "x", "tmp_archives");
    const FullStorage machine;
    EXPECT_EQ(stderr_of([&] { stdout_of([&] { holder.copy_staged(1, "tc_tmp_archives"); }); }), "");
}

TEST_F(ArchiveReading, NameOfACopyIsCutWhereItsPathOf127CharactersEnds) {
    // "/mnt/storage/" and "/1/tc_tmp_archives/" have 32 characters, "/1/tmp_archives/" has three less than the latter.
    const std::string uuid(127 - 32 - 5, 'u');
    scene.make_tree(uuid);
    scene.write("/mnt/storage/" + uuid + "/1/tmp_archives/A12345", "x");
    stdout_of([&] { Holder(uuid).copy_staged(1, "tc_tmp_archives"); });
    EXPECT_EQ(scene.list("/mnt/storage/" + uuid + "/1/tc_tmp_archives"), Names{"A1234"});
}

TEST_F(ArchiveReading, MissingStagingDirectoryEndsTheProcessWithStatusOne) {
    for (const int subsystem : {2, 7}) {
        scene.remove("/mnt/storage/u/2/tmp_archives");
        const ChildEnd end = in_child([&] {
            holder.copy_staged(subsystem, "tc_tmp_archives");
            return 0;
        });
        EXPECT_EQ(end.status, 1);
        EXPECT_EQ(end.out, "Directory not open, error\n");
    }
}

}  // namespace
