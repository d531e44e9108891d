#pragma once
// The diagnostic trail of a device without a console: a chainable text log with a time prefix for each line. A log file
// starts empty with the process and writes over itself at about 200 KiB, so that it never fills the gateway's /tmp.
// Output is not buffered: the last line before a crash is in the file. Nothing here ever fails visibly.

#include <cstddef>
#include <memory>
#include <string>

#include "core/bytes.h"
#include "core/file.h"

/// Line control, inserted like a value.
enum LogControl : int {
    LOG_BEGIN = 0,  ///< begins a line: writes the time prefix
    LOG_END = 1,    ///< ends the line, then looks at the size of the file
};

class UniLog {
  public:
    // Bits of the mask.
    static constexpr int ToFile = 1;
    static constexpr int ToStdout = 2;
    static constexpr int Muted = 4;

    /// Opens (and empties) the file at `path`; an empty path or a failed open leaves a log without a file.
    UniLog(int mask, const std::string& path, const std::string& name);
    /// A silent log, mask 0.
    UniLog(const std::string& path, const std::string& name);
    UniLog(const UniLog&) = delete;
    UniLog& operator=(const UniLog&) = delete;

    bool is_enabled() const { return (mask & Muted) == 0; }

    UniLog& operator<<(LogControl control);
    UniLog& operator<<(const char* text);
    UniLog& operator<<(const std::string& text);
    UniLog& operator<<(int value);
    UniLog& operator<<(long value);
    UniLog& operator<<(long long value);  ///< with long: time_t of every machine
    UniLog& operator<<(unsigned value);
    UniLog& operator<<(unsigned long value);
    UniLog& operator<<(unsigned long long value);
    UniLog& operator<<(double value);
    UniLog& operator<<(float value);

    /// Lines of 16 bytes each, in hex, between a heading and a closing line.
    void dump_packet(const std::uint8_t* data, int length);
    void dump_packet(Bytes data) { dump_packet(data.data(), static_cast<int>(data.size())); }

    /// "DD/MM/YY hh:mm:ss.mmm : ", local time.
    std::string time_prefix() const;

    // A second channel for debugging in the field. The file /mnt/storage/DebugLog.log is used only if it is there.
    void open_debug_log();
    void debug_block(const std::string& start_text, const std::string& end_text, const std::uint8_t* data, int length);
    void debug_write(const std::string& text);

  private:
    bool writes_file() const { return (mask & ToFile) != 0 && file.is_open(); }
    bool writes_stdout() const { return (mask & ToStdout) != 0; }
    template <typename Value>
    UniLog& insert_number(const char* format, Value value);
    void end_line();

    int mask = 0;
    File file;
    File debug_file;
    std::string name;  ///< free label, not printed
    std::string path;
};

/// "/tmp/uni_logs.<uuid>.<ending>": a log of one meter.
std::unique_ptr<UniLog> open_meter_log(const std::string& uuid, const std::string& ending);

extern UniLog* g_log;  ///< general log of the process; null until it is made

/// One whole line on `log`: prefix, the parts one after the other, line end. A null or muted log gets nothing.
template <typename... Parts>
void log_line(UniLog* log, const Parts&... parts) {
    if (log == nullptr || !log->is_enabled()) return;
    *log << LOG_BEGIN;
    (*log << ... << parts) << LOG_END;
}
