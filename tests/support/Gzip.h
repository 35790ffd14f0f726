#pragma once

#include <zlib.h>

#include <string>
#include <string_view>

namespace vexim::testing {

/// `text` as zlib compresses it. `window` tells the format, `flush` how it ends.
inline std::string compressed(std::string_view text, int window, int flush) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, window, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&stream, text.size()) + 16, '\0');
    stream.next_in = reinterpret_cast<unsigned char*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<unsigned>(text.size());
    stream.next_out = reinterpret_cast<unsigned char*>(out.data());
    stream.avail_out = static_cast<unsigned>(out.size());
    deflate(&stream, flush);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

inline std::string gzipped(std::string_view text) { return compressed(text, 15 + 16, Z_FINISH); }

/// The payload of a compressed WebSocket message: without the flush's tail (RFC 7692, section
/// 7.2.1).
inline std::string deflated(std::string_view text) {
    std::string out = compressed(text, -15, Z_SYNC_FLUSH);
    out.resize(out.size() - 4);
    return out;
}

}  // namespace vexim::testing
