#include "config/http_client.h"

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config_service.h"
#include "support/child.h"
#include "support/raw_peer.h"

namespace {

using Json::Rpc::HttpClient;

/// A server that says the same bytes to every request, and closes the connection.
class FixedServer {
  public:
    explicit FixedServer(std::string bytes)
        : bytes_(std::move(bytes)), listener_([this](const auto& request) {
              const std::lock_guard lock(mutex_);
              bodies_.push_back(request.body);
              return bytes_;
          }) {}

    std::string address() const { return "http://127.0.0.1:" + std::to_string(listener_.port()) + "/"; }
    std::vector<std::string> bodies() const {
        const std::lock_guard lock(mutex_);
        return bodies_;
    }

  private:
    mutable std::mutex mutex_;
    std::string bytes_;
    std::vector<std::string> bodies_;
    RawPeer listener_;  // last: its thread uses the rest
};

/// One call: the answer, or "no request" or "no answer".
std::string call(const std::string& address, const std::string& text = "ask") {
    HttpClient client(address);
    std::string answer;
    if (client.Send(text) == -1) return "no request";
    if (client.Recv(answer) == -1) return "no answer";
    return answer;
}

std::string answer_to(const std::string& bytes_of_the_server) {
    return call(FixedServer(bytes_of_the_server).address());
}

const std::string Hello = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello";

TEST(HttpClientTest, DeliversTheTextAsTheBodyOfAPost) {
    sim::ConfigService service;
    call(service.address(), "{\"a\":1}\n");
    ASSERT_EQ(service.requests(), std::vector<std::string>{"{\"a\":1}\n"});
    EXPECT_TRUE(service.heads()[0].starts_with("POST / HTTP/1."));
}

TEST(HttpClientTest, DeliversAnyBytes) {
    const FixedServer server(Hello);
    const std::string every_kind("%s\r\n\0\xFF&=", 9);
    EXPECT_EQ(call(server.address(), every_kind), "hello");
    EXPECT_EQ(call(server.address(), ""), "hello");
    EXPECT_EQ(call(server.address(), std::string(100'000, 'x')), "hello");
    EXPECT_EQ(server.bodies(), (std::vector<std::string>{every_kind, "", std::string(100'000, 'x')}));
}

TEST(HttpClientTest, MakingAClientDoesNotConnect) {
    const FixedServer server(Hello);
    { const HttpClient client(server.address()); }
    const HttpClient nowhere("http://127.0.0.1:1/");
    EXPECT_EQ(server.bodies(), std::vector<std::string>{});
}

TEST(HttpClientTest, StoresTheAnswerInThePlaceOfAnEarlierText) {
    const FixedServer server(Hello);
    HttpClient client(server.address());
    std::string answer = "an earlier and longer text";
    EXPECT_NE(client.Send("ask"), -1);
    EXPECT_NE(client.Recv(answer), -1);
    EXPECT_EQ(answer, "hello");
}

TEST(HttpClientTest, AnswerIsThatToTheLastRequest) {
    const RawPeer echo([](const RawRequest& request) {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(request.body.size()) + "\r\n\r\n" + request.body;
    });
    HttpClient client("http://127.0.0.1:" + std::to_string(echo.port()) + "/");
    std::string answer;
    client.Send("first");
    client.Send("second");
    client.Recv(answer);
    EXPECT_EQ(answer, "second");
}

TEST(HttpClientTest, AnswerWithoutARequestIsAFailedRecv) {
    HttpClient client("http://127.0.0.1:1/");
    std::string answer;
    EXPECT_EQ(client.Recv(answer), -1);
}

// ---- no service

TEST(HttpClientTest, RefusedConnectionIsAFailedSend) {
    EXPECT_EQ(call("http://127.0.0.1:1/"), "no request");
}

TEST(HttpClientTest, AddressThatIsNoneIsAFailedSend) {
    for (const char* address : {"", "http://", "http:// /", "http://127.0.0.1:99999/", "://"}) {
        EXPECT_EQ(call(address), "no request") << address;
    }
}

TEST(HttpClientTest, SpeaksNothingButHttp) {
    const FixedServer server(Hello);
    const std::string rest = server.address().substr(4);  // "://..."
    for (const std::string& address :
         {"https" + rest, "ftp" + rest, "gopher" + rest, "telnet" + rest, std::string("file:///etc/hostname")}) {
        EXPECT_EQ(call(address), "no request") << address;
    }
    EXPECT_EQ(server.bodies(), std::vector<std::string>{});
}

TEST(HttpClientTest, ConnectionClosedWithoutAnAnswerIsAFailedRecv) {
    EXPECT_EQ(answer_to(""), "no answer");
}

// ---- answers of every kind

TEST(HttpClientTest, AnswerMayBeEmpty) {
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"), "");
}

TEST(HttpClientTest, AnswerMayHoldAnyBytes) {
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n" + std::string("a\0\xFF\r\n", 5)),
              std::string("a\0\xFF\r\n", 5));
}

TEST(HttpClientTest, AnswerWithoutALengthEndsWithTheConnection) {
    EXPECT_EQ(answer_to("HTTP/1.0 200 OK\r\n\r\nhello"), "hello");
}

TEST(HttpClientTest, AnswerInChunksIsPutTogether) {
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nhel\r\n2\r\nlo\r\n0\r\n\r\n"),
              "hello");
}

TEST(HttpClientTest, PreliminaryAnswerAndTrailerAreNoPartOfTheAnswer) {
    EXPECT_EQ(answer_to("HTTP/1.1 100 Continue\r\n\r\n" + Hello), "hello");
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\nA: b\r\n\r\n"),
              "hello");
    EXPECT_EQ(answer_to("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200"), "no answer");
}

TEST(HttpClientTest, AnswerUnderAnyStatusIsAnAnswer) {
    EXPECT_EQ(answer_to("HTTP/1.1 500 No\r\nContent-Length: 5\r\n\r\nhello"), "hello");
    EXPECT_EQ(answer_to("HTTP/1.1 404 No\r\nContent-Length: 5\r\n\r\nhello"), "hello");
}

TEST(HttpClientTest, AnswerThatEndsEarlyIsAFailedRecv) {
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nhello"), "no answer");
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nhel\r\n5\r\nlo"), "no answer");
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nContent-Le"), "no answer");
}

TEST(HttpClientTest, AnswerThatIsNoHttpIsAFailedRecv) {
    EXPECT_EQ(answer_to("hello"), "no answer");
    EXPECT_EQ(answer_to("SSH-2.0-x\r\n"), "no answer");
}

TEST(HttpClientTest, AnswerOfOneMebibyteIsTaken) {
    const std::string body(1 << 20, 'x');
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nContent-Length: 1048576\r\n\r\n" + body), body);
    EXPECT_EQ(answer_to("HTTP/1.0 200 OK\r\n\r\n" + body), body);
}

TEST(HttpClientTest, LongerAnswerIsAFailedRecv) {
    const std::string body((1 << 20) + 1, 'x');
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nContent-Length: 1048577\r\n\r\n" + body), "no answer");
    EXPECT_EQ(answer_to("HTTP/1.0 200 OK\r\n\r\n" + body), "no answer");
    EXPECT_EQ(answer_to("HTTP/1.1 200 OK\r\nContent-Length: 99999999999999\r\n\r\nhello"), "no answer");
}

TEST(HttpClientTest, RedirectionIsNotFollowed) {
    sim::ConfigService service;
    const FixedServer elsewhere(Hello);
    service.redirect_to(elsewhere.address());
    EXPECT_NE(call(service.address()), "hello");
    EXPECT_EQ(service.requests().size(), 1U);
    EXPECT_EQ(elsewhere.bodies(), std::vector<std::string>{});
}

// ---- the environment

class HttpClientWithProxies : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char* name : Names) ::setenv(name, proxy.address().c_str(), 1);
    }
    void TearDown() override {
        for (const char* name : Names) ::unsetenv(name);
    }

    static constexpr const char* Names[] = {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"};
    FixedServer proxy{"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nproxy"};
};

TEST_F(HttpClientWithProxies, AsksTheServiceItself) {
    const FixedServer server(Hello);
    EXPECT_EQ(call(server.address()), "hello");
    EXPECT_EQ(proxy.bodies(), std::vector<std::string>{});
}

TEST(HttpClientTest, CallLeavesNoDescriptorBehind) {
    const FixedServer server(Hello);
    const auto open_descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const ChildEnd end = in_child([&] {  // where the server's own descriptors do not come and go
        call(server.address());
        const auto before = open_descriptors();
        for (int i = 0; i < 20; ++i) call(server.address());
        for (int i = 0; i < 20; ++i) call("http://127.0.0.1:1/");
        return open_descriptors() == before ? 0 : 1;
    });
    EXPECT_EQ(end.status, 0);
}

}  // namespace
