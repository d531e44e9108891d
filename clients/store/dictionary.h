#pragma once
// The numbers that stand for texts in the database. They are found or made outside of the transaction that needs them,
// so that what is remembered here is there whatever becomes of it.

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "store/database.h"
#include "store/message.h"

namespace store {

class Dictionary {
  public:
    /// Knows all systems and names of these messages then.
    void learn(Database& database, const std::vector<const Message*>& messages);

    std::int32_t system(const Message& message) const { return systems.at(system_key(message)); }
    std::int32_t name(std::string_view kind, const std::string& name);

    void forget();

  private:
    using Numbers = std::unordered_map<std::string, std::int32_t>;

    static std::string system_key(const Message& message);
    void learn_systems(Database& database, const std::vector<const Message*>& messages);
    void learn_names(Database& database, const std::vector<const Message*>& messages);
    Numbers& names_of(std::string_view kind);

    Numbers systems;
    Numbers hourly, daily, event;
};

}  // namespace store
