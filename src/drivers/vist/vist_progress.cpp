#include "drivers/vist/vist_progress.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string>

namespace {

const std::array<std::string, 8> HeaderNames = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"};

// A27 is fed by no record field; an absent file counts as empty.
const std::array<std::string, 20> DataNames = {
    "A2",  "A3",  "A5",  "A7",  "A9",  "A11", "A13", "A15", "A20", "A21",
    "A22", "A17", "A18", "A19", "A28", "A25", "A26", "A27", "A24", "A23",
};

}  // namespace

void VISTProgress::load(ArchiveHolder& files, int n) {
    last_archive_record = 0;
    last_request_archive_header = files.check_integrity(HeaderNames.data(), HeaderNames.size(), n, Staged);
    last_request_archive_data = files.check_integrity(DataNames.data(), DataNames.size(), n, Staged);
    // Records are filed one hour before their own time.
    constexpr std::time_t Latest = std::numeric_limits<std::int32_t>::max() - HourSeconds;
    if (last_request_archive_data != 0) {
        last_request_archive_data = std::min(last_request_archive_data, Latest) + HourSeconds;
    }
}

std::int32_t VISTProgress::hours_from(std::time_t oldest) const {
    return static_cast<std::int32_t>((std::int64_t{last_request_archive_data} - oldest) / HourSeconds);
}

std::int32_t VISTProgress::position(std::int32_t index, int ArchiveRecNum) {
    const bool out_of_ring = static_cast<std::uint32_t>(index) > static_cast<std::uint32_t>(ArchiveRecNum - 2);
    return out_of_ring ? ArchiveRecNum : static_cast<std::int32_t>(std::int64_t{ArchiveRecNum} - index + 2);
}

VISTProgress::Step VISTProgress::step_to(std::time_t ts) {
    std::time_t& last = last_request_archive_data;
    if (last > 0 && std::difftime(ts, last) > HourSeconds) return Step::BehindHole;
    if (last >= ts) return Step::Stored;
    last = ts;
    if (last_archive_record == ts) return Step::WrittenInThisPass;
    last_archive_record = ts;
    return Step::New;
}

double VISTProgress::past_header() const {
    return static_cast<double>(std::int64_t{last_request_archive_data} + HourSeconds - last_request_archive_header);
}
