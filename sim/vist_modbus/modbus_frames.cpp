#include "modbus_frames.h"

#include <utility>

namespace sim {

namespace {

constexpr std::size_t ShortestFrame = 4;
constexpr std::size_t LongestFrame = 256;
constexpr std::size_t RegisterRequest = 8;
constexpr std::size_t FileRequest = 12;
constexpr std::uint8_t OneGroup = 7;  // bytes of a group of a file request, behind the byte count
constexpr std::uint8_t ReferenceType = 6;
constexpr std::uint16_t MostRegisters = 125;
constexpr std::uint16_t LongestRecord = 124;  // registers: the byte count of the answer is 250 then

std::uint16_t number_at(std::span<const std::uint8_t> frame, std::size_t place) {
    return static_cast<std::uint16_t>(frame[place] << 8U | frame[place + 1]);
}

void read_register_request(std::span<const std::uint8_t> frame, ModbusQuestion& question) {
    if (frame.size() != RegisterRequest) {
        question.refusal = ModbusWrongValue;
        return;
    }
    question.address = number_at(frame, 2);
    question.count = number_at(frame, 4);
    if (question.count == 0 || question.count > MostRegisters) question.refusal = ModbusWrongValue;
}

void read_file_request(std::span<const std::uint8_t> frame, ModbusQuestion& question) {
    if (frame.size() != FileRequest || frame[2] != OneGroup) {
        question.refusal = ModbusWrongValue;
        return;
    }
    question.address = number_at(frame, 4);
    question.record = number_at(frame, 6);
    question.count = number_at(frame, 8);
    if (frame[3] != ReferenceType) {
        question.refusal = ModbusUnknownAddress;
    } else if (question.count == 0 || question.count > LongestRecord) {
        question.refusal = ModbusWrongValue;
    }
}

}  // namespace

std::uint16_t modbus_crc(std::span<const std::uint8_t> bytes) {
    unsigned crc = 0xFFFF;
    for (const auto byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            const bool falls_out = (crc & 1U) != 0;
            crc >>= 1U;
            if (falls_out) crc ^= 0xA001U;
        }
    }
    return static_cast<std::uint16_t>(crc);
}

ByteVector modbus_sealed(ByteVector frame) {
    const std::uint16_t crc = modbus_crc(frame);
    frame.push_back(static_cast<std::uint8_t>(crc & 0xFFU));
    frame.push_back(static_cast<std::uint8_t>(crc >> 8U));
    return frame;
}

bool modbus_is_whole(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < ShortestFrame || bytes.size() > LongestFrame) return false;
    const std::size_t covered = bytes.size() - 2;
    return modbus_crc(bytes.first(covered)) == (bytes[covered] | bytes[covered + 1] << 8U);
}

ModbusQuestion modbus_question(std::span<const std::uint8_t> frame) {
    ModbusQuestion question{.slave = frame[0], .function = frame[1]};
    switch (question.function) {
        case ModbusReadHolding:
        case ModbusReadInput:
            read_register_request(frame, question);
            break;
        case ModbusReadFile:
            read_file_request(frame, question);
            break;
        default:
            question.refusal = ModbusUnknownFunction;
            break;
    }
    return question;
}

ByteVector ModbusReply::bytes() const {
    if (exception != ModbusNoException) {
        return modbus_sealed({slave, static_cast<std::uint8_t>(function | 0x80U), exception});
    }
    ByteVector frame = {slave, function, static_cast<std::uint8_t>(data.size())};
    frame.insert(frame.end(), data.begin(), data.end());
    return modbus_sealed(std::move(frame));
}

bool ModbusWhich::fits(const ModbusQuestion& question) const {
    return function.value_or(question.function) == question.function &&
           address.value_or(question.address) == question.address &&
           record.value_or(question.record) == question.record;
}

}  // namespace sim
