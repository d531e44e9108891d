// The long form of the faulty years: fresh seeds until the minutes are over, or one seed again, exactly.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "faults/broken_invariant.h"
#include "faults/fault_year.h"
#include "faults/private_storage.h"

namespace {

struct Options {
    std::uint64_t seed = 0;
    std::string family = "all";
    int days = 365;
    double minutes = 0;
    std::string keep;
};

/// False when something broke.
bool run_year(const std::string& family, std::uint64_t seed, const Options& options) {
    const int days = options.days;
    const auto begin = std::chrono::steady_clock::now();
    faults::FaultYear year(family, seed, days);
    std::cout << family << ", seed " << seed << ", " << days << " days: " << year.models() << std::endl;
    try {
        year.run();
    } catch (const faults::BrokenInvariant& broken) {
        std::cout << "BROKEN: " << broken.what() << "\n  " << year.situation() << "\n  " << year.summary()
                  << "\n  again: heatmeter-soak --seed " << seed << " --family " << family << " --days " << days
                  << std::endl;
        return false;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    if (!options.keep.empty()) {
        std::filesystem::copy(year.root() + "/mnt", options.keep + "/mnt",
                              std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
    }
    std::cout << "  held: " << year.summary() << "; " << took.count() << " s" << std::endl;
    return true;
}

using Clock = std::chrono::steady_clock;

std::vector<std::string> families_of(const Options& options) {
    return options.family == "all" ? faults::family_names() : std::vector<std::string>{options.family};
}

/// Each family has a year, and then another one while there is time.
bool run_fresh_years(const Options& options) {
    const auto end = Clock::now() + std::chrono::duration<double, std::ratio<60>>(options.minutes);
    std::random_device entropy;
    for (bool is_first_round = true;; is_first_round = false) {
        const std::uint64_t seed = entropy();
        for (const std::string& family : families_of(options)) {
            if (!is_first_round && Clock::now() >= end) return true;
            if (!run_year(family, seed, options)) return false;
        }
    }
}

bool run_that_year(const Options& options) {
    bool held = true;
    for (const std::string& family : families_of(options)) held = run_year(family, options.seed, options) && held;
    return held;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Years of one line and its process with everything going wrong that a seed has drawn, the meters too.\n"
        "Fresh seeds until --minutes are over, a year of each family at least; a year that has begun is ended.\n"
        "With --seed: that year again, exactly. Exit status 1 when something that always holds did not.",
        "heatmeter-soak");
    auto* const seed = app.add_option("--seed", options.seed, "What all faults are drawn from")->type_name("N");
    std::vector<std::string> names = faults::family_names();
    names.emplace_back("all");
    app.add_option("--family", options.family, "KM5, VIST, VISTmodbus, SA94, SingleBus or all")
        ->check(CLI::IsMember(names))
        ->capture_default_str();
    app.add_option("--days", options.days, "Length of a year")->check(CLI::Range(1, 3650))->capture_default_str();
    app.add_option("--minutes", options.minutes, "Fresh seeds for so long (0: one round)")
        ->check(CLI::Range(0.0, 100000.0));
    app.add_option("--keep", options.keep, "An empty folder: /mnt/storage of the last year goes there")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory);
    CLI11_PARSE(app, argc, argv);

    if (!faults::enter_private_mounts()) {
        std::cout << "no mounts of its own: the storage will be neither full nor read-only" << std::endl;
    }
    const bool held = seed->count() > 0 ? run_that_year(options) : run_fresh_years(options);
    return held ? 0 : 1;
}
