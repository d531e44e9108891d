#include <cmath>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "vist_asking.h"

namespace {

using namespace vist_asking;  // NOLINT(google-build-using-namespace)
using sim::VistConfig;
using sim::VistRecord;

class SimVistArchives : public VistTest {
  protected:
    /// A meter in a dialog, with the records of 07:00 to 11:00.
    static VistMeter five_records(VistConfig config = {}) {
        config.network = 7;
        VistMeter meter(std::move(config));
        for (std::time_t at = Eleven - 4 * Hour; at <= Eleven; at += Hour) meter.store_hourly({.at = at});
        say(meter, "CALL 7");
        return meter;
    }
};

// ---- packets

TEST_F(SimVistArchives, HeaderHoldsMaskCountsTimeTotalsAndPrecisions) {
    VistMeter meter({.network = 7, .devices = {{.archive_mask = 0x407E, .precision = {2, 1, 3, 4}}}, .capacity = 1536});
    meter.store_hourly({.at = "2024-03-02 11:00"});
    meter.set_totals({{1, 2, 3, 4, 5, 6, 7, 0x0102030405}});
    say(meter, "CALL 7");
    const ByteVector expected = {'H',  'P',  'T',  64,   0xD5, 0x14,  //
                                 0x01, 0x60, 0x00, 0x3E, 0x00, 0x00,  // -, sum, -, -, enumer, device
                                 0x00, 0x00, 0x40, 0x7E,              // mask
                                 0x00, 0x01, 0x00, 0x00, 0x06, 0x00,  // counts
                                 11,   0,    0,    2,    3,    24,    //
                                 0,    0,    0,    1,    0,    0,    0,    2,    0, 0, 0, 3, 0, 0, 0, 4,  //
                                 0,    0,    0,    5,    0,    0,    0,    6,    0, 0, 0, 7,              //
                                 0,    0,    0,    0x01, 0x02, 0x03, 0x04, 0x05, 2, 1, 3, 4};
    EXPECT_EQ(ask(meter, "/ARC/DLD H", Eleven + 59), expected);
}

TEST_F(SimVistArchives, HeaderOfALittleEndianMeterIsLittleEndianThroughout) {
    VistMeter meter({.network = 7, .order = VistOrder::Little, .devices = {{.archive_mask = 0x407E}}});
    meter.store_hourly({.at = "2024-03-02 11:00"});
    meter.set_totals({{1, 2, 3, 4, 5, 6, 7, 0x0102030405}});
    say(meter, "CALL 7");
    const ByteVector answer = ask(meter, "/ARC/DLD H");
    ASSERT_TRUE(is_packet(answer, 20));
    EXPECT_EQ(answer[7], sum(answer, 8));
    EXPECT_EQ(part(answer, 10, 21), (ByteVector{0x80, 0, 0x7E, 0x40, 0, 0, 1, 0, 0, 0, 0x00, 0x06}));
    EXPECT_EQ(part(answer, 28, 35), (ByteVector{1, 0, 0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(part(answer, 56, 63), (ByteVector{5, 4, 3, 2, 1, 0, 0, 0}));
}

TEST_F(SimVistArchives, RecordHoldsTheFieldsThatTheMaskNames) {
    const VistRecord record{.at = "2024-03-02 11:00",
                            .IT = 1.0,
                            .IQ1 = 1.5,
                            .T1 = 71.2,
                            .P1 = 6.1,
                            .IE = -0.5,
                            .status = {0x21, 0x08, 0x00, 0x40}};
    VistMeter big({.network = 7, .devices = {{.archive_mask = 0xC883, .precision = {2, 1, 3, 4}}}});
    big.store_hourly(record);
    say(big, "CALL 7");
    EXPECT_EQ(ask(big, "/ARC/DLD ="), (ByteVector{'H',  'P',  'T',  25,   0xD5, 0x15,        //
                                                  11,   0,    0,    2,    3,    24,   0xCC,  //
                                                  0x64,                                      //
                                                  0x00, 0x00, 0x00, 0x96,                    //
                                                  0x02, 0xC8,                                //
                                                  0x3D,                                      //
                                                  0xFF, 0xFF, 0xEC, 0x78, 0x40, 0x00, 0x08, 0x21}));
    VistMeter little(
        {.network = 7, .order = VistOrder::Little, .devices = {{.archive_mask = 0xC883, .precision = {2, 1, 3, 4}}}});
    little.store_hourly(record);
    say(little, "CALL 7");
    EXPECT_EQ(part(ask(little, "/ARC/DLD ="), 12, 28), (ByteVector{0xCC, 0x64, 0x96, 0x00, 0x00, 0x00,  //
                                                                   0xC8, 0x02, 0x3D,                    //
                                                                   0x78, 0xEC, 0xFF, 0xFF,              //
                                                                   0x21, 0x08, 0x00, 0x40}));
}

TEST_F(SimVistArchives, RecordOfAllFieldsHasAllWidths) {
    VistMeter meter = five_records({.devices = {{.archive_mask = 0x007FFFFF}}});
    EXPECT_EQ(ask(meter, "/ARC/DLD =").size(), 6U + 7 + 1 + 6 * 4 + 4 * 2 + 3 + 4 + 4 + 4 + 3 + 1 + 1);
    meter.device().archive_mask = 0;
    EXPECT_EQ(ask(meter, "/ARC/DLD ="),
              (ByteVector{'H', 'P', 'T', 9, 0x3D, 0x15, 11, 0, 0, 2, 3, 24, 0}));  // 15 + 0B + 02 + 03 + 18
}

TEST_F(SimVistArchives, RefuseAValueThatNoFieldHolds) {
    VistMeter meter;
    EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .T1 = -0.1}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .P1 = 25.6}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({.at = "2024-03-02 11:00", .IE = std::nan("")}), std::invalid_argument);
    EXPECT_THROW(meter.store_hourly({}), std::invalid_argument);
    EXPECT_TRUE(meter.records().empty());
}

// ---- positions

TEST_F(SimVistArchives, CountPositionsBackFromTheNewest) {
    VistMeter meter = five_records();
    EXPECT_EQ(say(meter, "/ARC/DLD RC"), "HL0[7:0]{RC=5}>");
    EXPECT_EQ(say(meter, "/ARC/DLD SET 1"), "HL0[7:0]{OK}>");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "11:00 02.03.24");
    say(meter, "/ARC/DLD SET 5");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "07:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "07:00 02.03.24");
}

TEST_F(SimVistArchives, StepToTheNextNewerRecordUntilThereIsNone) {
    VistMeter meter = five_records();
    say(meter, "/ARC/DLD SET 3");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "10:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "11:00 02.03.24");
    EXPECT_EQ(say(meter, "/ARC/DLD +"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "11:00 02.03.24");
}

TEST_F(SimVistArchives, StepBackSoThatTheNextStepBringsTheSameRecordAgain) {
    VistMeter meter = five_records();
    say(meter, "/ARC/DLD OLD");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "08:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD -")), "07:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "08:00 02.03.24");
    say(meter, "/ARC/DLD -");
    EXPECT_EQ(say(meter, "/ARC/DLD -"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "07:00 02.03.24");
}

// Of five records the third was the last one read, two hours after the oldest: the reader asks for 5 - 2 + 2.
TEST_F(SimVistArchives, LetAReaderStartTwoRecordsBeforeTheLastOneItHas) {
    VistMeter meter = five_records();
    say(meter, "/ARC/DLD SET 5");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "07:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "08:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "09:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "10:00 02.03.24");
}

TEST_F(SimVistArchives, TakeAPositionBeyondTheRingForTheOldest) {
    VistMeter meter = five_records();
    EXPECT_EQ(say(meter, "/ARC/DLD SET 7"), "HL0[7:0]{OK}>");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "07:00 02.03.24");
    EXPECT_EQ(say(meter, "/ARC/DLD SET 0"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(say(meter, "/ARC/DLD SET -1"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "07:00 02.03.24");
}

TEST_F(SimVistArchives, MayRefuseAPositionBeyondTheRing) {
    VistMeter meter = five_records({.refuses_far_set = true});
    EXPECT_EQ(say(meter, "/ARC/DLD SET 6"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(say(meter, "/ARC/DLD SET 5"), "HL0[7:0]{OK}>");
}

TEST_F(SimVistArchives, MayGiveTheRecordThatWasSetToTheFirstStep) {
    VistMeter meter = five_records({.plus_starts_at_set = true});
    say(meter, "/ARC/DLD SET 5");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "07:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "08:00 02.03.24");
    say(meter, "/ARC/DLD OLD");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "07:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "08:00 02.03.24");
    say(meter, "/ARC/DLD SET 1");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "11:00 02.03.24");
    EXPECT_EQ(say(meter, "/ARC/DLD +"), "HL0[7:0]{E:PARAM}>");
}

TEST_F(SimVistArchives, StayAtTheirRecordWhileNewerOnesComeIn) {
    VistMeter meter = five_records({.capacity = 5});
    say(meter, "/ARC/DLD SET 1");
    meter.store_hourly({.at = "2024-03-02 12:00"});
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "11:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "12:00 02.03.24");
    say(meter, "/ARC/DLD OLD");
    meter.store_hourly({.at = "2024-03-02 13:00"});
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "09:00 02.03.24");
}

TEST_F(SimVistArchives, StandAtTheNewestRecordAfterCallAndDevice) {
    VistMeter meter = five_records();
    say(meter, "/ARC/DLD OLD");
    say(meter, "CALL 7");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "11:00 02.03.24");
    say(meter, "/ARC/DLD OLD");
    say(meter, "VDN 0");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "11:00 02.03.24");
}

TEST_F(SimVistArchives, RefuseEveryReadingOfAnEmptyRing) {
    VistMeter meter({.network = 7});
    say(meter, "CALL 7");
    for (const char* command : {"OLD", "SET 1", "=", "+", "-"}) {
        EXPECT_EQ(say(meter, std::string("/ARC/DLD ") + command), "HL0[7:0]{E:PARAM}>") << command;
    }
    EXPECT_EQ(say(meter, "/ARC/DLD RC"), "HL0[7:0]{RC=0}>");
    EXPECT_TRUE(is_packet(ask(meter, "/ARC/DLD H"), 20));
}

TEST_F(SimVistArchives, OverwriteTheOldestRecordOfAFullRing) {
    VistMeter meter = five_records({.capacity = 3});
    EXPECT_EQ(meter.header(Eleven).counts, (sim::VistCounts{.held = 3, .newest = 1, .most = 3}));
    say(meter, "/ARC/DLD OLD");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "09:00 02.03.24");
}

// ---- what goes wrong with records

TEST_F(SimVistArchives, KeepAMinuteThatIsNoFullHour) {
    VistMeter meter = five_records();
    meter.store_hourly({.at = "2024-03-02 12:30"});
    say(meter, "/ARC/DLD SET 1");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "12:30 02.03.24");
    EXPECT_EQ(meter.record_files(meter.records().back()).front().time, Eleven);
}

TEST_F(SimVistArchives, HaveAWrongInnerSumForSomeReadings) {
    VistMeter meter = five_records();
    meter.spoil_record("2024-03-02 10:00", 2);
    say(meter, "/ARC/DLD SET 3");
    for (const bool holds : {false, false, true}) {
        const ByteVector answer = ask(meter, "/ARC/DLD +");
        EXPECT_EQ(dated(answer), "10:00 02.03.24");
        EXPECT_EQ(inner_sum_holds(answer), holds);
        EXPECT_TRUE(inner_sum_holds(ask(meter, "/ARC/DLD -")));
    }
}

TEST_F(SimVistArchives, HaveAWrongInnerSumForEver) {
    VistMeter meter = five_records();
    meter.spoil_record("2024-03-02 11:00");
    for (int k = 0; k < 20; ++k) EXPECT_FALSE(inner_sum_holds(ask(meter, "/ARC/DLD =")));
    EXPECT_THROW(meter.spoil_record("2024-03-02 12:00"), std::out_of_range);
}

TEST_F(SimVistArchives, ReadAsErasedMemoryInAWholePacket) {
    VistMeter meter = five_records({.devices = {{.archive_mask = 0x0001}}});
    meter.erase_record("2024-03-02 11:00");
    // 15 and eight times FF is 15 - 8.
    EXPECT_EQ(ask(meter, "/ARC/DLD ="), (ByteVector{'H', 'P', 'T', 10, 0x0D, 0x15,  //
                                                    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(say(meter, "/ARC/DLD RC"), "HL0[7:0]{RC=5}>");
}

TEST_F(SimVistArchives, HaveAHoleWhereARecordWasRemoved) {
    VistMeter meter = five_records();
    meter.remove_record("2024-03-02 09:00");
    EXPECT_EQ(say(meter, "/ARC/DLD RC"), "HL0[7:0]{RC=4}>");
    say(meter, "/ARC/DLD SET 3");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD =")), "08:00 02.03.24");
    EXPECT_EQ(dated(ask(meter, "/ARC/DLD +")), "10:00 02.03.24");
    meter.erase_archive();
    EXPECT_EQ(say(meter, "/ARC/DLD +"), "HL0[7:0]{E:PARAM}>");
}

TEST_F(SimVistArchives, HeaderMayHaveAWrongInnerSum) {
    VistMeter meter = five_records();
    meter.spoil_header(1);
    const ByteVector bad = ask(meter, "/ARC/DLD H");
    EXPECT_TRUE(is_packet(bad, 20));
    EXPECT_NE(bad[7], sum(bad, 8));
    const ByteVector good = ask(meter, "/ARC/DLD H");
    EXPECT_EQ(good[7], sum(good, 8));
}

TEST_F(SimVistArchives, HeaderMayClaimOtherCountsAndAnotherTime) {
    VistMeter meter = five_records();
    meter.claim_counts(sim::VistCounts{.held = 0, .newest = 0x0102, .most = -1});
    meter.set_header_time("2024-03-02 09:30:15");
    EXPECT_EQ(part(ask(meter, "/ARC/DLD H"), 16, 27), (ByteVector{0, 0, 1, 2, 0xFF, 0xFF, 9, 30, 15, 2, 3, 24}));
    EXPECT_EQ(say(meter, "/ARC/DLD RC"), "HL0[7:0]{RC=0}>");
    meter.claim_counts(std::nullopt);
    meter.set_header_time(std::nullopt);
    EXPECT_EQ(part(ask(meter, "/ARC/DLD H"), 16, 24), (ByteVector{0, 5, 0, 4, 0x06, 0x00, 11, 0, 0}));
}

}  // namespace
