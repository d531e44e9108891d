#include "care/keeper.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "core/gateway.h"
#include "core/local_time.h"

namespace {

constexpr unsigned ServicePatience = 60;        // seconds
constexpr unsigned PauseSeconds = 5;            // before a process that has ended is started again
constexpr std::int64_t ShortLife = 60'000'000;  // microseconds
constexpr int LookMilliseconds = 2000;          // between two looks at the port
constexpr std::int64_t StopPatience = 5'000'000;

sigset_t watched_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGCHLD}) sigaddset(&set, number);
    return set;
}

std::string present_time() {
    return date_text(local_time(gateway().now()));
}

/// All that is there to read; false at the end.
bool drain(int fd, StartLog& log) {
    char text[4096];
    ssize_t count = 0;
    while ((count = ::read(fd, text, sizeof text)) > 0) log.add({text, static_cast<std::size_t>(count)});
    return count < 0;
}

}  // namespace

Keeper::Keeper(std::string daemon, Words daemon_words, PidFile& own_pid_file, std::string state_file,
               const std::string& log_file)
    : program(std::move(daemon)),
      words(std::move(daemon_words)),
      pid_file(own_pid_file),
      state_path(std::move(state_file)),
      log(log_file) {}

void Keeper::run() {
    const sigset_t set = watched_signals();
    std::string waits_since;
    while (true) {
        // No process is there: a signal may end this one at once.
        if (waits_since.empty()) waits_since = present_time();
        if (short_lives < 2) tell("3 waits for the configuration service since " + waits_since);
        const auto devices = wait_for_devices(words, ServicePatience);
        if (!devices) {
            short_lives = 0;  // a wait, whatever was before
            gateway().sleep(PauseSeconds);
            continue;
        }
        waits_since.clear();
        sigprocmask(SIG_BLOCK, &set, nullptr);
        const int signals = ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
        int output[2] = {-1, -1};
        if (::pipe2(output, O_CLOEXEC) != 0) std::exit(1);
        ::fcntl(output[0], F_SETFL, O_NONBLOCK);
        devices_at_start = state_of(*devices);
        log.begin();
        child = start(output[1]);
        ::close(output[1]);
        since = present_time();
        const End end = child > 0 ? watch(child, output[0], signals, *devices) : End::ByItself;
        drain(output[0], log);
        ::close(output[0]);
        ::close(signals);
        log.end(end == End::Healed ? "Its port was gone: started again." : "Ended with " + last_end + ".");
        sigprocmask(SIG_UNBLOCK, &set, nullptr);
        if (end == End::ByItself) gateway().sleep(PauseSeconds);
    }
}

pid_t Keeper::start(int output) {
    const pid_t keeper = ::getpid();
    const pid_t pid = ::fork();
    if (pid != 0) return pid;

    const sigset_t set = watched_signals();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != keeper) ::_exit(1);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    std::vector<char*> arguments{program.data()};
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    ::execv(program.c_str(), arguments.data());
    std::perror(program.c_str());
    ::_exit(127);
}

Keeper::End Keeper::watch(pid_t pid, int output, int signals, const Devices& devices) {
    const std::int64_t begin = gateway().steady_microseconds();
    std::int64_t next_look = begin + LookMilliseconds * 1000;
    pollfd sources[] = {{signals, POLLIN, 0}, {output, POLLIN, 0}};
    while (true) {
        if (short_lives < 2) tell("0 is running since " + since + ", process " + std::to_string(pid));
        ::poll(sources, 2, LookMilliseconds);
        if (sources[1].revents != 0 && !drain(output, log)) sources[1].fd = -1;
        signalfd_siginfo signal{};
        while (::read(signals, &signal, sizeof signal) == sizeof signal) {
            if (signal.ssi_signo != SIGCHLD) give_up(pid, output);
        }
        int status = 0;
        const std::int64_t now = gateway().steady_microseconds();
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            note_end(status, now - begin);
            return End::ByItself;
        }
        if (now - begin >= ShortLife) short_lives = 0;
        if (now < next_look) continue;
        next_look = now + LookMilliseconds * 1000;
        if (!pid_file.hold()) give_up(pid, output);
        if (!is_to_be_healed(pid, devices)) continue;
        stop(pid);
        return End::Healed;
    }
}

bool Keeper::is_to_be_healed(pid_t pid, const Devices& devices) {
    const PortLook look = look_at_port(pid, devices);
    if (look != PortLook::Closed) return look == PortLook::Gone;
    // What could not be opened, and is what it was, would not open the next time either.
    const auto devices_now = configured_devices(words);
    if (!devices_now) return false;
    const std::string state = state_of(*devices_now);
    return !state.empty() && state != devices_at_start;
}

void Keeper::stop(pid_t pid) {
    const std::int64_t end = gateway().steady_microseconds() + StopPatience;
    ::kill(pid, SIGTERM);
    while (::waitpid(pid, nullptr, WNOHANG) == 0) {
        if (gateway().steady_microseconds() >= end) ::kill(pid, SIGKILL);
        gateway().sleep_nanoseconds(20'000'000);
    }
}

void Keeper::give_up(pid_t pid, int output) {
    stop(pid);
    drain(output, log);
    log.end("Stopped.");
    std::exit(0);
}

void Keeper::note_end(int status, std::int64_t lived) {
    short_lives = lived < ShortLife ? short_lives + 1 : 1;
    last_end = WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                                   : "exit status " + std::to_string(WEXITSTATUS(status));
    tell(short_lives < 2
             ? "1 has ended, and is started again; " + last_end
             : "1 is restarting again and again, " + std::to_string(short_lives) + " times so far; last " + last_end);
}

void Keeper::tell(const std::string& state) {
    if (state == last_state && ::access(state_path.c_str(), F_OK) == 0) return;
    last_state = state;
    const std::string draft = state_path + ".new";
    if (std::FILE* const file = std::fopen(draft.c_str(), "we")) {
        std::fprintf(file, "%s\n", state.c_str());
        std::fclose(file);
        std::rename(draft.c_str(), state_path.c_str());
    }
}
