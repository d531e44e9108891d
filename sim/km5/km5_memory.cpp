#include "km5_memory.h"

#include <algorithm>

namespace sim {

namespace {

std::size_t checked(std::size_t capacity) {
    if (capacity == 0 || capacity > 65535) throw std::invalid_argument("a ring holds 1 to 65535 records");
    return capacity;
}

// Parameters 70 and 75 are the upper flow limits in t/h, 68 and 73 the lower ones in percent of them. A KM5-6i has a
// set of its own for each subsystem: 114..119 and 108..113.
std::map<int, float> parameters(const std::map<int, float>& configured) {
    std::map<int, float> all = configured;
    const std::map<int, float> defaults = {
        {70, 60.0F},  {68, 4.0F},   {75, 40.0F},  {73, 5.0F},  {114, 64.0F}, {115, 32.0F}, {116, 66.0F}, {117, 34.0F},
        {118, 68.0F}, {119, 36.0F}, {108, 1.25F}, {109, 2.5F}, {110, 1.5F},  {111, 2.75F}, {112, 1.75F}, {113, 3.0F},
    };
    all.insert(defaults.begin(), defaults.end());
    return all;
}

}  // namespace

Km5Memory::Km5Memory(const Km5Config& config, unsigned subsystem)
    : events(checked(config.capacity.errors)),
      eeprom(parameters(config.eeprom)),
      status(config.status),
      subsystem_(subsystem),
      records_{Km5Ring<Km5StoredRecord>(checked(config.capacity.hourly)),
               Km5Ring<Km5StoredRecord>(checked(config.capacity.daily)),
               Km5Ring<Km5StoredRecord>(checked(config.capacity.monthly)),
               Km5Ring<Km5StoredRecord>(checked(config.capacity.yearly))} {}

void Km5Memory::set_value(const std::string& name, float value, int model) {
    const auto& rows = km5_page_floats();
    const bool known = !name.empty() && std::any_of(rows.begin(), rows.end(), [&](const Km5PageFloat& row) {
        return row.name == name && (row.models >> model & 1U) != 0;
    });
    if (!known) throw std::invalid_argument("this model has no value " + name);
    by_name_[name] = value;
}

void Km5Memory::set_value_at(const Km5Place& place, float value) {
    const auto& rows = km5_page_floats();
    const bool known = std::any_of(rows.begin(), rows.end(), [&](const Km5PageFloat& row) {
        return Km5Place{row.command, row.page, row.position} == place;
    });
    if (!known) throw std::invalid_argument("no page has a value at this place");
    by_place_[place] = value;
}

float Km5Memory::value(const std::string& name) const {
    if (const auto set = by_name_.find(name); set != by_name_.end()) return set->second;
    // Two subsystems differ by a sixteenth or an eighth, which is less than any two names do.
    return km5_default_value(name) + 0.0625F * static_cast<float>(subsystem_);
}

float Km5Memory::value_at(const Km5PageFloat& row) const {
    const auto set = by_place_.find({row.command, row.page, row.position});
    return set != by_place_.end() ? set->second : value(std::string(row.name));
}

Km5Ring<Km5StoredRecord>& Km5Memory::records(Km5Archive archive) {
    if (archive == Km5Archive::Errors) throw std::invalid_argument("the error archive holds events");
    return records_.at(static_cast<std::size_t>(archive));
}

const Km5Ring<Km5StoredRecord>& Km5Memory::records(Km5Archive archive) const {
    return const_cast<Km5Memory*>(this)->records(archive);
}

Km5Bounds Km5Memory::bounds(Km5Archive archive) const {
    if (const auto& claim = claimed.at(static_cast<std::size_t>(archive))) return *claim;
    return archive == Km5Archive::Errors ? events.bounds() : records(archive).bounds();
}

std::size_t Km5Memory::index_by_date(Km5Archive archive, const Km5Date& asked) const {
    return archive == Km5Archive::Errors ? events.index_by_date(asked) : records(archive).index_by_date(asked);
}

std::optional<Km5Date> Km5Memory::date_at(Km5Archive archive, std::uint32_t index) const {
    if (archive == Km5Archive::Errors) {
        const auto* event = events.at(index);
        return event != nullptr ? std::optional(event->date) : std::nullopt;
    }
    const auto* record = records(archive).at(index);
    return record != nullptr ? std::optional(record->date) : std::nullopt;
}

}  // namespace sim
