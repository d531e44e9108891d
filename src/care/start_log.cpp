#include "care/start_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {

// A full disk must not keep a meter from being read.
void put(int fd, std::string_view text) {
    [[maybe_unused]] const ssize_t written = ::write(fd, text.data(), text.size());
}

}  // namespace

void StartLog::begin() {
    close();
    std::rename(path.c_str(), (path + ".old").c_str());
    fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    room = BeginningBytes;
    anything_cut = false;
    last.clear();
}

void StartLog::add(std::string_view text) {
    const std::string_view beginning = text.substr(0, room);
    if (!beginning.empty()) put(fd, beginning);
    room -= beginning.size();
    last += text.substr(beginning.size());
    if (last.size() <= LastBytes) return;
    last.erase(0, last.size() - LastBytes);
    anything_cut = true;
}

void StartLog::end(std::string_view line) {
    if (anything_cut) put(fd, "\n[...]\n");
    put(fd, last);
    put(fd, line);
    put(fd, "\n");
    close();
}

void StartLog::close() {
    if (fd >= 0) ::close(fd);
    fd = -1;
}
