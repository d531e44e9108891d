#pragma once
// Many records told by few of them: for a chart, which has so many dots and no more.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "contract/archive_table.h"

namespace contract {

struct ThinRow {
    std::int64_t time = 0;
    std::vector<std::string>
        values;  ///< by the place of the name, as they stand in the file; empty where there is none
};

struct Thinned {
    using Times = std::pair<std::int64_t, std::int64_t>;

    std::vector<std::string> names;
    std::vector<ThinRow> rows;  ///< in order of time, all of them rows of the table
    std::int64_t step = 0;      ///< seconds of a span; 0: nothing was left out
    std::int64_t from = 0;      ///< first and last time found
    std::int64_t to = 0;
    std::vector<std::vector<Times>> holes;  ///< by name: between these two records at least one is missing
    std::vector<std::vector<Times>> bad;    ///< by name: first and last of values whose quality is not 192
    bool is_open = false;
    std::size_t unreadable = 0;
    bool has_changed = false;
};

/// At most so many rows, two for each name at least, that keep of each span of time the least and the greatest value of
/// every name. Spans are as long as that needs, and begin at multiples of their length. Holes and bad values that are
/// nearer to one another than a span are one. `staged`: of a driver that stages its records, none of whose totals is
/// missed.
Thinned thin(const std::string& folder, ArchiveKind kind, const ArchiveQuestion& question, std::size_t most,
             bool staged);

/// Which of two numbers of archive files is less, by their digits.
bool is_less(std::string_view one, std::string_view other);

}  // namespace contract
