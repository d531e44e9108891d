// What can go wrong in the walk through the meter's ring, and what it costs: bad sums, refusals, files that disagree.

#include <algorithm>
#include <string>
#include <vector>

#include "vist/vist_ring.h"

namespace {

// ---- bad check sums

TEST_F(VistArchives, ARecordWithAWrongSumIsSteppedBackFromAndReadAgain) {
    start();
    meter.spoil_record("2024-03-02 06:00", 2);
    EXPECT_TRUE(pass());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10");
    EXPECT_EQ(meter.requests("/ARC/DLD -"), 2U);
    EXPECT_EQ(logged("ERROR_CRC_CALC"), 2);
    EXPECT_EQ(logged("Error count = 2 of MaxErrors = 14"), 1);
}

TEST_F(VistArchives, FourteenBadRecordsAreBorneInOnePass) {
    start();
    meter.spoil_record("2024-03-02 03:00", 7);
    meter.spoil_record("2024-03-02 06:00", 7);
    EXPECT_TRUE(pass());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10");
    EXPECT_EQ(meter.requests("/ARC/DLD -"), 14U);
}

TEST_F(VistArchives, TheFifteenthBadRecordEndsThePassWithoutEnd) {
    start();
    meter.spoil_record("2024-03-02 03:00", 7);
    meter.spoil_record("2024-03-02 06:00", 8);
    EXPECT_FALSE(pass());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5");
    EXPECT_EQ(commands().back(), "/ARC/DLD -");
    EXPECT_TRUE(meter.in_dialog());
    EXPECT_EQ(logged("Err_cnt(15) > VISTMaxArchErrors+10(14) => return"), 1);
    EXPECT_TRUE(pass_an_hour_later()) << "the next CALL takes up again";
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10 11");
}

TEST_F(VistArchives, ARecordWhoseAnswerWasLostOnTheLineIsReadInTheNextPass) {
    // The meter has moved on when its answer is lost; the record behind it then opens a hole.
    start();
    meter.misbehave_next(5, sim::vist_good().on("/ARC/DLD +"));
    meter.misbehave_next(1, sim::vist_silence().on("/ARC/DLD +"));
    EXPECT_FALSE(pass());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5");
    EXPECT_TRUE(pass_an_hour_later());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10 11");
}

// ---- what else can fail

TEST_F(VistArchives, AHeaderWithAWrongSumEndsThePassAndNothingIsWritten) {
    start();
    meter.spoil_header(1);
    EXPECT_FALSE(pass());
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
    EXPECT_EQ(commands(), (Texts{"CALL 1", "VDN 0", "/ARC/DLD H", "END"}));
    EXPECT_EQ(logged("Flush archive header: failure"), 1);
    EXPECT_TRUE(pass());
}

TEST_F(VistArchives, AHeaderOfTheSameTimeEndsThePassWithoutAskingForARecord) {
    start();
    ASSERT_TRUE(pass());
    store(11);
    EXPECT_FALSE(pass());
    EXPECT_EQ(commands(), (Texts{"CALL 1", "VDN 0", "/ARC/DLD H", "END"}));
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10");
}

TEST_F(VistArchives, AfterAHeaderThatDoesNotComeTheFilesTellHowFarTheyAre) {
    start();
    meter.misbehave_next(5, sim::vist_silence().on("CALL"));
    EXPECT_TRUE(pass()) << "nothing is behind nothing";
    leave_header(Ten);
    leave_record(Ten - 2 * Hour);
    meter.misbehave_next(5, sim::vist_silence().on("CALL"));
    EXPECT_TRUE(pass()) << "the record of 09:00, an hour before the header";
    leave_record(Ten - 3 * Hour);
    meter.misbehave_next(5, sim::vist_silence().on("CALL"));
    EXPECT_FALSE(pass());
    EXPECT_EQ(logged("Archive header request: failure"), 3);
    EXPECT_EQ(meter.requests("/ARC/DLD"), 0U);
}

TEST_F(VistArchives, AnOldestRecordThatCannotBeReadInFifteenTriesEndsThePass) {
    start();
    meter.misbehave_next(15, sim::vist_wrong_inner().on("/ARC/DLD ="));
    EXPECT_FALSE(pass());
    EXPECT_EQ(meter.requests("/ARC/DLD ="), 15U);
    EXPECT_EQ(meter.requests("/ARC/DLD +"), 0U);
    EXPECT_EQ(logged("Failure: getDateFromArchiveBuff fail"), 15);
    EXPECT_EQ(logged("Failure: No TColdestTimestamp - get_archives fail."), 1);
    EXPECT_EQ(hours_filed("A6"), "11") << "the header was filed";
    EXPECT_EQ(hours_filed(), "");
}

TEST_F(VistArchives, TheFifteenthTryForTheOldestRecordStillCounts) {
    start();
    meter.misbehave_next(14, sim::vist_wrong_inner().on("/ARC/DLD ="));
    EXPECT_TRUE(pass());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10");
}

TEST_F(VistArchives, AnEmptyRingHasNoOldestRecord) {
    start_described(meter);
    EXPECT_FALSE(pass());
    EXPECT_EQ(meter.requests("/ARC/DLD OLD"), 15U * 5U);
    EXPECT_EQ(logged("Failure: do_request(pVISTdrv,reqArchiveSetOldPosition) fail"), 15);
    EXPECT_EQ(meter.requests("/ARC/DLD ="), 0U);
}

TEST_F(VistArchives, AMeterThatDoesNotShowItsOldestRecordIsAskedForItFifteenTimesAnew) {
    start();
    meter.misbehave_next(5, sim::vist_silence().on("/ARC/DLD ="));
    EXPECT_TRUE(pass());
    EXPECT_EQ(meter.requests("/ARC/DLD OLD"), 2U);
    EXPECT_EQ(logged("Failure: do_request(pVISTdrv,reqArchiveCurrentData) fail"), 1);
}

TEST_F(VistArchives, ARefusedPositionEndsThePass) {
    start();
    meter.misbehave_next(5, sim::vist_error("E:PARAM").on("/ARC/DLD SET"));
    EXPECT_FALSE(pass());
    EXPECT_EQ(meter.requests("/ARC/DLD SET"), 5U);
    EXPECT_EQ(meter.requests("/ARC/DLD +"), 0U);
    EXPECT_EQ(commands().back(), "/ARC/DLD SET 10") << "no END";
    EXPECT_EQ(logged("Failure: Selecting record fail."), 1);
    EXPECT_TRUE(pass_an_hour_later());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10 11");
}

TEST_F(VistArchives, FilesThatDisagreeAreEmptiedAndTheListIsReadAgainFromTheOldestRecord) {
    start();
    ASSERT_TRUE(pass());
    const LineCounts whole = lines_in("tmp_archives");
    const std::string pressures = staged("A17");
    leave_staged("A17", pressures.substr(0, pressures.rfind('\n', pressures.size() - 2) + 1));
    ASSERT_NE(lines_in("tmp_archives"), whole);
    EXPECT_FALSE(pass()) << "the header is known";
    EXPECT_EQ(staged("A2"), "");
    EXPECT_EQ(hours_filed("A6"), "11") << "the other list agrees";
    EXPECT_TRUE(pass_an_hour_later());
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10 11");
    const std::string trail = scene.file("/tmp/arch.integrity.fail.1").value_or("");
    EXPECT_EQ(std::count(trail.begin(), trail.end(), '\n'), 1);
    EXPECT_FALSE(scene.exists("/tmp/arch.integrity.fail.2"));
}

TEST_F(VistArchives, HeadersThatDisagreeAreEmptiedAndTheHeaderIsFiledAnew) {
    start();
    ASSERT_TRUE(pass());
    leave_staged("A16", stored_line(Ten - Hour, 192, 5) + "\n");
    EXPECT_TRUE(pass());
    EXPECT_EQ(hours_filed("A16"), "11");
    EXPECT_EQ(hours_filed(), "1 2 3 4 5 6 7 8 9 10") << "the records stay as they are";
}

/// The files of a gateway whose meter cannot be asked: all of one time, but for one.
class VistFilesOfOneTime : public VistArchives {
  protected:
    void look_with(const std::string& name, std::time_t other) {
        scene.remove("/mnt/storage/m1");
        scene.make_tree(Uuid);
        leave_header(Ten);
        leave_record(Ten - Hour);
        leave_staged(name, stored_line(other, 192, 1) + "\n");
        start_described(meter);
        set_serial(*driver, 0xFFFFFFFF);
        driver->get_archives(0);
    }
    /// How many of the files have nothing in them.
    std::size_t emptied(const VistTexts& names) const {
        return static_cast<std::size_t>(std::count_if(
            names.begin(), names.end(), [this](const std::string& name) { return staged(name).empty(); }));
    }

    const VistTexts headers = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};
    const VistTexts records = {"A2",  "A3",  "A5",  "A7",  "A9",  "A11", "A13", "A15", "A20", "A21",
                               "A22", "A17", "A18", "A19", "A28", "A25", "A26", "A27", "A24", "A23"};
};

TEST_F(VistFilesOfOneTime, AnyFileOfAHeaderThatDisagreesEmptiesAllOfTheHeadersAndNoOther) {
    for (const std::string& name : headers) {
        look_with(name, Ten - Hour);
        EXPECT_EQ(emptied(headers), 8U) << name;
        EXPECT_EQ(emptied(records), 1U) << name << ", A27 is fed by no record";
        EXPECT_EQ(logged("last_request_archive_header = 0"), 1) << name;
        EXPECT_EQ(logged("last_request_archive_data = " + std::to_string(Ten)), 1) << name;
    }
}

TEST_F(VistFilesOfOneTime, AnyFileOfARecordThatDisagreesEmptiesAllOfTheRecordsAndNoOther) {
    for (const std::string& name : records) {
        look_with(name, Ten - 2 * Hour);
        EXPECT_EQ(emptied(records), 20U) << name;
        EXPECT_EQ(emptied(headers), 0U) << name;
        EXPECT_EQ(logged("last_request_archive_data = 0"), 1) << name;
        EXPECT_EQ(logged("last_request_archive_header = " + std::to_string(Ten)), 1) << name;
    }
}

TEST_F(VistFilesOfOneTime, FilesOfNeitherListMayTellAnotherTime) {
    for (const char* name : {"A29", "A30", "A32", "_A57", "T4"}) {
        look_with(name, Ten - 2 * Hour);
        EXPECT_EQ(emptied(headers), 0U) << name;
        EXPECT_EQ(emptied(records), 1U) << name;
        EXPECT_NE(staged(name), "") << name;
    }
}

// ---- a meter that cannot be asked

TEST_F(VistArchives, AMeterOfUnknownVirtualDevicesIsDescribedInThePlaceOfItsArchive) {
    store_hours(1, 10);
    machine.connect(Port, meter);
    start_driver();
    EXPECT_TRUE(pass());
    EXPECT_EQ(meter.requests("VDC"), 1U);
    EXPECT_EQ(meter.requests("/ARC/DLD"), 0U);
    EXPECT_EQ(lines_in("tmp_archives").size(), 0U);
}

TEST_F(VistArchives, AMeterOfVersion100HasNoArchiveToRead) {
    start();
    meter.swap_for({.version = 100});
    ASSERT_FALSE(driver->get_description());
    EXPECT_FALSE(pass());
    EXPECT_TRUE(commands().empty());
    EXPECT_EQ(logged("Warning! Incompatible VIST SW version 100"), 1);
}

TEST_F(VistArchives, WithoutANetworkNumberTheFilesAloneTellWhetherTheyAreUpToDate) {
    start();
    set_serial(*driver, 0xFFFFFFFF);
    EXPECT_TRUE(pass());
    leave_header(Ten);
    EXPECT_FALSE(pass());
    EXPECT_TRUE(commands().empty());
    EXPECT_EQ(logged("WARNING! VIST network number is invalid."), 2);
}

// ---- what no pass uses

TEST_F(VistArchives, TheMeterTellsHowManyRecordsItHolds) {
    start();
    EXPECT_TRUE(driver->get_archive_record_count());
    EXPECT_EQ(logged("RC = 10"), 1);
}

TEST_F(VistArchives, ARecordIsFoundByItsPositionFromTheNewest) {
    start();
    ASSERT_TRUE(pass());
    std::time_t time = 0;
    EXPECT_TRUE(driver->getTimestampByRecordNum(3, time));
    EXPECT_EQ(time, Midnight + 8 * Hour);
    machine.forget_exchanges();
    EXPECT_FALSE(driver->getTimestampByRecordNum(0, time)) << "position 0 does not exist";
    EXPECT_TRUE(commands().empty());
    meter.misbehave_next(AllTries, sim::vist_error().on("/ARC/DLD SET"));
    EXPECT_FALSE(driver->getTimestampByRecordNum(3, time));
    EXPECT_EQ(meter.requests("/ARC/DLD SET 3"), 1U + AllTries);
}

}  // namespace
