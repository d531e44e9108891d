#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

#include "uplink/sink.h"

namespace uplink {

Mailbox::Mailbox() : fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Mailbox::~Mailbox() {
    if (fd >= 0) ::close(fd);
}

void Mailbox::put(Event event) {
    const std::lock_guard lock(mutex);
    events.push_back(std::move(event));
    if (events.size() == 1) ::eventfd_write(fd, 1);
}

std::vector<Event> Mailbox::take() {
    const std::lock_guard lock(mutex);
    eventfd_t count = 0;
    ::eventfd_read(fd, &count);
    return std::exchange(events, {});
}

}  // namespace uplink
