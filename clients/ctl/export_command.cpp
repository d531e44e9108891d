#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>

#include <fmt/format.h>
#include <json/value.h>

#include "contract/archive_lines.h"
#include "contract/catalogue.h"
#include "contract/plain_text.h"
#include "contract/site.h"
#include "core/gateway.h"
#include "ctl/commands.h"
#include "ctl/database.h"

namespace ctl {

namespace {

using contract::ArchiveKind;

/// An archive file to be taken away.
struct Source {
    std::string meter;
    int system;
    const contract::ArchiveEntry* entry;
    std::string path;
    off_t size;
};

struct Counts {
    std::size_t files = 0;
    std::size_t lines = 0;
    std::size_t unreadable = 0;
};

std::vector<Source> sources_of(const std::vector<std::string>& uuids) {
    std::vector<Source> sources;
    for (const std::string& uuid : uuids) {
        for (int system = 1; system <= contract::Systems; ++system) {
            const std::string folder = contract::archive_folder(uuid, system);
            for (const std::string& name : contract::names_in(folder)) {
                const contract::ArchiveEntry* const entry = contract::find_archive(name);
                const std::string path = folder + '/' + name;
                struct stat status {};
                if (entry == nullptr || gateway().look_at(path, status) != 0 || !S_ISREG(status.st_mode)) continue;
                sources.push_back({uuid, system, entry, path, status.st_size});
            }
        }
    }
    return sources;
}

/// A bar on standard error, where that is a terminal.
class Progress {
  public:
    explicit Progress(off_t bytes) : all(bytes), shown(::isatty(STDERR_FILENO) == 1 && bytes > 0) {}
    ~Progress() {
        if (shown) std::fputs("\r\033[K", stderr);
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void tell(off_t done) {
        constexpr int Width = 40;
        // On the gateway an off_t has 32 bits, and a hundredfold of it has no room there.
        const int percent = static_cast<int>(std::int64_t{done} * 100 / std::max<std::int64_t>(all, 1));
        if (!shown || percent == last) return;
        last = percent;
        const int full = percent * Width / 100;
        std::fputs(fmt::format("\r[{:#<{}}{:.<{}}] {} %", "", full, "", Width - full, percent).c_str(), stderr);
    }

  private:
    off_t all;
    bool shown;
    int last = -1;
};

/// True when the file still has in front of the cursor what it had.
bool goes_on(File& file, const struct stat& status, const FileCursor& cursor) {
    if (cursor.inode != static_cast<std::int64_t>(status.st_ino) || status.st_size < cursor.offset) return false;
    std::string text(cursor.last_line.size(), '\0');
    file.seek(static_cast<off_t>(cursor.offset) - static_cast<off_t>(text.size()), SEEK_SET);
    return file.read(text) == text.size() && text == cursor.last_line;
}

/// The file's text in front of an offset: the last line, or as much of it as tells it from others.
std::string line_in_front(File& file, off_t offset) {
    constexpr off_t Most = 64;
    std::string text(static_cast<std::size_t>(std::min(offset, Most)), '\0');
    file.seek(offset - static_cast<off_t>(text.size()), SEEK_SET);
    text.resize(file.read(text));
    // Zero bytes of a power cut cannot stand in a text of the database.
    const std::size_t zero = text.rfind('\0');
    return zero == std::string::npos ? text : text.substr(zero + 1);
}

void take(const Source& source, Database& database, Counts& counts) {
    FileCursor cursor;
    const std::int64_t series =
        database.series(contract::valid_utf8(source.meter), source.system, std::string(text_of(source.entry->kind)),
                        std::string(source.entry->name), cursor);
    File file = contract::open_archive(source.path);
    struct stat status {};
    if (!file || !file.look(status)) return;
    if (!goes_on(file, status, cursor)) cursor = FileCursor();
    if (status.st_size == cursor.offset) return;
    ++counts.files;
    contract::ArchiveLines lines(file, 0, status.st_size);
    lines.go_to(static_cast<off_t>(cursor.offset));
    const bool is_event = source.entry->kind == ArchiveKind::Events;
    for (contract::ArchiveLine line; lines.next(line); ++counts.lines) {
        double value = 0;
        std::from_chars(line.value.data(), line.value.data() + line.value.size(), value);
        database.add(series, line.time, line.quality, value, is_event);
    }
    counts.unreadable += lines.unreadable();
    cursor.inode = static_cast<std::int64_t>(status.st_ino);
    cursor.offset = lines.end_of_lines();
    cursor.last_line = line_in_front(file, static_cast<off_t>(cursor.offset));
    database.move_cursor(series, cursor);
}

int run_export(const std::string& path, const std::vector<std::string>& wanted, const Console& console) {
    constexpr off_t BytesAtOnce = off_t{32} * 1024 * 1024;
    for (const std::string& uuid : wanted) {
        if (!contract::is_meter_name(uuid)) throw Failure{"no meter: \"" + uuid + '"', Usage};
    }
    const std::vector<std::string> known = contract::meters();
    for (const std::string& uuid : wanted) {
        if (std::ranges::count(known, uuid) != 0) continue;
        throw Failure{"no meter " + uuid + " has files here. `heatmeterctl list` tells what there is"};
    }
    const std::vector<Source> sources = sources_of(wanted.empty() ? known : wanted);
    if (sources.empty()) throw Failure{"no archives here. `heatmeterctl list` tells what there is"};
    off_t all = 0;
    for (const Source& source : sources) all += source.size;
    Database database(path);
    Progress progress(all);
    Counts counts;
    off_t done = 0;
    off_t committed = 0;
    database.begin();
    for (const Source& source : sources) {
        take(source, database, counts);
        done += source.size;
        progress.tell(done);
        if (done - committed < BytesAtOnce) continue;
        database.commit();
        database.begin();
        committed = done;
    }
    database.commit();
    if (console.json) {
        Json::Value whole;
        whole["files"] = Json::UInt64(sources.size());
        whole["changed"] = Json::UInt64(counts.files);
        whole["lines"] = Json::UInt64(counts.lines);
        whole["unreadable"] = Json::UInt64(counts.unreadable);
        print_json(whole);
    } else {
        Output out;
        out << fmt::format("{} lines of {} files are new", counts.lines, counts.files);
        if (counts.unreadable != 0) out << fmt::format("; {} could not be read", counts.unreadable);
        out << '\n';
        out.flush();
    }
    return Done;
}

}  // namespace

Command export_command(CLI::App& app, Console& console) {
    struct Words {
        std::string file;
        std::vector<std::string> uuids;
    };
    const auto words = std::make_shared<Words>();
    CLI::App* const command = app.add_subcommand("export", "all records into a database; again and again, what is new");
    command->add_option("--sqlite", words->file, "the database; made if it is not there")
        ->required()
        ->type_name("FILE");
    command->add_option("UUID", words->uuids, "meters; all without any");
    add_output_options(*command, console);
    return {command, [words, &console] { return run_export(words->file, words->uuids, console); }};
}

}  // namespace ctl
