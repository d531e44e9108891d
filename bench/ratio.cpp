#include "ratio.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

namespace {

struct Figure {
    std::string ours;
    std::string other;
    double our_seconds;
    double other_seconds;
    double ratio;
    Wanted wanted;

    std::string name() const { return ours + " / " + other; }
    bool holds() const { return ratio <= wanted.most; }
};

std::vector<Figure>& figures() {
    static std::vector<Figure> all;
    return all;
}

void tell(benchmark::State& state, const Figure& figure) {
    state.counters["ratio"] = figure.ratio;
    figures().push_back(figure);
}

double median(std::vector<double> samples) {
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
}

double seconds_by(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double timed(clockid_t clock, int times, const std::function<void()>& work) {
    const double begun = seconds_by(clock);
    for (int i = 0; i < times; ++i) work();
    return (seconds_by(clock) - begun) / times;
}

std::string text_of(const char* format, double value) {
    char text[40];
    std::snprintf(text, sizeof(text), format, value);
    return text;
}

std::string duration(double seconds) {
    if (seconds < 1e-3) return text_of("%.2f us", seconds * 1e6);
    if (seconds < 1.0) return text_of("%.2f ms", seconds * 1e3);
    return text_of("%.3f s", seconds);
}

std::string ratio_text(double ratio) {
    return ratio < 0.5 ? text_of("1/%.1f", 1.0 / ratio) : text_of("%.3f", ratio);
}

}  // namespace

double seconds_of(int times, const std::function<void()>& work) {
    return timed(CLOCK_MONOTONIC, times, work);
}

double cpu_seconds_of(int times, const std::function<void()>& work) {
    return timed(CLOCK_THREAD_CPUTIME_ID, times, work);
}

Wanted times_faster(double times) {
    return {1.0 / times, text_of("at least %g times faster", times)};
}

Wanted times_as_long(double times) {
    return {times, text_of("at most %g times as long", times)};
}

Wanted share(double one_in) {
    return {1.0 / one_in, text_of("at most 1/%g", one_in)};
}

void compare(benchmark::State& state, const std::string& ours, const Side& our_side, const std::string& other,
             const Side& other_side, const Wanted& wanted) {
    our_side();  // warm
    other_side();
    std::vector<double> our_samples;
    std::vector<double> other_samples;
    std::vector<double> ratios;
    bool ours_first = true;
    for ([[maybe_unused]] auto turn : state) {
        if (ours_first) our_samples.push_back(our_side());
        other_samples.push_back(other_side());
        if (!ours_first) our_samples.push_back(our_side());
        ours_first = !ours_first;
        ratios.push_back(our_samples.back() / other_samples.back());
        state.SetIterationTime(our_samples.back());
    }
    tell(state, {ours, other, median(our_samples), median(other_samples), median(ratios), wanted});
}

void add_figure(benchmark::State& state, const std::string& ours, double our_seconds, const std::string& other,
                double other_seconds, const Wanted& wanted) {
    tell(state, {ours, other, our_seconds, other_seconds, our_seconds / other_seconds, wanted});
}

bool print_figures() {
    constexpr const char* Row = "%-*s %11s %11s %9s  %s\n";
    constexpr const char* Title = "what / against what (medians)";
    std::size_t width = std::strlen(Title);
    for (const Figure& figure : figures()) width = std::max(width, figure.name().size());
    const int column = static_cast<int>(width);

    std::printf("\n");
    std::printf(Row, column, Title, "ours", "other", "ratio", "wanted");
    bool all_hold = true;
    for (const Figure& figure : figures()) {
        const std::string verdict = figure.wanted.text + (figure.holds() ? ": pass" : ": FALLS SHORT");
        std::printf(Row, column, figure.name().c_str(), duration(figure.our_seconds).c_str(),
                    duration(figure.other_seconds).c_str(), ratio_text(figure.ratio).c_str(), verdict.c_str());
        all_hold = all_hold && figure.holds();
    }
    return all_hold;
}
