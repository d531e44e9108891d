#include "contract/ini_reader.h"

#include <cstring>
#include <utility>

#include <fmt/format.h>
#include <ini.h>

#include "contract/plain_text.h"

namespace contract {

namespace {

constexpr std::size_t LongestSection = 49;  // inih cuts what is longer
constexpr std::size_t ShownColumns = 60;

}  // namespace

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view Blanks = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(Blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

std::string shown(std::string_view text) {
    return std::string(within_columns(for_terminal(text), ShownColumns));
}

/// As inih shall see the line; `most` bytes of it.
std::string IniReader::text_of(std::string_view line, std::size_t most) {
    const bool is_section = line.starts_with('[');
    const std::string nothing = is_section ? "[]" : "";  // behind a section that is wrong there is none
    if (line.find('\0') != std::string_view::npos) {
        problem("there is a zero byte in it");
        return nothing;
    }
    if (line.size() > most) {
        if (!line.starts_with('#') && !line.starts_with(';')) problem("the line is too long");
        return nothing;
    }
    if (!is_section) return std::string(line);
    const std::string name = section(line);
    if (name.size() <= LongestSection) return '[' + name + ']';
    problem(fmt::format("the section has more than {} letters", LongestSection));
    return nothing;
}

struct IniCallbacks {
    /// Each line begins without blanks, else it would continue the one before.
    static char* next(char* buffer, int size, void* reader) {
        IniReader& self = *static_cast<IniReader*>(reader);
        if (self.rest.empty()) return nullptr;
        const std::size_t end = self.rest.find('\n');
        const std::string_view line = trimmed(self.rest.substr(0, end));
        self.rest.remove_prefix(end == std::string_view::npos ? self.rest.size() : end + 1);
        ++self.number;
        const std::string text = self.text_of(line, static_cast<std::size_t>(size) - 2);
        std::memcpy(buffer, text.c_str(), text.size() + 1);
        return buffer;
    }

    static int take(void* reader, const char* section, const char* name, const char* value) {
        static_cast<IniReader*>(reader)->take(section, name, value);
        return 1;
    }
};

std::multimap<int, std::string> IniReader::read(std::string_view text, std::string_view line) {
    if (text.size() > LongestFile) return {{1, "the file is too long"}};
    constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
    rest = text;
    if (rest.starts_with(ByteOrderMark)) rest.remove_prefix(ByteOrderMark.size());
    // Which knows the first line only that is neither of what is asked for.
    const int first = ini_parse_stream(IniCallbacks::next, this, IniCallbacks::take, this);
    if (first > 0 && !wrong.contains(first)) wrong.emplace(first, fmt::format("it is not {}", line));
    return std::exchange(wrong, {});
}

std::vector<std::string> problems_of(const std::string& file, const std::multimap<int, std::string>& wrong) {
    std::vector<std::string> told;
    for (const auto& [line, what] : wrong) told.push_back(fmt::format("{}:{}: {}", file, line, what));
    return told;
}

}  // namespace contract
