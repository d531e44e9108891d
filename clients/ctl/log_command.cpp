#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include <fmt/format.h>

#include "contract/log_story.h"
#include "contract/logs.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "core/files.h"
#include "core/gateway.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

struct Words {
    std::string name;
    bool follow = false;
    bool plain = false;
};

/// A command to a VIST ends with a carriage return.
std::string shown(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    return contract::for_terminal(line);
}

class Printer {
  public:
    Printer(bool plain_lines, const Console& console_of_log) : plain(plain_lines), console(console_of_log) {}

    void print(const contract::LogLine& line) {
        if (plain) {
            out << shown(line.whole) << '\n';
        } else {
            story.take(line, lines);
        }
    }
    /// What has come so far; `all`: also what was kept back.
    void flush(bool all) {
        if (all) story.finish(lines);
        for (const contract::StoryLine& line : lines) {
            out << shown(line.text) << '\n';
            if (line.note.empty()) continue;
            out << (console.colour ? "\033[2m" : "") << "    ^ " << line.note << (console.colour ? "\033[0m" : "")
                << '\n';
        }
        lines.clear();
        out.flush();
    }

  private:
    bool plain;
    const Console& console;
    contract::LogStory story;
    std::vector<contract::StoryLine> lines;
    Output out;
};

/// Sleeps until a log may have changed.
class Watch {
  public:
    explicit Watch(std::string log) : path(std::move(log)), fd(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        const std::string folder = gateway().root() + path.substr(0, path.rfind('/'));
        ::inotify_add_watch(fd, folder.c_str(), IN_CREATE | IN_MOVED_TO);
    }
    ~Watch() { ::close(fd); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    void look_at_file() { ::inotify_add_watch(fd, (gateway().root() + path).c_str(), IN_MODIFY | IN_ATTRIB); }
    /// False when the time is over, negative for none.
    bool wait(int milliseconds) {
        pollfd source{fd, POLLIN, 0};
        const bool woken = ::poll(&source, 1, milliseconds) > 0;
        std::array<char, 4096> events{};
        while (::read(fd, events.data(), events.size()) > 0) continue;
        return woken;
    }

  private:
    std::string path;
    int fd;
};

[[noreturn]] void follow(const std::string& path, contract::LogFollower& follower, Printer& printer) {
    constexpr int Quiet = 2000;          // milliseconds, after which what was kept back is told
    constexpr long Pause = 200'000'000;  // nanoseconds between two looks at a busy log
    Watch watch(path);
    bool kept_back = true;
    while (true) {
        watch.look_at_file();
        const contract::Log log = contract::read_log(path);
        bool began_anew = false;
        std::size_t at = follower.new_lines(log, began_anew);
        kept_back = kept_back || at < log.lines().size();
        if (began_anew) {
            printer.flush(true);
            std::fputs("heatmeterctl: the log begins anew\n", stderr);
        }
        for (; at < log.lines().size(); ++at) printer.print(log.lines()[at]);
        printer.flush(false);
        if (watch.wait(kept_back ? Quiet : -1)) {
            gateway().sleep_nanoseconds(Pause);
            watch.wait(0);
        } else {
            printer.flush(true);
            kept_back = false;
        }
    }
}

int run_log(const Words& words, const Console& console) {
    const std::string path = contract::log_path(words.name);
    if (path.empty()) {
        throw Failure{"no log: \"" + words.name + "\" (general, UUID, UUID:debug, UUID:messages, UUID:general)", Usage};
    }
    const contract::Log log = contract::read_log(path);
    if (!words.follow && !exists(path)) throw Failure{"there is no " + path + ". `heatmeterctl status` tells why"};
    Printer printer(words.plain, console);
    for (const contract::LogLine& line : log.lines()) printer.print(line);
    contract::LogFollower follower;
    bool ignored = false;
    follower.new_lines(log, ignored);
    printer.flush(!words.follow);
    if (words.follow) follow(path, follower, printer);
    return Done;
}

}  // namespace

Command log_command(CLI::App& app, Console& console) {
    const auto words = std::make_shared<Words>();
    CLI::App* const command = app.add_subcommand("log", "a log in the order of time");
    command->add_option("NAME", words->name, "general, or uuid, uuid:debug, uuid:messages, uuid:general")->required();
    command->add_flag("-f,--follow", words->follow, "goes on with what is written, until it is interrupted");
    command->add_flag("--plain", words->plain, "the lines as they are: nothing folded, nothing explained");
    return {command, [words, &console] { return run_log(*words, console); }};
}

}  // namespace ctl
