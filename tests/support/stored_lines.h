#pragma once
// Lines of archive files as they ought to be, worked out without the daemon's own code.

#include <ctime>
#include <map>
#include <string>

/// How often each line stands in each file; the text before the line end only.
using LineCounts = std::map<std::string, std::map<std::string, int>>;

/// "%ld,%d,%f", the text of an archive line without its end.
std::string stored_line(std::time_t time, int quality, double value);

/// What stands in the files too often or too seldom, a line each.
std::string difference(const LineCounts& found, const LineCounts& expected);
