// What a message may be, and what becomes of one that is none.

#include "store/message.h"

#include <cmath>
#include <limits>
#include <random>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "contract/gzip.h"

namespace {

using store::Decoder;
using store::Message;

constexpr const char* Subject = "heatmeter.g1.m1.1.record.hourly";

std::string body_of(const std::string& lines) {
    return R"({"gateway":"g1","meter":"m1","system":1,"kind":"hourly","lines":[)" + lines + "]}";
}

std::string fault_of(const std::string& body, const std::string& subject = Subject) {
    Decoder decoder;
    Message message;
    return decoder.decode(subject, body, message);
}

Message decoded(const std::string& body, const std::string& subject = Subject) {
    Decoder decoder;
    Message message;
    EXPECT_EQ(decoder.decode(subject, body, message), "");
    return message;
}

TEST(StoreMessage, HoldsItsLinesAsTheyStandInTheFile) {
    const Message message = decoded(body_of(R"(["A1",1709377200,192,12.345000],["A12",1709380800,0,-0.000001])"));
    EXPECT_EQ(message.gateway, "g1");
    EXPECT_EQ(message.meter, "m1");
    EXPECT_EQ(message.system, 1);
    EXPECT_EQ(message.kind, "hourly");
    ASSERT_EQ(message.lines.size(), 2u);
    EXPECT_EQ(message.lines[0].name, "A1");
    EXPECT_EQ(message.lines[0].time, 1709377200);
    EXPECT_EQ(message.lines[0].quality, 192);
    EXPECT_EQ(message.lines[0].value, 12.345);
    EXPECT_EQ(message.lines[1].value, -0.000001);
    EXPECT_EQ(message.lines[1].place, 1);
    EXPECT_TRUE(message.bad.empty());
}

TEST(StoreMessage, WithoutLinesIsOne) {
    EXPECT_TRUE(decoded(body_of("")).lines.empty());
}

TEST(StoreMessage, KnowsWhatIsNoFiniteNumber) {
    const Message message = decoded(body_of(R"(["A1",1,192,"inf"],["A1",2,192,"-inf"],["A1",3,192,"nan"])"));
    ASSERT_EQ(message.lines.size(), 3u);
    EXPECT_EQ(message.lines[0].value, std::numeric_limits<double>::infinity());
    EXPECT_EQ(message.lines[1].value, -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(message.lines[2].value));
}

TEST(StoreMessage, KeepsTheLastBitOfAnyNumberThatAFileCanHold) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 20000; ++i) {
        double value = 0;
        do {
            const std::uint64_t bits = random();
            std::memcpy(&value, &bits, sizeof value);
        } while (!std::isfinite(value));
        const std::string text = fmt::format("{:.6f}", value);
        const Message message = decoded(body_of("[\"A1\",1,192," + text + "]"));
        ASSERT_EQ(message.lines.size(), 1u) << text;
        EXPECT_EQ(message.lines[0].value, std::strtod(text.c_str(), nullptr)) << text;
    }
}

TEST(StoreMessage, TakesFieldsInAnyOrderAndPassesOverUnknownOnes) {
    const Message message =
        decoded(R"( {"later":{"a":[1,{}]},"lines":[ ["A1" , 1 , 192 , 2.000000 ] ],"kind":"event","system":2,)"
                R"("meter":"m/1","gateway":"Keller \u00e4"} )",
                "heatmeter.Keller%20%C3%A4.m%2F1.2.record.event");
    EXPECT_EQ(message.gateway, "Keller ä");
    EXPECT_EQ(message.lines.size(), 1u);
}

TEST(StoreMessage, EachTokenOfASubjectHoldsLettersDigitsAndSigns) {
    EXPECT_EQ(store::token_of("aZ09-_"), "aZ09-_");
    EXPECT_EQ(store::token_of("a.b*c>d e%"), "a%2Eb%2Ac%3Ed%20e%25");
    EXPECT_EQ(store::token_of("\xC3\xA4\n"), "%C3%A4%0A");
}

TEST(StoreMessage, IsRejectedWithItsReason) {
    const auto with = [](const std::string& head) { return head + R"(,"lines":[]})"; };
    const std::string names = R"({"gateway":"g1","meter":"m1","system":1,"kind":"hourly")";
    EXPECT_EQ(fault_of(with(names)), "");
    EXPECT_EQ(fault_of(with(names), "heatmeter.g2.m1.1.record.hourly"), "a subject that contradicts its message");
    EXPECT_EQ(fault_of(with(names), "heatmeter.g1.m1.1.record.daily"), "a subject that contradicts its message");
    EXPECT_EQ(fault_of(names + "}"), "not all of gateway, meter, system, kind and lines");
    EXPECT_EQ(fault_of(with(names + R"(,"gateway":"g1")")), "gateway twice");
    EXPECT_EQ(fault_of(with(names) + "{}"), "something behind the message");
    EXPECT_EQ(fault_of(R"({"gateway":1})"), "a gateway that is no text");
    EXPECT_EQ(fault_of(R"({"gateway":""})"), "an empty gateway");
    EXPECT_EQ(fault_of(R"({"meter":"a\u0000b"})"), "a zero byte in a meter");
    EXPECT_EQ(fault_of(R"({"meter":")" + std::string(256, 'a') + "\"}"), "a meter of 256 bytes");
    EXPECT_EQ(fault_of(R"({"system":"1"})"), "a system that is no number");
    EXPECT_EQ(fault_of(R"({"system":2147483648})"), "a system out of range");
    EXPECT_EQ(fault_of(R"({"system":-1})"), "a system out of range");
    EXPECT_EQ(fault_of(R"({"kind":"yearly"})"), "a kind that is none");
    EXPECT_EQ(fault_of(R"({"lines":{}})"), "lines that are no array");
    EXPECT_EQ(fault_of(std::string(64 * 1024 + 1, ' ')), "65537 bytes");
    for (const std::string text : {"", " ", "{", "}", "[]", "null", "7", "\"text\"", "{\"gateway\":\"g1\"", "{]",
                                   "\xFF\xFE", "{\"gateway\":\"\xC3\"}", "{\"gateway\":\"\\ud800\"}", "{\"a\" 1}"}) {
        EXPECT_NE(fault_of(text), "") << text;
    }
    EXPECT_NE(fault_of(body_of(R"(["A1",1,192,1.0)")), "");
    EXPECT_NE(fault_of(body_of(R"(["A1",1,192,1.0])").substr(0, 80)), "");
    EXPECT_NE(fault_of(body_of(std::string(30000, '['))), "");
    std::string many = "[]";
    for (int i = 0; i < 8192; ++i) many += ",[]";
    EXPECT_EQ(fault_of(body_of(many)), "more than 8192 lines");
}

TEST(StoreMessage, MayHaveBeenMadeShorter) {
    const std::string body = body_of(R"(["A1",1709377200,192,12.345000])");
    std::string text;
    EXPECT_EQ(store::unpack("", body, text), "");
    EXPECT_EQ(text, body);
    EXPECT_EQ(store::unpack("gzip", contract::gzip(body), text), "");
    EXPECT_EQ(text, body);
    // What cannot be read stays as it came.
    EXPECT_EQ(store::unpack("gzip", body, text), "no gzip of at most 65536 bytes");
    EXPECT_EQ(text, body);
    EXPECT_EQ(store::unpack("gzip", contract::gzip(std::string(65537, ' ')), text), "no gzip of at most 65536 bytes");
    EXPECT_EQ(store::unpack("br", body, text), "an encoding \"br\"");
    EXPECT_EQ(text, body);
}

TEST(StoreMessage, StandsWithItsGoodLinesBesideTheBadOnes) {
    const std::vector<std::pair<std::string, std::string>> bad = {
        {R"(["A1",1,192])", "a line of fewer than four fields"},
        {R"([])", "a line of fewer than four fields"},
        {R"(["A1",1,192,1.0,2])", "a line of more than four fields"},
        {R"({"name":"A1"})", "a line that is no array"},
        {R"("A1")", "a line that is no array"},
        {R"([1,1,192,1.0])", "a name that is no text"},
        {R"(["",1,192,1.0])", "an empty name"},
        {R"(["a\u0000",1,192,1.0])", "a zero byte in a name"},
        {R"(["A1","1",192,1.0])", "a time that is no number"},
        {R"(["A1",1.5,192,1.0])", "a time that is no number"},
        {R"(["A1",253402300799,192,1.0])", "a time out of range"},
        {R"(["A1",1,-1,1.0])", "a quality out of range"},
        {R"(["A1",1,2147483648,1.0])", "a quality out of range"},
        {R"(["A1",1,192,1e400])", "a value that is no number, or out of range"},
        {R"(["A1",1,192,"12"])", "a value that is no number, or out of range"},
        {R"(["A1",1,192,null])", "a value that is no number, or out of range"},
        {R"(["A1",1,192,[1.0]])", "a value that is no number, or out of range"},
    };
    for (const auto& [text, reason] : bad) {
        const Message message = decoded(body_of(R"(["A1",1,192,1.000000], )" + text + R"( ,["A2",2,192,2.000000])"));
        EXPECT_EQ(message.lines.size(), 2u) << text;
        ASSERT_EQ(message.bad.size(), 1u) << text;
        EXPECT_EQ(message.bad[0].text, text);
        EXPECT_EQ(message.bad[0].reason, reason) << text;
        EXPECT_EQ(message.bad[0].place, 1);
    }
}

/// Any damage to a good message gives a reason, or lines that could stand in a file: never a crash.
TEST(StoreMessage, OneDamagedAnywhereHarmsNobody) {
    std::mt19937 random(7);
    const std::string good =
        body_of(R"(["A1",1709377200,192,12.345000],["A2",1709377200,0,"nan"],["A3",7,1,0.100000])");
    Decoder decoder;
    int whole = 0;
    for (int i = 0; i < 50000; ++i) {
        std::string body = good;
        for (unsigned changes = 1 + random() % 3; changes > 0; --changes) {
            const std::size_t at = random() % body.size();
            switch (random() % 3) {
                case 0:
                    body[at] = static_cast<char>(random());
                    break;
                case 1:
                    body.erase(at, 1 + random() % 8);
                    break;
                default:
                    body.insert(at, 1, "[]{}\",:0-e.\\"[random() % 12]);
                    break;
            }
            if (body.empty()) body = "x";
        }
        Message message;
        const std::string fault = decoder.decode(Subject, body, message);
        if (!fault.empty()) continue;
        ++whole;
        EXPECT_EQ(store::subject_of(message), Subject);
        for (const store::Line& line : message.lines) EXPECT_FALSE(line.name.empty());
        for (const store::BadLine& bad : message.bad) EXPECT_FALSE(bad.text.empty()) << body;
    }
    EXPECT_GT(whole, 1000);
}

}  // namespace
