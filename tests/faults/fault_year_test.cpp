// Days of each family with everything going wrong that can be simulated, over the beginning of summer time and over its
// end. What stands on the line follows from the seed; the seeds are chosen so that each kind of line has its turn. The
// long form is the program heatmeter-soak.

#include "faults/fault_year.h"

#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "faults/broken_invariant.h"
#include "faults/private_storage.h"

namespace {

const bool PrivateMounts = faults::enter_private_mounts();

struct Year {
    const char* family;
    std::uint64_t seed;  ///< a multiple of 4 begins before summer time, one more before its end
    int days;
    const char* models;  ///< what the seed is chosen for
};

constexpr Year Years[] = {
    {"KM5", 4, 4, "KM5-4"},
    {"KM5", 69, 4, "KM5-6i with 3 subsystems, hot water in 1 2 3"},
    {"VIST", 40, 3, "VIST 102 with 1 devices, 7FFFFF"},
    {"VIST", 177, 4, "VIST 102 with 3 devices, DDB7 FFFFF DDB7, little-endian"},
    {"VISTmodbus", 40, 3, "VIST on Modbus with 1 systems, FFFFF"},
    {"VISTmodbus", 1, 4, "VIST on Modbus with 3 systems, 7FFFFF FFFFF FFFFF"},
    {"SA94", 40, 3, "SA-94 with 201, status 0x46"},
    {"SA94", 1, 4, "SA-94 with M300, status 0x00"},
    {"KM5", 73, 4, "KM5-6 + KM5-5, hot water in 1"},
    {"SingleBus", 32, 2, "AT-T-3 + KM5-5 + SA-94 with MTE1, status 0x00"},
};

std::ostream& operator<<(std::ostream& out, const Year& year) {
    return out << year.family << ", seed " << year.seed << ", " << year.days << " days";
}

class FaultYearTest : public ::testing::TestWithParam<Year> {};

TEST_P(FaultYearTest, NothingThatHoldsAtEveryMomentBreaks) {
    const auto& [family, seed, days, models] = GetParam();
    faults::FaultYear year(family, seed, days);
    ASSERT_EQ(year.models(), models);
    try {
        year.run();
    } catch (const faults::BrokenInvariant& broken) {
        FAIL() << broken.what() << "\n" << year.situation() << "\n" << year.summary();
    }
    std::printf("%s\n", year.summary().c_str());
    EXPECT_GT(year.calm_looks(), days);
    EXPECT_GT(year.lines_read(), 1000U);
    EXPECT_GT(year.records_found(), 100U);
    if (!PrivateMounts) GTEST_SKIP() << "no mounts of its own: the storage was neither full nor read-only";
}

INSTANTIATE_TEST_SUITE_P(Families, FaultYearTest, ::testing::ValuesIn(Years), [](const auto& test) {
    return std::string(test.param.family) + "Seed" + std::to_string(test.param.seed);
});

}  // namespace
