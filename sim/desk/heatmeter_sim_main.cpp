// heatmeter-sim: simulated meters on pseudo-terminals, and the configuration service that knows them.

#include <sys/signalfd.h>

#include <csignal>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config_service.h"
#include "desk_meter.h"
#include "heatmeter_sim_options.h"
#include "pty_line.h"
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

class Desk {
  public:
    explicit Desk(const Options& options) : trace_(options.trace_path) {
        if (options.service != "off") service_.emplace(options.port);
        if (options.service == "nonsense") service_->answer_with("Good morning!");
        if (options.service == "mute") service_->hang_up();
        for (const std::string& words : options.meters) {
            add_meter(sim::make_desk_meter(words, static_cast<unsigned>(meters_.size()) + 1, options.rules),
                      options.rules.speed);
        }
    }

    void tell() const {
        for (const auto& line : lines_) std::cout << "line " << line->link() << " is " << line->device() << '\n';
        for (const auto& meter : meters_) {
            std::cout << "meter " << meter.uuid << " with serial number " << meter.settings.serial << " on "
                      << meter.line << '\n';
        }
        if (service_) std::cout << "configuration service at " << service_->address() << '\n';
        std::cout << "ready" << std::endl;
    }

    /// Until `ending` is readable, or the moment `until` of sim::real_time() has come.
    void run(int ending, std::optional<sim::Micros> until) {
        std::vector<pollfd> watched{{.fd = ending, .events = POLLIN, .revents = 0}};
        for (const auto& line : lines_) watched.push_back({.fd = line->fd(), .events = POLLIN, .revents = 0});
        while (!until || sim::real_time() < *until) {
            std::optional<sim::Micros> next = until;
            for (const auto& line : lines_) {
                const std::optional<sim::Micros> due = line->due();
                if (due && (!next || *due < *next)) next = due;
            }
            sim::poll_until(watched, next);
            if (watched[0].revents != 0) return;
            for (const auto& line : lines_) line->work();
        }
    }

    void dump(const std::string& path) const {
        if (path.empty()) return;
        std::ofstream file(path, std::ios::trunc);
        for (const auto& meter : meters_) meter.made.dump(file, meter.uuid);
        if (!service_) return;
        for (const std::string& request : service_->requests()) file << "request " << request << '\n';
    }

  private:
    void add_meter(sim::DeskMeter meter, unsigned speed) {
        line_at(meter.line, speed).connect(*meter.made.meter);
        if (service_) service_->set_meter(meter.uuid, meter.settings);
        meters_.push_back(std::move(meter));
    }

    sim::PtyLine& line_at(const std::string& link, unsigned speed) {
        for (const auto& line : lines_) {
            if (line->link() == link) return *line;
        }
        return *lines_.emplace_back(std::make_unique<sim::PtyLine>(link, speed, trace_));
    }

    sim::LineTrace trace_;
    std::optional<sim::ConfigService> service_;
    std::vector<sim::DeskMeter> meters_;
    std::vector<std::unique_ptr<sim::PtyLine>> lines_;
};

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (const auto status = read_options(argc, argv, options)) return *status;
    const int ending = catch_ending();
    options.rules.now = std::time(nullptr);
    try {
        const sim::Micros start = sim::real_time();
        Desk desk(options);
        desk.tell();
        std::optional<sim::Micros> until;
        if (options.run_seconds > 0) until = start + static_cast<sim::Micros>(options.run_seconds * 1e6);
        desk.run(ending, until);
        desk.dump(options.dump_path);
    } catch (const std::invalid_argument& error) {
        std::cerr << "heatmeter-sim: " << error.what() << '\n';
        return BadUsage;
    } catch (const std::exception& error) {
        std::cerr << "heatmeter-sim: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
