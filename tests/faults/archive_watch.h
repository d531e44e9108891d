#pragma once
// Reads the archive files along as they grow, and knows for each line what it stands for.

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "faults/ledger.h"

namespace faults {

class ArchiveWatch {
  public:
    /// `folder` is the meter's folder on storage, `staging` the name of the one that is the memory.
    ArchiveWatch(std::string folder, std::string memory_folder, Ledger& ledger);

    /// What has become of the files since the last look that has a reason.
    struct Reasons {
        bool may_tear = false;    ///< a storage that does not take whole lines
        bool may_shrink = false;  ///< a set of files was thrown away, or a cut undid that
    };
    /// Reads what has been added. Throws BrokenInvariant.
    void look(const Reasons& reasons);
    /// The power has failed: notes what stands at the end of the files without a line end.
    void note_tears();
    /// Of the zero bytes that a cut has left at the end of a file becomes the beginning of the line that was written.
    /// Only zero bytes that this cut has left are taken.
    void tear_zeros(std::size_t length);
    /// A folder was removed.
    void forget(const std::string& folder);
    /// Each whole line of the copies that readers are given stands in the memory, too. Throws BrokenInvariant.
    void look_at_copies() const;

    std::size_t lines_read() const { return lines_read_; }
    std::size_t torn() const { return torn_; }
    std::size_t emptied() const { return emptied_; }
    std::size_t bytes() const;

  private:
    struct File {
        std::size_t offset = 0;  ///< of the first line that was not read
        std::string before;      ///< what stands in front of it
        std::vector<Ledger::LineId> lines = {};
        std::set<std::size_t> tears = {};  ///< offsets at which a torn piece begins
    };
    std::vector<std::string> files() const;
    void read_on(const std::string& name, const Reasons& reasons);
    void take_line(const std::string& name, File& file, const std::string& line, std::size_t at,
                   const Reasons& reasons);
    void restart(const std::string& name, File& file);

    std::string folder_;
    std::string memory_;
    Ledger& ledger_;
    std::map<std::string, File> files_;
    std::size_t lines_read_ = 0;
    std::size_t torn_ = 0;
    std::size_t emptied_ = 0;
};

}  // namespace faults
