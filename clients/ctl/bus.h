#pragma once
// The bus held by its flag, and a port borrowed from a daemon that has it open, for as long as these objects live.

#include <termios.h>

#include <cstdint>
#include <string>
#include <vector>

#include "contract/pause_flag.h"
#include "core/file.h"
#include "core/gateway_wrapper.h"
#include "ctl/console.h"

namespace ctl {

/// Signals that end a command only when it has tidied up: INT, TERM, HUP and QUIT are noted, PIPE and TSTP have no
/// effect.
void note_signals();
/// A signal has come.
bool was_signalled();
/// Ends the command when a signal has come.
void heed_signals();

/// Ends the command when somebody holds the bus, unless `anyway`. Takes a flag away that one of ours has left behind,
/// and says so on standard error. True: somebody else's flag stays where it is.
bool make_room(const Console& console, bool anyway);
/// What a killed `probe` has left of a port: as it was before, and no meter in a dialog.
void give_port_back(const contract::BorrowedPort& port);

/// Makes the flag, and takes it away.
class PauseHold {
  public:
    explicit PauseHold(contract::PauseHolder holder);
    ~PauseHold();
    PauseHold(const PauseHold&) = delete;
    PauseHold& operator=(const PauseHold&) = delete;

    /// Writes the flag's text anew, for what the port has come to.
    void tell(const contract::BorrowedPort& port);

  private:
    contract::PauseHolder holder;
    File file;
};

/// The system's machine without the flag that we hold ourselves, and with an eye on signals: whatever waits is ended by
/// a Failure then. Counts what is heard.
class BusMachine final : public GatewayWrapper {
  public:
    int look_at(const std::string& path, struct stat& status) override;
    void sleep(unsigned seconds) override;
    ssize_t read_port(int fd, std::span<std::uint8_t> into) override;
    ssize_t write_port(int fd, std::span<const std::uint8_t> bytes) override;
    int wait_readable(int fd, std::int64_t microseconds) override;

    /// What was heard last, for who asks why it was no answer.
    std::vector<std::uint8_t> heard;
};

/// An open terminal that others may have open, too. At the end it is as it was, unless somebody else has set it.
class BorrowedLine {
  public:
    /// `close`: what ends a dialog with a meter of this family.
    BorrowedLine(const std::string& device, std::vector<std::uint8_t> close);
    ~BorrowedLine();
    BorrowedLine(const BorrowedLine&) = delete;
    BorrowedLine& operator=(const BorrowedLine&) = delete;

    int descriptor() const { return fd; }
    dev_t number() const;
    /// Waits until nothing has come or gone for a while; ends the command on a line that is never quiet.
    void await_quiet(double least_seconds) const;
    /// `hold` is told of it, if we have one.
    void set(const termios& line, PauseHold* hold);

  private:
    int fd = -1;
    contract::BorrowedPort port;
    bool is_set = false;
};

}  // namespace ctl
