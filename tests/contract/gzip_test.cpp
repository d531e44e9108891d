// A text comes out of its shorter form as it went in; what is no such form gives nothing.

#include "contract/gzip.h"

#include <random>

#include <gtest/gtest.h>

using contract::gunzip;
using contract::gzip;

namespace {

TEST(Gzip, ATextComesOutAsItWentIn) {
    std::minstd_rand chance(1);
    for (const std::size_t size : {0U, 1U, 100U, 65536U}) {
        std::string repeated(size, 'x');
        std::string random(size, '\0');
        for (char& byte : random) byte = static_cast<char>(chance());
        for (const std::string& text : {repeated, random}) {
            EXPECT_EQ(gunzip(gzip(text), size), text);
            EXPECT_TRUE(size == 0 || gunzip(gzip(text), size - 1) == std::nullopt);
        }
    }
    EXPECT_LT(gzip(std::string(65536, 'x')).size(), 200U);
}

TEST(Gzip, WhatIsNoneGivesNothing) {
    const std::string packed = gzip("lines of hours, lines of hours");
    for (std::size_t cut = 0; cut < packed.size(); ++cut) EXPECT_EQ(gunzip(packed.substr(0, cut), 1000), std::nullopt);
    for (std::size_t at = 10; at < packed.size(); ++at) {  // the sums at its end tell
        std::string damaged = packed;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
        const auto text = gunzip(damaged, 1000);
        EXPECT_TRUE(!text || text == gunzip(packed, 1000)) << at;  // the last bits of its last word are nobody's
    }
    EXPECT_EQ(gunzip(packed + "x", 1000), std::nullopt);
    EXPECT_EQ(gunzip("{}", 1000), std::nullopt);
    // Much that is packed into little.
    EXPECT_EQ(gunzip(gzip(std::string(std::size_t{100} << 20, '\0')), 65536), std::nullopt);
}

}  // namespace
