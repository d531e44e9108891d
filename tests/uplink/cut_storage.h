#pragma once
// A storage under SQLite whose power can be cut: it knows what would be there then. What was written and not made
// durable may be there, or not, or a part of it.

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <sqlite3.h>

class CutStorage {
  public:
    static constexpr const char* Name = "cut";

    struct Write {
        sqlite3_int64 at;   // -1: the file gets this size
        std::string bytes;  // or has its size in the length of them
        sqlite3_int64 size = 0;
    };
    struct Content {
        std::string durable;
        std::vector<Write> since;
        std::string live;
    };
    using Files = std::map<std::string, Content>;

    CutStorage();
    ~CutStorage();
    CutStorage(const CutStorage&) = delete;
    CutStorage& operator=(const CutStorage&) = delete;

    Files files;
    /// What was there before and behind each durable write.
    struct Moment {
        Files files;
        std::size_t time;
    };
    std::vector<Moment> moments;
    std::function<std::size_t()> clock;  ///< of the test's own
    bool is_recording = false;

    /// What a cut may leave of a moment.
    enum class Rest { Durable, Everything, Something };
    static Files after_cut(const Files& moment, Rest rest, std::mt19937& chance);

  private:
    sqlite3_vfs vfs{};
};
