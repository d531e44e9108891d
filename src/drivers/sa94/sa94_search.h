#pragma once
// Where in a meter's memory does an archive begin, where does it end, and where is the record with a given time. The
// meter tells none of this, and a block costs about a second, so the answers are found by bisection. Everything happens
// inside a conversation that the caller has opened; false: a read failed.

#include <ctime>

#include "drivers/sa94/sa94_archive.h"
#include "drivers/sa94/sa94_link.h"
#include "drivers/sa94/sa94_logs.h"

class SA94Search {
  public:
    /// Link and logs outlive the search.
    SA94Search(const SA94Link& meter_link, const SA94Logs& meter_logs, SA94Memory meter_memory,
               std::int32_t meter_address)
        : link(meter_link), logs(meter_logs), memory(meter_memory), address(meter_address) {}

    /// The older of the two places where the ring may begin, and the time of its record.
    bool getFirstRecordInfo(int archive_type, std::time_t& tmp_timestamp, int& first_segment,
                            std::uint32_t& first_block) const;
    /// The block that was written last; -1 in all three when none is found.
    bool findArchiveEnd(int archive_type, int& end_segment, std::uint32_t& end_block, int& end_position) const;
    /// The record of exactly this time, -1 in all three when there is none; for a time before the whole archive its
    /// oldest record.
    bool getRecordByTimestamp(int archive_type, std::time_t timestamp, int& segment, std::uint32_t& block,
                              int& position) const;

  private:
    bool read(SA94Request& request, int segment, std::uint32_t block) const {
        return link.ReadArchiveRecord(request, memory.extended, segment, block);
    }
    bool bisect_null_block(int archive_type, int segment, SA94Request& request, std::uint32_t& high_block) const;
    void scan_end_position(int archive_type, Bytes block, int& end_position) const;
    bool narrow_to_block(int archive_type, std::time_t timestamp, int segment, SA94Request& request,
                         std::uint32_t& last_block) const;
    int position_of_time(int archive_type, Bytes block, std::time_t timestamp) const;

    const SA94Link& link;
    const SA94Logs& logs;
    const SA94Memory memory;
    const std::int32_t address;
};
