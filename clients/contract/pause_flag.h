#pragma once
// The flag that keeps every daemon off its line, and who holds it. A flag of ours tells so in its text: who made it,
// and how a port is to be left if he could not do that himself.

#include <sys/types.h>
#include <termios.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace contract {

constexpr const char* PauseFlag = "/tmp/pause_tvk_all";

/// How a serial port was before somebody borrowed it.
struct BorrowedPort {
    std::string device;
    termios before{};
    termios set{};                    ///< what the borrower has made of it last
    std::vector<std::uint8_t> close;  ///< to be said to a meter that may still be in a dialog
};

struct PauseHolder {
    std::string command = {};  ///< "pause", "probe"; empty: not one of ours
    pid_t pid = 0;             ///< who takes it away at the end; 0: nobody but `resume`
    std::optional<std::int64_t> until = {};
    std::optional<BorrowedPort> port = {};
    bool is_left_over = false;  ///< who was to take it away has gone
    std::int64_t made = 0;      ///< seconds since the epoch, when it was written
    uid_t owner = 0;

    /// "heatmeterctl probe, process 1234", "somebody (user root, 5 min ago)"
    std::string text(std::int64_t now) const;
};

/// Nothing when the line is free.
std::optional<PauseHolder> look_at_pause();

/// The text of a flag of this process, or of nobody (`pid` 0).
std::string pause_text(const PauseHolder& holder);

/// Makes a flag below /tmp: a new file, never through a link. 0, or an errno: EEXIST when something is there.
int make_flag(const std::string& path, const std::string& text);
/// 0, or an errno.
int remove_flag(const std::string& path);

}  // namespace contract
