// heatmeter-sim: simulated meters on pseudo-terminals, and the configuration service that knows them.

#include <sys/signalfd.h>

#include <csignal>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "control_socket.h"
#include "desk.h"
#include "heatmeter_sim_options.h"
#include "real_time.h"

namespace {

/// SIGINT, SIGTERM and SIGHUP no longer end the process, they make a descriptor readable.
int catch_ending() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return ::signalfd(-1, &signals, SFD_CLOEXEC);
}

/// Until `ending` is readable, or the moment `until` of sim::real_time() has come.
void run(sim::Desk& desk, std::optional<sim::ControlSocket>& control, int ending, std::optional<sim::Micros> until) {
    while (!until || sim::real_time() < *until) {
        std::vector<pollfd> watched{{.fd = ending, .events = POLLIN, .revents = 0}};
        desk.watch(watched);
        if (control) control->watch(watched);
        std::optional<sim::Micros> next = desk.due();
        if (until && (!next || *until < *next)) next = until;
        sim::poll_until(watched, next);
        if (watched[0].revents != 0) return;
        desk.work();
        if (control) control->work([&](const std::string& line) { return desk.obey(line); });
    }
}

int simulate(Options& options) {
    const int ending = catch_ending();
    const sim::Micros start = sim::real_time();
    options.desk.rules.now = std::time(nullptr);
    std::optional<sim::ControlSocket> control;
    if (!options.control_path.empty()) control.emplace(options.control_path);
    sim::Desk desk(options.desk);
    desk.tell(std::cout);
    if (control) std::cout << "control socket at " << options.control_path << '\n';
    std::cout << "ready" << std::endl;
    std::optional<sim::Micros> until;
    if (options.run_seconds > 0) until = start + static_cast<sim::Micros>(options.run_seconds * 1e6);
    run(desk, control, ending, until);
    if (options.dump_path.empty()) return 0;
    std::ofstream file(options.dump_path, std::ios::trunc);
    desk.dump(file);
    return 0;
}

/// The words behind the first one, the path of the socket, are one line.
int tell(const std::vector<std::string>& words) {
    std::string line;
    for (std::size_t i = 1; i < words.size(); ++i) line += (i > 1 ? " " : "") + words[i];
    return sim::tell(words[0], line, std::cout) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (const auto status = read_options(argc, argv, options)) return *status;
    try {
        return options.tell.empty() ? simulate(options) : tell(options.tell);
    } catch (const std::invalid_argument& error) {
        std::cerr << "heatmeter-sim: " << error.what() << '\n';
        return BadUsage;
    } catch (const std::exception& error) {
        std::cerr << "heatmeter-sim: " << error.what() << '\n';
        return 1;
    }
}
