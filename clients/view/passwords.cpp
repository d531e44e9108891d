#include "view/passwords.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <crypt.h>
#include <fmt/format.h>

namespace view {

namespace {

constexpr std::size_t LargestFile = std::size_t{64} * 1024;

int base64_digit(char letter) {
    if (letter >= 'A' && letter <= 'Z') return letter - 'A';
    if (letter >= 'a' && letter <= 'z') return letter - 'a' + 26;
    if (letter >= '0' && letter <= '9') return letter - '0' + 52;
    if (letter == '+') return 62;
    return letter == '/' ? 63 : -1;
}

std::optional<std::string> base64(std::string_view coded) {
    while (coded.ends_with('=')) coded.remove_suffix(1);
    std::string text;
    unsigned bits = 0;
    int count = 0;
    for (const char letter : coded) {
        const int digit = base64_digit(letter);
        if (digit < 0) return std::nullopt;
        bits = bits << 6 | static_cast<unsigned>(digit);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        text += static_cast<char>(bits >> count & 0xFF);
    }
    return text;
}

/// What crypt(3) makes of the password with the hash's own salt; "" when it knows no such hash.
std::string crypted(const std::string& password, const std::string& hash) {
    const auto data = std::make_unique<crypt_data>();
    const char* const made = ::crypt_rn(password.c_str(), hash.c_str(), data.get(), sizeof(crypt_data));
    return made == nullptr ? "" : made;
}

}  // namespace

std::vector<User> parse_passwords(std::string_view text, std::string& fault) {
    std::vector<User> users;
    fault.clear();
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty() || line.starts_with('#')) continue;
        const std::size_t colon = line.find(':');
        if (colon == 0 || colon == std::string_view::npos) {
            fault = fmt::format("line {}: not NAME:HASH", number);
            return {};
        }
        const std::string hash(line.substr(colon + 1));
        const int known = ::crypt_checksalt(hash.c_str());
        if (known != CRYPT_SALT_OK && known != CRYPT_SALT_TOO_CHEAP) {
            fault = fmt::format("line {}: no hash that can be used; `htpasswd -B` makes one", number);
            return {};
        }
        users.push_back({std::string(line.substr(0, colon)), hash});
    }
    if (users.empty()) fault = "no user in it";
    return users;
}

std::optional<Credentials> parse_authorization(std::string_view header) {
    constexpr std::string_view Basic = "basic ";
    const auto is_same = [](char lower, char given) { return lower == (given | 0x20); };
    if (header.size() < Basic.size() || !std::equal(Basic.begin(), Basic.end(), header.begin(), is_same)) {
        return std::nullopt;
    }
    header.remove_prefix(Basic.size());
    while (header.starts_with(' ')) header.remove_prefix(1);
    while (header.ends_with(' ')) header.remove_suffix(1);
    const auto text = base64(header);
    if (!text || text->find('\0') != std::string::npos) return std::nullopt;
    const std::size_t colon = text->find(':');
    if (colon == std::string::npos) return std::nullopt;
    return Credentials{text->substr(0, colon), text->substr(colon + 1)};
}

bool is_equal(std::string_view one, std::string_view other) {
    unsigned difference = one.size() == other.size() ? 0 : 1;
    for (std::size_t i = 0; i < std::min(one.size(), other.size()); ++i) {
        difference |= static_cast<unsigned char>(one[i] ^ other[i]);
    }
    return difference == 0;
}

bool is_right(const std::vector<User>& users, const Credentials& credentials) {
    const User* found = nullptr;
    for (const User& user : users) {
        if (is_equal(user.name, credentials.name)) found = &user;
    }
    if (users.empty()) return false;
    // Of a user who is not there another one's hash is reckoned, so that nobody learns by the time which there are.
    const std::string& hash = (found != nullptr ? *found : users.front()).hash;
    const std::string made = crypted(credentials.password, hash);
    return is_equal(made, hash) && !made.empty() && found != nullptr;
}

std::int64_t Attempts::wait(const std::string& who, std::int64_t now) const {
    const auto found = all.find(who);
    return found == all.end() ? 0 : std::max<std::int64_t>(0, found->second.last + found->second.wait - now);
}

void Attempts::failed(const std::string& who, std::int64_t now) {
    constexpr std::int64_t Forgotten = 600'000;  // milliseconds without a try
    if (all.size() >= MostRemembered && !all.contains(who)) {
        all.erase(std::ranges::min_element(all, {}, [](const auto& entry) { return entry.second.last; }));
    }
    Tries& tries = all[who];
    if (now - tries.last > Forgotten) tries.wait = 0;
    tries.wait = tries.wait == 0 ? first : std::min(longest, 2 * tries.wait);
    tries.last = now;
}

void Attempts::succeeded(const std::string& who) {
    all.erase(who);
}

PasswordFile::PasswordFile(std::string file) : path(std::move(file)) {}

bool PasswordFile::refresh() {
    const auto fail = [this](const std::string& text) {
        what = path + ": " + text;
        all.clear();
        right.clear();
        was_read = false;
        return false;
    };
    struct stat now {};
    if (::stat(path.c_str(), &now) != 0) return fail(std::strerror(errno));
    const bool is_same = was_read && now.st_ino == seen.st_ino && now.st_size == seen.st_size &&
                         now.st_mtim.tv_sec == seen.st_mtim.tv_sec && now.st_mtim.tv_nsec == seen.st_mtim.tv_nsec;
    if (is_same) return true;
    if (!S_ISREG(now.st_mode)) return fail("no file");
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return fail(std::strerror(errno));
    std::string text(LargestFile + 1, '\0');
    const ssize_t size = ::read(fd, text.data(), text.size());
    ::close(fd);
    if (size < 0) return fail(std::strerror(errno));
    if (static_cast<std::size_t>(size) > LargestFile) return fail("larger than 64 KiB");
    text.resize(static_cast<std::size_t>(size));
    std::string fault;
    std::vector<User> users = parse_passwords(text, fault);
    if (!fault.empty()) return fail(fault);
    what.clear();
    all = std::move(users);
    right.clear();
    seen = now;
    was_read = true;
    return true;
}

bool PasswordFile::knows(std::string_view authorization) const {
    bool known = false;
    for (const std::string& header : right) known = is_equal(header, authorization) || known;
    return known;
}

void PasswordFile::remember(std::string_view authorization) {
    constexpr std::size_t Most = 64;
    if (knows(authorization)) return;
    if (right.size() == Most) right.pop_front();
    right.emplace_back(authorization);
}

}  // namespace view
