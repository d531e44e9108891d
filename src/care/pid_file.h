#pragma once
// The pid file of a port's keeper. Whoever has its lock is the one keeper of the port; the lock ends with the process.

#include <sys/types.h>

#include <string>
#include <utility>

class PidFile {
  public:
    explicit PidFile(std::string file) : path(std::move(file)) {}
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;
    ~PidFile();

    /// Takes the file, also one that somebody has removed meanwhile. False when another process has it.
    bool hold();
    /// What the file is to tell, from now on.
    void write(pid_t number);

  private:
    std::string path;
    int fd = -1;
    pid_t pid = 0;
};
