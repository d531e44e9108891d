#include "modbus_line.h"

#include <algorithm>
#include <cerrno>

#include "core/bytes.h"

namespace {

constexpr std::uint8_t FileRecord = 20;
constexpr std::size_t MostWords = 125;
constexpr std::size_t SumAt = 2;  // in the data of an archive record

/// Of a record that was asked for with such a length.
void put_record_sum(std::vector<std::uint8_t>& data, std::size_t length) {
    if (data.size() <= SumAt || length == 0) return;
    const Bytes behind = Bytes(data).subspan(SumAt + 1);
    data[SumAt] = checksum(behind.first(std::min(length - 1, behind.size())));
}

}  // namespace

void put_modbus_crc(std::vector<std::uint8_t>& frame) {
    unsigned crc = 0xFFFF;
    for (const std::uint8_t byte : frame) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xA001 : crc >> 1;
    }
    frame.push_back(static_cast<std::uint8_t>(crc & 0xFF));
    frame.push_back(static_cast<std::uint8_t>(crc >> 8));
}

ssize_t ModbusScriptedLine::write_port(int /*fd*/, std::span<const std::uint8_t> request) {
    request_.assign(request.begin(), request.end());
    expect(request_.size() == (request_.at(1) == FileRecord ? 12U : 8U), "a request has 8 bytes, one for a file 12");
    std::vector<std::uint8_t> sealed(request_.begin(), request_.end() - 2);
    put_modbus_crc(sealed);
    expect(sealed == request_, "a request has a right CRC");
    coming_.clear();
    heard_.clear();
    if (source.empty()) at_end();
    return static_cast<ssize_t>(request.size());
}

int ModbusScriptedLine::wait_readable(int /*fd*/, std::int64_t microseconds) {
    expect(microseconds >= 0 && microseconds <= 600'000, "an answer has 600 ms");
    return coming_.empty() ? next_event() : 1;
}

int ModbusScriptedLine::next_event() {
    read_error_ = 0;
    read_nothing_ = false;
    if (source.empty()) {
        at_end();
        return keep_silent();
    }
    const std::uint8_t head = source.byte();
    switch (head >> 4) {
        case 0xF:
            return head < 0xF8 ? keep_silent() : 0;
        case 0xE: {
            constexpr int Errors[] = {0, EINTR, EAGAIN, EIO};
            read_error_ = Errors[head % 4];
            read_nothing_ = head % 4 == 0;
            return 1;
        }
        case 0xD:
        case 0xC:
            errno = (head & 0x10) != 0 ? EIO : EINTR;
            return -1;
        default:
            break;
    }
    if (head < 0x40) {
        const auto bytes = source.bytes(head + 1U);
        coming_.assign(bytes.begin(), bytes.end());
        piece_ = coming_.size();
        return coming_.empty() ? keep_silent() : 1;
    }
    answer_rightly(head);
    return 1;
}

int ModbusScriptedLine::keep_silent() {
    sleep(1);  // an answer has less
    return 0;
}

void ModbusScriptedLine::answer_rightly(std::uint8_t head) {
    coming_ = {request_[0], request_[1]};
    piece_ = (head & 0x3FU) + 1;
    if (head >= 0x80) {
        coming_[1] |= 0x80;
        coming_.push_back(head);
    } else {
        const std::uint8_t words = source.byte();
        const auto given = source.bytes(2 * std::min<std::size_t>(words, MostWords));
        std::vector<std::uint8_t> data(given.begin(), given.end());
        data.resize((data.size() + 1) / 2 * 2);
        if (request_[1] == FileRecord && words % 2 != 0) {
            put_record_sum(data, static_cast<std::size_t>(request_[8] << 8 | request_[9]));
        }
        coming_.push_back(static_cast<std::uint8_t>(data.size()));
        coming_.insert(coming_.end(), data.begin(), data.end());
    }
    put_modbus_crc(coming_);
}

ssize_t ModbusScriptedLine::read_port(int /*fd*/, std::span<std::uint8_t> into) {
    expect(!into.empty(), "there is room for what is read");
    if (read_nothing_) return 0;
    if (read_error_ != 0) {
        errno = read_error_;
        return -1;
    }
    const std::size_t count = std::min({into.size(), coming_.size(), piece_});
    std::copy_n(coming_.begin(), count, into.begin());
    heard_.insert(heard_.end(), coming_.begin(), coming_.begin() + static_cast<std::ptrdiff_t>(count));
    coming_.erase(coming_.begin(), coming_.begin() + static_cast<std::ptrdiff_t>(count));
    return static_cast<ssize_t>(count);
}
