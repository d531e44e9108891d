#pragma once
// Which records a meter of a faulty year has stored, which lines they must become, and which of those lines stand in
// the files. And which of the missing ones are owed.
//
// The files are all that a process knows when it starts, and it reads on behind the newest record in them; later it
// goes by what it has read, whether a line was written or not. So there are two reasons to give a record up: some of
// its lines stand in the files when a process starts, and the others do not; or a process has read it and not written
// it, which is a doubt only, as the next process may not know of that.

#include <cstddef>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "faults/year_meter.h"

namespace faults {

class Ledger {
  public:
    using LineId = std::size_t;

    void add(YearRecord record, std::time_t known_since);

    std::optional<LineId> find(const std::string& file, const std::string& text) const;
    void appeared(LineId line) { ++lines_[line].count; }
    void vanished(LineId line) { --lines_[line].count; }
    int count(LineId line) const { return lines_[line].count; }
    /// Whether some line of that file begins with `piece`, which is shorter.
    bool is_beginning(const std::string& file, const std::string& piece) const;
    /// Such a piece stands at the end of a file. One that says time, quality and something of a value counts as a line
    /// to those who look for the newest time.
    void torn(const std::string& file, const std::string& piece);
    /// No piece stands in that file any more.
    void emptied(const std::string& file);
    /// The text of a line of that file that does not stand there yet, the oldest behind all that do.
    std::optional<std::string> next_line(const std::string& file) const;

    /// A process may have read what is missing now, if it asked the meter for it: `asked(archive)` is when it last did.
    void doubt_missing(const std::function<std::time_t(int)>& asked);
    /// The process is gone. A record is given up if it was in doubt or begun, and is not newer than the newest one of
    /// its archive in the files. `throws_away`: files of one archive that disagree are emptied, and all is read again.
    void process_is_gone(bool throws_away);
    /// The same process has had its chance: what is in doubt and still missing will not come.
    void give_up_doubtful();

    /// Looks whether the promised records, not given up, not in doubt, known at `known_by` and not older than `oldest`
    /// of their archive, are whole; the first line that is missing, as "file line".
    std::optional<std::string> first_missing(std::time_t known_by, const std::function<std::time_t(int)>& oldest);

    std::size_t records() const { return records_.size(); }
    std::size_t promised() const { return promised_; }
    std::size_t given_up() const { return given_up_; }  ///< without those that had been kept before
    std::size_t kept() const { return kept_; }
    std::size_t lines() const { return lines_.size(); }

  private:
    struct Record {
        int archive;
        std::time_t time;
        std::time_t known_since;
        bool owed;
        bool kept;
        bool in_doubt;
        std::vector<LineId> lines;
    };
    struct Line {
        int count = 0;
        bool torn = false;  ///< a piece of it stands at the end of the file
        bool tells_progress = true;
        std::size_t record = 0;  ///< the first one with this line
    };
    using FileLines = std::map<std::string, LineId>;  // sorted: all times have ten digits

    bool is_there(const Line& line) const { return line.count > 0 || line.torn; }
    bool is_whole(const Record& record) const;
    bool is_begun(const Record& record) const;
    bool files_agree(int archive) const;
    /// Time of the newest record of which something stands in the files.
    std::time_t newest_in_files(int archive) const;
    std::optional<LineId> newest_in_file(const FileLines& lines) const;
    std::string first_missing_line(const Record& record) const;
    template <typename Condition>
    void give_up_if(Condition condition);

    std::vector<Record> records_;
    std::vector<Line> lines_;
    std::map<std::string, FileLines> by_file_;
    std::map<int, std::set<std::string>> files_;  // of each archive, those that tell a starting process how far it is
    std::size_t promised_ = 0;
    std::size_t given_up_ = 0;
    std::size_t kept_ = 0;
    std::vector<std::size_t> open_;  // places of owed records that a meter may still hold
};

}  // namespace faults
