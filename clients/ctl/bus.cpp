#include "ctl/bus.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fmt/format.h>

#include "contract/site.h"

namespace ctl {

namespace {

volatile std::sig_atomic_t g_signal = 0;

constexpr long StepNanoseconds = 20'000'000;
constexpr double StepSeconds = 0.02;
constexpr double QuietSeconds = 2.5;  // longer than any silence within an exchange of any family
constexpr double MostSeconds = 30;
constexpr std::size_t MostHeard = 512;

void note_signal(int number) {
    g_signal = number;
}

int waiting_bytes(int fd) {
    int count = 0;
    return ::ioctl(fd, FIONREAD, &count) == 0 ? count : 0;
}

bool is_same(const termios& one, const termios& other) {
    return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag && one.c_cflag == other.c_cflag &&
           one.c_lflag == other.c_lflag && std::equal(std::begin(one.c_cc), std::end(one.c_cc), other.c_cc) &&
           ::cfgetospeed(&one) == ::cfgetospeed(&other);
}

/// A lock file as terminal programs leave it: the number of a process that is there.
void refuse_locked(const std::string& device) {
    const std::string name = device.substr(device.rfind('/') + 1);
    const std::string lock = "/var/lock/LCK.." + name;
    const int pid = std::atoi(contract::read_text(lock, 32).c_str());
    if (pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM)) {
        throw Failure{fmt::format("{} is locked by process {} ({}): end that program first", device, pid, lock)};
    }
}

int open_terminal(const std::string& device) {
    refuse_locked(device);
    const int fd = ::open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 && errno == EBUSY) throw Failure{device + " is held by another program alone: end that program first"};
    if (fd < 0) throw Failure{fmt::format("{} cannot be opened: {}", device, std::strerror(errno))};
    int is_exclusive = 0;
    std::string trouble;
    if (::isatty(fd) != 1) {
        trouble = device + " is no serial port";
    } else if ((::ioctl(fd, TIOCGEXCL, &is_exclusive) == 0 && is_exclusive != 0) ||
               (::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)) {
        trouble = device + " is held by another program alone: end that program first";
    }
    if (trouble.empty()) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
        return fd;
    }
    ::close(fd);
    throw Failure{trouble};
}

/// A meter may be in the middle of an answer: until nothing more comes, for two seconds at most.
void let_fall_silent(int fd) {
    int before = -1;
    int same = 0;
    for (int step = 0; step < 100 && same < 25; ++step) {
        const int now = waiting_bytes(fd);
        same = now == before ? same + 1 : 0;
        before = now;
        const timespec pause{.tv_sec = 0, .tv_nsec = StepNanoseconds};
        ::nanosleep(&pause, nullptr);
    }
}

/// The line as its owner left it: no dialog open, nothing waiting to be read, its own settings.
void leave_line(int fd, const contract::BorrowedPort& port) {
    let_fall_silent(fd);
    termios now{};
    const bool is_ours = ::tcgetattr(fd, &now) == 0 && is_same(now, port.set);
    if (is_ours && !port.close.empty()) {
        [[maybe_unused]] const ssize_t said = ::write(fd, port.close.data(), port.close.size());
        ::tcdrain(fd);
        let_fall_silent(fd);
    }
    ::tcflush(fd, TCIFLUSH);
    if (is_ours) ::tcsetattr(fd, TCSANOW, &port.before);
}

}  // namespace

void note_signals() {
    struct sigaction action {};
    action.sa_handler = note_signal;
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::sigaction(number, &action, nullptr);
    action.sa_handler = SIG_IGN;
    for (const int number : {SIGPIPE, SIGTSTP}) ::sigaction(number, &action, nullptr);
}

bool was_signalled() {
    return g_signal != 0;
}

void heed_signals() {
    if (was_signalled()) throw Failure{"ended by a signal; the bus is free again"};
}

void give_port_back(const contract::BorrowedPort& port) {
    const int fd = ::open(port.device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return;
    if (::isatty(fd) == 1) leave_line(fd, port);
    ::close(fd);
}

bool make_room(const Console& console, bool anyway) {
    const auto holder = contract::look_at_pause();
    if (!holder) return false;
    if (holder->is_left_over) {
        if (holder->port) give_port_back(*holder->port);
        if (const int error = contract::remove_flag(contract::PauseFlag); error != 0) {
            throw Failure{fmt::format("{} of {}, which has gone, cannot be taken away: {}", contract::PauseFlag,
                                      holder->text(console.now), std::strerror(error))};
        }
        std::fprintf(stderr, "heatmeterctl: took away %s that %s had left behind\n", contract::PauseFlag,
                     holder->text(console.now).c_str());
        return false;
    }
    if (anyway) return true;
    throw Failure{fmt::format("the bus is held by {}: {}. `heatmeterctl resume` takes it away",
                              holder->text(console.now), contract::PauseFlag)};
}

PauseHold::PauseHold(contract::PauseHolder of) : holder(std::move(of)) {
    holder.pid = ::getpid();
    if (const int error = contract::make_flag(contract::PauseFlag, contract::pause_text(holder)); error != 0) {
        throw Failure{fmt::format("{} cannot be made: {}", contract::PauseFlag, std::strerror(error))};
    }
    file = File(contract::PauseFlag, O_WRONLY);
}

PauseHold::~PauseHold() {
    // Somebody may have taken it away meanwhile, and made one of his own.
    const auto now = contract::look_at_pause();
    if (now && now->command == holder.command && now->pid == holder.pid) contract::remove_flag(contract::PauseFlag);
}

void PauseHold::tell(const contract::BorrowedPort& port) {
    holder.port = port;
    file.seek(0, SEEK_SET);
    file.write(contract::pause_text(holder));
}

int BusMachine::look_at(const std::string& path, struct stat& status) {
    if (path != contract::PauseFlag) return GatewayWrapper::look_at(path, status);
    errno = ENOENT;
    return -1;
}

void BusMachine::sleep(unsigned seconds) {
    heed_signals();
    GatewayWrapper::sleep(seconds);
    heed_signals();
}

ssize_t BusMachine::read_port(int fd, std::span<std::uint8_t> into) {
    heed_signals();
    const ssize_t got = GatewayWrapper::read_port(fd, into);
    heed_signals();
    for (ssize_t i = 0; i < got && heard.size() < MostHeard; ++i) heard.push_back(into[static_cast<std::size_t>(i)]);
    return got;
}

ssize_t BusMachine::write_port(int fd, std::span<const std::uint8_t> bytes) {
    heed_signals();
    return GatewayWrapper::write_port(fd, bytes);
}

int BusMachine::wait_readable(int fd, std::int64_t microseconds) {
    heed_signals();
    const int ready = GatewayWrapper::wait_readable(fd, microseconds);
    heed_signals();
    return ready;
}

BorrowedLine::BorrowedLine(const std::string& device, std::vector<std::uint8_t> close)
    : fd(open_terminal(device)), port{.device = device, .before = {}, .set = {}, .close = std::move(close)} {
    ::tcgetattr(fd, &port.before);
}

BorrowedLine::~BorrowedLine() {
    if (is_set) leave_line(fd, port);
    ::close(fd);
}

dev_t BorrowedLine::number() const {
    struct stat status {};
    return ::fstat(fd, &status) == 0 ? status.st_rdev : 0;
}

void BorrowedLine::await_quiet(double least_seconds) const {
    // Nothing is read here: it would be missing in the exchange that is going on.
    int before = waiting_bytes(fd);
    double quiet = 0;
    for (double waited = 0; waited < least_seconds || quiet < std::min(QuietSeconds, least_seconds);
         waited += StepSeconds) {
        if (waited > MostSeconds)
            throw Failure{port.device + " is never quiet: who talks there does not heed the flag"};
        heed_signals();
        gateway().sleep_nanoseconds(StepNanoseconds);
        const int now = waiting_bytes(fd);
        quiet = now == before ? quiet + StepSeconds : 0;
        before = now;
    }
}

void BorrowedLine::set(const termios& line, PauseHold* hold) {
    if (!is_set) ::tcgetattr(fd, &port.before);  // a daemon may have set it since
    port.set = line;
    if (hold != nullptr) hold->tell(port);  // before it is done: who kills us now leaves a way back
    is_set = true;
    gateway().set_line(fd, line);
    // What the terminal has made of it, for the comparison at the end.
    ::tcgetattr(fd, &port.set);
    if (hold != nullptr) hold->tell(port);
}

}  // namespace ctl
