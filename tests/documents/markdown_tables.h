#pragma once
// The tables of a document, for tests that hold them against the program.

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

/// A row by the words of its table's head.
using TableRow = std::map<std::string, std::string>;

/// The rows of all tables below the heading `section` ("## Items") and, in it, `part` ("### KM5"), whose first column
/// has the head `first`. An empty `part` takes the whole section.
inline std::vector<TableRow> table_rows(const std::string& path, const std::string& section, const std::string& part,
                                        const std::string& first) {
    const auto cells = [](const std::string& line) {
        std::vector<std::string> all;
        for (std::size_t from = 1, to; (to = line.find('|', from)) != std::string::npos; from = to + 1) {
            const std::string cell = line.substr(from, to - from);
            const std::size_t begin = cell.find_first_not_of(' ');
            all.push_back(begin == std::string::npos ? "" : cell.substr(begin, cell.find_last_not_of(' ') - begin + 1));
        }
        return all;
    };
    std::ifstream file(path);
    std::vector<TableRow> rows;
    std::vector<std::string> head;
    bool in_section = false;
    bool in_part = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("## ")) {
            in_section = line == section;
            in_part = part.empty();
        }
        if (line.starts_with("### ") && !part.empty()) in_part = line == part;
        if (!line.starts_with("|")) {
            head.clear();
        } else if (head.empty()) {
            head = cells(line);
        } else if (in_section && in_part && head[0] == first && !line.starts_with("|--")) {
            const std::vector<std::string> row = cells(line);
            if (row.size() != head.size()) throw std::runtime_error("a row of another width: " + line);
            TableRow& named = rows.emplace_back();
            for (std::size_t i = 0; i < head.size(); ++i) named[head[i]] = row[i];
        }
    }
    return rows;
}

/// The names in a cell: "`A1`, `A17` to `A19`" are four.
inline std::vector<std::string> names_in_cell(const std::string& cell) {
    static const std::regex Names("`([^`]*?)(\\d*)`(?: to `[^`]*?(\\d+)`)?");
    std::vector<std::string> all;
    for (std::sregex_iterator name(cell.begin(), cell.end(), Names), end; name != end; ++name) {
        if (!(*name)[3].matched) {
            all.push_back((*name)[1].str() + (*name)[2].str());
            continue;
        }
        for (int n = std::stoi((*name)[2]); n <= std::stoi((*name)[3]); ++n) {
            all.push_back((*name)[1].str() + std::to_string(n));
        }
    }
    return all;
}

/// The names in a column of these rows.
inline std::set<std::string> names_of(const std::vector<TableRow>& rows, const std::string& column) {
    std::set<std::string> all;
    for (const TableRow& row : rows) {
        for (const std::string& name : names_in_cell(row.at(column))) all.insert(name);
    }
    return all;
}
