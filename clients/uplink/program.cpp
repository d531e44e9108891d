#include "uplink/program.h"

#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <malloc.h>

#include "contract/plain_text.h"
#include "contract/program.h"
#include "uplink/uplink.h"

namespace uplink {

namespace {

constexpr int Done = 0;
constexpr int Failed = 1;
constexpr int Usage = 2;
constexpr const char* StateFolder = "/var/lib/heatmeterd";

int complain(const std::string& text, int status) {
    return contract::complain("heatmeter-uplink", text, status);
}

}  // namespace

int run_program(int argc, const char* const* argv) {
    CLI::App app("Sends values and records of heat meters to MQTT and to NATS JetStream.", "heatmeter-uplink");
    std::string root;
    std::string config;
    std::string state;
    bool is_check = false;
    app.add_option("--root", root, "where tmp/ and mnt/storage/ are looked for, / without it")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory);
    app.add_option("--config", config, fmt::format("settings, {} below the root without it", SettingsFile))
        ->type_name("FILE");
    app.add_option("--state", state,
                   fmt::format("where it keeps what was confirmed, {} below the root without it", StateFolder))
        ->type_name("DIR");
    app.add_flag("--check", is_check, "look whether settings, state and brokers are usable, and end");
    app.set_version_flag("--version", fmt::format("heatmeter-uplink {}", HEATMETERD_VERSION));
    app.footer("Exit status: 0 done, 1 something does not work, 2 wrong usage or wrong settings.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        return complain(std::string(error.what()) + ". Try --help", Usage);
    }
    root = contract::look_below(root);
    if (config.empty()) config = root + SettingsFile;
    if (state.empty()) state = root + StateFolder;

    std::string fault;
    const auto settings = read_settings(config, fault);
    if (!settings) return complain(fault, Usage);
    const std::vector<std::string> problems = settings->problems();
    for (const std::string& problem : problems) {
        std::fputs((contract::for_terminal(problem) + '\n').c_str(), stderr);
    }
    if (!problems.empty()) return Usage;

    ::mallopt(M_ARENA_MAX, 1);  // several threads that do little at a time
    const int end = contract::end_signals();
    try {
        if (is_check) return check(*settings, state) ? Done : Failed;
        run(*settings, state, end);
    } catch (const std::exception& error) {
        return complain(error.what(), Failed);
    }
    return Done;
}

}  // namespace uplink
