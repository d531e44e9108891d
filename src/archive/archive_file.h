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

#include "core/file.h"

/// "time,quality,value\n" with six digits behind the point, within `limit` bytes.
std::string archive_line(std::size_t limit, std::time_t time, int quality, double value);

/// Where an archive file stands: "/mnt/storage/<uuid>/<subsystem>/<directory>/<name>".
std::string archive_path(const std::string& uuid, int subsystem, const std::string& directory, const std::string& name);

class ArchiveFile {
  public:
    /// The file at a path of the gateway, whatever its length. Without a lock an outside reader may meet half a line.
    ArchiveFile(const std::string& path, bool locked);
    /// The file of `name` in "tmp_archives" if `to_tmp` is exactly 1, otherwise in "tc_archives". Opens nothing.
    ArchiveFile(const std::string& uuid, int subsystem, const std::string& name, int to_tmp);
    /// The file of `name` in "tc_archives" below a subsystem that is named by a word.
    ArchiveFile(const std::string& uuid, const std::string& subsystem, const std::string& name);
    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;

    /// Opens for appending, waits for the exclusive lock, and ends a last line that lost its end. True when the file is
    /// open now.
    bool open_append();
    /// Opens and empties, then waits for the exclusive lock. True when the file is open now.
    bool open_truncate();
    /// Takes a line for the end of the file. Nothing if the file is not open.
    void append(const std::string& line);
    /// Writes in one piece what was taken, makes it durable, gives the lock back and closes.
    void close();
    /// Leaves the file empty, open and locked.
    void clear();

    bool is_open() const { return file.is_open(); }
    const std::string& get_name() const { return name; }
    const std::string& get_path() const { return path; }

  private:
    bool open(int flags);

    std::string name;  ///< at most 10 bytes
    std::string path;  ///< at most 119 bytes where a name makes it
    bool locked = true;
    File file;
    std::string pending;  ///< what close() is to write
};
