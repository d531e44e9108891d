#include "config_service.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

namespace {

/// All that comes back for a POST, up to the end of the connection.
std::string post(int port, const std::string& body) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const std::string request =
        "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\ncontent-length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    EXPECT_EQ(::send(fd, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    std::string answer;
    std::array<char, 4096> piece;
    for (ssize_t count; (count = ::recv(fd, piece.data(), piece.size(), 0)) > 0;) {
        answer.append(piece.data(), static_cast<std::size_t>(count));
    }
    ::close(fd);
    return answer;
}

std::string body_of(const std::string& answer) {
    return answer.substr(answer.find("\r\n\r\n") + 4);
}

constexpr char Ask[] = R"({"id":1000,"jsonrpc":"2.0","method":"get_config","params":["u"]})";

class ConfigServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        service.set_meter("u", {.serial = 77,
                                .port_name = "/dev/ttyS1",
                                .speed = 4800,
                                .parity = "E",
                                .manufacturer = "km-5",
                                .system_types = {"", "heat"}});
    }

    std::string ask() { return post(service.port(), Ask); }

    sim::ConfigService service;
};

TEST_F(ConfigServiceTest, TellsTheSettingsOfAMeter) {
    EXPECT_EQ(body_of(ask()),
              R"({"id":1000,"jsonrpc":"2.0","result":{"manufacturer":"km-5","port_params":{"name":"/dev/ttyS1",)"
              R"("parity":"E","speed":4800},"serial":77,"systems":{"system_2_type":"heat"}}})"
              "\n");
    EXPECT_EQ(service.requests(), std::vector<std::string>{Ask});
    EXPECT_TRUE(service.heads().at(0).starts_with("POST / HTTP/1.1\r\n"));
}

TEST_F(ConfigServiceTest, SendsThePortAliasAndTheUpperSpeedWhenTheyAreSet) {
    service.set_meter("u", {.port_alias = "serial485.4", .top_speed = 19200});
    const std::string body = body_of(ask());
    EXPECT_NE(body.find(R"("port_alias":"serial485.4")"), std::string::npos);
    EXPECT_NE(body.find(R"("speed":19200)"), std::string::npos);
}

TEST_F(ConfigServiceTest, AnswersAnUnknownMeterWithAnErrorAndNoResult) {
    const std::string body = body_of(post(service.port(), R"({"id":1,"method":"get_config","params":["x"]})"));
    EXPECT_NE(body.find("\"error\""), std::string::npos);
    EXPECT_EQ(body.find("\"result\""), std::string::npos);
}

TEST_F(ConfigServiceTest, SendsAResultOfAnyShape) {
    service.set_result("u", R"({"serial":"seventy-seven"})");
    EXPECT_NE(body_of(ask()).find(R"("result":{"serial":"seventy-seven"})"), std::string::npos);
}

TEST_F(ConfigServiceTest, RemembersCurrentValues) {
    post(service.port(), R"({"id":1,"method":"put_current_value","params":["T1",71.25,1,192]})");
    ASSERT_EQ(service.current_values().size(), 1U);
    EXPECT_EQ(service.current_values()[0].name, "T1");
    EXPECT_EQ(service.current_values()[0].value, 71.25);
    EXPECT_EQ(service.current_values()[0].b, 192);
}

TEST_F(ConfigServiceTest, SurvivesNonsense) {
    EXPECT_NE(ask().find("200"), std::string::npos);
    for (const char* nonsense : {"", "[", "[]", R"({"method":7,"params":{}})", R"({"method":"put_current_value"})"}) {
        EXPECT_NE(body_of(post(service.port(), nonsense)).find("\"error\""), std::string::npos) << nonsense;
    }
}

TEST_F(ConfigServiceTest, MisbehavesOnDemandUntilItIsToldToBehave) {
    const std::string right = ask();
    service.answer_with("<html>");
    EXPECT_EQ(body_of(ask()), "<html>");
    service.answer_with_status(500);
    EXPECT_TRUE(ask().starts_with("HTTP/1.1 500 "));
    service.redirect_to("http://127.0.0.1:1/");
    EXPECT_NE(ask().find("Location: http://127.0.0.1:1/\r\n"), std::string::npos);
    service.pad_answers(2'000'000);
    EXPECT_EQ(body_of(ask()).size(), 2'000'000U);
    service.hang_up();
    EXPECT_EQ(ask(), "");
    service.cut_answers();
    EXPECT_EQ(body_of(ask()), body_of(right).substr(0, body_of(right).size() / 2));
    service.behave();
    EXPECT_EQ(body_of(ask()), body_of(right));
}

TEST_F(ConfigServiceTest, AnswersLateWhenItIsToldTo) {
    service.delay_answers(0.01);
    EXPECT_TRUE(ask().starts_with("HTTP/1.1 200 "));
}

TEST_F(ConfigServiceTest, TwoCannotHaveOnePort) {
    EXPECT_THROW(sim::ConfigService(service.port()), std::system_error);
}

}  // namespace
