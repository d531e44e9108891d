#include "core/gateway.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include <dirent.h>

namespace {

constexpr unsigned long EndOfExchange = 0x3303;  // request of the gateway's serial driver; others refuse it

/// Thin calls of the operating system, nothing more.
class SystemGateway final : public Gateway {
  public:
    void set_root(const std::string& root) { root_folder = root; }

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

    int open_port(const char* device) override {
        const int fd = ::open(device, O_RDWR | O_NOCTTY);
        if (fd < 0 || ::isatty(fd) == 1) return fd;
        ::close(fd);
        errno = ENOTTY;
        return -1;
    }

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

int Gateway::open_file(const std::string& path, int flags, mode_t mode) {
    return ::open((root_folder + path).c_str(), flags, mode);
}

void Gateway::close_file(int fd) {
    ::close(fd);
}

ssize_t Gateway::read_file(int fd, std::span<char> into) {
    return ::read(fd, into.data(), into.size());
}

ssize_t Gateway::write_file(int fd, std::string_view text) {
    return ::write(fd, text.data(), text.size());
}

int Gateway::lock_file(int fd) {
    return ::flock(fd, LOCK_EX);
}

ssize_t Gateway::send_file(int to, int from, std::size_t count) {
    return ::sendfile(to, from, nullptr, count);
}

int Gateway::resize_file(int fd, off_t size) {
    return ::ftruncate(fd, size);
}

off_t Gateway::seek_file(int fd, off_t offset, int whence) {
    return ::lseek(fd, offset, whence);
}

int Gateway::look_at_file(int fd, struct stat& status) {
    return ::fstat(fd, &status);
}

int Gateway::look_at(const std::string& path, struct stat& status) {
    return ::stat((root_folder + path).c_str(), &status);
}

int Gateway::look_at_name(const std::string& path, struct stat& status) {
    return ::lstat((root_folder + path).c_str(), &status);
}

int Gateway::make_folder(const std::string& path) {
    return ::mkdir((root_folder + path).c_str(), 0777);
}

int Gateway::make_link(const std::string& target, const std::string& path) {
    return ::symlink((root_folder + target).c_str(), (root_folder + path).c_str());
}

int Gateway::remove(const std::string& path) {
    return std::remove((root_folder + path).c_str());
}

int Gateway::list_folder(const std::string& path, std::vector<std::string>& names) {
    DIR* const folder = ::opendir((root_folder + path).c_str());
    if (folder == nullptr) return -1;
    while (const dirent* const entry = ::readdir(folder)) names.emplace_back(entry->d_name);
    ::closedir(folder);
    return 0;
}

Gateway& gateway() {
    return *g_gateway;
}

void set_gateway(Gateway* machine) {
    g_gateway = machine != nullptr ? machine : &g_system;
}

void set_system_root(const std::string& root) {
    g_system.set_root(root);
}
