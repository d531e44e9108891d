// Single-bus mode with the drivers of the daemon itself: which manufacturer gets which.

#include <string>

#include <gtest/gtest.h>

#include "km5_meter.h"
#include "support/scene.h"
#include "support/start.h"

namespace {

class BusOfTheDaemon : public ::testing::Test {
  protected:
    /// The loop has no pause: without a meter to wait for it makes thousands of passes in a hundredth of a second.
    ChildEnd start(const std::string& manufacturer, unsigned serial = 12345678, double seconds = 0.01) {
        scene.clear_tmp();
        scene.gateway.add_device("/dev/a");
        scene.service.set_meter(
            "u1", {.serial = serial, .port_name = "/dev/a", .manufacturer = manufacturer, .system_types = {"heat"}});
        return start_process(scene, {"WORD", "-j", "u1"}, seconds);
    }
    bool is_km5() const { return scene.exists("/tmp/uni_logs.u1.debug.txt"); }

    Scene scene;
};

TEST_F(BusOfTheDaemon, AKm5IsOneByItsFirstFourCharacters) {
    for (const char* manufacturer : {"km-5", "km-5-6i", "km-5-6", "km-5anything"}) {
        EXPECT_EQ(start(manufacturer).status, StillAtWork) << manufacturer;
        EXPECT_TRUE(is_km5());
    }
}

TEST_F(BusOfTheDaemon, AKm56iIsDescribedUnderItsOwnManufacturerAlone) {
    // A KM5-6i has the number of its subsystem in the place of the second 9.
    sim::Km5Meter meter({.serial = 99345678, .km56i = true});
    scene.gateway.connect("/dev/a", meter);
    for (const char* manufacturer : {"km-5-6i", "km-5", "km-5-6"}) {
        const bool own = manufacturer == std::string("km-5-6i");
        EXPECT_EQ(start(manufacturer, 99345678, 10).status, StillAtWork);
        EXPECT_EQ(scene.item("u1", 1, "MeterModel").has_value(), own) << manufacturer;
    }
}

TEST_F(BusOfTheDaemon, AVistIsMadeAndItsRunIsNeverCalled) {
    EXPECT_EQ(start("vis-t").status, StillAtWork);
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.u1.txt"));
    EXPECT_FALSE(is_km5());
    EXPECT_EQ(scene.file("/tmp/uni_logs.u1.txt").value_or("").find("vist_run_main"), std::string::npos);
}

TEST_F(BusOfTheDaemon, ASa94IsMadeAndItsRunIsNeverCalled) {
    EXPECT_EQ(start("sa-94-2m").status, StillAtWork);
    EXPECT_NE(scene.file("/tmp/uni_logs.u1.general.txt").value_or("").find("SA94::SA94"), std::string::npos);
    EXPECT_EQ(scene.file("/tmp/uni_logs.u1.messages.txt"), "") << "no iteration has begun";
    EXPECT_EQ(scene.item("u1", 1, "_DriverStatus"), std::nullopt);
}

TEST_F(BusOfTheDaemon, AnotherManufacturerIsUnknown) {
    for (const char* manufacturer : {"", "km", "sa-94", "sa-94-2", "sa-94-2m-", "KM-5", "vis-t2", " vis-t"}) {
        EXPECT_EQ(start(manufacturer).status, 1) << manufacturer;
    }
}

}  // namespace
