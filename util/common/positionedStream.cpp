#include "util/common/positionedStream.h"

#include <unistd.h>

#include <cerrno>

namespace {

/// Adds what one call of the system has read; one that a signal has cut short counts as nothing.
void AddTo(StreamTransfer& transfer, ssize_t count) {
    if (count < 0) {
        transfer.error = errno == EINTR ? 0 : errno;
        return;
    }
    transfer.count += static_cast<std::size_t>(count);
    transfer.ended = count == 0;
}

}  // namespace

int PositionedStream::Open(const char* path, const char* mode, std::size_t bufferSize) {
    stream_.reset();
    return Begin(std::fopen(path, mode), bufferSize);
}

int PositionedStream::Adopt(FileDescriptor file, const char* mode, std::size_t bufferSize) {
    stream_.reset();
    std::FILE* stream = fdopen(file.Get(), mode);
    if (stream != nullptr) {
        file.Release();
    }
    return Begin(stream, bufferSize);
}

int PositionedStream::Begin(std::FILE* stream, std::size_t bufferSize) {
    if (stream == nullptr) {
        return errno;
    }
    stream_.reset(stream);
    if (bufferSize == 0) {
        std::setvbuf(stream, nullptr, _IONBF, 0);
    } else {
        buffer_ = std::make_unique<char[]>(bufferSize);
        std::setvbuf(stream, buffer_.get(), _IOFBF, bufferSize);
    }
    fresh_ = bufferSize != 0;
    position_ = 0;
    direction_ = Direction::None;
    return 0;
}

void PositionedStream::FillFromStart() {
    // The C library seeks inside its buffer only once it knows where the file stands.
    if (fseeko64(stream_.get(), 0, SEEK_SET) == 0) {
        std::getc(stream_.get());
    }
    std::clearerr(stream_.get());
    fresh_ = false;
}

int PositionedStream::SeekTo(std::uint64_t offset) {
    if (!IsOpen()) {
        return EBADF;
    }
    if (position_ == offset) {
        return 0;
    }
    if (fresh_) {
        FillFromStart();
    }
    position_.reset();
    if (fseeko64(stream_.get(), static_cast<off64_t>(offset), SEEK_SET) != 0) {
        return errno;
    }
    position_ = offset;
    direction_ = Direction::None;
    return 0;
}

void PositionedStream::Turn(Direction direction) {
    fresh_ = false;
    if (direction_ != direction && direction_ != Direction::None) {
        fseeko64(stream_.get(), 0, SEEK_CUR);
    }
    direction_ = direction;
}

StreamTransfer PositionedStream::Settle(std::size_t count, std::size_t size) {
    StreamTransfer transfer{.count = count};
    if (count == size) {
        if (position_.has_value()) {
            *position_ += size;
        }
        return transfer;
    }
    if (std::ferror(stream_.get()) != 0) {
        transfer.error = errno;
    } else {
        transfer.ended = std::feof(stream_.get()) != 0;
    }
    // The indicators would outlive the call that they tell of.
    std::clearerr(stream_.get());
    position_.reset();
    return transfer;
}

StreamTransfer PositionedStream::Read(void* bytes, std::size_t size) {
    Turn(Direction::Read);
    return Settle(std::fread(bytes, 1, size, stream_.get()), size);
}

StreamTransfer PositionedStream::Write(const void* bytes, std::size_t size) {
    Turn(Direction::Write);
    // No bytes may have no address either, which the library does not allow.
    return Settle(size == 0 ? 0 : std::fwrite(bytes, 1, size, stream_.get()), size);
}

StreamTransfer PositionedStream::ReadUnits(std::span<char> bytes, std::size_t unit) {
    StreamTransfer transfer;
    do {
        const std::span<char> rest = bytes.subspan(transfer.count);
        const ssize_t count = read(Descriptor(), rest.data(), rest.size());
        AddTo(transfer, count);
    } while (transfer.error == 0 && !transfer.ended &&
             (transfer.count == 0 || transfer.count % unit != 0));
    if (transfer.error == 0 && !transfer.ended && position_.has_value()) {
        *position_ += transfer.count;
    } else {
        position_.reset();
    }
    return transfer;
}

StreamTransfer PositionedStream::ReadPastBuffer(std::uint64_t offset, void* bytes,
                                                std::size_t size) const {
    StreamTransfer transfer;
    while (transfer.count < size && !transfer.ended && transfer.error == 0) {
        const ssize_t count =
            pread64(Descriptor(), static_cast<char*>(bytes) + transfer.count, size - transfer.count,
                    static_cast<off64_t>(offset + transfer.count));
        AddTo(transfer, count);
    }
    return transfer;
}

int PositionedStream::Flush() {
    if (!IsOpen()) {
        return EBADF;  // the library takes no stream for every stream
    }
    if (std::fflush(stream_.get()) == 0) {
        return 0;
    }
    position_.reset();
    return errno;
}

int PositionedStream::Sync() {
    if (!IsOpen()) {
        return EBADF;
    }
    return fsync(Descriptor()) == 0 ? 0 : errno;
}

int PositionedStream::Close() {
    if (!IsOpen()) {
        return EBADF;
    }
    const int status = std::fclose(stream_.release()) == 0 ? 0 : errno;
    buffer_.reset();
    return status;
}
