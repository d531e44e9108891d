#include "view/streams.h"

#include <algorithm>
#include <cstring>

#include <microhttpd.h>

namespace view {

Streams::Stream* Streams::open(MHD_Connection* connection, const std::string& greeting) {
    if (all.size() >= Most) return nullptr;
    return &all.emplace_back(Stream{this, connection, greeting, broadcast.newest()});
}

void Streams::close(Stream* stream) {
    all.remove_if([stream](const Stream& one) { return &one == stream; });
}

void Streams::tell(std::string_view event, std::string_view data) {
    if (all.empty()) return;
    broadcast.tell(event, data);
    wake();
}

void Streams::finish() {
    over = true;
    wake();
}

void Streams::wake() {
    for (Stream& stream : all) {
        if (!stream.waits) continue;
        stream.waits = false;
        has_woken = true;
        MHD_resume_connection(stream.connection);
    }
}

ssize_t Streams::read(void* of, std::uint64_t /*at*/, char* into, std::size_t room) {
    auto& stream = *static_cast<Stream*>(of);
    const Streams& streams = *stream.all;
    if (streams.over) return MHD_CONTENT_READER_END_OF_STREAM;
    if (streams.broadcast.has_lost(stream.place)) return MHD_CONTENT_READER_END_WITH_ERROR;
    if (!stream.greeting.empty()) {
        const std::size_t count = std::min(room, stream.greeting.size());
        std::memcpy(into, stream.greeting.data(), count);
        stream.greeting.erase(0, count);
        return static_cast<ssize_t>(count);
    }
    const std::string_view piece = streams.broadcast.take(stream.place, room);
    if (piece.empty()) {
        stream.waits = true;
        MHD_suspend_connection(stream.connection);
        return 0;
    }
    std::memcpy(into, piece.data(), piece.size());
    return static_cast<ssize_t>(piece.size());
}

}  // namespace view
