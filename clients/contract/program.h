#pragma once
// What every client does as a program.

#include <string>
#include <string_view>

namespace contract {

/// "PROGRAM: text" on standard error, one line; gives the exit status back.
int complain(std::string_view program, std::string_view text, int status);

/// Looks for tmp/ and mnt/storage/ below a folder, and gives it back: "/" counts as no other root, a slash at its end
/// as none.
std::string look_below(std::string root);

/// Readable when the program shall end, after SIGTERM or SIGINT. Made before any thread, which takes this over.
int end_signals();

}  // namespace contract
