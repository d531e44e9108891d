#include "drivers/vist_modbus/modbus_frame.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr int MostDataBytes = 250;
constexpr std::uint8_t ExceptionBit = 0x80;
constexpr std::size_t HeadBytes = 2;  // function and byte count

constexpr std::array<std::uint16_t, 256> make_crc_table() {
    std::array<std::uint16_t, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        unsigned crc = byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xA001 : crc >> 1;
        table[byte] = static_cast<std::uint16_t>(crc);
    }
    return table;
}

constexpr auto CrcTable = make_crc_table();

constexpr std::uint8_t high_byte(int value) {
    return static_cast<std::uint8_t>(static_cast<unsigned>(value) >> 8 & 0xFF);
}

constexpr std::uint8_t low_byte(int value) {
    return static_cast<std::uint8_t>(static_cast<unsigned>(value) & 0xFF);
}

void append_crc(std::vector<std::uint8_t>& frame) {
    const int crc = modbus_crc(frame);
    frame.push_back(low_byte(crc));
    frame.push_back(high_byte(crc));
}

}  // namespace

std::uint16_t modbus_crc(Bytes bytes) {
    std::uint16_t crc = 0xFFFF;
    for (const std::uint8_t byte : bytes) {
        crc = static_cast<std::uint16_t>(crc >> 8 ^ CrcTable[(crc ^ byte) & 0xFF]);
    }
    return crc;
}

std::vector<std::uint8_t> register_frame(int slave, std::uint8_t function, int address, int count) {
    std::vector<std::uint8_t> frame{low_byte(slave),   function,         high_byte(address),
                                    low_byte(address), high_byte(count), low_byte(count)};
    append_crc(frame);
    return frame;
}

std::vector<std::uint8_t> record_frame(int slave, int file, int record, int length) {
    constexpr std::uint8_t RequestBytes = 7;
    constexpr std::uint8_t ReferenceType = 6;
    std::vector<std::uint8_t> frame{low_byte(slave),   ReadFileRecord,  RequestBytes,      ReferenceType,
                                    high_byte(file),   low_byte(file),  high_byte(record), low_byte(record),
                                    high_byte(length), low_byte(length)};
    append_crc(frame);
    return frame;
}

ModbusParser::ModbusParser(std::span<std::uint8_t> into, int from, std::uint8_t asked)
    : answer(into), slave(low_byte(from)), function(asked) {}

void ModbusParser::reset() {
    state = State::Slave;
    stored = 0;
}

void ModbusParser::store(std::uint8_t byte) {
    if (stored < answer.size()) answer[stored++] = byte;
}

bool ModbusParser::take(Bytes bytes) {
    while (!bytes.empty()) {
        if (const std::size_t taken = take_data(bytes); taken > 0) {
            bytes = bytes.subspan(taken);
        } else if (take_byte(bytes.front())) {
            return true;
        } else {
            bytes = bytes.subspan(1);
        }
    }
    return false;
}

/// All but the last byte of the data at once, as far as they are there and have room.
std::size_t ModbusParser::take_data(Bytes bytes) {
    if (state != State::Data || remaining < 2) return 0;
    const std::size_t count = std::min({static_cast<std::size_t>(remaining - 1), bytes.size(), answer.size() - stored});
    std::copy_n(bytes.begin(), count, answer.begin() + static_cast<std::ptrdiff_t>(stored));
    stored += count;
    remaining -= static_cast<int>(count);
    return count;
}

bool ModbusParser::take_byte(std::uint8_t byte) {
    switch (state) {
        case State::Slave:
            if (byte != slave) break;
            store(byte);
            state = State::Function;
            break;
        case State::Function:
            if ((byte & ~ExceptionBit) != function) {
                reset();
                break;
            }
            store(byte);
            if ((byte & ExceptionBit) != 0) {
                remaining = 1;  // the code of the exception
                state = State::Data;
            } else {
                state = State::ByteCount;
            }
            break;
        case State::ByteCount:
            if (byte % 2 != 0 || byte > MostDataBytes) {
                reset();
                break;
            }
            remaining = byte;
            store(byte);
            state = State::Data;
            break;
        case State::Data:
            store(byte);
            if (--remaining == 0) state = State::CrcLow;
            break;
        case State::CrcLow:
            crc_low = byte;
            state = State::CrcHigh;
            break;
        case State::CrcHigh:
            return finish(byte);
    }
    return false;
}

bool ModbusParser::finish(std::uint8_t crc_high) {
    const Bytes frame = answer.first(stored);
    if (modbus_crc(frame) != (crc_high << 8 | crc_low)) {
        reset();
        return false;
    }
    std::copy(frame.begin() + 1, frame.end(), answer.begin());  // without the slave
    --stored;
    const auto rest = answer.subspan(stored);
    std::fill(rest.begin(), rest.end(), std::uint8_t{0});  // nothing stands behind an answer, of it or of noise
    const bool is_exception = stored <= HeadBytes || stored % 2 != 0;
    if (!is_exception) {
        swap_words(answer.subspan(HeadBytes, stored - HeadBytes));
        is_complete = true;
    }
    return true;
}

void swap_words(std::span<std::uint8_t> bytes) {
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) std::swap(bytes[at], bytes[at + 1]);
}
