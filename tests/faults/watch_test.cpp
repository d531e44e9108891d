// Who watches the watch: each thing that must not be is done on purpose, and has to be noticed. And what may be is not
// mistaken for it.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "faults/archive_watch.h"
#include "faults/broken_invariant.h"
#include "faults/ledger.h"
#include "faults/machine_watch.h"

namespace fs = std::filesystem;

namespace {

using faults::BrokenInvariant;

constexpr int Hourly = 1;
constexpr std::time_t OneHour = 1'700'000'000 / 3600 * 3600;
constexpr std::time_t Next = OneHour + 3600;
constexpr const char* Quantity = "1/tc_archives/A1";
constexpr const char* Energy = "1/tc_archives/A2";

class Folder {
  public:
    Folder() {
        std::string name = (fs::temp_directory_path() / "watch-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            throw fs::filesystem_error(name, std::error_code(errno, std::generic_category()));
        path_ = name;
    }
    ~Folder() { fs::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return path_; }
    void put(const std::string& name, const std::string& text, std::ios::openmode mode = std::ios::trunc) const {
        const fs::path path = path_ + "/" + name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary | mode) << text;
    }
    void append(const std::string& name, const std::string& text) const { put(name, text, std::ios::app); }

  private:
    std::string path_;
};

// ---- archive files

/// Two records, an hour apart, of one line in each of two files.
class ArchiveWatchTest : public ::testing::Test {
  protected:
    ArchiveWatchTest() {
        for (const std::time_t time : {OneHour, Next}) {
            ledger.add({.archive = Hourly,
                        .time = time,
                        .promised = true,
                        .lines = {{Quantity, line(time, "5.000000")}, {Energy, line(time, "7.000000")}}},
                       time);
        }
    }

    static std::string line(std::time_t time, const std::string& value) { return std::to_string(time) + ",0," + value; }
    static std::string whole_line(std::time_t time, const std::string& value) { return line(time, value) + "\n"; }
    void look() { watch.look({}); }

    Folder storage;
    faults::Ledger ledger;
    faults::ArchiveWatch watch{storage.path(), "tc_archives", ledger};
};

TEST_F(ArchiveWatchTest, LinesOfRecordsMayStand) {
    storage.put(Quantity, whole_line(OneHour, "5.000000"));
    EXPECT_NO_THROW(look());
    storage.append(Quantity, whole_line(Next, "5.000000"));
    EXPECT_NO_THROW(look());
    EXPECT_EQ(watch.lines_read(), 2U);
}

TEST_F(ArchiveWatchTest, ValueOfAnotherFileIsNoticed) {
    storage.put(Energy, whole_line(OneHour, "5.000000"));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, TimeOfNoRecordIsNoticed) {
    storage.put(Quantity, whole_line(OneHour + 1, "5.000000"));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, OtherQualityIsNoticed) {
    storage.put(Quantity, std::to_string(OneHour) + ",1,5.000000\n");
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, FileOfNoQuantityIsNoticed) {
    storage.put("1/tc_archives/A3", whole_line(OneHour, "5.000000"));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, LineGluedToATornOneIsNoticed) {
    storage.put(Quantity, line(OneHour, "5.0"));
    EXPECT_NO_THROW(look());
    watch.note_tears();
    storage.append(Quantity, whole_line(Next, "5.000000"));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, TornLineThatWasEndedMayStandWhereAPowerCutLeftIt) {
    storage.put(Quantity, line(OneHour, "5.0"));
    watch.note_tears();
    storage.append(Quantity, "\n" + whole_line(Next, "5.000000"));
    EXPECT_NO_THROW(look());
    EXPECT_EQ(watch.torn(), 1U);
}

TEST_F(ArchiveWatchTest, TornLineThatNoPowerCutLeftIsNoticed) {
    storage.put(Quantity, line(OneHour, "5.0") + "\n");
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, ZeroBytesThatNoPowerCutLeftAreNoticed) {
    storage.put(Quantity, std::string(8, '\0') + "\n");
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, EmptyLineIsNoticed) {
    storage.put(Quantity, whole_line(OneHour, "5.000000") + "\n");
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, FileThatBeginsOverIsNoticed) {
    storage.put(Quantity, whole_line(OneHour, "5.000000") + whole_line(Next, "5.000000"));
    look();
    storage.put(Quantity, whole_line(Next, "5.000000"));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, LineThatWasRewrittenInPlaceIsNoticed) {
    storage.put(Quantity, whole_line(OneHour, "5.000000"));
    look();
    storage.put(Quantity, whole_line(Next, "5.000000"));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, EmptiedFileMayBeWhereFilesAreThrownAwayAndItsLinesAreMissingAgain) {
    storage.put(Quantity, whole_line(OneHour, "5.000000"));
    look();
    storage.put(Quantity, "");
    EXPECT_NO_THROW(watch.look({.may_shrink = true}));
    EXPECT_EQ(watch.emptied(), 1U);
    EXPECT_EQ(ledger.count(ledger.find(Quantity, line(OneHour, "5.000000")).value()), 0);
}

TEST_F(ArchiveWatchTest, FileThatIsGoneIsNoticed) {
    storage.put(Quantity, whole_line(OneHour, "5.000000"));
    look();
    fs::remove(storage.path() + "/" + Quantity);
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, LineWrittenWithoutEndIsNoticed) {
    constexpr int Often = 60;
    for (int i = 0; i < Often; ++i) storage.append(Quantity, whole_line(OneHour, "5.000000"));
    EXPECT_NO_THROW(look());
    storage.append(Quantity, whole_line(OneHour, "5.000000"));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(ArchiveWatchTest, CopyWithALineOfItsOwnIsNoticed) {
    const std::string copy = "1/tc_tmp_archives/A1";
    storage.put(Quantity, whole_line(OneHour, "5.000000"));
    storage.put(copy, whole_line(OneHour, "5.000000"));
    EXPECT_NO_THROW(watch.look_at_copies());
    storage.append(copy, whole_line(Next, "6.000000"));
    EXPECT_THROW(watch.look_at_copies(), BrokenInvariant);
}

// ---- what is owed

TEST_F(ArchiveWatchTest, RecordOfWhichALineIsMissingIsLost) {
    const auto since_ever = [](int) { return std::time_t{0}; };
    storage.put(Quantity, whole_line(OneHour, "5.000000") + whole_line(Next, "5.000000"));
    storage.put(Energy, whole_line(OneHour, "7.000000"));
    look();
    EXPECT_FALSE(ledger.first_missing(OneHour, since_ever));
    EXPECT_EQ(ledger.first_missing(Next, since_ever), std::string(Energy) + " " + line(Next, "7.000000"));
}

TEST_F(ArchiveWatchTest, RecordThatTheMeterHoldsNoMoreIsNotOwed) {
    EXPECT_FALSE(ledger.first_missing(Next, [](int) { return Next + 1; }));
}

TEST_F(ArchiveWatchTest, RecordThatStoodThereAndIsGoneAgainIsLost) {
    const auto since_ever = [](int) { return std::time_t{0}; };
    for (const std::time_t time : {OneHour, Next}) {
        storage.append(Quantity, whole_line(time, "5.000000"));
        storage.append(Energy, whole_line(time, "7.000000"));
    }
    look();
    EXPECT_FALSE(ledger.first_missing(Next, since_ever));
    storage.put(Energy, whole_line(OneHour, "7.000000"));
    watch.look({.may_shrink = true});
    EXPECT_TRUE(ledger.first_missing(Next, since_ever));
}

// ---- the machine

class MachineWatchTest : public ::testing::Test {
  protected:
    MachineWatchTest() {
        fs::create_directories(root.path() + "/tmp");
        fs::create_directories(root.path() + "/mnt/storage");
        watch = std::make_unique<faults::MachineWatch>(root.path(), "meter");
    }
    void look() const { watch->look(); }

    static constexpr std::size_t KiB = 1024;
    static constexpr std::size_t MiB = KiB * KiB;

    Folder root;
    std::unique_ptr<faults::MachineWatch> watch;
};

TEST_F(MachineWatchTest, PathsBelowTheTwoTopsMayBeMade) {
    root.put("tmp/meter/1/tc_items/T1", "20.5\n");
    root.put("mnt/storage/meter/1/tc_archives/A1", "");
    EXPECT_NO_THROW(look());
}

TEST_F(MachineWatchTest, PathElsewhereIsNoticed) {
    root.put("etc/meter", "");
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(MachineWatchTest, LogThatDoesNotBeginOverIsNoticed) {
    root.put("tmp/uni_logs.meter.txt", std::string(205 * KiB, 'x'));
    EXPECT_NO_THROW(look());
    root.append("tmp/uni_logs.meter.txt", std::string(2 * KiB, 'x'));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(MachineWatchTest, ItemThatGrowsIsNoticed) {
    root.put("tmp/meter/1/tc_items/T1", std::string(257, '1'));
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(MachineWatchTest, StateThatNobodyWritesIsNoticed) {
    root.put("tmp/meter/1/tc_items/Connected", "1\n");
    root.put("tmp/meter/1/tc_items/_DriverStatus", "6\n");
    EXPECT_NO_THROW(look());
    root.put("tmp/meter/1/tc_items/_DriverStatus", "7\n");
    EXPECT_THROW(look(), BrokenInvariant);
    root.put("tmp/meter/1/tc_items/_DriverStatus", "0\n");
    root.put("tmp/meter/1/tc_items/Connected", "2\n");
    EXPECT_THROW(look(), BrokenInvariant);
}

TEST_F(MachineWatchTest, DescriptorsThatAProcessLeavesAreNoticed) {
    watch->process_ended();
    std::vector<int> left;
    for (int i = 0; i < 3; ++i) left.push_back(::open("/dev/null", O_RDONLY));
    EXPECT_NO_THROW(watch->process_ended());
    left.push_back(::open("/dev/null", O_RDONLY));
    EXPECT_THROW(watch->process_ended(), BrokenInvariant);
    for (const int fd : left) ::close(fd);
}

/// One process after the other takes some memory and keeps it.
TEST_F(MachineWatchTest, MemoryThatProcessesKeepIsNoticed) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer has a heap of its own, which nobody counts";
#endif
    std::vector<std::unique_ptr<char[]>> kept;
    const auto process = [&](std::size_t bytes) {
        watch->process_begins();
        kept.push_back(std::make_unique<char[]>(bytes));
        watch->process_is_gone(0);
    };
    for (int i = 0; i < 15; ++i) EXPECT_NO_THROW(process(MiB));
    EXPECT_THROW(process(2 * MiB), BrokenInvariant);
}

TEST_F(MachineWatchTest, MemoryOfTheTestItselfDoesNotCount) {
    watch->process_begins();
    watch->begin_own_work();
    const auto own = std::make_unique<char[]>(64 * MiB);
    watch->end_own_work();
    const auto given_back = std::make_unique<std::vector<char>>(64 * MiB);
    given_back->clear();
    given_back->shrink_to_fit();
    EXPECT_NO_THROW(watch->process_is_gone(0));
    EXPECT_LT(watch->heap_growth(), static_cast<long long>(MiB));
}

}  // namespace
