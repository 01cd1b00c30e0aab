#include "util/common/log.h"

#include <cstring>
#include <iostream>
#include <new>
#include <utility>

#include "util/common/errors.h"

std::streamsize LogBuffer::xsputn(const char* text, std::streamsize length) {
    const std::lock_guard lock(mutex_);
    return sealed_ ? length : Write(text, length);
}

void LogBuffer::Seal(std::string_view lastWords) {
    const std::lock_guard lock(mutex_);
    if (!sealed_) {
        sealed_ = true;
        Write(lastWords.data(), static_cast<std::streamsize>(lastWords.size()));
    }
}

std::streamsize LogBuffer::Write(const char* text, std::streamsize length) {
    const std::streamsize written = target_.sputn(text, length);
    if (written != length) {
        failed_.store(true, std::memory_order_relaxed);
    }
    Flush();
    return written;
}

int LogBuffer::Flush() {
    const int result = target_.pubsync();
    if (result != 0) {
        failed_.store(true, std::memory_order_relaxed);
    }
    return result;
}

LogBuffer::int_type LogBuffer::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) {
        return traits_type::not_eof(character);
    }
    const char one = traits_type::to_char_type(character);
    return xsputn(&one, 1) == 1 ? character : traits_type::eof();
}

int LogBuffer::sync() {
    const std::lock_guard lock(mutex_);
    return Flush();
}

LogRedirection::LogRedirection(std::streambuf& target)
    : buffer_(target), oldBuffer_(std::cerr.rdbuf(&buffer_)), oldFlags_(std::cerr.flags()) {
    std::cerr << std::hex;
}

LogRedirection::~LogRedirection() {
    std::cerr.rdbuf(oldBuffer_);
    std::cerr.flags(oldFlags_);
}

LogText::int_type LogText::overflow(int_type character) {
    const std::size_t size = Size();
    try {
        std::string larger;
        larger.reserve(2 * size);
        larger.assign(pbase(), size).resize(2 * size);
        longer_ = std::move(larger);
    } catch (const std::bad_alloc&) {
        cut_ = true;
        return traits_type::eof();
    }
    setp(longer_.data(), longer_.data() + longer_.size());
    pbump(static_cast<int>(size));
    return traits_type::eq_int_type(character, traits_type::eof())
               ? traits_type::not_eof(character)
               : sputc(traits_type::to_char_type(character));
}

LogLine::LogLine() : std::ostream(nullptr) {
    rdbuf(&text_);
    setf(std::cerr.flags() & basefield, basefield);
}

LogLine::~LogLine() {
    const std::string_view text = text_.View();
    std::streambuf& log = *std::cerr.rdbuf();
    log.sputn(text.data(), static_cast<std::streamsize>(text.size()));
    log.pubsync();
    if (text_.Cut()) {
        log.sputc('\n');  // what comes next begins a line of its own all the same
        if (auto* buffer = dynamic_cast<LogBuffer*>(&log)) {
            buffer->Lose();
        }
    }
}

void SealLog(std::string_view lastWords) {
    if (auto* log = dynamic_cast<LogBuffer*>(std::cerr.rdbuf())) {
        log->Seal(lastWords);
    }
}

int LogSystemError(const char* what, int error) {
    LogLine() << what << ": " << std::strerror(error) << '\n';
    return SystemErrorStatus(error);
}
