#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

#include <fmt/format.h>
#include <spawn.h>

#include "contract/plain_text.h"
#include "contract/site.h"
#include "contract/units.h"
#include "core/local_time.h"
#include "ctl/archive_words.h"

namespace ctl {

namespace {

using contract::ArchiveKind;
using contract::ArchiveTable;

struct Words : ArchiveWords {
    std::string output;
};

/// A text in single quotes of gnuplot's language.
std::string gnuplot_text(const std::string& text) {
    std::string quoted = "'";
    for (const char letter : contract::for_terminal(text)) quoted += letter == '\'' ? "''" : std::string(1, letter);
    return quoted + "'";
}

/// gnuplot knows no zones: it is given the gateway's local time as if that were UTC.
std::int64_t as_local(std::int64_t time) {
    return time + local_time(static_cast<std::time_t>(time)).tm_gmtoff;
}

std::string title_of(const std::string& name, const contract::MeterSystem& meter, const contract::Units& units) {
    const contract::ArchiveEntry* const entry = contract::find_archive(name);
    if (entry == nullptr) return name;
    const std::string unit = units.unit_of(meter.uuid, meter.system, name, entry->unit);
    return fmt::format("{} {}{}{}", name, entry->title, unit.empty() ? "" : ", ", unit);
}

/// Five dates below the chart, each as exact as what is drawn is long; a terminal has no room for more.
std::string time_axis(const contract::TimeSpan& drawn) {
    constexpr std::int64_t Hour = 3600;
    constexpr std::int64_t Day = 24 * Hour;
    const std::int64_t length = drawn.to - drawn.from;
    const char* const form = length <= 3 * Day ? "%m-%d\\n%H:%M" : length <= 400 * Day ? "%m-%d" : "%Y-%m";
    const std::int64_t step = std::max(Hour, length / 5 / Hour * Hour);
    return fmt::format("set xdata time\nset timefmt '%s'\nset format x \"{}\"\nset xtics {}\n", form, step);
}

/// Points as gnuplot wants them, an empty line for each hole. `drawn` grows by their times.
std::string points_of(ArchiveTable& table, std::int64_t period, contract::TimeSpan& drawn) {
    std::string points;
    std::int64_t last = 0;
    while (table.next()) {
        const contract::ArchiveCell& cell = table.cells()[0];
        if (!cell.there || cell.value.ends_with('f') || cell.value.ends_with('n')) continue;
        if (!points.empty() && table.time() - last > period) points += '\n';
        points += fmt::format("{} {}\n", as_local(table.time()), cell.value);
        last = table.time();
        drawn.from = std::min(drawn.from, last);
        drawn.to = std::max(drawn.to, last);
    }
    return points;
}

std::string terminal_words() {
    winsize size{};
    constexpr unsigned Narrow = 79;
    constexpr unsigned Low = 24;
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) size = {Low, Narrow + 1, 0, 0};
    return fmt::format("set terminal dumb noenhanced size {},{}\n", std::max<unsigned>(size.ws_col, 40) - 1,
                       std::max<unsigned>(size.ws_row, 12) - 2);
}

/// The words of gnuplot for the file's ending; the chart goes to gnuplot's standard output.
std::string output_words(const std::string& output) {
    if (output.empty()) return terminal_words();
    if (output.ends_with(".svg")) return "set terminal svg noenhanced size 1200,600 background 'white'\n";
    if (output.ends_with(".png")) return "set terminal pngcairo noenhanced size 1200,600\n";
    throw Failure{"a chart goes to a file that ends in .svg or .png", Usage};
}

/// Runs gnuplot over a script. A file is there when its chart is whole; until then an older one stays.
void draw(const std::string& script, const std::string& output) {
    const std::string unfinished = output + ".part";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> words(std::tmpfile(), std::fclose);
    if (words == nullptr || std::fwrite(script.data(), 1, script.size(), words.get()) != script.size() ||
        std::fflush(words.get()) != 0) {
        throw Failure{std::string("no room for a temporary file: ") + std::strerror(errno)};
    }
    std::rewind(words.get());
    if (!output.empty()) {
        // Opened here first, so that what is wrong with it can be told.
        const int file = ::open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (file < 0) throw Failure{unfinished + ": " + std::strerror(errno)};
        ::close(file);
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ::fileno(words.get()), STDIN_FILENO);
    if (!output.empty()) {
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, unfinished.c_str(), O_WRONLY | O_TRUNC, 0);
    }
    char program[] = "gnuplot";
    char* const arguments[] = {program, nullptr};
    pid_t pid = 0;
    const auto fail = [&](const char* text) {
        if (!output.empty()) ::unlink(unfinished.c_str());
        throw Failure{text};
    };
    const int error = ::posix_spawnp(&pid, program, &actions, nullptr, arguments, environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        fail("charts need gnuplot: apt-get install gnuplot-nox");
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) continue;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) fail("gnuplot could not draw it");
    if (!output.empty() && std::rename(unfinished.c_str(), output.c_str()) != 0) {
        throw Failure{output + ": " + std::strerror(errno)};
    }
}

int run_plot(const Words& words, const Console& console) {
    const contract::MeterSystem meter = words.meter();
    const std::int64_t period = words.daily ? 90000 : 3600;  // a day can have 25 hours
    const contract::Units units = contract::read_units();
    std::string script = output_words(words.output);
    std::string lines;
    contract::TimeSpan drawn{.from = std::numeric_limits<std::int64_t>::max(), .to = 0};
    for (const std::string& name : words.names) {
        contract::ArchiveQuestion question = words.question(console);
        question.names = {name};
        ArchiveTable table(words.folder(), words.kind(), question);
        const std::string points = points_of(table, period, drawn);
        tell_unreadable(table);
        if (points.empty())
            throw Failure{fmt::format("{}/{} has no values of {} then", meter.uuid, meter.system, name)};
        const std::string block =
            fmt::format("$data{}", lines.empty() ? 0 : std::count(lines.begin(), lines.end(), '$'));
        script += fmt::format("{} << EOD\n{}EOD\n", block, points);
        lines += fmt::format("{}{} using 1:2 with lines title {}", lines.empty() ? "plot " : ", ", block,
                             gnuplot_text(title_of(name, meter, units)));
    }
    script += fmt::format("set title {}\n", gnuplot_text(fmt::format("{}/{}", meter.uuid, meter.system)));
    script += time_axis(drawn) + "set grid\nset key below\n";
    draw(script + lines + '\n', words.output);
    return Done;
}

}  // namespace

Command plot_command(CLI::App& app, Console& console) {
    const auto words = std::make_shared<Words>();
    CLI::App* const command = app.add_subcommand("plot", "a chart of archives, in the terminal or in a file");
    add_span_options(*command, *words);
    command->add_option("NAME", words->names, "archives, such as A20 A21; daily ones have numbers of their own")
        ->required();
    command->add_option("--output", words->output, "FILE.svg or FILE.png; the terminal without it")->type_name("FILE");
    command->add_flag("--staged", words->staged, "the working folder of a driver that hands over whole passes");
    return {command, [words, &console] {
                const contract::ArchiveEntry* const entry = contract::find_archive(words->names.front());
                words->daily = entry != nullptr && entry->kind == ArchiveKind::Daily;
                return run_plot(*words, console);
            }};
}

}  // namespace ctl
