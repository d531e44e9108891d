#include "view/http.h"

#include <algorithm>
#include <cstring>

namespace view {

namespace {

constexpr std::size_t Block = std::size_t{16} * 1024;

struct Reading {
    std::unique_ptr<Source> source;
    Guest& guest;
    std::string text;
    std::size_t at = 0;
    Source::Piece last = Source::Piece::More;
};

ssize_t read(void* of, std::uint64_t /*at*/, char* into, std::size_t room) {
    auto& reading = *static_cast<Reading*>(of);
    if (reading.at == reading.text.size()) {
        reading.text.clear();
        reading.at = 0;
    }
    while (reading.text.size() - reading.at < room && reading.last == Source::Piece::More) {
        reading.last = reading.source->next(reading.text);
    }
    const std::size_t count = std::min(room, reading.text.size() - reading.at);
    if (count == 0) {
        return reading.last == Source::Piece::Broken ? MHD_CONTENT_READER_END_WITH_ERROR
                                                     : MHD_CONTENT_READER_END_OF_STREAM;
    }
    std::memcpy(into, reading.text.data() + reading.at, count);
    reading.at += count;
    reading.guest.sent += count;
    return static_cast<ssize_t>(count);
}

void forget(void* of) {
    delete static_cast<Reading*>(of);
}

}  // namespace

void add_safety(MHD_Response* response) {
    static constexpr std::pair<const char*, const char*> Headers[] = {
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
         "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; manifest-src 'self'"},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
        {"Referrer-Policy", "no-referrer"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
    };
    for (const auto& [name, value] : Headers) MHD_add_response_header(response, name, value);
}

MHD_Response* response_of(Answer answer, Guest& guest) {
    MHD_Response* response = nullptr;
    if (answer.source) {
        auto* const reading = new Reading{std::move(answer.source), guest, {}};
        response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, Block, read, reading, forget);
        if (response == nullptr) forget(reading);
    } else {
        const bool is_fixed = answer.fixed_body.data() != nullptr;
        const std::string_view body = is_fixed ? answer.fixed_body : std::string_view(answer.body);
        response = MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()),
                                                   is_fixed ? MHD_RESPMEM_PERSISTENT : MHD_RESPMEM_MUST_COPY);
        guest.sent = body.size();
    }
    if (response == nullptr) return nullptr;
    add_safety(response);
    MHD_add_response_header(response, "Content-Type", answer.type.c_str());
    bool has_cache_rule = false;
    for (const auto& [name, value] : answer.headers) {
        MHD_add_response_header(response, name.c_str(), value.c_str());
        has_cache_rule = has_cache_rule || name == "Cache-Control";
    }
    if (!has_cache_rule) MHD_add_response_header(response, "Cache-Control", "no-store");
    return response;
}

}  // namespace view
