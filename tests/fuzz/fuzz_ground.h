#pragma once
// What all fuzz targets stand on: bytes taken apart from the front, a private folder in memory for "/", a machine
// whose clock moves by itself, and a way to say that something is wrong.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "core/gateway.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// The input of one run; a field behind its end reads as 0 or as empty.
class FuzzInput {
  public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : left_(data, size) {}

    bool empty() const { return left_.empty(); }
    std::uint8_t byte();
    std::uint32_t word();
    std::span<const std::uint8_t> bytes(std::size_t count);
    std::string_view text(std::size_t count);
    std::string_view rest() { return text(left_.size()); }

  private:
    std::span<const std::uint8_t> left_;
};

/// Ends the process with a line on standard error unless `holds`: the fuzzer keeps the input that did it.
void expect(bool holds, const char* what);

/// Standard output leads nowhere from now on.
void quiet_stdout();

/// A folder in memory (or in $TMPDIR), removed at the end of the process, with the directories of one meter in it.
const std::string& full_root();
/// Such a folder without anything: every file below it fails to open.
const std::string& empty_root();

constexpr const char* FuzzUuid = "u";

/// Removes every file in the meter's directories below full_root, and what stands directly in its /tmp.
void empty_directories();

/// A machine without serial ports, whose clock gains a millisecond each time that somebody looks.
class FuzzGateway : public Gateway {
  public:
    explicit FuzzGateway(const std::string& root);
    ~FuzzGateway() override;
    FuzzGateway(const FuzzGateway&) = delete;
    FuzzGateway& operator=(const FuzzGateway&) = delete;

    timeval time_of_day() override;
    std::int64_t steady_microseconds() override { return ++milliseconds_ * 1000; }
    void sleep(unsigned seconds) override;
    void sleep_nanoseconds(long /*nanoseconds*/) override {}
    int open_port(const char* /*device*/) override { return -1; }
    int set_line(int /*fd*/, const termios& /*line*/) override { return 0; }
    ssize_t read_port(int /*fd*/, std::span<std::uint8_t> /*into*/) override { return 0; }
    ssize_t write_port(int /*fd*/, std::span<const std::uint8_t> /*bytes*/) override { return -1; }
    int drain_port(int /*fd*/) override { return 0; }
    void flush_port(int /*fd*/) override {}
    int wait_readable(int /*fd*/, std::int64_t /*microseconds*/) override { return 0; }
    void end_exchange(int /*fd*/) override {}
    int make_durable(int /*fd*/) override { return 0; }

    static constexpr std::time_t Start = 1709380800;  // 2024-03-02 12:00 UTC

  private:
    std::int64_t milliseconds_ = std::int64_t{Start} * 1000;
};
