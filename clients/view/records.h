#pragma once
// Answers out of archives. They read files for as long as those are, so they are jobs.

#include <atomic>
#include <memory>
#include <string>

#include "contract/site.h"
#include "view/answer.h"
#include "view/request.h"

namespace view {

/// .../archives: what there is.
Answer archives_answer(const contract::MeterSystem& meter);
/// .../events
Answer events_answer(const contract::MeterSystem& meter, const Request& request, std::int64_t now);
/// .../archive. `open_tables` counts the answers that are being read: each holds files and memory.
Answer archive_answer(const contract::MeterSystem& meter, const Request& request, std::int64_t now,
                      const std::shared_ptr<std::atomic<int>>& open_tables);

}  // namespace view
