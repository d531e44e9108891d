#include "uplink/cut_storage.h"

#include <algorithm>
#include <cstring>

namespace {

CutStorage* the_storage = nullptr;

struct OpenFile {
    sqlite3_file base;
    CutStorage::Content* content;
};

CutStorage::Content& of(sqlite3_file* file) {
    return *reinterpret_cast<OpenFile*>(file)->content;
}

void remember() {
    if (the_storage->is_recording) the_storage->moments.push_back({the_storage->files, the_storage->clock()});
}

void put(std::string& text, const CutStorage::Write& write) {
    if (write.at < 0) {
        text.resize(static_cast<std::size_t>(write.size));
        return;
    }
    const auto at = static_cast<std::size_t>(write.at);
    if (text.size() < at + write.bytes.size()) text.resize(at + write.bytes.size());
    text.replace(at, write.bytes.size(), write.bytes);
}

void change(sqlite3_file* file, CutStorage::Write write) {
    CutStorage::Content& content = of(file);
    put(content.live, write);
    content.since.push_back(std::move(write));
}

int close_file(sqlite3_file*) {
    return SQLITE_OK;
}

int read_file(sqlite3_file* file, void* into, int count, sqlite3_int64 at) {
    const std::string& live = of(file).live;
    const auto begin = std::min(live.size(), static_cast<std::size_t>(at));
    const std::size_t got = std::min(live.size() - begin, static_cast<std::size_t>(count));
    std::memcpy(into, live.data() + begin, got);
    std::memset(static_cast<char*>(into) + got, 0, static_cast<std::size_t>(count) - got);
    return got == static_cast<std::size_t>(count) ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

int write_file(sqlite3_file* file, const void* from, int count, sqlite3_int64 at) {
    change(file, {at, std::string(static_cast<const char*>(from), static_cast<std::size_t>(count))});
    return SQLITE_OK;
}

int truncate_file(sqlite3_file* file, sqlite3_int64 size) {
    change(file, {-1, {}, size});
    return SQLITE_OK;
}

int sync_file(sqlite3_file* file, int) {
    remember();
    CutStorage::Content& content = of(file);
    content.durable = content.live;
    content.since.clear();
    remember();
    return SQLITE_OK;
}

int size_of_file(sqlite3_file* file, sqlite3_int64* size) {
    *size = static_cast<sqlite3_int64>(of(file).live.size());
    return SQLITE_OK;
}

int lock_file(sqlite3_file*, int) {
    return SQLITE_OK;
}

int look_at_lock(sqlite3_file*, int* result) {
    *result = 0;
    return SQLITE_OK;
}

int control_file(sqlite3_file*, int, void*) {
    return SQLITE_NOTFOUND;
}

int sector_size(sqlite3_file*) {
    return 512;
}

int characteristics(sqlite3_file*) {
    return 0;
}

constexpr sqlite3_io_methods Methods = {
    1,         close_file, read_file,    write_file,   truncate_file, sync_file,       size_of_file,
    lock_file, lock_file,  look_at_lock, control_file, sector_size,   characteristics, nullptr,
    nullptr,   nullptr,    nullptr,      nullptr,      nullptr};

int open_file(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags) {
    auto* const opened = reinterpret_cast<OpenFile*>(file);
    opened->base.pMethods = &Methods;
    opened->content = &the_storage->files[name == nullptr ? "temporary" : name];
    if (out_flags != nullptr) *out_flags = flags;
    return SQLITE_OK;
}

int delete_file(sqlite3_vfs*, const char* name, int) {
    the_storage->files.erase(name);
    return SQLITE_OK;
}

int access_file(sqlite3_vfs*, const char* name, int, int* result) {
    *result = the_storage->files.contains(name) ? 1 : 0;
    return SQLITE_OK;
}

int full_name(sqlite3_vfs*, const char* name, int size, char* out) {
    ::sqlite3_snprintf(size, out, "%s", name);
    return SQLITE_OK;
}

}  // namespace

CutStorage::CutStorage() {
    the_storage = this;
    vfs = *::sqlite3_vfs_find(nullptr);  // its clock and its chance
    vfs.zName = Name;
    vfs.szOsFile = sizeof(OpenFile);
    vfs.xOpen = open_file;
    vfs.xDelete = delete_file;
    vfs.xAccess = access_file;
    vfs.xFullPathname = full_name;
    ::sqlite3_vfs_register(&vfs, 0);
}

CutStorage::~CutStorage() {
    ::sqlite3_vfs_unregister(&vfs);
    the_storage = nullptr;
}

CutStorage::Files CutStorage::after_cut(const Files& moment, Rest rest, std::mt19937& chance) {
    constexpr std::size_t Sector = 512;
    Files files;
    for (const auto& [name, content] : moment) {
        std::string left = rest == Rest::Everything ? content.live : content.durable;
        if (rest == Rest::Something) {
            for (Write write : content.since) {
                if (chance() % 2 == 0) continue;
                if (write.at >= 0 && chance() % 2 == 0) write.bytes.resize(write.bytes.size() / Sector / 2 * Sector);
                put(left, write);
            }
        }
        files[name] = {left, {}, left};
    }
    return files;
}
