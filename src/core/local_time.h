#pragma once
// Meter dates are local times of the gateway's zone. The gateway's time_t is a signed 32-bit number, and a date that it
// cannot hold is -1 on every machine.

#include <ctime>
#include <string>

/// mktime(3), the only call of it: normalises `tm` and returns its time. A date outside signed 32 bits gives -1 and
/// leaves `tm` as it was, on a 64-bit machine too.
std::time_t make_time(std::tm& tm);

/// Broken-down local time.
std::tm local_time(std::time_t time);

/// "DD.MM.YYYY hh:mm:ss" for log lines.
std::string date_text(const std::tm& tm);

/// The form of asctime(3) without the line end, safe for broken-down times that are out of range.
std::string asctime_text(const std::tm& tm);
/// The same of a moment, in local time.
std::string asctime_text(std::time_t time);
