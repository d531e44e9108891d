#include "heatmeter_sim_options.h"

#include <CLI/CLI.hpp>

namespace {

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

}  // namespace

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
