#pragma once
// A log as one tells it: tries without an answer, one after the other, folded into a line; lines that mislead
// explained.

#include <optional>
#include <string>
#include <vector>

#include "contract/tries.h"

namespace contract {

struct StoryLine {
    std::string text;
    std::string note;  ///< what a line that misleads says; empty for others
};

class LogStory {
  public:
    /// What can be told with this line; the last tries are kept back, more of them may follow.
    void take(const LogLine& line, std::vector<StoryLine>& out);
    /// What was kept back.
    void finish(std::vector<StoryLine>& out);

  private:
    struct Kept {
        std::string whole;
        std::string note;
    };
    void end_try(std::vector<StoryLine>& out);
    void tell_run(std::vector<StoryLine>& out);
    static void tell(const Kept& line, std::vector<StoryLine>& out) { out.push_back({line.whole, line.note}); }

    TryReader reader;
    std::vector<Kept> present;  // of the try that is being read
    std::string present_begin;  // its time, as it stands
    std::vector<Kept> first;    // the lines of the first try of the run
    std::optional<Heard> heard_in_run;
    int tries = 0;
    std::string run_begin;
    std::string run_end;
};

}  // namespace contract
