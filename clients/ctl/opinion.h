#pragma once
// What `status` says, found out beside a screen that goes on: the configuration service may let one wait.

#include <cstdint>
#include <future>
#include <map>
#include <string>
#include <vector>

#include "contract/status.h"

namespace ctl {

class Opinion {
  public:
    /// Of these meters; without any of all. The end waits for what is being found out, some seconds at most.
    explicit Opinion(std::vector<std::string> meters) : uuids(std::move(meters)) {}

    /// Takes in what was found out, and begins anew: half a minute later when files have changed, else after two. True
    /// when something is new.
    bool look(bool has_changed);
    /// Null as long as nothing is known.
    const contract::Verdict* of(const std::string& uuid) const;
    const contract::Verdict& of_gateway() const { return here; }

  private:
    std::vector<std::string> uuids;
    std::map<std::string, contract::Verdict> verdicts;
    contract::Verdict here;
    bool has_news = false;
    std::int64_t found_at = 0;  // by the steady clock, microseconds
    std::future<contract::Status> found;
};

}  // namespace ctl
