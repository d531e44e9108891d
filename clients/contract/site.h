#pragma once
// Where on a gateway, or in a copy of its files, a meter's files stand. Everything is looked for below the machine's
// root; a link that leads out of the root of a copy, or out of /tmp, leads nowhere.

#include <string>
#include <vector>

#include "core/file.h"

namespace contract {

constexpr int Systems = 6;

/// The file for reading; none for what is no regular file, and for one outside of the root.
File open_for_reading(const std::string& path);
/// An archive file for reading. A copy for readers is emptied and filled again without a lock: one that was written
/// just now is waited for until it rests, a second at most.
File open_archive(const std::string& path);
/// The names in a folder, in natural order, without "." and "..". None of what is no folder.
std::vector<std::string> names_in(const std::string& folder);
/// A file's text, at most so many bytes of it.
std::string read_text(const std::string& path, std::size_t most);

/// "A2" stands before "A10".
bool comes_before(const std::string& one, const std::string& other);

/// True for what can be the name of a meter's folder: no "/", not "." or "..", not empty, no longer than a name can be.
bool is_meter_name(const std::string& name);

/// The uuids of all meters that have a folder with a system in it, below /tmp or /mnt/storage, sorted.
std::vector<std::string> meters();

/// "UUID" or "UUID/N".
struct MeterSystem {
    std::string uuid;
    int system = 1;
};
bool parse_meter_system(const std::string& text, MeterSystem& meter);

std::string items_folder(const std::string& uuid, int system);
std::string storage_folder(const std::string& uuid, int system);

/// The folder in which readers look for a meter's archives: that of the handed-over passes when the driver stages its
/// records (has files in "tmp_archives"), else "tc_archives". `staged`: the working folder of a staging driver.
std::string archive_folder(const std::string& uuid, int system, bool staged = false);

}  // namespace contract
