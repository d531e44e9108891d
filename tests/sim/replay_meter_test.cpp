// A trace played back as a meter.

#include "replay_meter.h"

#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using sim::ByteVector;
using sim::ReplayMeter;

constexpr char OneLine[] =
    "# made by hand\n"
    "2024-03-02 08:20:00.000 /tmp/a > 01 02\n"
    "2024-03-02 08:20:00.100 /tmp/a < AA\n"
    "2024-03-02 08:20:01.000 /tmp/a > 03\n"
    "\n"
    "2024-03-02 08:20:02.000 /tmp/a > 01 02\n"
    "2024-03-02 08:20:02.100 /tmp/a < BB FF\n"
    "2024-03-02 08:20:02.900 /tmp/a < CC\n";

ReplayMeter replay(const std::string& trace, bool strict = false, const std::string& link = "/tmp/l") {
    std::istringstream stream(trace);
    return {stream, link, strict};
}

ByteVector said(ReplayMeter& meter, const ByteVector& request) {
    ByteVector all;
    for (const sim::Burst& burst : meter.hear(request, 0))
        all.insert(all.end(), burst.bytes.begin(), burst.bytes.end());
    return all;
}

TEST(SimReplay, AnswersEachQuestionInTurnAndThenFromTheBeginning) {
    ReplayMeter meter = replay(OneLine);
    EXPECT_EQ(meter.size(), 3U);
    EXPECT_EQ(said(meter, {0x01, 0x02}), ByteVector{0xAA});
    EXPECT_EQ(said(meter, {0x01, 0x02}), (ByteVector{0xBB, 0xFF, 0xCC}));
    EXPECT_EQ(said(meter, {0x01, 0x02}), ByteVector{0xAA});
    EXPECT_EQ(said(meter, {0x03}), ByteVector());
    EXPECT_EQ(said(meter, {0x01, 0x02}), (ByteVector{0xBB, 0xFF, 0xCC}));
}

TEST(SimReplay, KeepsSilentToWhatWasNeverAsked) {
    ReplayMeter meter = replay(OneLine);
    EXPECT_EQ(said(meter, {0x01}), ByteVector());
    EXPECT_EQ(said(meter, {}), ByteVector());
    EXPECT_EQ(said(meter, {0x01, 0x02}), ByteVector{0xAA});
}

TEST(SimReplay, ASilenceWithinAnAnswerStays) {
    ReplayMeter meter = replay(OneLine);
    meter.hear(ByteVector{0x01, 0x02}, 0);
    const sim::Answer answer = meter.hear(ByteVector{0x01, 0x02}, 0);
    ASSERT_EQ(answer.size(), 2U);
    EXPECT_GT(answer[1].delay_seconds, 0.6);
}

TEST(SimReplay, StrictWantsTheSameQuestionsInTheSameOrder) {
    ReplayMeter meter = replay(OneLine, true);
    EXPECT_EQ(said(meter, {0x01, 0x02}), ByteVector{0xAA});
    try {
        meter.hear(ByteVector{0x01, 0x02}, 0);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "asked 01 02, and not 03 of row 4 of the trace");
    }
    EXPECT_EQ(said(meter, {0x03}), ByteVector());
    EXPECT_EQ(said(meter, {0x01, 0x02}), (ByteVector{0xBB, 0xFF, 0xCC}));
    EXPECT_EQ(said(meter, {0x77}), ByteVector());  // the end
}

TEST(SimReplay, EachLineHasItsOwnRows) {
    const std::string trace =
        std::string(OneLine) + "2024-03-02 08:20:05.000 /tmp/b > 03\n2024-03-02 08:20:05.100 /tmp/b < EE\n";
    ReplayMeter b = replay(trace, false, "/tmp/b");
    EXPECT_EQ(said(b, {0x03}), ByteVector{0xEE});
    EXPECT_EQ(said(b, {0x01, 0x02}), ByteVector());
    EXPECT_THROW(replay(trace, false, "/tmp/c"), std::invalid_argument);
}

TEST(SimReplay, WhatIsNoTraceIsRefused) {
    for (const char* text : {"", "# nothing\n", "hello\n", "d t /tmp/a = 01\n", "d t /tmp/a > 1\n",
                             "d t /tmp/a > 0x1\n", "d t /tmp/a > 100\n", "d t /tmp/a > G0\n"}) {
        EXPECT_THROW(replay(text), std::invalid_argument) << text;
    }
}

}  // namespace
