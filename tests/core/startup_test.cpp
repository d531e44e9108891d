#include "core/entry/startup.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/start.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char LogPath[] = "/tmp/uni_logs.general.txt";

class StartupTest : public ::testing::Test {
  protected:
    ChildEnd start(const Lines& words) { return start_process(scene, words); }
    /// The loop of single-bus mode has no pause: it walks thousands of times in a hundredth of a second.
    ChildEnd start_bus(const Lines& words) { return start_process(scene, words, 0.01); }

    std::string log() const { return scene.file(LogPath).value_or("no log"); }

    static std::string line(const std::string& text) { return "02/03/24 10:00:00.000 : " + text + "\n"; }
    static std::string lines(const Lines& texts) {
        std::string all;
        for (const std::string& text : texts) all += line(text);
        return all;
    }

    /// What every start leaves in the log before its run value decides.
    static std::string block(const std::string& run, const Lines& uuids) {
        std::string text = line("Run = " + run) +
                           "#define INIT_FALSE: -2\n"
                           "#define INIT_HELP: -1\n"
                           "#define INIT_NORMAL: 0\n"
                           "#define INIT_VERSION: 2\n"
                           "#define INIT_SINGLEBUS: 3\n";
        text += line("Parse uuid...");
        for (const std::string& uuid : uuids) text += line("Add uuid: " + uuid);
        return text + lines({"Parse uuid success", "Init directories...", "Init directories success"});
    }

    bool has_tree(const std::string& uuid) const { return scene.exists("/mnt/storage/" + uuid + "/6/tc_archives"); }

    Scene scene{"2024-03-02 10:00:00"};
};

// ---- version and bad syntax

TEST_F(StartupTest, VersionIsTwoLinesAndStatusZero) {
    const ChildEnd end = start({"-v"});
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, "2.1.14_26592\niteration delay = 0 minutes, off\n");
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(log(), block("2", {}));
}

TEST_F(StartupTest, NoWordsAreBadSyntaxAndMakeNoFolders) {
    const ChildEnd end = start({});
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, "Error: bad syntax\n");
    EXPECT_EQ(log(), block("-2", {}));
    EXPECT_EQ(scene.list("/mnt/storage"), Lines{});
    EXPECT_EQ(scene.list("/tmp"), Lines{"uni_logs.general.txt"});
}

TEST_F(StartupTest, WordsWithoutAnOptionAreBadSyntaxYetMakeFolders) {
    const ChildEnd end = start({"a", "b", "c", "d"});
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, "Error: bad syntax\n");
    EXPECT_EQ(log(), block("-2", {"c", "d"}));
    EXPECT_EQ(scene.list("/mnt/storage"), (Lines{"c", "d"}));
    EXPECT_TRUE(has_tree("c"));
    EXPECT_TRUE(has_tree("d"));
    EXPECT_EQ(scene.item("c", 6, "Connected"), "0\n");
}

TEST_F(StartupTest, UnknownOptionIsBadSyntaxAndOnlyThat) {
    for (const char* option : {"-h", "-x", "-", "--version"}) {
        const ChildEnd end = start({"KM5", option, "u1"});
        EXPECT_EQ(end.status, 0) << option;
        EXPECT_EQ(end.out, "Error: bad syntax\n") << option;
        EXPECT_EQ(end.err, "") << option;
    }
}

TEST_F(StartupTest, RunValueOfAnUnknownOptionIsMinusOne) {
    start({"KM5", "-x", "u1"});
    EXPECT_EQ(log(), block("-1", {"u1"}));
    EXPECT_TRUE(has_tree("u1"));
}

TEST_F(StartupTest, OptionIAloneIsNoOption) {
    EXPECT_EQ(start({"-i"}).out, "Error: bad syntax\n");
    EXPECT_EQ(log(), block("-2", {}));
}

TEST_F(StartupTest, OptionILeavesTheOtherAsItIs) {
    EXPECT_EQ(start({"-v", "-i"}).out, "2.1.14_26592\niteration delay = 0 minutes, off\n");
    EXPECT_EQ(start({"-iv"}).out, "2.1.14_26592\niteration delay = 0 minutes, off\n");
}

TEST_F(StartupTest, VersionMakesTheFoldersOfItsWordsToo) {
    start({"-v", "b", "c"});
    EXPECT_EQ(scene.list("/mnt/storage"), Lines{"c"});
}

// ---- which option, which name

TEST_F(StartupTest, LastOptionWinsButTheNameOfAnEarlierOneStays) {
    const ChildEnd end = start({"KM5", "-rv", "u1"});
    EXPECT_EQ(end.out, "2.1.14_26592\niteration delay = 0 minutes, off\n");
    EXPECT_EQ(log(), line("Heat meter name = KM5") + block("2", {"u1"}));
}

TEST_F(StartupTest, UnknownOptionBehindAKnownOneWins) {
    EXPECT_EQ(start({"KM5", "-rx", "u1"}).out, "Error: bad syntax\n");
    EXPECT_EQ(log(), line("Heat meter name = KM5") + block("-1", {"u1"}));
}

TEST_F(StartupTest, NormalModeWinsWhenItIsAskedForLast) {
    EXPECT_EQ(start({"WORD", "-vr", "u1"}).out, "ups..\n");
    EXPECT_EQ(log(), line("Heat meter name = WORD") + block("0", {"u1"}) +
                         lines({"Run init... ", "Heat meter not definded. Exit."}));
}

TEST_F(StartupTest, NameBehindTheOptionIsNotTheName) {
    const ChildEnd end = start({"-r", "KM5", "u1"});
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, "ups..\n");
    EXPECT_EQ(log(), line("Heat meter name = -r") + block("0", {"u1"}) +
                         lines({"Run init... ", "Heat meter not definded. Exit."}));
}

TEST_F(StartupTest, UnknownNameEndsTheProcessWithStatusZero) {
    for (const char* name : {"none", "", "km5", "KM5 ", "KM", "KM55", "KM5-6i", "att", "sa94", "SA94 "}) {
        const ChildEnd end = start({name, "-r", "u1"});
        EXPECT_EQ(end.status, 0) << name;
        EXPECT_EQ(end.out, "ups..\n") << name;
        EXPECT_EQ(log(), line(std::string("Heat meter name = ") + name) + block("0", {"u1"}) +
                             lines({"Run init... ", "Heat meter not definded. Exit."}));
    }
}

TEST_F(StartupTest, NormalModeWithoutAnyWordHasNoName) {
    EXPECT_EQ(start({"-r"}).out, "ups..\n");
    EXPECT_TRUE(log().starts_with(line("Heat meter name = -r")));
}

TEST_F(StartupTest, KnownNameWithoutAUuidEndsTheProcessWithStatusZero) {
    for (const char* name : {"SA94", "VIST", "KM56i", "KM5", "ATT", "VISTmodbus"}) {
        EXPECT_EQ(start({name, "-r"}).status, 0) << name;
        EXPECT_TRUE(log().ends_with(line("No uuid on the command line. Exit."))) << name;
    }
    EXPECT_EQ(scene.service.requests(), Lines{});
}

// ---- single-bus mode

TEST_F(StartupTest, SingleBusModeTakesTheWayToTheEndlessIterationsWithAnyWordInFrontOrBehind) {
    scene.service.set_result("u1", R"({"serial":0,"manufacturer":"km-5","port_params":{"name":"/dev/none"}})");
    for (const Lines& words : {Lines{"WORD", "-j", "u1"}, Lines{"-j", "WORD", "u1"}}) {
        EXPECT_EQ(start_bus(words).status, StillAtWork);
        EXPECT_EQ(log(), block("3", {"u1"}) + lines({"Run SingleBus", "Add Drivers", "Run drivers iterations"}));
        EXPECT_EQ(scene.list("/mnt/storage"), Lines{"u1"});
    }
}

TEST_F(StartupTest, SingleBusModeWithoutAWordLosesItsFirstUuid) {
    scene.service.set_result("u2", R"({"serial":0,"manufacturer":"km-5","port_params":{"name":"/dev/none"}})");
    start_bus({"-j", "u1", "u2"});
    EXPECT_TRUE(log().starts_with(block("3", {"u2"})));
    EXPECT_EQ(scene.list("/mnt/storage"), Lines{"u2"});
}

TEST_F(StartupTest, SingleBusModeWithoutAUuidWalksNobodyForEver) {
    EXPECT_EQ(start_bus({"-j"}).status, StillAtWork);
    EXPECT_EQ(log(), block("3", {}) + lines({"Run SingleBus", "Add Drivers", "Run drivers iterations"}));
}

TEST_F(StartupTest, SingleBusModeMakesTheDriverThatTheManufacturerNames) {
    // Each driver makes logs of its own, by which it is told.
    const auto port = [](const std::string& manufacturer) {
        return R"({"serial":0,"port_params":{"name":"/dev/none"},"manufacturer":")" + manufacturer + "\"}";
    };
    scene.service.set_result("six", port("km-5-6i"));
    scene.service.set_result("any", port("km-5-of-some-kind"));
    scene.service.set_result("vist", port("vis-t"));
    scene.service.set_result("modbus", port("vis-t-modbus"));
    EXPECT_EQ(start_bus({"WORD", "-j", "six", "any", "vist", "modbus"}).status, StillAtWork);
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.six.messages.txt"));
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.any.messages.txt"));
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.vist.txt"));
    EXPECT_FALSE(scene.exists("/tmp/uni_logs.vist.messages.txt"));
    EXPECT_EQ(scene.file("/tmp/uni_logs.vist.txt")->find("VISTmodbus creating."), std::string::npos);
    EXPECT_NE(scene.file("/tmp/uni_logs.modbus.txt")->find("VISTmodbus creating."), std::string::npos);
}

TEST_F(StartupTest, SingleBusModeKnowsOneSa94ByItsWholeName) {
    scene.service.set_result("u1", R"({"serial":0,"manufacturer":"sa-94-2m","port_params":{"name":"/dev/none"}})");
    EXPECT_EQ(start_bus({"WORD", "-j", "u1"}).status, StillAtWork);
    EXPECT_TRUE(scene.file("/tmp/uni_logs.u1.general.txt").value_or("").find("SA94::SA94") != std::string::npos);
}

TEST_F(StartupTest, SingleBusModeWithoutAKnownManufacturerEndsTheProcessWithStatusOne) {
    for (const char* manufacturer : {"", "sa-94", "sa-94-2m ", "SA-94-2M", "km5", "KM-5", "vis-t ", "vis-t-modbus "}) {
        scene.service.set_result("u1", R"({"serial":1,"manufacturer":")" + std::string(manufacturer) + "\"}");
        const ChildEnd end = start_bus({"WORD", "-j", "u1"});
        EXPECT_EQ(end.status, 1) << manufacturer;
        EXPECT_NE(end.err.find("No meter of a known manufacturer"), std::string::npos) << manufacturer;
        EXPECT_NE(log().find("Unknown manufacturer"), std::string::npos) << manufacturer;
    }
}

// ---- normal mode

TEST_F(StartupTest, NormalModeTakesTheWayFromTheNameToTheEndlessIterations) {
    scene.gateway.add_device("/dev/ttyS1");
    scene.service.set_result("u1", R"({"serial":1,"manufacturer":"km-5","port_params":{"name":"/dev/ttyS1"}})");
    const ChildEnd end = start({"KM5", "-r", "u1", "u2"});
    EXPECT_EQ(end.status, StillAtWork);
    const std::string fd = std::to_string(scene.gateway.open_port("/dev/ttyS1"));  // as the child's first one
    EXPECT_EQ(log().substr(0, log().find("iterations") + 11),
              line("Heat meter name = KM5") + block("0", {"u1", "u2"}) +
                  lines({"Run init... ", "Create KM5", "Read configs from rpc", "Open tty",
                         "open_tty = /dev/ttyS1, fd = " + fd, "Start \"run_main\" driver iterations"}));
}

TEST_F(StartupTest, ParentOfTheMetersIsConfiguredByItsFirstUuid) {
    start({"KM5", "-r", "u1", "u2"});
    const Lines requests = scene.service.requests();
    ASSERT_GE(requests.size(), 3U);  // one for the parent, one for each of its meters
    EXPECT_NE(requests[0].find("[\"u1\"]"), std::string::npos);
    EXPECT_NE(requests[1].find("[\"u1\"]"), std::string::npos);
    EXPECT_NE(requests[2].find("[\"u2\"]"), std::string::npos);
}

TEST_F(StartupTest, EachNameOfTheFamilyHasItsOwnLine) {
    start({"KM56i", "-r", "u1"});
    EXPECT_NE(log().find(line("Run init... ") + line("Create KM5-6i") + line("Read configs from rpc")),
              std::string::npos);
    start({"ATT", "-r", "u1"});
    EXPECT_NE(log().find(line("Run init... ") + line("Create ATT (really KM5)") + line("Read configs from rpc")),
              std::string::npos);
}

TEST_F(StartupTest, VistOnModbusServesAllUuids) {
    EXPECT_EQ(start({"VISTmodbus", "-r", "u1", "u2"}).status, StillAtWork);
    EXPECT_NE(log().find(lines({"Run init... ", "Create VIST modbus", "Read configs from rpc"})), std::string::npos);
    for (const char* path : {"/tmp/uni_logs.u1.txt", "/tmp/uni_logs.u2.txt"}) {
        EXPECT_NE(scene.file(path).value_or("").find("VISTmodbus creating."), std::string::npos) << path;
    }
}

TEST_F(StartupTest, Sa94TakesTheFirstUuidOfTheListAndNoOther) {
    scene.gateway.add_device("/dev/ttyS1");
    scene.service.set_result("u1", R"({"serial":1,"manufacturer":"sa-94-2m","port_params":{"name":"/dev/ttyS1"}})");
    const ChildEnd end = start({"SA94", "-r", "u1", "u2"});
    EXPECT_EQ(end.status, StillAtWork);
    EXPECT_TRUE(end.out.starts_with("g_uuid_list.size() = 2\ng_uuid_list[0].c_str() = u1\n"));
    const std::string fd = std::to_string(scene.gateway.open_port("/dev/ttyS1"));  // as the child's first one
    EXPECT_EQ(log(), line("Heat meter name = SA94") + block("0", {"u1", "u2"}) +
                         lines({"Run init... ", "Create SA94", "Read configs from rpc", "Open tty",
                                "open_tty = /dev/ttyS1, fd = " + fd, "Start \"run_main\" driver iterations"}));
    const Lines requests = scene.service.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_NE(requests[0].find("[\"u1\"]"), std::string::npos);
    EXPECT_TRUE(scene.exists("/tmp/uni_logs.u1.messages.txt"));
    EXPECT_FALSE(scene.exists("/tmp/uni_logs.u2.messages.txt"));
    EXPECT_TRUE(has_tree("u2")) << "the folders are made for all";
    EXPECT_EQ(scene.item("u1", 1, "_DriverStatus"), "1\n");
    EXPECT_EQ(scene.item("u2", 1, "_DriverStatus"), std::nullopt);
}

TEST_F(StartupTest, Sa94IsCalledAgainFiveSecondsBehindAFailedPass) {
    scene.gateway.add_device("/dev/ttyS1");
    scene.service.set_result("u1", R"({"serial":1,"manufacturer":"sa-94-2m","port_params":{"name":"/dev/ttyS1"}})");
    start_process(scene, {"SA94", "-r", "u1"}, 60);
    const std::string told = scene.file("/tmp/uni_logs.u1.messages.txt").value_or("");
    // A pass of a silent meter takes 24 tries of 0.9 seconds.
    std::size_t passes = 0;
    for (std::size_t at = told.find("Start main iteration"); at != std::string::npos;
         at = told.find("Start main iteration", at + 1)) {
        ++passes;
    }
    EXPECT_EQ(passes, 3U);
}

TEST_F(StartupTest, Sa94SaysNothingOfAnEmptyList) {
    const ChildEnd end = start({"SA94", "-r"});
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out.find("g_uuid_list"), std::string::npos);
    EXPECT_TRUE(log().ends_with(line("Create SA94") + line("No uuid on the command line. Exit.")));
}

TEST_F(StartupTest, PortThatDoesNotOpenIsToldAndTheProcessGoesOn) {
    scene.service.set_result("u1", R"({"serial":1,"manufacturer":"km-5","port_params":{"name":"/dev/none"}})");
    EXPECT_EQ(start({"KM5", "-r", "u1"}).status, StillAtWork);
    EXPECT_NE(log().find(line("open_tty = /dev/none, fd = -1")), std::string::npos);
}

TEST_F(StartupTest, ConfigurationServiceThatCannotBeReachedLeavesTheProcessRunningWithoutAPort) {
    scene.gateway.set_service_address("http://127.0.0.1:1/");
    const ChildEnd end = start({"KM5", "-r", "u1"});
    EXPECT_EQ(end.status, StillAtWork);
    EXPECT_NE(end.err.find("Error while sending data!\n"), std::string::npos);
    EXPECT_NE(log().find(line("open_tty = , fd = -1")), std::string::npos);
}

TEST_F(StartupTest, LostConfigurationAnswerEndsTheProcessWithStatusOne) {
    scene.service.hang_up();
    const ChildEnd end = start({"KM5", "-r", "u1"});
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, "Error while receiving data!\n");
    EXPECT_TRUE(log().ends_with(line("Read configs from rpc")));
}

// ---- the log, the LEDs, the standard streams

TEST_F(StartupTest, GeneralLogStartsEmpty) {
    scene.write(LogPath, "of an earlier life\n");
    start({"-v"});
    EXPECT_EQ(log(), block("2", {}));
}

TEST_F(StartupTest, GeneralLogThatCannotBeOpenedIsSkipped) {
    scene.touch(std::string(LogPath) + "/in/the/way");
    const ChildEnd end = start({"a", "b", "u1"});
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out, "Error: bad syntax\n");
    EXPECT_TRUE(has_tree("u1"));
}

TEST_F(StartupTest, BothLedsAreOffFirst) {
    scene.write("/proc/leds/kr_red", "1");
    scene.write("/proc/leds/lan", "1");
    start({"-v"});
    EXPECT_EQ(scene.file("/proc/leds/kr_red"), "0\n");
    EXPECT_EQ(scene.file("/proc/leds/lan"), "0\n");
}

TEST_F(StartupTest, GatewayWithoutLedsStartsAllTheSame) {
    scene.remove("/proc");
    EXPECT_EQ(start({"-v"}).status, 0);
    EXPECT_FALSE(scene.exists("/proc"));
}

TEST_F(StartupTest, ClosedStandardOutputDoesNotEndTheProcess) {
    const auto left_alone = [&](const Lines& words) {
        return in_child_without_reader([&] { return run_words(scene, words); });
    };
    EXPECT_EQ(left_alone({"-v"}).status, 0);
    EXPECT_EQ(left_alone({}).status, 0);
    EXPECT_EQ(left_alone({"WORD", "-r", "u1"}).status, 0);
    EXPECT_EQ(left_alone({"KM5", "-r", "u1"}).status, StillAtWork);
}

TEST_F(StartupTest, FullStandardOutputDoesNotEndTheProcess) {
    const ChildEnd end = in_child([&] {
        ::dup2(::open("/dev/full", O_WRONLY), STDOUT_FILENO);
        return run_words(scene, {"KM5", "-r", "u1"});
    });
    EXPECT_EQ(end.status, StillAtWork);
}

TEST_F(StartupTest, ProcessWithoutStandardOutputStarts) {
    const ChildEnd end = in_child([&] {
        ::close(STDOUT_FILENO);
        return run_words(scene, {"KM5", "-r", "u1"});
    });
    EXPECT_EQ(end.status, StillAtWork);
    EXPECT_TRUE(has_tree("u1"));
}

TEST_F(StartupTest, LineOnStandardOutputOrErrorIsThereAtOnce) {
    scene.gateway.set_service_address("http://127.0.0.1:1/");
    const ChildEnd end = in_child([&] {
        run_words(scene, {"KM5", "-r", "u1"});
        ::_exit(0);  // as a power cut or a kill would: nothing is flushed
        return 0;
    });
    EXPECT_TRUE(end.out.starts_with("Query is: {"));
    EXPECT_TRUE(end.err.starts_with("Error while sending data!\n"));
}

}  // namespace
