#pragma once
// Simulated runs of every meter that a family knows, for tests that hold the documents against what they leave behind.

#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

/// What a process has left of its one meter, all numbered folders together.
struct Traces {
    std::map<std::string, std::set<std::string>> items;     ///< name, texts
    std::map<std::string, std::set<std::time_t>> archives;  ///< name of a file of lines, times in it
    std::map<std::string, std::set<std::string>> folders;   ///< name of a file of lines, folders that it stands in
    std::set<std::string> marks;                            ///< other files beside archives
    std::set<std::string> logs;                             ///< "<uuid>.debug.txt"
    bool has_state = false;
};

struct MeterRun {
    std::string model;  ///< as the documents name it; several set-ups of a model have a run each
    Traces traces;
};

/// "KM5", "VIST", "VIST Modbus" or "SA-94": every model and firmware, with all in its set-up that changes names.
std::vector<MeterRun> family_runs(const std::string& family);

Traces sum_of(const std::vector<MeterRun>& runs);

/// When the newest hourly or daily record of all these runs ends; `period` is its length.
std::time_t newest_record_end(std::time_t period);
