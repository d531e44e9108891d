#pragma once
// Who may see the page: a file of users and their hashes, "NAME:HASH" a line, as `htpasswd -B` writes it.

#include <sys/stat.h>

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace view {

struct User {
    std::string name;
    std::string hash;  ///< of crypt(3)
};

/// The users of a password file. What is wrong with it stands in `fault`, with the line's number; then there are none.
std::vector<User> parse_passwords(std::string_view text, std::string& fault);

struct Credentials {
    std::string name;
    std::string password;
};
/// Out of the header "Authorization: Basic ...".
std::optional<Credentials> parse_authorization(std::string_view header);

/// Takes as long as crypt(3) does, also for a user who is not there. No state: any thread may ask.
bool is_right(const std::vector<User>& users, const Credentials& credentials);

/// In a time that depends on the lengths alone.
bool is_equal(std::string_view one, std::string_view other);

/// Wrong passwords: each one of somebody makes the wait until the next try longer, twice as long at most.
class Attempts {
  public:
    static constexpr std::size_t MostRemembered = 1024;

    /// Milliseconds, of the first wait and of the longest.
    Attempts(std::int64_t first_wait, std::int64_t longest_wait) : first(first_wait), longest(longest_wait) {}

    /// Milliseconds until the next try is looked at; 0: now.
    std::int64_t wait(const std::string& who, std::int64_t now) const;
    void failed(const std::string& who, std::int64_t now);
    void succeeded(const std::string& who);

  private:
    struct Tries {
        std::int64_t wait = 0;
        std::int64_t last = 0;
    };
    std::int64_t first;
    std::int64_t longest;
    std::map<std::string, Tries> all;
};

/// The file, read again whenever it has changed, and who was right lately.
class PasswordFile {
  public:
    explicit PasswordFile(std::string path);

    /// Looks whether the file has changed. False, with the fault, when it cannot be used: then nobody comes in.
    bool refresh();
    const std::string& fault() const { return what; }
    const std::vector<User>& users() const { return all; }

    /// This header has been right since the file was changed last.
    bool knows(std::string_view authorization) const;
    void remember(std::string_view authorization);

  private:
    std::string path;
    struct stat seen {};
    bool was_read = false;
    std::string what;
    std::vector<User> all;
    std::deque<std::string> right;
};

}  // namespace view
