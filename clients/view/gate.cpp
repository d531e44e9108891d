#include "view/gate.h"

#include <algorithm>

namespace view {

namespace {

constexpr std::int64_t FirstWait = 1'000;     // milliseconds after a wrong password of a user
constexpr std::int64_t LongestWait = 60'000;  // the same at most
constexpr std::int64_t PauseOfAddress = 200;  // between two tries from one address that were wrong

/// Of any name, so much as tells people apart.
std::string key_of(const std::string& address, const Credentials& credentials) {
    constexpr std::size_t LongestName = 64;
    return address + ' ' + credentials.name.substr(0, LongestName);
}

}  // namespace

Gate::Gate(const std::string& password_file)
    : of_users(FirstWait, LongestWait), of_addresses(PauseOfAddress, PauseOfAddress) {
    if (!password_file.empty()) passwords.emplace(password_file);
}

bool Gate::is_usable(std::string& fault) {
    if (!passwords || passwords->refresh()) return true;
    fault = passwords->fault();
    return false;
}

Answer Gate::ask() {
    Answer answer = refusal(401, "a user and a password are wanted");
    answer.headers.emplace_back("WWW-Authenticate", R"(Basic realm="heatmeter-view", charset="UTF-8")");
    return answer;
}

Answer Gate::wait(std::int64_t milliseconds) {
    Answer answer = refusal(429, "wrong passwords have come: wait");
    answer.headers.emplace_back("Retry-After", std::to_string((milliseconds + 999) / 1000));
    return answer;
}

Gate::Decision Gate::decide(const std::string& authorization, const std::string& address, std::int64_t now) {
    if (!passwords) return {.enter = true};
    if (!passwords->refresh()) return {.refusal = refusal(503, "the password file cannot be used")};
    if (!authorization.empty() && passwords->knows(authorization)) return {.enter = true};
    const auto credentials = parse_authorization(authorization);
    if (!credentials) return {.refusal = ask()};
    const std::string user = key_of(address, *credentials);
    const auto other = under_way.find(user);
    if (other != under_way.end()) {
        if (is_equal(other->second, authorization)) return {.is_under_way = true};
        return {.refusal = wait(FirstWait)};
    }
    const std::int64_t longest = std::max(of_users.wait(user, now), of_addresses.wait(address, now));
    if (longest > 0) return {.refusal = wait(longest)};
    under_way[user] = authorization;
    return {.find_out = [users = passwords->users(), given = *credentials] { return is_right(users, given); }};
}

void Gate::given_up(const std::string& authorization, const std::string& address) {
    const auto credentials = parse_authorization(authorization);
    if (credentials) under_way.erase(key_of(address, *credentials));
}

std::optional<Answer> Gate::decided(const std::string& authorization, const std::string& address, bool is_right,
                                    std::int64_t now) {
    const auto credentials = parse_authorization(authorization);
    if (!credentials) return ask();
    const std::string user = key_of(address, *credentials);
    under_way.erase(user);
    if (is_right) {
        of_users.succeeded(user);
        passwords->remember(authorization);
        return std::nullopt;
    }
    of_users.failed(user, now);
    of_addresses.failed(address, now);
    return ask();
}

bool is_own_host(std::string_view host) {
    if (host.empty() || host.starts_with('[')) return true;
    const std::size_t colon = host.rfind(':');
    if (colon != std::string_view::npos) host = host.substr(0, colon);
    if (host.find_first_not_of("0123456789.") == std::string_view::npos) return true;
    return host == "localhost" || host.ends_with(".localhost");
}

}  // namespace view
