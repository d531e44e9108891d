#include "drivers/sa94/sa94_archive.h"

#include <algorithm>

#include "core/local_time.h"
#include "drivers/sa94/sa94_values.h"

namespace {

struct Row {
    int archive_type;
    const char* name;
    const char* word;
    int low_segment;
};
constexpr Row Archives[] = {
    {HOURLY_DB, "Hourly", "HOURLY_DB", 2}, {DAILY_DB, "Daily", "DAILY_DB", 4}, {ERROR_DB, "Error", "ERROR_DB", 6}};
constexpr Row Unknown = {-1, "unknown", "unknown", -1};

const Row& row_of(int archive_type) {
    const auto* const row = std::find_if(std::begin(Archives), std::end(Archives),
                                         [=](const Row& each) { return each.archive_type == archive_type; });
    return row == std::end(Archives) ? Unknown : *row;
}

bool is_erased(Bytes bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

}  // namespace

const char* archive_name(int archive_type) {
    return row_of(archive_type).name;
}

const char* archive_word(int archive_type) {
    return row_of(archive_type).word;
}

int low_segment(int archive_type) {
    return row_of(archive_type).low_segment;
}

int otherSegment(int segment) {
    return segment >= 2 && segment <= 7 ? segment ^ 1 : -1;
}

std::uint32_t first_usable_block(int archive_type) {
    return archive_type == ERROR_DB ? 2 : 0;
}

std::size_t SA94Memory::recordSize(int archive_type) const {
    if (archive_type == ERROR_DB) return 8;
    if (archive_type != HOURLY_DB && archive_type != DAILY_DB) return 0;
    return extended ? 64 : 32;
}

int SA94Memory::recordsPerBlock(int archive_type) const {
    const std::size_t size = recordSize(archive_type);
    return size == 0 ? 0 : static_cast<int>(blockSize() / size);
}

bool SA94Memory::isNullRecord(int archive_type, Bytes record) const {
    return is_erased(part_of(record, 0, static_cast<int>(recordSize(archive_type))));
}

Bytes SA94Memory::record_at(int archive_type, Bytes block, int position) const {
    const std::size_t size = recordSize(archive_type);
    return part_of(block, static_cast<std::size_t>(position) * size, static_cast<int>(size));
}

bool isNullBlock(Bytes reply) {
    return is_erased(part_of(reply, 0, BlockBytes));
}

std::tm record_date(Bytes record) {
    std::tm tm{};
    tm.tm_mday = bcdToInt(u8_at(record, 1));
    tm.tm_mon = bcdToInt(u8_at(record, 2)) - 1;
    tm.tm_year = bcdToInt(u8_at(record, 3)) + 100;
    return tm;
}

std::tm record_tm_of(int archive_type, Bytes record) {
    std::tm tm = record_date(record);
    if (archive_type == HOURLY_DB || archive_type == ERROR_DB) tm.tm_hour = bcdToInt(u8_at(record, 5));
    if (archive_type == ERROR_DB) {
        tm.tm_min = bcdToInt(u8_at(record, 6));
        tm.tm_sec = bcdToInt(u8_at(record, 7));
    }
    return tm;
}

std::time_t recordTime(int archive_type, Bytes record) {
    std::tm tm = record_tm_of(archive_type, record);
    return make_time(tm);
}
