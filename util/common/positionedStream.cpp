#include "util/common/positionedStream.h"

#include <unistd.h>

#include <cerrno>

int PositionedStream::Open(const char* path, const char* mode, std::size_t bufferSize) {
    return Begin(std::fopen(path, mode), bufferSize);
}

int PositionedStream::Adopt(FileDescriptor file, const char* mode, std::size_t bufferSize) {
    std::FILE* stream = fdopen(file.Get(), mode);
    if (stream != nullptr) {
        file.Release();
    }
    return Begin(stream, bufferSize);
}

int PositionedStream::Begin(std::FILE* stream, std::size_t bufferSize) {
    stream_.reset(stream);
    if (stream == nullptr) {
        return errno;
    }
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
    if (fseeko64(stream_.get(), 0, SEEK_SET) != 0 || std::getc(stream_.get()) == EOF) {
        ClearIndicators();
    }
    fresh_ = false;
}

int PositionedStream::SeekTo(std::uint64_t offset) {
    if (position_ == offset) {
        return 0;
    }
    if (fresh_) {
        FillFromStart();
    }
    position_ = kUnknown;
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

std::size_t PositionedStream::Read(void* bytes, std::size_t size) {
    Turn(Direction::Read);
    const std::size_t count = std::fread(bytes, 1, size, stream_.get());
    position_ = count == size && position_ != kUnknown ? position_ + count : kUnknown;
    return count;
}

bool PositionedStream::Write(const void* bytes, std::size_t size) {
    Turn(Direction::Write);
    const bool whole = std::fwrite(bytes, 1, size, stream_.get()) == size;
    position_ = whole && position_ != kUnknown ? position_ + size : kUnknown;
    return whole;
}

int PositionedStream::Flush() {
    if (std::fflush(stream_.get()) == 0) {
        return 0;
    }
    position_ = kUnknown;
    return errno;
}

int PositionedStream::Sync() {
    return fsync(Descriptor()) == 0 ? 0 : errno;
}

int PositionedStream::Close() {
    const int status = std::fclose(stream_.release()) == 0 ? 0 : errno;
    buffer_.reset();
    return status;
}
