#pragma once
// Keeps the process of one port alive where there is no systemd: starts it when the configuration service answers,
// starts it again when it has ended or has lost its port, keeps what it prints. The process never outlives its keeper.

#include <cstdint>
#include <string>

#include "care/pid_file.h"
#include "care/port_file.h"
#include "care/start_log.h"
#include "care/terminals.h"

class Keeper {
  public:
    /// `state_file` holds what `status` is to tell: its exit status, a blank, a text.
    Keeper(std::string daemon, Words daemon_words, PidFile& own_pid_file, std::string state_file,
           const std::string& log_file);
    [[noreturn]] void run();

  private:
    enum class End { ByItself, Healed };

    pid_t start(int output);
    End watch(pid_t pid, int output, int signals, const Devices& devices);
    bool is_to_be_healed(pid_t pid, const Devices& devices);
    /// Makes the process end, and waits for that.
    void stop(pid_t pid);
    [[noreturn]] void give_up(pid_t pid, int output);
    void note_end(int status, std::int64_t lived);
    /// Also when somebody has removed the file.
    void tell(const std::string& state);

    std::string program;
    Words words;
    PidFile& pid_file;
    std::string state_path;
    StartLog log;
    std::string last_state;
    std::string since;  // local time of the last start
    pid_t child = 0;
    int short_lives = 0;                  // in a row
    std::string last_end = "no process";  // "exit status 1"
    std::string devices_at_start;         // see state_of
};
