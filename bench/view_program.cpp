#include "view_program.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

pid_t start_program(const std::string& script, int errors) {
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (errors >= 0) ::dup2(errors, STDERR_FILENO);
    ::execlp("sh", "sh", "-c", ("exec " + script).c_str(), nullptr);
    ::_exit(1);
}

void end_program(pid_t pid) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

ViewProgram::ViewProgram(const std::string& root) {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
    pid_ = start_program(std::string(HEATMETER_VIEW) + " --listen 127.0.0.1:0 --root " + root, ends[1]);
    ::close(ends[1]);
    std::string said;
    for (char letter = 0; ::read(ends[0], &letter, 1) == 1 && letter != '\n';) said += letter;
    const std::size_t colon = said.rfind(':');
    port_ = colon == std::string::npos ? 0 : std::atoi(said.c_str() + colon + 1);
    if (port_ == 0) throw std::runtime_error("heatmeter-view: " + said);
}

ViewProgram::~ViewProgram() {
    end_program(pid_);
}

int connect_to(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return fd;
    ::close(fd);
    throw std::runtime_error("no connection to port " + std::to_string(port));
}

namespace {

void say(int fd, const std::string& path, const char* connection) {
    const std::string request =
        "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: " + connection + "\r\n\r\n";
    if (::send(fd, request.data(), request.size(), MSG_NOSIGNAL) < 0) throw std::runtime_error("no request");
}

}  // namespace

std::size_t ask(int port, const std::string& path) {
    const int fd = connect_to(port);
    say(fd, path, "close");
    std::array<char, 65536> piece{};
    std::size_t size = 0;
    for (ssize_t count = 0; (count = ::read(fd, piece.data(), piece.size())) > 0;) {
        if (size == 0 && std::string_view(piece.data(), static_cast<std::size_t>(count)).find(" 200 OK") > 16) {
            throw std::runtime_error(path + " was refused");
        }
        size += static_cast<std::size_t>(count);
    }
    ::close(fd);
    return size;
}

int listen_to(int port) {
    const int fd = connect_to(port);
    say(fd, "/api/stream", "keep-alive");
    std::array<char, 4096> piece{};
    if (::read(fd, piece.data(), piece.size()) <= 0) throw std::runtime_error("no stream");
    return fd;
}

double cpu_of(pid_t pid) {
    double nanoseconds = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        double used = 0;
        std::ifstream(thread.path() / "schedstat") >> used;
        nanoseconds += used;
    }
    return nanoseconds / 1e9;
}

long own_memory_of(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;) {
        long kilobytes = 0;
        if (word == "RssAnon:" && status >> kilobytes) return kilobytes;
    }
    throw std::runtime_error("no such process");
}
