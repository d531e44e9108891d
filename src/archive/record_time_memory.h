#pragma once
// The greatest record times of archive files, remembered between passes: an unchanged file is not read again.
//
// What is remembered of a file goes with its identity, size, and times of change. A file that another program has
// changed, replaced, cut or removed shows in one of them. A file that was changed a moment ago is not remembered at
// all, since the file system's clock ticks too slowly to show a second change behind the first. A restart needs nothing
// but the files.

#include <sys/stat.h>

#include <ctime>
#include <map>
#include <string>

class RecordTimeMemory {
  public:
    /// The greatest record time in the file; 0 for a missing file and one without a line.
    std::time_t last_record_time(const std::string& path);

  private:
    struct Remembered {
        struct stat status;
        std::time_t time;
    };

    std::map<std::string, Remembered> files;
};
