#include "archive/record_time_memory.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "archive/record_time_scan.h"
#include "core/gateway.h"

namespace {

constexpr double SettledSeconds = 2.0;  // more than any file system's clock tick

bool same(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool unchanged(const struct stat& before, const struct stat& now) {
    return before.st_dev == now.st_dev && before.st_ino == now.st_ino && before.st_size == now.st_size &&
           same(before.st_mtim, now.st_mtim) && same(before.st_ctim, now.st_ctim);
}

bool settled(const struct stat& status) {
    return std::difftime(gateway().now(), status.st_ctim.tv_sec) > SettledSeconds;
}

std::time_t scan(int fd) {
    RecordTimeScan lines;
    std::array<char, 32768> block;
    for (ssize_t got = 0; (got = ::read(fd, block.data(), block.size())) > 0;) {
        lines.feed({block.data(), static_cast<std::size_t>(got)});
    }
    return lines.finish();
}

}  // namespace

std::time_t RecordTimeMemory::last_record_time(const std::string& path) {
    const std::string file = rooted(path);
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) {
        files.erase(path);
        return 0;
    }
    const auto known = files.find(path);
    if (known != files.end() && unchanged(known->second.status, status)) return known->second.time;

    files.erase(path);
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    ::fstat(fd, &status);  // before the reading: a change during it shows at the next look
    const std::time_t time = scan(fd);
    ::close(fd);
    if (settled(status)) files[path] = {status, time};
    return time;
}
