#include <unistd.h>

#include <fmt/format.h>

#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "core/gateway.h"
#include "ctl/commands.h"
#include "ctl/watch_screen.h"

namespace ctl {

namespace {

/// A line for each value and each newest record, as they come.
void print_changes(contract::Live& model, Console& console, std::optional<std::int64_t> seconds) {
    const std::int64_t begin = gateway().steady_microseconds();
    for (;;) {
        console.now = gateway().now();
        Output out;
        for (const contract::News& piece : model.take_news()) {
            if (piece.what == contract::News::What::Rewritten) continue;
            out << fmt::format("{} {}/{} {}{} {}\n", console.time_text(console.now), contract::for_terminal(piece.uuid),
                               piece.system, contract::for_terminal(piece.name),
                               piece.what == contract::News::What::Record ? " record" : "",
                               contract::for_terminal(piece.text));
        }
        out.flush();
        int milliseconds = -1;
        if (seconds) {
            const std::int64_t left = *seconds * 1000 - (gateway().steady_microseconds() - begin) / 1000;
            if (left <= 0) return;
            milliseconds = static_cast<int>(std::min<std::int64_t>(left, 60'000));
        }
        model.wait(-1, milliseconds);
    }
}

}  // namespace

Command watch_command(CLI::App& app, Console& console) {
    struct Words {
        std::vector<std::string> uuids;
        std::string time;
        bool plain = false;
    };
    const auto words = std::make_shared<Words>();
    CLI::App* const command =
        app.add_subcommand("watch", "values and records as they come, on the whole screen of a terminal");
    command->add_option("UUID", words->uuids, "meters; all without any, and those that come");
    command->add_option("--for", words->time, "ends by itself after 30s, 10m, 2h")->type_name("TIME");
    command->add_flag("--plain", words->plain, "a line for each change, as without a terminal");
    command->add_flag("--epoch", console.epoch, "times as seconds since 1970");
    return {command, [words, &console] {
                std::optional<std::int64_t> seconds;
                if (!words->time.empty()) {
                    seconds = contract::parse_duration(words->time);
                    if (!seconds) throw Failure{"no time: \"" + words->time + "\" (such as 30s, 10m, 2h)", Usage};
                }
                for (const std::string& uuid : words->uuids) {
                    if (!contract::is_meter_name(uuid)) throw Failure{"no meter: \"" + uuid + '"', Usage};
                }
                contract::Live model(words->uuids);
                const bool on_screen = console.terminal && ::isatty(STDIN_FILENO) == 1 && !words->plain;
                if (!on_screen || !run_watch_screen(model, console, seconds)) print_changes(model, console, seconds);
                return Done;
            }};
}

}  // namespace ctl
