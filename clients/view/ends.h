#pragma once
// Tells when one of some processes ends, without looking at them.

#include <sys/types.h>

#include <vector>

namespace view {

class Ends {
  public:
    Ends() = default;
    ~Ends() { forget(); }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;

    /// These from now on, and no others. Nothing comes of a process that is no more, and on a system older than
    /// Linux 5.3.
    void look_after(const std::vector<pid_t>& processes);
    /// Each is readable when its process has ended.
    const std::vector<int>& descriptors() const { return open; }
    void forget();

  private:
    std::vector<int> open;
};

}  // namespace view
