#include "vist_packets.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace sim {

namespace {

constexpr std::size_t SumAt = 4;
constexpr std::size_t TypeAt = 5;
constexpr std::size_t BodyAt = 6;
constexpr std::size_t MostInBody = 253;  // the size byte counts sum and type too
constexpr std::size_t NameWidth = 12;
constexpr std::size_t ChannelWidth = 33;
constexpr std::size_t ReservedWidth = 16;
constexpr std::size_t ConfigSize = 26;
constexpr std::size_t HeaderSize = 62;
constexpr std::size_t HeaderSumAt = 1;
constexpr std::size_t HeaderSumFrom = 2;
constexpr std::size_t RecordSumAt = 6;
constexpr std::size_t RecordSumFrom = 7;

/// Bytes in the making.
class Writer {
  public:
    explicit Writer(VistOrder order) : order_(order) {}

    void byte(std::uint64_t value) { bytes_.push_back(static_cast<std::uint8_t>(value)); }
    void number(std::int64_t value, std::size_t width) { number(value, width, order_); }
    void big_endian(std::int64_t value, std::size_t width) { number(value, width, VistOrder::Big); }
    void zeros(std::size_t count) { bytes_.resize(bytes_.size() + count); }
    void text(std::string_view text) { bytes_.insert(bytes_.end(), text.begin(), text.end()); }
    void date(const VistDate& date) {
        for (const int part : {date.hour, date.minute, date.second, date.day, date.month, date.year}) {
            byte(static_cast<std::uint64_t>(part));
        }
    }
    std::size_t size() const { return bytes_.size(); }
    ByteVector take() { return std::move(bytes_); }

  private:
    void number(std::int64_t value, std::size_t width, VistOrder order) {
        for (std::size_t k = 0; k < width; ++k) {
            const std::size_t place = order == VistOrder::Little ? k : width - 1 - k;
            byte(static_cast<std::uint64_t>(value) >> (8 * place));
        }
    }

    VistOrder order_;
    ByteVector bytes_;
};

std::int64_t as_number(const std::array<std::uint8_t, 4>& status) {
    std::int64_t number = 0;
    for (std::size_t k = 0; k < status.size(); ++k) number |= std::int64_t{status[k]} << (8 * k);
    return number;
}

void write_values(Writer& out, std::span<const VistPresentRow> rows, std::uint32_t mask, const VistMemory& memory) {
    for (std::size_t bit = 0; bit < rows.size(); ++bit) {
        if ((mask >> bit & 1U) == 0) continue;
        const VistValue value = memory.value(rows[bit].name);
        out.number(value.number, rows[bit].width);
        out.byte(value.scale);
    }
}

void write_channel(Writer& out, const VistChannel& channel) {
    out.zeros(5);
    out.big_endian(channel.upper, 4);
    out.byte(channel.scale);
    out.zeros(9);
    out.big_endian(channel.lower, 4);
    out.zeros(ChannelWidth - 23);
}

}  // namespace

std::uint8_t vist_sum(std::span<const std::uint8_t> bytes) {
    std::uint8_t sum = 0;
    for (const auto byte : bytes) sum = static_cast<std::uint8_t>(sum + byte);
    return sum;
}

ByteVector vist_packet(std::uint8_t type, std::span<const std::uint8_t> body) {
    if (body.size() > MostInBody) throw std::invalid_argument("a packet has no room for that");
    ByteVector packet = {'H', 'P', 'T', static_cast<std::uint8_t>(body.size() + 2), 0, type};
    std::copy(body.begin(), body.end(), std::back_inserter(packet));
    vist_renew_sum(packet);
    return packet;
}

std::string vist_text_frame(int network, unsigned device, std::string_view body) {
    return "HL0[" + std::to_string(network) + ":" + std::to_string(device) + "]{" + std::string(body) + "}>";
}

ByteVector vist_integrators_body(const VistWriting& writing, const VistMemory& memory, std::optional<VistDate> clock) {
    Writer out(writing.order);
    if (clock) out.date(*clock);
    out.byte(writing.enumer);
    out.number(memory.device.integrator_mask, 4);
    write_values(out, vist_integrator_rows(), memory.device.integrator_mask, memory);
    return out.take();
}

ByteVector vist_moments_body(const VistWriting& writing, const VistMemory& memory) {
    Writer out(writing.order);
    out.byte(writing.enumer);
    out.number(memory.device.moment_mask, 4);
    write_values(out, vist_moment_rows(), memory.device.moment_mask, memory);
    out.number(as_number(memory.device.status), 4);
    return out.take();
}

ByteVector vist_specials_body(const VistConfig& config) {
    Writer out(config.order);
    for (const auto& text :
         {config.firmware, config.model, config.serial_text.value_or(std::to_string(config.serial))}) {
        out.text(text);
        out.byte(0);
    }
    return out.take();
}

ByteVector vist_device_body(const VistWriting& writing, const VistDevice& device) {
    const VistFormula& formula = device.formula;
    Writer out(writing.order);
    std::string name = device.name;
    name.resize(NameWidth);
    out.text(name);
    out.big_endian(device.type, 4);
    for (const VistChannel& channel : device.channels) write_channel(out, channel);
    out.byte(device.pt4);
    out.number(device.dT, 2);
    out.byte(device.qpoint);
    for (const auto byte : {formula.selector, formula.iG1, formula.iT1, formula.iT2, formula.iG2, formula.iT3}) {
        out.byte(byte);
    }
    out.zeros(6);  // two more formulas, not in use
    out.byte(formula.iG3);
    out.byte(formula.iT4);
    out.zeros(ReservedWidth - 2);
    out.number(device.active_errors, 4);
    return out.take();
}

ByteVector vist_config_body(const VistDevice& device) {
    Writer out(VistOrder::Big);
    out.zeros(12);
    for (const auto diameter : device.DN) out.big_endian(diameter, 2);
    out.zeros(ConfigSize - out.size());
    return out.take();
}

ByteVector vist_header_body(const VistWriting& writing, const VistMemory& memory, const VistHeader& header,
                            unsigned device) {
    Writer out(writing.order);
    out.byte(1);
    out.byte(0);  // the sum, below
    out.byte(0);
    out.byte(HeaderSize);
    out.byte(writing.enumer);
    out.byte(device);
    out.number(memory.device.archive_mask, 4);
    for (const auto count : {header.counts.held, header.counts.newest, header.counts.most}) out.number(count, 2);
    out.date(header.date);
    for (std::size_t k = 0; k + 1 < VistTotals; ++k) out.number(header.totals[k], 4);
    out.number(header.totals.back(), 8);
    for (const auto precision : memory.device.precision) out.byte(precision);
    ByteVector body = out.take();
    body[HeaderSumAt] = vist_sum(std::span(body).subspan(HeaderSumFrom));
    return body;
}

ByteVector vist_record_body(const VistWriting& writing, std::uint32_t mask, const VistStoredRecord& record) {
    Writer out(writing.order);
    out.date(record.date);
    out.byte(0);  // the sum, below
    for (std::size_t bit = 0; bit < VistRecordFields; ++bit) {
        if ((mask >> bit & 1U) == 0) continue;
        out.number(record.numbers[bit], vist_field_rows()[bit].width);
    }
    ByteVector body = out.take();
    if (record.erased) return ByteVector(body.size(), 0xFF);
    body[RecordSumAt] = vist_sum(std::span(body).subspan(RecordSumFrom));
    return body;
}

bool vist_spoil_inner_sum(ByteVector& packet) {
    if (packet.size() <= BodyAt + RecordSumAt) return false;
    if (packet[TypeAt] != VistArchiveHeader && packet[TypeAt] != VistArchiveRecord) return false;
    ++packet[BodyAt + (packet[TypeAt] == VistArchiveHeader ? HeaderSumAt : RecordSumAt)];
    vist_renew_sum(packet);
    return true;
}

void vist_renew_sum(ByteVector& packet) {
    packet[SumAt] = vist_sum(std::span(packet).subspan(TypeAt));
}

}  // namespace sim
