#pragma once
// What a power cut leaves of the files on the gateway's storage: knows, for every file below one directory, the content
// that has been made durable.

#include <map>
#include <string>

namespace sim {

/// What a power cut leaves of bytes that were written but not made durable.
enum class Unsynced { Dropped, Kept, Zeroed };

class SimStorage {
  public:
    /// All that stands below `directory` now is durable.
    explicit SimStorage(const std::string& directory);

    /// All that stands there now has become durable.
    void settle();
    /// The file behind a descriptor has become durable, at the length and with the content it has.
    void made_durable(int fd);

    /// The power cut. Dropped: every file falls back to its durable content, one that never was durable is empty.
    /// Zeroed: a file keeps its length, and what is not its durable content reads as zeros. Whatever this process has
    /// open there leads nowhere afterwards, so that a buffer flushed too late does not rise from the dead and no lock
    /// outlives its owner.
    void lose(Unsynced unsynced);

  private:
    bool covers(const std::string& path) const;
    void disconnect_descriptors() const;

    std::string directory_;
    std::map<std::string, std::string> durable_;  // path to content
};

}  // namespace sim
