#pragma once
// The daemon's logs in the order of time. A log writes over itself from the top once it is past 200 KiB, below a row of
// dashes; where it stands then, the newest line is glued to what is left of an old one. The general log, which several
// processes write, each where it was, has holes of zero bytes.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace contract {

struct LogLine {
    std::int64_t milliseconds = 0;  ///< since the epoch; of a line without a time that of the line in front
    bool has_time = false;
    std::string_view whole;  ///< as it stands, without its end
    std::string_view text;   ///< behind the time

    std::int64_t time() const { return milliseconds / 1000; }
};

class Log {
  public:
    /// The lines of a log's text. `written`: when the file was written last, seconds since the epoch; 0 if not known.
    explicit Log(std::string_view text = {}, std::int64_t written = 0);
    Log(Log&&) = default;
    Log& operator=(Log&&) = default;

    /// Oldest first. They stand as long as the log.
    const std::vector<LogLine>& lines() const { return ordered; }
    /// It has written over itself, so its beginning is not that of the process.
    bool is_wrapped() const { return wrapped; }
    /// Pieces of old lines that were left where it wrote over itself.
    std::size_t torn() const { return torn_count; }
    std::int64_t written() const { return written_at; }

  private:
    void put_in_order();
    void order_from(std::size_t seam);

    std::vector<char> bytes;  // which the lines look at
    std::vector<LogLine> ordered;
    std::int64_t written_at = 0;
    std::size_t torn_count = 0;
    bool wrapped = false;
};

/// The log at a path; empty without one. Of a file that is no log at most its first MiB.
Log read_log(const std::string& path);

/// Which lines of a log are new to who has seen it before: those behind the last ones that were seen.
class LogFollower {
  public:
    /// The index of the first new line. `began_anew`: what was seen is not there any more: the process was started
    /// again, or has written so much meanwhile that lines were lost.
    std::size_t new_lines(const Log& log, bool& began_anew);

  private:
    std::vector<std::string> seen;  // the last ones, oldest first
};

/// "general", "UUID" or "UUID:debug" to the path of a log; empty for another text. A uuid alone stands for the log that
/// tells of the line: "debug" of a KM5 and an SA-94, the only one of a VIST.
std::string log_path(const std::string& name);

}  // namespace contract
