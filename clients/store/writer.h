#pragma once
// Messages into the database: each line once, whatever comes twice.

#include <string>
#include <vector>

#include "store/database.h"
#include "store/dictionary.h"
#include "store/rows.h"
#include "store/schema.h"

namespace store {

/// A message that has come, looked at.
struct Item {
    std::string subject;
    std::string body;
    std::int64_t sequence = 0;
    Message message;
    std::string fault;  ///< of the whole message, "" if there is none
};

struct Counts {
    long messages = 0;
    long lines = 0;
    long rejected = 0;
};

class Writer {
  public:
    /// Connects, brings the schema up to date. Throws a DatabaseError, as all of this does.
    explicit Writer(const std::string& conninfo);

    int stream(const std::string& name, std::int64_t created) { return stream_number(database, name, created); }

    /// All in one transaction, or nothing. What the database itself refuses is found and rejected.
    void write(int stream, std::vector<Item>& items, Counts& counts);
    /// Of these sequences of a stream the first ones, at most so many, that were never written.
    std::vector<std::int64_t> missing(int stream, std::int64_t first, std::int64_t last, std::size_t most);
    /// These count as written.
    void mark_done(int stream, const std::vector<std::int64_t>& sequences);
    int migrated() const { return migration_count; }

  private:
    using Iterator = std::vector<Item>::iterator;

    void write(int stream, Iterator begin, Iterator end, Counts& counts);
    void prepare(Iterator begin, Iterator end);
    void transact(int stream, Iterator begin, Iterator end, Counts& counts);
    void copy(const char* table, std::vector<Row>& rows, bool are_events);
    long reject(int stream, const Item& item);

    Database database;
    int migration_count;
    Dictionary dictionary;
    Months months;
    std::vector<Row> records, events;
};

}  // namespace store
