#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace fuzz {

/// Takes an input apart from its front. At its end numbers are 0 and texts are empty.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}

    bool Empty() const { return rest_.empty(); }
    std::string_view Rest() const { return rest_; }

    std::uint8_t Byte() {
        return static_cast<std::uint8_t>(Text(1).empty() ? '\0' : taken_.front());
    }

    /// Up to so many bytes.
    std::string_view Text(std::size_t size) {
        taken_ = rest_.substr(0, size);
        rest_.remove_prefix(taken_.size());
        return taken_;
    }

    /// Up to the next such byte, which is taken too.
    std::string Word(char end) {
        const std::string word(Text(std::min(rest_.find(end), rest_.size())));
        Text(1);
        return word;
    }

    /// The next line, without its end, as a C text has it.
    std::string Line() {
        const std::string line = Word('\n');
        return line.substr(0, line.find('\0'));
    }

  private:
    std::string_view rest_;
    std::string_view taken_;
};

/// A text whose bytes end where its memory does: who reads behind it is found out.
class TightText {
  public:
    explicit TightText(std::string_view text)
        : bytes_(std::make_unique<char[]>(text.size())), size_(text.size()) {
        text.copy(bytes_.get(), size_);
    }

    const char* Begin() const { return bytes_.get(); }
    const char* End() const { return bytes_.get() + size_; }
    std::size_t Size() const { return size_; }
    bool Holds(const char* from, const char* to) const {
        return Begin() <= from && from <= to && to <= End();
    }

  private:
    std::unique_ptr<char[]> bytes_;
    std::size_t size_;
};

}  // namespace fuzz
