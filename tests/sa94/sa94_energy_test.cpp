// The last totals of energy that were not zero: what they stand in for, and the files that keep them.

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/sa94_scene.h"

namespace {

constexpr std::time_t Midnight = 1709337600;  // 2024-03-02 00:00 UTC
constexpr std::time_t Hour = 3600;
constexpr std::time_t Day = 86400;
constexpr int Hourly = 0;
constexpr int Daily = 1;

/// Firmware 10 unless a test says otherwise: records of 32 bytes with the energy at byte 28.
class Sa94EnergyOfRecords : public Sa94Stand {
  protected:
    Sa94EnergyOfRecords() { identify(10); }

    /// A driver that knows nothing, and a storage that holds nothing.
    void start_anew() {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        machine.settle_storage();
        start_driver();
        identify(10);
        newest = 0;
    }
    /// A driver that has found these totals.
    void remember(const std::string& hourly, const std::string& daily) {
        leave_archive("_hPrevE", hourly);
        leave_archive("_dPrevE", daily);
        start_driver();
        identify(10);
    }
    static Sa94Bytes hourly(int day, int month, int year, int hour) {
        return Sa94Bytes(32).date(day, month, year).hour(hour);
    }
    static Sa94Bytes daily(int day, int month, int year) { return Sa94Bytes(32).date(day, month, year); }

    bool parse(int type, const std::vector<Sa94Bytes>& records) {
        int position = 0;
        return driver->parseBlock(type, sa94_bytes::reply_of(records), position, newest);
    }
    static std::string at(std::time_t time, const std::string& value) {
        return std::to_string(time) + ",192," + value + "\n";
    }

    std::time_t newest = 0;
};

TEST_F(Sa94EnergyOfRecords, ATotalOfZeroGivesWayToTheLastOneThatWasNot) {
    remember("1234.5", "");
    EXPECT_FALSE(parse(Hourly, {hourly(2, 3, 24, 7).real(28, 0.0F), hourly(2, 3, 24, 8).real(28, 1300.0F),
                                hourly(2, 3, 24, 9).real(28, 0.0F)}));
    EXPECT_EQ(archive("A1"), at(Midnight + 8 * Hour, "1234.500000") + at(Midnight + 9 * Hour, "1300.000000") +
                                 at(Midnight + 10 * Hour, "1300.000000"));
    EXPECT_EQ(driver->progress().hPrevE, 1300.0);
    EXPECT_EQ(archive("_hPrevE"), "1300.000000");
}

TEST_F(Sa94EnergyOfRecords, TheEnergyFileIsWrittenForEveryRecordChangedOrNot) {
    remember("1234.5", "");
    parse(Hourly, {hourly(2, 3, 24, 7).real(28, 0.0F)});
    EXPECT_EQ(archive("_hPrevE"), "1234.500000") << "no line end";
    EXPECT_EQ(driver->progress().hPrevE, 1234.5);
}

TEST_F(Sa94EnergyOfRecords, ATotalIsInItsEnergyFileBeforeItsLineIsWritten) {
    const std::tuple<int, Sa94Bytes, const char*, const char*> records[] = {
        {Hourly, hourly(2, 3, 24, 8), "A1", "_hPrevE"}, {Daily, daily(1, 3, 24), "A29", "_dPrevE"}};
    for (auto [type, record, total, energy_file] : records) {
        int before_the_line = 0;
        int at_the_line = 0;
        bool cut = true;
        for (int nth = 1; cut; ++nth) {
            start_anew();
            machine.cut_power_at(nth, sim::Unsynced::Kept);
            try {
                parse(type, {record.real(28, 7.0F)});
                cut = false;
            } catch (const sim::PowerCut&) {
                const bool remembered = archive(energy_file) == "7.000000";
                before_the_line += remembered && archive(total).empty() ? 1 : 0;
                at_the_line += remembered && !archive(total).empty() ? 1 : 0;
                EXPECT_TRUE(remembered || archive(total).empty()) << nth;
            }
        }
        EXPECT_EQ(before_the_line, 1) << total;
        EXPECT_EQ(at_the_line, 1) << total;
    }
}

TEST_F(Sa94EnergyOfRecords, DailyEnergyHasAMemoryOfItsOwn) {
    remember("1.0", "2.0");
    parse(Daily, {daily(29, 2, 24).real(28, 0.0F), daily(1, 3, 24).real(28, 3.0F)});
    EXPECT_EQ(archive("A29"), at(Midnight - Day, "2.000000") + at(Midnight, "3.000000"));
    EXPECT_EQ(archive("_dPrevE"), "3.000000");
    EXPECT_EQ(archive("_hPrevE"), "1.0");
    EXPECT_EQ(driver->progress().hPrevE, 1.0);
    EXPECT_EQ(driver->progress().dPrevE, 3.0);
}

TEST_F(Sa94EnergyOfRecords, DailyEnergyIsRememberedBehindItsScale) {
    identify(6);
    parse(Daily, {Sa94Bytes(64).date(1, 3, 24).real(4, 1000.0F)});
    // 0.859844982624 * 1000 in single precision.
    EXPECT_EQ(archive("A29"), at(Midnight, "859.844971"));
    EXPECT_EQ(archive("_dPrevE"), "859.844971");
}

TEST_F(Sa94EnergyOfRecords, RecordsWithoutEnergyDoNotTouchItsMemory) {
    identify(6);
    parse(Hourly, {Sa94Bytes(64).date(2, 3, 24).hour(8)});
    EXPECT_EQ(archive("_hPrevE"), "");
}

TEST_F(Sa94EnergyOfRecords, AnEnergyFileThatCannotBeWrittenLeavesTheMemory) {
    scene.remove("/mnt/storage/m1/1/tc_archives");
    EXPECT_FALSE(parse(Hourly, {hourly(2, 3, 24, 8).real(28, 7.0F), hourly(2, 3, 24, 9).real(28, 0.0F)}));
    EXPECT_EQ(driver->progress().hPrevE, 7.0);
    EXPECT_EQ(newest, Midnight + 9 * Hour) << "lost without notice";
    EXPECT_TRUE(archive_names().empty());
}

TEST_F(Sa94EnergyOfRecords, AnArchiveFileThatCannotBeOpenedLosesItsValueAlone) {
    scene.touch("/mnt/storage/m1/1/tc_archives/A12/in/the/way");
    EXPECT_FALSE(parse(Hourly, {hourly(2, 3, 24, 8).real(8, 7.0F).word(16, 100)}));
    EXPECT_EQ(archive("_A20"), at(Midnight + 8 * Hour, "1.000000"));
    EXPECT_EQ(archive("A14"), at(Midnight + 9 * Hour, "0.000000"));
}

TEST(Sa94Energy, AValueThatIsNotZeroIsRemembered) {
    double value = 5.0;
    double previous = 4.0;
    SA94Progress::carryEnergy(value, previous);
    EXPECT_EQ(value, 5.0);
    EXPECT_EQ(previous, 5.0);
    value = 0.0;
    SA94Progress::carryEnergy(value, previous);
    EXPECT_EQ(value, 5.0);
    EXPECT_EQ(previous, 5.0);
    value = -1.0;
    SA94Progress::carryEnergy(value, previous);
    EXPECT_EQ(previous, -1.0);
    value = 1e-300;
    SA94Progress::carryEnergy(value, previous);
    EXPECT_EQ(previous, 1e-300) << "exactly zero only";
}

TEST_F(Sa94EnergyOfRecords, EnergyFilesAreKeptByTheirArchive) {
    driver->progress().savePrevEnergy(Hourly, 12.25);
    driver->progress().savePrevEnergy(Daily, -0.5);
    driver->progress().savePrevEnergy(4, 9.0);
    EXPECT_EQ(archive_names(), (Texts{"_dPrevE", "_hPrevE"}));
    EXPECT_EQ(archive("_hPrevE"), "12.250000");
    EXPECT_EQ(archive("_dPrevE"), "-0.500000");
    EXPECT_EQ(driver->progress().loadPrevEnergy(Hourly), 12.25);
    EXPECT_EQ(driver->progress().loadPrevEnergy(Daily), -0.5);
    EXPECT_EQ(driver->progress().loadPrevEnergy(4), 0.0);
    driver->progress().savePrevEnergy(Hourly, 1.0);
    EXPECT_EQ(archive("_hPrevE"), "1.000000") << "replaced whole";
}

TEST_F(Sa94EnergyOfRecords, AnEnergyFileThatIsNotThereIsZero) {
    EXPECT_EQ(driver->progress().loadPrevEnergy(Hourly), 0.0);
    EXPECT_EQ(driver->progress().loadPrevEnergy(Daily), 0.0);
}

TEST_F(Sa94EnergyOfRecords, AnEnergyFileIsReadAsFarAsANumberGoes) {
    const std::pair<const char*, double> texts[] = {
        {"", 0.0}, {"nothing", 0.0}, {"1.5\n2.5\n", 1.5}, {" 7 apples", 7.0}, {"\n3.0", 0.0}};
    for (const auto& [text, value] : texts) {
        leave_archive("_hPrevE", text);
        EXPECT_EQ(driver->progress().loadPrevEnergy(Hourly), value) << text;
    }
}

TEST_F(Sa94EnergyOfRecords, OfAnEnergyFile31CharactersAreRead) {
    leave_archive("_hPrevE", "00000000000000000000000000000123456");
    EXPECT_EQ(driver->progress().loadPrevEnergy(Hourly), 12.0);
}

}  // namespace
