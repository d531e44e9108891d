#pragma once
// A serial line whose one end is a pseudo-terminal, open to any program on this machine, and whose other end are
// simulated meters. Bytes take the time that they would take on a real line, in real time. Cable and adapter can fail.

#include <cstdint>
#include <fstream>
#include <optional>
#include <span>
#include <string>

#include "sim_clock.h"
#include "sim_line.h"
#include "sim_meter.h"

namespace sim {

/// A text file of all that is said on the lines, a row for each message: time, line, ">" to the meters or "<" from
/// them, bytes in hex as the other side hears them.
class LineTrace {
  public:
    /// An empty path makes a trace that notes nothing. Throws std::system_error when the file does not open.
    explicit LineTrace(const std::string& path);
    void note(const std::string& line, char direction, std::span<const std::uint8_t> bytes);

  private:
    std::ofstream file_;
};

class PtyLine {
  public:
    /// Opens a pseudo-terminal and makes `link` lead to it, in the place of another symbolic link if there is one.
    /// `baud` is the speed of the meters. Throws std::system_error, std::invalid_argument for the speed.
    PtyLine(std::string link, unsigned baud, LineTrace& trace);
    /// Takes the link away, unless somebody has made it lead elsewhere.
    ~PtyLine();
    PtyLine(const PtyLine&) = delete;
    PtyLine& operator=(const PtyLine&) = delete;

    /// The meter is not owned.
    void connect(SimMeter& meter) { line_.connect(meter); }

    const std::string& link() const { return link_; }
    const std::string& device() const { return device_; }  ///< empty without an adapter

    /// The speed of the meters. With another one set by the program at the other end, both hear something else than
    /// was said.
    void set_speed(unsigned baud);
    unsigned speed() const;
    unsigned set_by_program() const;
    /// Through a cut cable nobody hears anything. The adapter stays.
    void cut_cable(bool cut);
    bool is_cut() const { return cut_; }
    /// Without its adapter a line is no terminal any more, and its link is gone; plugged in it is another terminal.
    void plug_out();
    void plug_in();
    bool plugged_in() const { return master_ >= 0; }

    /// Readable when there is something for work() to do; -1 without an adapter.
    int fd() const { return master_; }
    /// The moment of real_time() at which work() has something to do even if nothing comes.
    std::optional<Micros> due() const;
    /// Hears what has been sent, lets the meters answer a request that has ended, and passes on the bytes of answers
    /// whose time has come. Never waits.
    void work();

  private:
    void open_terminal();
    void make_link();
    void listen(Micros now);
    void ask_meters(Micros now);
    void pass_on(Micros now);

    std::string link_;
    std::string device_;
    LineTrace& trace_;
    int master_ = -1;
    int slave_ = -1;  // kept open, so that the line does not hang up between two programs
    bool cut_ = false;
    SimLine line_;
    ByteVector request_;
    Micros request_begun_ = 0;
    Micros last_heard_ = 0;
    ByteVector said_;  // passed on, not in the trace yet
};

}  // namespace sim
