#pragma once
// Effects of the small shell commands that other systems would use on files, by system calls. All paths are paths of
// the gateway; failures are told by the result and change nothing else.

#include <sys/types.h>

#include <string>
#include <string_view>

/// True for a directory, or a link to one; a dangling link counts as absent.
bool is_directory(const std::string& path);

/// True when something is there; a dangling link counts as absent.
bool exists(const std::string& path);

/// `mkdir -p`: the folder and the missing ones above it.
void make_directories(const std::string& path);

/// `ln -s target link`: a link that names a folder gets the new link inside that folder.
void make_link(const std::string& target, const std::string& link);

/// `rm -f`: the name goes, what a link leads to stays.
void remove_file(const std::string& path);

/// `>`: empties or makes the file, then writes the text. False when the file cannot be opened or written whole.
bool overwrite_file(const std::string& path, std::string_view text, mode_t mode = 0666);

/// Writes the text over what the file has, without emptying it first, and makes it durable: a power cut leaves the old
/// text or the new one. For texts that are shorter than a block of the storage. False as above.
bool overwrite_durably(const std::string& path, std::string_view text);

/// `>>`: makes the file if need be and writes the text at its end.
bool append_file(const std::string& path, std::string_view text);

/// `tail -c`: the last bytes of a file, all of a shorter one; nothing when it cannot be opened.
std::string end_of_file(const std::string& path, std::size_t most);

/// `cp`: the source over the target, which gets the source's mode when it is made. False when one of them cannot be
/// opened, or the target has not got all.
bool copy_file(const std::string& source, const std::string& target);
