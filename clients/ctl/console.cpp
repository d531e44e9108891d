#include "ctl/console.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "contract/json.h"
#include "contract/moments.h"
#include "contract/plain_text.h"

namespace ctl {

std::string Console::time_text(std::int64_t moment) const {
    return epoch ? std::to_string(moment) : contract::moment_text(moment);
}

Output& Output::operator<<(std::string_view text) {
    constexpr std::size_t Piece = std::size_t{64} * 1024;
    pending += text;
    if (pending.size() >= Piece) flush();
    return *this;
}

Output& Output::operator<<(char letter) {
    pending += letter;
    return *this;
}

void Output::flush() {
    std::string_view rest = pending;
    while (!rest.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw Failure{"nobody takes what is printed", Finding};
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    pending.clear();
}

Table::Table(std::vector<std::string> names, const Console& out) : console(out), headings(std::move(names)) {
    for (std::string& heading : headings) {
        is_right.push_back(heading.starts_with('>'));
        if (is_right.back()) heading.erase(0, 1);
        heading = contract::for_terminal(heading);
        widths.push_back(contract::columns_of(heading));
    }
}

void Table::print_row(const std::vector<std::string>& row, Output& out) const {
    std::size_t blanks = 0;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const std::size_t columns = contract::columns_of(row[i]);
        const std::size_t missing = widths[i] > columns ? widths[i] - columns : 0;
        if (is_right[i]) blanks += missing;
        if (!row[i].empty()) {
            out << std::string(blanks, ' ') << row[i];
            blanks = 0;
        }
        if (!is_right[i]) blanks += missing;
        blanks += 2;
    }
    out << '\n';
}

void Table::print(std::vector<std::vector<std::string>> rows) {
    for (auto& row : rows) {
        for (std::string& cell : row) cell = contract::for_terminal(cell);
    }
    Output out;
    if (!begun) {
        for (const auto& row : rows) {
            for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], contract::columns_of(row[i]));
        }
        if (console.colour) out << "\033[1m";
        print_row(headings, out);
        if (console.colour) out << "\033[0m";
        begun = true;
    }
    for (const auto& row : rows) print_row(row, out);
    out.flush();
}

void print_table(const std::vector<std::string>& headings, const std::vector<std::vector<std::string>>& rows,
                 const Console& console) {
    Table(headings, console).print(rows);
}

void print_json(const Json::Value& value) {
    Output out;
    out << contract::json_line(value) << '\n';
    out.flush();
}

void add_output_options(CLI::App& app, Console& console) {
    app.add_flag("--json", console.json, "JSON instead of text");
    app.add_flag("--epoch", console.epoch, "times as seconds since 1970");
}

}  // namespace ctl
