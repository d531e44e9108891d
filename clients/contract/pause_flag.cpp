#include "contract/pause_flag.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sstream>

#include <fmt/format.h>

#include "contract/capture.h"
#include "contract/moments.h"
#include "contract/site.h"
#include "contract/users.h"
#include "core/gateway.h"

namespace contract {

namespace {

constexpr std::size_t LongestText = 4096;
constexpr const char* Program = "heatmeterctl";

std::string packed(const void* bytes, std::size_t size) {
    const auto* const begin = static_cast<const std::uint8_t*>(bytes);
    return fmt::format("{:02X}", fmt::join(begin, begin + size, ""));
}

bool unpack(const std::string& text, termios& line) {
    std::string reason;
    const auto bytes = bytes_of_hex(text, reason);
    if (!reason.empty() || bytes.size() != sizeof line) return false;
    std::memcpy(&line, bytes.data(), sizeof line);
    return true;
}

/// The process is there, and is one of ours: numbers are given again.
bool is_at_work(pid_t pid) {
    const std::string name = read_text(fmt::format("/proc/{}/comm", pid), LongestText);
    if (!name.empty()) return name.starts_with(Program);
    return ::kill(pid, 0) == 0 || errno == EPERM;
}

void read_holder(const std::string& text, PauseHolder& holder) {
    std::istringstream rows(text);
    std::string row;
    std::getline(rows, row);
    std::istringstream head(row);
    std::string program;
    std::string word;
    if (!(head >> program >> word) || program != Program || (word != "pause" && word != "probe")) return;
    holder.command = word;
    head >> holder.pid;
    std::int64_t until = 0;
    if (head >> word >> until && word == "until") holder.until = until;
    BorrowedPort port;
    bool has_before = false;
    bool has_set = false;
    while (std::getline(rows, row)) {
        const std::size_t blank = row.find(' ');
        if (blank == std::string::npos) continue;
        const std::string name = row.substr(0, blank);
        const std::string value = row.substr(blank + 1);
        std::string reason;
        if (name == "port") port.device = value;
        if (name == "before") has_before = unpack(value, port.before);
        if (name == "set") has_set = unpack(value, port.set);
        if (name == "close") port.close = bytes_of_hex(value, reason);
    }
    if (!port.device.empty() && has_before && has_set) holder.port = std::move(port);
}

}  // namespace

std::string PauseHolder::text(std::int64_t now) const {
    if (!command.empty()) {
        std::string text = fmt::format("{} {}", Program, command);
        if (pid > 0) text += fmt::format(", process {}", pid);
        if (until) text += ", until " + plain_moment_text(*until);
        return text;
    }
    return fmt::format("somebody else (user {}, {} ago)", user_name(owner), duration_text(now - made));
}

std::optional<PauseHolder> look_at_pause() {
    struct stat status {};
    if (gateway().look_at_name(PauseFlag, status) != 0) return {};
    PauseHolder holder;
    holder.owner = status.st_uid;
    holder.made = status.st_mtime;
    if (!S_ISREG(status.st_mode)) return holder;
    read_holder(read_text(PauseFlag, LongestText), holder);
    holder.is_left_over = holder.pid > 0 && !is_at_work(holder.pid);
    // Anybody may write such a text: a port is set by the word of root and of this user alone.
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) holder.port.reset();
    return holder;
}

std::string pause_text(const PauseHolder& holder) {
    std::string text = fmt::format("{} {}", Program, holder.command);
    if (holder.pid > 0) text += fmt::format(" {}", holder.pid);
    if (holder.until) text += fmt::format(" until {}", *holder.until);
    text += '\n';
    if (!holder.port) return text;
    const BorrowedPort& port = *holder.port;
    text += fmt::format("port {}\nbefore {}\nset {}\n", port.device, packed(&port.before, sizeof port.before),
                        packed(&port.set, sizeof port.set));
    if (!port.close.empty()) text += fmt::format("close {}\n", packed(port.close.data(), port.close.size()));
    return text;
}

int make_flag(const std::string& path, const std::string& text) {
    constexpr int New = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    File file(path, New, 0644);
    if (!file) return errno != 0 ? errno : EIO;
    if (file.write(text)) return 0;
    const int error = errno;
    gateway().remove(path);
    return error != 0 ? error : EIO;
}

int remove_flag(const std::string& path) {
    return gateway().remove(path) == 0 ? 0 : errno;
}

}  // namespace contract
