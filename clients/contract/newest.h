#pragma once
// How far a meter's archives have come.

#include <cstdint>
#include <optional>
#include <string>

#include "contract/catalogue.h"

namespace contract {

/// The end of the newest record of a kind; nothing without any. Means carry the beginning of their hour or day, so they
/// count a period later.
std::optional<std::int64_t> newest_record(const std::string& uuid, int system, ArchiveKind kind);

}  // namespace contract
