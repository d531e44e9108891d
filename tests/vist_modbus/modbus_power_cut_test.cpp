// The power fails in the middle of an archive pass of a VIST meter that is asked over Modbus. What the cut may cost, or
// bring twice, is known exactly:
// - A header of which one total is in the files is not read again: the other totals of that hour are given up, and no
//   record is asked for until the meter has its next header.
// - Of the record that the cut fell into, the lines that were not there yet are given up once one of the eight files
//   that tell how far it has been read has its line.
// - Lines that were written before the first of these eight come twice.
// Everything else is in the files, once, at its own time.

#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "support/modbus_month_scene.h"

namespace {

using sim::Unsynced;

const std::set<std::string> TellingFiles = {"A3", "A5", "A7", "A9", "A11", "A13", "A15", "A2"};

constexpr std::uint32_t EveryField = 0x7FFFFF;
constexpr std::uint32_t NoWorkTime = 0x45FFE;     // bits 1 to 12, 14, 18: volume 1 comes first
constexpr std::uint32_t PressuresFirst = 0x5880;  // bits 7, 11, 12, 14: two pressures, then energy, then a temperature

/// Records of the hours 8 and 9 when the power fails at half past ten, and a third one an hour later.
class ModbusPowerCutStand : public ModbusMonthStand {
  protected:
    ModbusPowerCutStand() : ModbusMonthStand("2024-03-02 10:05:00"), ten(machine.now() / Hour * Hour) {
        scene.service.set_meter("m1", {.serial = 17, .port_name = Port, .manufacturer = "VISTmodbus"});
        be_quiet({Uuid});
    }

    static sim::ModbusVistMeter new_meter(std::uint32_t mask, std::time_t ten) {
        sim::ModbusVistMeter meter({.serial = 17, .systems = {{.archive_mask = mask}}, .capacity = 48});
        meter.record_archives(true, ten - 2 * 3600);
        return meter;
    }
    /// The first pass over the archive fails at its `nth` line; then the gateway has power until a pass over the next
    /// header must be over. False when the pass had fewer lines.
    bool cut_and_live_on(sim::ModbusVistMeter& meter, int nth, Unsynced fate) {
        machine.disconnect_all(Port);
        machine.connect(Port, meter);
        ten = machine.now() / Hour * Hour;
        machine.cut_power_at(nth, fate);
        const bool cut = !live({Uuid}, 900);
        machine.cut_power_at(0, fate);
        after_cut = lines_of(Uuid, 1);
        restart_gateway();
        live({Uuid}, static_cast<double>(ten + Hour - machine.now()));
        before_eleven = lines_of(Uuid, 1);
        handed_over_before_eleven = lines_of(Uuid, 1, "tc_tmp_archives");
        live({Uuid}, 2000);
        return cut;
    }
    void restart_gateway() {
        scene.clear_tmp();
        scene.make_tree(Uuid);
        be_quiet({Uuid});
    }
    void new_storage() {
        scene.remove("/mnt/storage/m1");
        restart_gateway();
        machine.settle_storage();
        machine.sleep(static_cast<unsigned>(Hour - (machine.now() - 300) % Hour));  // five past
    }

    /// All that a meter without power cuts gives.
    LineCounts whole(sim::ModbusVistMeter& meter) const {
        LineCounts counts;
        for (int hour = 0; hour < 2; ++hour) count_lines(counts, modbus_header_lines(meter, 0, ten + hour * Hour));
        for (int hour = -2; hour < 1; ++hour) count_lines(counts, modbus_record_lines(meter, 0, ten + hour * Hour));
        return counts;
    }
    /// "A1@10 missing" and "A17@9 surplus", for each line that is in the files too seldom or too often.
    static std::vector<std::string> astray(const LineCounts& found, const LineCounts& expected) {
        std::vector<std::string> all;
        std::istringstream rows(difference(found, expected));
        for (std::string file, line, verdict; rows >> file >> line >> verdict;) {
            const long hour = std::strtol(line.c_str(), nullptr, 10) / Hour % 24;
            all.push_back(file + "@" + std::to_string(hour) + " " + verdict);
        }
        return all;
    }

    std::time_t ten;
    LineCounts after_cut;
    LineCounts before_eleven;
    LineCounts handed_over_before_eleven;
};

// ---- at any line

class ModbusPowerCut : public ModbusPowerCutStand,
                       public ::testing::WithParamInterface<std::tuple<Unsynced, std::uint32_t>> {
  protected:
    /// What must stand in the files in the end when the first `survived` lines of the first pass outlived the cut.
    LineCounts expected(sim::ModbusVistMeter& meter, std::size_t survived) const {
        if (survived == 0) return whole(meter);
        LineCounts counts;
        const auto take = [&](const std::vector<sim::VistFileValue>& lines) {
            const std::size_t taken = std::min(survived, lines.size());
            survived -= taken;
            const std::vector<sim::VistFileValue> first(lines.begin(),
                                                        lines.begin() + static_cast<std::ptrdiff_t>(taken));
            count_lines(counts, first);
            return std::any_of(first.begin(), first.end(),
                               [](const auto& line) { return TellingFiles.contains(line.file); });
        };
        take(modbus_header_lines(meter, 0, ten));
        for (int hour = -2; hour < 1; ++hour) {
            const auto lines = modbus_record_lines(meter, 0, ten + hour * Hour);
            if (!take(lines)) count_lines(counts, lines);
        }
        count_lines(counts, modbus_header_lines(meter, 0, ten + Hour));
        return counts;
    }
};

TEST_P(ModbusPowerCut, AtAnyLineOfAPassCostsTheRestOfItsHeaderOrOfItsRecord) {
    const auto [fate, mask] = GetParam();
    int n = 1;
    for (bool is_cut = true; is_cut; ++n) {
        SCOPED_TRACE("power cut at line " + std::to_string(n));
        new_storage();
        sim::ModbusVistMeter meter = new_meter(mask, machine.now() / Hour * Hour);
        is_cut = cut_and_live_on(meter, n, fate);
        const auto survived = static_cast<std::size_t>(!is_cut || fate == Unsynced::Kept ? n : n - 1);
        ASSERT_EQ(difference(lines_of(Uuid, 1), expected(meter, is_cut ? survived : 1000)), "");
        EXPECT_EQ(difference(lines_of(Uuid, 1, "tc_tmp_archives"), lines_of(Uuid, 1)), "");
    }
    const sim::ModbusVistMeter meter = new_meter(mask, ten);
    const std::size_t lines = 2 * modbus_record_lines(meter, 0, ten).size();
    EXPECT_GE(n - 2, static_cast<int>(lines)) << "each line is one durable write";
}

std::string cut_name(const ::testing::TestParamInfo<std::tuple<Unsynced, std::uint32_t>>& info) {
    const auto [fate, mask] = info.param;
    const std::string name = fate == Unsynced::Dropped ? "Dropped" : fate == Unsynced::Kept ? "Kept" : "Zeroed";
    return name + (mask == EveryField ? "EveryField" : mask == NoWorkTime ? "NoWorkTime" : "PressuresFirst");
}

INSTANTIATE_TEST_SUITE_P(Fates, ModbusPowerCut,
                         ::testing::Combine(::testing::Values(Unsynced::Dropped, Unsynced::Kept, Unsynced::Zeroed),
                                            ::testing::Values(EveryField, NoWorkTime, PressuresFirst)),
                         cut_name);

// ---- each kind of line, by name

class ModbusPowerCutAt : public ModbusPowerCutStand {
  protected:
    using Names = std::vector<std::string>;

    Names astray_after(int nth, Unsynced fate, std::uint32_t mask = EveryField) {
        sim::ModbusVistMeter meter = new_meter(mask, ten);
        EXPECT_TRUE(cut_and_live_on(meter, nth, fate));
        return astray(lines_of(Uuid, 1), whole(meter));
    }
    static constexpr int HeaderLines = 8;
    static constexpr int RecordLines = 21;
};

TEST_F(ModbusPowerCutAt, TheFirstTotalNothingIsLostWhenTheLineIsLost) {
    EXPECT_EQ(astray_after(1, Unsynced::Dropped), Names());
    EXPECT_EQ(after_cut.size(), 0U);
    EXPECT_EQ(before_eleven.at("A3").size(), 2U) << "the header is read again at once";
}

TEST_F(ModbusPowerCutAt, TheFirstTotalTheOtherTotalsOfThatHourAreLostWhenTheLineIsKept) {
    EXPECT_EQ(astray_after(1, Unsynced::Kept),
              (Names{"A1@10 missing", "A10@10 missing", "A12@10 missing", "A14@10 missing", "A16@10 missing",
                     "A6@10 missing", "A8@10 missing"}));
    EXPECT_EQ(after_cut.size(), 1U);
    EXPECT_EQ(difference(before_eleven, after_cut), "") << "the header is known, so no record is asked for";
    EXPECT_EQ(handed_over_before_eleven.size(), 0U) << "and nothing is handed over in that hour";
}

TEST_F(ModbusPowerCutAt, TheLastTotalThatOneIsLostAndTheRecordsComeAnHourLater) {
    EXPECT_EQ(astray_after(HeaderLines, Unsynced::Zeroed), Names{"A16@10 missing"});
    EXPECT_EQ(before_eleven.count("A3"), 0U);
}

TEST_F(ModbusPowerCutAt, TheFirstValueOfARecordNothingIsLostWhenTheLineIsLost) {
    EXPECT_EQ(astray_after(HeaderLines + 1, Unsynced::Dropped), Names());
    EXPECT_EQ(before_eleven.count("A3"), 0U) << "the records come an hour later all the same";
}

TEST_F(ModbusPowerCutAt, AValueOfARecordTheRestOfTheRecordIsLost) {
    EXPECT_EQ(astray_after(HeaderLines + 14, Unsynced::Kept),
              (Names{"A20@8 missing", "A21@8 missing", "A22@8 missing", "A23@8 missing", "A27@8 missing",
                     "A28@8 missing", "T4@8 missing"}));
}

TEST_F(ModbusPowerCutAt, ATemperatureTheTemperaturesBehindItAreLost) {
    EXPECT_EQ(astray_after(HeaderLines + RecordLines - 1, Unsynced::Zeroed), (Names{"A22@8 missing", "T4@8 missing"}));
}

TEST_F(ModbusPowerCutAt, TheLastTemperatureOfTheNewestRecordNothingButThatIsLost) {
    EXPECT_EQ(astray_after(HeaderLines + 2 * RecordLines, Unsynced::Dropped), Names{"T4@9 missing"});
    EXPECT_EQ(handed_over_before_eleven.size(), HeaderLines + RecordLines + 0U) << "the files reach the header";
}

TEST_F(ModbusPowerCutAt, ValuesBeforeTheFirstFileThatTellsAreWrittenTwice) {
    EXPECT_EQ(astray_after(4 + 2, Unsynced::Kept, PressuresFirst), (Names{"A17@8 surplus", "A18@8 surplus"}));
}

}  // namespace
