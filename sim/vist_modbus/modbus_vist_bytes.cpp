// The registers and file records of a VIST meter that speaks Modbus, as bytes.

#include <algorithm>

#include "modbus_vist_memory.h"

namespace sim {

namespace {

constexpr std::size_t HoldingSize = 1336;
constexpr std::size_t ConfigSystemAt = 105;
constexpr std::size_t ConfigSystemWidth = 26;
constexpr std::size_t SystemCountAt = 197;
constexpr std::size_t SetupAt = 198;
constexpr std::size_t SetupWidth = 370;
constexpr std::size_t ArchiveAt = 1308;
constexpr std::size_t ArchiveWidth = 9;
constexpr std::size_t ChannelsAt = 16;
constexpr std::size_t ChannelWidth = 33;
constexpr std::size_t HeaderSize = 62;

/// Bytes of a fixed layout, all big-endian.
class Image {
  public:
    Image(std::size_t size, std::uint8_t filler) : bytes_(size, filler) {}

    void number(std::size_t place, std::uint64_t value, std::size_t width) {
        for (std::size_t k = 0; k < width; ++k) {
            bytes_.at(place + k) = static_cast<std::uint8_t>(value >> (8 * (width - 1 - k)));
        }
    }
    /// With zeros behind it.
    void text(std::size_t place, std::size_t width, std::string_view text) {
        for (std::size_t k = 0; k < width; ++k) {
            bytes_.at(place + k) = k < text.size() ? static_cast<std::uint8_t>(text[k]) : 0;
        }
    }
    void zeros(std::size_t place, std::size_t width) { text(place, width, {}); }
    ByteVector& bytes() { return bytes_; }

  private:
    ByteVector bytes_;
};

std::uint8_t sum_of(std::span<const std::uint8_t> bytes) {
    std::uint8_t sum = 0;
    for (const auto byte : bytes) sum = static_cast<std::uint8_t>(sum + byte);
    return sum;
}

void write_config(Image& image, std::size_t base, const ModbusVistSystem& system) {
    for (std::size_t k = 0; k < 3; ++k) {
        image.number(base + 2 * k, system.temper[k], 2);
        image.number(base + 6 + 2 * k, system.press[k], 2);
        image.number(base + 12 + 2 * k, system.DU[k], 2);
    }
}

void write_setup(Image& image, std::size_t base, const ModbusVistSystem& system) {
    image.text(base, 12, system.name);
    image.number(base + 12, system.parameters, 4);
    for (std::size_t k = 0; k < system.channels.size(); ++k) {
        const ModbusVistChannel& channel = system.channels[k];
        const std::size_t at = base + ChannelsAt + k * ChannelWidth;
        image.number(at + 3, channel.divisor, 2);
        image.number(at + 5, channel.upper, 4);
        image.number(at + 9, channel.scale, 1);
        image.number(at + 19, channel.divisor == 0 ? 0 : channel.upper / channel.divisor, 4);
    }
    const VistFormula& formula = system.formula;
    image.number(base + 119, formula.selector, 1);
    image.number(base + 120, formula.iG1, 1);
    image.number(base + 121, formula.iT1, 1);
    image.number(base + 122, formula.iT2, 1);
    image.number(base + 123, formula.iG2, 1);
    image.number(base + 124, formula.iT3, 1);
    image.number(base + 131, formula.iG3, 1);
    image.number(base + 132, formula.iT4, 1);
    image.number(base + 147, system.errors, 4);
}

void write_archive(Image& image, unsigned number, const ModbusVistSystem& system, std::size_t capacity) {
    const std::size_t base = ArchiveAt + number * ArchiveWidth;
    image.number(base, number, 1);
    image.number(base + 2, system.told_mask.value_or(system.archive_mask), 4);
    image.number(base + 6, capacity, 2);
}

}  // namespace

ByteVector modbus_vist_holding(const ModbusVistConfig& config, std::span<const ModbusVistSystem> systems) {
    Image image(HoldingSize, config.filler);
    image.text(4, 21, config.firmware);
    image.text(25, 21, config.name);
    image.text(46, 59, config.serial_text.value_or(std::to_string(config.serial)));
    image.number(SystemCountAt, config.claimed_systems.value_or(static_cast<std::uint8_t>(systems.size())), 1);
    for (unsigned k = 0; k < ModbusVistSystems; ++k) {
        const std::size_t config_base = ConfigSystemAt + k * ConfigSystemWidth;
        const std::size_t setup_base = SetupAt + k * SetupWidth;
        if (k < systems.size()) {
            write_config(image, config_base, systems[k]);
            write_setup(image, setup_base, systems[k]);
            write_archive(image, k, systems[k], config.capacity);
        } else {
            image.zeros(config_base, ConfigSystemWidth);
            image.zeros(setup_base, SetupWidth);
            image.zeros(ArchiveAt + k * ArchiveWidth, ArchiveWidth);
        }
    }
    return std::move(image.bytes());
}

ByteVector modbus_vist_header_bytes(const ModbusVistSystem& system, const ModbusVistHeader& header, unsigned number) {
    Image image(HeaderSize, 0);
    image.number(0, 1, 1);
    image.number(3, HeaderSize, 1);
    image.number(5, number, 1);
    image.number(6, system.archive_mask, 4);
    image.number(10, header.counts.held, 2);
    image.number(12, header.counts.next, 2);
    image.number(14, header.counts.most, 2);
    std::size_t place = 16;
    for (const int part : {header.date.hour, header.date.minute, header.date.second, header.date.day, header.date.month,
                           header.date.year}) {
        image.number(place++, static_cast<std::uint64_t>(part), 1);
    }
    for (std::size_t k = 0; k + 1 < VistTotals; ++k) image.number(22 + 4 * k, header.totals[k], 4);
    image.number(50, header.totals.back(), 8);
    for (std::size_t k = 0; k < system.precision.size(); ++k) image.number(58 + k, system.precision[k], 1);
    image.number(1, sum_of(std::span(image.bytes()).subspan(2)), 1);
    return std::move(image.bytes());
}

std::size_t modbus_vist_record_size(std::uint32_t mask) {
    std::size_t size = 1;
    for (std::size_t bit = 0; bit < VistRecordFields; ++bit) {
        if ((mask >> bit & 1U) != 0) size += modbus_vist_field_rows()[bit].width;
    }
    return size;
}

ByteVector modbus_vist_record_bytes(std::uint32_t mask, const ModbusVistStored& record) {
    constexpr std::size_t KeptFrom = 20;
    constexpr std::uint32_t KeepsPlaces = 1U << 22U;
    ByteVector bytes(1);
    for (std::size_t bit = 0; bit < VistRecordFields; ++bit) {
        const bool set = (mask >> bit & 1U) != 0;
        const bool kept = bit >= KeptFrom && (mask & KeepsPlaces) != 0;
        if (!set && !kept) continue;
        const std::size_t width = modbus_vist_field_rows()[bit].width;
        const auto number = static_cast<std::uint64_t>(set ? record.numbers[bit] : 0);
        for (std::size_t k = 0; k < width; ++k) {
            bytes.push_back(static_cast<std::uint8_t>(number >> (8 * (width - 1 - k))));
        }
    }
    if (record.erased) return ByteVector(bytes.size(), 0xFF);
    bytes[0] = sum_of(std::span(bytes).subspan(1, modbus_vist_record_size(mask) - 1));
    return bytes;
}

}  // namespace sim
