#pragma once
// An open file of the gateway, which closes itself. What is no regular file (a FIFO, a device, or a link to one) counts
// as a file that cannot be opened, and opening never waits. Below /tmp, where anybody may leave a link, the last name
// is not followed. A call that a signal has interrupted is made again.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <span>
#include <string>
#include <string_view>

class File {
  public:
    /// No file.
    File() = default;
    /// Opens the file at a path of the gateway, as open(2) does with these flags.
    explicit File(const std::string& path, int flags, mode_t mode = 0666);
    ~File() { close(); }
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;

    bool is_open() const { return fd >= 0; }
    explicit operator bool() const { return is_open(); }
    /// The descriptor, -1 without a file.
    int descriptor() const { return fd; }

    /// Waits until nobody else has the exclusive lock, and takes it until the file is closed.
    void lock();
    /// The number of bytes, fewer than asked for only at the file's end or on an error.
    std::size_t read(std::span<char> into);
    /// Writes the whole text, in one piece where the storage lets it. False when some of it could not be written.
    bool write(std::string_view text);
    /// Appends so many bytes of the source, from where it stands. False when some of them are missing.
    bool write_from(File& source, off_t size);
    /// The data survive a power cut from here on. False when the storage does not say so.
    bool make_durable();
    bool resize(off_t size);
    /// As lseek(2): the new position, or -1.
    off_t seek(off_t offset, int whence);
    /// False leaves `status` as it was.
    bool look(struct stat& status) const;
    /// True when the last byte is there and is not a line end.
    bool last_line_is_open();
    void close();

  private:
    int fd = -1;
};
