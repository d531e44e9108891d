#include "contract/check.h"

#include <gtest/gtest.h>

using contract::Findings;
using contract::Level;
using contract::ServiceAnswer;
using contract::ServiceState;

namespace {

/// "topic:level" of all that is not well.
std::vector<std::string> troubles(const Findings& found) {
    std::vector<std::string> words;
    for (const auto& finding : found) {
        if (finding.level != Level::Ok) {
            words.push_back(finding.word + (finding.level == Level::Critical ? ":error" : ":warning"));
            EXPECT_FALSE(finding.help.empty()) << finding.text;
        }
    }
    return words;
}
using Troubles = std::vector<std::string>;

Troubles form(const Words& words) {
    Findings found;
    check_form(words, found);
    return troubles(found);
}

ServiceAnswer answer_of(std::uint32_t serial, std::uint32_t speed, const std::string& parity,
                        const std::string& maker) {
    ServiceAnswer answer;
    answer.state = ServiceState::Answers;
    answer.serial = serial;
    answer.port = "/dev/ttyS1";
    answer.speed = speed;
    answer.parity = parity;
    answer.manufacturer = maker;
    answer.systems = {"heating"};
    return answer;
}

Troubles settings(const std::string& name, const ServiceAnswer& answer, bool single_bus = false) {
    Findings found;
    check_settings("m1", name, single_bus, answer, found);
    return troubles(found);
}

TEST(Check, TheWordsOfAProcess) {
    EXPECT_EQ(form({"KM5", "-r", "6f9619ff-8b86-d011-b42d-00c04fc964ff"}), Troubles{});
    EXPECT_EQ(form({"any", "-j", "m1", "m2"}), Troubles{});
    EXPECT_EQ(form({"km5", "-r", "m1"}), Troubles{"words:error"});
    EXPECT_EQ(form({"KM5", "-r"}), Troubles{"words:error"});
    EXPECT_EQ(form({"KM5", "m1"}), Troubles{"words:error"});
    EXPECT_EQ(form({"SA94", "-r", "m1", "m2"}), Troubles{"words:warning"});
    EXPECT_EQ(form({"KM5", "-r", "m1", "m1"}), Troubles{"words:error"});
    for (const char* uuid : {"a b", "a/b", "..", "", "a\"b", "a'b", "a\nb", "-a", "a$b"}) {
        EXPECT_EQ(form({"KM5", "-r", uuid}), Troubles{"uuid:error"}) << uuid;
    }
    EXPECT_EQ(form({"KM5", "-r", std::string(81, 'a')}), Troubles{"uuid:error"});
    EXPECT_EQ(form({"KM5", "-r", "счётчик"}), Troubles{"uuid:warning"});
}

TEST(Check, WhatTheServiceSays) {
    EXPECT_EQ(settings("KM5", answer_of(12345678, 9600, "N", "km-5-2")), Troubles{});
    EXPECT_EQ(settings("VIST", answer_of(7, 9600, "E", "vis-t")), Troubles{});
    EXPECT_EQ(settings("SA94", answer_of(74565, 2400, "E", "sa-94-2m")), Troubles{});
    for (const auto state : {ServiceState::Off, ServiceState::Silent, ServiceState::Nonsense}) {
        ServiceAnswer answer;
        answer.state = state;
        EXPECT_EQ(settings("KM5", answer), Troubles{"service:error"});
    }
    ServiceAnswer unknown;
    unknown.state = ServiceState::Answers;
    EXPECT_EQ(settings("KM5", unknown), Troubles{"service:error"});
    ServiceAnswer without_systems = answer_of(12345678, 9600, "N", "km-5-2");
    without_systems.systems.clear();
    EXPECT_EQ(settings("KM5", without_systems), Troubles{"systems:error"});
}

TEST(Check, Manufacturers) {
    EXPECT_EQ(settings("KM5", answer_of(7, 9600, "N", "acme")), Troubles{"manufacturer:warning"});
    EXPECT_EQ(settings("x", answer_of(7, 9600, "N", "acme"), true), Troubles{"manufacturer:error"});
    EXPECT_EQ(settings("KM5", answer_of(7, 9600, "N", "vis-t")), Troubles{"manufacturer:error"});
    EXPECT_EQ(settings("KM5", answer_of(7, 9600, "N", "km-5-6i")), Troubles{"manufacturer:warning"});
    EXPECT_EQ(settings("KM56i", answer_of(7, 9600, "N", "km-5-6i")), Troubles{});
}

TEST(Check, SerialNumbers) {
    EXPECT_EQ(settings("KM5", answer_of(0, 9600, "N", "km-5-2")), Troubles{"serial:error"});
    EXPECT_EQ(settings("KM5", answer_of(123456789, 9600, "N", "km-5-2")), Troubles{"serial:warning"});
    EXPECT_EQ(settings("VISTmodbus", answer_of(248, 9600, "N", "vis-t-modbus")), Troubles{"serial:error"});
    EXPECT_EQ(settings("VISTmodbus", answer_of(261, 9600, "N", "vis-t-modbus")), Troubles{"serial:warning"});
    EXPECT_EQ(settings("SA94", answer_of(0x100000, 9600, "E", "sa-94-2m")), Troubles{"serial:error"});
    EXPECT_EQ(settings("SA94", answer_of(0x100001, 9600, "E", "sa-94-2m")), Troubles{"serial:warning"});
}

TEST(Check, SpeedsAndParities) {
    EXPECT_EQ(settings("VIST", answer_of(7, 115200, "N", "vis-t")), Troubles{"speed:warning"});
    EXPECT_EQ(settings("KM5", answer_of(7, 115200, "E", "km-5-2")), Troubles{"parity:warning"});
    EXPECT_EQ(settings("SA94", answer_of(7, 9600, "N", "sa-94-2m")), Troubles{"parity:warning"});
    EXPECT_EQ(settings("VIST", answer_of(7, 9600, "e", "vis-t")), Troubles{"parity:warning"});
    EXPECT_EQ(settings("SA94", answer_of(7, 9600, "O", "sa-94-2m")), Troubles{});
    // The table of the documents.
    struct Row {
        unsigned told, km5, others, single_bus;
    };
    for (const Row& row : {Row{1200, 9600, 4800, 2400}, Row{2400, 2400, 2400, 2400}, Row{4800, 4800, 4800, 4800},
                           Row{9600, 9600, 9600, 9600}, Row{19200, 19200, 19200, 19200}, Row{38400, 38400, 4800, 38400},
                           Row{57600, 57600, 4800, 57600}, Row{115200, 115200, 4800, 115200},
                           Row{300, 2400, 2400, 2400}, Row{0, 2400, 2400, 2400}}) {
        EXPECT_EQ(contract::speed_on_port(contract::KM5, false, row.told), row.km5) << row.told;
        EXPECT_EQ(contract::speed_on_port(contract::VIST, false, row.told), row.others) << row.told;
        EXPECT_EQ(contract::speed_on_port(contract::SA94, false, row.told), row.others) << row.told;
        EXPECT_EQ(contract::speed_on_port(contract::KM5, true, row.told), row.single_bus) << row.told;
    }
}

TEST(Check, AnswersOfTheService) {
    const auto state = [](const char* text) { return contract::parse_service_answer(text).state; };
    EXPECT_EQ(state("Good morning!"), ServiceState::Nonsense);
    EXPECT_EQ(state(""), ServiceState::Nonsense);
    EXPECT_EQ(state("{}"), ServiceState::Answers);
    EXPECT_EQ(state("{\"result\":null}"), ServiceState::Answers);
    EXPECT_EQ(state("{\"result\":7}"), ServiceState::Nonsense);
    EXPECT_EQ(state("{\"result\":{\"serial\":\"7\"}}"), ServiceState::Nonsense);
    EXPECT_EQ(state("{\"result\":{\"serial\":-7}}"), ServiceState::Nonsense);
    EXPECT_EQ(state("{\"result\":{\"port_params\":[]}}"), ServiceState::Nonsense);
    EXPECT_EQ(state("{\"result\":{\"manufacturer\":{}}}"), ServiceState::Nonsense);
    EXPECT_EQ(state("[]"), ServiceState::Nonsense);
    EXPECT_EQ(state(std::string(100000, '[').c_str()), ServiceState::Nonsense);
    EXPECT_EQ(contract::parse_service_answer("{\"result\":{\"serial\":\"7\"}}").fault,
              "its key serial has a wrong type");
    const ServiceAnswer answer = contract::parse_service_answer(
        R"({"result":{"serial":7,"port_params":{"name":"/dev/ttyS1","speed":9600,"parity":"E"},"manufacturer":"vis-t",
            "port_alias":"serial485.1","systems":{"system_2_type":"gvs"}}})");
    EXPECT_TRUE(answer.knows());
    EXPECT_EQ(answer.serial, 7u);
    EXPECT_EQ(answer.port, "/dev/ttyS1");
    EXPECT_EQ(answer.speed, 9600u);
    EXPECT_EQ(answer.alias, "serial485.1");
    EXPECT_EQ(answer.systems, std::vector<std::string>{"gvs"});
    EXPECT_FALSE(contract::parse_service_answer("{}").knows());
}

}  // namespace
