#pragma once
// The link to one VIST meter over Modbus: a row of a table with its tries, a whole table, and whether the meter counts
// as connected.

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "core/bytes.h"
#include "drivers/vist_modbus/vist_modbus_tables.h"

class UniLog;

/// Where a meter is asked.
struct ModbusLine {
    int fd;
    int slave;  ///< Modbus address; its low byte goes out
    bool use_pause_flag;
};

class VistModbusLink {
  public:
    static constexpr int VISTMaxErrors = 30;  ///< tries of one row; the driver of the text dialect has its own number
    using Answer = std::array<std::uint8_t, 512>;
    /// Gets a row's data from the first data byte on, with what the answer's area holds behind them: zeros.
    using Process = std::function<void(const ModbusRequest& row, Bytes data)>;

    /// `tell` hears after each row whether it came within its tries.
    VistModbusLink(UniLog* logger, std::function<void(bool)> tell) : log(logger), connected(std::move(tell)) {}

    /// One row for a heat system, with its tries. `range`: the second number of the question is the last register,
    /// otherwise the row's count as it stands. The length of the answer, or -1.
    int send_modbus_request(const ModbusLine& line, const ModbusRequest& row, std::span<std::uint8_t> answer,
                            int system, bool range) const;
    /// All rows for a heat system; nothing is processed, and the result is false, unless every row came.
    bool request_batch(const ModbusLine& line, std::span<const ModbusRequest> rows, int system, bool range,
                       const Process& process) const;

  private:
    void log_answer(Bytes answer) const;

    UniLog* log;
    std::function<void(bool)> connected;
};
