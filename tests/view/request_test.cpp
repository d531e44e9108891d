// Paths and words as browsers, programs and attackers write them.

#include "view/request.h"

#include <gtest/gtest.h>

#include "view/address.h"
#include "view/gate.h"

using view::parse_target;

namespace {

using Texts = std::vector<std::string>;

TEST(Target, IsAPathAndWords) {
    const auto request = parse_target("/api/meters/m1/1/archive?names=A1,A12&from=-7d&good");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->path, (Texts{"api", "meters", "m1", "1", "archive"}));
    EXPECT_EQ(request->word("names"), "A1,A12");
    EXPECT_EQ(request->word("from"), "-7d");
    EXPECT_EQ(request->word("to", "now"), "now");
    EXPECT_TRUE(request->flag("good"));
    EXPECT_FALSE(request->flag("names"));
    EXPECT_FALSE(request->flag("quality"));
}

TEST(Target, OfTheRootHasNoParts) {
    ASSERT_TRUE(parse_target("/"));
    EXPECT_TRUE(parse_target("/")->path.empty());
    EXPECT_TRUE(parse_target("/?a=1&&b=2")->words.contains("b"));
}

TEST(Target, IsDecodedOnce) {
    EXPECT_EQ(parse_target("/a%20b/%C3%A4")->path, (Texts{"a b", "\xC3\xA4"}));
    EXPECT_EQ(parse_target("/a+b?c=d+e%2B")->path, Texts{"a+b"});
    EXPECT_EQ(parse_target("/a+b?c=d+e%2B")->word("c"), "d e+");
    EXPECT_EQ(parse_target("/%252e%252e/%25")->path, (Texts{"%2e%2e", "%"}));
}

TEST(Target, ThatLeadsElsewhereIsNone) {
    for (const char* const text : {"",
                                   "api",
                                   "http://other/",
                                   "/..",
                                   "/../etc/passwd",
                                   "/a/../b",
                                   "/.",
                                   "/%2e%2e/x",
                                   "/%2E%2e",
                                   "/a%2fb",
                                   "/a%2Fb",
                                   "/a//b",
                                   "//",
                                   "//other/x",
                                   "/a%00b",
                                   "/?a=%00",
                                   "/%",
                                   "/%1",
                                   "/%zz",
                                   "/a%1g",
                                   "/?a=%",
                                   "/?a=1&a=2",
                                   "*"}) {
        EXPECT_FALSE(parse_target(text)) << text;
    }
    EXPECT_TRUE(parse_target("/" + std::string(view::LongestTarget - 1, 'x')));
    EXPECT_FALSE(parse_target("/" + std::string(view::LongestTarget, 'x')));
}

TEST(Address, IsANumberAndAPort) {
    EXPECT_TRUE(view::parse_address("127.0.0.1:8083")->is_loopback);
    EXPECT_TRUE(view::parse_address("127.8.9.1:0")->is_loopback);
    EXPECT_TRUE(view::parse_address("localhost:8083")->is_loopback);
    EXPECT_TRUE(view::parse_address("[::1]:8083")->is_loopback);
    for (const char* const open : {"0.0.0.0:8083", "192.168.0.7:80", "[::]:8083", "[fe80::1]:1", "128.0.0.1:1"}) {
        EXPECT_FALSE(view::parse_address(open)->is_loopback) << open;
    }
    for (const char* const none : {"", "8083", "127.0.0.1", "127.0.0.1:", ":8083", "127.0.0.1:65536", "127.0.0.1:1x",
                                   "gateway:8083", "::1:8083", "[::1:8083", "[x]:1", "127.0.0.1:-1"}) {
        EXPECT_FALSE(view::parse_address(none)) << none;
    }
}

TEST(Host, OfARequestToThisMachineIsAnAddressOrLocalhost) {
    for (const char* const own : {"", "127.0.0.1:8083", "127.0.0.1", "[::1]:8083", "localhost", "localhost:8083"}) {
        EXPECT_TRUE(view::is_own_host(own)) << own;
    }
    for (const char* const other : {"evil.example", "evil.example:8083", "localhost.evil.example", "127.0.0.1.x"}) {
        EXPECT_FALSE(view::is_own_host(other)) << other;
    }
}

}  // namespace
