#include "faults/ledger.h"

#include <algorithm>
#include <utility>

namespace faults {

void Ledger::add(YearRecord record, std::time_t known_since) {
    Record result{record.archive, record.time, known_since, record.promised, false, {}};
    for (YearLine& line : record.lines) {
        const auto [place, is_new] = by_file_[line.file].try_emplace(std::move(line.text), count_.size());
        if (is_new) count_.push_back(0);
        result.lines.push_back(place->second);
    }
    if (result.owed) {
        ++promised_;
        open_.push_back(records_.size());
    }
    records_.push_back(std::move(result));
}

std::optional<Ledger::LineId> Ledger::find(const std::string& file, const std::string& text) const {
    const auto lines = by_file_.find(file);
    if (lines == by_file_.end()) return std::nullopt;
    const auto line = lines->second.find(text);
    return line == lines->second.end() ? std::nullopt : std::optional(line->second);
}

bool Ledger::is_beginning(const std::string& file, const std::string& piece) const {
    const auto lines = by_file_.find(file);
    if (lines == by_file_.end()) return false;
    const auto next = lines->second.lower_bound(piece);
    return next != lines->second.end() && next->first.starts_with(piece);
}

std::optional<std::string> Ledger::next_line(const std::string& file) const {
    const auto lines = by_file_.find(file);
    if (lines == by_file_.end()) return std::nullopt;
    std::optional<std::string> next;
    for (auto line = lines->second.rbegin(); line != lines->second.rend(); ++line) {
        if (count_[line->second] > 0) break;
        next = line->first;
    }
    return next;
}

bool Ledger::is_whole(const Record& record) const {
    return std::all_of(record.lines.begin(), record.lines.end(), [this](LineId line) { return count_[line] > 0; });
}

bool Ledger::is_begun(const Record& record) const {
    return std::any_of(record.lines.begin(), record.lines.end(), [this](LineId line) { return count_[line] > 0; });
}

template <typename Condition>
void Ledger::give_up_if(Condition condition) {
    for (const std::size_t place : open_) {
        Record& record = records_[place];
        if (!record.owed || !condition(record)) continue;
        record.owed = false;
        if (!record.kept) ++given_up_;
    }
    std::erase_if(open_, [this](std::size_t place) { return !records_[place].owed; });
}

void Ledger::give_up_begun() {
    give_up_if([this](const Record& record) { return !is_whole(record) && is_begun(record); });
}

void Ledger::give_up_missing() {
    give_up_if([this](const Record& record) { return !is_whole(record); });
}

void Ledger::give_up_missing(int archive) {
    give_up_if([this, archive](const Record& record) { return record.archive == archive && !is_whole(record); });
}

void Ledger::give_up_all() {
    give_up_if([](const Record&) { return true; });
}

std::optional<std::string> Ledger::first_missing(std::time_t known_by, const std::function<std::time_t(int)>& oldest) {
    std::map<int, std::time_t> held;
    std::optional<std::string> missing;
    std::erase_if(open_, [&](std::size_t place) {
        Record& record = records_[place];
        if (!held.contains(record.archive)) held[record.archive] = oldest(record.archive);
        if (record.time < held[record.archive]) return true;
        if (record.known_since > known_by) return false;
        if (is_whole(record)) {
            if (!record.kept) ++kept_;
            record.kept = true;
        } else if (!missing) {
            missing = first_missing_line(record);
        }
        return false;
    });
    return missing;
}

std::string Ledger::first_missing_line(const Record& record) const {
    for (const auto& [file, lines] : by_file_) {
        for (const auto& [text, id] : lines) {
            const bool of_record = std::find(record.lines.begin(), record.lines.end(), id) != record.lines.end();
            if (of_record && count_[id] == 0) return file + " " + text;
        }
    }
    return "";
}

}  // namespace faults
