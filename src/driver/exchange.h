#pragma once
// One question and its answer on the serial line. The end of an answer is the line's silence; nothing here knows a
// protocol, and nothing here reports an error: what failed shows as an answer of no bytes.

#include <cstdint>
#include <vector>

#include "core/bytes.h"

/// The bytes of an answer; empty when nothing came.
using ExchangeAnswer = std::vector<std::uint8_t>;

/// Sleeps, 10 seconds at a time, while "/tmp/pause_tvk" is there and `pause` is set, then while "/tmp/pause_tvk_all" is
/// there.
void wait_for_pause_flags(const bool& pause);

/// Writes `tx` to `fd` and collects at most `rx_max` bytes into `rx`. Waits first for the
/// pause flags. `timeout` is not used: the line's VTIME is the time-out. Returns 0.
using ExchangeRoutine = int (*)(int fd, int timeout, Bytes tx, ExchangeAnswer& rx, int rx_max, const bool& pause);

/// Reads as much at once as there is, until the line falls silent.
int exchange_read_all(int fd, int timeout, Bytes tx, ExchangeAnswer& rx, int rx_max, const bool& pause);

/// Reads byte after byte, until the line falls silent or `rx_max` bytes are there.
int exchange_read_bytes(int fd, int timeout, Bytes tx, ExchangeAnswer& rx, int rx_max, const bool& pause);
