#include "heatmeter_sim_options.h"

#include <CLI/CLI.hpp>

namespace {

constexpr int LongestOrder = 1000;  // words

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
        "  T1=71.25        a present value, by the meter's own name for it\n"
        "Types, and the words of each. In brackets: without that word. clock= are seconds that its clock is ahead,\n"
        "drift= what it gains in a million seconds, events= how many there are in its past:\n";
    for (const sim::MeterType& type : sim::meter_types())
        text += std::string("  ") + type.name + ", heatmeterd " + type.driver + "\n" + type.words;
    text +=
        "\n"
        "A control socket takes these words, one line each, and answers with rows, the last of them \"ok\" or\n"
        "\"error: WHAT\". LINE is the path of a line, METER as above:\n" +
        sim::desk_help() +
        "\n"
        "Examples. Two meters on /tmp/heatmeter-line, and the daemon that reads them (it keeps archives in\n"
        "/mnt/storage, which must be writable):\n"
        "  heatmeter-sim --meter uuid=m1,model=2 --meter uuid=m2,model=6 &\n"
        "  heatmeterd KM5 -r m1 m2\n"
        "A meter of each other family:\n"
        "  heatmeter-sim --meter type=vist,serial=7,devices=2,T1=91.5 &          heatmeterd VIST -r m1\n"
        "  heatmeter-sim --meter type=vist-modbus,serial=5,devices=1 &           heatmeterd VISTmodbus -r m1\n"
        "  heatmeter-sim --meter type=sa94,serial=74565,firmware=M301,hours=6 &  heatmeterd SA94 -r m1\n"
        "A KM5-6i with two subsystems and a week of archives, on a bad line, with a record of all that is said:\n"
        "  heatmeter-sim --meter type=km56i,systems=2 --history-days 7 --noise 0.05 --silence 0.05 \\\n"
        "                --trace /tmp/line.txt\n"
        "The trace played back; the service tells of a meter as said, and the clock is that of the trace:\n"
        "  heatmeter-sim --meter type=km56i,systems=2 --replay /tmp/line.txt\n"
        "Two lines at once:\n"
        "  heatmeter-sim --meter uuid=a,line=/tmp/line-a --meter uuid=b,type=att,line=/tmp/line-b\n"
        "A cable that is cut, and mended; the service tells a wrong serial number to who asks next:\n"
        "  heatmeter-sim --control /tmp/sim &\n"
        "  heatmeter-sim --tell /tmp/sim cable /tmp/heatmeter-line cut\n"
        "  heatmeter-sim --tell /tmp/sim cable /tmp/heatmeter-line whole\n"
        "  heatmeter-sim --tell /tmp/sim told m1 serial=7\n"
        "An hour in a minute, for both programs and every family (package faketime; what a line takes stays real, so\n"
        "the monotonic clock must, too):\n"
        "  faketime --exclude-monotonic -f '@2024-03-02 08:20:00 x60' bash -c \\\n"
        "    'heatmeter-sim --meter type=km5 & sleep 60; heatmeterd KM5 -r m1'\n"
        "or with any other type, and what heatmeterd calls it.\n";
    return text;
}

}  // namespace

std::optional<int> read_options(int argc, char** argv, Options& options) {
    CLI::App app(Description, "heatmeter-sim");
    app.footer(more_help());
    app.get_formatter()->column_width(26);
    app.add_option("-m,--meter", options.desk.meters, "A meter, see below; may be repeated")
        ->type_name("METER")
        ->allow_extra_args(false);
    app.add_option("-l,--link", options.desk.rules.line, "Path of the line: a link to the pseudo-terminal")
        ->type_name("PATH")
        ->capture_default_str();
    app.add_option("-p,--port", options.desk.port,
                   "TCP port of the configuration service on 127.0.0.1; 0: any free one")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    app.add_option("-s,--speed", options.desk.rules.speed,
                   "Speed of the meters in bits per second, also told by the service")
        ->type_name("BAUD")
        ->capture_default_str();
    app.add_option("-d,--history-days", options.desk.rules.history_days, "Days of archive records that the meters hold")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 3650.0));
    app.add_flag("--sway", options.desk.rules.sway, "Present values move with time");

    const CLI::Range rate(0.0, 1.0);
    app.add_option("--noise", options.desk.rules.noise, "Rate 0..1 of answers with noise in front")
        ->type_name("RATE")
        ->check(rate);
    app.add_option("--silence", options.desk.rules.silence, "Rate of requests that are not answered")
        ->type_name("RATE")
        ->check(rate);
    app.add_option("--bad-sums", options.desk.rules.bad_sums, "Rate of answers with a wrong check sum")
        ->type_name("RATE")
        ->check(rate);
    app.add_option("--seed", options.desk.rules.seed,
                   "What the misbehaviour is drawn from; the same seed, the same faults")
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--service", options.desk.service,
                   "The configuration service: right, nonsense (answers no JSON), mute (closes without an answer), off")
        ->type_name("HOW")
        ->capture_default_str()
        ->check(CLI::IsMember({"right", "nonsense", "mute", "off"}));

    app.add_option("--trace", options.desk.trace_path, "Writes all that is said on the lines, in hex with times")
        ->type_name("FILE");
    app.add_option("--replay", options.desk.replay_path,
                   "What such a trace says answers in the place of the meters, question by question")
        ->type_name("FILE");
    app.add_flag("--strict", options.desk.strict_replay, "Questions must come as in the trace; others end the program")
        ->needs("--replay");
    app.add_option("--dump", options.dump_path,
                   "At the end: writes what the meters hold, and what the service was asked")
        ->type_name("FILE");
    app.add_option("--run-seconds", options.run_seconds, "Ends by itself after so many seconds of real time")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--control", options.control_path,
                   "A socket for words that let lines, meters and service fail meanwhile, see below")
        ->type_name("PATH");
    app.add_option("--tell", options.tell, "Says such words to the running program with that socket, and ends")
        ->type_name("PATH WORD...")
        ->expected(2, LongestOrder);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : BadUsage;
    }
    if (options.desk.meters.empty()) options.desk.meters = {"type=km5"};
    return std::nullopt;
}
