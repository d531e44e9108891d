#include "pty_line.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "real_time.h"
#include "wrong_speed.h"

namespace sim {

namespace {

constexpr Micros Quiet = 5'000;       // a request has ended when nothing came for so long
constexpr Micros TraceGap = 100'000;  // a silence within an answer that begins another row of the trace
constexpr std::size_t LongestRequest = 4096;

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

termios line_settings(unsigned baud) {
    const std::optional<tcflag_t> speed = speed_bits(baud);
    if (!speed) throw std::invalid_argument("speed " + std::to_string(baud) + ": no line has it");
    termios settings{};
    ::cfmakeraw(&settings);
    settings.c_cflag |= CREAD | CLOCAL;
    ::cfsetspeed(&settings, *speed);
    return settings;
}

std::string link_target(const std::string& link) {
    std::array<char, 256> target{};
    const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
    return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

LineTrace::LineTrace(const std::string& path) {
    if (path.empty()) return;
    file_.open(path, std::ios::trunc);
    if (!file_) fail(path);
}

void LineTrace::note(const std::string& line, char direction, std::span<const std::uint8_t> bytes) {
    if (!file_.is_open()) return;
    timeval now{};
    ::gettimeofday(&now, nullptr);
    std::tm tm{};
    ::localtime_r(&now.tv_sec, &tm);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &tm);
    file_ << text.data();
    std::snprintf(text.data(), text.size(), ".%03d ", static_cast<int>(now.tv_usec / 1000));
    file_ << text.data() << line << ' ' << direction;
    for (const std::uint8_t byte : bytes) {
        std::snprintf(text.data(), text.size(), " %02X", byte);
        file_ << text.data();
    }
    file_ << std::endl;
}

PtyLine::PtyLine(std::string link, unsigned baud, LineTrace& trace) : link_(std::move(link)), trace_(trace) {
    set_speed(baud);
    plug_in();
}

PtyLine::~PtyLine() {
    plug_out();
}

void PtyLine::set_speed(unsigned baud) {
    line_.set(line_settings(baud), real_time());
}

unsigned PtyLine::speed() const {
    return baud_of(*line_.settings());
}

unsigned PtyLine::set_by_program() const {
    termios settings{};
    return ::tcgetattr(master_, &settings) == 0 ? baud_of(settings) : speed();
}

void PtyLine::plug_in() {
    if (plugged_in()) return;
    try {
        open_terminal();
        make_link();
    } catch (...) {
        plug_out();
        throw;
    }
}

void PtyLine::plug_out() {
    if (!device_.empty() && link_target(link_) == device_) ::unlink(link_.c_str());
    for (int* fd : {&slave_, &master_}) {
        if (*fd >= 0) ::close(*fd);
        *fd = -1;
    }
    device_.clear();
    request_.clear();
    said_.clear();
    line_.power_off();
}

void PtyLine::cut_cable(bool cut) {
    cut_ = cut;
    if (cut) line_.power_off();
}

void PtyLine::open_terminal() {
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master_ < 0) fail("pseudo-terminal");
    std::array<char, 128> name{};
    if (::grantpt(master_) != 0 || ::unlockpt(master_) != 0 || ::ptsname_r(master_, name.data(), name.size()) != 0) {
        fail("pseudo-terminal");
    }
    device_ = name.data();
    slave_ = ::open(device_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave_ < 0) fail(device_);
    if (::tcsetattr(slave_, TCSANOW, &*line_.settings()) != 0) fail(device_);
}

void PtyLine::make_link() {
    struct stat status {};
    if (::lstat(link_.c_str(), &status) == 0) {
        if (!S_ISLNK(status.st_mode)) {
            errno = EEXIST;
            fail(link_);
        }
        ::unlink(link_.c_str());
    }
    if (::symlink(device_.c_str(), link_.c_str()) != 0) fail(link_);
}

std::optional<Micros> PtyLine::due() const {
    const std::optional<Micros> arrival = line_.next_arrival();
    if (request_.empty()) return arrival;
    const Micros end_of_request = last_heard_ + Quiet;
    return arrival ? std::min(*arrival, end_of_request) : end_of_request;
}

void PtyLine::work() {
    if (!plugged_in()) return;
    const Micros now = real_time();
    listen(now);
    if (!request_.empty() && now - last_heard_ >= Quiet) ask_meters(now);
    pass_on(now);
}

void PtyLine::listen(Micros now) {
    std::array<std::uint8_t, 256> piece;
    while (request_.size() < LongestRequest) {
        const ssize_t count = ::read(master_, piece.data(), piece.size());
        if (count <= 0) return;
        if (request_.empty()) request_begun_ = now;
        request_.insert(request_.end(), piece.begin(), piece.begin() + count);
        last_heard_ = now;
    }
}

void PtyLine::ask_meters(Micros now) {
    request_ = misheard(request_, set_by_program(), speed());
    trace_.note(link_, '>', request_);
    // A pseudo-terminal hands over at once what takes its time on a wire.
    const Micros sent = std::max(now, request_begun_ + line_.duration(request_.size()));
    if (!cut_ && !request_.empty()) line_.deliver(request_, sent, std::time(nullptr));
    request_.clear();
}

void PtyLine::pass_on(Micros now) {
    std::array<std::uint8_t, 256> piece;
    while (const std::size_t count = line_.read(piece, now)) {
        const ByteVector heard = misheard(std::span(piece).first(count), speed(), set_by_program());
        // What nobody reads is lost, as on a wire, once the terminal is full of it.
        [[maybe_unused]] const ssize_t written = ::write(master_, heard.data(), heard.size());
        said_.insert(said_.end(), heard.begin(), heard.end());
    }
    const std::optional<Micros> next = line_.next_arrival();
    if (said_.empty() || (next && *next - now < TraceGap)) return;
    trace_.note(link_, '<', said_);
    said_.clear();
}

}  // namespace sim
