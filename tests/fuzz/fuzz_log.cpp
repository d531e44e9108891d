// A log, any bytes: its lines are pieces of it, in the order of time where it has written over itself or has holes; the
// story told of it is never longer than it; who follows it sees each line once.
//
// Input: four bytes, the time of the last writing after 2 March 2024; two bytes, where a follower looks first; then the
// log.

#include <algorithm>

#include "contract/log_story.h"
#include "contract/logs.h"
#include "fuzz_ground.h"

namespace {

void look_at_lines(const contract::Log& log, std::size_t size) {
    std::size_t total = 0;
    for (const contract::LogLine& line : log.lines()) {
        total += line.whole.size();
        expect(line.whole.find('\n') == std::string_view::npos, "a line has no line end");
        expect(line.whole.find('\0') == std::string_view::npos, "a hole is no part of a line");
        expect(line.whole.ends_with(line.text), "the text is the end of the line");
        expect(line.has_time == (line.whole.size() != line.text.size()), "a time stands in front of the text");
    }
    expect(total <= size, "lines are pieces of the log");
}

void tell(const contract::Log& log) {
    contract::LogStory story;
    std::vector<contract::StoryLine> told;
    for (const contract::LogLine& line : log.lines()) story.take(line, told);
    story.finish(told);
    expect(told.size() <= log.lines().size(), "a story is no longer than its log");
    const contract::Silence silence = contract::silence_at_end(log);
    expect(silence.with_bytes <= silence.tries, "tries with bytes are tries");
    expect(silence.tries <= static_cast<int>(log.lines().size()), "a try has a line");
}

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::int64_t written = FuzzGateway::Start + input.word();
    const std::size_t first_look = input.byte() * std::size_t{256} + input.byte();
    const std::string text(input.rest());
    const contract::Log whole(text, written);
    look_at_lines(whole, text.size());
    tell(whole);
    look_at_lines(contract::Log(text), text.size());

    contract::LogFollower follower;
    bool anew = false;
    const contract::Log first(text.substr(0, first_look), written);
    expect(follower.new_lines(first, anew) == 0 && !anew, "all is new at first");
    expect(follower.new_lines(whole, anew) <= whole.lines().size(), "new lines are lines");
    // A follower of an empty log has seen nothing, and what it sees then is its first look.
    const std::size_t again = follower.new_lines(whole, anew);
    expect(again == whole.lines().size() || whole.lines().empty(), "nothing is new twice");
    return 0;
}
