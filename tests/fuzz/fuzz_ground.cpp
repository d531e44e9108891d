#include "fuzz_ground.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr int Subsystems = 6;

class Folder {
  public:
    Folder() : path_(place() + "/heatmeter-fuzz-XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path_);
    }
    ~Folder() {
        std::error_code left_behind;
        fs::remove_all(path_, left_behind);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return path_; }

  private:
    static std::string place() {
        const bool chosen = std::getenv("TMPDIR") != nullptr;
        return !chosen && fs::is_directory("/dev/shm") ? "/dev/shm" : fs::temp_directory_path().string();
    }

    std::string path_;
};

class MeterFolder : public Folder {
  public:
    MeterFolder() {
        for (int n = 1; n <= Subsystems; ++n) {
            const std::string subsystem = std::string(FuzzUuid) + "/" + std::to_string(n);
            for (const char* directory : {"tc_archives", "tmp_archives", "tc_tmp_archives"}) {
                fs::create_directories(path() + "/mnt/storage/" + subsystem + "/" + directory);
            }
            fs::create_directories(path() + "/tmp/" + subsystem + "/tc_items");
        }
    }
};

}  // namespace

std::uint8_t FuzzInput::byte() {
    const auto one = bytes(1);
    return one.empty() ? std::uint8_t{0} : one.front();
}

std::uint32_t FuzzInput::word() {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | byte();
    return value;
}

std::span<const std::uint8_t> FuzzInput::bytes(std::size_t count) {
    const auto taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
}

std::string_view FuzzInput::text(std::size_t count) {
    const auto taken = bytes(count);
    return {reinterpret_cast<const char*>(taken.data()), taken.size()};
}

void expect(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz target: not so: %s\n", what);
    std::abort();
}

void quiet_stdout() {
    const int nowhere = ::open("/dev/null", O_WRONLY);
    ::dup2(nowhere, STDOUT_FILENO);
    ::close(nowhere);
}

const std::string& full_root() {
    static const MeterFolder Folder;
    return Folder.path();
}

const std::string& empty_root() {
    static const Folder Folder;
    return Folder.path();
}

void empty_directories() {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(full_root())) {
        if (entry.is_regular_file()) fs::remove(entry.path());
    }
}

FuzzGateway::FuzzGateway(const std::string& root) {
    root_folder = root;
    set_gateway(this);
}

FuzzGateway::~FuzzGateway() {
    set_gateway(nullptr);
}

timeval FuzzGateway::time_of_day() {
    ++milliseconds_;
    timeval now{};
    now.tv_sec = static_cast<std::time_t>(milliseconds_ / 1000);
    now.tv_usec = static_cast<suseconds_t>(milliseconds_ % 1000 * 1000);
    return now;
}

void FuzzGateway::sleep(unsigned seconds) {
    milliseconds_ += std::int64_t{seconds} * 1000;
}
