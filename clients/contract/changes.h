#pragma once
// Tells when files of meters change, without looking at them: woken by the system, not by a clock.

#include <map>
#include <string>
#include <vector>

namespace contract {

class Changes {
  public:
    Changes();
    ~Changes();
    Changes(const Changes&) = delete;
    Changes& operator=(const Changes&) = delete;

    /// False when the system has no more of that for this user.
    bool is_usable() const { return fd >= 0; }
    /// Looks after the files in a folder from now on. False when it cannot: it is not there, or the system has no more
    /// of that. What is not there yet comes as a change of the folder above, if that is looked after.
    bool look_after(const std::string& folder);
    /// The same of folders that come and go in it, whatever happens to files.
    bool look_after_folders_in(const std::string& folder);

    /// Readable when something has changed.
    int descriptor() const { return fd; }
    /// Waits until a file in one of the folders has changed, or `other` (a descriptor, or -1) is readable, or the time
    /// is over (-1: never). The folders in which something has changed, each once.
    std::vector<std::string> wait(int other, int milliseconds);

  private:
    struct Watched {
        std::string folder;
        bool only_folders;
    };
    bool look_after(const std::string& folder, bool only_folders);
    std::vector<std::string> take();

    int fd;
    std::map<int, Watched> folders;
};

}  // namespace contract
