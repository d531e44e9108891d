// heatmeter-view: a chart's points out of ten years, a scrape of thirty meters beside the exporter that every machine
// has, and what it takes while nothing happens.

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "ratio.h"
#include "view_program.h"

namespace {

namespace fs = std::filesystem;

constexpr int Meters = 30;
constexpr int Items = 40;
constexpr int Lines = 87600;  // hours of ten years

/// A gateway's files in a folder of their own.
class Files {
  public:
    Files() : root(fs::temp_directory_path() / ("heatmeter-view-" + std::to_string(::getpid()))) {
        fs::create_directories(root / "tmp");
        fs::create_directories(root / "mnt/storage");
    }
    ~Files() { fs::remove_all(root); }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    std::string path(const std::string& name) const { return (root / name).string(); }

    /// Ten years of one hourly archive.
    std::string write_years() const {
        const std::string folder = path("mnt/storage/m1/1/tc_archives");
        fs::create_directories(folder);
        std::ofstream file(folder + "/A20");
        unsigned random = 1;
        for (int line = Lines; line > 0; --line) {
            random = random * 1103515245 + 12345;
            file << 1764547200 - line * 3600 << ",192," << std::to_string(60.0 + (random >> 16) % 3000 / 100.0) << '\n';
        }
        return folder + "/A20";
    }

    /// The values of a meter, as a pass leaves them.
    void write_values(int meter, int pass) const {
        static const char* const names[] = {"T1", "T2", "T3", "P1",  "P2",  "P3",  "M1", "M2", "M3",  "M4",
                                            "Q1", "Q2", "Q3", "IM1", "IM2", "IM3", "IT", "IE", "IQ1", "IQ2"};
        for (int i = 0; i < Items; ++i) {
            const std::string folder =
                path("tmp/meter-" + std::to_string(meter) + '/' + std::to_string(1 + i / 20) + "/tc_items");
            fs::create_directories(folder);
            std::ofstream(folder + '/' + names[i % 20]) << std::to_string(meter + i + pass * 0.25) << '\n';
        }
    }

  private:
    fs::path root;
};

void points_of_years(benchmark::State& state) {
    const Files files;
    const std::string path = files.write_years();
    const ViewProgram program(files.path(""));
    const auto scan = [&] {
        return seconds_of(1, [&] {
            std::ifstream file(path);
            double greatest = 0;
            for (std::string line; std::getline(file, line);) {
                std::int64_t time = 0;
                double value = 0;
                const char* const end = line.data() + line.size();
                std::from_chars(line.data(), end, time);
                std::from_chars(line.data() + line.rfind(',') + 1, end, value);
                if (time > 0) greatest = std::max(greatest, value);
            }
            benchmark::DoNotOptimize(greatest);
        });
    };
    const auto chart = [&] {
        return seconds_of(1, [&] { ask(program.port(), "/api/meters/m1/1/archive?names=A20&points=2000"); });
    };
    scan();
    chart();
    compare(state, "2000 points of ten years, asked for", chart, "one plain scan of the file, line by line", scan,
            times_as_long(1.5));
}

/// Between two scrapes a quarter of the meters has had a pass.
void scrape(benchmark::State& state) {
    const Files files;
    for (int meter = 0; meter < Meters; ++meter) files.write_values(meter, 0);
    const ViewProgram program(files.path(""));
    ask(program.port(), "/metrics");
    // The exporter tells the very same lines.
    fs::create_directories(files.path("text"));
    const int other_port = 20000 + ::getpid() % 20000;
    const pid_t exporter = start_program(
        "prometheus-node-exporter --collector.disable-defaults --web.disable-exporter-metrics --collector.textfile "
        "--collector.textfile.directory " +
        files.path("text") + " --web.listen-address 127.0.0.1:" + std::to_string(other_port) + " 2>/dev/null");
    const int fd = connect_to(program.port());
    const std::string request = "GET /metrics HTTP/1.0\r\n\r\n";
    [[maybe_unused]] const auto sent = ::write(fd, request.data(), request.size());
    std::string answer(1 << 22, '\0');
    std::size_t size = 0;
    for (ssize_t count = 0; (count = ::read(fd, answer.data() + size, answer.size() - size)) > 0;) {
        size += static_cast<std::size_t>(count);
    }
    ::close(fd);
    answer.resize(size);
    std::ofstream(files.path("text/meters.prom")) << answer.substr(answer.find("\r\n\r\n") + 4);
    for (int tries = 0;; ++tries) {
        try {
            ask(other_port, "/metrics");
            break;
        } catch (const std::runtime_error&) {
            if (tries == 100) throw std::runtime_error("prometheus-node-exporter does not answer");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    int pass = 0;
    const auto cpu_of_scrapes = [&](pid_t pid, int port) {
        constexpr int Scrapes = 20;
        double used = 0;
        for (int i = 0; i < Scrapes; ++i) {
            ++pass;
            for (int meter = pass % 4; meter < Meters; meter += 4) files.write_values(meter, pass);
            const double before = cpu_of(pid);
            if (ask(port, "/metrics") < 100'000) throw std::runtime_error("a scrape of too little");
            used += cpu_of(pid) - before;
        }
        return used / Scrapes;
    };
    compare(
        state, "CPU of a scrape of 30 meters", [&] { return cpu_of_scrapes(program.pid(), program.port()); },
        "prometheus-node-exporter with the same lines", [&] { return cpu_of_scrapes(exporter, other_port); },
        times_as_long(1.0));
    end_program(exporter);
}

/// Thirty meters, ten streams, and nothing happens.
void at_rest(benchmark::State& state) {
    constexpr int Streams = 10;
    constexpr int Seconds = 60;
    constexpr double MostOfACore = 0.001;
    constexpr long MostKilobytes = 8 * 1024;
    const Files files;
    for (int meter = 0; meter < Meters; ++meter) files.write_values(meter, 0);
    const ViewProgram program(files.path(""));
    std::vector<int> streams(Streams);
    for (int& stream : streams) stream = listen_to(program.port());
    ask(program.port(), "/api/overview");
    for ([[maybe_unused]] auto turn : state) {
        const double before = cpu_of(program.pid());
        std::this_thread::sleep_for(std::chrono::seconds(Seconds));
        const double used = cpu_of(program.pid()) - before;
        state.SetIterationTime(used);
        add_figure(state, "CPU of a minute with ten streams at rest", used, "0.1 % of a core", Seconds * MostOfACore,
                   times_as_long(1.0));
    }
    const long memory = own_memory_of(program.pid());
    state.counters["own_KiB"] = static_cast<double>(memory);
    for (const int stream : streams) ::close(stream);
    if (memory > MostKilobytes) throw std::runtime_error("more than 8 MiB of own memory");
}

BENCHMARK(points_of_years)->Name("view/points")->Iterations(21)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(scrape)->Name("view/scrape")->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(at_rest)->Name("view/rest")->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
