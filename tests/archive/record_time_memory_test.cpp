// What is remembered of archive files between two looks, and what makes it void.

#include "archive/record_time_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include "support/scene.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* Archive = "/mnt/storage/m1/1/tc_archives/A1";

std::string utc(std::time_t time) {
    std::tm tm{};
    ::gmtime_r(&time, &tm);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &tm);
    return text.data();
}

/// A text that changes while its file's status stays: a page that is mapped and dirty already.
class MappedText {
  public:
    explicit MappedText(const std::string& path) {
        const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        size_ = static_cast<std::size_t>(fs::file_size(path));
        void* const place = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        ::close(fd);
        if (place == MAP_FAILED) throw std::system_error(errno, std::generic_category(), path);
        text_ = static_cast<char*>(place);
        put(text_[0]);
    }
    ~MappedText() { ::munmap(text_, size_); }
    MappedText(const MappedText&) = delete;
    MappedText& operator=(const MappedText&) = delete;

    void put(char first) { *static_cast<volatile char*>(text_) = first; }

  private:
    char* text_ = nullptr;
    std::size_t size_ = 0;
};

class RecordTimes : public ::testing::Test {
  protected:
    // The files of a test are of today, so they count as settled long ago by a clock of later.
    explicit RecordTimes(const std::string& start = "2037-05-01 12:00:00") : scene(start) {}

    void put(const std::string& text) { scene.write(Archive, text); }
    std::time_t last() { return memory.last_record_time(Archive); }
    std::string real() const { return scene.real_path(Archive); }

    struct stat status() const {
        struct stat now {};
        ::stat(real().c_str(), &now);
        return now;
    }
    /// Writes over the file in place, as often as it takes until the file system's clock has ticked.
    void put_in_place(const std::string& text) {
        const struct stat before = status();
        struct stat now = before;
        while (now.st_ctim.tv_sec == before.st_ctim.tv_sec && now.st_ctim.tv_nsec == before.st_ctim.tv_nsec) {
            const int fd = ::open(real().c_str(), O_WRONLY | O_CLOEXEC);
            EXPECT_EQ(::pwrite(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
            ::close(fd);
            now = status();
        }
    }

    Scene scene;
    RecordTimeMemory memory;
};

TEST_F(RecordTimes, AMissingOrEmptyFileHasNoRecordTime) {
    EXPECT_EQ(last(), 0);
    put("");
    EXPECT_EQ(last(), 0);
    EXPECT_EQ(last(), 0);
}

TEST_F(RecordTimes, TheGreatestTimeIsGivenAgainAndAgain) {
    put("1709377200,192,1.000000\n1709380800,192,1.000000\n1709373600,192,1.000000\n");
    for (int i = 0; i < 3; ++i) EXPECT_EQ(last(), 1709380800);
}

TEST_F(RecordTimes, AnUnchangedFileIsNotReadAgain) {
    put("1709377200,192,1.000000\n");
    MappedText text(real());
    EXPECT_EQ(last(), 1709377200);
    text.put('0');
    EXPECT_EQ(last(), 1709377200) << "nothing of the file's status has changed";
    EXPECT_EQ(RecordTimeMemory().last_record_time(Archive), 709377200) << "but its text has";
}

TEST_F(RecordTimes, AnAppendedLineIsNoticed) {
    put("1709377200,192,1.000000\n");
    EXPECT_EQ(last(), 1709377200);
    std::ofstream(real(), std::ios::app) << "1709380800,192,1.000000\n";
    EXPECT_EQ(last(), 1709380800);
}

TEST_F(RecordTimes, AChangeInPlaceOfTheSameLengthIsNoticed) {
    put("1709377200,192,1.000000\n");
    EXPECT_EQ(last(), 1709377200);
    put_in_place("1709380800,192,1.000000\n");
    EXPECT_EQ(last(), 1709380800);
}

TEST_F(RecordTimes, AChangeIsNoticedAlsoWhenTheTimeOfTheFileIsPutBack) {
    put("1709377200,192,1.000000\n");
    EXPECT_EQ(last(), 1709377200);
    const struct stat before = status();
    put_in_place("1709380800,192,1.000000\n");
    const std::array<timespec, 2> times{before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, real().c_str(), times.data(), 0), 0);
    EXPECT_EQ(last(), 1709380800);
}

TEST_F(RecordTimes, AFileInThePlaceOfAnotherIsNoticed) {
    put("1709377200,192,1.000000\n");
    scene.write(std::string(Archive) + ".new", "1709370000,192,1.000000\n");
    EXPECT_EQ(last(), 1709377200);
    fs::rename(real() + ".new", real());
    EXPECT_EQ(last(), 1709370000) << "an earlier time, too, if that is what the file holds";
}

TEST_F(RecordTimes, ACutFileIsNoticed) {
    put("1709377200,192,1.000000\n1709380800,192,1.000000\n");
    EXPECT_EQ(last(), 1709380800);
    fs::resize_file(real(), 24);
    EXPECT_EQ(last(), 1709377200);
    fs::resize_file(real(), 0);
    EXPECT_EQ(last(), 0);
}

TEST_F(RecordTimes, ARemovedFileIsNoticedAndSoIsItsReturn) {
    put("1709377200,192,1.000000\n");
    EXPECT_EQ(last(), 1709377200);
    scene.remove(Archive);
    EXPECT_EQ(last(), 0);
    put("1709370000,192,1.000000\n");
    EXPECT_EQ(last(), 1709370000);
}

TEST_F(RecordTimes, EachFileIsRememberedForItself) {
    put("1709377200,192,1.000000\n");
    scene.write("/mnt/storage/m1/2/tc_archives/A1", "1709380800,192,1.000000\n");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(last(), 1709377200);
        EXPECT_EQ(memory.last_record_time("/mnt/storage/m1/2/tc_archives/A1"), 1709380800);
    }
}

TEST_F(RecordTimes, ALinkThatLeadsElsewhereNowIsNoticed) {
    scene.write("/mnt/storage/a", "1709377200,192,1.000000\n");
    scene.write("/mnt/storage/b", "1709370000,192,1.000000\n");
    fs::create_symlink(scene.real_path("/mnt/storage/a"), scene.real_path("/mnt/storage/link"));
    EXPECT_EQ(memory.last_record_time("/mnt/storage/link"), 1709377200);
    scene.remove("/mnt/storage/link");
    fs::create_symlink(scene.real_path("/mnt/storage/b"), scene.real_path("/mnt/storage/link"));
    EXPECT_EQ(memory.last_record_time("/mnt/storage/link"), 1709370000);
}

/// The gateway's clock and the file system's agree: what a test writes was changed a moment ago.
class FreshRecordTimes : public RecordTimes {
  protected:
    FreshRecordTimes() : RecordTimes(utc(std::time(nullptr))) {}
};

TEST_F(FreshRecordTimes, AFileThatWasChangedAMomentAgoIsReadAgain) {
    put("1709377200,192,1.000000\n");
    MappedText text(real());
    EXPECT_EQ(last(), 1709377200);
    text.put('0');
    EXPECT_EQ(last(), 709377200);
}

TEST_F(FreshRecordTimes, AFileIsRememberedOnceItsLastChangeIsSomeSecondsAgo) {
    put("1709377200,192,1.000000\n");
    MappedText text(real());
    EXPECT_EQ(last(), 1709377200);
    scene.gateway.sleep(60);
    EXPECT_EQ(last(), 1709377200);
    text.put('0');
    EXPECT_EQ(last(), 1709377200);
}

/// The gateway's clock stands before the file's times, as after a start without a battery.
class EarlyRecordTimes : public RecordTimes {
  protected:
    EarlyRecordTimes() : RecordTimes("2001-01-01 00:00:00") {}
};

TEST_F(EarlyRecordTimes, AFileFromTheFutureIsNeverRemembered) {
    put("1709377200,192,1.000000\n");
    MappedText text(real());
    EXPECT_EQ(last(), 1709377200);
    text.put('0');
    EXPECT_EQ(last(), 709377200);
}

}  // namespace
