#include "faults/ledger.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace faults {

namespace {

/// As a reader sees it: a time, a quality and a number, however much of that is missing at its end.
bool reads_as_line(const std::string& piece) {
    long time = 0;
    int quality = 0;
    double value = 0.0;
    return std::sscanf(piece.c_str(), "%ld,%d,%lf", &time, &quality, &value) == 3;
}

}  // namespace

void Ledger::add(YearRecord record, std::time_t known_since) {
    Record result{record.archive, record.time, known_since, record.promised, false, false, {}};
    for (YearLine& line : record.lines) {
        if (line.tells_progress) files_[record.archive].insert(line.file);
        const auto [place, is_new] = by_file_[line.file].try_emplace(std::move(line.text), lines_.size());
        if (is_new) lines_.push_back({.tells_progress = line.tells_progress, .record = records_.size()});
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

void Ledger::torn(const std::string& file, const std::string& piece) {
    const auto lines = by_file_.find(file);
    if (lines == by_file_.end() || !reads_as_line(piece)) return;
    for (auto line = lines->second.lower_bound(piece); line != lines->second.end(); ++line) {
        if (!line->first.starts_with(piece)) return;
        lines_[line->second].torn = true;
    }
}

void Ledger::emptied(const std::string& file) {
    for (const auto& [text, line] : by_file_[file]) lines_[line].torn = false;
}

std::optional<std::string> Ledger::next_line(const std::string& file) const {
    const auto lines = by_file_.find(file);
    if (lines == by_file_.end()) return std::nullopt;
    std::optional<std::string> next;
    for (auto line = lines->second.rbegin(); line != lines->second.rend(); ++line) {
        if (count(line->second) > 0) break;
        next = line->first;
    }
    return next;
}

bool Ledger::is_whole(const Record& record) const {
    return std::all_of(record.lines.begin(), record.lines.end(), [this](LineId line) { return count(line) > 0; });
}

bool Ledger::is_begun(const Record& record) const {
    return std::any_of(record.lines.begin(), record.lines.end(),
                       [this](LineId line) { return is_there(lines_[line]); });
}

std::optional<Ledger::LineId> Ledger::newest_in_file(const FileLines& lines) const {
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (is_there(lines_[line->second])) return line->second;
    }
    return std::nullopt;
}

bool Ledger::files_agree(int archive) const {
    const auto files = files_.find(archive);
    if (files == files_.end()) return true;
    std::string newest;
    for (const std::string& file : files->second) {
        const FileLines& lines = by_file_.at(file);
        const auto last = newest_in_file(lines);
        if (!last) continue;  // an empty file disagrees with none
        const auto is_last = [&](const auto& line) { return line.second == *last; };
        const std::string& text = std::find_if(lines.rbegin(), lines.rend(), is_last)->first;
        const std::string time = text.substr(0, text.find(','));
        if (!newest.empty() && time != newest) return false;
        newest = time;
    }
    return true;
}

std::time_t Ledger::newest_in_files(int archive) const {
    const auto files = files_.find(archive);
    std::time_t newest = 0;
    if (files == files_.end()) return newest;
    for (const std::string& file : files->second) {
        const auto last = newest_in_file(by_file_.at(file));
        if (last) newest = std::max(newest, records_[lines_[*last].record].time);
    }
    return newest;
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

void Ledger::doubt_missing(const std::function<std::time_t(int)>& asked) {
    std::map<int, std::time_t> latest;
    for (const std::size_t place : open_) {
        Record& record = records_[place];
        if (!latest.contains(record.archive)) latest[record.archive] = asked(record.archive);
        if (record.time <= latest[record.archive] && !is_whole(record)) record.in_doubt = true;
    }
}

void Ledger::process_is_gone(bool throws_away) {
    std::map<int, std::time_t> newest;
    for (const auto& [archive, files] : files_) {
        newest[archive] = throws_away && !files_agree(archive) ? 0 : newest_in_files(archive);
    }
    give_up_if([&](Record& record) {
        const bool has_reason = record.in_doubt || is_begun(record);
        record.in_doubt = false;
        return has_reason && !is_whole(record) && record.time <= newest[record.archive];
    });
}

void Ledger::give_up_doubtful() {
    give_up_if([this](const Record& record) { return record.in_doubt && !is_whole(record); });
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
            record.in_doubt = false;
        } else if (!missing && !record.in_doubt) {
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
            if (of_record && count(id) == 0) return file + " " + text;
        }
    }
    return "";
}

}  // namespace faults
