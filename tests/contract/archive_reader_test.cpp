#include "contract/archive_reader.h"

#include <fstream>
#include <map>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "contract/archive_table.h"
#include "contract/gaps.h"
#include "contract/newest.h"
#include "core/local_time.h"
#include "support/scene.h"

using contract::ArchiveLine;
using contract::ArchiveReader;
using contract::TimeSpan;

namespace {

constexpr const char* Folder = "/mnt/storage/m1/1/tc_archives";
constexpr const char* Path = "/mnt/storage/m1/1/tc_archives/A1";
constexpr std::int64_t Begin = 1700002800;
constexpr std::int64_t Hour = 3600;

std::string line_of(std::int64_t time, int value) {
    return std::to_string(time) + ",192," + std::to_string(value) + ".000000\n";
}

class ArchiveFiles : public testing::Test {
  protected:
    std::string read(const TimeSpan& span = {}) {
        ArchiveReader reader(Path, span);
        std::string text;
        for (ArchiveLine line; reader.next(line);) {
            text += std::to_string(line.time) + ' ' + std::string(line.value) + '\n';
        }
        unreadable = reader.unreadable();
        changed = reader.has_changed();
        return text;
    }

    Scene scene;
    std::size_t unreadable = 0;
    bool changed = false;
};

TEST_F(ArchiveFiles, OfATimeTheLineThatWasWrittenLastCounts) {
    scene.write(Path, line_of(Begin, 1) + line_of(Begin + Hour, 2) + line_of(Begin, 3) + line_of(Begin + Hour, 4));
    EXPECT_EQ(read(), "1700002800 3.000000\n1700006400 4.000000\n");
}

TEST_F(ArchiveFiles, TheBeginningOfASpanIsInItAndItsEndIsNot) {
    scene.write(Path, line_of(Begin, 1) + line_of(Begin + Hour, 2) + line_of(Begin + 2 * Hour, 3));
    EXPECT_EQ(read({.from = Begin + Hour, .to = Begin + 2 * Hour}), "1700006400 2.000000\n");
}

TEST_F(ArchiveFiles, WhatIsNoLineIsPassedOverAndCounted) {
    scene.write(Path, line_of(Begin, 1) + "17000064\n" + std::string(5000, '\0') + '\n' + std::string(200'000, 'x') +
                          '\n' + line_of(Begin + Hour, 2) + "1700010000,192,3.0000");
    EXPECT_EQ(read(), "1700002800 1.000000\n1700006400 2.000000\n");
    EXPECT_EQ(unreadable, 4u);
}

TEST_F(ArchiveFiles, ALastLineWithAllItsDigitsIsWhole) {
    scene.write(Path, line_of(Begin, 1) + "1700006400,192,2.000000");
    EXPECT_EQ(read(), "1700002800 1.000000\n1700006400 2.000000\n");
    EXPECT_EQ(unreadable, 0u);
}

TEST_F(ArchiveFiles, AreReadAlikeWhereverTheirBlocksEnd) {
    std::string text;
    for (int i = 0; i < 9000; ++i) text += line_of(Begin + i * Hour, i);
    for (int shift = 0; shift < 64; ++shift) {
        scene.write(Path, std::string(static_cast<std::size_t>(shift), 'x') + '\n' + text);
        ArchiveReader reader(Path, {});
        std::int64_t expected = Begin;
        for (ArchiveLine line; reader.next(line); expected += Hour) ASSERT_EQ(line.time, expected);
        ASSERT_EQ(expected, Begin + 9000 * Hour);
    }
}

/// A file with everything that happens to one, against a plain map.
TEST_F(ArchiveFiles, TellTheSameAsAMapOfTheirLines) {
    for (unsigned seed = 0; seed < 40; ++seed) {
        std::mt19937 random(seed);
        std::string text;
        std::map<std::int64_t, int> truth;
        std::int64_t time = Begin;
        const int count = static_cast<int>(random() % 12000);
        for (int i = 0; i < count; ++i, time += Hour) {
            if (random() % 700 == 0) time -= static_cast<std::int64_t>(random() % 1500) * Hour;
            if (random() % 900 == 0) time += static_cast<std::int64_t>(random() % 100) * Hour;
            if (random() % 500 == 0) text += "1700\n";
            if (random() % 800 == 0) text += std::string(random() % 3000, '\0') + '\n';
            text += line_of(time, i);
            truth[time] = i;
        }
        scene.write(Path, text);
        for (const std::int64_t back : {100000, 2000, 30, 1}) {
            const TimeSpan span{.from = time - back * Hour, .to = time - back / 2 * Hour};
            std::string expected;
            for (auto at = truth.lower_bound(span.from); at != truth.end() && at->first < span.to; ++at) {
                expected += std::to_string(at->first) + ' ' + std::to_string(at->second) + ".000000\n";
            }
            EXPECT_EQ(read(span), expected) << "seed " << seed << ", back " << back;
        }
    }
}

TEST_F(ArchiveFiles, AClockThatWasAheadForMonthsIsFoundFromTheEnd) {
    std::string text;
    for (int i = 0; i < 6000; ++i) text += line_of(Begin + i * Hour, i);
    for (int i = 0; i < 6000; ++i) text += line_of(Begin + 100000 * Hour + i * Hour, i);
    for (int i = 6000; i < 12000; ++i) text += line_of(Begin + i * Hour, i);
    scene.write(Path, text);
    EXPECT_EQ(read({.from = Begin + 105999 * Hour}), std::to_string(Begin + 105999 * Hour) + " 5999.000000\n");
}

TEST_F(ArchiveFiles, ALongRunOfZerosHidesNothingInFrontOfIt) {
    std::string text;
    for (int i = 0; i < 2000; ++i) text += line_of(Begin + i * Hour, i);
    scene.write(Path, text + std::string(300'000, '\0') + '\n' + line_of(Begin + 2000 * Hour, 2000) +
                          std::string(200'000, '\0'));
    const std::string found = read({.from = Begin + 1999 * Hour});
    EXPECT_EQ(std::ranges::count(found, '\n'), 2);
    EXPECT_EQ(contract::newest_record("m1", 1, contract::ArchiveKind::Hourly), Begin + 2000 * Hour);
}

TEST_F(ArchiveFiles, AFileThatIsEmptiedMeanwhileIsToldToHaveChanged) {
    std::string text;
    for (int i = 0; i < 20000; ++i) text += line_of(Begin + i * Hour, i);
    scene.write(Path, text);
    ArchiveReader reader(Path, {});
    ArchiveLine line;
    ASSERT_TRUE(reader.next(line));
    scene.write(Path, "");
    while (reader.next(line)) continue;
    EXPECT_TRUE(reader.has_changed());
}

/// Pieces of any length, as a storage lets them be seen.
TEST_F(ArchiveFiles, WhileAFileGrowsNobodySeesHalfALine) {
    constexpr int Count = 3000;
    scene.write(Path, "");
    std::thread writer([path = scene.real_path(Path)] {
        std::mt19937 random(1);
        std::string text;
        for (int i = 0; i < Count; ++i) text += line_of(Begin + i * Hour, i);
        std::ofstream file(path, std::ios::app | std::ios::binary);
        for (std::size_t at = 0, length = 0; at < text.size(); at += length) {
            length = std::min<std::size_t>(1 + random() % 40, text.size() - at);
            file.write(text.data() + at, static_cast<std::streamsize>(length)).flush();
        }
    });
    std::int64_t shown = 0;
    while (shown < Count) {
        ArchiveReader reader(Path, {});
        shown = 0;
        for (ArchiveLine line; reader.next(line); ++shown) {
            ASSERT_EQ(line.time, Begin + shown * Hour);
            ASSERT_EQ(line.value, std::to_string(shown) + ".000000");
        }
    }
    writer.join();
}

TEST_F(ArchiveFiles, WhatIsNoFileHasNoLines) {
    EXPECT_EQ(read(), "");
    scene.write("/mnt/storage/m1/1/tc_archives/A1/x", "");
    EXPECT_EQ(read(), "");
}

// ---- side by side

TEST_F(ArchiveFiles, ARowIsATimeAndNamesAreInNaturalOrder) {
    const auto write = [this](const char* name, const std::string& text) {
        scene.write(std::string(Folder) + '/' + name, text);
    };
    write("A10", line_of(Begin, 10));
    write("A2", line_of(Begin, 2) + line_of(Begin + Hour, 22));
    write("A29", line_of(Begin, 29));
    write("_A20", "1700006400,0,500.000000\n");
    write("foreign", line_of(Begin, 99));
    contract::ArchiveTable table(Folder, contract::ArchiveKind::Hourly, {});
    EXPECT_EQ(table.names(), (std::vector<std::string>{"A2", "A10", "_A20"}));
    ASSERT_TRUE(table.next());
    EXPECT_EQ(table.time(), Begin);
    EXPECT_EQ(table.cells()[0].value, "2.000000");
    EXPECT_EQ(table.cells()[1].value, "10.000000");
    EXPECT_FALSE(table.cells()[2].there);
    ASSERT_TRUE(table.next());
    EXPECT_EQ(table.time(), Begin + Hour);
    EXPECT_EQ(table.cells()[2].quality, 0);
    EXPECT_FALSE(table.next());
}

TEST_F(ArchiveFiles, ByRecordMeansStandBesideTheTotalsOfTheirEnd) {
    scene.write(std::string(Folder) + "/A12", line_of(Begin + Hour, 12));
    scene.write(std::string(Folder) + "/A20", line_of(Begin, 20));
    contract::ArchiveQuestion question;
    question.by_record = true;
    question.span.from = Begin + Hour;
    contract::ArchiveTable table(Folder, contract::ArchiveKind::Hourly, question);
    ASSERT_TRUE(table.next());
    EXPECT_EQ(table.time(), Begin + Hour);
    EXPECT_EQ(table.cells()[0].value, "12.000000");
    EXPECT_EQ(table.cells()[1].value, "20.000000");
    EXPECT_FALSE(table.next());
}

/// Daily records of the last week of March and of October 2024, in Berlin.
class DailyRecords : public ArchiveFiles, public testing::WithParamInterface<std::int64_t> {
  protected:
    static constexpr std::int64_t Day = 24 * Hour;
    DailyRecords() {
        ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        ::tzset();
    }
    ~DailyRecords() override { ::unsetenv("TZ"); }

    /// Times of records, one a day, each with the time that the one before it has.
    void write(const char* total, const char* mean, const std::vector<std::int64_t>& times) {
        std::string totals;
        std::string means;
        for (std::size_t i = 1; i < times.size(); ++i) {
            totals += line_of(times[i], static_cast<int>(i));
            means += line_of(times[i - 1], static_cast<int>(i));
        }
        scene.write(std::string(Folder) + '/' + total, totals);
        scene.write(std::string(Folder) + '/' + mean, means);
    }

    void expect_whole_records(std::size_t count) {
        contract::ArchiveQuestion question;
        question.by_record = true;
        contract::ArchiveTable table(Folder, contract::ArchiveKind::Daily, question);
        std::size_t rows = 0;
        for (; table.next(); ++rows) {
            EXPECT_EQ(table.cells()[0].value, table.cells()[1].value) << table.time();
        }
        EXPECT_EQ(rows, count);
        const contract::Gaps gaps = contract::find_gaps(Folder, contract::ArchiveKind::Daily, {}, false);
        EXPECT_FALSE(gaps.any());
        EXPECT_EQ(gaps.expected, count);
    }
};

TEST_P(DailyRecords, OfAClockThatFollowsSummerTimeAreWhole) {
    std::vector<std::int64_t> midnights;
    for (int day = 0; day < 7; ++day) {
        std::tm date = local_time(static_cast<std::time_t>(GetParam()));
        date.tm_mday += day;
        date.tm_isdst = -1;
        midnights.push_back(make_time(date));
    }
    write("A29", "A45", midnights);
    expect_whole_records(6);
}

TEST_P(DailyRecords, OfAClockThatStaysAtStandardTimeAreWhole) {
    std::vector<std::int64_t> midnights;
    const bool is_summer = local_time(static_cast<std::time_t>(GetParam())).tm_isdst > 0;
    for (int day = 0; day < 7; ++day) midnights.push_back(GetParam() + (is_summer ? Hour : 0) + day * Day);
    write("A29", "_A48", midnights);
    expect_whole_records(6);
    // The records of one kind alone, of which the last one ends where the clock is another one than at the first.
    contract::ArchiveQuestion question;
    question.names = {"A29"};
    EXPECT_FALSE(contract::find_gaps(Folder, contract::ArchiveKind::Daily, question, false).any());
}

INSTANTIATE_TEST_SUITE_P(SummerTime, DailyRecords, testing::Values(1711580400, 1729720800));

TEST_F(ArchiveFiles, TheLastDayThatAClockCanHoldHasAnEnd) {
    EXPECT_EQ(contract::end_of_period(2147483647, contract::Period::CalendarDay), 2147483647 + 24 * Hour);
}

}  // namespace
