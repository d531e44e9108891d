// The description: who the meter is, and how each of its virtual devices is set up.

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "support/configured.h"
#include "support/vist_scene.h"

namespace {

using sim::ByteVector;

class VistDescription : public VistDescribedStand {
  protected:
    void put_number(std::size_t at, std::int32_t number) {
        for (std::size_t i = 0; i < 4; ++i) record[at + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    }
    /// Limits of a channel, from 0 on; its block begins at 16, 49 or 82.
    void put_limits(std::size_t channel, std::int32_t lower, std::int32_t upper, std::uint8_t scale) {
        const std::size_t block = 16 + 33 * channel;
        put_number(block + 5, upper);
        record[block + 9] = scale;
        put_number(block + 19, lower);
    }
    /// fQ, iG1, iT1, iT2, iG2, iT3, iG3, iT4, and VDS TYPE.
    void put_formula(std::array<std::uint8_t, 8> parts, std::int32_t type = 0) {
        constexpr std::array<std::size_t, 8> At = {119, 120, 121, 122, 123, 124, 131, 132};
        for (std::size_t i = 0; i < parts.size(); ++i) record[At[i]] = parts[i];
        put_number(12, type);
        put_record();
    }
    void put_name(const std::string& name) {
        for (std::size_t i = 0; i < name.size(); ++i) record[i] = static_cast<std::uint8_t>(name[i]);
        put_record();
    }
};

constexpr std::int32_t Weighted = 0x2000000;

TEST_F(VistDescription, EachVirtualDeviceIsDescribedInItsOwnSubsystem) {
    put_devices(2);
    EXPECT_TRUE(describe());
    EXPECT_EQ(item("_HMsystem", 1), "T");
    EXPECT_EQ(item("_HMsystem", 2), "T");
    EXPECT_EQ(item("_HMsystem", 3), "(none)");
    EXPECT_EQ(sent_times("VDN 1"), 2);
}

TEST_F(VistDescription, TheConfiguredSerialNumberIsTheNetworkNumber) {
    set_serial(*driver, 20417);
    meter.put_body("CALL 20417", "NAME=TS");
    EXPECT_TRUE(describe());
    EXPECT_EQ(sent_times("CALL 20417"), 6);
}

TEST_F(VistDescription, WithoutANetworkNumberNothingIsSent) {
    set_serial(*driver, 0xFFFFFFFF);
    EXPECT_FALSE(describe());
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(logged("num.device_num = -1, num.virtdev_num = 0"), 1);
}

// ---- steps that fail

TEST_F(VistDescription, AVersionBelow101IsNotServed) {
    put_version(100);
    EXPECT_FALSE(describe());
    EXPECT_EQ(sent(), "CALL 1|VER|END|");
    EXPECT_EQ(logged("WARNING! Unsupported version!"), 1);
    put_version(101);
    put_byte_order(false, false);
    EXPECT_TRUE(describe());
}

TEST_F(VistDescription, TheFailureTextsOfVersionAndCountAreCrossed) {
    meter.put("VER", {});
    EXPECT_FALSE(describe());
    EXPECT_EQ(logged("Try to get software version..."), 1);
    EXPECT_EQ(logged("Try to get virtual device count for TC VIST FAIL"), 1);
    EXPECT_EQ(sent_times("VDC"), 0);
    put_version(102);
    meter.put("VDC", {});
    EXPECT_FALSE(describe());
    EXPECT_EQ(logged("Try to get software version FAIL"), 1);
    EXPECT_EQ(sent_times("/SYS SPC 0"), 0);
}

TEST_F(VistDescription, WithoutItsSerialNumberAMeterIsNotDescribed) {
    meter.put("/SYS SPC 0", {});
    EXPECT_FALSE(describe());
    EXPECT_EQ(logged("Try to get device serial FAIL"), 1);
    EXPECT_EQ(sent_times("/MON G"), 0);
}

TEST_F(VistDescription, WithoutMomentDataTheDescriptionEndsWellAndTellsOfNoDevice) {
    meter.put("/MON G", {});
    EXPECT_TRUE(describe());
    EXPECT_EQ(sent_times("/SYS SPC 1"), 0);
    EXPECT_EQ(item("_HMsystem"), "(none)");
}

TEST_F(VistDescription, ADeviceWithoutARecordEndsTheDescription) {
    put_devices(2);
    meter.put("/SYS SPC 1", {});
    EXPECT_FALSE(describe());
    EXPECT_EQ(logged("Try to get virtual device #0 FAIL"), 1);
    EXPECT_EQ(sent_times("/SYS CFG 1"), 0);
    EXPECT_EQ(sent_times("VDN 1"), 0);
}

TEST_F(VistDescription, ADeviceWithoutAConfigurationEndsTheDescription) {
    put_devices(2);
    meter.put("/SYS CFG 1", {});
    EXPECT_FALSE(describe());
    EXPECT_EQ(logged("Try to get virtual device #0 configuration FAIL"), 1);
    EXPECT_EQ(item("_HMsystem"), "T") << "what has been read stays";
    EXPECT_EQ(sent_times("VDN 1"), 0);
}

TEST_F(VistDescription, AFailedDescriptionKeepsWhatALaterOneDoesNotBring) {
    ASSERT_TRUE(describe());
    meter.put("VER", {});
    driver->FlushCurrentValues();
    EXPECT_EQ(sent_times("/MON TG"), 5) << "version 102 and one device are still known";
    EXPECT_EQ(item("_HMsystem"), "T");
}

TEST_F(VistDescription, AnotherMeterOnTheSameAddressIsRefused) {
    ASSERT_TRUE(describe());
    put_specials("V9", "OTHER", "10002");
    meter.heard.clear();
    for (int i = 1; i <= 2; ++i) {
        EXPECT_FALSE(describe());
        EXPECT_EQ(logged("WARNING! Fail while compare serial numbers! Check device!"), i);
    }
    EXPECT_EQ(sent_times("/MON G"), 0);
    EXPECT_EQ(connected(), "111111") << "the line is there all the same";
    put_specials("V1.02", "TYPE", "10001");
    EXPECT_TRUE(describe());
}

// ---- the clock and the byte order in the integrators

TEST_F(VistDescription, FromVersion102OnTheIntegratorsGiveAClock) {
    ASSERT_TRUE(describe());
    EXPECT_EQ(logged(" also local time is 1709373898"), 1) << "2024-03-02 10:04:58";
}

TEST_F(VistDescription, AtVersion101ThereIsNoClock) {
    put_version(101);
    put_byte_order(true, false);
    ASSERT_TRUE(describe());
    EXPECT_EQ(logged_start(" also local time is "), 0);
    EXPECT_EQ(logged("fSwap = 0"), 1);
}

TEST_F(VistDescription, TheTemperatureDifferenceIsInTheOrderOfTheIntegrators) {
    record[115] = 1;
    record[118] = 2;
    record[116] = 0x01;
    record[117] = 0x2C;
    put_record();
    describe();
    EXPECT_EQ(logged("pvds->dT = 300, pvds->qpoint = 2, pvds->pt4 = 1"), 1);
    put_byte_order(true);
    describe();
    EXPECT_EQ(logged("pvds->dT = 11265, pvds->qpoint = 2, pvds->pt4 = 1"), 1) << "2C01";
}

// ---- the record of a virtual device

TEST_F(VistDescription, TheNameIsGivenInUtf8) {
    put_name("\xC0\xA8");
    describe();
    EXPECT_EQ(item("_HMsystem"), "\xD0\x90\xD0\x81");
    EXPECT_EQ(driver->get_log_name(), "VIST(\xD0\x90\xD0\x81)");
}

TEST_F(VistDescription, ANameWithoutAnEndRunsOnIntoTheFieldsBehindIt) {
    put_number(12, 0x61626364);  // abcd, reversed before the name is taken
    for (std::size_t at = 16; at < 30; ++at) record[at] = 'x';
    put_name("ABCDEFGHIJKL");
    describe();
    EXPECT_EQ(item("_HMsystem"), "ABCDEFGHIJKLdcbaxxxx") << "20 bytes at most";
}

TEST_F(VistDescription, LimitsAreDividedByTheirPowerOfTen) {
    put_limits(0, 1200, 123456, 2);
    put_limits(1, -5, 60000, 0);
    put_limits(2, -2147483647 - 1, 2147483647, 6);
    put_record();
    for (const bool little : {false, true}) {
        put_byte_order(little);
        describe();
        EXPECT_EQ(item("M1min"), "12.000000");
        EXPECT_EQ(item("M1max"), "1234.560000");
        EXPECT_EQ(item("M2min"), "-5.000000");
        EXPECT_EQ(item("M2max"), "60000.000000");
        EXPECT_EQ(item("M3min"), "-2147.483648");
        EXPECT_EQ(item("M3max"), "2147.483647");
    }
}

TEST_F(VistDescription, AChannelWithTooGreatAPowerOfTenHasNoLimits) {
    put_limits(0, 1, 2, 7);
    put_limits(1, 3, 4, 1);
    put_limits(2, 5, 6, 255);
    put_record();
    EXPECT_TRUE(describe());
    for (const char* name : {"M1min", "M1max", "M3min", "M3max"}) EXPECT_EQ(item(name), "(none)") << name;
    EXPECT_EQ(item("M2min"), "0.300000");
    EXPECT_EQ(item("M2max"), "0.400000");
    EXPECT_EQ(logged_start("Scale of channel limits is out of range: "), 2);
}

TEST_F(VistDescription, EachSelectorHasItsFormula) {
    const std::vector<std::string> formulas = {
        "Q = G2 * ( H3 - H4 )",
        "Q = G2 * ( H3 - H6) - G5 * ( H4 - H8 )",
        "Q = G2 * ( H3 - H6) + G5 * ( H4 - H8 )",
        "Q = G2 * H3 - G5 * H4 - G7 * H6",
    };
    for (std::uint8_t selector = 0; selector < 4; ++selector) {
        put_formula({selector, 1, 2, 3, 4, 5, 6, 7}, Weighted);
        describe();
        EXPECT_EQ(item("_Formula"), formulas[selector]);
        EXPECT_EQ(item("_WeightedValue"), "0");
        EXPECT_EQ(logged("Formula: " + formulas[selector]), 1);
    }
}

TEST_F(VistDescription, AnUnknownSelectorPublishesNoFormula) {
    for (const std::uint8_t selector : {4, 255}) {
        put_formula({selector, 0, 0, 1}, Weighted);
        EXPECT_TRUE(describe());
        EXPECT_EQ(item("_Formula"), "(none)");
        EXPECT_EQ(item("_WeightedValue"), "(none)");
    }
    EXPECT_EQ(logged("Formula: "), 2);
}

TEST_F(VistDescription, ThePlainFormulaOfAWeightedDeviceIsWeighted) {
    put_formula({0, 0, 0, 1}, Weighted);
    describe();
    EXPECT_EQ(item("_WeightedValue"), "1");
    EXPECT_EQ(item("_Formula"), "Q = G1 * ( H1 - H2 )");
    put_formula({0, 0, 0, 1}, ~Weighted);
    describe();
    EXPECT_EQ(item("_WeightedValue"), "0") << "bit 25 alone says so";
    EXPECT_EQ(item("_Formula"), "Q = G1 * ( H1 - H2 )");
}

TEST_F(VistDescription, AnyOtherIndexOrSelectorIsNotWeighted) {
    const std::vector<std::array<std::uint8_t, 8>> others = {
        {0, 1, 0, 1}, {0, 0, 1, 1}, {0, 0, 0, 0}, {1, 0, 0, 1}, {2, 0, 0, 1}, {3, 0, 0, 1},
    };
    for (const auto& parts : others) {
        put_formula(parts, Weighted);
        describe();
        EXPECT_EQ(item("_WeightedValue"), "0");
    }
}

TEST_F(VistDescription, AnIndexOf255IsPrintedAs256) {
    put_formula({0, 255, 255, 255});
    describe();
    EXPECT_EQ(item("_Formula"), "Q = G256 * ( H256 - H256 )");
}

TEST_F(VistDescription, NominalDiametersAreSignedAndBigEndianInEveryMeter) {
    const ByteVector three = {0x00, 0x32, 0x01, 0x2C, 0xFF, 0xFE};
    std::copy(three.begin(), three.end(), config.begin() + 12);
    meter.put_packet("/SYS CFG 1", 33, config);
    for (const bool little : {false, true}) {
        put_byte_order(little);
        describe();
        EXPECT_EQ(item("DN1"), "50");
        EXPECT_EQ(item("DN2"), "300");
        EXPECT_EQ(item("DN3"), "-2");
    }
    EXPECT_EQ(logged("Write: DN1 = 50"), 2);
}

TEST_F(VistDescription, AShortRecordIsReadIntoWhatStandsInTheBuffer) {
    meter.put_packet("/SYS SPC 1", 31, {'S', 0});
    meter.put_packet("/SYS CFG 1", 33, {1, 2});
    EXPECT_TRUE(describe());
    EXPECT_EQ(item("_HMsystem"), "S");
}

}  // namespace
