#include "support/stored_lines.h"

#include <cstdio>

std::string stored_line(std::time_t time, int quality, double value) {
    char text[400];
    std::snprintf(text, sizeof(text), "%ld,%d,%f", static_cast<long>(time), quality, value);
    return text;
}

std::string difference(const LineCounts& found, const LineCounts& expected) {
    std::map<std::string, int> balance;
    for (const auto& [file, lines] : found) {
        for (const auto& [line, times] : lines) balance[file + " " + line] += times;
    }
    for (const auto& [file, lines] : expected) {
        for (const auto& [line, times] : lines) balance[file + " " + line] -= times;
    }
    std::string text;
    for (const auto& [line, times] : balance) {
        if (times != 0) text += line + (times > 0 ? " surplus\n" : " missing\n");
    }
    return text;
}
