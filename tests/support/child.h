#pragma once
// Work whose words or whose end are the thing under test: what goes to the standard streams, and with which status a
// process ends. The simulated machine and the configuration service of a scene serve a child as they serve its parent,
// and the files that the child leaves are the parent's to look at.

#include <functional>
#include <string>

/// What `work` writes to standard output, or to standard error.
std::string stdout_of(const std::function<void()>& work);
std::string stderr_of(const std::function<void()>& work);

/// How a child process ended, and what it said.
struct ChildEnd {
    int status = -1;  ///< exit status; -1 when a signal ended it
    int signal = 0;   ///< the signal that ended it, or 0
    std::string out;
    std::string err;
};

/// Runs `work` in a child process. What it returns is the child's exit status, unless it ends the process itself.
ChildEnd in_child(const std::function<int()>& work);

/// As in_child, in a child whose standard output leads into a pipe that nobody reads any more.
ChildEnd in_child_without_reader(const std::function<int()>& work);
