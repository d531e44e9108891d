#include "core/file.h"

#include <cerrno>
#include <utility>

#include "core/gateway.h"

namespace {

/// Makes the call until no signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

int open_regular(const std::string& path, int flags, mode_t mode) {
    flags |= O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    if (path.starts_with("/tmp/")) flags |= O_NOFOLLOW;
    const int fd = uninterrupted([&] { return gateway().open_file(path, flags, mode); });
    struct stat status {};
    if (fd < 0 || (gateway().look_at_file(fd, status) == 0 && S_ISREG(status.st_mode))) return fd;
    gateway().close_file(fd);
    return -1;
}

}  // namespace

File::File(const std::string& path, int flags, mode_t mode) : fd(open_regular(path, flags, mode)) {}

File::File(File&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        close();
        fd = std::exchange(other.fd, -1);
    }
    return *this;
}

void File::lock() {
    if (is_open()) uninterrupted([&] { return gateway().lock_file(fd); });
}

std::size_t File::read(std::span<char> into) {
    std::size_t count = 0;
    while (is_open() && count < into.size()) {
        const ssize_t got = uninterrupted([&] { return gateway().read_file(fd, into.subspan(count)); });
        if (got <= 0) break;
        count += static_cast<std::size_t>(got);
    }
    return count;
}

bool File::write(std::string_view text) {
    while (is_open() && !text.empty()) {
        const ssize_t written = uninterrupted([&] { return gateway().write_file(fd, text); });
        if (written <= 0) break;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return is_open() && text.empty();
}

bool File::write_from(File& source, off_t size) {
    while (is_open() && source.is_open() && size > 0) {
        const auto rest = static_cast<std::size_t>(size);
        const ssize_t sent = uninterrupted([&] { return gateway().send_file(fd, source.fd, rest); });
        if (sent <= 0) break;
        size -= static_cast<off_t>(sent);
    }
    return is_open() && size == 0;
}

bool File::make_durable() {
    return is_open() && uninterrupted([&] { return gateway().make_durable(fd); }) == 0;
}

bool File::resize(off_t size) {
    return is_open() && uninterrupted([&] { return gateway().resize_file(fd, size); }) == 0;
}

off_t File::seek(off_t offset, int whence) {
    return gateway().seek_file(fd, offset, whence);
}

bool File::look(struct stat& status) const {
    return gateway().look_at_file(fd, status) == 0;
}

bool File::last_line_is_open() {
    char last = '\n';
    return seek(-1, SEEK_END) >= 0 && read(std::span(&last, 1)) == 1 && last != '\n';
}

void File::close() {
    if (is_open()) gateway().close_file(std::exchange(fd, -1));
}
