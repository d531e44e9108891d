#include "view/guests.h"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace view {

Guest* Guests::come(int socket, std::string address, std::int64_t now) {
    Guest& guest = all.emplace_back();
    guest.socket = socket;
    guest.address = std::move(address);
    guest.since = now;
    if (all.size() <= Most) return &guest;
    Guest* longest = nullptr;
    for (Guest& other : all) {
        const bool may_go = other.state == Guest::State::Silent && !other.cut && &other != &guest;
        if (may_go && (longest == nullptr || other.since < longest->since)) longest = &other;
    }
    if (longest != nullptr) cut(*longest);
    return &guest;
}

void Guests::go(const Guest* guest) {
    all.remove_if([guest](const Guest& one) { return &one == guest; });
}

void Guests::change(Guest& guest, Guest::State state, std::int64_t now) {
    guest.state = state;
    guest.since = now;
    guest.sent = 0;
}

std::int64_t Guests::look_round(std::int64_t now) {
    std::int64_t next = -1;
    for (Guest& guest : all) {
        if (guest.cut || guest.state == Guest::State::Listening) continue;
        const std::int64_t end = deadline(guest);
        if (end <= now) {
            cut(guest);
        } else {
            next = next < 0 ? end : std::min(next, end);
        }
    }
    return next;
}

/// The owner of the socket sees its end, and closes it.
void Guests::cut(Guest& guest) {
    guest.cut = true;
    ::shutdown(guest.socket, SHUT_RDWR);
}

std::int64_t Guests::deadline(const Guest& guest) {
    if (guest.state == Guest::State::Silent) return guest.since + Patience;
    return guest.since + Leisure + PerByte * static_cast<std::int64_t>(guest.sent);
}

}  // namespace view
