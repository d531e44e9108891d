#pragma once
// What the commands share: where they look, how they print, how they end.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

namespace Json {
class Value;
}

namespace ctl {

constexpr int Done = 0;
constexpr int Finding = 1;  ///< something was found, or went wrong
constexpr int Usage = 2;    ///< wrong usage

/// Every command's `--epoch`, and what is known of standard output.
struct Console {
    bool epoch = false;  ///< times as seconds since the epoch
    bool json = false;
    bool terminal = false;  ///< standard output is one
    bool colour = false;    ///< a terminal, and NO_COLOR is not set
    std::int64_t now = 0;   ///< of the gateway's clock, when the program was started

    std::string time_text(std::int64_t moment) const;
};

/// A command puts its options into its sub-command and says what to run; its result is the exit status.
struct Command {
    CLI::App* app = nullptr;
    std::function<int()> run;
};
using Commands = std::vector<Command>;

/// Ends a command with one line on standard error, "heatmeterctl: TEXT", and this exit status.
struct Failure {
    std::string text;
    int status = Finding;
};

/// Text for standard output, written in large pieces; `flush` is the last call. Ends the command when nobody takes it.
class Output {
  public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    Output& operator<<(std::string_view text);
    Output& operator<<(char letter);
    void flush();

  private:
    std::string pending;
};

/// Columns below one another; a heading that begins with ">" is of a column of numbers. Cells are made fit for a
/// terminal. The first call sees how wide a column must be.
class Table {
  public:
    Table(std::vector<std::string> headings, const Console& console);
    void print(std::vector<std::vector<std::string>> rows);

  private:
    void print_row(const std::vector<std::string>& row, Output& out) const;

    const Console& console;
    std::vector<std::string> headings;
    std::vector<bool> is_right;
    std::vector<std::size_t> widths;
    bool begun = false;
};
void print_table(const std::vector<std::string>& headings, const std::vector<std::vector<std::string>>& rows,
                 const Console& console);
/// In one line of ASCII: nothing in it acts on a terminal.
void print_json(const Json::Value& value);

/// Adds `--json` and `--epoch` to a command.
void add_output_options(CLI::App& app, Console& console);

}  // namespace ctl
