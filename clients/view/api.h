#pragma once
// Which request gets which answer. No HTTP and no waiting here: what takes long is handed back as a job.

#include <atomic>
#include <memory>

#include "contract/live.h"
#include "view/answer.h"
#include "view/look.h"
#include "view/metrics.h"
#include "view/request.h"

namespace view {

class Api {
  public:
    /// Both outlive this.
    Api(contract::Live& live, Look& look);

    /// `waited`: the status has been looked at since this was asked first.
    Reply answer(const Request& request, const Counts& counts, bool waited);

    /// {"time","meter","system",...} of what has just changed, for the streams.
    static std::string hello(std::int64_t now);
    std::string values_news(const contract::LiveMeter& meter, const contract::LiveSystem& system,
                            const std::vector<std::string>& names, std::int64_t now) const;
    static std::string records_news(const contract::LiveMeter& meter, const contract::LiveSystem& system,
                                    std::int64_t now);

  private:
    Reply of_status(const Request& request, const Counts& counts, bool waited);
    Reply of_system(const Request& request);
    Answer values(const contract::LiveMeter& meter, const contract::LiveSystem& system) const;
    const std::string& zone();

    contract::Live& live;
    Look& look;
    std::string zone_text;
    std::shared_ptr<std::atomic<int>> open_tables;  ///< of answers that are being read
};

}  // namespace view
