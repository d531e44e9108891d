#pragma once
// The misbehaviour of a simulated VIST meter that speaks Modbus: what can go wrong with an answer, and when it does.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fault_script.h"
#include "modbus_frames.h"
#include "sim_meter.h"

namespace sim {

/// What happens to one answer. Make it with one of the functions below; narrow it to some requests with `on`.
struct ModbusFault {
    enum class Kind {
        None,           ///< a good answer, to count past in a script
        Silence,        ///< nothing is said
        Exception,      ///< the exception `number` in the place of any answer
        WrongCrc,       ///< the low byte of the CRC is one too high
        Noise,          ///< `bytes` lie in front of a right answer, without a pause
        Trailing,       ///< `bytes` follow a right answer, without a pause
        Cut,            ///< only the first `number` bytes come
        Slow,           ///< the answer begins `gap` seconds after the request
        Pieces,         ///< the answer comes `number` bytes at a time, with `gap` seconds of silence between them
        WrongSlave,     ///< slave `number` signs the answer; the CRC is right for that
        WrongFunction,  ///< the function is `number`; the CRC is right for that
        ByteCount,      ///< the byte count is `number`, the data are as they were; the CRC is right for that
        BadSum,         ///< archive records only: the sum of the record is one too high; the CRC is right for that
        Raw,            ///< `bytes` in the place of any answer
    };
    Kind kind = Kind::None;
    ByteVector bytes = {};
    std::size_t number = 0;
    double gap = 0.0;
    ModbusWhich which = {};  ///< other requests are answered as if the fault were not there

    ModbusFault on(ModbusWhich narrowed) const;
    /// Whether the answer to `question` can suffer this.
    bool fits(const ModbusQuestion& question, const ModbusReply& right) const;
};

ModbusFault modbus_good();
ModbusFault modbus_silence();
ModbusFault modbus_exception(std::uint8_t code = ModbusDeviceFailure);
ModbusFault modbus_wrong_crc();
ModbusFault modbus_noise(ByteVector bytes = {0x00, 0x11});
ModbusFault modbus_trailing(ByteVector bytes = {0x55});
ModbusFault modbus_cut(std::size_t length);
/// A reader waits 0.6 s.
ModbusFault modbus_slow(double delay = 0.7);
ModbusFault modbus_pieces(std::size_t length = 8, double gap = 0.05);
ModbusFault modbus_wrong_slave(std::uint8_t slave);
/// 0x80 may be set in it.
ModbusFault modbus_wrong_function(std::uint8_t function);
/// A right one is even, and 250 at most.
ModbusFault modbus_byte_count(std::uint8_t count = 251);
ModbusFault modbus_bad_sum();
ModbusFault modbus_raw(ByteVector bytes);

/// The answer as it comes out of a meter with `fault`, `delay` seconds after the request.
Answer modbus_spoil(const ModbusReply& right, const ModbusFault& fault, double delay);

/// Makes the sum of the archive record in an answer one too high.
void modbus_spoil_record_sum(ModbusReply& reply);

}  // namespace sim
