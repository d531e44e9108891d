// The power fails in the middle of an archive pass. What the cut may cost is known exactly: after the restart reading
// goes on behind the newest record that the files of totals tell of, so of the one record that the cut fell into the
// lines that were not there yet are given up. Everything else is in the files, once, and no line is glued to another.

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/km5_lines.h"
#include "support/km5_scene.h"

namespace {

using sim::Km5Archive;
using sim::Unsynced;

const std::set<std::string> HourlyTotals = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};
const std::set<std::string> DailyTotals = {"A29", "A32", "A34", "A40", "A42"};

/// Lines of one kind: events, hourly or daily records. The files that tell how far it has been read.
struct Sequence {
    std::vector<Km5Line> lines;
    std::set<std::string> tells;
};

class Km5PowerCut : public Km5Stand, public ::testing::WithParamInterface<Unsynced> {
  protected:
    sim::Km5Meter new_meter() const {
        sim::Km5Meter meter({.model = 2});
        meter.store_event("2024-03-02 08:10:00", 0x85);
        meter.store_event("2024-03-02 08:20:00", 0x06);  // two events of one second: the files cannot tell them apart
        meter.store_event("2024-03-02 08:20:00", 0x87);
        for (int hour = 8; hour <= 9; ++hour) store(meter, Km5Archive::Hourly, hour);
        store(meter, Km5Archive::Daily, 0);
        return meter;
    }
    /// What the meter has got more when the gateway has its power again.
    static void live_on(sim::Km5Meter& meter) {
        meter.store_event("2024-03-02 09:50:00", 0x88);
        store(meter, Km5Archive::Hourly, 10);
    }
    static void store(sim::Km5Meter& meter, Km5Archive archive, int hour) {
        const auto base = static_cast<float>(hour * 100);
        sim::Km5Record record{.at = std::string("2024-03-02 ") + (hour < 10 ? "0" : "") + std::to_string(hour) + ":00",
                              .ta = base,
                              .P1 = base + 1,
                              .P2 = base + 2,
                              .P3 = base + 3,
                              .T1 = base + 4,
                              .T2 = base + 5,
                              .T3 = base + 6,
                              .IM1 = base + 7,
                              .IM2 = base + 8,
                              .Vi = base + 9,
                              .IV1 = base + 10,
                              .IV2 = base + 11,
                              .IQ = base + 12,
                              .IT = base + 13};
        meter.store(archive, record);
    }

    /// All that a meter without power cuts gives, in the order of writing: events, hourly records, daily records.
    static std::vector<Sequence> runs_of(const sim::Km5Meter& meter) {
        Sequence events{{}, {"_A57"}};
        for (const auto& event : meter.events()) events.lines.push_back(km5_event_line(event));
        std::vector<Sequence> runs = {events, {{}, HourlyTotals}, {{}, DailyTotals}};
        std::size_t run = 1;
        for (const Km5Archive archive : {Km5Archive::Hourly, Km5Archive::Daily}) {
            for (const auto& record : meter.records(archive)) {
                const auto lines = km5_record_lines(2, archive, record);
                runs[run].lines.insert(runs[run].lines.end(), lines.begin(), lines.end());
            }
            ++run;
        }
        return runs;
    }

    void start(sim::Km5Meter& meter) {
        machine.disconnect_all(Port);
        machine.connect(Port, meter);
        start_driver();
        driver->getModel();
    }
    /// False when the power failed.
    bool archive_pass() {
        try {
            return driver->get_archives(0) && driver->get_archives(1);
        } catch (const sim::PowerCut&) {
            return false;
        }
    }
    void new_storage() {
        scene.remove("/mnt/storage/m1");
        restart_gateway();
        machine.settle_storage();
    }
    void restart_gateway() {
        scene.clear_tmp();
        scene.make_tree(Uuid);
    }

    /// The lines of all files; zero bytes that a cut has left are taken out where they stand for themselves.
    LineCounts lines_in_files() const {
        LineCounts counts;
        for (const std::string& name : archive_names()) {
            if (name == "_EXISTS_FIRST_RECORD") continue;
            std::istringstream text(archive(name));
            for (std::string line; std::getline(text, line);) {
                const bool zeros = line.find_first_not_of('\0') == std::string::npos;
                EXPECT_TRUE(!zeros || GetParam() == Unsynced::Zeroed) << name << ": an empty line";
                if (!zeros) ++counts[name][line];
            }
        }
        return counts;
    }

    /// What must stand in the files in the end, when the first `written` of the lines in `before` survived the cut and
    /// `after` is what the meter has at the restart.
    static LineCounts expected(const std::vector<Sequence>& before, const std::vector<Sequence>& after,
                               std::size_t written) {
        LineCounts counts;
        std::set<std::time_t> cut_records;
        for (std::size_t r = 0; r < before.size(); ++r) {
            const std::size_t survived = std::min(written, before[r].lines.size());
            written -= survived;
            std::time_t resume = 0;
            for (std::size_t i = 0; i < survived; ++i) {
                const Km5Line& line = before[r].lines[i];
                km5_count(counts, line);
                if (before[r].tells.contains(line.file)) resume = std::max(resume, line.time);
            }
            for (std::size_t i = survived; i < after[r].lines.size(); ++i) {
                const Km5Line& line = after[r].lines[i];
                if (line.record_time > resume) {
                    km5_count(counts, line);
                } else {
                    cut_records.insert(line.record_time);
                }
            }
        }
        EXPECT_LE(cut_records.size(), 1U) << "lines of more than the one record are given up";
        return counts;
    }
};

TEST_P(Km5PowerCut, AtAnyLineOfAPassCostsAtMostTheRestOfItsRecord) {
    const std::vector<Sequence> before = runs_of(new_meter());
    const std::size_t lines = before[0].lines.size() + before[1].lines.size() + before[2].lines.size();
    int cuts = 0;
    for (int n = 1;; ++n) {
        SCOPED_TRACE("power cut at line " + std::to_string(n));
        new_storage();
        sim::Km5Meter meter = new_meter();
        start(meter);
        machine.cut_power_at(n, GetParam());
        const bool whole = archive_pass();
        machine.cut_power_at(0, GetParam());
        if (!whole) ++cuts;

        live_on(meter);
        restart_gateway();
        start(meter);
        ASSERT_TRUE(archive_pass());
        const auto survived = static_cast<std::size_t>(whole || GetParam() == Unsynced::Kept ? n : n - 1);
        ASSERT_EQ(lines_in_files(), expected(before, runs_of(meter), std::min(survived, lines)));
        EXPECT_TRUE(archive("_EXISTS_FIRST_RECORD") == "1") << "the marker is there again";
        if (whole) break;
    }
    EXPECT_EQ(cuts, static_cast<int>(lines)) << "each line is one durable write";
}

TEST_P(Km5PowerCut, TheFirstLineBehindACutBeginsOnANewLine) {
    new_storage();
    sim::Km5Meter meter = new_meter();
    start(meter);
    machine.cut_power_at(3 + 1, GetParam());  // behind the three events the first line is that of A12
    ASSERT_FALSE(archive_pass());
    restart_gateway();
    start(meter);
    ASSERT_TRUE(archive_pass());
    const std::string eight = "1709366400,192,807.000000\n";
    const std::string nine = "1709370000,192,907.000000\n";
    const std::string zeros = std::string(eight.size(), '\0') + "\n";
    const std::string wanted = GetParam() == Unsynced::Kept     ? eight + nine
                               : GetParam() == Unsynced::Zeroed ? zeros + eight + nine
                                                                : eight + nine;
    EXPECT_EQ(archive("A12"), wanted);
}

TEST_P(Km5PowerCut, APowerCutAtEachRestartCostsNoRecordTwice) {
    // Cut after cut, each at the 13th line of its pass, until a pass ends: the files grow from start to start.
    new_storage();
    sim::Km5Meter meter = new_meter();
    for (int hour = 1; hour <= 3; ++hour) {
        meter.store_event("2024-03-02 09:0" + std::to_string(hour) + ":00", 0x81);
    }
    int starts = 1;
    start(meter);
    machine.cut_power_at(13, GetParam());
    while (!archive_pass()) {
        restart_gateway();
        start(meter);
        machine.cut_power_at(13, GetParam());
        ASSERT_LT(++starts, 10);
    }
    EXPECT_GT(starts, 2);
    for (const auto& [file, lines] : lines_in_files()) {
        for (const auto& [line, times] : lines) EXPECT_EQ(times, 1) << file << " " << line;
    }
    EXPECT_EQ(lines_in_files().at("_A57").size(), 6U);
}

std::string fate_name(const ::testing::TestParamInfo<Unsynced>& info) {
    if (info.param == Unsynced::Dropped) return "Dropped";
    return info.param == Unsynced::Kept ? "Kept" : "Zeroed";
}

INSTANTIATE_TEST_SUITE_P(Fates, Km5PowerCut, ::testing::Values(Unsynced::Dropped, Unsynced::Kept, Unsynced::Zeroed),
                         fate_name);

// ---- a line of which only a part reached the storage

class Km5TornLine : public Km5Stand {
  protected:
    void torn(const std::string& text) {
        scene.write("/mnt/storage/m1/1/tc_archives/A12", text);
        meter.store_hourly({.at = "2024-03-02 09:00", .IM1 = 9});
        meter.store_hourly({.at = "2024-03-02 10:00", .IM1 = 10});
        start_described(meter);
        ASSERT_TRUE(driver->get_archives(0));
    }
    sim::Km5Meter meter{{.model = 2}};
};

TEST_F(Km5TornLine, ALineCutInItsTimeIsEndedAndItsRecordReadAgain) {
    torn("1709366400,192,8.000000\n17093700");
    EXPECT_EQ(archive("A12"), "1709366400,192,8.000000\n17093700\n1709370000,192,9.000000\n1709373600,192,10.000000\n");
}

TEST_F(Km5TornLine, ALineCutInItsValueStillTellsItsTime) {
    torn("1709366400,192,8.000000\n1709370000,192,9.0");
    EXPECT_EQ(archive("A12"), "1709366400,192,8.000000\n1709370000,192,9.0\n1709373600,192,10.000000\n");
    EXPECT_EQ(archive("A14"), "1709373600,192,0.000000\n") << "the rest of the record is given up";
}

TEST_F(Km5TornLine, ZeroBytesInThePlaceOfALineTellNothing) {
    torn("1709366400,192,8.000000\n" + std::string(24, '\0'));
    EXPECT_EQ(archive("A12"), "1709366400,192,8.000000\n" + std::string(24, '\0') +
                                  "\n1709370000,192,9.000000\n1709373600,192,10.000000\n");
}

TEST_F(Km5TornLine, AStorageThatDoesNotConfirmIsWrittenToAllTheSame) {
    machine.fail_durable(5);
    torn("");
    EXPECT_EQ(archive("A12"), "1709370000,192,9.000000\n1709373600,192,10.000000\n");
}

}  // namespace
