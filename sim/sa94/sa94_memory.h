#pragma once
// The memory of a simulated SA-94 meter, as its requests see it, and the three rings of records in it.
//
//     segment   content
//     0         service data: block 0 the pipes, block 2 the firmware
//     1         nothing
//     2, 3      ring of hourly records
//     4, 5      ring of daily records
//     6, 7      ring of errors; blocks 0 and 1 of both hold no records
//
// A block has 128 bytes; a segment has 128 blocks, or 512 in a meter with large segments. A byte that nobody has
// written is 0xFF.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sa94_types.h"
#include "sim_meter.h"

namespace sim {

inline constexpr unsigned Sa94Segments = 8;
inline constexpr unsigned Sa94BlockSize = 128;

/// The moment that the bytes of a record say, -1 when they say none.
std::time_t sa94_record_time(Sa94Archive archive, std::span<const std::uint8_t> record);

/// The shape of a ring.
struct Sa94Shape {
    unsigned low_segment;
    unsigned first_block;  ///< the first one with records, in both segments
    unsigned blocks;       ///< of a segment, those without records as well
    unsigned record_size;

    unsigned records_per_block() const { return Sa94BlockSize / record_size; }
    /// Records that both segments hold.
    unsigned capacity() const { return 2 * (blocks - first_block) * records_per_block(); }
};

class Sa94Memory {
  public:
    using Block = std::span<std::uint8_t, Sa94BlockSize>;
    using ConstBlock = std::span<const std::uint8_t, Sa94BlockSize>;

    Sa94Memory(bool extended, Sa94Turning turning);

    bool extended() const { return extended_; }
    unsigned blocks_per_segment() const { return extended_ ? 512 : 128; }
    Sa94Shape shape(Sa94Archive archive) const;

    /// Both throw std::out_of_range.
    ConstBlock block(unsigned segment, unsigned block) const;
    Block block(unsigned segment, unsigned block);
    void write(unsigned segment, unsigned block, unsigned offset, std::span<const std::uint8_t> bytes);
    void erase(unsigned segment, unsigned first_block, unsigned end_block);

    // ---- rings

    void set_turning(Sa94Turning turning) { turning_ = turning; }
    /// Writes the next record of a ring; of a shorter one the rest is 0.
    void append(Sa94Archive archive, std::span<const std::uint8_t> record);
    /// Erases both segments where records may stand; the next record goes to the start of the low one, or the high.
    void erase_ring(Sa94Archive archive, bool begin_in_high = false);
    /// Where the next record will go.
    Sa94StoredRecord next(Sa94Archive archive) const { return place(shape(archive), cursor(archive)); }

    /// Every record that is not null, oldest first: a look at all places of the ring, from the next one on.
    std::vector<Sa94StoredRecord> records(Sa94Archive archive) const;
    /// The bytes of a record; throws std::out_of_range.
    std::span<std::uint8_t> bytes(Sa94Archive archive, const Sa94StoredRecord& record);
    std::span<const std::uint8_t> bytes(Sa94Archive archive, const Sa94StoredRecord& record) const;

  private:
    unsigned& cursor(Sa94Archive archive);
    unsigned cursor(Sa94Archive archive) const;
    static Sa94StoredRecord place(const Sa94Shape& ring, unsigned number);
    std::size_t offset(unsigned segment, unsigned block) const;
    void make_room(Sa94Archive archive, const Sa94Shape& ring, const Sa94StoredRecord& place);

    bool extended_;
    Sa94Turning turning_;
    ByteVector bytes_;
    std::array<unsigned, 3> cursors_ = {};  // numbers of places, counted from the start of the low segment
};

}  // namespace sim
