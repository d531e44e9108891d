// What a simulated KM5 meter answers to each command, as long as it behaves.

#include <bit>

#include "km5_meter.h"

namespace sim {

namespace {

constexpr std::uint8_t ErrorUnknownCommand = 0xEF;
constexpr std::uint8_t ErrorBadArgument = 0xF0;
constexpr std::size_t PayloadBegin = 5;
constexpr std::size_t RecordPayloadSize = 64;  // date block and fourteen floats
constexpr std::size_t EventPayloadSize = 8;

std::uint8_t bcd(int number) {
    return static_cast<std::uint8_t>((number / 10 % 10) << 4 | number % 10);
}
int from_bcd(std::uint8_t byte) {
    return (byte >> 4) * 10 + (byte & 0x0F);
}

void append_word(ByteVector& bytes, std::uint16_t word) {
    bytes.push_back(static_cast<std::uint8_t>(word & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(word >> 8));
}

void append_float(ByteVector& bytes, float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    append_word(bytes, static_cast<std::uint16_t>(bits & 0xFFFF));
    append_word(bytes, static_cast<std::uint16_t>(bits >> 16));
}

void append_text(ByteVector& bytes, const std::string& text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void append_date_block(ByteVector& bytes, const Km5Date& date) {
    const std::uint8_t block[] = {0, bcd(date.day),  bcd(date.month),  bcd(date.year),
                                  0, bcd(date.hour), bcd(date.minute), bcd(date.second)};
    bytes.insert(bytes.end(), std::begin(block), std::end(block));
}

void append_date_or_zeros(ByteVector& bytes, const std::optional<Km5Date>& date) {
    append_date_block(bytes, date.value_or(Km5Date{}));
}

std::optional<Km5Archive> archive_named(const Km5Heard& heard) {
    if (heard.data(0) >= Km5ArchiveCount) return std::nullopt;
    return static_cast<Km5Archive>(heard.data(0));
}

std::uint32_t index_asked(const Km5Heard& heard) {
    std::uint32_t index = 0;
    for (std::size_t k = 4; k >= 1; --k) index = index << 8 | heard.data(k);
    return index;
}

std::string default_letters(const Km5Config& config) {
    if (config.km56i) return "KM5I";
    return (config.att ? "ATT" : "KM5") + std::to_string(config.model);
}

}  // namespace

ByteVector Km5Meter::answer_frame(const Km5Heard& heard) const {
    ByteVector frame(heard.frame.begin(), heard.frame.begin() + 4);
    const Payload bytes = payload(heard);
    if (bytes) {
        frame.push_back(heard.command());
        frame.insert(frame.end(), bytes->begin(), bytes->end());
    } else {
        const bool known = Km5Meter::knows(heard.command());
        frame.push_back(known ? ErrorBadArgument : ErrorUnknownCommand);
    }
    km5_append_sums(frame);
    return frame;
}

bool Km5Meter::knows(std::uint8_t command) {
    switch (command) {
        case 0:
        case 8:
        case 9:
        case 14:
        case 44:
        case 51:
        case 52:
        case 55:
        case 65:
        case 95:
        case 123:
            return true;
        default:
            return false;
    }
}

Km5Meter::Payload Km5Meter::payload(const Km5Heard& heard) const {
    switch (heard.command()) {
        case 0:
            return identity(heard);
        case 8: {
            const auto& status = memory(heard.subsystem).status;
            return ByteVector(status.begin(), status.end());
        }
        case 9:
            return version();
        case 14:
            return parameter(heard);
        case 44:
        case 95:
        case 123:
            return page(heard);
        case 51:
            return ring_bounds(heard);
        case 52:
            return index_by_date(heard);
        case 55:
            return event(heard);
        case 65:
            return record(heard);
        default:
            return std::nullopt;
    }
}

Km5Meter::Payload Km5Meter::identity(const Km5Heard& heard) const {
    const auto own = address(heard.subsystem);
    ByteVector bytes(own.begin(), own.end());
    bytes.push_back(config_.model_index.value_or(static_cast<std::uint8_t>(config_.model - 1)));
    bytes.resize(9, 0);
    return bytes;
}

Km5Meter::Payload Km5Meter::version() const {
    ByteVector bytes;
    append_text(bytes, config_.firmware);
    bytes.resize(6, 0);  // positions 9 and 10 carry nothing
    append_text(bytes, config_.type_letters.value_or(default_letters(config_)));
    return bytes;
}

Km5Meter::Payload Km5Meter::parameter(const Km5Heard& heard) const {
    const std::size_t length = heard.data(1);
    if (length == 0 || length > RecordPayloadSize) return std::nullopt;
    const auto& eeprom = memory(heard.subsystem).eeprom;
    ByteVector bytes;
    if (const auto found = eeprom.find(heard.data(0)); found != eeprom.end()) append_float(bytes, found->second);
    bytes.resize(length, 0xFF);
    return bytes;
}

Km5Meter::Payload Km5Meter::page(const Km5Heard& heard) const {
    ByteVector bytes;
    if (heard.command() == 44 && heard.data(0) == 0) {
        append_date_block(bytes, Km5When(clock(heard.at)).date());
        return bytes;
    }
    const Km5Memory& own = memory(heard.subsystem);
    for (const auto& row : km5_page_floats()) {
        const bool used = (row.models >> config_.model & 1U) != 0;
        if (!used || row.command != heard.command() || row.page != heard.data(0)) continue;
        bytes.resize(row.position - PayloadBegin, 0);
        append_float(bytes, own.value_at(row));
    }
    if (bytes.empty()) return std::nullopt;
    return bytes;
}

Km5Meter::Payload Km5Meter::ring_bounds(const Km5Heard& heard) const {
    const auto archive = archive_named(heard);
    if (!archive) return std::nullopt;
    const Km5Memory& own = memory(heard.subsystem);
    const Km5Bounds bounds = own.bounds(*archive);
    ByteVector bytes{bounds.flag};
    append_word(bytes, bounds.first);
    append_date_or_zeros(bytes, own.date_at(*archive, bounds.first));
    append_word(bytes, bounds.last);
    append_date_or_zeros(bytes, own.date_at(*archive, bounds.last));
    append_word(bytes, bounds.count);
    return bytes;
}

Km5Meter::Payload Km5Meter::index_by_date(const Km5Heard& heard) const {
    const auto archive = archive_named(heard);
    if (!archive) return std::nullopt;
    const Km5Date asked{.year = from_bcd(heard.data(3)),
                        .month = from_bcd(heard.data(2)),
                        .day = from_bcd(heard.data(1)),
                        .hour = from_bcd(heard.data(4))};
    ByteVector bytes{0};
    append_word(bytes, static_cast<std::uint16_t>(memory(heard.subsystem).index_by_date(*archive, asked)));
    return bytes;
}

Km5Meter::Payload Km5Meter::record(const Km5Heard& heard) const {
    const auto archive = archive_named(heard);
    if (!archive || *archive == Km5Archive::Errors) return std::nullopt;
    const auto* stored = memory(heard.subsystem).records(*archive).at(index_asked(heard));
    if (stored == nullptr) return ByteVector(RecordPayloadSize, 0xFF);
    ByteVector bytes;
    append_date_block(bytes, stored->date);
    for (const float value : stored->values) append_float(bytes, value);
    return bytes;
}

Km5Meter::Payload Km5Meter::event(const Km5Heard& heard) const {
    if (archive_named(heard) != Km5Archive::Errors) return std::nullopt;
    const auto* stored = memory(heard.subsystem).events.at(index_asked(heard));
    if (stored == nullptr) return ByteVector(EventPayloadSize, 0xFF);
    ByteVector bytes;
    append_date_block(bytes, stored->date);
    bytes[0] = stored->code;
    return bytes;
}

}  // namespace sim
