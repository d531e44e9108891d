#include "ground.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr int Subsystems = 6;

std::string new_folder(std::string folder) {
    folder += "/heatmeter-bench-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) throw std::system_error(errno, std::generic_category(), folder);
    return folder;
}

std::string memory() {
    return fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
}

}  // namespace

Ground::Ground(Storage storage)
    : root_(new_folder(memory())), storage_(new_folder(storage == OnDisk ? fs::current_path().string() : memory())) {
    fs::create_directory(real_path("/mnt"));
    fs::create_directory_symlink(storage_, real_path("/mnt/storage"));
    for (int n = 1; n <= Subsystems; ++n) {
        const std::string subsystem = std::string(Uuid) + "/" + std::to_string(n);
        fs::create_directories(real_path("/mnt/storage/" + subsystem + "/tc_archives"));
        fs::create_directories(real_path("/tmp/" + subsystem + "/tc_items"));
    }
}

Ground::~Ground() {
    std::error_code left_behind;
    fs::remove_all(root_, left_behind);
    fs::remove_all(storage_, left_behind);
}

DeskGateway::DeskGateway(const Ground& ground) {
    root_ = ground.root();
    set_gateway(this);
}

DeskGateway::~DeskGateway() {
    set_gateway(nullptr);
}

timeval DeskGateway::time_of_day() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return now;
}

void DeskGateway::sleep(unsigned seconds) {
    ::sleep(seconds);
}

void DeskGateway::sleep_nanoseconds(long nanoseconds) {
    const timespec pause{.tv_sec = 0, .tv_nsec = nanoseconds};
    ::nanosleep(&pause, nullptr);
}

int DeskGateway::open_port(const char* device) {
    return ::open(device, O_RDWR | O_NOCTTY);
}

int DeskGateway::set_line(int fd, const termios& line) {
    ::tcflush(fd, TCIFLUSH);
    return ::tcsetattr(fd, TCSAFLUSH, &line);
}

ssize_t DeskGateway::read_port(int fd, std::span<std::uint8_t> into) {
    const auto begun = std::chrono::steady_clock::now();
    const ssize_t got = ::read(fd, into.data(), into.size());
    if (got != 0) return got;
    ++silences_;
    silent_seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    return 0;
}

ssize_t DeskGateway::write_port(int fd, std::span<const std::uint8_t> bytes) {
    return ::write(fd, bytes.data(), bytes.size());
}

int DeskGateway::drain_port(int fd) {
    return ::tcdrain(fd);
}

int DeskGateway::make_durable(int fd) {
    return ::fdatasync(fd);
}
