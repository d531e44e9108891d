#include "contract/changes.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <set>

#include "core/gateway.h"

namespace contract {

Changes::Changes() : fd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

Changes::~Changes() {
    if (fd >= 0) ::close(fd);
}

bool Changes::look_after(const std::string& folder) {
    constexpr std::uint32_t Kinds =
        IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE_SELF | IN_ONLYDIR;
    if (numbers.contains(folder)) return true;
    const int number = ::inotify_add_watch(fd, (gateway().root() + folder).c_str(), Kinds);
    if (number < 0) return false;
    folders[number] = folder;
    numbers[folder] = number;
    return true;
}

std::vector<std::string> Changes::wait(int other, int milliseconds) {
    std::array<pollfd, 2> waiting = {pollfd{.fd = fd, .events = POLLIN, .revents = 0},
                                     pollfd{.fd = other, .events = POLLIN, .revents = 0}};
    if (::poll(waiting.data(), waiting.size(), milliseconds) <= 0) return {};
    return take();
}

std::vector<std::string> Changes::take() {
    std::set<std::string> changed;
    alignas(inotify_event) std::array<char, 16384> events{};
    for (ssize_t size; (size = ::read(fd, events.data(), events.size())) > 0;) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            inotify_event event{};
            std::memcpy(&event, events.data() + at, sizeof event);
            at += sizeof event + event.len;
            if ((event.mask & IN_Q_OVERFLOW) != 0) {
                for (const auto& [number, folder] : folders) changed.insert(folder);
                continue;
            }
            const auto folder = folders.find(event.wd);
            if (folder == folders.end()) continue;
            changed.insert(folder->second);
            if ((event.mask & IN_IGNORED) != 0) {
                numbers.erase(folder->second);
                folders.erase(folder);
            }
        }
    }
    return {changed.begin(), changed.end()};
}

}  // namespace contract
