// heatmeterctl over ten years of an hourly archive of 28 files, against what else one would take for it; and a pass of
// the daemon while somebody reads.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <spawn.h>

#include "ground.h"
#include "ratio.h"

namespace {

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

constexpr int Files = 28;
constexpr int Lines = 87600;  // hours of ten years
constexpr int Newest = 1764547200;
constexpr int Hour = 3600;
constexpr long MostKilobytes = 64 * 1024;

struct Outcome {
    double seconds;
    long peak_kilobytes;
};

/// Runs a program to its end; what it prints goes to /dev/null, what it reads comes from a file.
Outcome run(const Words& words, const std::string& input = "/dev/null") {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int status = 0;
    rusage usage{};
    const double seconds = seconds_of(1, [&] {
        if (::posix_spawnp(&pid, words[0].c_str(), &actions, nullptr, arguments.data(), environ) != 0) {
            throw std::runtime_error("cannot run " + words[0]);
        }
        ::wait4(pid, &status, 0, &usage);
    });
    ::posix_spawn_file_actions_destroy(&actions);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(words[0] + " has failed");
    return {seconds, usage.ru_maxrss};
}

/// The ten years, made once.
class Years {
  public:
    Years() : folder(root() + "/mnt/storage/m1/1/tc_archives") {
        fs::create_directories(folder);
        std::ofstream import(root() + "/import.sql");
        import << "CREATE TABLE line(time INTEGER, quality INTEGER, value REAL);\n.mode csv\n";
        for (int i = 1; i <= Files; ++i) {
            const std::string path = folder + "/A" + std::to_string(i);
            std::ofstream file(path);
            double value = i;
            for (int line = Lines; line > 0; --line, value += 1.25) {
                file << Newest - line * Hour << ",192," << std::to_string(value) << '\n';
            }
            cat.push_back(path);
            import << ".import " << path << " line\n";
        }
    }
    ~Years() { fs::remove_all(root()); }
    Years(const Years&) = delete;
    Years& operator=(const Years&) = delete;

    static std::string root() { return fs::temp_directory_path() / ("heatmeter-years-" + std::to_string(::getpid())); }
    static Words ctl(const Words& words) {
        Words all = {HEATMETERCTL, "--root", root()};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }
    /// Into a new database.
    static double import() {
        const std::string database = root() + "/import.db";
        fs::remove(database);
        return run({"sqlite3", database}, root() + "/import.sql").seconds;
    }

    Words cat = {"cat"};

  private:
    std::string folder;
};

const Years& years() {
    static const Years all;
    return all;
}

Side ctl(const Words& words, long& peak) {
    return [words, &peak] {
        const Outcome outcome = run(Years::ctl(words));
        peak = std::max(peak, outcome.peak_kilobytes);
        return outcome.seconds;
    };
}

void look_at_memory(benchmark::State& state, long peak) {
    state.counters["peak_KiB"] = static_cast<double>(peak);
    if (peak >= MostKilobytes) throw std::runtime_error("more than 64 MiB of memory");
}

const Words Csv = {"archive", "m1", "--format", "csv"};

void csv_and_cat(benchmark::State& state) {
    const Words& cat = years().cat;
    long peak = 0;
    compare(
        state, "ten years of 28 files to CSV", ctl(Csv, peak), "cat of the same files",
        [&] { return run(cat).seconds; }, times_as_long(10.0));
    look_at_memory(state, peak);
}

void csv_and_import(benchmark::State& state) {
    years();
    long peak = 0;
    compare(state, "ten years of 28 files to CSV", ctl(Csv, peak), "sqlite3's .import", Years::import,
            times_as_long(1.0));
}

void last_week(benchmark::State& state) {
    constexpr double Allowed = 0.020;  // seconds
    years();
    Words words = Csv;
    words.insert(words.end(), {"--from", "@" + std::to_string(Newest - 168 * Hour)});
    long peak = 0;
    compare(
        state, "the last week of ten years", ctl(words, peak), "starting the program, and 20 ms",
        [&peak] { return ctl({"list"}, peak)() + Allowed; }, times_as_long(1.0));
}

void first_export(benchmark::State& state) {
    years();
    const std::string database = Years::root() + "/export.db";
    long peak = 0;
    const Side side = ctl({"export", "--sqlite", database}, peak);
    const auto first = [&] {
        fs::remove(database);
        return side();
    };
    compare(state, "ten years into a database", first, "sqlite3's .import", Years::import, times_as_long(1.0));
    look_at_memory(state, peak);
    const double again = side();
    add_figure(state, "the same again, nothing new", again, "the first time", first(), times_faster(50.0));
}

BENCHMARK(csv_and_cat)->Name("client/csv_cat")->Iterations(7)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(csv_and_import)->Name("client/csv_import")->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(last_week)->Name("client/last_week")->Iterations(9)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(first_export)->Name("client/export")->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
