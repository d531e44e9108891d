#pragma once
// What a sink has confirmed, in a small SQLite database that survives a power cut: uplink.db in the state folder.
//
// Its journal is a rollback journal, made durable before the database is touched: a cut leaves the state before a
// transaction or the one behind it, and others may read the file without writing beside it. A lost transaction costs
// lines that are sent twice, never a line.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "uplink/archive_part.h"

namespace uplink {

constexpr const char* StateName = "uplink.db";  // which contract/backlog.h reads

/// A file of a meter's system.
struct FileName {
    std::string uuid;
    int system = 1;
    std::string name;

    auto operator<=>(const FileName&) const = default;  // NOLINT(modernize-use-nullptr): no pointer is compared
};

class State {
  public:
    /// Opens or makes the database in this folder of the machine; one that is broken is put aside and begun anew. A
    /// std::runtime_error when that cannot be done. `vfs`: another file system of SQLite's.
    explicit State(const std::string& folder, const char* vfs = nullptr);

    /// Calls with each place that is kept for a sink. None of another gateway's name: under a new one all counts anew.
    void load(const std::string& sink, const std::string& gateway,
              const std::function<void(const FileName&, const Place&)>& take);

    /// The others are not in use, and nobody waits for them; what they have confirmed stays known.
    void use(const std::vector<std::string>& sinks);

    struct Change {
        FileName file;
        Place place;
    };
    /// All in one transaction. False when it could not be made durable: then nothing of it is kept.
    bool keep(const std::string& sink, const std::vector<Change>& changes, std::int64_t now);

    const std::string& fault() const { return last_fault; }
    /// The database was broken, and this is a new one.
    bool was_broken() const { return put_aside; }

  private:
    struct Close {
        void operator()(sqlite3* database) const { ::sqlite3_close(database); }
        void operator()(sqlite3_stmt* statement) const { ::sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Close>;

    bool use_file(const std::string& path, const char* vfs);
    bool run(const char* sql);
    Statement prepare(const char* sql);
    bool fail();

    std::unique_ptr<sqlite3, Close> database;
    Statement set_place, set_confirmed;
    std::string last_fault;
    bool put_aside = false;
};

}  // namespace uplink
