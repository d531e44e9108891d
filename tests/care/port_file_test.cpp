#include "care/port_file.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace {

using Problems = std::vector<std::string>;

Problems problems_of(const std::string& text) {
    return parse_port_file("p.conf", text).problems;
}

TEST(PortFile, GivesTheWordsBetweenTheQuotes) {
    const PortFile file = parse_port_file("p.conf", "# a port\n\n ; and\nHEATMETERD_WORDS=\"KM5 -r  a\tb\" \n");
    EXPECT_EQ(file.words, (Words{"KM5", "-r", "a", "b"}));
    EXPECT_EQ(file.problems, Problems());
    EXPECT_EQ(parse_port_file("p.conf", "HEATMETERD_WORDS='any -j a'").words, (Words{"any", "-j", "a"}));
    EXPECT_EQ(problems_of("HEATMETERD_WORDS='any -j a'"), Problems());
}

TEST(PortFile, KnowsEachMeterName) {
    for (const char* name : {"KM5", "KM56i", "ATT", "VIST", "VISTmodbus", "SA94"}) {
        EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"" + std::string(name) + " -r a\""), Problems()) << name;
    }
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"km5 -r a\"\n"),
              Problems{"p.conf:1: unknown name \"km5\"; there are KM5, KM56i, ATT, VIST, VISTmodbus, SA94"});
}

TEST(PortFile, TellsEachMistakeWithItsLine) {
    EXPECT_EQ(problems_of(""), Problems{"p.conf:1: no HEATMETERD_WORDS"});
    EXPECT_EQ(problems_of("\n# none\n"), Problems{"p.conf:2: no HEATMETERD_WORDS"});
    EXPECT_EQ(problems_of("\nHEATMETERD_WORDS=\"KM5 -r a\n"), Problems{"p.conf:2: the value is not in quotes"});
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"\n"), Problems{"p.conf:1: the value is not in quotes"});
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"KM5 -r a'\n"), Problems{"p.conf:1: the value is not in quotes"});
    EXPECT_EQ(problems_of("#\r\nHEATMETERD_WORDS=\"KM5 -r a\"\r\n"),
              Problems{"p.conf:2: the line ends with CR LF, not with LF alone"});
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"KM5 -r a\"\nTZ=\"UTC\"\n"),
              Problems{"p.conf:2: \"TZ\" is not HEATMETERD_WORDS"});
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"KM5 -r a\"\nHEATMETERD_WORDS=\"KM5 -r b\"\n"),
              Problems{"p.conf:2: HEATMETERD_WORDS stands a second time"});
    EXPECT_EQ(problems_of("# which \\\nHEATMETERD_WORDS=\"KM5 -r a\"\n"),
              Problems{"p.conf:1: the comment ends with a backslash"});
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"\"\n"),
              Problems{"p.conf:1: the words are not NAME -r UUID... or WORD -j UUID..."});
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"KM5 a -r\"\n"),
              Problems{"p.conf:1: the words are not NAME -r UUID... or WORD -j UUID..."});
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"KM5 -r\"\n"), Problems{"p.conf:1: no uuid"});
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"KM5 -r a -j\"\n"), Problems{"p.conf:1: \"-j\" is no uuid"});
}

TEST(PortFile, LetsNothingThroughThatAShellOrAPathTakesForMore) {
    for (const char* word : {"$(x)", "`x`", "a;b", "a\\b", "../a", "..", "a/b", "a\"b", "a*", "\xD1\x8F"}) {
        EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"KM5 -r " + std::string(word) + "\"\n").size(), 1U) << word;
    }
    EXPECT_EQ(problems_of("HEATMETERD_WORDS=\"KM5 -r \x1B[2J\"\n"),
              Problems{"p.conf:1: \"?[2J\" has other signs than letters, digits, '.', '_' and '-'"});
    EXPECT_EQ(problems_of(std::string(100000, 'x')), Problems{"p.conf:1: the file is too long"});
}

class PortFolder : public testing::Test {
  protected:
    PortFolder() { std::filesystem::create_directory(folder); }
    ~PortFolder() override { std::filesystem::remove_all(folder); }

    void put(const std::string& name, const std::string& words) const {
        std::ofstream(folder + "/" + name) << "HEATMETERD_WORDS=\"" << words << "\"\n";
    }

    const std::string folder = testing::TempDir() + "ports." + std::to_string(::getpid());
};

TEST_F(PortFolder, HasAPortForEachFileWithTheRightEnd) {
    put("a.conf", "KM5 -r m1");
    put("b.conf.bak", "KM5 -r m1");
    put("README", "KM5 -r m1");
    const auto ports = read_ports(folder);
    ASSERT_EQ(ports.size(), 1U);
    EXPECT_EQ(ports.at("a").words, (Words{"KM5", "-r", "m1"}));
    EXPECT_EQ(ports.at("a").problems, Problems());
    EXPECT_TRUE(read_ports(folder + "/none").empty());
}

TEST_F(PortFolder, RefusesAMeterThatIsReadTwice) {
    put("a.conf", "KM5 -r m1 m2");
    put("b.conf", "any -j m2");
    put("c.conf", "VIST -r m3 m3");
    put("d.conf", "VIST -r m4");
    const auto ports = read_ports(folder);
    EXPECT_EQ(ports.at("a").problems, Problems{folder + "/a.conf:1: uuid m2 also stands in b.conf"});
    EXPECT_EQ(ports.at("b").problems, Problems{folder + "/b.conf:1: uuid m2 also stands in a.conf"});
    EXPECT_EQ(ports.at("c").problems, Problems{folder + "/c.conf:1: uuid m3 stands twice"});
    EXPECT_EQ(ports.at("d").problems, Problems());
}

TEST_F(PortFolder, TellsWhatIsNoFileAndWhatHasAnOddName) {
    std::filesystem::create_directory(folder + "/a.conf");
    put("my port.conf", "KM5 -r m1");
    put("-x.conf", "KM5 -r m2");
    const auto ports = read_ports(folder);
    EXPECT_EQ(ports.at("a").problems, Problems{folder + "/a.conf:1: no HEATMETERD_WORDS"});
    EXPECT_EQ(ports.at("my port").problems.size(), 1U);
    EXPECT_EQ(ports.at("-x").problems.size(), 1U);
}

TEST_F(PortFolder, LeavesOutTheFilesOfOtherPrograms) {
    for (const char* name : {"units.conf", "uplink.conf", ".conf", "Units.conf"}) put(name, "KM5 -r m1");
    const auto ports = read_ports(folder);
    ASSERT_EQ(ports.size(), 1U);
    EXPECT_EQ(ports.at("Units").problems, Problems());
    EXPECT_EQ(port_of_file("units.conf"), std::nullopt);
    EXPECT_EQ(port_of_file("a.conf"), "a");
}

}  // namespace
