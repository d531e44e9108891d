#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <fmt/format.h>
#include <json/value.h>

#include "contract/frame.h"
#include "contract/installation.h"
#include "contract/items.h"
#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "ctl/bus.h"
#include "ctl/commands.h"
#include "ctl/probe_meters.h"

namespace ctl {

namespace {

constexpr unsigned UsualSpeed = 9600;
constexpr double SettleSeconds = 4;    // longer than any exchange that had begun when the flag was made
constexpr double ListenSeconds = 0.5;  // when no daemon runs
constexpr double IdleSeconds = 2.5;    // without a word in the log of a meter: its pass is over

struct Words {
    std::string family;
    std::string port;
    std::int64_t serial = -1;
    unsigned speed = 0;
    std::string parity;
    bool scan = false;
    bool anyway = false;
    bool now = false;
    std::string wait = "1m";
};

/// The links of two families tell on standard output what they do; it is ours.
class QuietOutput {
  public:
    QuietOutput() : kept(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
        std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere < 0) return;
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    ~QuietOutput() {
        std::fflush(stdout);
        if (kept < 0) return;
        ::dup2(kept, STDOUT_FILENO);
        ::close(kept);
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

  private:
    const int kept;
};

/// What happens meanwhile, on standard error when that is a terminal: each text in the place of the one before.
class Progress {
  public:
    ~Progress() { show(""); }
    void show(const std::string& text) const {
        if (::isatty(STDERR_FILENO) != 1) return;
        std::fprintf(stderr, "\r\033[K%s", contract::for_terminal(text).c_str());
        std::fflush(stderr);
    }
};

struct Found {
    ProbedMeter meter;
    LineChoice line;
};

std::vector<contract::Process> daemons_of(dev_t port) {
    std::vector<contract::Process> found;
    for (contract::Process& process : contract::processes()) {
        struct stat status {};
        if (process.has_port == false) continue;
        if (!process.port.empty() && gateway().look_at(process.port, status) == 0 && status.st_rdev != port) continue;
        found.push_back(std::move(process));
    }
    return found;
}

/// A meter's driver has said something in its log just now. One that reaches no meter is in no dialog.
bool is_in_dialog(const contract::Process& process) {
    // A question of these two stands alone.
    if (process.family == contract::KM5 || process.family == contract::VISTmodbus) return false;
    const timeval now = gateway().time_of_day();
    for (const std::string& uuid : process.uuids) {
        const auto connected = contract::read_item(uuid, 1, "Connected");
        if (!connected || connected->text != "1") continue;
        for (const char* const ending : {".txt", ".debug.txt"}) {
            struct stat status {};
            if (gateway().look_at("/tmp/uni_logs." + uuid + ending, status) != 0) continue;
            const double age = static_cast<double>(now.tv_sec - status.st_mtim.tv_sec) +
                               static_cast<double>(now.tv_usec) / 1e6 -
                               static_cast<double>(status.st_mtim.tv_nsec) / 1e9;
            if (age < IdleSeconds) return true;
        }
    }
    return false;
}

/// A dialog of the daemon that we break into is lost, and with it what the pass would have read.
void await_end_of_pass(const std::vector<contract::Process>& daemons, std::int64_t patience, const Progress& progress) {
    const std::int64_t end = gateway().steady_microseconds() + patience * 1'000'000;
    while (std::ranges::any_of(daemons, is_in_dialog)) {
        const std::int64_t left = (end - gateway().steady_microseconds()) / 1'000'000;
        if (left <= 0) {
            throw Failure{
                "heatmeterd is in the middle of a pass: wait longer (--wait 10m), or break into it (--now), which may "
                "cost it records twice or a value of 0"};
        }
        progress.show(
            fmt::format("waiting for the end of the daemon's pass, {} at most", contract::duration_text(left)));
        heed_signals();
        gateway().sleep_nanoseconds(100'000'000);
    }
    heed_signals();
}

std::vector<LineChoice> chosen_lines(const ProbeFamily& family, const Words& words) {
    std::vector<LineChoice> chosen;
    std::string all;
    const std::vector<LineChoice> choices = line_choices(family);
    for (const LineChoice& choice : choices) {
        if (all.find(choice.text()) == std::string::npos) all += (all.empty() ? "" : "; ") + choice.text();
        const bool any_speed = words.speed == 0 && words.scan;
        const unsigned speed = words.speed != 0 ? words.speed : UsualSpeed;
        const bool any_parity = words.parity.empty() && words.scan;
        const char parity = words.parity.empty() ? choices.front().parity : words.parity.front();
        if ((any_speed || choice.speed == speed) && (any_parity || choice.parity == parity)) chosen.push_back(choice);
    }
    if (chosen.empty()) throw Failure{fmt::format("the daemon has no such line for this family: {}", all), Usage};
    return chosen;
}

std::vector<std::uint32_t> chosen_addresses(const ProbeFamily& family, const Words& words) {
    if (words.serial >= 0) return {static_cast<std::uint32_t>(words.serial)};
    if (family.needs_serial) {
        throw Failure{fmt::format("a {} is asked by its serial number: --serial N", family_name(family.family)), Usage};
    }
    if (!words.scan) return {family.first};
    std::vector<std::uint32_t> addresses;
    for (std::uint32_t address = family.first; address <= family.last; ++address) addresses.push_back(address);
    return addresses;
}

std::int64_t clock_gap(const std::tm& clock, std::int64_t asked) {
    std::tm tm = clock;
    tm.tm_isdst = local_time(asked).tm_isdst;  // the meter does not tell
    return make_time(tm) - asked;
}

std::string gap_text(std::int64_t gap) {
    if (gap > -2 && gap < 2) return "right";
    return contract::duration_text(gap < 0 ? -gap : gap) + (gap < 0 ? " behind" : " ahead");
}

std::string clock_text(const std::tm& tm) {
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour,
                       tm.tm_min, tm.tm_sec);
}

void print_found(const ProbeFamily& family, const std::vector<Found>& all, const std::vector<std::int64_t>& gaps) {
    const char* const address_name = family.needs_serial               ? "serial"
                                     : family.family == contract::VIST ? "network number"
                                                                       : "Modbus address";
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto& [meter, line] = all[i];
        std::vector<std::pair<std::string, std::string>> rows = {
            {"family", std::string(family_name(family.family))},
            {"model", meter.model},
            {"firmware", meter.firmware},
            {"serial", meter.serial},
        };
        if (!family.needs_serial) rows.emplace_back(address_name, std::to_string(meter.address));
        if (meter.clock) rows.emplace_back("clock", clock_text(*meter.clock) + ", " + gap_text(gaps[i]));
        rows.emplace_back("line", line.text());
        rows.emplace_back("settings",
                          fmt::format("serial {}, speed {}, parity {}", meter.address, line.speed, line.told));
        if (!meter.remark.empty()) rows.emplace_back("remark", meter.remark);
        if (i > 0) std::puts("");
        for (const auto& [name, value] : rows) {
            std::printf("%-14s  %s\n", name.c_str(), value.empty() ? "-" : contract::for_terminal(value).c_str());
        }
    }
}

void print_json_found(const ProbeFamily& family, const Words& words, const std::vector<Found>& all,
                      const std::vector<std::int64_t>& gaps, Bytes heard) {
    Json::Value whole;
    whole["family"] = std::string(family_name(family.family));
    whole["port"] = contract::valid_utf8(words.port);
    whole["meters"] = Json::arrayValue;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto& [meter, line] = all[i];
        Json::Value& entry = whole["meters"].append(Json::objectValue);
        const auto text = [](const std::string& value) {
            return value.empty() ? Json::Value() : Json::Value(contract::valid_utf8(value));
        };
        entry["address"] = meter.address;
        entry["model"] = text(meter.model);
        entry["firmware"] = text(meter.firmware);
        entry["serial"] = text(meter.serial);
        entry["clock"] = meter.clock ? Json::Value(clock_text(*meter.clock)) : Json::Value();
        entry["clock_gap_s"] = meter.clock ? Json::Value(Json::Int64(gaps[i])) : Json::Value();
        entry["speed"] = line.speed;
        entry["parity"] = std::string(1, line.parity);
        entry["settings_parity"] = std::string(1, line.told);
        entry["remark"] = text(meter.remark);
    }
    whole["heard_bytes"] = Json::UInt64(heard.size());
    print_json(whole);
}

/// What came instead of an answer.
std::string silence_text(const Words& words, Bytes heard) {
    if (heard.empty()) {
        return fmt::format("nothing heard on {}: cable, power, address{}", words.port,
                           words.scan ? "" : ", speed and parity (--scan tries them)");
    }
    return fmt::format("something heard on {} that is no answer of this family ({} bytes, such as {}): {}", words.port,
                       heard.size(), contract::hex_text(part_of(heard, 0, 8)),
                       words.scan ? "another family, or noise" : "another speed or parity (--scan), or another family");
}

int run_probe(const Words& words, const Console& console) {
    const contract::Family kind = contract::family_of(words.family);
    if (kind == contract::NoFamily) {
        throw Failure{"no family: \"" + words.family + "\" (KM5, VIST, VISTmodbus, SA94)", Usage};
    }
    if (!gateway().root().empty()) throw Failure{"--root is of files: a meter answers on this machine alone", Usage};
    const ProbeFamily& family = probe_family(kind);
    const std::vector<LineChoice> lines = chosen_lines(family, words);
    const std::vector<std::uint32_t> addresses = chosen_addresses(family, words);

    const auto patience = contract::parse_duration(words.wait);
    if (!patience) throw Failure{"no time: \"" + words.wait + "\" (such as 90s, 10m)", Usage};

    note_signals();
    std::vector<Found> found;
    std::vector<std::int64_t> gaps;
    std::vector<std::uint8_t> heard;
    {
        const Progress progress;
        const bool is_foreign = make_room(console, words.anyway);
        std::unique_ptr<PauseHold> hold;
        BorrowedLine line(words.port, family.close);
        const auto daemons = daemons_of(line.number());
        if (!is_foreign) {
            if (!words.now) await_end_of_pass(daemons, *patience, progress);
            hold = std::make_unique<PauseHold>(contract::PauseHolder{.command = "probe"});
        }
        progress.show("waiting until the line is quiet");
        line.await_quiet(daemons.empty() ? ListenSeconds : SettleSeconds);
        const QuietOutput quiet;
        BusMachine machine;
        std::size_t step = 0;
        for (const LineChoice& choice : lines) {
            line.set(line_termios(*family.line, choice.speed_code, choice.parity_code), hold.get());
            for (const std::uint32_t address : addresses) {
                ++step;
                progress.show(fmt::format("{}: {} of {}, address {}, {}", words.port, step,
                                          lines.size() * addresses.size(), address, choice.text()));
                auto meter = ask_meter(family, line.descriptor(), address, words.scan);
                if (!meter) continue;
                gaps.push_back(meter->clock ? clock_gap(*meter->clock, meter->clock_asked) : 0);
                found.push_back({std::move(*meter), choice});
            }
            if (!found.empty()) break;  // one line has one speed
        }
        heard = std::move(machine.heard);
    }
    if (console.json) {
        print_json_found(family, words, found, gaps, heard);
    } else {
        print_found(family, found, gaps);
    }
    std::fflush(stdout);
    if (found.empty()) throw Failure{silence_text(words, heard)};
    return Done;
}

}  // namespace

Command probe_command(CLI::App& app, Console& console) {
    const auto words = std::make_shared<Words>();
    CLI::App* const command = app.add_subcommand("probe", "is a meter there, and who; daemons wait meanwhile");
    command->add_option("FAMILY", words->family, "KM5, VIST, VISTmodbus or SA94")->required();
    command->add_option("--port", words->port, "the serial port")->required()->type_name("DEV");
    command->add_option("--serial", words->serial, "serial number, network number or Modbus address")
        ->check(CLI::Range(std::int64_t{0}, std::int64_t{99999999}));
    command->add_option("--speed", words->speed, "bits per second; 9600 without it")->type_name("BAUD");
    command->add_option("--parity", words->parity, "of the line; without it what the setting N makes of the family")
        ->check(CLI::IsMember({"N", "E", "O"}));
    command->add_flag("--scan", words->scan, "tries all speeds and parities, and all addresses where there are few");
    command->add_flag("--now", words->now, "although a daemon is in the middle of a pass, which may fail then");
    command->add_option("--wait", words->wait, "how long the end of the daemon's pass is waited for; 1m without it")
        ->type_name("TIME");
    command->add_flag("--anyway", words->anyway, "although somebody else holds the lines");
    command->add_flag("--json", console.json, "JSON instead of text");
    return {command, [words, &console] { return run_probe(*words, console); }};
}

}  // namespace ctl
