#pragma once
// A place in an archive file that is known again, and the lines that stand behind it.

#include <cstdint>
#include <string>

#include "core/file.h"

namespace uplink {

/// Up to where a file has been sent, and what tells whether it is still that file: which it is, and the look of what
/// stands in front of the place. An empty place is the beginning of any file.
struct Place {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    off_t offset = 0;
    std::uint64_t print = 0;  ///< of the first and the last bytes in front of the offset

    bool operator==(const Place&) const = default;
};

/// Of the file as it stands now.
std::uint64_t print_of(File& file, off_t offset);

/// Where to go on: the place itself in a file that still has all in front of it; its beginning in one that is another,
/// was cut, emptied or filled anew. The device alone may change: some get another number with each start of the
/// machine.
Place continue_at(File& file, const Place& place);

/// Lines behind a place.
struct Part {
    Place begin;
    Place end;  ///< behind the last whole line that was taken or passed over
    std::size_t lines = 0;
    std::size_t unreadable = 0;
    off_t size = 0;         ///< of the file
    bool is_whole = false;  ///< the file was the same all the time; else nothing of this counts
};

/// Appends `["NAME",time,quality,value],` for each whole line behind `begin`, which is of this file, until `most` bytes
/// have been appended. A last line without its end stays for later.
Part take_part(File& file, const Place& begin, const std::string& name, std::size_t most, std::string& text);

/// The beginning of the first line that has no more than so many bytes from there on to the file's end.
off_t near_end(File& file, off_t size, off_t most);

}  // namespace uplink
