#include "core/gateway.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr unsigned long EndOfExchange = 0x3303;  // request of the gateway's serial driver; others refuse it

/// Thin calls of the operating system, nothing more.
class SystemGateway final : public Gateway {
  public:
    timeval time_of_day() override {
        timeval now{};
        ::gettimeofday(&now, nullptr);
        return now;
    }

    std::int64_t steady_microseconds() override {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
    }

    void sleep(unsigned seconds) override { ::sleep(seconds); }

    void sleep_nanoseconds(long nanoseconds) override {
        const timespec pause{.tv_sec = 0, .tv_nsec = nanoseconds};
        ::nanosleep(&pause, nullptr);
    }

    int open_port(const char* device) override { return ::open(device, O_RDWR | O_NOCTTY); }

    int set_line(int fd, const termios& line) override {
        ::tcflush(fd, TCIFLUSH);
        return ::tcsetattr(fd, TCSAFLUSH, &line);
    }

    ssize_t read_port(int fd, std::span<std::uint8_t> into) override { return ::read(fd, into.data(), into.size()); }

    ssize_t write_port(int fd, std::span<const std::uint8_t> bytes) override {
        return ::write(fd, bytes.data(), bytes.size());
    }

    int drain_port(int fd) override { return ::tcdrain(fd); }

    void flush_port(int fd) override {
        ::tcflush(fd, TCIOFLUSH);
        ::tcflow(fd, TCOON);
        ::tcdrain(fd);
    }

    int wait_readable(int fd, std::int64_t microseconds) override {
        if (fd < 0 || fd >= FD_SETSIZE) {
            errno = EBADF;
            return -1;
        }
        fd_set descriptors;
        FD_ZERO(&descriptors);
        FD_SET(fd, &descriptors);
        timeval time{};
        time.tv_sec = static_cast<std::time_t>(microseconds / 1'000'000);
        time.tv_usec = static_cast<suseconds_t>(microseconds % 1'000'000);
        return ::select(fd + 1, &descriptors, nullptr, nullptr, &time);
    }

    void end_exchange(int fd) override { ::ioctl(fd, EndOfExchange); }

    int make_durable(int fd) override { return ::fdatasync(fd); }
};

SystemGateway g_system;
Gateway* g_gateway = &g_system;

}  // namespace

Gateway& gateway() {
    return *g_gateway;
}

void set_gateway(Gateway* machine) {
    g_gateway = machine != nullptr ? machine : &g_system;
}

std::string rooted(const std::string& path) {
    return gateway().root() + path;
}
