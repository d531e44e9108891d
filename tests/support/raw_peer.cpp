#include "support/raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <strings.h>

namespace {

constexpr int Patience = 5000;  // milliseconds that a client may take over each piece of its request

int listening_socket() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, SOMAXCONN) != 0) {
        throw std::system_error(errno, std::generic_category(), "no port");
    }
    return fd;
}

int port_of(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

/// The length that the header lines announce, 0 without one.
std::size_t announced_length(const std::string& head) {
    constexpr char Name[] = "\r\nContent-Length:";
    for (std::size_t at = head.find("\r\n"); at != std::string::npos; at = head.find("\r\n", at + 2)) {
        if (::strncasecmp(head.c_str() + at, Name, sizeof Name - 1) == 0) {
            return std::strtoul(head.c_str() + at + sizeof Name - 1, nullptr, 10);
        }
    }
    return 0;
}

void send_all(int connection, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) return;  // the client has gone, or takes nothing any more
        sent += static_cast<std::size_t>(count);
    }
}

}  // namespace

RawPeer::RawPeer(Handler handler)
    : handler_(std::move(handler)),
      socket_(listening_socket()),
      stop_(::eventfd(0, EFD_CLOEXEC)),
      port_(port_of(socket_)),
      thread_([this] { serve(); }) {}

RawPeer::~RawPeer() {
    ::eventfd_write(stop_, 1);
    thread_.join();
    ::close(socket_);
    ::close(stop_);
}

bool RawPeer::wait_readable(int fd, int milliseconds) const {
    std::array<pollfd, 2> watched{
        {{.fd = fd, .events = POLLIN, .revents = 0}, {.fd = stop_, .events = POLLIN, .revents = 0}}};
    return ::poll(watched.data(), watched.size(), milliseconds) > 0 && watched[1].revents == 0;
}

void RawPeer::serve() {
    while (wait_readable(socket_, -1)) {
        const int connection = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        const timeval patience{.tv_sec = Patience / 1000, .tv_usec = 0};
        ::setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        converse(connection);
        ::close(connection);
    }
}

void RawPeer::converse(int connection) {
    std::string received;
    std::size_t head_size = std::string::npos;
    while (head_size == std::string::npos || received.size() < head_size + announced_length(received)) {
        std::array<char, 4096> piece;
        if (!wait_readable(connection, Patience)) return;
        const ssize_t count = ::recv(connection, piece.data(), piece.size(), 0);
        if (count <= 0) return;
        received.append(piece.data(), static_cast<std::size_t>(count));
        const std::size_t blank_line = received.find("\r\n\r\n");
        if (blank_line != std::string::npos) head_size = blank_line + 4;
    }
    send_all(connection, handler_({received.substr(0, head_size), received.substr(head_size)}));
}
