#include "contract/log_story.h"

namespace contract {

namespace {

constexpr std::size_t TimeAt = 9;  // in "DD/MM/YY hh:mm:ss.mmm : "
constexpr std::size_t TimeLength = 8;

std::string clock_in(const LogLine& line) {
    return line.has_time ? std::string(line.whole.substr(TimeAt, TimeLength)) : "";
}

}  // namespace

void LogStory::take(const LogLine& line, std::vector<StoryLine>& out) {
    const TryReader reader_before = reader;
    const TryReader::Part part = reader.take(line.text);
    const Kept kept{std::string(line.whole), std::string(explanation_of(line.text))};
    if (part == TryReader::Part::Inside) {
        present.push_back(kept);
        return;
    }
    const TryReader next = reader;
    reader = reader_before;
    end_try(out);
    reader = next;
    if (part == TryReader::Part::Begin) {
        present.push_back(kept);
        present_begin = clock_in(line);
    } else {
        tell_run(out);
        tell(kept, out);
    }
}

void LogStory::finish(std::vector<StoryLine>& out) {
    end_try(out);
    tell_run(out);
    reader = TryReader();
}

void LogStory::end_try(std::vector<StoryLine>& out) {
    if (present.empty()) return;
    const auto heard = reader.heard();
    const bool failed = heard && *heard != Heard::Answer;
    if (!failed || heard_in_run != heard) tell_run(out);
    if (!failed) {
        for (const Kept& line : present) tell(line, out);
    } else {
        if (tries++ == 0) {
            first = present;
            run_begin = present_begin;
            heard_in_run = heard;
        }
        run_end = present_begin;
    }
    present.clear();
}

void LogStory::tell_run(std::vector<StoryLine>& out) {
    if (tries > 1) {
        out.push_back({run_begin + " to " + run_end + ": " + std::to_string(tries) + " tries, " +
                           (heard_in_run == Heard::Nothing ? "nothing heard" : "something heard that is no answer"),
                       ""});
    } else {
        for (const Kept& line : first) tell(line, out);
    }
    tries = 0;
    first.clear();
    heard_in_run.reset();
}

}  // namespace contract
