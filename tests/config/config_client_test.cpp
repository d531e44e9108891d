#include "config/config_client.h"

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/gateway.h"
#include "support/child.h"
#include "support/configured.h"
#include "support/fresh_process.h"
#include "support/plain_driver.h"
#include "support/scene.h"

namespace {

using Lines = std::vector<std::string>;

Lines lines_of(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

TEST(ConfigEndpoint, IsPort8082OfTheSameMachine) {
    EXPECT_EQ(gateway().service_address(), "http://127.0.0.1:8082/");
}

class ConfigClient : public ::testing::Test {
  protected:
    void SetUp() override { tell(); }

    void tell() { scene.service.set_meter("u", meter); }

    /// Reads the settings that the service has now; what is printed goes nowhere.
    void read_driver() {
        tell();
        stdout_of([&] { read_driver_config(driver); });
    }
    void read_port() {
        tell();
        stdout_of([&] { read_port_config("u", record); });
    }

    ChildEnd driver_child() {
        return in_child([&] {
            read_driver_config(driver);
            return 0;
        });
    }
    ChildEnd port_child() {
        return in_child([&] {
            read_port_config("u", record);
            return 0;
        });
    }

    Scene scene;
    sim::MeterSettings meter = [] {
        sim::MeterSettings settings;
        settings.serial = 77;
        settings.port_name = "/dev/ttyS1";
        settings.manufacturer = "km-5";
        settings.system_types = {"heat", "", "water"};
        return settings;
    }();
    PlainDriver driver{"u"};
    PortRecord record;
};

// ---- the call

TEST_F(ConfigClient, RequestIsOneLineOfJsonPostedToTheRootPath) {
    read_driver();
    ASSERT_EQ(scene.service.requests().size(), 1U);
    const std::string request = scene.service.requests()[0];
    const std::string id = request.substr(6, request.find(',') - 6);
    EXPECT_EQ(request, "{\"id\":" + id + ",\"jsonrpc\":\"2.0\",\"method\":\"get_config\",\"params\":[\"u\"]}\n");
    EXPECT_TRUE(scene.service.heads()[0].starts_with("POST / HTTP/1."));
}

TEST_F(ConfigClient, UuidIsATextOfJsonWhateverItHolds) {
    driver.set_uuid("a \"b\" %s \\ ..");
    stdout_of([&] { read_driver_config(driver); });
    EXPECT_NE(scene.service.requests().at(0).find(R"("params":["a \"b\" %s \\ .."])"), std::string::npos);
    const std::string long_uuid(300, 'u');
    stdout_of([&] { read_port_config(long_uuid, record); });
    EXPECT_NE(scene.service.requests().at(1).find("[\"" + long_uuid + "\"]"), std::string::npos);
    EXPECT_EQ(record.uuid, long_uuid);
}

Lines ids_of_a_fresh_process() {
    Scene scene;
    PlainDriver driver("u");
    PortRecord record;
    stdout_of([&] {
        read_driver_config(driver);
        read_driver_config(driver);
        read_port_config("u", record);
        read_port_config("u", record);
    });
    Lines ids;
    for (const std::string& request : scene.service.requests()) ids.push_back(request.substr(0, 11));
    return ids;
}

TEST(ConfigClientDeathTest, FirstTwoCallsOfEachReaderHaveTheIds1000And1001) {
    use_fresh_process();  // the counters live as long as the process
    const Lines expected{"{\"id\":1000,", "{\"id\":1001,", "{\"id\":1000,", "{\"id\":1001,"};
    EXPECT_EXIT(std::exit(ids_of_a_fresh_process() == expected ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

// ---- normal mode

TEST_F(ConfigClient, DriverTakesItsSettings) {
    read_driver();
    EXPECT_EQ(driver.settings().tc_sernum, 77U);
    EXPECT_EQ(driver.settings().port_name, "/dev/ttyS1");
    EXPECT_EQ(driver.settings().is_km56i, 0);
    EXPECT_EQ(driver.settings().system_type, (std::array<std::string, 6>{"heat", "", "water", "", "", ""}));
    EXPECT_EQ(driver.settings().subsystem_count, 2);
    EXPECT_TRUE(driver.settings().use_pause_flag);
    EXPECT_EQ(driver.settings().tc_baud, 3);
    EXPECT_EQ(driver.settings().tc_parity, 2);
}

TEST_F(ConfigClient, DriverReaderPrintsWhatItAsksAndTakes) {
    meter.parity = "E";
    tell();
    const Lines printed = lines_of(stdout_of([&] { read_driver_config(driver); }));
    ASSERT_EQ(printed.size(), 9U);
    EXPECT_EQ(printed[0] + "\n", "Query is: " + scene.service.requests().at(0));
    EXPECT_TRUE(printed[1].starts_with("Received: {\"id\":"));
    EXPECT_EQ(Lines(printed.begin() + 2, printed.end()),
              (Lines{"tc_sernum: 77", "dev: /dev/ttyS1", "manufacturer = km-5", "subsystem_count = 2", "tc_baud: 3",
                     "dev: /dev/ttyS1", "tc_parity: 1"}));
}

TEST_F(ConfigClient, LargestSerialNumberFits) {
    meter.serial = 4294967295U;
    read_driver();
    read_port();
    EXPECT_EQ(driver.settings().tc_sernum, 4294967295U);
    EXPECT_EQ(record.serial, 4294967295U);
}

TEST_F(ConfigClient, SpeedCodesOfTheDriver) {
    const std::vector<std::pair<unsigned, int>> table{{1200, 0},  {2400, 1},  {4800, 2},  {9600, 3},
                                                      {19200, 4}, {38400, 5}, {57600, 6}, {115200, 7},
                                                      {600, 1},   {0, 1},     {9601, 1},  {4294967295U, 1}};
    for (const auto& [speed, code] : table) {
        meter.speed = speed;
        read_driver();
        EXPECT_EQ(driver.settings().tc_baud, code) << speed;
    }
}

TEST_F(ConfigClient, DriverDoesNotLookAtTheUpperSpeed) {
    meter.top_speed = 19200;
    read_driver();
    EXPECT_EQ(driver.settings().tc_baud, 3);
}

TEST_F(ConfigClient, ParityIsEvenForACapitalEAlone) {
    for (const auto& [parity, code] :
         {std::pair{"E", 1}, {"e", 2}, {"N", 2}, {"O", 2}, {"", 2}, {"EVEN", 2}, {" E", 2}}) {
        meter.parity = parity;
        read_driver();
        read_port();
        EXPECT_EQ(driver.settings().tc_parity, code) << parity;
        EXPECT_EQ(record.parity, code) << parity;
    }
}

TEST_F(ConfigClient, MeterIsAKm56iByItsManufacturerTextAlone) {
    for (const auto& [text, flag] : {std::pair{"km-5-6i", 1}, {"KM-5-6I", 0}, {"km-5-6i ", 0}, {"", 0}}) {
        meter.manufacturer = text;
        read_driver();
        EXPECT_EQ(driver.settings().is_km56i, flag) << text;
    }
}

TEST_F(ConfigClient, FivePortsAreNotHeldBackByThePauseFlag) {
    for (const char* alias : {"serial232.0", "serial485.4", "serial232.D", "serial485.1", "serial485.2"}) {
        meter.port_alias = alias;
        read_driver();
        EXPECT_FALSE(driver.settings().use_pause_flag) << alias;
    }
}

TEST_F(ConfigClient, AllOtherPortsAreHeldBackByThePauseFlag) {
    for (const char* alias :
         {"", "serial485.3", "serial485.0", "serial232.1", "Serial485.4", "serial485.44", "serial"}) {
        set_pause_flag(driver, false);
        meter.port_alias = alias;
        read_driver();
        EXPECT_TRUE(driver.settings().use_pause_flag) << alias;
    }
}

TEST_F(ConfigClient, SecondSystemAloneIsOneSubsystemInTheSecondPlace) {
    meter.system_types = {"", "heat"};
    read_driver();
    read_port();
    for (const auto& types : {driver.settings().system_type, record.system_type}) {
        EXPECT_EQ(types[0], "");
        EXPECT_EQ(types[1], "heat");
    }
    EXPECT_EQ(driver.settings().subsystem_count, 1);
    EXPECT_EQ(record.subsystem_count, 1);
}

TEST_F(ConfigClient, AllSixSystemsAreTaken) {
    meter.system_types = {"1", "2", "3", "4", "5", "6"};
    read_driver();
    EXPECT_EQ(driver.settings().system_type, meter.system_types);
    EXPECT_EQ(driver.settings().subsystem_count, 6);
}

TEST_F(ConfigClient, SecondCallOnOneDriverCountsOnAndEmptiesWhatIsEmptyNow) {
    read_driver();
    meter.system_types = {"", "gas"};
    read_driver();
    EXPECT_EQ(driver.settings().subsystem_count, 3);
    EXPECT_EQ(driver.settings().system_type, (std::array<std::string, 6>{"", "gas", "", "", "", ""}));
}

TEST_F(ConfigClient, DeviceNameOf127BytesIsWholeAndALongerOneIsCut) {
    meter.port_name = std::string(127, 'd');
    read_driver();
    EXPECT_EQ(driver.settings().port_name, std::string(127, 'd'));
    meter.port_name = std::string(5000, 'd');
    read_driver();
    EXPECT_EQ(driver.settings().port_name, std::string(127, 'd'));
}

// ---- single-bus mode

TEST_F(ConfigClient, PortRecordTakesItsSettings) {
    read_port();
    EXPECT_EQ(record.uuid, "u");
    EXPECT_EQ(record.serial, 77U);
    EXPECT_EQ(record.manufacturer, "km-5");
    EXPECT_EQ(record.port_name, "/dev/ttyS1");
    EXPECT_EQ(record.subsystem_count, 2);
    EXPECT_EQ(record.parity, 2);
    EXPECT_EQ(record.speed, 3);
    EXPECT_EQ(record.system_type, (std::array<std::string, 6>{"heat", "", "water", "", "", ""}));
}

TEST_F(ConfigClient, PortReaderPrintsWhatItTakesButNotTheCall) {
    const Lines printed = lines_of(stdout_of([&] { read_port_config("u", record); }));
    EXPECT_EQ(printed, (Lines{"serial: 77", "port_name: /dev/ttyS1", "manufacturer = km-5", "subsystem_count = 2",
                              "speed: 3", "dev: /dev/ttyS1", "tc_parity: 2"}));
}

TEST_F(ConfigClient, SpeedCodesOfThePortRecord) {
    const std::vector<std::pair<unsigned, int>> table{{1200, 1},  {2400, 1},  {4800, 2},   {9600, 3}, {19200, 4},
                                                      {38400, 5}, {57600, 6}, {115200, 7}, {600, 1},  {0, 1}};
    for (const auto& [speed, code] : table) {
        meter.speed = speed;
        read_port();
        EXPECT_EQ(record.speed, code) << speed;
    }
}

TEST_F(ConfigClient, PortRecordLooksAtTheUpperSpeedFirst) {
    meter.speed = 9600;
    meter.top_speed = 19200;
    read_port();
    EXPECT_EQ(record.speed, 4);
    meter.top_speed = 0;
    read_port();
    EXPECT_EQ(record.speed, 3);
    meter.top_speed = 600;
    read_port();
    EXPECT_EQ(record.speed, 1);
}

TEST_F(ConfigClient, SecondCallForOneRecordCountsAnew) {
    read_port();
    read_port();
    EXPECT_EQ(record.subsystem_count, 2);
}

TEST_F(ConfigClient, DeviceNameOfAPortRecordIsNotCut) {
    meter.port_name = std::string(300, 'd');
    read_port();
    EXPECT_EQ(record.port_name, std::string(300, 'd'));
}

// ---- answers that are not as they should be

TEST_F(ConfigClient, CommentsInAnAnswerAreAllowed) {
    scene.service.answer_with("/* settings */ {\"result\": // of u\n {\"serial\": 5}} // end\n");
    stdout_of([&] { read_driver_config(driver); });
    EXPECT_EQ(driver.settings().tc_sernum, 5U);
}

TEST_F(ConfigClient, AnswerWithoutAResultIsSerialZeroAnEmptyDeviceAndNoSubsystems) {
    driver.set_uuid("unknown");
    const std::string err = stderr_of([&] {
        stdout_of([&] {
            read_driver_config(driver);
            read_port_config("unknown", record);
        });
    });
    EXPECT_EQ(err, "");
    EXPECT_EQ(driver.settings().tc_sernum, 0U);
    EXPECT_EQ(driver.settings().port_name, "");
    EXPECT_EQ(driver.settings().subsystem_count, 0);
    EXPECT_EQ(driver.settings().tc_baud, 1);
    EXPECT_EQ(driver.settings().tc_parity, 2);
    EXPECT_TRUE(driver.settings().use_pause_flag);
    EXPECT_EQ(record.uuid, "unknown");
    EXPECT_EQ(record.speed, 1);
    EXPECT_EQ(record.parity, 2);
}

TEST_F(ConfigClient, ErrorBesideAResultIsNotLookedAt) {
    scene.service.answer_with(R"({"error":{"code":-1},"id":"x","result":{"serial":5}})");
    stdout_of([&] { read_driver_config(driver); });
    EXPECT_EQ(driver.settings().tc_sernum, 5U);
}

TEST_F(ConfigClient, NumberInThePlaceOfATextIsTakenAsItsText) {
    scene.service.set_result("u", R"({"port_params":{"name":5},"manufacturer":null})");
    stdout_of([&] { read_driver_config(driver); });
    EXPECT_EQ(driver.settings().port_name, "5");
}

TEST_F(ConfigClient, MemberOfTheWrongTypeEndsTheProcess) {
    for (const char* result :
         {R"({"serial":"77"})", R"({"serial":-1})", R"({"serial":4294967296})", R"({"manufacturer":[]})",
          R"({"port_params":"x"})", R"({"port_params":{"speed":"9600"}})", R"({"systems":7})", R"([1])", R"("text")"}) {
        scene.service.set_result("u", result);
        EXPECT_EQ(driver_child().signal, SIGABRT) << result;
        EXPECT_EQ(port_child().signal, SIGABRT) << result;
    }
}

TEST_F(ConfigClient, LostRequestLeavesTheDriverAndTheRecordAsTheyWere) {
    read_driver();
    read_port();
    scene.gateway.set_service_address("http://127.0.0.1:1/");
    const std::string err = stderr_of([&] {
        const std::string out = stdout_of([&] { read_driver_config(driver); });
        EXPECT_TRUE(out.starts_with("Query is: {"));
        EXPECT_EQ(lines_of(out).size(), 1U);
        EXPECT_EQ(stdout_of([&] { read_port_config("other", record); }), "");
    });
    EXPECT_EQ(err, "Error while sending data!\nError while sending data!\n");
    EXPECT_EQ(driver.settings().tc_sernum, 77U);
    EXPECT_EQ(driver.settings().port_name, "/dev/ttyS1");
    EXPECT_EQ(driver.settings().subsystem_count, 2);
    EXPECT_EQ(record.uuid, "u");
    EXPECT_EQ(record.serial, 77U);
}

TEST_F(ConfigClient, LostAnswerEndsTheProcessWithStatusOne) {
    const auto expect_end = [&](const std::string& how) {
        for (const ChildEnd& end : {driver_child(), port_child()}) {
            EXPECT_EQ(end.status, 1) << how;
            EXPECT_EQ(end.err, "Error while receiving data!\n") << how;
        }
    };
    scene.service.hang_up();
    expect_end("hung up");
    scene.service.cut_answers();
    expect_end("cut");
    scene.service.pad_answers((1 << 20) + 1);
    expect_end("too long");
}

TEST_F(ConfigClient, AnswerThatIsNoJsonOrNestedTooDeepEndsTheProcessWithStatusOne) {
    const std::string deep = R"({"result":)" + std::string(100'000, '[');
    for (const std::string& body : Lines{"<html>", "", "{\"result\":", "result", deep}) {
        scene.service.answer_with(body);
        for (const ChildEnd& end : {driver_child(), port_child()}) {
            EXPECT_EQ(end.status, 1) << body.substr(0, 20) << ", signal " << end.signal;
            EXPECT_EQ(end.err, "Parse error!\nError while receiving data!\n") << body.substr(0, 20);
        }
    }
}

TEST_F(ConfigClient, DriverReaderPrintsAnAnswerThatIsNoJson) {
    scene.service.answer_with("<html>");
    EXPECT_NE(driver_child().out.find("Received: <html>"), std::string::npos);
    EXPECT_EQ(port_child().out, "");
}

}  // namespace
