#pragma once
// What messages become in the tables.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "store/message.h"

namespace store {

struct Row {
    std::int32_t system = 0;
    std::int32_t name = 0;
    std::int32_t time = 0;
    std::int32_t quality = 0;
    double value = 0;
    std::int64_t written = 0;
};

constexpr std::int64_t MostSequence = (std::int64_t{1} << 42) - 1;

/// When a line was written, as a number that grows: by the stream, the sequence in it, the place in the message.
std::int64_t written_at(int stream, std::int64_t sequence, int place);

/// In the order of the tables' keys, and of the same key the one that was written last. Of events all that differ.
void put_in_order(std::vector<Row>& rows, bool are_events);

/// For COPY in PostgreSQL's binary format: (time, value, written, system_id, name_id, quality).
std::string encode(const std::vector<Row>& rows);

}  // namespace store
