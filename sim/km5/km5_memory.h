#pragma once
// The memory of one subsystem of a simulated KM5 meter: rings of records, present values, parameters, status.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "km5_types.h"

namespace sim {

/// A ring of `Item`s with a `date`, indexed from 0. A full ring overwrites its oldest item. An index may be left
/// without an item: a gap.
template <typename Item>
class Km5Ring {
  public:
    explicit Km5Ring(std::size_t capacity) : slots_(capacity) {}

    void push(Item item) {
        slots_[pushed_ % slots_.size()] = item;
        ever_.push_back(std::move(item));
        ++pushed_;
    }
    void leave_gap() {
        slots_[pushed_ % slots_.size()].reset();
        ++pushed_;
    }
    void erase(std::size_t index) { slots_.at(index).reset(); }
    void forget() {
        slots_.assign(slots_.size(), std::nullopt);
        pushed_ = 0;
    }

    Km5Bounds bounds() const {
        if (pushed_ == 0) return {.flag = 0x80};
        const std::size_t capacity = slots_.size();
        const std::size_t first = pushed_ > capacity ? pushed_ % capacity : 0;
        const std::size_t held = pushed_ > capacity ? capacity : pushed_;
        return {.flag = 0,
                .first = static_cast<std::uint16_t>(first),
                .last = static_cast<std::uint16_t>((pushed_ - 1) % capacity),
                .count = static_cast<std::uint16_t>(held)};
    }
    /// Null for a gap, an index that was never written, and an index outside the ring.
    const Item* at(std::uint32_t index) const {
        if (index >= slots_.size() || !slots_[index]) return nullptr;
        return &*slots_[index];
    }
    /// Index of the oldest item dated at or after the hour of `asked`; the newest index when all are older.
    std::size_t index_by_date(const Km5Date& asked) const {
        const Km5Date from{.year = asked.year, .month = asked.month, .day = asked.day, .hour = asked.hour};
        const Km5Bounds now = bounds();
        for (std::size_t k = 0; k < now.count; ++k) {
            const std::size_t index = (now.first + k) % slots_.size();
            if (slots_[index] && slots_[index]->date >= from) return index;
        }
        return now.last;
    }
    const std::vector<Item>& ever() const { return ever_; }

  private:
    std::vector<std::optional<Item>> slots_;
    std::size_t pushed_ = 0;
    std::vector<Item> ever_;
};

/// A place where a float stands in an answer.
struct Km5Place {
    std::uint8_t command = 0;
    std::uint8_t page = 0;
    std::size_t position = 0;  ///< in the answer, counted from 0

    auto operator<=>(const Km5Place&) const = default;  // NOLINT(modernize-use-nullptr): no pointer is compared
};

/// One float of a page of present values, as the models in `models` use it (bit n stands for model n).
struct Km5PageFloat {
    std::uint8_t command;
    std::uint8_t page;
    std::size_t position;
    std::string_view name;  ///< empty: the meter puts something there that nobody has named
    unsigned models;
};

/// All rows of all pages of present values; page 0 of command 44 is the clock and has no row.
const std::vector<Km5PageFloat>& km5_page_floats();
/// What a value is in subsystem 0 when nothing was set; differs for each name.
float km5_default_value(std::string_view name);

/// Everything a subsystem keeps for itself.
class Km5Memory {
  public:
    Km5Memory(const Km5Config& config, unsigned subsystem);

    /// Throws std::invalid_argument for a name or a place that no page of `model` has.
    void set_value(const std::string& name, float value, int model);
    void set_value_at(const Km5Place& place, float value);
    float value(const std::string& name) const;
    float value_at(const Km5PageFloat& row) const;

    Km5Ring<Km5StoredRecord>& records(Km5Archive archive);
    const Km5Ring<Km5StoredRecord>& records(Km5Archive archive) const;  ///< not for Errors, which has `events`
    Km5Bounds bounds(Km5Archive archive) const;                         ///< as claimed, or as they are
    std::size_t index_by_date(Km5Archive archive, const Km5Date& asked) const;
    /// The dates of the oldest and the newest item, for the bounds answer; nothing for a gap or an empty ring.
    std::optional<Km5Date> date_at(Km5Archive archive, std::uint32_t index) const;

    Km5Ring<Km5StoredEvent> events;
    std::map<int, float> eeprom;
    std::array<std::uint8_t, 7> status;
    std::array<std::optional<Km5Bounds>, Km5ArchiveCount> claimed;

  private:
    unsigned subsystem_;
    std::array<Km5Ring<Km5StoredRecord>, 4> records_;
    std::map<std::string, float> by_name_;
    std::map<Km5Place, float> by_place_;
};

}  // namespace sim
