#include "faults/archive_watch.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "faults/broken_invariant.h"

namespace fs = std::filesystem;

namespace faults {

namespace {

constexpr std::size_t BytesBefore = 64;
constexpr int TimesALineMayStand = 60;  // a pass that fails half-way writes again what it has written
constexpr const char* NoLines[] = {"_EXISTS_FIRST_RECORD", "_hPrevE", "_dPrevE"};

std::string part_of_file(const std::string& path, std::size_t from, std::size_t most = std::string::npos) {
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(from));
    if (most == std::string::npos) return {std::istreambuf_iterator<char>(file), {}};
    std::string text(most, '\0');
    file.read(text.data(), static_cast<std::streamsize>(most));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

std::size_t size_of(const std::string& path) {
    std::error_code missing;
    const auto size = fs::file_size(path, missing);
    return missing ? 0 : static_cast<std::size_t>(size);
}

bool is_zeros(const std::string& text) {
    return text.find_first_not_of('\0') == std::string::npos;
}

std::string printable(const std::string& text) {
    std::string result;
    for (const char byte : text.substr(0, 100))
        result += std::isprint(static_cast<unsigned char>(byte)) != 0 ? byte : '?';
    return "\"" + result + "\"";
}

}  // namespace

ArchiveWatch::ArchiveWatch(std::string folder, std::string memory_folder, Ledger& ledger)
    : folder_(std::move(folder)), memory_(std::move(memory_folder)), ledger_(ledger) {}

std::vector<std::string> ArchiveWatch::files() const {
    std::vector<std::string> names;
    for (int n = 1; n <= 6; ++n) {
        const std::string place = std::to_string(n) + "/" + memory_;
        std::error_code missing;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder_ + "/" + place, missing)) {
            const std::string name = entry.path().filename().string();
            if (std::find(std::begin(NoLines), std::end(NoLines), name) != std::end(NoLines)) continue;
            names.push_back(place + "/" + name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::size_t ArchiveWatch::bytes() const {
    std::size_t sum = 0;
    for (const auto& [name, file] : files_) sum += file.offset;
    return sum;
}

void ArchiveWatch::look(const Reasons& reasons) {
    std::set<std::string> there;
    for (const std::string& name : files()) {
        there.insert(name);
        read_on(name, reasons);
    }
    for (const auto& [name, file] : files_) {
        if (!there.contains(name)) throw BrokenInvariant("an archive file is gone: " + name);
    }
}

void ArchiveWatch::restart(const std::string& name, File& file) {
    for (const Ledger::LineId line : file.lines) ledger_.vanished(line);
    ledger_.emptied(name);
    file = {};
    ++emptied_;
}

void ArchiveWatch::read_on(const std::string& name, const Reasons& reasons) {
    File& file = files_[name];
    const std::string path = folder_ + "/" + name;
    const std::size_t behind = file.before.size();
    const bool same = size_of(path) >= file.offset && part_of_file(path, file.offset - behind, behind) == file.before;
    if (!same) {
        if (!reasons.may_shrink) throw BrokenInvariant("what stood in an archive file is gone: " + name);
        restart(name, file);
    }
    const std::string text = part_of_file(path, file.offset);
    std::size_t at = 0;
    for (std::size_t end = 0; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
        take_line(name, file, text.substr(at, end - at), file.offset + at, reasons);
    }
    if (at == 0) return;
    file.before = (file.before + text.substr(0, at));
    if (file.before.size() > BytesBefore) file.before.erase(0, file.before.size() - BytesBefore);
    file.offset += at;
}

void ArchiveWatch::take_line(const std::string& name, File& file, const std::string& line, std::size_t at,
                             const Reasons& reasons) {
    ++lines_read_;
    if (const auto id = ledger_.find(name, line)) {
        ledger_.appeared(*id);
        file.lines.push_back(*id);
        if (ledger_.count(*id) > TimesALineMayStand)
            throw BrokenInvariant("written again and again: " + name + " " + line);
        return;
    }
    const bool is_piece = is_zeros(line) || ledger_.is_beginning(name, line);
    if (!is_piece) {
        throw BrokenInvariant("a line that no record of a meter stands for: " + name + " " + printable(line));
    }
    if (!file.tears.contains(at) && !reasons.may_tear) {
        throw BrokenInvariant("a torn line that no power cut has left: " + name + " " + printable(line));
    }
    ledger_.torn(name, line);
    ++torn_;
}

void ArchiveWatch::note_tears() {
    for (const std::string& name : files()) {
        const std::string text = part_of_file(folder_ + "/" + name, 0);
        if (text.empty() || text.back() == '\n') continue;
        const std::size_t line_end = text.rfind('\n');
        const std::size_t tear = line_end == std::string::npos ? 0 : line_end + 1;
        files_[name].tears.insert(tear);
        ledger_.torn(name, text.substr(tear));
    }
}

void ArchiveWatch::tear_zeros(std::size_t length) {
    for (const std::string& name : files()) {
        const std::string path = folder_ + "/" + name;
        std::string text = part_of_file(path, 0);
        if (text.empty() || text.back() != '\0') continue;
        const std::size_t from = text.find_last_not_of('\0') + 1;
        const auto line = ledger_.next_line(name);
        if (!line || (from > 0 && text[from - 1] != '\n')) continue;
        text.replace(from, std::string::npos, line->substr(0, std::min(length, line->size())));
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    }
}

void ArchiveWatch::forget(const std::string& folder) {
    for (auto file = files_.begin(); file != files_.end();) {
        if (!file->first.starts_with(folder + "/")) {
            ++file;
            continue;
        }
        restart(file->first, file->second);
        file = files_.erase(file);
    }
}

void ArchiveWatch::look_at_copies() const {
    for (const std::string& name : files()) {
        const std::size_t slash = name.find('/');
        const std::size_t second = name.find('/', slash + 1);
        const std::string copy = name.substr(0, slash + 1) + "tc_tmp_archives" + name.substr(second);
        const std::string text = part_of_file(folder_ + "/" + copy, 0);
        std::size_t at = 0;
        for (std::size_t end = 0; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
            const std::string line = text.substr(at, end - at);
            if (ledger_.find(name, line) || is_zeros(line) || ledger_.is_beginning(name, line)) continue;
            throw BrokenInvariant("a copied line that no record of a meter stands for: " + copy + " " +
                                  printable(line));
        }
    }
}

}  // namespace faults
