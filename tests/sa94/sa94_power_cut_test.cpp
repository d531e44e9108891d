// The power fails in the middle of an archive pass. What that may cost is known exactly: after the restart reading goes
// on behind the newest record of which a file tells that is looked at then. Of the record that the cut fell into
//  - the lines that were not there yet are given up, if one that tells is there;
//  - the lines that were there stand there twice, if none that tells is there yet (temperatures and pressures of the
//    firmware that puts them first).
// Everything else is in the files, once, and no line is glued to another.

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "support/sa94_archive_scene.h"

namespace {

using sim::Sa94Archive;
using sim::Unsynced;

constexpr std::time_t Hour = 3600;
constexpr std::time_t Newest = 1709370000;  // 2024-03-02 09:00 UTC

struct Line {
    std::string file;
    std::string text;
    std::time_t record_time;
};

/// Durable writes of one archive in their order, and the files that tell how far it has been read. A write without a
/// file is that of the last energy total, in front of its line.
struct Sequence {
    std::vector<Line> lines;
    std::set<std::string> tells;
};

std::set<std::string> telling(Sa94Archive archive) {
    if (archive == Sa94Archive::Errors) return {"_A57"};
    if (archive == Sa94Archive::Daily) return {"A29", "A32", "A34", "A40", "A42"};
    std::set<std::string> names;
    for (int n = 1; n <= 16; ++n) names.insert("A" + std::to_string(n));
    return names;
}

class Sa94PowerCut : public Sa94ArchiveStand, public ::testing::WithParamInterface<std::tuple<Unsynced, const char*>> {
  protected:
    static Unsynced fate() { return std::get<0>(GetParam()); }

    static sim::Sa94Meter new_meter() {
        sim::Sa94Meter meter({.firmware = std::get<1>(GetParam())});
        meter.start_error(5, "2024-03-02 07:10");
        meter.stop_error(5, "2024-03-02 07:20");
        meter.start_error(9, "2024-03-02 07:30");
        meter.fill(Sa94Archive::Hourly, {.records = 3, .newest = "2024-03-02 08:00"});
        meter.fill(Sa94Archive::Daily, {.records = 2, .newest = "2024-03-01 00:00"});
        return meter;
    }
    /// What the meter has got more when the gateway has its power again.
    static void live_on(sim::Sa94Meter& meter) {
        meter.stop_error(9, "2024-03-02 09:50");
        meter.record_archives(true, "2024-03-02 09:00");
        meter.catch_up(Newest + Hour);
    }

    static std::vector<Sequence> sequences_of(const sim::Sa94Meter& meter) {
        std::vector<Sequence> all;
        for (const auto archive : {Sa94Archive::Errors, Sa94Archive::Hourly, Sa94Archive::Daily}) {
            Sequence sequence{{}, telling(archive)};
            for (const auto& record : meter.records(archive)) {
                for (const auto& value : meter.record_files(archive, record)) {
                    if (value.file == "A1" || value.file == "A29") sequence.lines.push_back({"", "", record.time});
                    sequence.lines.push_back({value.file, sa94_line(value), record.time});
                }
            }
            all.push_back(std::move(sequence));
        }
        return all;
    }

    void start(sim::Sa94Meter& meter) {
        scene.clear_tmp();  // and with it the place of all items
        mute_logs();
        start_described(meter);
    }
    /// The archives in the order of a pass. False when the power failed.
    bool archive_pass() {
        try {
            return driver->getArchives(ERROR_DB) && driver->getArchives(HOURLY_DB) && driver->getArchives(DAILY_DB);
        } catch (const sim::PowerCut&) {
            return false;
        }
    }
    void new_storage() {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        machine.settle_storage();
    }

    /// The lines of all files; zero bytes that a cut has left are taken out where they stand for themselves.
    LineCounts whole_lines() const {
        LineCounts counts;
        for (const auto& [file, lines_of_file] : lines()) {
            for (const auto& [line, times] : lines_of_file) {
                const bool zeros = line.find_first_not_of(std::string("\0\n", 2)) == std::string::npos;
                EXPECT_TRUE(!zeros || fate() == Unsynced::Zeroed) << file << ": an empty line";
                if (!zeros) counts[file][line] += times;
            }
        }
        return counts;
    }

    struct Outcome {
        LineCounts counts;
        std::size_t given_up = 0;
        std::size_t twice = 0;
    };
    /// What must stand in the files in the end, when the first `written` of the lines in `before` survived the cut and
    /// `after` is what the meter has at the restart.
    static Outcome expected(const std::vector<Sequence>& before, const std::vector<Sequence>& after,
                            std::size_t written) {
        Outcome outcome;
        for (std::size_t s = 0; s < before.size(); ++s) {
            const std::size_t survived = std::min(written, before[s].lines.size());
            written -= survived;
            std::time_t resume = 0;
            for (std::size_t i = 0; i < survived; ++i) {
                const Line& line = before[s].lines[i];
                if (line.file.empty()) continue;
                ++outcome.counts[line.file][line.text];
                if (before[s].tells.contains(line.file)) resume = std::max(resume, line.record_time);
            }
            for (std::size_t i = 0; i < after[s].lines.size(); ++i) {
                const Line& line = after[s].lines[i];
                if (line.file.empty()) continue;
                if (line.record_time <= resume) {
                    outcome.given_up += i >= survived ? 1 : 0;
                    continue;
                }
                outcome.twice += i < survived ? 1 : 0;
                ++outcome.counts[line.file][line.text];
            }
        }
        return outcome;
    }
};

TEST_P(Sa94PowerCut, AtAnyLineOfAPassCostsAtMostTheRestOfItsRecord) {
    const std::vector<Sequence> before = sequences_of(new_meter());
    const std::size_t record_lines = before[1].lines.size() / 3;
    std::size_t lines_in_all = 0;
    for (const Sequence& sequence : before) lines_in_all += sequence.lines.size();
    std::size_t cuts = 0;
    std::size_t most_twice = 0;
    for (std::size_t n = 1;; ++n) {
        SCOPED_TRACE("power cut at line " + std::to_string(n));
        new_storage();
        sim::Sa94Meter meter = new_meter();
        start(meter);
        machine.cut_power_at(static_cast<int>(n), fate());
        const bool whole = archive_pass();
        machine.cut_power_at(0, fate());
        if (!whole) ++cuts;

        live_on(meter);
        start(meter);
        ASSERT_TRUE(archive_pass());
        const std::size_t survived = whole || fate() == Unsynced::Kept ? n : n - 1;
        const Outcome outcome = expected(before, sequences_of(meter), survived);
        ASSERT_EQ(difference(whole_lines(), outcome.counts), "");
        EXPECT_LT(outcome.given_up, record_lines);
        most_twice = std::max(most_twice, outcome.twice);
        if (whole) break;
    }
    EXPECT_EQ(cuts, lines_in_all) << "each line is one durable write, and so is each energy total";
    EXPECT_EQ(most_twice, std::get<1>(GetParam()) == std::string("M300") ? 0U : 5U)
        << "T1, T2, T3, P1 and P2 stand in front of the first file that tells";
}

TEST_P(Sa94PowerCut, TheFirstLineBehindACutBeginsOnANewLine) {
    new_storage();
    sim::Sa94Meter meter = new_meter();
    start(meter);
    machine.cut_power_at(2, fate());  // the second error
    ASSERT_FALSE(archive_pass());
    start(meter);
    ASSERT_TRUE(archive_pass());
    const std::string first = "1709363400,192,5.000000\n";
    const std::string second = "1709364000,0,5.000000\n";
    const std::string third = "1709364600,192,9.000000\n";
    const std::string zeros = std::string(second.size(), '\0') + "\n";
    EXPECT_EQ(archive("_A57"), first + (fate() == Unsynced::Zeroed ? zeros : "") + second + third);
}

TEST_P(Sa94PowerCut, CutAfterCutEndsWithAllErrorsOnceAndNoLineOfNoRecord) {
    new_storage();
    sim::Sa94Meter meter = new_meter();
    int starts = 1;
    start(meter);
    machine.cut_power_at(7, fate());
    while (!archive_pass()) {
        machine.cut_power_at(0, fate());
        start(meter);
        machine.cut_power_at(7, fate());
        ASSERT_LT(++starts, 30);
    }
    machine.cut_power_at(0, fate());
    EXPECT_GT(starts, 4);
    const LineCounts found = whole_lines();
    for (const auto& [line, times] : found.at("_A57")) EXPECT_EQ(times, 1) << line;
    EXPECT_EQ(found.at("_A57").size(), 3U);
    const LineCounts hourly = all_lines(meter, Sa94Archive::Hourly);
    const LineCounts daily = all_lines(meter, Sa94Archive::Daily);
    for (const auto& [file, lines_of_file] : found) {
        if (file == "_A57") continue;
        const LineCounts& held = hourly.contains(file) ? hourly : daily;
        for (const auto& [line, times] : lines_of_file) {
            EXPECT_TRUE(held.at(file).contains(line)) << file << ": never held: " << line;
            EXPECT_LE(times, starts);
        }
    }
}

class Sa94EnergyCut : public Sa94PowerCut {};

TEST_P(Sa94EnergyCut, TheLastEnergyTotalStandsInForAZeroBehindACutToo) {
    new_storage();
    sim::Sa94Meter meter = new_meter();
    meter.erase_archive(Sa94Archive::Hourly);
    meter.store_hourly({.at = "2024-03-02 08:00", .values = {{"IE", 1234.5}}});
    meter.store_hourly({.at = "2024-03-02 09:00", .values = {{"IE", 0.0}}});
    start(meter);
    machine.cut_power_at(3 + 11, fate());  // A1, the last line of the first hour, behind its total
    ASSERT_FALSE(archive_pass());
    EXPECT_EQ(archive("_hPrevE"), "1234.500000");
    start(meter);
    ASSERT_TRUE(archive_pass());
    EXPECT_TRUE(archive("A1").ends_with("1709373600,192,1234.500000\n"));
}

TEST_P(Sa94EnergyCut, AtTheTotalItselfLeavesTheOneBefore) {
    new_storage();
    leave_archive("_hPrevE", "1111.500000");
    machine.settle_storage();
    sim::Sa94Meter meter = new_meter();
    meter.erase_archive(Sa94Archive::Hourly);
    meter.store_hourly({.at = "2024-03-02 09:00", .values = {{"IE", 1234.5}}});
    start(meter);
    machine.cut_power_at(3 + 10, fate());
    ASSERT_FALSE(archive_pass());
    EXPECT_EQ(archive("_hPrevE"), fate() == Unsynced::Kept ? "1234.500000" : "1111.500000");
}

std::string case_name(const ::testing::TestParamInfo<std::tuple<Unsynced, const char*>>& info) {
    const Unsynced fate = std::get<0>(info.param);
    const std::string word = fate == Unsynced::Dropped ? "Dropped" : fate == Unsynced::Kept ? "Kept" : "Zeroed";
    return word + "Of" + std::get<1>(info.param);
}

INSTANTIATE_TEST_SUITE_P(Fates, Sa94PowerCut,
                         ::testing::Combine(::testing::Values(Unsynced::Dropped, Unsynced::Kept, Unsynced::Zeroed),
                                            ::testing::Values("M300", "301")),
                         case_name);
INSTANTIATE_TEST_SUITE_P(Fates, Sa94EnergyCut,
                         ::testing::Combine(::testing::Values(Unsynced::Dropped, Unsynced::Kept, Unsynced::Zeroed),
                                            ::testing::Values("M300")),
                         case_name);

// ---- a line of which only a part reached the storage

class Sa94TornLine : public Sa94ArchiveStand {
  protected:
    /// A file as a cut has left it; hours 08:00 and 09:00 are in the meter.
    void torn(const std::string& name, const std::string& text) {
        leave_archive(name, text);
        for (int hour = 8; hour <= 9; ++hour) {
            meter.store_hourly({.at = "2024-03-02 0" + std::to_string(hour) + ":00",
                                .values = {{"IM1", static_cast<double>(hour)}, {"IE", static_cast<double>(hour)}}});
        }
        start_described(meter);
        last_at_start = driver->progress().LastTimestampHourly;
        ASSERT_TRUE(driver->getArchives(HOURLY_DB));
    }
    sim::Sa94Meter meter{{.firmware = "M300"}};
    std::time_t last_at_start = 0;
};

TEST_F(Sa94TornLine, ALineCutInItsTimeIsEndedAndItsRecordReadAgain) {
    torn("A12", "1709366400,192,7.000000\n17093700");
    EXPECT_EQ(last_at_start, 1709362800) << "07:00, which the meter does not hold any more";
    EXPECT_EQ(archive("A12"), "1709366400,192,7.000000\n17093700\n1709373600,192,9.000000\n")
        << "the record that it resumes at, the oldest, is passed over";
}

TEST_F(Sa94TornLine, ALineCutInItsValueStillTellsItsTime) {
    torn("A12", "1709366400,192,7.000000\n1709370000,192,8.0");
    EXPECT_EQ(last_at_start, Newest - Hour);
    EXPECT_EQ(archive("A12"), "1709366400,192,7.000000\n1709370000,192,8.0\n1709373600,192,9.000000\n");
    EXPECT_EQ(archive("A14"), "1709373600,192,0.000000\n") << "the rest of the record is given up";
}

TEST_F(Sa94TornLine, ALineCutBehindItsQualityTellsNothing) {
    torn("A12", "1709366400,192,7.000000\n1709370000,192,");
    EXPECT_EQ(last_at_start, 1709362800);
    EXPECT_EQ(archive("A12"), "1709366400,192,7.000000\n1709370000,192,\n1709373600,192,9.000000\n");
}

TEST_F(Sa94TornLine, ZeroBytesInThePlaceOfALineTellNothing) {
    torn("A1", std::string(26, '\0'));
    EXPECT_EQ(last_at_start, 0);
    EXPECT_EQ(archive("A1"), std::string(26, '\0') + "\n1709370000,192,8.000000\n1709373600,192,9.000000\n");
}

TEST_F(Sa94TornLine, OfAnErrorIsEndedAndTheErrorReadAgain) {
    meter.start_error(5, "2024-03-02 08:10");
    meter.stop_error(5, "2024-03-02 08:20");
    leave_archive("_A57", "1709367000,192,5.000000\n1709367600,0");
    start_described(meter);
    EXPECT_EQ(driver->progress().LastTimestampError, 1709367000);
    ASSERT_TRUE(driver->getArchives(ERROR_DB));
    EXPECT_EQ(archive("_A57"), "1709367000,192,5.000000\n1709367600,0\n1709367600,0,5.000000\n");
}

TEST_F(Sa94TornLine, OfAnEnergyTotalIsANumberAsFarAsItGoes) {
    leave_archive("_hPrevE", "12");  // of 1234.500000
    meter.store_hourly({.at = "2024-03-02 09:00"});
    start_described(meter);
    EXPECT_EQ(driver->progress().hPrevE, 12.0);
    ASSERT_TRUE(driver->getArchives(HOURLY_DB));
    EXPECT_EQ(archive("A1"), "1709373600,192,12.000000\n");
}

TEST_F(Sa94TornLine, AStorageThatDoesNotConfirmIsWrittenToAllTheSame) {
    machine.fail_durable(5);
    torn("A12", "");
    EXPECT_EQ(archive("A12"), "1709370000,192,8.000000\n1709373600,192,9.000000\n");
}

}  // namespace
