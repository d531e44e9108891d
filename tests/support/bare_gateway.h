#pragma once
// A machine with nothing but its folder: the clock stands still, no port opens, every write is durable at once. A test
// that looks at one call of the machine replaces that one.

#include <string>
#include <utility>

#include "core/gateway.h"

class BareGateway : public Gateway {
  public:
    explicit BareGateway(std::string root) { root_folder = std::move(root); }

    timeval time_of_day() override { return {}; }
    std::int64_t steady_microseconds() override { return 0; }
    void sleep(unsigned /*seconds*/) override {}
    void sleep_nanoseconds(long /*nanoseconds*/) override {}
    int open_port(const char* /*device*/) override { return -1; }
    int set_line(int /*fd*/, const termios& /*line*/) override { return -1; }
    ssize_t read_port(int /*fd*/, std::span<std::uint8_t> /*into*/) override { return -1; }
    ssize_t write_port(int /*fd*/, std::span<const std::uint8_t> /*bytes*/) override { return -1; }
    int drain_port(int /*fd*/) override { return -1; }
    void flush_port(int /*fd*/) override {}
    int wait_readable(int /*fd*/, std::int64_t /*microseconds*/) override { return -1; }
    void end_exchange(int /*fd*/) override {}
    int make_durable(int /*fd*/) override { return 0; }
};
