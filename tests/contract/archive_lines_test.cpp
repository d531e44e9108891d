#include "contract/archive_lines.h"

#include <string>

#include <gtest/gtest.h>

using contract::ArchiveLine;
using contract::parse_archive_line;

namespace {

ArchiveLine line;

TEST(ArchiveLines, WhatTheDaemonWritesIsALine) {
    ASSERT_TRUE(parse_archive_line("1709388000,192,12.345000", line));
    EXPECT_EQ(line.time, 1709388000);
    EXPECT_EQ(line.quality, 192);
    EXPECT_EQ(line.value, "12.345000");
    EXPECT_TRUE(parse_archive_line("-1,0,-0.500000", line));
    EXPECT_EQ(line.time, -1);
    EXPECT_EQ(line.quality, 0);
    for (const char* value : {"inf", "-inf", "nan", "-nan", "340282346638528859811704183484516925440.000000"}) {
        EXPECT_TRUE(parse_archive_line(std::string("1709388000,192,") + value, line)) << value;
    }
}

TEST(ArchiveLines, ANumberThatHasLostItsEndIsNoNumber) {
    const std::string whole = "1709388000,192,12.345000";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(parse_archive_line(whole.substr(0, length), line)) << length;
    }
}

TEST(ArchiveLines, ForeignTextIsNoLine) {
    for (const char* text :
         {"", "x", "1709388000,192,12.345000 ", " 1709388000,192,12.345000", "1709388000,192,12.3450000",
          "1709388000,192,1e3", "1709388000,-5,12.345000", "99999999999,192,12.345000", "1709388000;192;12.345000",
          "1709388000,192,.345000", "1709388000,192,infinity", "1709388000,192,12.345000,1"}) {
        EXPECT_FALSE(parse_archive_line(text, line)) << text;
    }
}

}  // namespace
