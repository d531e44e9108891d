#include "contract/gzip.h"

#include <zlib.h>

namespace contract {

namespace {

constexpr int GzipWindow = 15 + 16;  // 32 KiB, in zlib's words for this format
constexpr int MemoryLevel = 8;       // 256 KiB while it works

// zlib takes its input as something that it could write to.
Bytef* bytes_of(std::string_view text) {
    return reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
}

}  // namespace

std::string gzip(std::string_view text) {
    z_stream stream{};
    if (::deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, GzipWindow, MemoryLevel, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        return {};
    }
    std::string packed(::deflateBound(&stream, text.size()), '\0');
    stream.next_in = bytes_of(text);
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = bytes_of(packed);
    stream.avail_out = static_cast<uInt>(packed.size());
    const bool is_whole = ::deflate(&stream, Z_FINISH) == Z_STREAM_END;
    packed.resize(is_whole ? stream.total_out : 0);
    ::deflateEnd(&stream);
    return packed;
}

std::optional<std::string> gunzip(std::string_view packed, std::size_t most) {
    z_stream stream{};
    if (::inflateInit2(&stream, GzipWindow) != Z_OK) return std::nullopt;
    std::string text(most + 1, '\0');
    stream.next_in = bytes_of(packed);
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = bytes_of(text);
    stream.avail_out = static_cast<uInt>(text.size());
    const bool is_whole = ::inflate(&stream, Z_FINISH) == Z_STREAM_END && stream.avail_in == 0;
    text.resize(stream.total_out);
    ::inflateEnd(&stream);
    if (!is_whole || text.size() > most) return std::nullopt;
    return text;
}

}  // namespace contract
