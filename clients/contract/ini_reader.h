#pragma once
// A keeper's settings: an INI file, read by inih, of which each wrong line is told with its number.

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace contract {

/// Without blanks at both ends.
std::string_view trimmed(std::string_view text);
/// Foreign text for a message.
std::string shown(std::string_view text);

/// Knows what the lines of one kind of file mean; reads one file.
class IniReader {
  public:
    static constexpr std::size_t LongestFile = std::size_t{64} * 1024;

    /// What is wrong, by line. `line`: what each other line has to be, such as "NAME = value".
    std::multimap<int, std::string> read(std::string_view text, std::string_view line);

  protected:
    ~IniReader() = default;

    /// A line that begins with `[`: the name of its section; empty when it is wrong, and told.
    virtual std::string section(std::string_view line) = 0;
    /// Below a wrong section, and above the first one, the section is empty.
    virtual void take(const std::string& section, const std::string& name, const std::string& value) = 0;

    void problem(const std::string& what) { wrong.emplace(number, what); }
    bool is_well() const { return wrong.empty(); }
    int line() const { return number; }

  private:
    friend struct IniCallbacks;

    std::string text_of(std::string_view line, std::size_t most);

    std::string_view rest;
    int number = 0;
    std::multimap<int, std::string> wrong;
};

/// "FILE:LINE: what is wrong", in the order of the lines.
std::vector<std::string> problems_of(const std::string& file, const std::multimap<int, std::string>& wrong);

}  // namespace contract
