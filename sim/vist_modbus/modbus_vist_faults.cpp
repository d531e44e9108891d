#include "modbus_vist_faults.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

constexpr std::size_t RecordSumAt = 2;  // in the data, behind the head of the file record

using Kind = ModbusFault::Kind;

ByteVector with_byte(const ModbusReply& right, std::size_t place, std::size_t value) {
    ByteVector frame = right.bytes();
    frame.resize(frame.size() - 2);
    frame[place] = static_cast<std::uint8_t>(value);
    return modbus_sealed(std::move(frame));
}

ByteVector spoilt_bytes(const ModbusReply& right, const ModbusFault& fault) {
    ByteVector bytes = right.bytes();
    ModbusReply other = right;
    switch (fault.kind) {
        case Kind::Silence:
            return {};
        case Kind::Exception:
            other.exception = static_cast<std::uint8_t>(fault.number);
            return other.bytes();
        case Kind::WrongCrc:
            ++bytes[bytes.size() - 2];
            return bytes;
        case Kind::Noise:
            bytes.insert(bytes.begin(), fault.bytes.begin(), fault.bytes.end());
            return bytes;
        case Kind::Trailing:
            bytes.insert(bytes.end(), fault.bytes.begin(), fault.bytes.end());
            return bytes;
        case Kind::Cut:
            bytes.resize(std::min(fault.number, bytes.size()));
            return bytes;
        case Kind::WrongSlave:
            return with_byte(right, 0, fault.number);
        case Kind::WrongFunction:
            return with_byte(right, 1, fault.number);
        case Kind::ByteCount:
            return with_byte(right, 2, fault.number);
        case Kind::BadSum:
            modbus_spoil_record_sum(other);
            return other.bytes();
        case Kind::Raw:
            return fault.bytes;
        case Kind::None:
        case Kind::Slow:
        case Kind::Pieces:
            break;
    }
    return bytes;
}

}  // namespace

ModbusFault ModbusFault::on(ModbusWhich narrowed) const {
    ModbusFault fault = *this;
    fault.which = narrowed;
    return fault;
}

bool ModbusFault::fits(const ModbusQuestion& question, const ModbusReply& right) const {
    if (!which.fits(question)) return false;
    switch (kind) {
        case Kind::BadSum:
            return question.function == ModbusReadFile && question.record > 0 && right.data.size() > RecordSumAt;
        case Kind::ByteCount:
            return right.exception == ModbusNoException;
        default:
            return true;
    }
}

ModbusFault modbus_good() {
    return {.kind = Kind::None};
}
ModbusFault modbus_silence() {
    return {.kind = Kind::Silence};
}
ModbusFault modbus_exception(std::uint8_t code) {
    return {.kind = Kind::Exception, .number = code};
}
ModbusFault modbus_wrong_crc() {
    return {.kind = Kind::WrongCrc};
}
ModbusFault modbus_noise(ByteVector bytes) {
    return {.kind = Kind::Noise, .bytes = std::move(bytes)};
}
ModbusFault modbus_trailing(ByteVector bytes) {
    return {.kind = Kind::Trailing, .bytes = std::move(bytes)};
}
ModbusFault modbus_cut(std::size_t length) {
    return {.kind = Kind::Cut, .number = length};
}
ModbusFault modbus_slow(double delay) {
    return {.kind = Kind::Slow, .gap = delay};
}
ModbusFault modbus_pieces(std::size_t length, double gap) {
    if (length == 0) throw std::invalid_argument("pieces of no byte");
    return {.kind = Kind::Pieces, .number = length, .gap = gap};
}
ModbusFault modbus_wrong_slave(std::uint8_t slave) {
    return {.kind = Kind::WrongSlave, .number = slave};
}
ModbusFault modbus_wrong_function(std::uint8_t function) {
    return {.kind = Kind::WrongFunction, .number = function};
}
ModbusFault modbus_byte_count(std::uint8_t count) {
    return {.kind = Kind::ByteCount, .number = count};
}
ModbusFault modbus_bad_sum() {
    return {.kind = Kind::BadSum};
}
ModbusFault modbus_raw(ByteVector bytes) {
    return {.kind = Kind::Raw, .bytes = std::move(bytes)};
}

Answer modbus_spoil(const ModbusReply& right, const ModbusFault& fault, double delay) {
    const ByteVector bytes = spoilt_bytes(right, fault);
    if (bytes.empty()) return {};
    if (fault.kind == Kind::Slow) return {{.delay_seconds = fault.gap, .bytes = bytes}};
    if (fault.kind != Kind::Pieces) return {{.delay_seconds = delay, .bytes = bytes}};
    Answer pieces;
    for (std::size_t begin = 0; begin < bytes.size(); begin += fault.number) {
        const std::size_t end = std::min(begin + fault.number, bytes.size());
        pieces.push_back({.delay_seconds = begin == 0 ? delay : fault.gap,
                          .bytes = ByteVector(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
                                              bytes.begin() + static_cast<std::ptrdiff_t>(end))});
    }
    return pieces;
}

void modbus_spoil_record_sum(ModbusReply& reply) {
    if (reply.data.size() > RecordSumAt) ++reply.data[RecordSumAt];
}

}  // namespace sim
