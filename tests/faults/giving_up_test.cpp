// What a meter owes no more: only what a process that goes on behind the newest record in the files can have passed
// over.

#include <ctime>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "faults/ledger.h"

namespace {

constexpr int Hourly = 0;
constexpr std::time_t First = 1'700'000'000 / 3600 * 3600;
constexpr std::time_t Hour = 3600;
constexpr const char* Quantity = "1/tc_archives/A1";
constexpr const char* Energy = "1/tc_archives/A2";

/// Three records, an hour apart, of one line in each of two files.
class GivingUp : public ::testing::Test {
  protected:
    GivingUp() {
        for (int n = 0; n < 3; ++n) {
            ledger.add({.archive = Hourly,
                        .time = time(n),
                        .promised = true,
                        .lines = {{Quantity, line(n, "5.000000")}, {Energy, line(n, "7.000000")}}},
                       time(n));
        }
    }

    static std::time_t time(int n) { return First + n * Hour; }
    static std::string line(int n, const std::string& value) { return std::to_string(time(n)) + ",192," + value; }
    void write_first_line(int n) { ledger.appeared(*ledger.find(Quantity, line(n, "5.000000"))); }
    void write(int n) {
        write_first_line(n);
        ledger.appeared(*ledger.find(Energy, line(n, "7.000000")));
    }
    void asked_at(std::time_t moment) {
        ledger.doubt_missing([moment](int) { return moment; });
    }
    /// The text up to its time; nothing when all is there that is owed.
    std::optional<std::string> missing() {
        const auto text = ledger.first_missing(time(9), [](int) { return std::time_t{0}; });
        return text ? std::optional(text->substr(0, text->find(','))) : std::nullopt;
    }
    static std::string at(const char* file, int n) { return std::string(file) + " " + std::to_string(time(n)); }

    faults::Ledger ledger;
};

TEST_F(GivingUp, HoleInFrontOfTheNewestRecordIsLostWithoutAReason) {
    write(0);
    write(2);
    ledger.process_is_gone(false);
    EXPECT_EQ(missing(), at(Quantity, 1));
}

TEST_F(GivingUp, RestOfTheRecordThatWasBegunIsGivenUp) {
    write(0);
    write_first_line(1);
    EXPECT_EQ(missing(), at(Energy, 1));
    ledger.process_is_gone(false);
    EXPECT_EQ(ledger.given_up(), 1U);
    EXPECT_EQ(missing(), at(Quantity, 2));
}

TEST_F(GivingUp, TornFirstLineThatReadsAsOneGivesItsRecordUp) {
    write(0);
    ledger.torn(Quantity, line(1, "5.0"));
    ledger.process_is_gone(false);
    EXPECT_EQ(ledger.given_up(), 1U);
}

TEST_F(GivingUp, TornFirstLineWithoutAValueGivesNothingUp) {
    write(0);
    ledger.torn(Quantity, line(1, ""));
    ledger.process_is_gone(false);
    EXPECT_EQ(ledger.given_up(), 0U);
}

TEST_F(GivingUp, BegunRecordIsReadAgainWhereFilesThatDisagreeAreEmptied) {
    write(0);
    write_first_line(1);
    ledger.process_is_gone(true);
    EXPECT_EQ(missing(), at(Energy, 1));
}

TEST_F(GivingUp, BegunRecordIsGivenUpWhereTheOtherFileIsEmpty) {
    write_first_line(0);
    ledger.process_is_gone(true);
    EXPECT_EQ(ledger.given_up(), 1U);
}

TEST_F(GivingUp, WhatWasStoredAfterTheLastQuestionIsOwed) {
    asked_at(time(1));
    ledger.give_up_doubtful();
    EXPECT_EQ(ledger.given_up(), 2U);
    EXPECT_EQ(missing(), at(Quantity, 2));
}

TEST_F(GivingUp, WhatWasReadAndNotWrittenIsOwedAgainByTheNextProcess) {
    write(0);
    asked_at(time(2));
    EXPECT_FALSE(missing());  // this process does not know better
    ledger.process_is_gone(false);
    EXPECT_EQ(ledger.given_up(), 0U);
    EXPECT_EQ(missing(), at(Quantity, 1));
}

TEST_F(GivingUp, ButNotWhatIsOlderThanARecordWrittenSince) {
    asked_at(time(1));
    write(2);
    ledger.process_is_gone(false);
    EXPECT_EQ(ledger.given_up(), 2U);
    EXPECT_FALSE(missing());
}

TEST_F(GivingUp, FileThatTellsNoProgressHidesNothing) {
    ledger.add({.archive = Hourly,
                .time = time(3),
                .promised = true,
                .lines = {{"1/tc_archives/A17", line(3, "6.000000"), false}, {Quantity, line(3, "5.000000")}}},
               time(3));
    for (const int n : {0, 1, 2}) write(n);
    ledger.appeared(*ledger.find("1/tc_archives/A17", line(3, "6.000000")));
    ledger.process_is_gone(false);
    EXPECT_EQ(ledger.given_up(), 0U);
    EXPECT_EQ(missing(), at(Quantity, 3));
}

}  // namespace
