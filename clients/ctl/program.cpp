#include "ctl/program.h"

#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include <fmt/format.h>
#include <langinfo.h>

#include "contract/moments.h"
#include "contract/program.h"
#include "core/gateway.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

constexpr char Description[] = "Looks at heat meters that heatmeterd reads on this gateway, or read on another one.";
constexpr char Footer[] =
    "Times: 2026-11-01, \"2026-11-01 10:00\", 2026-11-01T10:00:00+03:00, now, -7d, -12h, @1700000000.\n"
    "Exit status: 0 done, 1 a finding or a failure, 2 wrong usage; of status 0 well, 1 warning, 2 critical,\n"
    "3 unknown or wrong usage.";

int complain(const std::string& text, int status) {
    return contract::complain("heatmeterctl", text, status);
}

}  // namespace

contract::MeterSystem meter_system_of(const std::string& text) {
    contract::MeterSystem meter;
    if (!contract::parse_meter_system(text, meter)) {
        throw Failure{"no meter: \"" + text + "\" (UUID, or UUID/1 to UUID/6)", Usage};
    }
    return meter;
}

std::int64_t moment_of(const std::string& text, const Console& console) {
    const auto moment = contract::parse_moment(text, console.now);
    if (!moment) throw Failure{"no time: \"" + text + "\" (such as 2026-11-01, -7d, now)", Usage};
    return *moment;
}

int run_program(int argc, const char* const* argv) {
    std::setlocale(LC_CTYPE, "");
    // A gateway's shell often has no locale; what is printed is UTF-8 in any case.
    if (std::string_view(::nl_langinfo(CODESET)) != "UTF-8") std::setlocale(LC_CTYPE, "C.UTF-8");
    Console console;
    console.terminal = ::isatty(STDOUT_FILENO) == 1;
    const char* const no_colour = std::getenv("NO_COLOR");
    console.colour = console.terminal && (no_colour == nullptr || *no_colour == '\0');
    console.now = gateway().now();

    CLI::App app(Description, "heatmeterctl");
    std::string root;
    app.add_option("--root", root, "where tmp/ and mnt/storage/ are looked for, / without it")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory);
    app.set_version_flag("--version", fmt::format("heatmeterctl {}", HEATMETERD_VERSION));
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(Footer);
    Commands commands;
    for (const auto make : {list_command, status_command, values_command, watch_command, archive_command, gaps_command,
                            plot_command, export_command, events_command, log_command, decode_command, check_command,
                            probe_command, pause_command, resume_command, poll_command}) {
        commands.push_back(make(app, console));
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::RequiredError& error) {
        // Of a word that is no command the parser says that there is none.
        const bool is_unknown = app.get_subcommands().empty() && !app.remaining().empty();
        const std::string text = is_unknown ? "no command \"" + app.remaining().front() + '"' : error.what();
        return complain(text + ". Try --help", Usage);
    } catch (const CLI::ParseError& error) {
        // To monitoring the status 2 is a meter's trouble, so a wrong question is answered by 3, "unknown".
        constexpr int Unknown = 3;
        const bool of_status = app.get_subcommand("status")->parsed();
        return complain(std::string(error.what()) + ". Try --help", of_status ? Unknown : Usage);
    }
    contract::look_below(root);
    try {
        for (const Command& command : commands) {
            if (command.app->parsed()) return command.run();
        }
    } catch (const Failure& failure) {
        return complain(failure.text, failure.status);
    } catch (const std::exception& error) {
        return complain(error.what(), Finding);
    }
    return Usage;
}

}  // namespace ctl
