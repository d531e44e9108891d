#include "core/gateway.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

/// Thin calls of the operating system, nothing more.
class SystemGateway final : public Gateway {
  public:
    timeval time_of_day() override {
        timeval now{};
        ::gettimeofday(&now, nullptr);
        return now;
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
