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
    return look_after(folder, false);
}

bool Changes::look_after_folders_in(const std::string& folder) {
    return look_after(folder, true);
}

bool Changes::look_after(const std::string& folder, bool only_folders) {
    constexpr std::uint32_t Names = IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE_SELF | IN_ONLYDIR;
    // Of a folder that is looked after already the system gives the number again; another one under its name is new.
    const int number =
        ::inotify_add_watch(fd, (gateway().root() + folder).c_str(), only_folders ? Names : Names | IN_MODIFY);
    if (number < 0) return false;
    folders[number] = {folder, only_folders};
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
                for (const auto& [number, watched] : folders) changed.insert(watched.folder);
                continue;
            }
            const auto watched = folders.find(event.wd);
            if (watched == folders.end()) continue;
            const bool is_gone = (event.mask & IN_IGNORED) != 0;
            if (is_gone || (event.mask & IN_ISDIR) != 0 || !watched->second.only_folders) {
                changed.insert(watched->second.folder);
            }
            if (is_gone) folders.erase(watched);
        }
    }
    return {changed.begin(), changed.end()};
}

}  // namespace contract
