#include "support/start.h"

#include "core/entry/startup.h"
#include "support/words.h"

ChildEnd start_process(Scene& scene, const std::vector<std::string>& words, double seconds) {
    return in_child([&] { return run_words(scene, words, seconds); });
}

int run_words(Scene& scene, const std::vector<std::string>& words, double seconds) {
    Words line(words);
    int status = StillAtWork;
    scene.gateway.run_for(seconds, [&] { status = run_process(line.count(), line.values()); });
    return status;
}
