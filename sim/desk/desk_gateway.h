#pragma once
// The system's machine with another folder for "/": real clock, real (pseudo-)terminals, real files.

#include <string>
#include <utility>

#include "core/gateway.h"

namespace sim {

/// In use as long as it lives. `root` must exist.
class DeskGateway : public Gateway {
  public:
    explicit DeskGateway(std::string root) : system_(system_machine()) {
        root_ = std::move(root);
        set_gateway(this);
    }
    ~DeskGateway() override { set_gateway(nullptr); }
    DeskGateway(const DeskGateway&) = delete;
    DeskGateway& operator=(const DeskGateway&) = delete;

    timeval time_of_day() override { return system_.time_of_day(); }
    std::int64_t steady_microseconds() override { return system_.steady_microseconds(); }
    void sleep(unsigned seconds) override { system_.sleep(seconds); }
    void sleep_nanoseconds(long nanoseconds) override { system_.sleep_nanoseconds(nanoseconds); }
    int open_port(const char* device) override { return system_.open_port(device); }
    int set_line(int fd, const termios& line) override { return system_.set_line(fd, line); }
    ssize_t read_port(int fd, std::span<std::uint8_t> into) override { return system_.read_port(fd, into); }
    ssize_t write_port(int fd, std::span<const std::uint8_t> bytes) override { return system_.write_port(fd, bytes); }
    int drain_port(int fd) override { return system_.drain_port(fd); }
    void flush_port(int fd) override { system_.flush_port(fd); }
    int wait_readable(int fd, std::int64_t microseconds) override { return system_.wait_readable(fd, microseconds); }
    void end_exchange(int fd) override { system_.end_exchange(fd); }
    int make_durable(int fd) override { return system_.make_durable(fd); }

  private:
    static Gateway& system_machine() {
        set_gateway(nullptr);
        return gateway();
    }

    Gateway& system_;
};

}  // namespace sim
