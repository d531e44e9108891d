#include "drivers/sa94/sa94_archive.h"

#include <algorithm>

#include "core/local_time.h"
#include "drivers/sa94/sa94_values.h"

namespace {

bool is_erased(Bytes bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

}  // namespace

const char* archive_name(int archive_type) {
    switch (archive_type) {
        case HOURLY_DB:
            return "Hourly";
        case DAILY_DB:
            return "Daily";
        case ERROR_DB:
            return "Error";
        default:
            return "unknown";
    }
}

const char* archive_word(int archive_type) {
    switch (archive_type) {
        case HOURLY_DB:
            return "HOURLY_DB";
        case DAILY_DB:
            return "DAILY_DB";
        case ERROR_DB:
            return "ERROR_DB";
        default:
            return "unknown";
    }
}

int low_segment(int archive_type) {
    switch (archive_type) {
        case HOURLY_DB:
            return 2;
        case DAILY_DB:
            return 4;
        case ERROR_DB:
            return 6;
        default:
            return -1;
    }
}

int otherSegment(int segment) {
    return segment >= 2 && segment <= 7 ? segment ^ 1 : -1;
}

std::uint32_t first_usable_block(int archive_type) {
    return archive_type == ERROR_DB ? 2 : 0;
}

std::size_t SA94Memory::recordSize(int archive_type) const {
    switch (archive_type) {
        case HOURLY_DB:
        case DAILY_DB:
            return extended ? 64 : 32;
        case ERROR_DB:
            return 8;
        default:
            return 0;
    }
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
