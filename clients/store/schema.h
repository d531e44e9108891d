#pragma once
// The tables, and how they come to be: numbered migrations that are part of the program.

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "store/database.h"

namespace store {

struct Migration {
    int number;
    std::string_view name;  ///< "001_tables.sql"
    std::string_view sql;
};

/// In the order of their numbers.
std::span<const Migration> migrations();

/// Runs those that are missing, each in a transaction, while nobody else does. How many there were.
int migrate(Database& database);

/// The number of a stream that was made at this moment; a new one for a new stream.
int stream_number(Database& database, const std::string& name, std::int64_t created);

/// Partitions are made before a line needs them.
class Months {
  public:
    /// Months since 1970 of a time, UTC.
    static int month_of(std::int64_t time);

    /// Makes the partitions of these months that are not known to be there.
    void make(Database& database, const std::set<int>& months);
    /// This month and the two that follow.
    void make_ahead(Database& database);
    void forget() { known.clear(); }

  private:
    std::set<int> known;
};

}  // namespace store
