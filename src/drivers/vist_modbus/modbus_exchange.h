#pragma once
// One question and its answer over Modbus RTU. Unlike the exchanges of the other families an answer has a time limit
// and an end of its own; the line's silence plays no part.

#include <cstdint>
#include <span>

/// The four kinds of question. `answer` gets function, byte count and data; the result is their length, or -1 when no
/// answer with data came within `timeout` milliseconds. `record_size` is of read_archive_record alone.
using ModbusRead = int (*)(int fd, std::span<std::uint8_t> answer, int slave, int first, int last, int timeout,
                           int record_size);

/// Holding registers `first` to `last`, function 3. The request is shown on standard output too.
int read_holding(int fd, std::span<std::uint8_t> answer, int slave, int first, int last, int timeout,
                 int record_size = 0);

/// Input registers `first` to `last`, function 4.
int read_input(int fd, std::span<std::uint8_t> answer, int slave, int first, int last, int timeout,
               int record_size = 0);

/// Record `record` of a file, function 20, of a size in the meter's units.
int read_archive_record(int fd, std::span<std::uint8_t> answer, int slave, int file, int record, int timeout,
                        int record_size);

/// Record 0 of a file, function 20; its length goes as `last` - `file` + 1.
int read_archive_header(int fd, std::span<std::uint8_t> answer, int slave, int file, int last, int timeout,
                        int record_size = 0);
