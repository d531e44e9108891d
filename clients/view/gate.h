#pragma once
// Who comes in. Without a password file everybody who reaches the program, which then listens on this machine alone.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "view/answer.h"
#include "view/passwords.h"

namespace view {

class Gate {
  public:
    /// An empty path: no password file.
    explicit Gate(const std::string& password_file);

    bool asks_for_passwords() const { return passwords.has_value(); }
    /// Whether the password file can be used; else why not.
    bool is_usable(std::string& fault);

    struct Decision {
        bool enter = false;
        std::optional<Answer> refusal = std::nullopt;
        /// Neither: whether the password is right has to be found out, which takes long; any thread may do it. Then
        /// `decided` tells what came of it.
        std::function<bool()> find_out = nullptr;
        /// None of them: the same is being found out for another request, and is to be asked again after that.
        bool is_under_way = false;
    };
    /// `authorization`: the header, empty without one. `now`: milliseconds of a clock that nobody sets.
    Decision decide(const std::string& authorization, const std::string& address, std::int64_t now);
    /// The refusal of a wrong password; nothing for a right one.
    std::optional<Answer> decided(const std::string& authorization, const std::string& address, bool is_right,
                                  std::int64_t now);
    /// Nobody has found it out.
    void given_up(const std::string& authorization, const std::string& address);

  private:
    static Answer ask();
    static Answer wait(std::int64_t milliseconds);

    std::optional<PasswordFile> passwords;
    std::map<std::string, std::string> under_way;  // headers by address and user: one guess at a time
    Attempts of_users;                             // from an address for a user
    Attempts of_addresses;                         // for whomever
};

/// Without passwords a name in `Host` that somebody else's name server made point here must not open the page to
/// a browser that shows theirs: an address or "localhost" is what a request to this machine names.
bool is_own_host(std::string_view host);

}  // namespace view
