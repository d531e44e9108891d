// A month of two VIST meters on one line, two virtual devices each: a neighbour that leaves the bus free for six
// minutes of every twelve hours, noise and silence, restarts of the daemon, four days off the line, which is more than
// the meters' rings hold, the change to summer time, and a power cut at each kind of durable write.
//
// In the end the staged and the handed-over files hold every record that a meter held while it could be asked, once,
// with the quality that its values call for, and the totals of one header for each time the bus was free. A power cut
// between two lines of one record costs the whole list its past: it is emptied and read again from the oldest record
// that the meter still holds.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "support/vist_archive_scene.h"

namespace {

constexpr const char* Berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr std::time_t Hour = 3600;
constexpr std::time_t RingHours = 72;
constexpr std::time_t FreeTime = 360;
constexpr std::time_t FreeEvery = 12 * Hour;
constexpr int Windows = 62;

// The windows in which something happens.
constexpr int HeaderCut = 11;
constexpr int LineGone = 19;
constexpr int LineBack = 27;
constexpr int PlainCut = 36;
constexpr int QualityCut = 47;

struct Device {
    const char* uuid;
    const sim::VistMeter& meter;
    unsigned number;  ///< from 0
};

/// What stands in the files too often or too seldom, a line each.

class VistMonth : public VistArchiveStand {
  protected:
    VistMonth() : VistArchiveStand("2024-03-05 09:40:00", Berlin), begun(machine.now()) {
        for (sim::VistMeter* meter : {&first, &second}) meter->record_archives(true, begun - 20 * Hour);
        scene.make_tree("m2");
        scene.service.set_meter("m1", {.serial = 1, .port_name = Port, .manufacturer = "VIST"});
        scene.service.set_meter("m2", {.serial = 22, .port_name = Port, .manufacturer = "VIST"});
        be_quiet();
        connect();
        hold_bus();
        for (int window = 0; window < Windows; ++window) {
            const auto opens = static_cast<double>(opening(window) - begun);
            machine.at(opens, [this] { scene.remove("/tmp/pause_tvk_all"); });
            machine.at(opens + FreeTime, [this] { hold_bus(); });
        }
    }
    void connect() {
        machine.connect(Port, first);
        machine.connect(Port, second);
    }
    void hold_bus() { scene.touch("/tmp/pause_tvk_all"); }

    /// Neither logs, items nor LEDs are looked at here; without them a month takes a few seconds.
    void be_quiet() {
        g_log = nullptr;
        scene.remove("/proc/leds");
        for (const char* uuid : {"m1", "m2"}) {
            scene.remove(std::string("/tmp/") + uuid);
            scene.touch(std::string("/tmp/uni_logs.") + uuid + ".txt/no file");
        }
    }

    // ---- times

    std::time_t opening(int window) const { return begun + 2400 + window * FreeEvery; }
    /// The last full hour of any clock while the bus is free; it is free from 20 to 26 minutes past.
    std::time_t newest(int window) const { return opening(window) / Hour * Hour; }
    std::time_t oldest_held(int window) const {
        return std::max(newest(window) - (RingHours - 1) * Hour, (begun - 20 * Hour) / Hour * Hour + Hour);
    }

    // ---- what happens

    /// A process that ends shortly before the bus becomes free for the `window`-th time.
    void live_until_window(int window) {
        VistDaemon daemon({"m1", "m2"});
        machine.run_for(static_cast<double>(opening(window) - 1500 - machine.now()), [&daemon] { daemon(); });
        machine.forget_exchanges();
    }
    void rough_until_window(int window) {
        for (sim::VistMeter* meter : {&first, &second}) {
            // A header with a wrong inner sum would cost the totals of that hour: the next pass comes too late for it.
            const std::vector<sim::VistFault> faults = {
                sim::vist_noise(),       sim::vist_wrong_sum(),
                sim::vist_wrong_type(),  sim::vist_wrong_inner().on("/ARC/DLD +"),
                sim::vist_wrong_magic(), sim::vist_short(5),
                sim::vist_short(12),     sim::vist_trailing(),
                sim::vist_halved(),      sim::vist_silence(),
                sim::vist_error(),       sim::vist_wrong_device(5)};
            meter->misbehave_randomly(0.03, meter->config().serial + static_cast<unsigned>(window), faults);
        }
        live_until_window(window);
        for (sim::VistMeter* meter : {&first, &second}) meter->behave();
    }
    /// The power fails at the `nth` durable write of the first pass, which is one over the first meter's first device.
    void cut_power_at(int nth, sim::Unsynced fate) {
        machine.cut_power_at(nth, fate);
        VistDaemon daemon({"m1", "m2"});
        EXPECT_THROW(machine.run_for(FreeEvery, [&daemon] { daemon(); }), sim::PowerCut);
        machine.cut_power_at(0, fate);
        scene.clear_tmp();
        be_quiet();
        hold_bus();
    }

    // ---- what is looked at

    int trail_lines() const {
        const std::string trail = scene.file("/tmp/arch.integrity.fail.1").value_or("");
        return static_cast<int>(std::count(trail.begin(), trail.end(), '\n'));
    }
    std::time_t last_time(const std::string& name) const {
        return driver_of_files.last_record_time(name, 1, "tmp_archives");
    }
    /// The lines of the records from `from` to `to` that could be read, and of the headers of some windows.
    LineCounts expected(const Device& device, std::time_t from, std::time_t to,
                        const std::vector<int>& header_windows) const {
        LineCounts counts;
        for (std::time_t hour = from; hour <= to; hour += Hour) {
            if (hour > newest(LineGone - 1) && hour < oldest_held(LineBack)) continue;
            sim::VistStoredRecord record{.time = hour, .date = sim::VistWhen(hour).date()};
            for (std::size_t field = 0; field < sim::VistRecordFields; ++field) {
                record.numbers[field] =
                    sim::VistMeter::recorded_number(device.meter.config().serial, device.number, hour, field);
            }
            for (const auto& line : device.meter.record_files(record, device.number)) {
                ++counts[line.file][vist_line(line)];
            }
        }
        for (const int window : header_windows) {
            for (const auto& line : device.meter.header_files(opening(window), device.number)) {
                ++counts[line.file][vist_line(line)];
            }
        }
        return counts;
    }
    /// The windows from `from` to the last one in which a header could be read.
    static std::vector<int> header_windows(int from, bool is_cut_device) {
        std::vector<int> windows;
        for (int window = from; window < Windows; ++window) {
            const bool line_gone = window >= LineGone && window < LineBack;
            const bool cut_short = window == HeaderCut || window == PlainCut || window == QualityCut;
            if (!line_gone && (!cut_short || is_cut_device)) windows.push_back(window);
        }
        return windows;
    }
    void expect_files(const Device& device, const LineCounts& counts) const {
        const int n = static_cast<int>(device.number) + 1;
        for (const char* directory : {"tmp_archives", "tc_tmp_archives"}) {
            EXPECT_EQ(difference(lines_in(directory, n, device.uuid), counts), "")
                << device.uuid << " " << n << " " << directory;
        }
        EXPECT_EQ(lines_in("tc_archives", n, device.uuid).size(), 0U);
    }

    const std::time_t begun;
    sim::VistMeter first{{.network = 1,
                          .serial = 40123,
                          .devices = {{}, {.archive_mask = 0x45FFE, .precision = {0, 3, 2, 1}}},
                          .plus_starts_at_set = true,
                          .capacity = RingHours,
                          .clock_offset = 40,
                          .clock_drift_ppm = 20}};
    sim::VistMeter second{{.network = 22,
                           .serial = 50456,
                           .order = sim::VistOrder::Little,
                           .devices = {{.name = "A"}, {.name = "B", .archive_mask = 0x7FFFFF}},
                           .answers_end = true,
                           .plus_starts_at_set = true,
                           .capacity = RingHours,
                           .clock_offset = -95}};
    /// Reads files of m1 back, nothing else.
    class FileReader final : public ArchiveHolder {
      public:
        FileReader() { uuid = Uuid; }
    };
    mutable FileReader driver_of_files;
};

TEST_F(VistMonth, AfterARoughMonthEveryRecordThatCouldBeReadIsInTheFiles) {
    const Device cut_device{"m1", first, 0};
    live_until_window(3);
    rough_until_window(6);
    rough_until_window(HeaderCut);

    cut_power_at(3, sim::Unsynced::Dropped);
    EXPECT_EQ(last_time("A6"), newest(HeaderCut)) << "the first total of the header is there";
    EXPECT_NE(last_time("A10"), newest(HeaderCut)) << "the third is not";
    live_until_window(HeaderCut + 2);
    EXPECT_EQ(trail_lines(), 1);
    expect_files(cut_device, expected(cut_device, oldest_held(0), newest(HeaderCut + 1), {HeaderCut + 1}));

    rough_until_window(LineGone - 1);
    live_until_window(LineGone);  // what a disturbed pass leaves unread would be lost with the line
    machine.disconnect_all(Port);
    live_until_window(23);
    live_until_window(LineBack);
    connect();
    live_until_window(LineBack + 2);
    rough_until_window(PlainCut);

    cut_power_at(8 + 5, sim::Unsynced::Kept);
    EXPECT_GT(last_time("A11"), last_time("A13")) << "the record lies between two files";
    live_until_window(PlainCut + 2);
    EXPECT_EQ(trail_lines(), 1);
    LineCounts records = lines_in("tmp_archives");
    EXPECT_EQ(records.at("A3"), expected(cut_device, oldest_held(PlainCut + 1), newest(PlainCut + 1), {}).at("A3"));
    rough_until_window(41);
    rough_until_window(QualityCut);

    cut_power_at(8 + 13 + 3, sim::Unsynced::Zeroed);
    EXPECT_EQ(last_time("A23"), last_time("A21")) << "all plain values of the record are there";
    EXPECT_GT(last_time("A21"), last_time("A22"));
    live_until_window(QualityCut + 2);
    EXPECT_EQ(trail_lines(), 1);
    rough_until_window(54);
    rough_until_window(Windows - 2);

    {
        VistDaemon daemon({"m1", "m2"});
        machine.run_for(3.0 * FreeEvery, [&daemon] { daemon(); });
    }
    EXPECT_GT(first.faults_made(), 100U);
    EXPECT_GT(second.faults_made(), 100U);
    const std::time_t last = newest(Windows - 1);
    expect_files(cut_device,
                 expected(cut_device, oldest_held(QualityCut + 1), last, header_windows(HeaderCut + 1, true)));
    for (const Device& device : {Device{"m1", first, 1}, Device{"m2", second, 0}, Device{"m2", second, 1}}) {
        expect_files(device, expected(device, oldest_held(0), last, header_windows(0, false)));
    }
    EXPECT_FALSE(scene.exists("/tmp/arch.integrity.fail.2"));
}

}  // namespace
