#include "uplink/archive_part.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "contract/archive_lines.h"
#include "contract/json.h"

namespace uplink {

namespace {

constexpr off_t HeadBytes = 1024;
constexpr off_t TailBytes = 4096;                 // some months of days, a week of hours
constexpr off_t LongestRead = off_t{256} * 1024;  // of one part: what does not parse adds nothing to a text

/// FNV-1a, 64 bits: nobody makes archive files that collide.
class Hash {
  public:
    void add(std::string_view bytes) {
        for (const char byte : bytes) {
            sum ^= static_cast<unsigned char>(byte);
            sum *= 0x100000001B3;
        }
    }
    std::uint64_t sum = 0xCBF29CE484222325;
};

bool add_bytes(File& file, off_t begin, off_t end, Hash& hash) {
    std::array<char, TailBytes> bytes{};
    if (file.seek(begin, SEEK_SET) != begin) return false;
    const auto wanted = static_cast<std::size_t>(end - begin);
    const std::size_t got = file.read(std::span(bytes).first(wanted));
    hash.add({bytes.data(), got});
    return got == wanted;
}

Place place_at(const struct stat& status, off_t offset) {
    return {.device = status.st_dev, .inode = status.st_ino, .offset = offset, .print = 0};
}

/// "00012.5" is no number of JSON, "-nan" none of ours.
void append_value(std::string_view value, std::string& text) {
    if (value.ends_with('n')) {
        text += "\"nan\"";
        return;
    }
    if (value.ends_with('f')) {
        text += '"';
        text += value;
        text += '"';
        return;
    }
    if (value.starts_with('-')) {
        text += '-';
        value.remove_prefix(1);
    }
    value.remove_prefix(std::min(value.find_first_not_of('0'), value.find('.') - 1));
    text += value;
}

}  // namespace

std::uint64_t print_of(File& file, off_t offset) {
    Hash hash;
    if (!add_bytes(file, 0, std::min(offset, HeadBytes), hash)) return 0;
    if (!add_bytes(file, std::max<off_t>(0, offset - TailBytes), offset, hash)) return 0;
    return hash.sum;
}

Place continue_at(File& file, const Place& place) {
    struct stat status {};
    if (!file || !file.look(status)) return {};
    const Place begin = place_at(status, 0);
    if (place.offset == 0 || status.st_ino != place.inode || status.st_size < place.offset) return begin;
    if (print_of(file, place.offset) != place.print) return begin;
    Place same = place;
    same.device = status.st_dev;
    return same;
}

Part take_part(File& file, const Place& begin, const std::string& name, std::size_t most, std::string& text) {
    Part part{.begin = begin, .end = begin};
    struct stat status {};
    if (!file || !file.look(status)) return part;
    part.size = status.st_size;
    // A file changes once: what it had in front of this part, or at its beginning, is looked at again behind all
    // reading.
    const off_t known = begin.offset > 0 ? begin.offset : std::min(status.st_size, HeadBytes);
    const std::uint64_t before = begin.offset > 0 ? begin.print : print_of(file, known);

    const std::string head = '[' + contract::json_text(name) + ',';
    const off_t stop = std::min(status.st_size, begin.offset + LongestRead);
    contract::ArchiveLines lines(file, begin.offset, stop);
    const std::size_t full = text.size() + most;
    off_t end = begin.offset;
    for (contract::ArchiveLine line; text.size() < full && lines.next(line);) {
        if (lines.end_of_lines() <= lines.position()) break;  // its end is still to come
        text += head;
        fmt::format_to(std::back_inserter(text), "{},{},", line.time, line.quality);
        append_value(line.value, text);
        text += "],";
        ++part.lines;
        end = lines.end_of_lines();
    }
    // What does not parse is passed over with the line behind it, or at the end of all.
    if (text.size() < full) end = std::max(end, lines.end_of_lines());
    // A run without any line end is none: what follows it begins where the line of which `stop` is a part ends.
    if (end == begin.offset && part.lines == 0 && stop < status.st_size) end = stop;
    part.unreadable = lines.unreadable();
    part.end = place_at(status, end);
    part.end.print = print_of(file, end);
    part.is_whole = !lines.is_short() && print_of(file, known) == before;
    return part;
}

off_t near_end(File& file, off_t size, off_t most) {
    if (size <= most) return 0;
    contract::ArchiveLines lines(file, size - most, size);
    contract::ArchiveLine line;
    return lines.next(line) ? lines.position() : size;
}

}  // namespace uplink
