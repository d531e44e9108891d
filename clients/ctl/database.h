#pragma once
// The database that `export` fills: an SQLite file that anybody may read, with a line of each archive once and a cursor
// for each file, so that a second run adds what is new.

#include <cstdint>
#include <memory>
#include <string>

#include <sqlite3.h>

namespace ctl {

/// What of an archive file is in the database already.
struct FileCursor {
    std::int64_t inode = 0;
    std::int64_t offset = 0;  ///< of the end of the last whole line
    std::string last_line;    ///< in front of the offset: tells a file that goes on from one that was replaced
};

class Database {
  public:
    /// Opens or makes the file. A Failure when it cannot be used, or holds something else.
    explicit Database(const std::string& path);

    /// The number of an archive file in the database, and its cursor.
    std::int64_t series(const std::string& meter, int system, const std::string& kind, const std::string& name,
                        FileCursor& cursor);
    /// A line; one of the same series and time replaces the older one. Of events all are kept.
    void add(std::int64_t series, std::int64_t time, int quality, double value, bool is_event);
    void move_cursor(std::int64_t series, const FileCursor& cursor);

    void begin();
    void commit();

  private:
    struct Close {
        void operator()(sqlite3* database) const { ::sqlite3_close(database); }
        void operator()(sqlite3_stmt* statement) const { ::sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Close>;

    void run(const char* sql);
    Statement prepare(const char* sql);
    void step(sqlite3_stmt* statement);
    [[noreturn]] void fail();

    std::string file;
    std::unique_ptr<sqlite3, Close> database;
    Statement add_line, add_event, find_series, add_series, set_cursor;
};

}  // namespace ctl
