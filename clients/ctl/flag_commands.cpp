#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "contract/installation.h"
#include "contract/moments.h"
#include "contract/site.h"
#include "contract/users.h"
#include "core/gateway.h"
#include "ctl/bus.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

int run_pause(const std::string& time, const Console& console) {
    std::optional<std::int64_t> duration;
    if (!time.empty()) {
        duration = contract::parse_duration(time);
        if (!duration || *duration <= 0) throw Failure{"no time: \"" + time + "\" (such as 10m, 90s, 2h)", Usage};
    }
    make_room(console, false);
    if (!duration) {
        const contract::PauseHolder holder{.command = "pause"};
        const int error = contract::make_flag(contract::PauseFlag, contract::pause_text(holder));
        if (error != 0) throw Failure{fmt::format("{}: {}", contract::PauseFlag, std::strerror(error))};
        std::puts("every line is held until `heatmeterctl resume`; an exchange that has begun ends first");
        return Done;
    }
    note_signals();
    const std::int64_t end = gateway().now() + *duration;
    const PauseHold hold({.command = "pause", .until = end});
    std::printf("every line is held until %s; Ctrl-C ends it before\n", console.time_text(end).c_str());
    std::fflush(stdout);
    // By a clock that nobody sets.
    const std::int64_t deadline = gateway().steady_microseconds() + *duration * 1'000'000;
    while (!was_signalled() && gateway().steady_microseconds() < deadline) {
        gateway().sleep_nanoseconds(200'000'000);
    }
    const auto now = contract::look_at_pause();
    if (!now) {
        std::puts("somebody has taken the flag away meanwhile");
        return Finding;
    }
    std::puts("the lines are free again");
    return Done;
}

int run_resume(const Console& console) {
    const auto holder = contract::look_at_pause();
    if (!holder) {
        std::puts("nobody holds the lines");
        return Done;
    }
    if (holder->is_left_over) {
        make_room(console, false);
        return Done;
    }
    if (const int error = contract::remove_flag(contract::PauseFlag); error != 0) {
        throw Failure{fmt::format("{} of {} cannot be taken away: {}", contract::PauseFlag, holder->text(console.now),
                                  std::strerror(error))};
    }
    std::printf("the lines are free; they were held by %s\n", holder->text(console.now).c_str());
    if (holder->command == "probe") std::puts("it still runs, and daemons may now speak in between: end it, too");
    return Done;
}

/// The user of a process; nothing when it has gone.
std::optional<uid_t> user_of(pid_t pid) {
    struct stat status {};
    if (gateway().look_at("/proc/" + std::to_string(pid), status) != 0) return {};
    return status.st_uid;
}

int run_poll(const std::string& uuid, bool archives, const Console& console) {
    const auto running = contract::processes();
    const auto serves = [&uuid](const contract::Process& process) {
        return std::ranges::find(process.uuids, uuid) != process.uuids.end();
    };
    const auto process = std::ranges::find_if(running, serves);
    if (!contract::is_meter_name(uuid) || process == running.end()) {
        throw Failure{fmt::format("no running heatmeterd serves {}. `heatmeterctl list` tells what there is", uuid)};
    }
    // In the sticky /tmp a daemon cannot remove another user's flag, and would poll without end.
    const auto user = user_of(process->pid);
    const bool can_remove = user && (*user == 0 || *user == ::geteuid());
    if (!can_remove && ::geteuid() != 0) {
        throw Failure{fmt::format("heatmeterd runs as another user and could not remove the flag: be user {}",
                                  user ? contract::user_name(*user) : "root")};
    }
    const std::string path = (archives ? "/tmp/tvk_force_update_archives_" : "/tmp/tvk_force_update_") + uuid;
    const int error = contract::make_flag(path, "");
    if (error == EEXIST) {
        std::printf("%s is there already, and heatmeterd has not seen it yet\n", path.c_str());
    } else if (error != 0) {
        throw Failure{fmt::format("{}: {}", path, std::strerror(error))};
    } else {
        if (!can_remove) {
            const File file(path, O_WRONLY);
            if (!file || ::fchown(file.descriptor(), *user, static_cast<gid_t>(-1)) != 0) {
                contract::remove_flag(path);
                throw Failure{path + " cannot be given to the user of heatmeterd"};
            }
        }
        std::printf("%s is made; heatmeterd removes it when it has seen it\n", path.c_str());
    }
    if (archives) std::puts("no family looks at that flag at present: it stays until somebody removes it");
    if (const auto holder = contract::look_at_pause()) {
        std::fprintf(stderr, "heatmeterctl: nothing is asked as long as the lines are held by %s\n",
                     holder->text(console.now).c_str());
    }
    return Done;
}

}  // namespace

Command pause_command(CLI::App& app, Console& console) {
    const auto time = std::make_shared<std::string>();
    CLI::App* const command = app.add_subcommand("pause", "keeps every daemon off its line");
    command->add_option("--for", *time, "stays, and lets the lines go after this time or when it is ended")
        ->type_name("10m");
    return {command, [time, &console] { return run_pause(*time, console); }};
}

Command resume_command(CLI::App& app, Console& console) {
    CLI::App* const command = app.add_subcommand("resume", "ends a pause, whoever has made it");
    return {command, [&console] { return run_resume(console); }};
}

Command poll_command(CLI::App& app, Console& console) {
    struct Words {
        std::string uuid;
        bool archives = false;
    };
    const auto words = std::make_shared<Words>();
    CLI::App* const command = app.add_subcommand("poll", "asks for a meter's poll without waiting for the next period");
    command->add_option("UUID", words->uuid, "the meter")->required();
    command->add_flag("--archives", words->archives, "the flag for archives, which no family looks at at present");
    return {command, [words, &console] { return run_poll(words->uuid, words->archives, console); }};
}

}  // namespace ctl
