#pragma once
// The last look at the status of all meters, and the next one, which takes some seconds when a service is silent: it is
// made beside the loop.

#include <functional>
#include <memory>
#include <vector>

#include "contract/status.h"
#include "view/worker.h"

namespace view {

class Look {
  public:
    /// Both outlive this.
    Look(Worker& worker, Mailbox& mailbox);

    /// The last one; null before the first.
    const contract::Status* last() const { return status.get(); }
    /// Milliseconds since it was made, of a clock that nobody sets.
    std::int64_t age() const;
    bool is_under_way() const { return under_way; }
    /// Looks anew; `then`, if any, when it is done. What is asked for meanwhile is told at the same time.
    void again(std::function<void()> then);
    /// Called after each look; `is_other`: with another level or reason, or other meters than the one before.
    std::function<void(bool is_other)> on_look;

  private:
    /// Null: it could not be made, and the last one stays.
    void take(std::unique_ptr<contract::Status> looked);

    Worker& worker;
    Mailbox& mailbox;
    std::unique_ptr<contract::Status> status;
    std::int64_t made_at = 0;
    bool under_way = false;
    std::vector<std::function<void()>> waiting;
};

}  // namespace view
