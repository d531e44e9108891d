#include "sa94_memory.h"

#include <algorithm>
#include <stdexcept>

#include "sa94_wire.h"

namespace sim {

namespace {

constexpr std::uint8_t Erased = 0xFF;
constexpr unsigned SmallRecord = 32;
constexpr unsigned LargeRecord = 64;
constexpr unsigned ErrorRecord = 8;
constexpr unsigned FirstErrorBlock = 2;

std::size_t index(Sa94Archive archive) {
    switch (archive) {
        case Sa94Archive::Hourly:
            return 0;
        case Sa94Archive::Daily:
            return 1;
        case Sa94Archive::Errors:
            return 2;
    }
    throw std::out_of_range("no such archive");
}

bool is_null(std::span<const std::uint8_t> record) {
    return std::all_of(record.begin(), record.end(), [](std::uint8_t byte) { return byte == Erased; });
}

Sa94Date date_in(Sa94Archive archive, std::span<const std::uint8_t> record) {
    Sa94Date date{
        .year = sa94_bcd_value(record[3]), .month = sa94_bcd_value(record[2]), .day = sa94_bcd_value(record[1])};
    if (archive != Sa94Archive::Daily) date.hour = sa94_bcd_value(record[5]);
    if (archive != Sa94Archive::Errors) return date;
    date.minute = sa94_bcd_value(record[6]);
    date.second = sa94_bcd_value(record[7]);
    return date;
}

}  // namespace

std::time_t sa94_record_time(Sa94Archive archive, std::span<const std::uint8_t> record) {
    return sa94_time(date_in(archive, record));
}

Sa94Memory::Sa94Memory(bool extended, Sa94Turning turning)
    : extended_(extended),
      turning_(turning),
      bytes_(std::size_t{Sa94Segments} * (extended ? 512 : 128) * Sa94BlockSize, Erased) {}

Sa94Shape Sa94Memory::shape(Sa94Archive archive) const {
    const unsigned blocks = blocks_per_segment();
    const unsigned low_segment = 2 + 2 * static_cast<unsigned>(index(archive));
    if (archive == Sa94Archive::Errors) return {low_segment, FirstErrorBlock, blocks, ErrorRecord};
    return {low_segment, 0, blocks, extended_ ? LargeRecord : SmallRecord};
}

std::size_t Sa94Memory::offset(unsigned segment, unsigned block) const {
    if (segment >= Sa94Segments || block >= blocks_per_segment()) throw std::out_of_range("no such block");
    return (std::size_t{segment} * blocks_per_segment() + block) * Sa94BlockSize;
}

Sa94Memory::ConstBlock Sa94Memory::block(unsigned segment, unsigned block) const {
    return ConstBlock(bytes_.data() + offset(segment, block), Sa94BlockSize);
}

Sa94Memory::Block Sa94Memory::block(unsigned segment, unsigned block) {
    return Block(bytes_.data() + offset(segment, block), Sa94BlockSize);
}

void Sa94Memory::write(unsigned segment, unsigned block, unsigned offset, std::span<const std::uint8_t> bytes) {
    if (offset + bytes.size() > Sa94BlockSize) throw std::out_of_range("behind the end of a block");
    std::copy(bytes.begin(), bytes.end(), this->block(segment, block).begin() + offset);
}

void Sa94Memory::erase(unsigned segment, unsigned first_block, unsigned end_block) {
    if (first_block >= end_block) return;
    const std::size_t begin = offset(segment, first_block);
    const std::size_t end = offset(segment, end_block - 1) + Sa94BlockSize;
    std::fill(bytes_.begin() + static_cast<std::ptrdiff_t>(begin), bytes_.begin() + static_cast<std::ptrdiff_t>(end),
              Erased);
}

// ---- rings

unsigned& Sa94Memory::cursor(Sa94Archive archive) {
    return cursors_[index(archive)];
}

unsigned Sa94Memory::cursor(Sa94Archive archive) const {
    return cursors_[index(archive)];
}

Sa94StoredRecord Sa94Memory::place(const Sa94Shape& ring, unsigned number) {
    const unsigned per_block = ring.records_per_block();
    const unsigned in_segment = ring.capacity() / 2;
    const unsigned within = number % in_segment;
    return {.time = -1,
            .segment = ring.low_segment + number / in_segment % 2,
            .block = ring.first_block + within / per_block,
            .position = within % per_block};
}

void Sa94Memory::make_room(Sa94Archive archive, const Sa94Shape& ring, const Sa94StoredRecord& place) {
    if (turning_ == Sa94Turning::Overwrite || place.position != 0) return;
    if (turning_ == Sa94Turning::EraseSegment) {
        if (place.block == ring.first_block) erase(place.segment, ring.first_block, ring.blocks);
        return;
    }
    const Sa94StoredRecord ahead = this->place(ring, cursor(archive) + ring.records_per_block());
    erase(place.segment, place.block, place.block + 1);
    erase(ahead.segment, ahead.block, ahead.block + 1);
}

void Sa94Memory::append(Sa94Archive archive, std::span<const std::uint8_t> record) {
    const Sa94Shape ring = shape(archive);
    if (record.size() > ring.record_size) throw std::out_of_range("behind the end of a record");
    unsigned& number = cursor(archive);
    const Sa94StoredRecord next = place(ring, number);
    make_room(archive, ring, next);
    std::uint8_t* to = bytes_.data() + offset(next.segment, next.block) + std::size_t{next.position} * ring.record_size;
    std::copy_n(record.data(), record.size(), to);
    std::fill_n(to + record.size(), ring.record_size - record.size(), std::uint8_t{0});
    number = (number + 1) % ring.capacity();
}

void Sa94Memory::erase_ring(Sa94Archive archive, bool begin_in_high) {
    const Sa94Shape ring = shape(archive);
    erase(ring.low_segment, ring.first_block, ring.blocks);
    erase(ring.low_segment + 1, ring.first_block, ring.blocks);
    cursor(archive) = begin_in_high ? ring.capacity() / 2 : 0;
}

std::vector<Sa94StoredRecord> Sa94Memory::records(Sa94Archive archive) const {
    std::vector<Sa94StoredRecord> all;
    const Sa94Shape ring = shape(archive);
    for (unsigned k = 0; k < ring.capacity(); ++k) {
        Sa94StoredRecord record = place(ring, (cursor(archive) + k) % ring.capacity());
        const auto content = bytes(archive, record);
        if (is_null(content)) continue;
        record.time = sa94_record_time(archive, content);
        all.push_back(record);
    }
    return all;
}

std::span<const std::uint8_t> Sa94Memory::bytes(Sa94Archive archive, const Sa94StoredRecord& record) const {
    const Sa94Shape ring = shape(archive);
    if (record.position >= ring.records_per_block()) throw std::out_of_range("no such place in a block");
    return block(record.segment, record.block)
        .subspan(std::size_t{record.position} * ring.record_size, ring.record_size);
}

std::span<std::uint8_t> Sa94Memory::bytes(Sa94Archive archive, const Sa94StoredRecord& record) {
    const Sa94Shape ring = shape(archive);
    if (record.position >= ring.records_per_block()) throw std::out_of_range("no such place in a block");
    return block(record.segment, record.block)
        .subspan(std::size_t{record.position} * ring.record_size, ring.record_size);
}

}  // namespace sim
