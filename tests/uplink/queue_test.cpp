// Every line of the archive files arrives, whatever happens to the files.

#include "uplink/queue.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <random>

#include "contract/archive_lines.h"
#include "uplink/stand.h"

using uplink::Batch;
using uplink::Queue;
using Lines = std::vector<std::string>;

namespace {

constexpr const char* Path = "/mnt/storage/m1/1/tc_archives/A1";

class ArchiveQueue : public testing::Test {
  protected:
    void append(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(scene.real_path(path)).parent_path());
        std::ofstream(scene.real_path(path), std::ios::app) << text;
    }
    /// Its name gets another file.
    void replace(const std::string& path, const std::string& text) {
        scene.write(path + ".new", text);
        std::filesystem::rename(scene.real_path(path + ".new"), scene.real_path(path));
    }
    /// All there is to be sent, confirmed.
    Lines sent(Queue& from, std::size_t most = 4096) {
        from.look_at("m1", 1);
        Lines lines;
        while (auto batch = from.next(most)) {
            for (std::string& line : lines_of(batch->body)) lines.push_back(line.substr(line.find(' ') + 1));
            from.confirmed(*batch);
        }
        return lines;
    }
    static std::string line(int hour, int value = 0) {
        return std::to_string(1709377200 + 3600 * hour) + " 192 " + std::to_string(value + hour) + ".0";
    }

    Scene scene;
    Queue queue{"g", false};
};

TEST_F(ArchiveQueue, GoesOnBehindWhatWasConfirmed) {
    append(Path, hour_lines(0, 2));
    EXPECT_EQ(sent(queue), (Lines{line(0), line(1)}));
    EXPECT_EQ(sent(queue), Lines{});
    append(Path, hour_lines(2, 1));
    EXPECT_EQ(sent(queue), Lines{line(2)});
}

TEST_F(ArchiveQueue, ALineWithoutItsEndWaitsForIt) {
    append(Path, hour_lines(0, 1) + "1709380800,192,1.0000");
    EXPECT_EQ(sent(queue), Lines{line(0)});
    append(Path, "00");
    EXPECT_EQ(sent(queue), Lines{});
    append(Path, "\n");
    EXPECT_EQ(sent(queue), Lines{line(1)});
}

TEST_F(ArchiveQueue, WhatIsNoLineIsPassedOverAndCounted) {
    append(Path, std::string(3000, '\0') + '\n' + hour_lines(0, 1) + "rubbish\n1709380800,192,1.00\n" +
                     hour_lines(1, 1) + "torn\n");
    EXPECT_EQ(sent(queue), (Lines{line(0), line(1)}));
    EXPECT_EQ(queue.unreadable(), 4U);
    append(Path, std::string(700'000, '\0') + '\n');
    append(Path, hour_lines(2, 1));
    EXPECT_EQ(sent(queue), Lines{line(2)});
}

TEST_F(ArchiveQueue, AFileThatWasEmptiedAndGrewAgainBeyondThePlaceIsReadFromItsBeginning) {
    append(Path, hour_lines(0, 300));
    EXPECT_EQ(sent(queue).size(), 300U);
    scene.write(Path, hour_lines(0, 400, 7));
    EXPECT_EQ(sent(queue).size(), 400U);
}

TEST_F(ArchiveQueue, AFileOfTheSameSizeAndNumberButOtherLinesIsReadAnew) {
    append(Path, hour_lines(0, 5));
    EXPECT_EQ(sent(queue).size(), 5U);
    scene.write(Path, hour_lines(0, 5, 1));
    EXPECT_EQ(sent(queue), (Lines{line(0, 1), line(1, 1), line(2, 1), line(3, 1), line(4, 1)}));
}

TEST_F(ArchiveQueue, AFileThatWasCutIsReadAnew) {
    append(Path, hour_lines(0, 5));
    EXPECT_EQ(sent(queue).size(), 5U);
    scene.write(Path, hour_lines(0, 3));
    EXPECT_EQ(sent(queue).size(), 3U);
    append(Path, hour_lines(3, 1));
    EXPECT_EQ(sent(queue), Lines{line(3)});
}

TEST_F(ArchiveQueue, AnotherFileUnderTheNameIsReadAnewAlthoughItBeginsAlike) {
    append(Path, hour_lines(0, 5));
    EXPECT_EQ(sent(queue).size(), 5U);
    replace(Path, hour_lines(0, 6));
    EXPECT_EQ(sent(queue).size(), 6U);
}

TEST_F(ArchiveQueue, AnotherNumberOfTheDeviceAloneIsTheSameFile) {
    append(Path, hour_lines(0, 5));
    queue.look_at("m1", 1);
    const auto batch = queue.next(4096);
    auto changes = queue.confirmed(*batch);
    ASSERT_EQ(changes.size(), 1U);
    changes[0].place.device += 1;
    Queue later("g", false);
    later.remember(changes[0].file, changes[0].place);
    EXPECT_EQ(sent(later), Lines{});
    append(Path, hour_lines(5, 1));
    EXPECT_EQ(sent(later), Lines{line(5)});
}

TEST_F(ArchiveQueue, WhatWasNotConfirmedComesAgainTheSame) {
    append(Path, hour_lines(0, 5));
    queue.look_at("m1", 1);
    const auto first = queue.next(4096);
    ASSERT_TRUE(first);
    EXPECT_FALSE(queue.next(4096));  // one of a group at a time
    queue.failed(*first);
    const auto again = queue.next(4096);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->id, first->id);
    EXPECT_EQ(again->body, first->body);
    struct stat status {};
    ASSERT_EQ(::stat(scene.real_path(Path).c_str(), &status), 0);
    EXPECT_TRUE(again->id.starts_with("g/m1/1/A1/" + std::to_string(status.st_ino) + ":0-120/")) << again->id;
    queue.failed(*again, 12);
    EXPECT_EQ(queue.next(4096)->id, first->id + "/after-12");
}

TEST_F(ArchiveQueue, OtherLinesAtTheSamePlaceHaveAnotherId) {
    append(Path, hour_lines(0, 5));
    queue.look_at("m1", 1);
    const auto first = queue.next(4096);
    queue.failed(*first);
    scene.write(Path, hour_lines(0, 5, 1));
    EXPECT_NE(queue.next(4096)->id, first->id);
}

TEST_F(ArchiveQueue, FilesOfAKindAreJoinedAndAMessageIsNeverTooLong) {
    for (const char* const name : {"A1", "A4", "A6", "A8", "A12", "A14", "A17", "A20"}) {
        append(std::string("/mnt/storage/m1/1/tc_archives/") + name, hour_lines(0, 3000));
    }
    append("/mnt/storage/m1/1/tc_archives/A29", hour_lines(0, 1));
    append("/mnt/storage/m1/1/tc_archives/_A57", hour_lines(0, 1));
    append("/mnt/storage/m1/1/tc_archives/_hPrevE", hour_lines(0, 1));
    queue.look_at("m1", 1);
    std::size_t count = 0;
    while (auto batch = queue.next(60 * 1024)) {
        EXPECT_LE(batch->body.size(), 64U * 1024);
        if (batch->group.kind == contract::ArchiveKind::Hourly && count == 0) {
            EXPECT_EQ(batch->pieces.size(), 8U);
        }
        count += batch->lines;
        EXPECT_EQ(lines_of(batch->body).size(), batch->lines);
        queue.confirmed(*batch);
    }
    EXPECT_EQ(count, 8U * 3000 + 2);
}

TEST_F(ArchiveQueue, ValuesGoOutWithAllTheirDigits) {
    append(Path,
           "1709377200,192,123456789012345680.123457\n1709380800,0,-0.500000\n1709384400,192,-inf\n"
           "1709388000,192,-nan\n1709391600,192,00012.500000\n");
    queue.look_at("m1", 1);
    EXPECT_TRUE(queue.next(4096)->body.ends_with(
        R"("lines":[["A1",1709377200,192,123456789012345680.123457],["A1",1709380800,0,-0.500000],)"
        R"(["A1",1709384400,192,"-inf"],["A1",1709388000,192,"nan"],["A1",1709391600,192,12.500000]]})"));
}

TEST_F(ArchiveQueue, OfAStagingDriverTheWorkingFolderIsRead) {
    append("/mnt/storage/m1/1/tmp_archives/A1", hour_lines(0, 2));
    append("/mnt/storage/m1/1/tc_tmp_archives/A1", hour_lines(0, 1));
    EXPECT_EQ(sent(queue), (Lines{line(0), line(1)}));
}

TEST_F(ArchiveQueue, WithTheNewestFirstTheBacklogComesBehindAndAllInTheEnd) {
    Queue newest("g", true);
    append(Path, hour_lines(0, 5000));
    newest.look_at("m1", 1);
    const auto first = newest.next(8192);
    ASSERT_TRUE(first && first->is_ahead);
    EXPECT_TRUE(lines_of(first->body).back().ends_with(line(4999)));
    newest.confirmed(*first);
    const auto second = newest.next(8192);
    ASSERT_TRUE(second && !second->is_ahead);
    newest.confirmed(*second);
    append(Path, hour_lines(5000, 1));
    newest.look_at("m1", 1);
    const auto third = newest.next(8192);
    ASSERT_TRUE(third && third->is_ahead);
    EXPECT_EQ(lines_of(third->body).size(), 1U);
    newest.confirmed(*third);
    const Lines rest = sent(newest);
    EXPECT_EQ(rest.size() + second->lines, 5001U);
    EXPECT_EQ(rest.back(), line(5000));
}

// Whatever happens to the file, in the end each line that stands in it was sent, and of one time the last one last.
TEST_F(ArchiveQueue, AnythingAtRandom) {
    for (unsigned seed = 0; seed < 15; ++seed) {
        std::mt19937 chance(seed);
        Queue any("g", seed % 2 == 0);
        scene.write(Path, "");
        Lines lines;
        int hour = 0;
        std::optional<Batch> on_its_way;
        for (int step = 0; step < 120; ++step) {
            switch (chance() % 8) {
                case 0:
                    append(Path, hour_lines(hour, 700));
                    hour += 700;
                    break;
                case 1:
                    append(Path, hour_lines(hour, 3));
                    hour += 3;
                    break;
                case 2:  // the same hours again with other values
                    append(Path, hour_lines(std::max(0, hour - 5), 5, static_cast<int>(chance() % 1000)));
                    break;
                case 3:
                    append(Path, chance() % 2 == 0 ? "\ntorn,1\n" : std::string(100, '\0'));
                    break;
                case 4:
                    if (chance() % 4 == 0) scene.write(Path, hour_lines(0, hour, static_cast<int>(chance() % 1000)));
                    break;
                default:
                    any.look_at("m1", 1);
                    if (!on_its_way) on_its_way = any.next(2000 + chance() % 20000);
                    if (!on_its_way) break;
                    if (chance() % 3 == 0) {
                        any.failed(*on_its_way);
                    } else {
                        for (std::string& one : lines_of(on_its_way->body))
                            lines.push_back(one.substr(one.find(' ') + 1));
                        any.confirmed(*on_its_way);
                    }
                    on_its_way.reset();
            }
        }
        for (std::string& one : sent(any)) lines.push_back(std::move(one));
        std::map<std::string, std::string> last_sent;
        for (const std::string& one : lines) last_sent[one.substr(0, 10)] = one;
        File file(Path, O_RDONLY);
        contract::ArchiveLines all(file, 0, 100'000'000);
        std::map<std::string, std::string> last_in_file;
        for (contract::ArchiveLine one; all.next(one);) {
            if (all.end_of_lines() <= all.position()) break;
            last_in_file[std::to_string(one.time)] = std::string(one.value.substr(0, one.value.find('.')));
        }
        for (const auto& [time, value] : last_in_file) {
            ASSERT_EQ(last_sent[time], time + " 192 " + value + ".0") << "seed " << seed;
        }
    }
}

}  // namespace
