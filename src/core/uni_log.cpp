#include "core/uni_log.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

#include "core/gateway.h"
#include "core/local_time.h"
#include "core/text.h"

UniLog* g_log = nullptr;

namespace {

constexpr off_t WrapOffset = 204801;  // a line end at this offset or behind it starts the file over
constexpr char WrapMarker[] = "---------------\n";
constexpr std::size_t NumberBuffer = 31;
constexpr int RowBytes = 16;

/// One row of a dump: " 0xNN" for each byte.
std::string hex_row(const std::uint8_t* data, int length) {
    constexpr char Digits[] = "0123456789ABCDEF";
    std::string row;
    for (int i = 0; i < length; ++i) {
        row += " 0x";
        row += Digits[data[i] >> 4];
        row += Digits[data[i] & 0x0F];
    }
    return row;
}

}  // namespace

UniLog::UniLog(int outputs, const std::string& file_path, const std::string& label)
    : mask(outputs), name(label), path(file_path) {
    if (!path.empty()) file = File(path, O_RDWR | O_CREAT | O_TRUNC, 0644);
}

UniLog::UniLog(const std::string& file_path, const std::string& label) : UniLog(0, file_path, label) {}

std::unique_ptr<UniLog> open_meter_log(const std::string& uuid, const std::string& ending) {
    return std::make_unique<UniLog>(UniLog::ToFile, "/tmp/uni_logs." + uuid + "." + ending, "");
}

UniLog& UniLog::operator<<(LogControl control) {
    if (!is_enabled()) return *this;
    if (control == LOG_BEGIN) return *this << time_prefix();
    if (control == LOG_END) end_line();
    return *this;
}

void UniLog::end_line() {
    if (writes_file()) {
        file.write("\n");
        if (file.seek(0, SEEK_CUR) >= WrapOffset) {
            file.seek(0, SEEK_SET);
            file.write(WrapMarker);
        }
    }
    if (writes_stdout()) {
        std::cout << std::endl;
        std::printf("\n");
    }
}

UniLog& UniLog::operator<<(const char* text) {
    if (!is_enabled()) return *this;
    if (writes_file()) file.write(text);
    if (writes_stdout()) {
        // Text shows twice on a console, once by each of the two output facilities; it is meant to stay so.
        std::cout << text;
        std::printf("%s", text);
    }
    return *this;
}

UniLog& UniLog::operator<<(const std::string& text) {
    if (!is_enabled()) return *this;
    if (writes_file()) file.write(text.c_str());
    if (writes_stdout()) std::cout << text;
    return *this;
}

template <typename Value>
UniLog& UniLog::insert_number(const char* format, Value value) {
    if (!is_enabled()) return *this;
    if (writes_file()) {
        char text[NumberBuffer];
        std::snprintf(text, sizeof(text), format, value);
        file.write(text);
    }
    if (writes_stdout()) std::cout << value;
    return *this;
}

UniLog& UniLog::operator<<(int value) {
    return insert_number("%d", value);
}
UniLog& UniLog::operator<<(long value) {
    return insert_number("%ld", value);
}
UniLog& UniLog::operator<<(long long value) {
    return insert_number("%lld", value);
}
UniLog& UniLog::operator<<(unsigned value) {
    return insert_number("%u", value);
}
UniLog& UniLog::operator<<(unsigned long value) {
    return insert_number("%lu", value);
}
UniLog& UniLog::operator<<(unsigned long long value) {
    return insert_number("%llu", value);
}
UniLog& UniLog::operator<<(double value) {
    return insert_number("%f", value);
}
UniLog& UniLog::operator<<(float value) {
    return insert_number("%f", static_cast<double>(value));
}

void UniLog::dump_packet(const std::uint8_t* data, int length) {
    if (!is_enabled()) return;
    *this << LOG_BEGIN << "Dumping packet:" << LOG_END;
    for (int at = 0; at < length; at += RowBytes) {
        *this << LOG_BEGIN << hex_row(data + at, std::min(RowBytes, length - at)) << LOG_END;
    }
    *this << LOG_END;
    *this << LOG_BEGIN << "Dumping packet done." << LOG_END;
}

std::string UniLog::time_prefix() const {
    const timeval now = gateway().time_of_day();
    const std::tm tm = local_time(now.tv_sec);
    return format_cut(64, "%02d/%02d/%02d %02d:%02d:%02d.%03ld : ", tm.tm_mday, tm.tm_mon + 1, tm.tm_year % 100,
                      tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<long>(now.tv_usec / 1000));
}

void UniLog::open_debug_log() {
    if (!is_enabled()) return;
    debug_file = File("/mnt/storage/DebugLog.log", O_RDWR | O_TRUNC | O_APPEND, 0644);
}

void UniLog::debug_block(const std::string& start_text, const std::string& end_text, const std::uint8_t* data,
                         int length) {
    std::string block = "START: " + start_text + "\n";
    for (int at = 0; at < length; at += RowBytes) block += hex_row(data + at, std::min(RowBytes, length - at)) + "\n";
    debug_write(block + "END: " + end_text + "\n\n");
}

void UniLog::debug_write(const std::string& text) {
    if (is_enabled()) debug_file.write(text);
}
