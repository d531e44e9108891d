#include "control_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ostream>
#include <string_view>
#include <system_error>

namespace sim {

namespace {

constexpr std::size_t MostClients = 16;
constexpr std::size_t LongestLine = 1000;
constexpr int Backlog = 16;
constexpr timeval Patience{.tv_sec = 10, .tv_usec = 0};  // of who waits for an answer

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_un address_of(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    errno = ENAMETOOLONG;
    if (path.size() >= sizeof address.sun_path) fail(path);
    std::copy(path.begin(), path.end(), address.sun_path);
    return address;
}

int new_socket(int flags) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
    if (fd < 0) fail("socket");
    return fd;
}

bool reach(int fd, const std::string& path) {
    const sockaddr_un address = address_of(path);
    return ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool take(int fd, const std::string& path) {
    const sockaddr_un address = address_of(path);
    return ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

/// The inode of the socket at `path`; 0 when there is none.
ino_t socket_at(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) ? status.st_ino : 0;
}

bool is_deserted(const std::string& path) {
    if (socket_at(path) == 0) return false;
    const int fd = new_socket(SOCK_NONBLOCK);
    const bool deserted = !reach(fd, path) && errno == ECONNREFUSED;
    ::close(fd);
    return deserted;
}

bool send_all(int fd, std::string_view text, int flags) {
    while (!text.empty()) {
        const ssize_t count = ::send(fd, text.data(), text.size(), MSG_NOSIGNAL | flags);
        if (count < 0) return false;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

ControlSocket::ControlSocket(const std::string& path) : path_(path) {
    try {
        listen();
    } catch (...) {
        if (fd_ >= 0) ::close(fd_);
        throw;
    }
}

void ControlSocket::listen() {
    fd_ = new_socket(SOCK_NONBLOCK);
    ::fchmod(fd_, S_IRUSR | S_IWUSR);  // before it has a name, so that nobody is faster
    if (!take(fd_, path_)) {
        if (errno != EADDRINUSE) fail(path_);
        errno = is_deserted(path_) ? 0 : EADDRINUSE;
        if (errno != 0) fail(path_);
        ::unlink(path_.c_str());
        if (!take(fd_, path_)) fail(path_);
    }
    inode_ = socket_at(path_);
    if (::listen(fd_, Backlog) != 0) fail(path_);
}

ControlSocket::~ControlSocket() {
    for (const Client& client : clients_) ::close(client.fd);
    if (socket_at(path_) == inode_) ::unlink(path_.c_str());
    ::close(fd_);
}

void ControlSocket::watch(std::vector<pollfd>& watched) const {
    watched.push_back({.fd = fd_, .events = POLLIN, .revents = 0});
    for (const Client& client : clients_) watched.push_back({.fd = client.fd, .events = POLLIN, .revents = 0});
}

void ControlSocket::work(const std::function<std::string(const std::string& line)>& obey) {
    // cppcheck-suppress nullPointer ; who it is does not matter
    for (int fd = 0; (fd = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0;) {
        clients_.push_back({.fd = fd});
        if (clients_.size() <= MostClients) continue;
        ::close(clients_.front().fd);
        clients_.pop_front();
    }
    clients_.remove_if([&](Client& client) {
        if (serve(client, obey)) return false;
        ::close(client.fd);
        return true;
    });
}

/// False: nothing more is to be had from this one.
bool ControlSocket::serve(Client& client, const std::function<std::string(const std::string& line)>& obey) const {
    std::array<char, LongestLine> piece{};
    const ssize_t count = ::recv(client.fd, piece.data(), piece.size(), 0);
    if (count < 0) return errno == EAGAIN || errno == EINTR;
    client.heard.append(piece.data(), static_cast<std::size_t>(count));
    if (count == 0 && !client.heard.empty()) client.heard += '\n';
    for (std::size_t end = 0; (end = client.heard.find('\n')) != std::string::npos;) {
        if (!send_all(client.fd, obey(client.heard.substr(0, end)), MSG_DONTWAIT)) return false;
        client.heard.erase(0, end + 1);
    }
    if (client.heard.size() > LongestLine) {
        send_all(client.fd, "error: too long a line\n", MSG_DONTWAIT);
        return false;
    }
    return count > 0;
}

bool tell(const std::string& path, const std::string& line, std::ostream& answer) {
    const int fd = new_socket(0);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &Patience, sizeof Patience);
    std::string heard;
    std::array<char, LongestLine> piece{};
    ssize_t count = -1;
    if (reach(fd, path) && send_all(fd, line + "\n", 0) && ::shutdown(fd, SHUT_WR) == 0) {
        while ((count = ::recv(fd, piece.data(), piece.size(), 0)) > 0) {
            heard.append(piece.data(), static_cast<std::size_t>(count));
        }
    }
    const int error = errno;
    ::close(fd);
    errno = error;
    if (count < 0) fail(path);
    answer << heard;
    return heard == "ok\n" || heard.ends_with("\nok\n");
}

}  // namespace sim
