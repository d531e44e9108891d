#pragma once
// Lines of the screen of `watch` that are made of whole files, so that they are made anew when a file has changed only.

#include <string>
#include <vector>

#include "contract/live.h"

namespace ctl {

/// A text out of files, cut or filled to so many columns of the screen.
std::string fitted(const std::string& text, std::size_t width, bool right = false);

struct Rows {
    std::string heading;
    std::vector<std::string> rows;  ///< the newest one first
};

/// The newest records of a system, with as many of their values as the width takes.
Rows record_rows(const std::string& uuid, const contract::LiveSystem& system, contract::ArchiveKind kind, int width);
/// The story of a log.
Rows log_rows(const std::string& path);

}  // namespace ctl
