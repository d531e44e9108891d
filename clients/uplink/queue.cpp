#include "uplink/queue.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fmt/format.h>

#include "contract/archive_table.h"
#include "contract/json.h"
#include "contract/site.h"
#include "core/gateway.h"

namespace uplink {

namespace {

constexpr std::size_t LeastOfAFile = 512;        // bytes of a batch, so that many files do not come line by line
constexpr off_t LongBacklog = off_t{16} * 1024;  // with the newest first: some weeks of hours
constexpr off_t AheadBytes = off_t{4} * 1024;    // of which a week is sent ahead
constexpr std::time_t RestingTime = 2;           // seconds: what was written a moment ago may look the same

/// Two sums over the same bytes, one of them backwards.
std::string hash_of(std::string_view bytes) {
    std::uint64_t one = 0xCBF29CE484222325;
    std::uint64_t other = one;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        one = (one ^ static_cast<unsigned char>(bytes[i])) * 0x100000001B3;
        other = (other ^ static_cast<unsigned char>(bytes[bytes.size() - 1 - i])) * 0x100000001B3;
    }
    return fmt::format("{:016x}{:016x}", one, other);
}

/// How a file looks without being read; 0 when it may change without looking otherwise.
std::uint64_t look_of(const struct stat& status) {
    if (gateway().now() <= status.st_ctime + RestingTime) return 0;
    return std::hash<std::string>()(fmt::format("{} {} {} {} {}", status.st_dev, status.st_ino, status.st_size,
                                                status.st_ctim.tv_sec, status.st_ctim.tv_nsec)) |
           1;
}

/// The working folder of a driver that stages its records: its files only grow, while the copies for readers are
/// emptied and filled again with each pass.
std::string folder_of(const std::string& uuid, int system) {
    return contract::archive_folder(uuid, system, true);
}

}  // namespace

void Queue::remember(const FileName& file, const Place& place) {
    const contract::ArchiveEntry* const entry = contract::find_archive(file.name);
    if (entry == nullptr) return;
    groups[{file.uuid, file.system, entry->kind}].files[file.name].done = place;
}

void Queue::look_at(const std::string& uuid, int system) {
    const std::string folder = folder_of(uuid, system);
    for (const auto kind :
         {contract::ArchiveKind::Hourly, contract::ArchiveKind::Daily, contract::ArchiveKind::Events}) {
        const std::vector<std::string> names = contract::archive_names(folder, kind);
        if (names.empty()) continue;
        GroupState& group = groups[{uuid, system, kind}];
        for (const std::string& name : names) group.files.try_emplace(name);
        group.is_due = true;
    }
}

void Queue::take_file(const Group& group, const std::string& path, const std::string& name, FileState& file, Road road,
                      std::size_t most, Batch& batch) {
    File opened = contract::open_for_reading(path);
    if (!opened && errno == EACCES && known_closed.insert(path).second) closed.push_back(path);
    struct stat status {};
    if (!opened || !opened.look(status)) return;
    const std::uint64_t look = look_of(status);
    if (file.rested != 0 && file.rested == look) return;
    file.rested = 0;
    Place begin = continue_at(opened, file.done);
    if (begin.offset == 0 && file.done.offset != 0) file.ahead = {};
    file.done = begin;
    if (road == Road::Ahead) {
        if (file.ahead.offset != 0) file.ahead = continue_at(opened, file.ahead);
        if (file.ahead.offset <= begin.offset) {
            file.ahead = {};
            if (status.st_size - begin.offset <= LongBacklog) return;
            file.ahead = begin;
            file.ahead.offset = near_end(opened, status.st_size, AheadBytes);
            file.ahead.print = print_of(opened, file.ahead.offset);
        }
        begin = file.ahead;
    }
    if (status.st_size <= begin.offset) {
        if (road == Road::InOrder) file.rested = look;
        return;
    }
    const std::size_t before = batch.body.size();
    const Part part = take_part(opened, begin, name, most, batch.body);
    if (!part.is_whole) {
        batch.body.resize(before);  // its new beginning is found by the next look
        file.rested = 0;
        return;
    }
    if (part.lines != 0) {
        batch.lines += part.lines;
        batch.pieces.push_back({.name = name, .end = part.end});
        batch.id += fmt::format("{}/{}:{}-{} ", name, part.end.inode, begin.offset, part.end.offset);
    } else if (part.end.offset != begin.offset) {
        Place& moved = road == Road::Ahead ? file.ahead : file.done;
        moved = part.end;
        if (road == Road::InOrder) passed.push_back({{group.uuid, group.system, name}, part.end});
    } else if (road == Road::InOrder && part.size == status.st_size) {
        file.rested = look;  // a line without its end
    }
    if (road == Road::InOrder) unreadable_count += part.unreadable;
}

std::optional<Batch> Queue::take(const Group& group, GroupState& state, Road road, std::size_t most) {
    Batch batch{.group = group, .is_ahead = road == Road::Ahead};
    batch.body = fmt::format(R"({{"gateway":{},"meter":{},"system":{},"kind":"{}","lines":[)",
                             contract::json_text(gateway), contract::json_text(group.uuid), group.system,
                             group.kind == contract::ArchiveKind::Events ? "event" : contract::text_of(group.kind));
    const std::size_t full = batch.body.size() + most;
    // Each file gets its part of the batch, so that what belongs to one time comes together; the next batch goes on
    // with the files that this one has not come to.
    const std::string folder = folder_of(group.uuid, group.system) + '/';
    auto at = state.files.upper_bound(state.last_name);
    for (std::size_t left = state.files.size(); left > 0 && batch.body.size() < full; --left) {
        if (at == state.files.end()) at = state.files.begin();
        const std::size_t share = std::max(LeastOfAFile, (full - batch.body.size()) / left);
        take_file(group, folder + at->first, at->first, at->second, road, share, batch);
        state.last_name = at->first;
        ++at;
    }
    if (batch.lines == 0) return std::nullopt;
    batch.body.back() = ']';  // in the place of the last comma
    batch.body += '}';
    const std::string sum = hash_of(batch.body);
    batch.id.pop_back();
    batch.id = fmt::format("{}/{}/{}/{}/{}{}", gateway, group.uuid, group.system,
                           batch.pieces.size() == 1 ? batch.id : hash_of(batch.id), sum,
                           batch.is_ahead ? "/ahead" : state.mark);
    return batch;
}

std::optional<Batch> Queue::next(std::size_t most) {
    if (groups.empty()) return std::nullopt;
    for (const Road road : {Road::Ahead, Road::InOrder}) {
        if (road == Road::Ahead && !newest_first) continue;
        auto at = groups.upper_bound(last_group);
        for (std::size_t left = groups.size(); left > 0; --left, ++at) {
            if (at == groups.end()) at = groups.begin();
            auto& [group, state] = *at;
            if (!state.is_due || state.is_on_its_way) continue;
            std::optional<Batch> batch;
            std::size_t passed_before = 0;
            do {  // behind what is no line there may be more
                passed_before = passed.size();
                batch = take(group, state, road, most);
            } while (!batch && passed.size() != passed_before);
            if (batch) {
                state.is_on_its_way = true;
                last_group = group;
                return batch;
            }
            if (road == Road::InOrder) state.is_due = false;
        }
    }
    return std::nullopt;
}

std::vector<State::Change> Queue::confirmed(const Batch& batch) {
    GroupState& state = groups[batch.group];
    state.is_on_its_way = false;
    state.is_due = true;
    if (!batch.is_ahead) state.mark.clear();
    std::vector<State::Change> changes;
    for (const auto& [name, end] : batch.pieces) {
        FileState& file = state.files[name];
        (batch.is_ahead ? file.ahead : file.done) = end;
        file.rested = 0;
        if (!batch.is_ahead) changes.push_back({{batch.group.uuid, batch.group.system, name}, end});
    }
    return changes;
}

void Queue::failed(const Batch& batch) {
    GroupState& state = groups[batch.group];
    state.is_on_its_way = false;
    state.is_due = true;
}

void Queue::failed(const Batch& batch, std::uint64_t last_sequence) {
    failed(batch);
    groups[batch.group].mark = fmt::format("/after-{}", last_sequence);
}

}  // namespace uplink
