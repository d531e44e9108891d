#include "pty_meter.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <system_error>

namespace {

int new_terminal() {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) {
        throw std::system_error(errno, std::generic_category(), "pseudo-terminal");
    }
    // No echo until the other end has set its line.
    termios raw{};
    raw.c_cflag = CS8 | CREAD | CLOCAL;
    ::tcsetattr(master, TCSANOW, &raw);
    return master;
}

std::string other_end(int master) {
    char name[64] = "";
    if (::ptsname_r(master, name, sizeof(name)) != 0) {
        throw std::system_error(errno, std::generic_category(), "pseudo-terminal's name");
    }
    return name;
}

}  // namespace

PtyMeter::PtyMeter(sim::SimMeter& meter, std::size_t request_bytes)
    : meter_(meter),
      request_bytes_(request_bytes),
      master_(new_terminal()),
      stop_(::eventfd(0, 0)),
      device_(other_end(master_)) {
    thread_ = std::thread([this] { play(); });
}

PtyMeter::~PtyMeter() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(stop_, &one, sizeof(one));
    thread_.join();
    ::close(stop_);
    ::close(master_);
}

void PtyMeter::play() {
    sim::ByteVector request;
    pollfd wait[] = {{master_, POLLIN, 0}, {stop_, POLLIN, 0}};
    while (true) {
        ::poll(wait, 2, -1);
        if (wait[1].revents != 0) return;
        std::uint8_t bytes[64];
        const ssize_t got = ::read(master_, bytes, sizeof(bytes));
        if (got <= 0) {
            ::usleep(1000);  // nobody has opened the other end yet
            continue;
        }
        request.insert(request.end(), bytes, bytes + got);
        if (request.size() < request_bytes_) continue;
        for (const sim::Burst& burst : meter_.hear(request, std::time(nullptr))) {
            [[maybe_unused]] const ssize_t written = ::write(master_, burst.bytes.data(), burst.bytes.size());
        }
        request.clear();
    }
}
