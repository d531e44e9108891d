#pragma once
// heatmeter-view as a program of its own, and somebody who asks it.

#include <sys/types.h>

#include <string>

class ViewProgram {
  public:
    /// Serves the files below this folder at a free port.
    explicit ViewProgram(const std::string& root);
    ~ViewProgram();
    ViewProgram(const ViewProgram&) = delete;
    ViewProgram& operator=(const ViewProgram&) = delete;

    int port() const { return port_; }
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = 0;
    int port_ = 0;
};

/// A program that was started with these words, its standard error (or -1) at `errors`.
pid_t start_program(const std::string& script, int errors = -1);
void end_program(pid_t pid);

/// A connection to a port of this machine; throws without one.
int connect_to(int port);
/// Sends a request for this path, and takes the whole answer: its size.
std::size_t ask(int port, const std::string& path);
/// A stream of events that has said its first word; the connection.
int listen_to(int port);

/// Processor time of all threads of a process, seconds.
double cpu_of(pid_t pid);
/// Its memory that is not of any file, KiB.
long own_memory_of(pid_t pid);
