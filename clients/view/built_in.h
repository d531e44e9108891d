#pragma once
// The files of the page, which are part of the program.

#include <span>
#include <string_view>

namespace view {

struct BuiltIn {
    std::string_view name;  ///< "index.html"
    std::string_view type;
    std::string_view text;
    std::string_view tag;  ///< of this text, in quotes
};

std::span<const BuiltIn> built_in_files();
/// "" is the page itself. Null without it.
const BuiltIn* find_built_in(std::string_view name);

}  // namespace view
