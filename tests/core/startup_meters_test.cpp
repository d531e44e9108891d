// Which driver a name on the command line makes, told by the meters that it serves; and the pace of normal mode.

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "km5_meter.h"
#include "support/start.h"

namespace {

class StartedMeter : public ::testing::Test {
  protected:
    static constexpr const char* Port = "/dev/ttyS1";

    void put_on_line(sim::Km5Meter& meter, unsigned serial) {
        scene.clear_tmp();
        scene.gateway.add_device(Port);
        scene.gateway.disconnect_all(Port);
        scene.gateway.connect(Port, meter);
        scene.service.set_meter("u1", {.serial = serial, .port_name = Port, .system_types = {"heat"}});
    }
    std::string model() const { return scene.item("u1", 1, "MeterModel").value_or("none\n"); }

    // Away from the hour change, at which no KM5 is asked anything.
    Scene scene{"2024-03-02 10:05:00"};
};

struct Kind {
    const char* name;
    sim::Km5Config config;
    const char* model;
};

// A KM5-6i has the number of its subsystem in the place of the second 9.
const Kind Kinds[] = {
    {"KM5", {.serial = 99345678, .model = 2}, "KM5-2\n"},
    {"KM56i", {.serial = 99345678, .km56i = true}, "KM5-6и\n"},
    {"ATT", {.serial = 99345678, .model = 2, .att = true}, "AT-T-2\n"},
};

TEST_F(StartedMeter, OfTheKm5FamilyIsServedUnderTheNameOfItsOwnKindAlone) {
    for (const Kind& kind : Kinds) {
        for (const Kind& asked : Kinds) {
            sim::Km5Meter meter(kind.config);
            put_on_line(meter, kind.config.serial);
            EXPECT_EQ(start_process(scene, {asked.name, "-r", "u1"}, 30).status, StillAtWork);
            const bool own = &kind == &asked;
            EXPECT_EQ(model(), own ? kind.model : "none\n") << kind.name << " under the name " << asked.name;
        }
    }
}

/// When a line of a log was written, in seconds of its day.
double seconds_of_day(const std::string& line) {
    const auto number = [&line](std::size_t at, std::size_t length) { return std::stod(line.substr(at, length)); };
    return number(9, 2) * 3600 + number(12, 2) * 60 + number(15, 6);
}

TEST_F(StartedMeter, IsCalledAgainFiveSecondsBehindTheEndOfAPass) {
    scene.gateway.add_device(Port);
    scene.service.set_meter("u1", {.serial = 1, .port_name = Port, .manufacturer = "sa-94-2m"});
    start_process(scene, {"SA94", "-r", "u1"}, 200);
    std::istringstream log(scene.file("/tmp/uni_logs.u1.messages.txt").value_or(""));
    int pauses = 0;
    double pass_ended = 0;
    for (std::string line; std::getline(log, line);) {
        if (line.ends_with("getDescription = Failure")) pass_ended = seconds_of_day(line);
        if (!line.ends_with("Start main iteration") || pass_ended == 0) continue;
        ++pauses;
        EXPECT_NEAR(seconds_of_day(line) - pass_ended, 5.0, 0.01);
    }
    EXPECT_EQ(pauses, 7) << "a pass of a silent meter takes 24 tries of 0.9 seconds";
}

}  // namespace
