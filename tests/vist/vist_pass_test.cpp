// Current values: the pass over all virtual devices, what it asks for and which items it leaves.

#include <string>
#include <vector>

#include "support/configured.h"
#include "support/vist_present.h"
#include "support/vist_scene.h"

namespace {

using sim::ByteVector;
using namespace vist_present;

class VistPass : public VistDescribedStand {
  protected:
    VistPass() {
        meter.put_packet("/MON TG", 12, with_clock(integrators()));
        meter.put_packet("/MON C", 11, moments());
    }
    void pass() {
        meter.heard.clear();
        driver->FlushCurrentValues();
    }
    static constexpr const char* DescriptionOfOne =
        "CALL 1|VER|END|CALL 1|VDC|END|CALL 1|/SYS SPC 0|END|CALL 1|VDN 0|/MON G|END|"
        "CALL 1|VDN 0|/SYS SPC 1|END|CALL 1|VDN 0|/SYS CFG 1|END|";
};

TEST_F(VistPass, DescriptionThenIntegratorsThenMomentValues) {
    pass();
    EXPECT_EQ(sent(), DescriptionOfOne + std::string("CALL 1|VDN 0|/MON TG|END|CALL 1|VDN 0|/MON C|END|"));
    EXPECT_EQ(logged("FlushCurrentValues"), 1);
}

TEST_F(VistPass, AllValuesAreItemsOfTheirSubsystem) {
    pass();
    EXPECT_EQ(item("IT"), "3600.000000");
    const std::vector<std::string> totals = {"IQ1", "IQ2", "IQ3", "IM1", "IM2", "IM3", "IE"};
    for (std::size_t i = 0; i < totals.size(); ++i) EXPECT_EQ(item(totals[i]), std::to_string(i + 2.0)) << totals[i];
    const std::vector<std::string> present = {"Q1", "Q2", "Q3", "M1", "M2", "M3", "T1",
                                              "T2", "T3", "",   "P1", "P2", "P3"};
    for (std::size_t i = 0; i < present.size(); ++i) {
        if (present[i].empty()) continue;
        EXPECT_EQ(item(present[i]), std::to_string(i + 1.0)) << present[i];
    }
    for (const char* name : {"T4", "E"}) EXPECT_EQ(item(name), "(none)") << name;
    EXPECT_EQ(item("Q1", 2), "(none)");
}

TEST_F(VistPass, AnHourCountOfTenIs36000Seconds) {
    ByteVector body = {0x00, 0, 0, 0, 1, 0, 0, 0, 10, 0};
    meter.put_packet("/MON TG", 12, with_clock(body));
    pass();
    EXPECT_EQ(item("IT"), "36000.000000");
    EXPECT_EQ(item("IQ1"), "(none)");
}

TEST_F(VistPass, WhatTheMeterIsGoesOutWithItsValues) {
    put_specials("V1.02", "\xC2\xC8\xD1-2", "40123");
    pass();
    EXPECT_EQ(item("SerialNumber"), "40123");
    EXPECT_EQ(item("Firmware"), "V1.02");
    EXPECT_EQ(item("MeterModel"), "ВИС-2");
    EXPECT_EQ(item("MDateTime"), "1709373899");
    EXPECT_EQ(item("_DriverStatus"), "2");
}

TEST_F(VistPass, AtVersion101TheIntegratorsComeFromMonGAndThereIsNoTime) {
    put_version(101);
    meter.put_packet("/MON G", 10, integrators());
    pass();
    EXPECT_EQ(sent(), DescriptionOfOne + std::string("CALL 1|VDN 0|/MON G|END|CALL 1|VDN 0|/MON C|END|"));
    EXPECT_EQ(item("IE"), "8.000000");
    EXPECT_EQ(item("MDateTime"), "(none)");
}

TEST_F(VistPass, APressureThatTheMeterMarksAsBadIsNotPublished) {
    meter.put_packet("/MON C", 11, moments(0x3FFF, 0x20));
    pass();
    EXPECT_EQ(item("P1"), "(none)");
    EXPECT_EQ(item("P2"), "12.000000");
    EXPECT_EQ(item("P3"), "13.000000");
    EXPECT_EQ(item("EG"), "32");
    EXPECT_EQ(item("ER"), "64");
    EXPECT_EQ(item("SC"), "1");
}

TEST_F(VistPass, AnAbsentValueLeavesItsEarlierItemInPlace) {
    pass();
    meter.put_packet("/MON TG", 12, with_clock(integrators(0xFE)));
    meter.put_packet("/MON C", 11, moments(0x3FFE));
    pass();
    EXPECT_EQ(item("IT"), "3600.000000");
    EXPECT_EQ(item("Q1"), "1.000000");
}

TEST_F(VistPass, ACutPacketIsReadIntoWhatTheOneBeforeItHasLeft) {
    pass();
    ByteVector first_value = moments();
    first_value.resize(10);
    meter.put_packet("/MON C", 11, first_value);
    pass();
    EXPECT_EQ(item("Q1"), "1.000000");
    EXPECT_EQ(item("Q2"), "33554432.000000") << "turned round once more";
}

TEST_F(VistPass, APacketWithoutRoomForValuesGivesThoseOfTheOneBeforeIt) {
    ByteVector none = vist_frames::packet(11, moments());
    none[3] = 7;
    meter.put("/MON C", none);
    pass();
    EXPECT_EQ(item("Q1"), "3600.000000") << "of IT";
    EXPECT_EQ(item("T2"), "8.000000") << "of IE";
}

TEST_F(VistPass, AFailedRequestPublishesNothingAndLeavesTheEarlierItems) {
    for (const char* command : {"/MON TG", "/MON C"}) {
        const std::string named = command;
        meter.put(command, {});
        pass();
        EXPECT_EQ(item("SerialNumber"), "(none)") << named;
        EXPECT_EQ(item("IT"), "(none)");
        EXPECT_EQ(item("ER"), "(none)");
        EXPECT_EQ(item("_DriverStatus"), "2");
        EXPECT_EQ(connected(), "000000");
        meter.put_packet("/MON TG", 12, with_clock(integrators()));
    }
    meter.put_packet("/MON C", 11, moments());
    pass();
    meter.put("/MON C", {});
    pass();
    EXPECT_EQ(item("Q1"), "1.000000");
}

TEST_F(VistPass, AMeterThatDoesNotDescribeItselfIsAskedForNoValues) {
    meter.put("VER", {});
    pass();
    EXPECT_EQ(sent_times("/MON TG"), 0);
    EXPECT_EQ(item("_DriverStatus"), "(none)");
}

TEST_F(VistPass, AnEarlierDescriptionServesWhereALaterOneFails) {
    pass();
    put_specials("V1.02", "TYPE", "10002");
    meter.put_packet("/MON C", 11, moments(0x3FFF, 0x01));
    pass();
    EXPECT_EQ(item("ER"), "2") << "the result of the description is not looked at";
    EXPECT_EQ(item("SerialNumber"), "10002");
}

TEST_F(VistPass, WithoutADescriptionAskingForValuesAsksForOneInstead) {
    EXPECT_FALSE(driver->get_moment_integrators());
    EXPECT_EQ(sent(), DescriptionOfOne);
    EXPECT_EQ(logged("WARNING! VIST VDC is invalid, retriving data..."), 1);
    meter.heard.clear();
    EXPECT_TRUE(driver->get_moment_integrators());
}

TEST_F(VistPass, AnUnservedVersionOrNumberIsAskedForNothing) {
    ASSERT_TRUE(describe());
    put_version(100);
    ASSERT_FALSE(describe());
    meter.heard.clear();
    EXPECT_FALSE(driver->get_moment_integrators());
    EXPECT_FALSE(driver->get_moment_current());
    EXPECT_EQ(logged("WARNING! Unsupported version!"), 3);
    EXPECT_EQ(sent(), "");
    put_version(102);
    ASSERT_TRUE(describe());
    meter.heard.clear();
    set_serial(*driver, 0xFFFFFFFF);
    EXPECT_FALSE(driver->get_moment_integrators());
    EXPECT_FALSE(driver->get_moment_current());
    EXPECT_EQ(logged("WARNING! VIST network number is invalid!"), 1);
    EXPECT_EQ(logged("WARNING! VIST network number is invalid."), 1);
    EXPECT_EQ(sent(), "");
}

}  // namespace
