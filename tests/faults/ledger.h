#pragma once
// Which records the meters of a faulty year have stored, which lines they must become, and which of those lines stand
// in the files.

#include <cstddef>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "faults/year_family.h"

namespace faults {

class Ledger {
  public:
    using LineId = std::size_t;

    void add(YearRecord record, std::time_t known_since);

    std::optional<LineId> find(const std::string& file, const std::string& text) const;
    void appeared(LineId line) { ++count_[line]; }
    void vanished(LineId line) { --count_[line]; }
    int count(LineId line) const { return count_[line]; }
    /// Whether some line of that file begins with `piece`, which is shorter. `earliest` bounds the time of its record.
    bool is_beginning(const std::string& file, const std::string& piece) const;
    /// The text of a line of that file that does not stand there yet, the oldest behind all that do.
    std::optional<std::string> next_line(const std::string& file) const;

    /// The records that are not whole and of which some line stands in the files: their rest is given up.
    void give_up_begun();
    /// All that is not whole by now.
    void give_up_missing();
    /// All of one archive that is not whole by now.
    void give_up_missing(int archive);
    /// Everything known so far, whole or not: its files are gone.
    void give_up_all();

    /// Looks whether the promised records, not given up, known at `known_by` and not older than `oldest` of their
    /// archive, are whole; the first line that is missing, as "file line".
    std::optional<std::string> first_missing(std::time_t known_by, const std::function<std::time_t(int)>& oldest);

    std::size_t records() const { return records_.size(); }
    std::size_t promised() const { return promised_; }
    std::size_t given_up() const { return given_up_; }  ///< without those that had been kept before
    std::size_t kept() const { return kept_; }
    std::size_t lines() const { return count_.size(); }

  private:
    struct Record {
        int archive;
        std::time_t time;
        std::time_t known_since;
        bool owed;
        bool kept;
        std::vector<LineId> lines;
    };
    bool is_whole(const Record& record) const;
    bool is_begun(const Record& record) const;
    std::string first_missing_line(const Record& record) const;
    template <typename Condition>
    void give_up_if(Condition condition);

    std::vector<Record> records_;
    std::vector<int> count_;                                        // of each line
    std::map<std::string, std::map<std::string, LineId>> by_file_;  // sorted: all times have ten digits
    std::size_t promised_ = 0;
    std::size_t given_up_ = 0;
    std::size_t kept_ = 0;
    std::vector<std::size_t> open_;  // places of owed records that a meter may still hold
};

}  // namespace faults
