#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>

namespace zsbtool {

/// A block that is not the same on both sides.
struct DifferentBlock {
    std::uint64_t block;
    std::uint64_t type;  ///< place in `kBlockTypes`
};

/// Keeps any number of blocks outside of memory, in a file without a name. Throws `Failure` when
/// there is no room for it.
class DifferenceList {
  public:
    void Add(const DifferentBlock& block);
    std::uint64_t Count() const { return count_; }
    /// Shows them in the order in which they were added; none may be added afterwards.
    void Visit(const std::function<void(const DifferentBlock& block)>& visit);

  private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::unique_ptr<std::FILE, Closer> file_;
    std::uint64_t count_ = 0;
};

}  // namespace zsbtool
