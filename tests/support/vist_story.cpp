#include "support/vist_story.h"

#include <algorithm>
#include <iterator>

namespace {

const char* const LinkTexts[] = {
    "Starting requests...",
    "pVISTdrv->virtdev_cnt : ",
    "pVISTdrv pointer = ",
    "virtdev_cnt = ",
    "Start request cycle..",
    "ErrCnt = ",
    "VISTMaxErrors = ",
    "Selected subsytem = ",
    "Param index = ",
    "Request format = ",
    "NETADDR: ",
    "VDNUMBER: ",
    "SETPOS: ",
    "Requesting: ",
    "Request is \"END\"",
    "Request error limit hit!",
    "send_request::",
    "Response = ",
    "Response error.",
    "TC : ",
    "RET_",
    "setConnected(",
    "Send batch over, ",
    "Packet ",
    "Seems to be text format instead of binary. FAIL anyway. Will restart all.",
};

bool is_of_the_link(const std::string& line) {
    return std::any_of(std::begin(LinkTexts), std::end(LinkTexts),
                       [&line](const char* text) { return line.starts_with(text); });
}

bool is_of_a_dump(const std::string& line) {
    return line.empty() || line.starts_with("Dumping packet") || line.starts_with(" 0x") || line.starts_with("  0x");
}

bool is_awaited(const std::string& line, const std::string& awaited) {
    return awaited.ends_with('*') ? line.starts_with(awaited.substr(0, awaited.size() - 1)) : line == awaited;
}

}  // namespace

VistStory vist_story(const VistStory& log) {
    VistStory story;
    std::copy_if(log.begin(), log.end(), std::back_inserter(story),
                 [](const std::string& line) { return !is_of_the_link(line) && !is_of_a_dump(line); });
    return story;
}

::testing::AssertionResult is_story(const VistStory& story, const VistStory& awaited) {
    for (std::size_t i = 0; i < std::max(story.size(), awaited.size()); ++i) {
        if (i >= story.size()) return ::testing::AssertionFailure() << "not told: " << awaited[i];
        if (i >= awaited.size()) return ::testing::AssertionFailure() << "told at the end: " << story[i];
        if (is_awaited(story[i], awaited[i])) continue;
        return ::testing::AssertionFailure() << "line " << i << ": " << story[i] << "\nawaited: " << awaited[i];
    }
    return ::testing::AssertionSuccess();
}

std::vector<std::size_t> vist_dumps(const VistStory& log) {
    std::vector<std::size_t> sizes;
    for (const std::string& line : log) {
        if (line == "Dumping packet:") sizes.push_back(0);
        if (line.starts_with(" 0x") && !sizes.empty()) {
            sizes.back() += static_cast<std::size_t>(std::count(line.begin(), line.end(), 'x'));
        }
    }
    return sizes;
}

VistStory joined(const std::vector<VistStory>& parts) {
    VistStory whole;
    for (const VistStory& part : parts) whole.insert(whole.end(), part.begin(), part.end());
    return whole;
}
