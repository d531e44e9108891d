// Lines as rows: their order, which of two counts, and how PostgreSQL reads them.

#include "store/rows.h"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include "store/schema.h"

namespace {

using store::Row;
using store::written_at;

constexpr double NotANumber = std::numeric_limits<double>::quiet_NaN();

TEST(StoreRows, WhatWasWrittenLaterHasTheGreaterNumber) {
    EXPECT_LT(written_at(1, 1, 0), written_at(1, 1, 1));
    EXPECT_LT(written_at(1, 1, store::MostLines - 1), written_at(1, 2, 0));
    EXPECT_LT(written_at(1, store::MostSequence, store::MostLines - 1), written_at(2, 1, 0));
    EXPECT_GT(written_at(255, store::MostSequence, store::MostLines - 1), written_at(254, 1, 0));
}

TEST(StoreRows, OfTheSameKeyTheLineWrittenLastStays) {
    std::vector<Row> rows = {{2, 1, 100, 192, 1.0, 5},
                             {1, 1, 100, 192, 2.0, 6},
                             {1, 1, 100, 0, 3.0, 9},
                             {1, 1, 100, 192, 4.0, 7},
                             {1, 1, 50, 192, 5.0, 8}};
    store::put_in_order(rows, false);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].value, 5.0);
    EXPECT_EQ(rows[1].value, 3.0);
    EXPECT_EQ(rows[1].quality, 0);
    EXPECT_EQ(rows[2].value, 1.0);
}

TEST(StoreRows, EventsOfTheSameSecondStayWhereTheyDiffer) {
    std::vector<Row> rows = {{1, 1, 100, 1, 7.0, 1}, {1, 1, 100, 0, 7.0, 2},        {1, 1, 100, 1, 8.0, 3},
                             {1, 1, 100, 1, 7.0, 4}, {1, 1, 100, 1, NotANumber, 5}, {1, 1, 100, 1, -NotANumber, 6}};
    store::put_in_order(rows, true);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0].quality, 0);
    EXPECT_EQ(rows[1].written, 4);
    EXPECT_EQ(rows[2].value, 8.0);
    EXPECT_TRUE(std::isnan(rows[3].value));
}

TEST(StoreRows, AnyOrderOfComingGivesTheSame) {
    std::mt19937 random(3);
    std::vector<Row> rows;
    for (int i = 0; i < 500; ++i) {
        rows.push_back({static_cast<int>(random() % 3), static_cast<int>(random() % 3), static_cast<int>(random() % 9),
                        static_cast<int>(random() % 2), i % 7 == 0 ? NotANumber : i % 5 * 1.0, i});
    }
    for (const bool are_events : {false, true}) {
        std::vector<Row> one = rows;
        store::put_in_order(one, are_events);
        std::vector<Row> other = rows;
        std::shuffle(other.begin(), other.end(), random);
        store::put_in_order(other, are_events);
        EXPECT_EQ(store::encode(one), store::encode(other));
    }
}

// Worked out by hand from PostgreSQL's description of COPY in binary format.
TEST(StoreRows, AreEncodedAsPostgresWantsThem) {
    const std::string text = store::encode({{2, 3, 946684801, 192, -2.0, 4}});
    const std::string expected(
        "PGCOPY\n\xFF\r\n\0\0\0\0\0\0\0\0\0"
        "\0\6"
        "\0\0\0\x08\0\0\0\0\0\x0F\x42\x40"  // a second after 2000, in microseconds
        "\0\0\0\x08\xC0\0\0\0\0\0\0\0"
        "\0\0\0\x08\0\0\0\0\0\0\0\4"
        "\0\0\0\4\0\0\0\2"
        "\0\0\0\4\0\0\0\3"
        "\0\0\0\4\0\0\0\xC0"
        "\xFF\xFF",
        19 + 2 + 3 * 12 + 3 * 8 + 2);
    EXPECT_EQ(text, expected);
}

TEST(StoreSchema, AMonthIsThatOfUtc) {
    EXPECT_EQ(store::Months::month_of(0), 0);
    EXPECT_EQ(store::Months::month_of(-1), -1);
    EXPECT_EQ(store::Months::month_of(1709251199), (2024 - 1970) * 12 + 1);  // the last second of February
    EXPECT_EQ(store::Months::month_of(1709251200), (2024 - 1970) * 12 + 2);
    EXPECT_EQ(store::Months::month_of(2147483647), (2038 - 1970) * 12);
    EXPECT_EQ(store::Months::month_of(-2147483648LL), (1901 - 1970) * 12 + 11);
}

TEST(StoreSchema, MigrationsAreNumberedWithoutGaps) {
    int number = 0;
    for (const store::Migration& migration : store::migrations()) {
        EXPECT_EQ(migration.number, ++number) << migration.name;
        EXPECT_FALSE(migration.sql.empty());
    }
    EXPECT_GT(number, 0);
}

}  // namespace
