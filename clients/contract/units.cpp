#include "contract/units.h"

#include <utility>

#include <fmt/format.h>

#include "contract/catalogue.h"
#include "contract/ini_reader.h"
#include "contract/plain_text.h"
#include "contract/site.h"

namespace contract {

namespace {

constexpr std::size_t LongestUnit = 16;  // columns

std::string key_of(std::string_view place, std::string_view name) {
    return fmt::format("{}\n{}", place, name);
}

bool is_known(const std::string& name) {
    return find_item(name) != nullptr || find_archive(name) != nullptr;
}

class UnitsReader : public IniReader {
  public:
    std::map<std::string, std::string> stated;

  private:
    std::string section(std::string_view line) override {
        const std::string name(trimmed(line.substr(1, line.find(']') - 1)));
        MeterSystem meter;
        if (line.find(']') != std::string_view::npos && name.find(';') == std::string::npos &&
            parse_meter_system(name, meter)) {
            return name;
        }
        problem(fmt::format("\"{}\" is not [UUID] or [UUID/N], N from 1 to {}", shown(line), Systems));
        return {};
    }

    void take(const std::string& section, const std::string& name, const std::string& unit) override {
        if (section.empty()) {
            problem("it stands below no [UUID]");
        } else if (!is_known(name)) {
            problem(fmt::format("there is no item and no archive \"{}\"", shown(name)));
        } else if (unit.empty()) {
            problem(fmt::format("{} has no unit", shown(name)));
        } else if (for_terminal(unit) != unit || columns_of(unit) > LongestUnit) {
            problem(fmt::format("\"{}\" is no unit: one has at most {} letters", shown(unit), LongestUnit));
        } else if (!stated.emplace(key_of(section, name), unit).second) {
            problem(fmt::format("{} of {} stands a second time", shown(name), shown(section)));
        }
    }
};

}  // namespace

Units::Units(const std::string& text) {
    UnitsReader reader;
    wrong = reader.read(text, "NAME = unit");
    stated = std::move(reader.stated);
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
    return problems_of(UnitsFile, wrong);
}

Units read_units() {
    return Units(read_text(UnitsFile, IniReader::LongestFile + 1));
}

}  // namespace contract
