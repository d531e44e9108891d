#pragma once
// The one door to the machine under the daemon: its clock, its serial ports, its storage's durability, the folder that
// stands for "/", the address of the configuration service. The daemon runs on the system's machine; a test installs a
// simulated one, whose clock moves only when somebody sleeps or a line is silent.

#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <termios.h>

#include <cstdint>
#include <ctime>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class Gateway {
  public:
    virtual ~Gateway() = default;

    /// Wall clock, microseconds.
    virtual timeval time_of_day() = 0;
    /// A clock that nobody sets, microseconds; for time-outs.
    virtual std::int64_t steady_microseconds() = 0;
    virtual void sleep(unsigned seconds) = 0;
    virtual void sleep_nanoseconds(long nanoseconds) = 0;

    /// Opens a serial port for reading and writing, never as the controlling terminal. Descriptor, or -1; what is no
    /// terminal is no port.
    virtual int open_port(const char* device) = 0;
    /// Drops what has been received and not read yet, then sets the line. 0, or -1.
    virtual int set_line(int fd, const termios& line) = 0;
    /// As read(2): waits as the line's VMIN and VTIME tell; the number of bytes, 0 after silence, -1 on error.
    virtual ssize_t read_port(int fd, std::span<std::uint8_t> into) = 0;
    /// As write(2), in one call.
    virtual ssize_t write_port(int fd, std::span<const std::uint8_t> bytes) = 0;
    /// Waits until all that was written has left the port. 0, or -1.
    virtual int drain_port(int fd) = 0;
    /// Drops what has been received and not read yet and what waits to be sent, and lets a halted line go on.
    virtual void flush_port(int fd) = 0;
    /// Waits for something to read: 1 when there is, 0 when the time is over, -1 on error, with errno.
    virtual int wait_readable(int fd, std::int64_t microseconds) = 0;
    /// Tells the gateway's serial driver that a question and its answer are over.
    virtual void end_exchange(int fd) = 0;

    /// Makes the data of an open file survive a power cut. 0, or -1.
    virtual int make_durable(int fd) = 0;

    // Files: the calls of the system, the same on every machine unless a test replaces one. Paths are the gateway's
    // and looked for below root(). -1 on error, with errno. Others use them through File and the functions of files.h.

    virtual int open_file(const std::string& path, int flags, mode_t mode);
    virtual void close_file(int fd);
    virtual ssize_t read_file(int fd, std::span<char> into);
    virtual ssize_t write_file(int fd, std::string_view text);
    /// flock(2), exclusive: waits until nobody else has the lock. It goes with the descriptor.
    virtual int lock_file(int fd);
    /// sendfile(2), from where `from` stands: what one file holds goes into another.
    virtual ssize_t send_file(int to, int from, std::size_t count);
    virtual int resize_file(int fd, off_t size);
    virtual off_t seek_file(int fd, off_t offset, int whence);
    virtual int look_at_file(int fd, struct stat& status);

    /// stat(2), which follows links, and lstat(2), which does not.
    virtual int look_at(const std::string& path, struct stat& status);
    virtual int look_at_name(const std::string& path, struct stat& status);
    virtual int make_folder(const std::string& path);
    /// A symbolic link; the target is a path of the gateway, too.
    virtual int make_link(const std::string& target, const std::string& path);
    /// Takes away a file, or an empty folder.
    virtual int remove(const std::string& path);
    /// Appends the names in a folder, "." and ".." among them, in the order of the file system.
    virtual int list_folder(const std::string& path, std::vector<std::string>& names);

    /// Seconds since the epoch.
    std::time_t now() { return time_of_day().tv_sec; }

    /// The folder that stands for "/", without a slash at its end: empty in the daemon.
    const std::string& root() const { return root_folder; }
    /// Where the configuration service answers.
    const std::string& service_address() const { return service_url; }

  protected:
    std::string root_folder;
    std::string service_url = "http://127.0.0.1:8082/";  // the gateway's configuration service, fixed
};

/// The machine in use: the system's one until another is installed.
Gateway& gateway();

/// Installs another machine, which must outlive its use; null brings the system's one back.
void set_gateway(Gateway* machine);

/// The folder that stands for "/" of the system's machine, for a program that looks at the files of another gateway.
void set_system_root(const std::string& root);
