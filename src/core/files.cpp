#include "core/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/gateway.h"

namespace {

bool write_with(const std::string& path, int how, std::string_view text) {
    const int fd = ::open(rooted(path).c_str(), O_WRONLY | O_CREAT | how, 0666);
    if (fd < 0) return false;
    const ssize_t written = ::write(fd, text.data(), text.size());
    ::close(fd);
    return written == static_cast<ssize_t>(text.size());
}

}  // namespace

bool is_directory(const std::string& path) {
    struct stat status {};
    return ::stat(rooted(path).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(rooted(path).c_str(), &status) == 0;
}

void make_directories(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        ::mkdir(rooted(path.substr(0, slash)).c_str(), 0777);
    }
    ::mkdir(rooted(path).c_str(), 0777);
}

void make_link(const std::string& target, const std::string& link) {
    if (link.empty()) return;
    const std::string place = is_directory(link) ? link + "/" + target.substr(target.rfind('/') + 1) : link;
    [[maybe_unused]] const int result = ::symlink(rooted(target).c_str(), rooted(place).c_str());
}

bool overwrite_file(const std::string& path, std::string_view text) {
    return write_with(path, O_TRUNC, text);
}

bool overwrite_durably(const std::string& path, std::string_view text) {
    const int fd = ::open(rooted(path).c_str(), O_WRONLY | O_CREAT, 0666);
    if (fd < 0) return false;
    const auto length = static_cast<off_t>(text.size());
    const bool whole =
        ::pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) && ::ftruncate(fd, length) == 0;
    const bool durable = whole && gateway().make_durable(fd) == 0;
    ::close(fd);
    return durable;
}

bool append_file(const std::string& path, std::string_view text) {
    return write_with(path, O_APPEND, text);
}
