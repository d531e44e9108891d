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

#include <CLI/CLI.hpp>

#include "config_service.h"
#include "desk_meter.h"
#include "pty_line.h"
#include "real_time.h"

namespace {

constexpr int BadUsage = 2;  // exit status

struct Options {
    sim::DeskRules rules{.line = "/tmp/heatmeter-line"};
    std::vector<std::string> meters;
    int port = 8082;
    std::string service = "right";
    std::string trace_path;
    std::string dump_path;
    double run_seconds = 0;  // 0: for ever
};

constexpr char Description[] =
    "Puts simulated heat meters on a serial line (a pseudo-terminal) and answers as the gateway's configuration\n"
    "service, so that heatmeterd, or any other program, can read them. Ends at Ctrl-C, and takes its link away.\n";

std::string more_help() {
    std::string text =
        "A METER is a list of KEY=VALUE, with commas between them. All may be left out:\n"
        "  type=km5        one of the types below\n"
        "  uuid=m1         its name for the configuration service; the second one is m2, ...\n"
        "  serial=12345678 its serial number, and so its address; the second one has 12345679, ...\n"
        "  systems=1       how many heat systems, or their types: heating+gvs\n"
        "  line=PATH       a line of its own, in the place of --link\n"
        "  port=PATH, speed=N, parity=N|E, alias=NAME, manufacturer=TEXT\n"
        "                  what the service tells of it, when that is to differ from what is true\n"
        "  model=2         model within the type; firmware=2.15; clock=SECONDS that its clock is ahead;\n"
        "                  drift=PPM that it gains; events=4 in its past\n"
        "  T1=71.25        a present value, by the meter's own name for it\n"
        "Types:\n";
    for (const sim::MeterType& type : sim::meter_types()) {
        text +=
            "  " + std::string(type.name) + std::string(16 - std::string(type.name).size(), ' ') + type.summary + "\n";
    }
    text +=
        "\n"
        "Examples. Two meters on /tmp/heatmeter-line, and the daemon that reads them (it keeps archives in\n"
        "/mnt/storage, which must be writable):\n"
        "  heatmeter-sim --meter uuid=m1,model=2 --meter uuid=m2,model=6 &\n"
        "  heatmeterd KM5 -r m1 m2\n"
        "A KM5-6i with two subsystems and a week of archives, on a bad line, with a record of all that is said:\n"
        "  heatmeter-sim --meter type=km56i,systems=2 --history-days 7 --noise 0.05 --silence 0.05 \\\n"
        "                --trace /tmp/line.txt\n"
        "Two lines at once:\n"
        "  heatmeter-sim --meter uuid=a,line=/tmp/line-a --meter uuid=b,type=att,line=/tmp/line-b\n"
        "A day in ten minutes, for both programs (package faketime; the silence that ends an answer stays 0.6 s):\n"
        "  faketime -f '@2024-03-02 08:20:00 x144' sh -c 'heatmeter-sim --meter uuid=m1 & heatmeterd KM5 -r m1'\n";
    return text;
}

/// Reads the command line; an exit status when there is nothing more to do.
std::optional<int> read_options(int argc, char** argv, Options& options) {
    CLI::App app(Description, "heatmeter-sim");
    app.footer(more_help());
    app.get_formatter()->column_width(26);
    app.add_option("-m,--meter", options.meters, "A meter, see below; may be repeated")
        ->type_name("METER")
        ->allow_extra_args(false);
    app.add_option("-l,--link", options.rules.line, "Path of the line: a link to the pseudo-terminal")
        ->type_name("PATH")
        ->capture_default_str();
    app.add_option("-p,--port", options.port, "TCP port of the configuration service on 127.0.0.1; 0: any free one")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    app.add_option("-s,--speed", options.rules.speed, "Speed of the line in bits per second, also told by the service")
        ->type_name("BAUD")
        ->capture_default_str();
    app.add_option("-d,--history-days", options.rules.history_days, "Days of archive records that the meters hold")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 3650.0));
    app.add_flag("--sway", options.rules.sway, "Present values move with time");

    const CLI::Range rate(0.0, 1.0);
    app.add_option("--noise", options.rules.noise, "Rate 0..1 of answers with noise in front")
        ->type_name("RATE")
        ->check(rate);
    app.add_option("--silence", options.rules.silence, "Rate of requests that are not answered")
        ->type_name("RATE")
        ->check(rate);
    app.add_option("--bad-sums", options.rules.bad_sums, "Rate of answers with a wrong check sum")
        ->type_name("RATE")
        ->check(rate);
    app.add_option("--seed", options.rules.seed, "What the misbehaviour is drawn from; the same seed, the same faults")
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--service", options.service,
                   "The configuration service: right, nonsense (answers no JSON), mute (closes without an answer), off")
        ->type_name("HOW")
        ->capture_default_str()
        ->check(CLI::IsMember({"right", "nonsense", "mute", "off"}));

    app.add_option("--trace", options.trace_path, "Writes all that is said on the lines, in hex with times")
        ->type_name("FILE");
    app.add_option("--dump", options.dump_path,
                   "At the end: writes what the meters hold, and what the service was asked")
        ->type_name("FILE");
    app.add_option("--run-seconds", options.run_seconds, "Ends by itself after so many seconds of real time")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : BadUsage;
    }
    if (options.meters.empty()) options.meters = {"type=km5"};
    return std::nullopt;
}

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
