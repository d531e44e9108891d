// What a VIST meter that speaks Modbus makes of a request.

#include "modbus_vist_meter.h"

namespace sim {

namespace {

constexpr std::uint8_t ReferenceType = 6;
constexpr std::size_t ClockRegisters = 3;
constexpr std::size_t FirstValue = 514;  // of system 0
constexpr std::size_t LastValue = 1078;
constexpr std::size_t SystemStride = 1024;

/// The registers asked for, out of a block that begins at register `first`; nothing when they are not all in it.
std::optional<std::span<const std::uint8_t>> part(const ModbusQuestion& question, std::size_t first,
                                                  std::span<const std::uint8_t> block) {
    if (question.address < first) return std::nullopt;
    const std::size_t begin = 2 * (question.address - first);
    const std::size_t size = 2 * std::size_t{question.count};
    if (begin + size > block.size()) return std::nullopt;
    return block.subspan(begin, size);
}

ByteVector date_bytes(const VistDate& date) {
    ByteVector bytes;
    for (const int part : {date.hour, date.minute, date.second, date.day, date.month, date.year}) {
        bytes.push_back(static_cast<std::uint8_t>(part));
    }
    return bytes;
}

}  // namespace

Answer ModbusVistMeter::hear(std::span<const std::uint8_t> request, std::time_t now) {
    catch_up(now);
    if (address() == 0 || !modbus_is_whole(request) || request[0] != address()) return {};
    const ModbusQuestion question = modbus_question(request);
    note({.at = now, .question = question}, {question.function, question.address, question.record});
    const ModbusReply right = answer(question, now);
    return modbus_spoil(right, fault_script.choose(question, right), config_.answer_delay);
}

ModbusReply ModbusVistMeter::answer(const ModbusQuestion& question, std::time_t now) {
    if (question.refusal != ModbusNoException) return refusal(question, question.refusal);
    if (question.function == ModbusReadHolding) return holding(question);
    if (question.function == ModbusReadInput) return input(question, now);
    return file(question, now);
}

ModbusReply ModbusVistMeter::data(const ModbusQuestion& question, std::span<const std::uint8_t> bytes) const {
    return {.slave = address(), .function = question.function, .data = ByteVector(bytes.begin(), bytes.end())};
}

ModbusReply ModbusVistMeter::refusal(const ModbusQuestion& question, std::uint8_t code) const {
    return {.slave = address(), .function = question.function, .exception = code};
}

ModbusReply ModbusVistMeter::holding(const ModbusQuestion& question) const {
    const ByteVector block = modbus_vist_holding(config_, systems_);
    const auto found = part(question, 0, block);
    return found ? data(question, *found) : refusal(question, ModbusUnknownAddress);
}

ModbusReply ModbusVistMeter::input(const ModbusQuestion& question, std::time_t now) const {
    if (question.address < ClockRegisters) {
        const ByteVector shown = date_bytes(VistWhen(clock(now)).date());
        const auto found = part(question, 0, shown);
        return found ? data(question, *found) : refusal(question, ModbusUnknownAddress);
    }
    for (unsigned system = 0; system < systems_.size(); ++system) {
        const std::size_t first = FirstValue + system * SystemStride;
        if (question.address < first || question.address > LastValue + system * SystemStride) continue;
        const ByteVector block = values_of(system, now);
        const auto found = part(question, first, block);
        return found ? data(question, *found) : refusal(question, ModbusUnknownAddress);
    }
    return refusal(question, ModbusUnknownAddress);
}

ByteVector ModbusVistMeter::values_of(unsigned system, std::time_t now) const {
    ByteVector block(2 * (LastValue - FirstValue + 1), config_.filler);
    for (const ModbusVistValueRow& row : modbus_vist_value_rows()) {
        const std::uint32_t number = value(std::string(row.name), now, system);
        const std::size_t width = 2 * std::size_t{row.registers};
        const std::size_t place = 2 * (row.address - FirstValue);
        for (std::size_t k = 0; k < width; ++k) {
            block[place + k] = static_cast<std::uint8_t>(number >> (8 * (width - 1 - k)));
        }
    }
    return block;
}

ModbusReply ModbusVistMeter::file_record(const ModbusQuestion& question, ByteVector record) const {
    std::size_t size = 2 * std::size_t{question.count};
    if (config_.short_records && question.record > 0) size = (question.count + 1U) / 2 * 2;
    record.resize(size, config_.filler);
    ByteVector bytes = {static_cast<std::uint8_t>(size + 1), ReferenceType};
    bytes.insert(bytes.end(), record.begin(), record.end());
    return data(question, bytes);
}

ModbusReply ModbusVistMeter::file(const ModbusQuestion& question, std::time_t now) {
    if (question.address >= systems_.size()) return refusal(question, ModbusUnknownAddress);
    const unsigned system = question.address;
    const ModbusVistSystem& settings = systems_[system];
    if (question.record == 0) {
        return file_record(question, modbus_vist_header_bytes(settings, header(now, system), system));
    }
    ModbusVistRing& ring = memories_[system].ring;
    if (question.record > ring.capacity()) return refusal(question, ModbusUnknownAddress);
    ModbusVistStored* record = ring.at(question.record);
    if (record == nullptr) {
        if (config_.unwritten == ModbusVistUnwritten::Refused) return refusal(question, ModbusUnknownAddress);
        const ModbusVistStored blank{.erased = config_.unwritten == ModbusVistUnwritten::Erased};
        return file_record(question, modbus_vist_record_bytes(settings.archive_mask, blank));
    }
    ModbusReply reply = file_record(question, modbus_vist_record_bytes(settings.archive_mask, *record));
    if (record->bad_readings > 0) {
        if (record->bad_readings != VistForever) --record->bad_readings;
        modbus_spoil_record_sum(reply);
    }
    return reply;
}

}  // namespace sim
