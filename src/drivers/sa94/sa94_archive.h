#pragma once
// How an SA-94 meter keeps its archives: a ring of records for each kind, over two segments of its memory, which can be
// read one block at a time. Segment 0 holds service data, segment 1 is not used.

#include <cstddef>
#include <ctime>

#include "core/bytes.h"

constexpr std::size_t BlockBytes = 128;

constexpr int HOURLY_DB = 0;  ///< segments 2 and 3
constexpr int DAILY_DB = 1;   ///< segments 4 and 5
constexpr int ERROR_DB = 4;   ///< segments 6 and 7, whose blocks 0 and 1 hold no records

constexpr std::time_t HourSeconds = 3600;
constexpr std::time_t DaySeconds = 86400;

constexpr const char* ErrorItem = "_A57";  ///< archive of the events
constexpr const char* ArchiveFolder = "tc_archives";

/// "Hourly", "Daily", "Error" or "unknown".
const char* archive_name(int archive_type);
/// "HOURLY_DB", "DAILY_DB", "ERROR_DB" or "unknown".
const char* archive_word(int archive_type);

/// The lower segment of the archive's pair.
int low_segment(int archive_type);
/// The partner in the pair; -1 for a segment that holds no archive.
int otherSegment(int segment);
/// The first block of a segment that holds records.
std::uint32_t first_usable_block(int archive_type);

/// The size of a meter's memory, which its firmware decides.
struct SA94Memory {
    bool extended = false;

    std::uint32_t blocksPerSegment() const { return extended ? 512 : 128; }
    std::size_t blockSize() const { return BlockBytes; }
    /// Bytes; 0 for an archive that is none.
    std::size_t recordSize(int archive_type) const;
    int recordsPerBlock(int archive_type) const;
    bool isNullRecord(int archive_type, Bytes record) const;
    /// A record of a block.
    Bytes record_at(int archive_type, Bytes block, int position) const;
};

/// The block of a reply is erased: nothing has been written there, all bytes are 0xFF.
bool isNullBlock(Bytes reply);

/// Day, month and year of a record; no time of day.
std::tm record_date(Bytes record);
/// The broken-down time of a record, local standard time; the daylight-saving field is 0. A daily record has no hour.
std::tm record_tm_of(int archive_type, Bytes record);
/// Its time; -1 for a date that 32 bits do not hold, as that of erased memory.
std::time_t recordTime(int archive_type, Bytes record);
