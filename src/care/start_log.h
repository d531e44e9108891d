#pragma once
// What the last start of a port's process wrote to its standard streams, in a file of bounded size: its beginning as it
// comes, and its last words when the process has ended. What was there before is kept as FILE.old.

#include <string>
#include <string_view>
#include <utility>

class StartLog {
  public:
    static constexpr std::size_t BeginningBytes = 64 * 1024;
    static constexpr std::size_t LastBytes = 4 * 1024;

    explicit StartLog(std::string file) : path(std::move(file)) {}
    StartLog(const StartLog&) = delete;
    StartLog& operator=(const StartLog&) = delete;
    ~StartLog() { close(); }

    void begin();
    void add(std::string_view text);
    /// The last words, and a line of our own.
    void end(std::string_view line);

  private:
    void close();

    std::string path;
    int fd = -1;
    std::size_t room = 0;
    bool anything_cut = false;
    std::string last;  // of what found no room
};
