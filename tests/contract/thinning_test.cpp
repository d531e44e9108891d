// Few records in place of many: what a chart shows of ten years.

#include "contract/thinning.h"

#include <map>
#include <random>

#include <gtest/gtest.h>

#include "support/scene.h"

using contract::ArchiveKind;
using contract::Thinned;

namespace {

constexpr const char* Folder = "/mnt/storage/m1/1/tc_archives";
constexpr std::int64_t Begin = 1700002800;  // 2023-11-14 23:00 UTC
constexpr std::int64_t Hour = 3600;
using Times = std::vector<Thinned::Times>;

std::string line_of(std::int64_t time, const std::string& value, int quality = 192) {
    return std::to_string(time) + ',' + std::to_string(quality) + ',' + value + '\n';
}

class Thin : public testing::Test {
  protected:
    void write(const std::string& name, const std::string& text) {
        scene.write(std::string(Folder) + '/' + name, text);
    }
    static Thinned thin(std::size_t most, const std::vector<std::string>& names = {}, bool staged = false) {
        contract::ArchiveQuestion question;
        question.names = names;
        return contract::thin(Folder, ArchiveKind::Hourly, question, most, staged);
    }

    Scene scene;
};

TEST(Numbers, AreComparedByTheirDigits) {
    EXPECT_TRUE(contract::is_less("9.000000", "10.000000"));
    EXPECT_FALSE(contract::is_less("10.000000", "9.000000"));
    EXPECT_TRUE(contract::is_less("-10.000000", "-9.000000"));
    EXPECT_TRUE(contract::is_less("-1.000000", "0.000000"));
    EXPECT_TRUE(contract::is_less("007.000000", "8.000000"));
    EXPECT_FALSE(contract::is_less("1.500000", "1.500000"));
    for (const char* const none : {"nan", "inf", "-inf", ""}) {
        EXPECT_FALSE(contract::is_less(none, "1.000000"));
        EXPECT_FALSE(contract::is_less("1.000000", none));
    }
}

TEST_F(Thin, WhereThereIsRoomForAllOfThemNothingIsLeftOut) {
    write("A1", line_of(Begin, "1.000000") + line_of(Begin + Hour, "2.000000"));
    const Thinned thinned = thin(2);
    ASSERT_EQ(thinned.rows.size(), 2U);
    EXPECT_EQ(thinned.step, 0);
    EXPECT_EQ(thinned.from, Begin);
    EXPECT_EQ(thinned.to, Begin + Hour);
    EXPECT_EQ(thinned.rows[1].values, std::vector<std::string>{"2.000000"});
}

TEST_F(Thin, EachSpanKeepsTheLeastAndTheGreatestValueOfEachName) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        std::map<std::int64_t, std::array<double, 2>> all;
        std::string first;
        std::string second;
        for (int i = 0; i < 3000; ++i) {
            if (random() % 50 == 0) continue;
            const std::int64_t time = Begin + i * Hour;
            all[time] = {static_cast<double>(random() % 2000) - 1000, static_cast<double>(i)};
            first += line_of(time, std::to_string(all[time][0]));
            second += line_of(time, std::to_string(all[time][1]));
        }
        // Out of order: read again.
        if (seed % 2 == 0) first += line_of(Begin + 100 * Hour, std::to_string(all[Begin + 100 * Hour][0]));
        write("A1", first);
        write("A12", second);
        const std::size_t most = 50 + random() % 500;
        const Thinned thinned = thin(most);
        ASSERT_LE(thinned.rows.size(), most);
        ASSERT_GT(thinned.step, 0);
        std::map<std::int64_t, std::array<std::pair<double, double>, 2>> wanted;
        std::map<std::int64_t, std::array<std::pair<double, double>, 2>> got;
        const auto see = [&](auto& spans, std::int64_t time, const std::array<double, 2>& values) {
            const auto [at, is_new] = spans.try_emplace(time / thinned.step);
            for (std::size_t i = 0; i < 2; ++i) {
                auto& [least, greatest] = at->second[i];
                least = is_new ? values[i] : std::min(least, values[i]);
                greatest = is_new ? values[i] : std::max(greatest, values[i]);
            }
        };
        for (const auto& [time, values] : all) see(wanted, time, values);
        for (const auto& row : thinned.rows) {
            const std::array<double, 2> values = {std::stod(row.values[0]), std::stod(row.values[1])};
            ASSERT_EQ(all.at(row.time), values) << "a row that is none, " << row.time;
            see(got, row.time, values);
        }
        EXPECT_EQ(got, wanted) << "seed " << seed;
    }
}

TEST_F(Thin, AHoleStandsBetweenTheRecordsAroundIt) {
    write("A1", line_of(Begin, "1.000000") + line_of(Begin + 4 * Hour, "2.000000") +
                    line_of(Begin + 5 * Hour, "2.000000") + line_of(Begin + 7 * Hour, "2.000000"));
    EXPECT_EQ(thin(100).holes,
              std::vector<Times>{(Times{{Begin, Begin + 4 * Hour}, {Begin + 5 * Hour, Begin + 7 * Hour}})});
}

TEST_F(Thin, TotalsOfADriverThatStagesAreNotMissed) {
    write("A1", line_of(Begin, "1.000000") + line_of(Begin + 9 * Hour, "2.000000"));
    write("A20", line_of(Begin, "1.000000") + line_of(Begin + 9 * Hour, "2.000000"));
    EXPECT_EQ(thin(100, {}, true).holes, (std::vector<Times>{{}, {{Begin, Begin + 9 * Hour}}}));
}

TEST_F(Thin, ValuesThatAreNotGoodAreTold) {
    write("A1", line_of(Begin, "1.000000") + line_of(Begin + Hour, "2.000000", 0) +
                    line_of(Begin + 2 * Hour, "2.000000", 64) + line_of(Begin + 3 * Hour, "2.000000"));
    EXPECT_EQ(thin(100).bad, std::vector<Times>{(Times{{Begin + Hour, Begin + 2 * Hour}})});
}

TEST_F(Thin, WhatIsNearerThanASpanIsOne) {
    std::string text;
    for (int i = 0; i < 4000; i += 2) text += line_of(Begin + i * Hour, "1.000000", i % 4 == 0 ? 0 : 192);
    write("A1", text);
    const Thinned thinned = thin(100);
    ASSERT_GT(thinned.step, 4 * Hour);
    EXPECT_EQ(thinned.holes[0].size(), 1U);
    EXPECT_EQ(thinned.bad[0].size(), 1U);
    EXPECT_EQ(thinned.bad[0][0], (Thinned::Times{Begin, Begin + 3996 * Hour}));
}

TEST_F(Thin, ASpanWithoutANumberKeepsARow) {
    std::string text;
    for (int i = 0; i < 1000; ++i) text += line_of(Begin + i * Hour, "nan");
    write("A1", text);
    const Thinned thinned = thin(10);
    EXPECT_GE(thinned.rows.size(), 3U);
    EXPECT_LE(thinned.rows.size(), 10U);
}

TEST_F(Thin, WithoutAFileThereIsNothing) {
    const Thinned thinned = thin(10, {"A1"});
    EXPECT_FALSE(thinned.is_open);
    EXPECT_TRUE(thinned.rows.empty());
}

}  // namespace
