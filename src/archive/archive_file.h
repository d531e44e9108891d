#pragma once
// One archive file: the lines "time,quality,value" of one parameter of one subsystem.
//
// How a line survives a power cut: it is built whole, appended in one piece under an exclusive lock (an outside reader
// that takes the lock never sees half a line), made durable before the lock is given back, and only then does the
// next line begin. A cut in the middle can leave the file's last line short or without its end, or leave zero bytes in
// its place. Whoever appends next ends such a line first, so that nothing is ever glued to it, and whoever reads
// passes over what is no line.

#include <ctime>
#include <string>

#include "core/files.h"

/// "time,quality,value\n" with six digits behind the point, within `limit` bytes.
std::string archive_line(std::size_t limit, std::time_t time, int quality, double value);

/// Where an archive file stands: "/mnt/storage/<uuid>/<subsystem>/<directory>/<name>".
std::string archive_path(const std::string& uuid, int subsystem, const std::string& directory, const std::string& name);

class ArchiveFile {
  public:
    /// The file of `name` in "tmp_archives" if `to_tmp` is exactly 1, otherwise in "tc_archives". Opens nothing.
    ArchiveFile(const std::string& uuid, int subsystem, const std::string& name, int to_tmp);
    /// The file of `name` in "tc_archives" below a subsystem that is named by a word.
    ArchiveFile(const std::string& uuid, const std::string& subsystem, const std::string& name);
    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;

    /// Opens for appending, waits for the exclusive lock, and ends a last line that lost its end. True when the stream
    /// is open now.
    bool open_append();
    /// Opens and empties, then waits for the exclusive lock. True when the stream is open now.
    bool open_truncate();
    /// Writes a line at the end. Nothing if the stream is not open.
    void append(const std::string& line);
    /// Makes durable what was written, gives the lock back and closes.
    void close();
    /// Leaves the file empty, open and locked.
    void clear();

    const std::string& get_name() const { return name; }
    const std::string& get_path() const { return path; }

  private:
    bool open(const char* mode);

    std::string name;  ///< at most 10 bytes
    std::string path;  ///< at most 119 bytes
    Stream file;
};

/// Ends the last line of a file that was just opened for reading and appending, if it lost its end in a power cut. The
/// line end goes out together with the line that follows.
void end_torn_line(std::FILE* stream);
