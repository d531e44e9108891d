// Whole passes over a simulated meter of every firmware: what ought to be in the files is there, once.

#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/sa94_archive_scene.h"

namespace {

class Sa94Pass : public Sa94ArchiveStand {
  protected:
    using Sa94ArchiveStand::Sa94ArchiveStand;

    void connect(sim::Sa94Meter& simulated) {
        machine.connect(Port, simulated);
        start_driver(simulated);
    }
    /// A pass at which the archives are due.
    void pass_with_archives() {
        machine.sleep(3601);
        driver->run_main();
    }
    static LineCounts expected(const sim::Sa94Meter& simulated) {
        LineCounts all;
        for (const auto archive : {sim::Sa94Archive::Hourly, sim::Sa94Archive::Daily, sim::Sa94Archive::Errors}) {
            all.merge(all_lines(simulated, archive));
        }
        return all;
    }
    /// What is in the files too often or too seldom.
    std::string wrong(const sim::Sa94Meter& simulated) const { return difference(lines(), expected(simulated)); }
};

constexpr const char* Items = "/tmp/m1/1/tc_items";

struct Kind {
    const char* firmware;
    std::uint8_t status;
};

class Sa94PassOf : public Sa94Pass, public ::testing::WithParamInterface<Kind> {};

TEST_P(Sa94PassOf, FilesEveryRecordOnce) {
    sim::Sa94Meter simulated({.address = 0x12345, .firmware = GetParam().firmware, .status = GetParam().status});
    simulated.fill(sim::Sa94Archive::Hourly, {.records = 90, .newest = "2024-03-02 09:00"});
    simulated.fill(sim::Sa94Archive::Daily, {.records = 40, .newest = "2024-03-01 00:00"});
    simulated.fill(sim::Sa94Archive::Errors, {.records = 40, .newest = "2024-03-02 08:00"});
    connect(simulated);
    pass_with_archives();
    EXPECT_EQ(wrong(simulated), "");
    pass_with_archives();
    EXPECT_EQ(wrong(simulated), "") << "nothing is new";
    EXPECT_EQ(connected(), "111111");
    EXPECT_EQ(item("_DriverStatus"), "6");
}

TEST_P(Sa94PassOf, PublishesEachParameterInItsUnitInTheOrderOfTheCodes) {
    sim::Sa94Meter simulated({.address = 0x12345, .firmware = GetParam().firmware, .status = GetParam().status});
    const bool t3 = (GetParam().status & 4) != 0;
    const bool volumes = (GetParam().status & 0x44) == 0x44;
    std::map<std::string, std::string> wanted;
    std::set<unsigned> codes;
    for (const sim::Sa94Parameter& parameter : simulated.firmware().parameters) {
        if (parameter.name == "p3") continue;
        const std::string name(parameter.name);
        const float bare = 10.5F + static_cast<float>(parameter.code);
        simulated.set_value(name, bare);
        codes.insert({parameter.code, sim::Sa94CodeOfTime, sim::Sa94CodeOfDate});
        if (name == "T3" && !t3) continue;
        char text[64];
        std::snprintf(text, sizeof(text), "%f", static_cast<double>(parameter.scale.filed(bare)));
        wanted[name[0] == 'p' ? (volumes ? "IQ" : "IM") + name.substr(1) : name] = text;
    }
    connect(simulated);
    ASSERT_TRUE(driver->getDescription());
    scene.remove(Items);
    scene.make_tree(Uuid);
    simulated.forget_requests();
    driver->getCurrentParameters();
    std::map<std::string, std::string> found;
    for (const std::string& name : scene.list(Items)) found[name] = item(name);
    EXPECT_EQ(found.erase("MDateTime"), codes.empty() ? 0U : 1U);
    EXPECT_EQ(found.erase("Connected") + found.erase("_DriverStatus"), 2U);
    EXPECT_EQ(found, wanted);
    std::vector<unsigned> asked;
    for (const sim::Sa94Heard& heard : simulated.heard()) {
        if (heard.request.kind == sim::Sa94Kind::Parameter) asked.push_back(heard.request.code);
    }
    EXPECT_EQ(asked, std::vector(codes.begin(), codes.end()));
}

TEST_P(Sa94PassOf, FilesWhatIsNewAfterARestart) {
    sim::Sa94Meter simulated({.address = 0x12345, .firmware = GetParam().firmware, .status = GetParam().status});
    simulated.fill(sim::Sa94Archive::Hourly, {.records = 30, .newest = "2024-03-02 09:00"});
    simulated.fill(sim::Sa94Archive::Daily, {.records = 5, .newest = "2024-03-01 00:00"});
    connect(simulated);
    pass_with_archives();
    start_driver(simulated);
    simulated.record_archives(true, "2024-03-02 10:00");
    machine.sleep(2 * 86400);
    pass_with_archives();
    EXPECT_EQ(wrong(simulated), "");
}

constexpr Kind Kinds[] = {{"M461-m 1.0", 0x06},  {"M461-m 1.0", 0x44}, {"M451-m 1.0", 0x06}, {"M461 1.0", 0x00},
                          {"M461 1.0", 0x7F},    {"M451 1.0", 0x04},   {"M401 1.0", 0x06},   {"M301 1.0", 0x06},
                          {"M300 1.0", 0x02},    {"M300 1.0", 0x04},   {"301", 0x06},        {"MTE1", 0x06},
                          {"201", 0x06},         {"200", 0x06},        {"M101", 0x06},       {"M100", 0x00},
                          {"SA94_UNKNOWN", 0x06}};

std::string kind_name(const ::testing::TestParamInfo<Kind>& tested) {
    std::string name = tested.param.firmware;
    for (char& letter : name) letter = std::isalnum(static_cast<unsigned char>(letter)) != 0 ? letter : '_';
    return name + "_" + std::to_string(tested.param.status);
}

INSTANTIATE_TEST_SUITE_P(Firmware, Sa94PassOf, ::testing::ValuesIn(Kinds), kind_name);

TEST_F(Sa94Pass, CurrentValuesOfAMeterAreInTheItems) {
    sim::Sa94Meter simulated({.address = 0x12345, .firmware = "M301 1.05", .status = 0x06});
    simulated.set_value("T1", 71.25F);
    simulated.set_value("P1", 0.5F);
    connect(simulated);
    driver->run_main();
    EXPECT_EQ(item("T1"), "71.250000");
    EXPECT_EQ(item("P1"), "5.098581");
    EXPECT_EQ(item("Firmware"), "M3011.05");
    EXPECT_EQ(item("MeterModel"), "SA94/2M");
    EXPECT_EQ(item("_Status"), "6");
    for (int n = 2; n <= 6; ++n) {
        EXPECT_EQ(scene.list("/tmp/m1/" + std::to_string(n) + "/tc_items"), std::vector<std::string>{"Connected"});
    }
}

TEST_F(Sa94Pass, AMeterOfAnotherAddressKeepsSilent) {
    sim::Sa94Meter simulated({.address = 0x12346});
    machine.connect(Port, simulated);
    start_driver(sim::Sa94Meter({.address = 0x12345}));
    driver->run_main();
    EXPECT_EQ(connected(), "000000");
    EXPECT_EQ(item("_DriverStatus"), "6");
    EXPECT_EQ(item("Firmware"), "(none)");
}

TEST_F(Sa94Pass, OneOfSeveralMetersOnTheLineIsRead) {
    sim::Sa94Meter other({.address = 7, .firmware = "M461 1.0"});
    sim::Sa94Meter simulated({.address = 0x12345, .firmware = "200"});
    machine.connect(Port, other);
    connect(simulated);
    driver->run_main();
    EXPECT_EQ(item("MeterModel"), "SA94/2");
    EXPECT_FALSE(simulated.in_conversation()) << "the last word was a disconnect";
}

TEST_F(Sa94Pass, ALostAnswerNowAndThenCostsATryAndNothingElse) {
    sim::Sa94Meter simulated({.address = 0x12345, .firmware = "M300", .status = 0x02});
    simulated.fill(sim::Sa94Archive::Hourly, {.records = 90, .newest = "2024-03-02 09:00"});
    simulated.misbehave_each(5, sim::sa94_lost());
    connect(simulated);
    pass_with_archives();
    EXPECT_EQ(wrong(simulated), "");
    EXPECT_GT(simulated.faults_made(), 10U);
    EXPECT_EQ(connected(), "111111");
}

class Sa94PassInSummer : public Sa94Pass {
  protected:
    Sa94PassInSummer() : Sa94Pass("2024-07-15 12:05:00", "CET-1CEST,M3.5.0,M10.5.0/3") {}
};

TEST_F(Sa94PassInSummer, FilesEveryRecordOnceByStandardTime) {
    sim::Sa94Meter simulated({.address = 0x12345, .firmware = "M301 1.05", .status = 0x06});
    simulated.fill(sim::Sa94Archive::Hourly, {.records = 90, .newest = "2024-07-15 10:00"});
    simulated.fill(sim::Sa94Archive::Daily, {.records = 150, .newest = "2024-07-14 00:00"});
    connect(simulated);
    pass_with_archives();
    EXPECT_EQ(wrong(simulated), "");
    EXPECT_EQ(driver->progress().LastTimestampHourly, 1721034000) << "2024-07-15 10:00 by the meter, 09:00 UTC";
    start_driver(simulated);
    EXPECT_EQ(driver->progress().LastTimestampHourly, 1721034000);
    pass_with_archives();
    EXPECT_EQ(wrong(simulated), "");
}

}  // namespace
