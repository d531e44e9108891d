#include "contract/units.h"

#include <cstring>

#include <fmt/format.h>
#include <ini.h>

#include "contract/catalogue.h"
#include "contract/plain_text.h"
#include "contract/site.h"

namespace contract {

namespace {

constexpr std::size_t LongestFile = std::size_t{64} * 1024;
constexpr std::size_t LongestSection = 49;  // inih cuts what is longer
constexpr std::size_t LongestUnit = 16;     // columns

std::string key_of(std::string_view place, std::string_view name) {
    return fmt::format("{}\n{}", place, name);
}

/// Foreign text for a message.
std::string shown(std::string_view text) {
    return std::string(within_columns(for_terminal(text), 60));
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view Blanks = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(Blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

bool is_known(const char* name) {
    return find_item(name) != nullptr || find_archive(name) != nullptr;
}

}  // namespace

/// The lines as inih asks for them, and what it makes of them. Each begins without blanks, else it would continue the
/// one before; behind a section that is wrong there is none.
struct UnitLines {
    std::string_view rest;
    Units& units;
    int number = 0;

    void problem(const std::string& what) { units.wrong.emplace(number, what); }

    std::string section(std::string_view line) {
        const std::string name(trimmed(line.substr(1, line.find(']') - 1)));
        MeterSystem meter;
        if (line.find(']') == std::string_view::npos || name.find(';') != std::string::npos ||
            !parse_meter_system(name, meter)) {
            problem(fmt::format("\"{}\" is not [UUID] or [UUID/N], N from 1 to {}", shown(line), Systems));
        } else if (name.size() > LongestSection) {
            problem(fmt::format("the section has more than {} letters", LongestSection));
        } else {
            return '[' + name + ']';
        }
        return "[]";
    }

    static char* next(char* buffer, int size, void* lines) {
        UnitLines& self = *static_cast<UnitLines*>(lines);
        if (self.rest.empty()) return nullptr;
        const std::size_t end = self.rest.find('\n');
        const std::string_view line = trimmed(self.rest.substr(0, end));
        self.rest.remove_prefix(end == std::string_view::npos ? self.rest.size() : end + 1);
        ++self.number;
        std::string text(line);
        if (line.starts_with('[')) {
            text = self.section(line);
        } else if (line.find('\0') != std::string_view::npos) {
            self.problem("there is a zero byte in it");
            text.clear();
        } else if (line.size() + 2 > static_cast<std::size_t>(size)) {
            if (line.front() != '#' && line.front() != ';') self.problem("the line is too long");
            text.clear();
        }
        std::memcpy(buffer, text.c_str(), text.size() + 1);
        return buffer;
    }

    static int take(void* lines, const char* section, const char* name, const char* value) {
        UnitLines& self = *static_cast<UnitLines*>(lines);
        const std::string_view unit = value;
        const std::string key = key_of(section, name);
        if (*section == '\0') {
            self.problem("it stands below no [UUID]");
        } else if (!is_known(name)) {
            self.problem(fmt::format("there is no item and no archive \"{}\"", shown(name)));
        } else if (unit.empty()) {
            self.problem(fmt::format("{} has no unit", shown(name)));
        } else if (for_terminal(unit) != unit || columns_of(unit) > LongestUnit) {
            self.problem(fmt::format("\"{}\" is no unit: one has at most {} letters", shown(unit), LongestUnit));
        } else if (!self.units.stated.emplace(key, unit).second) {
            self.problem(fmt::format("{} of {} stands a second time", shown(name), shown(section)));
        }
        return 1;
    }
};

Units::Units(const std::string& text) {
    if (text.size() > LongestFile) {
        wrong.emplace(1, "the file is too long");
        return;
    }
    constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";
    UnitLines lines{.rest = text, .units = *this};
    if (lines.rest.starts_with(ByteOrderMark)) lines.rest.remove_prefix(ByteOrderMark.size());
    // Which knows the first line only that is neither of what is asked for.
    if (const int line = ini_parse_stream(UnitLines::next, &lines, UnitLines::take, &lines); line > 0) {
        wrong.emplace(line, "it is not NAME = unit");
    }
}

std::string Units::unit_of(const std::string& uuid, int system, std::string_view name,
                           std::string_view catalogue_unit) const {
    if (stated.empty()) return std::string(catalogue_unit);
    for (const std::string& place : {fmt::format("{}/{}", uuid, system), uuid}) {
        if (const auto found = stated.find(key_of(place, name)); found != stated.end()) return found->second;
    }
    return std::string(catalogue_unit);
}

std::string Units::unit_of(const std::string& uuid, int system, const Item& item) const {
    return unit_of(uuid, system, item.name, item.entry != nullptr ? item.entry->unit : "");
}

std::vector<std::string> Units::problems() const {
    std::vector<std::string> told;
    for (const auto& [line, what] : wrong) told.push_back(fmt::format("{}:{}: {}", UnitsFile, line, what));
    return told;
}

Units read_units() {
    return Units(read_text(UnitsFile, LongestFile + 1));
}

}  // namespace contract
