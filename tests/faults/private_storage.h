#pragma once
// A storage of a machine's own, which can run full and become read-only as a real one does: a small file system in
// memory, mounted where only this process sees it.

#include <string>

namespace faults {

/// Gives the process mounts of its own. To be called before it has threads; false where the machine does not let it.
bool enter_private_mounts();

class PrivateStorage {
  public:
    /// Mounts over an empty folder, if enter_private_mounts went well.
    explicit PrivateStorage(std::string folder);
    ~PrivateStorage();
    PrivateStorage(const PrivateStorage&) = delete;
    PrivateStorage& operator=(const PrivateStorage&) = delete;

    bool is_mounted() const { return mounted_; }
    /// As many pages as told are left. False when it could not be done.
    bool fill_up(unsigned pages_left);
    /// False while a file is open for writing.
    bool make_read_only();
    void recover();

  private:
    bool remount(unsigned long flags, const std::string& options) const;

    std::string folder_;
    bool mounted_ = false;
};

}  // namespace faults
