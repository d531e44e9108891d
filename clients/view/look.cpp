#include "view/look.h"

#include <cstdio>
#include <exception>
#include <utility>

#include "core/gateway.h"

namespace view {

namespace {

std::int64_t steady_milliseconds() {
    return gateway().steady_microseconds() / 1000;
}

/// What a reader of the page would see of it at a glance.
std::string gist_of(const contract::Status& status) {
    std::string gist;
    const auto add = [&gist](const contract::Verdict& verdict) {
        gist += text_of(verdict.level);
        for (const contract::Reason& reason : verdict.reasons) gist += ' ' + reason.word;
        gist += '\n';
    };
    add(status.gateway);
    for (const contract::MeterStatus& meter : status.meters) {
        gist += meter.facts.meter.uuid + '\n';
        add(meter.verdict);
    }
    return gist;
}

}  // namespace

Look::Look(Worker& helper, Mailbox& box) : worker(helper), mailbox(box) {}

std::int64_t Look::age() const {
    return steady_milliseconds() - made_at;
}

void Look::again(std::function<void()> then) {
    if (then) waiting.push_back(std::move(then));
    if (under_way) return;
    under_way = worker.post([this] {
        auto looked = std::make_shared<std::unique_ptr<contract::Status>>();
        try {
            *looked = std::make_unique<contract::Status>(contract::look_at_status({}));
        } catch (const std::exception& error) {
            std::fputs((std::string("heatmeter-view: no look at the status: ") + error.what() + '\n').c_str(), stderr);
        }
        mailbox.post([this, looked] { take(std::move(*looked)); });
    });
}

void Look::take(std::unique_ptr<contract::Status> looked) {
    under_way = false;
    if (looked != nullptr) {
        const bool is_other = status == nullptr || gist_of(*status) != gist_of(*looked);
        status = std::move(looked);
        made_at = steady_milliseconds();
        if (on_look) on_look(is_other);
    }
    for (const auto& then : std::exchange(waiting, {})) then();
}

}  // namespace view
