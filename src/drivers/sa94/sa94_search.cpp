#include "drivers/sa94/sa94_search.h"

#include "core/local_time.h"

namespace {

constexpr std::uint32_t NoBlock = static_cast<std::uint32_t>(-1);

/// In 32-bit unsigned arithmetic: an upper bound that has wrapped below zero is a very large number, and is halved as
/// one. The meter sees the low bits of such a block number.
std::uint32_t middle_of(std::uint32_t low, std::uint32_t high) {
    return low + ((high - low) >> 1);
}

}  // namespace

bool SA94Search::getFirstRecordInfo(int archive_type, std::time_t& tmp_timestamp, int& first_segment,
                                    std::uint32_t& first_block) const {
    logs.messages("Start Get First record info for ", archive_name(archive_type), " archives");
    const int low_half = low_segment(archive_type);
    const int high_half = otherSegment(low_half);
    first_block = first_usable_block(archive_type);
    const auto read_time = [&](int segment, std::time_t& time) {
        SA94Request request(address);
        if (!read(request, segment, first_block)) return false;
        time = recordTime(archive_type, memory.record_at(archive_type, request.response, 0));
        return true;
    };
    std::time_t low = -1;
    std::time_t high = -1;
    if (!read_time(low_half, low) || !read_time(high_half, high)) return false;

    // Erased memory has the time -1.
    const bool begins_high = low == -1 || (high != -1 && low > high);
    tmp_timestamp = begins_high ? high : low;
    first_segment = begins_high ? high_half : low_half;
    return true;
}

bool SA94Search::bisect_null_block(int archive_type, int segment, SA94Request& request,
                                   std::uint32_t& high_block) const {
    std::uint32_t low_block = first_usable_block(archive_type);
    high_block = memory.blocksPerSegment();
    while (low_block < high_block) {
        const std::uint32_t middle = middle_of(low_block, high_block);
        if (!read(request, segment, middle)) return false;
        if (isNullBlock(request.response)) {
            high_block = middle;
        } else {
            low_block = middle + 1;
        }
    }
    return true;
}

void SA94Search::scan_end_position(int archive_type, Bytes block, int& end_position) const {
    for (int position = 0; position < memory.recordsPerBlock(archive_type); ++position) {
        if (!memory.isNullRecord(archive_type, memory.record_at(archive_type, block, position))) continue;
        end_position = position - 1;
        return;
    }
}

bool SA94Search::findArchiveEnd(int archive_type, int& end_segment, std::uint32_t& end_block, int& end_position) const {
    end_segment = -1;
    end_block = NoBlock;
    end_position = -1;
    const std::uint32_t last_block = memory.blocksPerSegment() - 1;
    const int low_half = low_segment(archive_type);
    for (const int segment : {low_half, otherSegment(low_half)}) {
        SA94Request request(address);
        std::uint32_t high_block = 0;
        if (!bisect_null_block(archive_type, segment, request, high_block)) return false;
        // The block looked at is the one read last, which is not always `high_block`: where it is the written one
        // before it, the segment is passed over as if it were full. The search by time copes with that, as it goes by
        // null records too.
        if (high_block > last_block || !isNullBlock(request.response)) continue;
        if (high_block == 0) {
            if (!read(request, otherSegment(segment), last_block)) return false;
            if (isNullBlock(request.response)) continue;
            // What is found here is overwritten below, and so the end of an archive that fills the other segment
            // is block -1 of this one: the search then walks down to block 0.
            end_block = last_block;
            end_segment = otherSegment(segment);
            scan_end_position(archive_type, request.response, end_position);
        }
        if (!read(request, segment, high_block - 1)) return false;
        end_block = high_block - 1;
        end_segment = segment;
        scan_end_position(archive_type, request.response, end_position);
        return true;
    }
    return true;
}

bool SA94Search::narrow_to_block(int archive_type, std::time_t timestamp, int segment, SA94Request& request,
                                 std::uint32_t& last_block) const {
    std::uint32_t first_block = first_usable_block(archive_type);
    while (first_block < last_block) {
        logs.debug("first_block = ", first_block, ", last_block = ", last_block);
        const std::uint32_t middle_block = middle_of(first_block, last_block);
        logs.debug("middle_block = ", middle_block);
        if (!read(request, segment, middle_block)) return false;
        const Bytes first_record = memory.record_at(archive_type, request.response, 0);
        if (memory.isNullRecord(archive_type, first_record)) {
            logs.debug("isNullBlock");
            last_block = middle_block;
            continue;
        }
        const std::time_t first_time = recordTime(archive_type, first_record);
        logs.debug("Found timestamp in first block's record is ", first_time, ", as ", asctime_text(first_time));
        if (first_time >= timestamp) {
            last_block = middle_block;
            continue;
        }
        // A block is asked for once more before its other end is looked at.
        if (!read(request, segment, middle_block)) return false;
        const Bytes last_record =
            memory.record_at(archive_type, request.response, memory.recordsPerBlock(archive_type) - 1);
        if (!memory.isNullRecord(archive_type, last_record) && recordTime(archive_type, last_record) < timestamp) {
            first_block = middle_block + 1;
        } else {
            last_block = middle_block;
        }
    }
    return true;
}

int SA94Search::position_of_time(int archive_type, Bytes block, std::time_t timestamp) const {
    for (int position = 0; position < memory.recordsPerBlock(archive_type); ++position) {
        if (recordTime(archive_type, memory.record_at(archive_type, block, position)) == timestamp) return position;
    }
    return -1;
}

bool SA94Search::getRecordByTimestamp(int archive_type, std::time_t timestamp, int& segment, std::uint32_t& block,
                                      int& position) const {
    logs.both("Start get record by timestamp for ", archive_name(archive_type), " archives");
    *logs.log_messages << LOG_BEGIN << "Search timestamp = " << timestamp << " => " << asctime_text(timestamp) + "\n";
    std::time_t tmp_timestamp = 0;
    int first_segment = 0;
    std::uint32_t first_block = 0;
    if (!getFirstRecordInfo(archive_type, tmp_timestamp, first_segment, first_block)) return false;
    if (timestamp < tmp_timestamp) {
        logs.debug("Timestamp( ", timestamp, " ) < tmp_timestamp( ", tmp_timestamp, " )");
        segment = first_segment;
        block = first_block;
        position = 0;
        return true;
    }

    int end_segment = -1;
    std::uint32_t end_block = 0;
    int end_position = -1;
    if (!findArchiveEnd(archive_type, end_segment, end_block, end_position)) return false;
    logs.debug("Start search");
    const int low_half = low_segment(archive_type);
    for (const int half : {low_half, otherSegment(low_half)}) {
        logs.debug("Segment_index = ", half);
        SA94Request request(address);
        std::uint32_t last_block = half == end_segment ? end_block : memory.blocksPerSegment() - 1;
        if (!narrow_to_block(archive_type, timestamp, half, request, last_block)) return false;
        if (!read(request, half, last_block)) return false;
        logs.debug("Searching record in block");
        const int found = position_of_time(archive_type, request.response, timestamp);
        if (found < 0 || last_block >= memory.blocksPerSegment()) continue;
        segment = half;
        block = last_block;
        position = found;
        logs.debug("Found record! Segment_index = ", segment, ", block_num = ", block, ", position = ", position);
        return true;
    }
    segment = -1;
    block = NoBlock;
    position = -1;
    return true;
}
