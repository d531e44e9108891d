// Eight days of each family with everything going wrong that can be simulated, from two seeds: one over the beginning
// of summer time, one over its end. The long form is the program heatmeter-soak.

#include "faults/fault_year.h"

#include <cstdint>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "faults/broken_invariant.h"
#include "faults/private_storage.h"

namespace {

constexpr int Days = 8;
const bool private_mounts = faults::enter_private_mounts();

class FaultYearTest : public ::testing::TestWithParam<std::tuple<std::string, std::uint64_t>> {};

TEST_P(FaultYearTest, NothingThatHoldsAtEveryMomentBreaks) {
    const auto& [family, seed] = GetParam();
    faults::FaultYear year(family, seed, Days);
    try {
        year.run();
    } catch (const faults::BrokenInvariant& broken) {
        FAIL() << broken.what() << "\n" << year.situation() << "\n" << year.summary();
    }
    std::printf("%s\n", year.summary().c_str());
    EXPECT_GT(year.calm_looks(), 10);
    EXPECT_GT(year.lines_read(), 1000U);
    EXPECT_GT(year.records_found(), 100U);
    if (!private_mounts) GTEST_SKIP() << "no mounts of its own: the storage was neither full nor read-only";
}

INSTANTIATE_TEST_SUITE_P(Families, FaultYearTest,
                         ::testing::Combine(::testing::ValuesIn(faults::family_names()),
                                            ::testing::Values(std::uint64_t{4}, std::uint64_t{5})),
                         [](const auto& test) {
                             return std::get<0>(test.param) + "Seed" + std::to_string(std::get<1>(test.param));
                         });

}  // namespace
