#include "sim_storage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace sim {

namespace {

std::string whole_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void rewrite(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
}

std::string path_behind(int fd) {
    std::error_code ignored;
    return fs::read_symlink("/proc/self/fd/" + std::to_string(fd), ignored).string();
}

std::vector<std::string> files_below(const std::string& directory) {
    std::vector<std::string> paths;
    std::error_code missing;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory, missing)) {
        if (entry.symlink_status().type() == fs::file_type::regular) paths.push_back(entry.path().string());
    }
    return paths;
}

}  // namespace

SimStorage::SimStorage(const std::string& directory) : directory_(fs::weakly_canonical(directory).string()) {
    settle();
}

void SimStorage::settle() {
    durable_.clear();
    for (const std::string& path : files_below(directory_)) durable_[path] = whole_file(path);
}

void SimStorage::made_durable(int fd) {
    const std::string path = path_behind(fd);
    if (!covers(path)) return;
    std::string& content = durable_[path];
    struct stat status {};
    const auto known = static_cast<off_t>(content.size());
    const bool appended =
        (::fcntl(fd, F_GETFL) & O_APPEND) != 0 && ::fstat(fd, &status) == 0 && status.st_size >= known;
    if (!appended) {
        content = whole_file(path);
        return;
    }
    // A file that is only appended to keeps what it had: years of archive lines need not be read again for each line.
    std::ifstream file(path, std::ios::binary);
    file.seekg(known);
    content.append(std::istreambuf_iterator<char>(file), {});
}

void SimStorage::lose(Unsynced unsynced) {
    disconnect_descriptors();
    for (const std::string& path : files_below(directory_)) {
        if (unsynced == Unsynced::Kept) break;
        const std::string now = whole_file(path);
        const std::string& durable = durable_[path];
        if (now == durable) continue;
        if (unsynced == Unsynced::Dropped) {
            rewrite(path, durable);
        } else {
            // Blocks that the file had hold what they held, be it appended to or written over; a file that was emptied
            // first may have none of them.
            const bool in_place = now.starts_with(durable) || now.size() == durable.size();
            const std::string sound = in_place ? durable : "";
            rewrite(path, sound + std::string(now.size() - sound.size(), '\0'));
        }
    }
    settle();
}

bool SimStorage::covers(const std::string& path) const {
    return path.starts_with(directory_ + "/");
}

void SimStorage::disconnect_descriptors() const {
    std::vector<int> lost;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
        const int fd = std::atoi(entry.path().filename().c_str());
        if (covers(path_behind(fd))) lost.push_back(fd);
    }
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : lost) ::dup2(nowhere, fd);
    ::close(nowhere);
}

}  // namespace sim
