// The description of a meter: what is asked, what of it is published, and when there is none.

#include <string>
#include <vector>

#include "support/km5_scene.h"

namespace {

class Km5Description : public Km5Stand {
  protected:
    bool describe(sim::Km5Meter& meter, const Km5Setup& setup = {}) {
        machine.connect(Port, meter);
        start_driver(setup);
        return driver->get_description();
    }
};

TEST_F(Km5Description, ADescriptionIsPublished) {
    // Parameters 70 and 75 are the maxima, 68 and 73 the minima in percent.
    sim::Km5Meter meter({.model = 2, .firmware = "2.15", .eeprom = {{70, 60}, {68, 4}, {75, 40}, {73, 5}}});
    EXPECT_TRUE(describe(meter));
    EXPECT_EQ(item("MeterModel"), "KM5-2");
    EXPECT_EQ(item("Firmware"), "2.150000");
    EXPECT_EQ(item("M1max"), "60.000000");
    EXPECT_EQ(item("M1min"), "2.400000");
    EXPECT_EQ(item("M2max"), "40.000000");
    EXPECT_EQ(item("M2min"), "2.000000");
    EXPECT_EQ(item("SerialNumber"), "12345678");
    EXPECT_EQ(item("PortNum"), "1.000000");
    EXPECT_EQ(item("PortType"), "RS-485");
    EXPECT_EQ(item("Parity"), "2");
    EXPECT_EQ(item("NumStopBits"), "1");
    EXPECT_EQ(item("NumDataBits"), "8");
    EXPECT_EQ(connected(), "111111");
    EXPECT_TRUE(carried().has_description);
    EXPECT_FALSE(driver->need_init());
    EXPECT_EQ(state(), "get description");
    EXPECT_EQ(logged("messages", "Start get description."), 1);
    EXPECT_EQ(logged("messages", "isATT_mustbe = no, isATT = no"), 1);
    EXPECT_EQ(logged("messages", "KM5 model: 2"), 1);
    EXPECT_EQ(logged("messages", "KM5 version: 2.150000"), 1);
}

TEST_F(Km5Description, ADescriptionAsksInItsOrder) {
    sim::Km5Meter meter({.model = 2});
    describe(meter);
    EXPECT_EQ(asked(requests(), 2),
              (std::vector<std::vector<int>>{
                  {0, 0, 0}, {9, 0, 0}, {9, 0, 0}, {14, 70, 4}, {14, 68, 4}, {14, 75, 4}, {14, 73, 4}}));
}

TEST_F(Km5Description, AMinimumIsMultipliedBeforeItIsDivided) {
    sim::Km5Meter meter({.eeprom = {{70, 3e38F}, {68, 2}, {75, 40}, {73, 5}}});
    describe(meter);
    EXPECT_EQ(item("M1min"), "inf") << "the product is beyond single precision, the minimum would not be";
}

TEST_F(Km5Description, EachSubsystemOfAKm56iHasItsOwnLimits) {
    sim::Km5Meter meter({.serial = 12345678,
                         .km56i = true,
                         .subsystems = 3,
                         .eeprom = {{114, 100},
                                    {108, 1},
                                    {115, 200},
                                    {109, 2},
                                    {116, 300},
                                    {110, 3},
                                    {117, 400},
                                    {111, 4},
                                    {118, 500},
                                    {112, 5},
                                    {119, 600},
                                    {113, 6}}});
    EXPECT_TRUE(describe(meter, {.km56i = true, .systems = {"heat", "gvs", "heat"}}));
    const char* const wanted[3][4] = {{"100.000000", "1.000000", "200.000000", "4.000000"},
                                      {"300.000000", "9.000000", "400.000000", "16.000000"},
                                      {"500.000000", "25.000000", "600.000000", "36.000000"}};
    for (int n = 1; n <= 3; ++n) {
        EXPECT_EQ(item("M1max", n), wanted[n - 1][0]);
        EXPECT_EQ(item("M1min", n), wanted[n - 1][1]);
        EXPECT_EQ(item("M2max", n), wanted[n - 1][2]);
        EXPECT_EQ(item("M2min", n), wanted[n - 1][3]);
        EXPECT_EQ(item("MeterModel", n), "KM5-6и");
        EXPECT_EQ(item("SerialNumber", n), "12345678");
    }
    EXPECT_EQ(asked(requests(), 1).at(3), (std::vector<int>{14, 114}));
}

TEST_F(Km5Description, ALimitThatCannotBeReadIsZero) {
    sim::Km5Meter meter({.eeprom = {{70, 60}, {68, 4}, {75, 40}, {73, 5}}});
    meter.misbehave_next(21, sim::km5_silence().on(14, 70));
    meter.misbehave_next(11, sim::km5_error().on(14, 73));
    EXPECT_TRUE(describe(meter));
    EXPECT_EQ(item("M1max"), "0.000000");
    EXPECT_EQ(item("M1min"), "0.000000") << "4 percent of nothing";
    EXPECT_EQ(item("M2max"), "40.000000");
    EXPECT_EQ(item("M2min"), "0.000000");
}

TEST_F(Km5Description, AnAttIsServedWhereOneIsWanted) {
    sim::Km5Meter meter({.model = 3, .att = true});
    EXPECT_TRUE(describe(meter, {.must_be_att = true}));
    EXPECT_EQ(item("MeterModel"), "AT-T-3");
    EXPECT_EQ(logged("messages", "model is AT-T-3"), 1);
    EXPECT_EQ(logged("messages", "isATT_mustbe = yes, isATT = yes"), 1);
}

TEST_F(Km5Description, AnAttIsRefusedWhereAKm5IsWanted) {
    sim::Km5Meter meter({.att = true});
    EXPECT_FALSE(describe(meter));
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(item("MeterModel"), "(none)");
    EXPECT_FALSE(carried().has_description);
    EXPECT_EQ(requests().size(), 2U) << "at once";
    EXPECT_EQ(logged("messages", "isATT_mustbe = no, isATT = yes"), 1);
}

TEST_F(Km5Description, AKm5IsRefusedWhereAnAttIsWanted) {
    sim::Km5Meter meter;
    EXPECT_FALSE(describe(meter, {.must_be_att = true}));
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(item("MeterModel"), "(none)");
    EXPECT_EQ(requests().size(), 2U);
}

TEST_F(Km5Description, ARefusalLeavesAnEarlierDescriptionStanding) {
    sim::Km5Meter meter;
    EXPECT_TRUE(describe(meter));
    meter.set_type(true, false);
    EXPECT_FALSE(driver->get_description());
    EXPECT_TRUE(carried().has_description);
}

TEST_F(Km5Description, AMeterWhoseModelIsUnknownIsNotDescribed) {
    sim::Km5Meter meter({.firmware = "2.15"});
    meter.misbehave_next(21, sim::km5_silence().on(0));
    EXPECT_FALSE(describe(meter));
    EXPECT_EQ(item("MeterModel"), "(none)");
    EXPECT_EQ(item("Firmware"), "2.150000") << "what was told is published all the same";
    EXPECT_EQ(item("SerialNumber"), "12345678");
    EXPECT_EQ(logged("messages", "ERROR: KM5 model: unknown!"), 1);
    EXPECT_EQ(logged("messages", "KM5 version: 2.150000"), 1);
    EXPECT_FALSE(carried().has_description);
    EXPECT_TRUE(driver->need_init());
}

TEST_F(Km5Description, AMeterWhoseFirmwareIsUnknownIsNotDescribed) {
    sim::Km5Meter meter({.model = 4});
    meter.misbehave_next(1, sim::km5_good().on(9));  // the type letters
    meter.misbehave_next(21, sim::km5_silence().on(9));
    EXPECT_FALSE(describe(meter));
    EXPECT_EQ(item("MeterModel"), "KM5-4");
    EXPECT_EQ(item("Firmware"), "(none)");
    EXPECT_EQ(item("M1max"), "(none)");
    EXPECT_EQ(item("SerialNumber"), "(none)");
    EXPECT_EQ(logged("messages", "KM5 model: 4"), 1);
    EXPECT_EQ(logged("messages", "ERROR: KM5 version: unknown!"), 1);
}

TEST_F(Km5Description, ASilentMeterRunsOutOfAllAttempts) {
    sim::Km5Meter meter;
    meter.misbehave_each(1, sim::km5_silence());
    EXPECT_FALSE(describe(meter));
    EXPECT_EQ(requests().size(), 6U * 21) << "identity, firmware, four parameters";
    EXPECT_EQ(connected(), "000000");
}

TEST_F(Km5Description, TheLastSubsystemDecidesWhetherThereIsADescription) {
    sim::Km5Meter meter({.serial = 12345678, .km56i = true, .subsystems = 2});
    meter.misbehave_next(1, sim::km5_good().on(9));
    meter.misbehave_next(21, sim::km5_silence().on(9));  // the firmware of the first
    EXPECT_TRUE(describe(meter, {.km56i = true, .systems = {"heat", "heat"}}));
    EXPECT_EQ(item("Firmware", 1), "(none)");
    EXPECT_EQ(item("Firmware", 2), "2.150000");
    EXPECT_TRUE(carried().has_description);
}

TEST_F(Km5Description, ADescriptionThatFailsLaterIsGone) {
    sim::Km5Meter meter;
    EXPECT_TRUE(describe(meter));
    meter.misbehave_next(1, sim::km5_good().on(9));
    meter.misbehave_next(21, sim::km5_silence().on(9));
    EXPECT_FALSE(driver->get_description()) << "although the firmware is known from before";
    EXPECT_FALSE(carried().has_description);
}

TEST_F(Km5Description, WithoutSystemsThereIsNoDescription) {
    sim::Km5Meter meter;
    EXPECT_FALSE(describe(meter, {.systems = {}}));
    EXPECT_TRUE(requests().empty());
    EXPECT_FALSE(carried().has_description);
}

TEST_F(Km5Description, WithoutASerialNumberTheMeterIsNotAsked) {
    sim::Km5Meter meter;
    EXPECT_FALSE(describe(meter, {.serial = 0}));
    EXPECT_TRUE(requests().empty());
    EXPECT_FALSE(carried().has_description);
}

TEST_F(Km5Description, ALongSerialNumberIsCutToNineCharacters) {
    sim::Km5Meter meter({.serial = 34567890});
    describe(meter, {.serial = 1234567890});
    EXPECT_EQ(item("SerialNumber"), "123456789");
}

TEST_F(Km5Description, ASerialNumberBeyondThirtyOneBitsIsPublishedAsNegative) {
    sim::Km5Meter meter({.serial = 94967295});
    describe(meter, {.serial = 4294967295U});
    EXPECT_EQ(item("SerialNumber"), "-1");
}

TEST_F(Km5Description, DoInitIsTheDescription) {
    sim::Km5Meter meter;
    machine.connect(Port, meter);
    start_driver();
    EXPECT_TRUE(driver->need_init());
    driver->do_init();
    EXPECT_FALSE(driver->need_init());
    EXPECT_EQ(item("MeterModel"), "KM5-1");
}

}  // namespace
