#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace sim {

/// One open file of the mounted tree. Reads and writes give the number of bytes or a negative
/// errno, and may come on any thread.
class OpenFile {
  public:
    OpenFile() = default;
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    virtual ~OpenFile() = default;

    /// Fills the buffer as far as there is something at `offset`; 0 at the end.
    virtual int Read(std::span<char> buffer, std::uint64_t offset) = 0;
    virtual int Write(std::string_view bytes, std::uint64_t offset) = 0;
    /// Makes what was written durable; 0 or a negative errno.
    virtual int Sync() { return 0; }

    /// Somebody closes a descriptor of the file, and waits for it; others may be open.
    virtual void Flush() {}

    /// The size in bytes of what answers a block device's size request; nothing for other files.
    virtual std::optional<std::uint64_t> DeviceSize() const { return std::nullopt; }
};

/// Copies the part of `text` that starts at `offset` into `buffer`; 0 at its end and behind it.
int ReadFromText(std::string_view text, std::span<char> buffer, std::uint64_t offset);

/// A file with a fixed text that cannot be written.
class TextFile : public OpenFile {
  public:
    /// A file that holds `text`.
    explicit TextFile(std::string text) : text_(std::move(text)) {}

    int Read(std::span<char> buffer, std::uint64_t offset) override {
        return ReadFromText(text_, buffer, offset);
    }
    int Write(std::string_view bytes, std::uint64_t offset) override;

  private:
    std::string text_;
};

}  // namespace sim
