#pragma once
// A machine that hands every call on to another one: whoever wants one call to go differently overrides that one.

#include "core/gateway.h"

/// In use as long as it lives; then the machine that it stands in front of is in use again. The calls on files are
/// those of every machine, below the same root, so they need no handing on.
class GatewayWrapper : public Gateway {
  public:
    /// In front of a machine (the one in use), with its root and its service.
    explicit GatewayWrapper(Gateway& machine = gateway()) : inner(machine) {
        root_folder = inner.root();
        service_url = inner.service_address();
        set_gateway(this);
    }
    ~GatewayWrapper() override { set_gateway(&inner); }
    GatewayWrapper(const GatewayWrapper&) = delete;
    GatewayWrapper& operator=(const GatewayWrapper&) = delete;

    timeval time_of_day() override { return inner.time_of_day(); }
    std::int64_t steady_microseconds() override { return inner.steady_microseconds(); }
    void sleep(unsigned seconds) override { inner.sleep(seconds); }
    void sleep_nanoseconds(long nanoseconds) override { inner.sleep_nanoseconds(nanoseconds); }

    int open_port(const char* device) override { return inner.open_port(device); }
    int set_line(int fd, const termios& line) override { return inner.set_line(fd, line); }
    ssize_t read_port(int fd, std::span<std::uint8_t> into) override { return inner.read_port(fd, into); }
    ssize_t write_port(int fd, std::span<const std::uint8_t> bytes) override { return inner.write_port(fd, bytes); }
    int drain_port(int fd) override { return inner.drain_port(fd); }
    void flush_port(int fd) override { inner.flush_port(fd); }
    int wait_readable(int fd, std::int64_t microseconds) override { return inner.wait_readable(fd, microseconds); }
    void end_exchange(int fd) override { inner.end_exchange(fd); }

    int make_durable(int fd) override { return inner.make_durable(fd); }

  private:
    Gateway& inner;
};
