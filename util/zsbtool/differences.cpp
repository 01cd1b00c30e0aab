#include "util/zsbtool/differences.h"

#include <cerrno>

#include "util/zsbtool/failure.h"

namespace zsbtool {

namespace {

constexpr const char* kWhat = "a temporary file";

}  // namespace

void DifferenceList::Add(const DifferentBlock& block) {
    if (file_ == nullptr) {
        file_.reset(std::tmpfile());
    }
    if (file_ == nullptr || std::fwrite(&block, sizeof block, 1, file_.get()) != 1) {
        throw Failure(kWhat, errno);
    }
    count_ += 1;
}

void DifferenceList::Visit(const std::function<void(const DifferentBlock& block)>& visit) {
    if (file_ == nullptr) {
        return;
    }
    if (std::fflush(file_.get()) != 0 || std::fseek(file_.get(), 0, SEEK_SET) != 0) {
        throw Failure(kWhat, errno);
    }
    DifferentBlock block{};
    for (std::uint64_t i = 0; i < count_; ++i) {
        if (std::fread(&block, sizeof block, 1, file_.get()) != 1) {
            throw Failure(kWhat, errno);
        }
        visit(block);
    }
}

}  // namespace zsbtool
