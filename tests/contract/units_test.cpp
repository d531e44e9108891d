#include "contract/units.h"

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "contract/check.h"
#include "contract/facts.h"
#include "contract/plain_text.h"
#include "support/scene.h"

using contract::Units;
using Problems = std::vector<std::string>;

namespace {

Problems problems_of(const std::string& text) {
    Problems told = Units(text).problems();
    for (std::string& problem : told) {
        EXPECT_TRUE(problem.starts_with("/etc/heatmeterd/units.conf:")) << problem;
        problem.erase(0, problem.find(':') + 1);
    }
    return told;
}

TEST(Units, AKeeperHasTheLastWord) {
    const Units units(
        "# of the house\n\n[m1]\nIE1 = Gcal\n  A1: MWh ; behind the change\nT1 = °F\n[ m2 ]\r\nIE1=GJ\r\n");
    EXPECT_EQ(units.problems(), Problems{});
    EXPECT_EQ(units.size(), 4U);
    EXPECT_EQ(units.unit_of("m1", 1, "IE1", ""), "Gcal");
    EXPECT_EQ(units.unit_of("m1", 6, "IE1", ""), "Gcal");
    EXPECT_EQ(units.unit_of("m1", 1, "A1", ""), "MWh");
    EXPECT_EQ(units.unit_of("m1", 1, "T1", "°C"), "°F");
    EXPECT_EQ(units.unit_of("m1", 1, "T2", "°C"), "°C");
    EXPECT_EQ(units.unit_of("m2", 1, "IE1", ""), "GJ");
    EXPECT_EQ(units.unit_of("m3", 1, "IE1", ""), "");
    EXPECT_EQ(Units().unit_of("m1", 1, "T1", "°C"), "°C");
}

TEST(Units, ASystemComesBeforeItsMeter) {
    const Units units("[m1/2]\nIE1 = GJ\n[m1]\nIE1 = Gcal\nM1 = t/h\n");
    EXPECT_EQ(units.unit_of("m1", 1, "IE1", ""), "Gcal");
    EXPECT_EQ(units.unit_of("m1", 2, "IE1", ""), "GJ");
    EXPECT_EQ(units.unit_of("m1", 2, "M1", ""), "t/h");
}

TEST(Units, TellsEachMistakeWithItsLine) {
    EXPECT_EQ(problems_of("IE1 = Gcal\n"), Problems{"1: it stands below no [UUID]"});
    EXPECT_EQ(problems_of("[m1]\n\nIE9 = Gcal\n"), Problems{"3: there is no item and no archive \"IE9\""});
    EXPECT_EQ(problems_of("[m1]\nIE1 =\n"), Problems{"2: IE1 has no unit"});
    EXPECT_EQ(problems_of("[m1]\nIE1 Gcal\nA1 = Gcal\n"), Problems{"2: it is not NAME = unit"});
    EXPECT_EQ(problems_of("[m1]\nIE1 = Gcal\nIE1 = GJ\n"), Problems{"3: IE1 of m1 stands a second time"});
    EXPECT_EQ(problems_of("[m1/7]\n"), Problems{"1: \"[m1/7]\" is not [UUID] or [UUID/N], N from 1 to 6"});
    EXPECT_EQ(problems_of("[m1]\nIE1 = \x1B[2J\n"),
              Problems{"2: \"\xEF\xBF\xBD[2J\" is no unit: one has at most 16 letters"});
    EXPECT_EQ(problems_of("[m1]\nIE1 = seventeen letters\n").size(), 1U);
    EXPECT_EQ(problems_of("[m1]\n" + std::string(1000, 'x') + "\nIE1 = Gcal\n"), Problems{"2: the line is too long"});
    EXPECT_EQ(problems_of("[m1]\n#" + std::string(1000, 'x') + "\nIE1 = Gcal\n"), Problems{});
    EXPECT_EQ(problems_of('[' + std::string(60, 'm') + "]\n"), Problems{"1: the section has more than 49 letters"});
    EXPECT_EQ(problems_of("[m1]\nIE1 = \xFF\n").size(), 1U);
    EXPECT_EQ(problems_of(std::string("[m1]\nIE1 = G\0cal\n", 17)), Problems{"2: there is a zero byte in it"});
    EXPECT_EQ(problems_of(std::string(100'000, '#')), Problems{"1: the file is too long"});
}

TEST(Units, WhatStandsBelowAWrongSectionIsNobodys) {
    for (const std::string wrong : {"[m2", "[..]", "[m2;]", "[m2/0]", "[]"}) {
        const Units units("[m1]\nA1 = t\n" + wrong + "\nIE1 = Gcal\n");
        EXPECT_EQ(units.unit_of("m1", 1, "IE1", "?"), "?") << wrong;
        EXPECT_EQ(units.unit_of("m1", 1, "A1", "?"), "t");
        EXPECT_EQ(units.problems().size(), 2U) << wrong;
    }
    EXPECT_EQ(Units("[m1]\nA1 = t\n   IE1 = t\n").size(), 2U);
}

TEST(Units, ComeFromTheirFile) {
    Scene scene;
    EXPECT_EQ(contract::read_units().size(), 0U);
    scene.write(contract::UnitsFile, "\xEF\xBB\xBF[m1]\nIE1 = Gcal\n");
    EXPECT_EQ(contract::read_units().unit_of("m1", 1, "IE1", ""), "Gcal");
    scene.write(contract::UnitsFile, "[m1]\n" + std::string(200'000, '\n') + "IE1 = Gcal\n");
    EXPECT_EQ(contract::read_units().size(), 0U);
    EXPECT_EQ(contract::read_units().problems().size(), 1U);
}

TEST(Units, ACheckTellsTheirMistakes) {
    Scene scene;
    EXPECT_TRUE(contract::check_units().empty());
    scene.write(contract::UnitsFile, "[m1]\nIE1 = Gcal\n");
    ASSERT_EQ(contract::check_units().size(), 1U);
    EXPECT_EQ(contract::check_units()[0].text, "/etc/heatmeterd/units.conf: 1 units");
    scene.write(contract::UnitsFile, "[m1]\nIE1 = Gcal\nIE7 = Gcal\n");
    ASSERT_EQ(contract::check_units().size(), 1U);
    EXPECT_EQ(contract::check_units()[0].level, contract::Level::Warning);
    EXPECT_EQ(contract::check_units()[0].text, "/etc/heatmeterd/units.conf:3: there is no item and no archive \"IE7\"");
}

TEST(Units, TheirFileIsNoPorts) {
    Scene scene;
    for (const char* name : {"units", "uplink", "desk"}) {
        scene.write(std::string("/etc/heatmeterd/") + name + ".conf",
                    "HEATMETERD_WORDS=\"KM5 -r " + std::string(name) + "\"\n");
    }
    const contract::GatewayFacts here = contract::look_at_gateway();
    EXPECT_EQ(here.ports.size(), 1U);
    EXPECT_EQ(contract::known_meters(here), std::vector<std::string>{"desk"});
}

// Any bytes: units are short and act on nothing, and a line is a unit, a problem, or neither.
TEST(Units, OfAnyBytesAreUnits) {
    constexpr std::string_view Pieces[] = {
        "[m1]", "[m1/2]", "[", "]",  "\n",      "\r\n",         "IE1",  "A1", " = ", ":",      ";",
        "#",    "Gcal",   " ", "\t", "\x1B[2J", "\xE2\x80\xAE", "\xFF", "'",  "<b>", "[[m1]]", "\xEF\xBB\xBF"};
    std::mt19937 random(14);
    for (int run = 0; run < 20'000; ++run) {
        std::string text;
        for (unsigned i = random() % 40; i > 0; --i) {
            text += Pieces[random() % std::size(Pieces)];
            if (random() % 16 == 0) text += static_cast<char>(random());
            if (random() % 64 == 0) text.append(random() % 300, 'x');
        }
        const Units units(text);
        const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1;
        EXPECT_LE(units.size() + units.problems().size(), lines + 1) << text;
        for (const std::string& problem : units.problems()) EXPECT_EQ(contract::for_terminal(problem), problem);
        for (const char* name : {"IE1", "A1"}) {
            for (const int system : {1, 2}) {
                const std::string unit = units.unit_of("m1", system, name, "");
                EXPECT_EQ(contract::for_terminal(unit), unit);
                EXPECT_LE(contract::columns_of(unit), 16U);
            }
        }
        if (HasFailure()) break;
    }
}

}  // namespace
