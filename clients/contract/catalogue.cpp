#include "contract/catalogue.h"

#include <algorithm>
#include <array>
#include <utility>

namespace contract {

namespace {

constexpr std::array<std::string_view, 11> Quantities = {"heat", "mass",  "volume", "temperature", "pressure", "time",
                                                         "flow", "power", "state",  "text",        "setting"};
constexpr std::array<std::string_view, 3> Natures = {"counter", "mean", "state"};
constexpr std::array<std::string_view, 3> Kinds = {"hourly", "daily", "events"};
constexpr std::array<std::pair<Family, std::string_view>, 4> Families = {
    {{KM5, "KM5"}, {VIST, "VIST"}, {VISTmodbus, "VISTmodbus"}, {SA94, "SA94"}}};

char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

std::string_view family_name(Family family) {
    const auto found = std::ranges::find(Families, family, &std::pair<Family, std::string_view>::first);
    return found == Families.end() ? "" : found->second;
}

Family family_of(std::string_view name) {
    const auto is_name = [name](std::string_view known) { return std::ranges::equal(name, known, {}, lower, lower); };
    if (is_name("ATT") || is_name("KM56i")) return KM5;
    for (const auto& [family, known] : Families) {
        if (is_name(known)) return family;
    }
    return NoFamily;
}

std::string_view text_of(Quantity quantity) {
    return Quantities.at(static_cast<std::size_t>(quantity));
}

std::string_view text_of(Nature nature) {
    return Natures.at(static_cast<std::size_t>(nature));
}

std::string_view text_of(ArchiveKind kind) {
    return Kinds.at(static_cast<std::size_t>(kind));
}

std::string_view text_of(Dating dating) {
    return dating == Dating::End ? "end" : "beginning";
}

const ItemEntry* find_item(std::string_view name, Family family) {
    for (const ItemEntry& entry : items()) {
        if (entry.name == name && (family == NoFamily || (entry.families & family) != 0)) return &entry;
    }
    return nullptr;
}

const ArchiveEntry* find_archive(std::string_view name) {
    for (const ArchiveEntry& entry : archives()) {
        if (entry.name == name) return &entry;
    }
    return nullptr;
}

}  // namespace contract
