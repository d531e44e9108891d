#pragma once
// Effects of the small shell commands that other systems would use on files, by system calls. All paths are paths of
// the gateway; failures are told by the result and change nothing else.

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

/// An open stream that closes itself.
struct StreamCloser {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

/// True for a directory, or a link to one; a dangling link counts as absent.
bool is_directory(const std::string& path);

/// True when something is there; a dangling link counts as absent.
bool exists(const std::string& path);

/// `mkdir -p`: the folder and the missing ones above it.
void make_directories(const std::string& path);

/// `ln -s target link`: a link that names a folder gets the new link inside that folder.
void make_link(const std::string& target, const std::string& link);

/// `>`: empties or makes the file, then writes the text. False when the file cannot be opened or written whole.
bool overwrite_file(const std::string& path, std::string_view text);

/// Writes the text over what the file has, without emptying it first, and makes it durable: a power cut leaves the old
/// text or the new one. For texts that are shorter than a block of the storage. False as above.
bool overwrite_durably(const std::string& path, std::string_view text);

/// `>>`: makes the file if need be and writes the text at its end.
bool append_file(const std::string& path, std::string_view text);
