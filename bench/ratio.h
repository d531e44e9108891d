#pragma once
// Figures that mean the same on every machine: what the daemon takes, divided by what something else takes that was
// measured in the same run, turn by turn. The figures are collected and told in one table at the end.

#include <functional>
#include <string>

#include <benchmark/benchmark.h>

/// How long one of the two sides takes, seconds, found anew at each call.
using Side = std::function<double()>;

/// Runs `work` so many times and tells the seconds that one of them took by a clock on the wall.
double seconds_of(int times, const std::function<void()>& work);
/// The same in CPU time of this thread, for work that never waits: neighbours on the machine do not show in it.
double cpu_seconds_of(int times, const std::function<void()>& work);

/// What is wanted of ours / other.
struct Wanted {
    double most;
    std::string text;
};
Wanted times_faster(double times);
Wanted times_as_long(double times);
/// "1/1000" and the like.
Wanted share(double one_in);

/// Lets both sides take turns, each turn in the other order, as many times as `state` iterates. The median of the
/// turns' ratios, and of each side, becomes a figure of the table. The time that Google Benchmark shows is that of our
/// side.
void compare(benchmark::State& state, const std::string& ours, const Side& our_side, const std::string& other,
             const Side& other_side, const Wanted& wanted);

/// A figure whose two sides come out of one and the same run.
void add_figure(benchmark::State& state, const std::string& ours, double our_seconds, const std::string& other,
                double other_seconds, const Wanted& wanted);

/// Prints the table. True when no figure falls short.
bool print_figures();
