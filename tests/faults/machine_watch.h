#pragma once
// What a process may take of the machine, and what it may leave there: paths, sizes, descriptors, memory, items.

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace faults {

class MachineWatch {
  public:
    /// `root` stands for "/".
    MachineWatch(std::string root, const std::string& uuid);
    /// Several meters of one process.
    MachineWatch(std::string root, std::vector<std::string> uuids);

    /// While a process runs. Throws BrokenInvariant, as all below.
    void look() const;
    /// Without a process: descriptors are what they were when the first one had ended.
    void process_ended();

    // ---- memory: what the process takes is what is not the test's own

    void process_begins();
    /// Around what the test does while the process runs.
    void begin_own_work();
    void end_own_work();
    /// `explained`: bytes that the simulated machine may have taken over the whole year.
    void process_is_gone(std::size_t explained);

    long long heap_growth() const { return heap_; }
    std::size_t largest_log() const { return largest_log_; }

  private:
    void look_at_paths() const;
    void look_at_tmp() const;
    void look_at_items(const std::string& uuid) const;

    std::string root_;
    std::vector<std::string> uuids_;
    std::set<std::string> elsewhere_;  ///< paths outside of /tmp and /mnt/storage
    std::size_t descriptors_ = 0;      ///< 0: not known yet
    long long heap_ = 0;
    long long heap_at_ = 0;
    mutable std::size_t largest_log_ = 0;
};

}  // namespace faults
