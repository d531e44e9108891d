#pragma once
// What the names of items and archive files mean, as data: one row a name, or a meaning of it. The daemon's families
// publish and write these and no others.

#include <span>
#include <string>
#include <string_view>

namespace contract {

/// Sets of meter families.
enum Family : unsigned { NoFamily = 0, KM5 = 1, VIST = 2, VISTmodbus = 4, SA94 = 8, AnyFamily = 15 };

/// "KM5", "VIST", "VISTmodbus" or "SA94", as in front of `-r`; "" for no single family.
std::string_view family_name(Family family);
/// The other way round, in any letters and with "KM56i" and "ATT" for a KM5; NoFamily for another text.
Family family_of(std::string_view name);

enum class Quantity { Heat, Mass, Volume, Temperature, Pressure, Time, Flow, Power, State, Text, Setting };
enum class Nature { Counter, Mean, State };
enum class ArchiveKind { Hourly, Daily, Events };
/// Which time a value carries: that of its record, or that of the beginning of the record's hour or day.
enum class Dating { End, Beginning };

std::string_view text_of(Quantity quantity);  ///< "heat"
std::string_view text_of(Nature nature);      ///< "counter"
std::string_view text_of(ArchiveKind kind);   ///< "hourly"
std::string_view text_of(Dating dating);      ///< "end"

struct ItemEntry {
    std::string_view name;
    unsigned families;
    Quantity quantity;
    Nature nature;
    std::string_view unit;  ///< empty where the meter's protocol does not settle it
    std::string_view title;
};

struct ArchiveEntry {
    std::string_view name;
    unsigned families;
    ArchiveKind kind;
    Dating dating;
    Quantity quantity;
    Nature nature;
    std::string_view unit;
    std::string_view title;
};

std::span<const ItemEntry> items();
std::span<const ArchiveEntry> archives();

/// The row of a name in this family; of an unknown family the first one. Null for a name that is not in the table.
const ItemEntry* find_item(std::string_view name, Family family = NoFamily);
const ArchiveEntry* find_archive(std::string_view name);

}  // namespace contract
