#pragma once
// How far a meter's archives have come.

#include <cstdint>
#include <optional>
#include <string>

#include "contract/catalogue.h"

namespace contract {

/// The end of the newest record of a kind; nothing without any. Means carry the beginning of their hour or day, so they
/// count a period later.
/// A copy for readers that is being filled is waited for, or else seen as it is.
enum class Copies { Wait, AsTheyAre };
std::optional<std::int64_t> newest_record(const std::string& uuid, int system, ArchiveKind kind,
                                          Copies copies = Copies::Wait);

/// The oldest and the newest line of one file, as they are dated.
struct Extent {
    std::int64_t from;
    std::int64_t to;
};
std::optional<Extent> extent_of(const std::string& path);

}  // namespace contract
