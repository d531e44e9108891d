#pragma once
// How far the archives of one subsystem have been read. The files are the memory of it that survives; between them and
// the next start it is kept here.

#include <ctime>

#include "archive/archive_holder.h"

struct KM5Progress {
    /// Nothing read, and the first look into the archives due half an hour after `born`, later for the rarer ones.
    explicit KM5Progress(std::time_t born = 0);

    /// Raises what has been read to the newest dates in the files of subsystem `n`, counted from 1.
    void load(ArchiveHolder& files, int n);
    /// Whether an archive is due for a look. A yes begins its period anew, whatever becomes of the look.
    bool take_turn(int type, std::time_t now);
    /// Whether reading has fallen behind the meter's clock.
    bool is_behind(std::time_t meter_clock) const;

    /// Date of the newest record already stored, 0 for none. Another type than the five is hourly here and below.
    std::time_t& last_request(int type);
    /// When take_turn last said yes.
    std::time_t& check_time(int type);

    std::time_t last_request_HOUR = 0, last_request_DAY = 0, last_request_MONTH = 0, last_request_YEAR = 0,
                last_request_ERROR = 0;
    std::time_t check_time_HOUR, check_time_DAY, check_time_MONTH, check_time_YEAR, check_time_ERROR;
    bool archives_ok = true;  ///< as the last pass has found them
};
