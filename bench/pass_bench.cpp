// A whole pass over a KM5: how much of the time that the line needs the daemon spends computing, and how much longer
// than the silences of the line a pass lasts by a clock on the wall.

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "driver/line_settings.h"
#include "drivers/km5/km5.h"
#include "ground.h"
#include "km5_meter.h"
#include "pty_meter.h"
#include "ratio.h"
#include "sim_gateway.h"
#include "view_program.h"

namespace {

constexpr int Speed9600 = 3;         // speed code
constexpr int NoParity = 2;          // parity code
constexpr double SilenceTime = 0.6;  // VTIME of this family, seconds
constexpr unsigned Hour = 3600;
constexpr const char* Device = "/dev/ttyS1";

/// A driver that has its configuration, its port and the meter's description.
class Km5 {
  public:
    Km5(const std::string& device, const sim::Km5Config& meter) : driver(Ground::Uuid, false, false) {
        driver.take_settings({.tc_sernum = meter.serial, .subsystem_count = 1});
        driver.set_tty_fd(open_line(device, LineOfKm5, Speed9600, NoParity));
        driver.do_init();
    }
    KM5 driver;
};

/// Somebody who does something over and over again, until it goes.
class Neighbour {
  public:
    explicit Neighbour(const std::function<void()>& work) : pid(::fork()) {
        if (pid != 0) return;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) work();
    }
    ~Neighbour() { end_program(pid); }
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

  private:
    pid_t pid;
};

/// Hours follow one another in simulated time; in each a pass reads the current values, the hourly records and the
/// daily ones, over a line of 9600 baud. What the simulated machine and meter compute counts as the daemon's.
void cpu_of_pass(benchmark::State& state) {
    const Ground ground(Ground::InMemory);
    sim::SimGateway machine(ground.root(), sim::local_seconds("2024-03-02 10:10"));
    set_gateway(&machine);
    sim::Km5Meter meter({.model = 2});
    meter.record_archives(true, "2024-03-02 00:00");
    machine.connect(Device, meter);
    Km5 km5(Device, meter.config());

    double on_the_line = 0.0;
    const auto pass = [&] {
        machine.sleep(Hour);
        machine.forget_exchanges();
        const double begun = machine.seconds();
        const double used = cpu_seconds_of(1, [&] { km5.driver.run_main(); });
        on_the_line = machine.seconds() - begun;
        if (meter.requests(CmdArchiveRecord) == 0) throw std::logic_error("no archive was due");
        meter.forget_requests();
        return used;
    };
    compare(
        state, "CPU time of a whole pass", pass, "its time on the line", [&] { return on_the_line; }, share(1000.0));
    set_gateway(nullptr);
}

/// One pass over a pseudo-terminal, by the clock on the wall, against the silences that ended its answers, each as long
/// as this machine's kernel makes it (0.6 s and up to two ticks of its timer). The meter answers at once.
void wall_of(benchmark::State& state, const char* name, const std::function<bool(KM5&)>& pass) {
    const Ground ground(Ground::OnDisk);
    DeskGateway machine(ground);
    sim::Km5Meter meter({.model = 2});
    meter.store_hourly({.at = machine.now() / Hour * Hour, .T1 = 71.25F});
    const PtyMeter line(meter);
    Km5 km5(line.device(), meter.config());

    const int silences = machine.silences();
    const double silent_seconds = machine.silent_seconds();
    double wall = 0.0;
    bool complete = false;
    for ([[maybe_unused]] auto turn : state) {
        wall = seconds_of(1, [&] { complete = pass(km5.driver); });
        state.SetIterationTime(wall);
    }
    if (!complete) throw std::logic_error("the pass was not complete");
    state.counters["nominal"] = wall / ((machine.silences() - silences) * SilenceTime);
    add_figure(state, name, wall, "its silences", machine.silent_seconds() - silent_seconds, times_as_long(1.02));
}

void wall_of_values(benchmark::State& state) {
    wall_of(state, "a pass of current values", [](KM5& driver) {
        const bool complete = driver.get_all_current_values();
        driver.flush_instant_data();
        return complete;
    });
}

void wall_of_archives(benchmark::State& state) {
    wall_of(state, "a pass of an hour's archive", [](KM5& driver) { return driver.get_archives(ArchiveHourly); });
}

/// The same while a client reads the meter's archives and values without a pause.
void wall_beside_reader(benchmark::State& state) {
    wall_of(state, "the same while heatmeterctl reads on and on", [](KM5& driver) {
        const std::string ctl = std::string(HEATMETERCTL) + " --root " + gateway().root();
        const std::string uuid(Ground::Uuid);
        const std::string script =
            "(" + ctl + " archive " + uuid + "; " + ctl + " values " + uuid + ") >/dev/null 2>&1";
        const Neighbour reader([&] { [[maybe_unused]] const int status = std::system(script.c_str()); });
        return driver.get_archives(ArchiveHourly);
    });
}

/// The same while heatmeter-view has hundreds of connections that say nothing, and is asked without a pause.
void wall_beside_page(benchmark::State& state) {
    wall_of(state, "the same while heatmeter-view is harassed", [](KM5& driver) {
        const ViewProgram program(gateway().root());
        std::vector<int> silent(300);
        for (int& connection : silent) connection = connect_to(program.port());
        const Neighbour asker([&] {
            ask(program.port(), "/metrics");
            ask(program.port(), std::string("/api/meters/") + Ground::Uuid + "/1/values");
        });
        const bool complete = driver.get_archives(ArchiveHourly);
        for (const int connection : silent) ::close(connection);
        return complete;
    });
}

BENCHMARK(cpu_of_pass)->Name("pass/cpu")->Iterations(100)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(wall_of_values)->Name("pass/wall_values")->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(wall_of_archives)->Name("pass/wall_archives")->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(wall_beside_reader)->Name("pass/wall_reader")->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(wall_beside_page)->Name("pass/wall_page")->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
