#pragma once
// The lines of an archive file, "time,quality,value": one after the other as they stand, what is no whole line passed
// over and counted. A torn line, a run of zero bytes, a line of any length cost no memory.

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "core/file.h"

namespace contract {

struct ArchiveLine {
    std::int32_t time = 0;   ///< seconds since the epoch; the gateway's time_t
    int quality = 0;         ///< 192 good; of an event begun; else not good, or over
    std::string_view value;  ///< as it stands: six digits behind the point, or inf, or nan
};

/// One line without its end. False for what the daemon cannot have written whole: a number with fewer than six digits
/// behind the point has lost its end.
bool parse_archive_line(std::string_view text, ArchiveLine& line);

class ArchiveLines {
  public:
    static constexpr std::size_t LongestLine = 512;  ///< bytes; a number of any size needs 340

    /// The file, which outlives this, from `begin` to `end`. A line that has begun in front of `begin` is left out.
    ArchiveLines(File& file, off_t begin, off_t end);

    /// The next line; its value stands until the next call. False at the end.
    bool next(ArchiveLine& line);
    /// Where the last line begins in the file.
    off_t position() const { return line_at; }
    /// Where the last line that has its end ends: what follows may still be being written.
    off_t end_of_lines() const { return whole_until; }
    /// Goes on with the line that begins there.
    void go_to(off_t begin);

    std::size_t unreadable() const { return unreadable_count; }
    /// The file was shorter than it had been: somebody has emptied or replaced it.
    bool is_short() const { return was_short; }

  private:
    static constexpr std::size_t BlockBytes = 64 * 1024;
    static constexpr std::size_t Padding = 64;  // that the fast look at a line may read behind the end

    void fill();
    bool skip_line();
    std::string_view rest() const { return {buffer.data() + at, filled - at}; }
    off_t offset() const { return buffer_at + static_cast<off_t>(at); }

    File* file;
    off_t end;
    off_t buffer_at;  // of the buffer's first byte in the file
    std::vector<char> buffer;
    std::size_t at = 0;
    std::size_t filled = 0;
    off_t line_at = 0;
    off_t whole_until = 0;
    std::size_t unreadable_count = 0;
    bool was_short = false;
};

}  // namespace contract
