// What a keeper may say, and what he is told when it is something else.

#include "uplink/settings.h"

#include <random>

#include <gtest/gtest.h>

#include "uplink/topics.h"

using uplink::parse_settings;
using uplink::Settings;
using Problems = std::vector<std::string>;

namespace {

constexpr const char* Least = "[gateway]\nname = g1\n[nats]\nurl = nats://127.0.0.1\n";

Problems problems_of(const std::string& text) {
    return parse_settings("f", text).problems();
}

TEST(UplinkSettings, AreTakenAsTheyStand) {
    const Settings settings = parse_settings("f",
                                             "# of the house\n[gateway]\nname = cellar 7\n"
                                             "[send]\nvalues = no\nunchanged-minutes = 60\norder = newest\n"
                                             "lines-per-second = 20\n"
                                             "[mqtt]\nurl = mqtts://broker.example\nprefix = heat/a\nuser = u\n"
                                             "password-file = /p\nca = /ca\ncert = /c\nkey = /k\ndiscovery = yes\n"
                                             "[nats]\nurl = tls://one.example, tls://[::1]:4333\ncompress = yes\n");
    EXPECT_EQ(settings.problems(), Problems{});
    EXPECT_EQ(settings.gateway, "cellar 7");
    EXPECT_FALSE(settings.values);
    EXPECT_EQ(settings.unchanged_minutes, 60);
    EXPECT_TRUE(settings.newest_first);
    EXPECT_EQ(settings.lines_per_second, 20);
    EXPECT_EQ(settings.prefix, "heat/a");
    EXPECT_TRUE(settings.discovery);
    ASSERT_TRUE(settings.mqtt && settings.nats);
    EXPECT_EQ(settings.mqtt->servers.front().port, 8883);
    EXPECT_TRUE(settings.mqtt->servers.front().tls);
    EXPECT_EQ(settings.mqtt->key, "/k");
    ASSERT_EQ(settings.nats->servers.size(), 2U);
    EXPECT_TRUE(settings.nats->servers[0].tls);
    EXPECT_EQ(settings.nats->servers[1].host, "::1");
    EXPECT_EQ(settings.nats->servers[1].port, 4333);
    EXPECT_EQ(problems_of(Least), Problems{});
    EXPECT_TRUE(settings.compress);
    EXPECT_FALSE(parse_settings("f", Least).mqtt);
    EXPECT_FALSE(parse_settings("f", Least).compress);
}

TEST(UplinkSettings, TellEachMistakeWithItsLine) {
    const std::string least = Least;
    EXPECT_EQ(problems_of(""), (Problems{"f:1: the gateway has no name: [gateway] and below it name = ...",
                                         "f:1: there is neither [mqtt] nor [nats]: nothing is sent anywhere"}));
    EXPECT_EQ(problems_of(least + "[amqp]\nurl = x\n"),
              Problems{"f:5: \"[amqp]\" is none of [gateway], [send], [mqtt], [nats]"});
    EXPECT_EQ(problems_of(least + "colour = red\n"), Problems{"f:5: [nats] has no \"colour\""});
    EXPECT_EQ(problems_of(least + "user\n"), Problems{"f:5: it is not NAME = value"});
    EXPECT_EQ(problems_of(least + "user =\n"), Problems{"f:5: user says nothing"});
    EXPECT_EQ(problems_of(least + "url = nats://b\n"), Problems{"f:5: url stands a second time"});
    EXPECT_EQ(problems_of(least + "[nats]\n"), Problems{"f:5: [nats] stands a second time"});
    EXPECT_EQ(problems_of(least + "cert = /c\n"), (Problems{"f:5: cert goes with key, which is not there",
                                                            "f:5: cert goes with a url that begins with tls://"}));
    EXPECT_EQ(problems_of(least + "password-file = p\n").size(), 2U);
    EXPECT_EQ(
        problems_of(least + "[send]\nvalues = true\norder = first\nunchanged-minutes = 0\nlines-per-second = -1\n"),
        (Problems{"f:6: \"true\" is neither yes nor no", "f:7: \"first\" is neither newest nor oldest",
                  "f:8: \"0\" is no number from 1 to 10080", "f:9: \"-1\" is no number from 0 to 1000000"}));
    EXPECT_EQ(problems_of(least + "[mqtt]\nprefix = a/+\n"),
              (Problems{"f:5: [mqtt] has no url", "f:6: \"a/+\" is no beginning of a topic"}));
    EXPECT_EQ(problems_of("name = g\n" + least), Problems{"f:1: it stands below no section"});
    EXPECT_EQ(problems_of(least + std::string(1000, 'x') + " = 1\n"), Problems{"f:5: the line is too long"});
    EXPECT_EQ(problems_of(least + std::string("us\0er = 1\n", 10)), Problems{"f:5: there is a zero byte in it"});
    for (const char* const url :
         {"mqtt://a", "nats://a,tls://b", "nats://", "nats://a:0", "nats://a:70000", "nats://a b", "nats://u:p@a", "a",
          "nats://[::1", "nats://[::1]x", "nats://a,,nats://b"}) {
        EXPECT_EQ(problems_of(std::string("[gateway]\nname = g\n[nats]\nurl = ") + url + "\n").size(), 1U) << url;
    }
}

TEST(UplinkSettings, AnyBytesAreTakenOrTold) {
    std::mt19937 chance(1);
    const std::string parts[] = {"[mqtt]",
                                 "[nats]",
                                 "[send]",
                                 "url",
                                 "=",
                                 "\n",
                                 " ",
                                 ";",
                                 "#",
                                 "]",
                                 "[",
                                 "name",
                                 "tls://a",
                                 "\xFF",
                                 std::string(1, '\0'),
                                 "order",
                                 "newest",
                                 ",",
                                 std::string(300, 'x')};
    for (int i = 0; i < 3000; ++i) {
        std::string text;
        for (unsigned count = chance() % 30; count > 0; --count) text += parts[chance() % std::size(parts)];
        for (const std::string& problem : problems_of(text)) EXPECT_TRUE(problem.starts_with("f:"));
    }
}

TEST(UplinkTopics, HaveNoSignThatMeansSomething) {
    EXPECT_EQ(uplink::subject_token("aZ0-_"), "aZ0-_");
    EXPECT_EQ(uplink::subject_token("a.b*>\xC3\xA9 %"), "a%2Eb%2A%3E%C3%A9%20%25");
    EXPECT_EQ(uplink::topic_level("a.b c-é"), "a.b c-é");
    EXPECT_EQ(uplink::topic_level("+/#%\n\x7F"), "%2B%2F%23%25%0A%7F");
    EXPECT_EQ(uplink::topic_level("\xFFé"), "%FF%C3%A9");
    EXPECT_EQ(uplink::topic_level("\xC2\x85"), "%C2%85");
    EXPECT_EQ(uplink::record_subject("g.1", "m/2", 3, "hourly"), "heatmeter.g%2E1.m%2F2.3.record.hourly");
}

}  // namespace
