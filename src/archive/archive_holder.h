#pragma once
// The part of every driver that knows where a meter's archive files are, how their lines come to be, and what can be
// read back from them. The files are the daemon's only memory of how far a meter has been read.

#include <array>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "archive/archive_file.h"
#include "archive/record_time_memory.h"

/// Quality of an archive line: the value is good.
constexpr int QualityGood = 192;

class ArchiveHolder {
  public:
    /// As many records as six weeks have hours.
    virtual int max_archive_records() { return 1008; }

    ArchiveHolder();
    virtual ~ArchiveHolder() = default;
    ArchiveHolder(const ArchiveHolder&) = delete;
    ArchiveHolder& operator=(const ArchiveHolder&) = delete;

    // ---- collecting: values wait, in the order of adding, for the next flush

    void add_value(const std::string& name, double value);
    void add_value(const std::string& name, float value);
    void add_value(const std::string& name, int value);
    void add_value(const std::string& name, unsigned value);
    void add_value_q(const std::string& name, float value, int quality);
    void add_value_q(const std::string& name, double value, int quality);
    /// Forgets what add_value has collected.
    void clear_values();

    // ---- writing

    /// Writes what add_value has collected (doubles, ints, unsigneds), all with one time and quality: a line for each
    /// value, durable before the next begins. `archive_type` does not show in a line. A value whose file cannot be
    /// opened is dropped.
    void flush_values(const std::tm& record_tm, int archive_type, int quality, int subsystem, int to_tmp);
    /// Writes what add_value_q has collected (floats, doubles), each with its own quality.
    void flush_values_q(const std::tm& record_tm, int archive_type, int subsystem, int to_tmp);

    /// Opens one file for many lines, without a lock. `directory` is "tc_archives", "tmp_archives" or
    /// "tc_tmp_archives".
    bool open_direct(const std::string& name, int subsystem, const std::string& directory);
    /// One line to the file of open_direct, if it is open. The length of the line.
    int write_direct(std::time_t time, int quality, double value);
    /// The lines are durable when the file is closed.
    void close_direct();
    void close_default_files();

    // ---- reading back

    /// The greatest time in the file; 0 for a missing file and one without a line.
    std::time_t last_record_time(const std::string& name, int subsystem, const std::string& directory);

    /// The time at which all files of a set end; files without a line do not count. 0 if there is none, or if the
    /// files disagreed: then all of them have been emptied, and the integrity trail has one date line more.
    std::time_t check_integrity(const std::string* names, int count, int subsystem, int to_tmp);

    /// Copies every file of "tmp_archives" over its namesake in `target_directory`; the originals stay. A missing
    /// "tmp_archives" ends the process.
    void copy_staged(int subsystem, const std::string& target_directory) const;

    /// True once more than 2580 seconds have passed since it was last true.
    bool is_timer_due();

    /// The running totals among the archive names.
    static bool is_shifted_name(const std::string& name);

  protected:
    struct PendingQuality {
        std::string name;
        double value;
        int quality;
    };

    std::array<std::unique_ptr<ArchiveFile>, 29> default_files;
    std::uint64_t default_file_count;
    std::time_t last_timer;
    std::vector<std::pair<std::string, double>> pending_double;
    std::vector<std::pair<std::string, int>> pending_int;
    std::vector<std::pair<std::string, unsigned>> pending_uint;
    std::vector<PendingQuality> pending_float_q;
    std::vector<PendingQuality> pending_double_q;
    std::string uuid;                    ///< the meter; every path uses it
    std::vector<std::string> uuid_list;  ///< all meters, in the classes that serve several
    std::optional<ArchiveFile> direct_file;

  private:
    RecordTimeMemory record_times;

    void write_value(const std::tm& record_tm, const std::string& name, int quality, double value, int subsystem,
                     int to_tmp) const;
};
