#include "util/common/zlibStreams.h"

#include <algorithm>
#include <stdexcept>

#include "util/common/log.h"

Deflater::Deflater(int level) {
    const int result = deflateInit(&stream_, level);
    if (result != Z_OK) {
        LogLine() << "deflateInit error: " << result << '\n';
        throw std::invalid_argument("deflateInit is not happy");
    }
    EmptyOutput();
}

Deflater::~Deflater() {
    const int result = deflateEnd(&stream_);
    if (result != Z_OK) {
        LogLine() << "deflateEnd error: " << result << '\n';
    }
}

void Deflater::Offer(std::span<const unsigned char> data) {
    input_ = data;
    stream_.avail_in = 0;
}

int Deflater::Run(int flush) {
    if (stream_.avail_in == 0) {
        const auto piece = input_.first(std::min(input_.size(), kInputPiece));
        stream_.next_in = const_cast<unsigned char*>(piece.data());
        stream_.avail_in = static_cast<uInt>(piece.size());
        input_ = input_.subspan(piece.size());
    }
    return deflate(&stream_, input_.empty() ? flush : Z_NO_FLUSH);
}

std::span<const unsigned char> Deflater::Output() const {
    return {output_.data(), output_.size() - stream_.avail_out};
}

void Deflater::EmptyOutput() {
    stream_.next_out = output_.data();
    stream_.avail_out = static_cast<uInt>(output_.size());
}

int Deflater::HandOver(const Sink& sink) {
    const int status = sink(Output());
    if (status == 0) {
        EmptyOutput();
    }
    return status;
}

int Deflater::Compress(std::span<const unsigned char> data, const Sink& sink) {
    Offer(data);
    for (;;) {
        const int result = Run(Z_NO_FLUSH);
        // A full buffer comes before the result: zlib calls it an error to be run without room.
        if (OutputFull()) {
            const int status = HandOver(sink);
            if (status != 0) {
                return status;
            }
        } else if (result != Z_OK && result != Z_BUF_ERROR) {
            LogLine() << "util/common/zsbFile[323] Deflate error: " << result << '\n';
            return result;
        } else if (InputConsumed()) {
            return 0;
        }
    }
}

int Deflater::Finish(const Sink& sink) {
    for (int result = Z_OK; result != Z_STREAM_END;) {
        result = Run(Z_FINISH);
        if (result != Z_OK && result != Z_STREAM_END) {
            LogLine() << " Deflate should report Z_STREAM_END instead " << result << '\n';
            return result;
        }
        // The last bytes come together with the stream's end.
        const int status = Output().empty() ? 0 : HandOver(sink);
        if (status != 0) {
            return status;
        }
    }
    return 0;
}

int Deflater::Reset() {
    Offer({});
    EmptyOutput();
    return deflateReset(&stream_);
}

Inflater::Inflater() {
    // Without memory for it the stream stays empty, and every run of it is refused.
    inflateInit(&stream_);
}

Inflater::~Inflater() {
    inflateEnd(&stream_);
}

void Inflater::Refilled(std::size_t count) {
    stream_.next_in = input_.data();
    stream_.avail_in = static_cast<uInt>(count);
}

void Inflater::Offer(std::span<unsigned char> room) {
    stream_.next_out = room.data();
    stream_.avail_out = static_cast<uInt>(room.size());
}

int Inflater::Run() {
    const int result = inflate(&stream_, Z_NO_FLUSH);
    ended_ = ended_ || result == Z_STREAM_END;
    return result;
}

void Inflater::Reset() {
    Refilled(0);
    Offer({});
    ended_ = false;
    inflateReset(&stream_);
}
