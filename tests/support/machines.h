#pragma once
// Machines that go wrong, or are listened to, in one respect. Each stands in front of the machine in use as long as it
// lives.

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "gateway_wrapper.h"

/// A storage that takes so many bytes more, and says then that it is full.
class FullStorage : public sim::GatewayWrapper {
  public:
    explicit FullStorage(std::size_t left = 0) : left_(left) {}

    ssize_t write_file(int fd, std::string_view text) override {
        const std::size_t taken = std::min(left_, text.size());
        left_ -= taken;
        if (taken > 0) return GatewayWrapper::write_file(fd, text.substr(0, taken));
        errno = ENOSPC;
        return -1;
    }

    ssize_t send_file(int /*to*/, int /*from*/, std::size_t /*count*/) override {
        errno = ENOSPC;
        return -1;
    }

  private:
    std::size_t left_;
};

/// A storage that takes and gives one byte at a time.
class ByteByByte : public sim::GatewayWrapper {
  public:
    ssize_t read_file(int fd, std::span<char> into) override {
        return GatewayWrapper::read_file(fd, into.first(std::min<std::size_t>(into.size(), 1)));
    }
    ssize_t write_file(int fd, std::string_view text) override {
        return GatewayWrapper::write_file(fd, text.substr(0, 1));
    }
    ssize_t send_file(int to, int from, std::size_t count) override {
        return GatewayWrapper::send_file(to, from, std::min<std::size_t>(count, 1));
    }
};

/// A machine on which a signal comes in between at every first try of a call on a file.
class Interrupted : public sim::GatewayWrapper {
  public:
    int open_file(const std::string& path, int flags, mode_t mode) override {
        return interrupted("open " + path) ? -1 : GatewayWrapper::open_file(path, flags, mode);
    }
    ssize_t read_file(int fd, std::span<char> into) override {
        return interrupted("read") ? -1 : GatewayWrapper::read_file(fd, into);
    }
    ssize_t write_file(int fd, std::string_view text) override {
        return interrupted("write") ? -1 : GatewayWrapper::write_file(fd, text);
    }
    ssize_t send_file(int to, int from, std::size_t count) override {
        return interrupted("send") ? -1 : GatewayWrapper::send_file(to, from, count);
    }
    int lock_file(int fd) override { return interrupted("lock") ? -1 : GatewayWrapper::lock_file(fd); }
    int resize_file(int fd, off_t size) override {
        return interrupted("resize") ? -1 : GatewayWrapper::resize_file(fd, size);
    }
    int make_durable(int fd) override { return interrupted("sync") ? -1 : GatewayWrapper::make_durable(fd); }

    const std::set<std::string>& calls() const { return calls_; }

  private:
    bool interrupted(const std::string& call) {
        calls_.insert(call);
        errno = EINTR;
        return (++tries_ & 1) == 1;
    }

    std::set<std::string> calls_;
    int tries_ = 0;
};

/// Keeps every text that is written to one file, not only the last.
class FileTrail : public sim::GatewayWrapper {
  public:
    explicit FileTrail(std::string path) : path_(std::move(path)) {}

    int open_file(const std::string& path, int flags, mode_t mode) override {
        const int fd = GatewayWrapper::open_file(path, flags, mode);
        if (path == path_) fd_ = fd;
        return fd;
    }
    void close_file(int fd) override {
        if (fd == fd_) fd_ = -1;
        GatewayWrapper::close_file(fd);
    }
    ssize_t write_file(int fd, std::string_view text) override {
        if (fd == fd_) texts_.emplace_back(text);
        return GatewayWrapper::write_file(fd, text);
    }

    const std::vector<std::string>& texts() const { return texts_; }

  private:
    std::string path_;
    int fd_ = -1;
    std::vector<std::string> texts_;
};
