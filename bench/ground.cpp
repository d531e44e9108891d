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

ssize_t DeskGateway::read_port(int fd, std::span<std::uint8_t> into) {
    const auto begun = std::chrono::steady_clock::now();
    const ssize_t got = sim::DeskGateway::read_port(fd, into);
    if (got != 0) return got;
    ++silences_;
    silent_seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    return 0;
}
