#pragma once
// The small files under /tmp by which this process and its neighbours on the bus tell each other to hold back. A flag
// is a file whose presence is the message; it is tested, never locked.

#include <ctime>
#include <string>

/// The two flags of a meter's archives, one file each for a uuid.
class FlagFiles {
  public:
    static constexpr int DriverLock = 0;  ///< "/tmp/DRV_LCK_<uuid>": this driver is busy with archives
    static constexpr int ReportLock = 1;  ///< "/tmp/RPRT_LCK_<uuid>": a neighbour holds this meter's archives

    static FlagFiles& instance();

    bool is_set(const std::string& uuid, int kind) const;
    void set(const std::string& uuid, int kind) const;
    void clear(const std::string& uuid, int kind) const;

  private:
    FlagFiles() = default;
};

/// "/tmp/extds_pause", by which an outside data service is asked off the bus. Mode 0 writes the file with a number of
/// seconds as its text, mode 1 removes it, any other mode does nothing.
void extds_pause(int mode, const char* seconds_text);

/// The rule of all drivers that read archives, asked once a pass: in every third hour since the epoch, while some
/// archive is behind, the file is written; once all have caught up it is removed.
void regulate_extds(bool all_ok, const char* seconds_text);
