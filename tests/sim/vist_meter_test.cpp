#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vist_asking.h"

namespace {

using namespace vist_asking;  // NOLINT(google-build-using-namespace)
using sim::VistDevice;

class SimVistMeter : public VistTest {};

// ---- dialog

TEST_F(SimVistMeter, OpensADialogWhenItsNetworkNumberIsCalled) {
    VistMeter meter({.network = 7});
    EXPECT_FALSE(meter.in_dialog());
    EXPECT_EQ(say(meter, "CALL 7"), "HL0[7:0]{NAME=TS1}>");
    EXPECT_EQ(meter.selected(), 0U);
}

TEST_F(SimVistMeter, AnswersNothingOutsideADialog) {
    VistMeter meter({.network = 7});
    for (const char* command : {"VER", ".", "VDN 0", "END", "/MON G", "/ARC/DLD =", "NONSENSE", "CALL 8", "CALL"}) {
        EXPECT_EQ(say(meter, command), "") << command;
    }
    EXPECT_EQ(meter.requests(), 0U);
}

TEST_F(SimVistMeter, FallsSilentWhenAnotherMeterIsCalled) {
    VistMeter meter({.network = 7});
    say(meter, "CALL 7");
    EXPECT_EQ(say(meter, "CALL 8"), "");
    EXPECT_FALSE(meter.in_dialog());
    EXPECT_EQ(say(meter, "VER"), "");
}

TEST_F(SimVistMeter, SharesALineWithOthers) {
    VistMeter first({.network = 7, .version = 101});
    VistMeter second({.network = 8, .version = 102});
    const auto both = [&](const std::string& command) { return say(first, command) + say(second, command); };
    EXPECT_EQ(both("CALL 7"), "HL0[7:0]{NAME=TS1}>");
    EXPECT_EQ(both("VER"), "HL0[7:0]{VER=101}>");
    EXPECT_EQ(both("CALL 8"), "HL0[8:0]{NAME=TS1}>");
    EXPECT_EQ(both("VER"), "HL0[8:0]{VER=102}>");
    EXPECT_EQ(both("END"), "");
    EXPECT_EQ(both("VER"), "");
}

TEST_F(SimVistMeter, ClosesTheDialogAtEndWithOrWithoutAWord) {
    VistMeter silent({.network = 7});
    say(silent, "CALL 7");
    EXPECT_EQ(say(silent, "END"), "");
    EXPECT_FALSE(silent.in_dialog());
    EXPECT_EQ(silent.requests("END"), 1U);

    VistMeter polite({.network = 7, .answers_end = true});
    say(polite, "CALL 7");
    EXPECT_EQ(say(polite, "END"), "HL0[7:0]{OK}>");
    EXPECT_EQ(say(polite, "END"), "");
}

TEST_F(SimVistMeter, SelectsAVirtualDeviceAndNamesItInTheFrameHead) {
    VistMeter meter({.network = 7, .devices = {{.name = "HEAT"}, {.name = "\xC3\xC2\xD1"}}});
    say(meter, "CALL 7");
    EXPECT_EQ(say(meter, "VDC"), "HL0[7:0]{VDC=2}>");
    EXPECT_EQ(say(meter, "VDN 1"), "HL0[7:1]{NAME=\xC3\xC2\xD1}>");
    EXPECT_EQ(say(meter, "."), "HL0[7:1]{OK}>");
    EXPECT_EQ(meter.heard().back().device, 1U);
    EXPECT_EQ(say(meter, "VDN 0"), "HL0[7:0]{NAME=HEAT}>");
}

TEST_F(SimVistMeter, StartsAnewInTheFirstDeviceWhenCalledInADialog) {
    VistMeter meter({.network = 7, .devices = {{}, {}}});
    say(meter, "CALL 7");
    say(meter, "VDN 1");
    EXPECT_EQ(say(meter, "CALL 7"), "HL0[7:0]{NAME=TS1}>");
    EXPECT_EQ(meter.selected(), 0U);
}

TEST_F(SimVistMeter, HearsTheLastLineBehindRubbish) {
    VistMeter meter({.network = 7});
    const ByteVector rubbish_first = {0x00, 0xFF, 0x80, 'x', 'C', 'A', 'L', 'L', ' ', '7', '\r'};
    EXPECT_EQ(joined(meter.hear(rubbish_first, Eleven)), bytes_of("HL0[7:0]{NAME=TS1}>"));
    EXPECT_EQ(say(meter, "VDC\rVER"), "HL0[7:0]{VER=102}>");
    EXPECT_EQ(meter.heard().back().line, "VER");
}

TEST_F(SimVistMeter, DoesNotTakeALineThatHasNoEnd) {
    VistMeter meter({.network = 7});
    for (const char* request : {"CALL 7", "CALL 7\n", "", "\r", "\xFF\r"}) {
        EXPECT_TRUE(meter.hear(bytes_of(request), Eleven).empty()) << request;
    }
    say(meter, "CALL 7");
    EXPECT_TRUE(meter.hear(bytes_of("END"), Eleven).empty());
    EXPECT_TRUE(meter.in_dialog());
}

TEST_F(SimVistMeter, SaysWhatIsWrongWithACommand) {
    VistMeter meter({.network = 7});
    say(meter, "CALL 7");
    EXPECT_EQ(say(meter, "HELLO"), "HL0[7:0]{E:CMD}>");
    EXPECT_EQ(say(meter, "/MEM 1"), "HL0[7:0]{E:CMD}>");
    EXPECT_EQ(say(meter, "VDN"), "HL0[7:0]{E:NPAR}>");
    EXPECT_EQ(say(meter, "VER 1"), "HL0[7:0]{E:NPAR}>");
    EXPECT_EQ(say(meter, "/SYS SPC"), "HL0[7:0]{E:NPAR}>");
    EXPECT_EQ(say(meter, "/ARC/DLD SET"), "HL0[7:0]{E:NPAR}>");
    EXPECT_EQ(say(meter, "/ARC/DLD + 1"), "HL0[7:0]{E:NPAR}>");
    EXPECT_EQ(say(meter, "VDN 1"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(say(meter, "VDN -1"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(say(meter, "VDN one"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(say(meter, "/SYS SPC 2"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(say(meter, "/MON X"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(say(meter, "/ARC/DLD ?"), "HL0[7:0]{E:PARAM}>");
    EXPECT_EQ(meter.requests("/SYS"), 2U);
}

TEST_F(SimVistMeter, MayClaimMoreDevicesThanItHas) {
    VistMeter liar({.network = 7, .devices = {{}, {.name = "LAST"}}, .claimed_devices = 9});
    say(liar, "CALL 7");
    EXPECT_EQ(say(liar, "VDC"), "HL0[7:0]{VDC=9}>");
    EXPECT_EQ(say(liar, "VDN 8"), "HL0[7:0]{E:PARAM}>");

    VistMeter repeater(
        {.network = 7, .devices = {{}, {.name = "LAST"}}, .claimed_devices = 9, .last_device_repeats = true});
    say(repeater, "CALL 7");
    EXPECT_EQ(say(repeater, "VDN 8"), "HL0[7:8]{NAME=LAST}>");
    EXPECT_TRUE(is_packet(ask(repeater, "/MON C"), 11));
    EXPECT_TRUE(is_packet(ask(repeater, "/ARC/DLD H"), 20));
    EXPECT_EQ(say(repeater, "VDN 9"), "HL0[7:8]{E:PARAM}>");
}

// ---- who it is

TEST_F(SimVistMeter, SaysItsFirmwareModelAndSerialNumber) {
    VistMeter meter({.network = 7, .serial = 5, .firmware = "A1", .model = "\xC2"});
    say(meter, "CALL 7");
    const ByteVector expected = {'H', 'P', 'T', 9, 0x87, 0x1E, 'A', '1', 0, 0xC2, 0, '5', 0};
    EXPECT_EQ(ask(meter, "/SYS SPC 0"), expected);
}

TEST_F(SimVistMeter, SaysItsDiametersBigEndianInEitherOrder) {
    ByteVector expected = {'H', 'P', 'T', 28, 0x94, 0x21, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 50, 0, 40, 0, 25};
    expected.resize(32, 0);
    for (const auto order : {VistOrder::Big, VistOrder::Little}) {
        VistMeter meter({.network = 7, .order = order, .devices = {{.DN = {50, 40, 25}}}});
        say(meter, "CALL 7");
        EXPECT_EQ(ask(meter, "/SYS CFG 1"), expected);
    }
}

TEST_F(SimVistMeter, DescribesAVirtualDeviceIn151Bytes) {
    VistDevice device{.name = "HEAT", .type = 0x02000001};
    device.formula = {.selector = 3, .iG1 = 1, .iT1 = 2, .iT2 = 3, .iG2 = 4, .iT3 = 5, .iG3 = 6, .iT4 = 7};
    device.channels = {{{123456, 2, -1}, {2, 1, 3}, {4, 0, 5}}};
    device.pt4 = 8;
    device.dT = 0x0102;
    device.qpoint = 9;
    device.active_errors = 0x01020304;
    VistMeter meter({.network = 7, .order = VistOrder::Little, .devices = {device}});
    say(meter, "CALL 7");
    const ByteVector answer = ask(meter, "/SYS SPC 1");
    ASSERT_TRUE(is_packet(answer, 31));
    const ByteVector body = part(answer, 6, answer.size() - 1);
    ASSERT_EQ(body.size(), 151U);
    EXPECT_EQ(part(body, 0, 11), (ByteVector{'H', 'E', 'A', 'T', 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(part(body, 12, 15), (ByteVector{0x02, 0, 0, 0x01}));
    EXPECT_EQ(part(body, 16 + 5, 16 + 9), (ByteVector{0x00, 0x01, 0xE2, 0x40, 2}));
    EXPECT_EQ(part(body, 16 + 19, 16 + 22), (ByteVector{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(part(body, 49 + 5, 49 + 9), (ByteVector{0, 0, 0, 2, 1}));
    EXPECT_EQ(part(body, 49 + 19, 49 + 22), (ByteVector{0, 0, 0, 3}));
    EXPECT_EQ(part(body, 82 + 5, 82 + 9), (ByteVector{0, 0, 0, 4, 0}));
    EXPECT_EQ(part(body, 82 + 19, 82 + 22), (ByteVector{0, 0, 0, 5}));
    EXPECT_EQ(part(body, 115, 124), (ByteVector{8, 0x02, 0x01, 9, 3, 1, 2, 3, 4, 5}));
    EXPECT_EQ(part(body, 131, 132), (ByteVector{6, 7}));
    EXPECT_EQ(part(body, 147, 150), (ByteVector{4, 3, 2, 1}));
}

TEST_F(SimVistMeter, HasNoZeroBehindANameOfTwelveBytes) {
    VistMeter meter({.network = 7, .devices = {{.name = "ABCDEFGHIJKL", .type = 0x41424344}}});
    say(meter, "CALL 7");
    EXPECT_EQ(part(ask(meter, "/SYS SPC 1"), 6, 21), bytes_of("ABCDEFGHIJKLABCD"));
}

// ---- present values

TEST_F(SimVistMeter, GivesTheTotalsThatItsMaskNames) {
    const VistDevice device{.integrator_mask = 0x81, .values = {{"IT", {10, 0}}, {"IE", {0x0102030405, 3}}}};
    VistMeter big({.network = 7, .devices = {device}});
    say(big, "CALL 7");
    EXPECT_EQ(ask(big, "/MON G"), (ByteVector{'H',  'P',  'T',  21,   0xA7, 0x0A,  //
                                              0x00, 0x00, 0x00, 0x00, 0x81,        //
                                              0x00, 0x00, 0x00, 0x0A, 0x00,        //
                                              0,    0,    0,    0x01, 0x02, 0x03, 0x04, 0x05, 0x03}));
    VistMeter little({.network = 7, .order = VistOrder::Little, .devices = {device}});
    say(little, "CALL 7");
    EXPECT_EQ(ask(little, "/MON G"), (ByteVector{'H',  'P',  'T',  21,   0x27, 0x0A,  //
                                                 0x80, 0x81, 0x00, 0x00, 0x00,        //
                                                 0x0A, 0x00, 0x00, 0x00, 0x00,        //
                                                 0x05, 0x04, 0x03, 0x02, 0x01, 0,    0, 0, 0x03}));
}

TEST_F(SimVistMeter, GivesMomentValuesWithTheStatusBehindThem) {
    VistDevice device{.moment_mask = 0x0441, .status = {1, 2, 3, 4}};
    device.values = {{"Q1", {-100, 1}}, {"T1", {7125, 2}}, {"P1", {255, 1}}};
    VistMeter big({.network = 7, .devices = {device}});
    say(big, "CALL 7");
    EXPECT_EQ(ask(big, "/MON C"), (ByteVector{'H',  'P',  'T',  21,   0xE6, 0x0B,  //
                                              0x00, 0x00, 0x00, 0x04, 0x41,        //
                                              0xFF, 0xFF, 0xFF, 0x9C, 0x01,        //
                                              0x1B, 0xD5, 0x02,                    //
                                              0xFF, 0x01,                          //
                                              4,    3,    2,    1}));
    VistMeter little({.network = 7, .order = VistOrder::Little, .devices = {device}});
    say(little, "CALL 7");
    EXPECT_EQ(part(ask(little, "/MON C"), 6, 24), (ByteVector{0x80, 0x41, 0x04, 0x00, 0x00,  //
                                                              0x9C, 0xFF, 0xFF, 0xFF, 0x01,  //
                                                              0xD5, 0x1B, 0x02,              //
                                                              0xFF, 0x01,                    //
                                                              1, 2, 3, 4}));
}

TEST_F(SimVistMeter, HasAllValuesAtFirst) {
    VistMeter meter({.network = 7});
    say(meter, "CALL 7");
    EXPECT_EQ(ask(meter, "/MON G").size(), 6U + 5 + 7 * 5 + 9);
    EXPECT_EQ(ask(meter, "/MON TG").size(), 6U + 6 + 5 + 7 * 5 + 9);
    EXPECT_EQ(ask(meter, "/MON C").size(), 6U + 5 + 6 * 5 + 4 * 3 + 3 * 2 + 5 + 4);
    EXPECT_EQ(meter.value("T1"), (sim::VistValue{9550, 2}));
    meter.set_value("T1", {7125, 2});
    EXPECT_EQ(meter.value("T1"), (sim::VistValue{7125, 2}));
}

TEST_F(SimVistMeter, PutsItsClockBeforeTheTotalsFromVersion102On) {
    VistMeter meter({.network = 7, .version = 102, .devices = {{.integrator_mask = 0}}});
    meter.set_clock("2024-03-02 11:00:30", Eleven);
    say(meter, "CALL 7");
    EXPECT_EQ(ask(meter, "/MON TG"),
              (ByteVector{'H', 'P', 'T', 13, 0x52, 0x0C, 11, 0, 30, 2, 3, 24, 0x00, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(ask(meter, "/MON G"), (ByteVector{'H', 'P', 'T', 7, 0x0A, 0x0A, 0x00, 0x00, 0x00, 0x00, 0x00}));

    VistMeter older({.network = 7, .version = 101});
    say(older, "CALL 7");
    EXPECT_EQ(say(older, "/MON TG"), "HL0[7:0]{E:PARAM}>");
}

TEST_F(SimVistMeter, KeepsItsDevicesApart) {
    VistMeter meter({.network = 7, .devices = {{}, {}}});
    meter.set_value("T1", {7125, 2}, 1);
    meter.set_status({1, 0, 0, 0}, 1);
    meter.device(1).moment_mask = 0x40;
    say(meter, "CALL 7");
    say(meter, "VDN 1");
    EXPECT_EQ(part(ask(meter, "/MON C"), 7, 17), (ByteVector{0, 0, 0, 0x40, 0x1B, 0xD5, 2, 0, 0, 0, 1}));
    say(meter, "VDN 0");
    EXPECT_EQ(part(ask(meter, "/MON C"), 7, 10), (ByteVector{0, 0, 0x3F, 0xFF}));
}

// ---- clock

TEST_F(SimVistMeter, HasAClockThatIsAheadAndDrifts) {
    VistMeter meter({.clock_offset = 600, .clock_drift_ppm = 100.0});
    EXPECT_EQ(meter.clock(Eleven), Eleven + 600);
    meter.catch_up(Eleven);
    EXPECT_EQ(meter.clock(Eleven + 10 * Hour), Eleven + 10 * Hour + 600 + 4);  // 3.6 s
}

TEST_F(SimVistMeter, ShowsTheLocalTimeOfItsPlace) {
    live_in("Europe/Moscow");
    VistMeter meter({.network = 7, .devices = {{.integrator_mask = 0}}});
    say(meter, "CALL 7");
    EXPECT_EQ(part(ask(meter, "/MON TG"), 6, 11), (ByteVector{14, 0, 0, 2, 3, 24}));
}

// ---- factory

TEST_F(SimVistMeter, DoesNotComeFromTheFactoryWithNonsense) {
    EXPECT_THROW(VistMeter({.network = -1}), std::invalid_argument);
    EXPECT_THROW(VistMeter({.firmware = std::string(250, 'A')}), std::invalid_argument);
    EXPECT_THROW(VistMeter({.devices = std::vector<VistDevice>(7)}), std::invalid_argument);
    EXPECT_THROW(VistMeter({.devices = std::vector<VistDevice>{}}), std::invalid_argument);
    EXPECT_THROW(VistMeter({.devices = {{.name = "ABCDEFGHIJKLM"}}}), std::invalid_argument);
    EXPECT_THROW(VistMeter({.devices = {{.values = {{"X1", {}}}}}}), std::invalid_argument);
    EXPECT_THROW(VistMeter({.devices = {{.values = {{"T1", {32768, 0}}}}}}), std::invalid_argument);
    EXPECT_THROW(VistMeter({.devices = {{.values = {{"P1", {-1, 0}}}}}}), std::invalid_argument);
    EXPECT_THROW(VistMeter({.capacity = 32768}), std::invalid_argument);
}

TEST_F(SimVistMeter, CanBeSwappedForAnother) {
    VistMeter meter({.network = 7, .serial = 5, .firmware = "A1", .model = "\xC2"});
    meter.store_hourly({.at = "2024-03-02 11:00"});
    say(meter, "CALL 7");
    meter.set_serial(6);
    EXPECT_EQ(ask(meter, "/SYS SPC 0"), (ByteVector{'H', 'P', 'T', 9, 0x88, 0x1E, 'A', '1', 0, 0xC2, 0, '6', 0}));
    EXPECT_EQ(say(meter, "/ARC/DLD RC"), "HL0[7:0]{RC=1}>");
    meter.swap_for({.network = 7, .serial_text = "7-A"});
    EXPECT_EQ(say(meter, "VER"), "");
    say(meter, "CALL 7");
    EXPECT_EQ(say(meter, "/ARC/DLD RC"), "HL0[7:0]{RC=0}>");
    EXPECT_NE(say(meter, "/SYS SPC 0")
                  .find(std::string("\0"
                                    "7-A\0",
                                    5)),
              std::string::npos);
}

}  // namespace
