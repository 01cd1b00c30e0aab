#pragma once

#include <zlib.h>

#include <optional>
#include <string>
#include <string_view>

namespace support {

/// The content of one complete zlib stream; nothing when the bytes are not exactly that.
inline std::optional<std::string> Inflated(std::string_view bytes) {
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK) {
        return {};
    }
    std::string input(bytes);
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    std::string content;
    std::string piece(65'536, '\0');
    int result = Z_OK;
    while (result == Z_OK) {
        stream.next_out = reinterpret_cast<Bytef*>(piece.data());
        stream.avail_out = static_cast<uInt>(piece.size());
        result = inflate(&stream, Z_NO_FLUSH);
        content.append(piece, 0, piece.size() - stream.avail_out);
    }
    const bool whole = result == Z_STREAM_END && stream.avail_in == 0;
    inflateEnd(&stream);
    return whole ? std::optional(content) : std::nullopt;
}

}  // namespace support
