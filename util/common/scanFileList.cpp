#include "util/common/scanFileList.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <ostream>
#include <string_view>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/zsbFile.h"

ScanFileFacts SFF_Unreferenced("Unreferenced", -1);

namespace {

/// A number as decimal text whatever a stream's base. It needs no memory: the history is logged at
/// the end of a run that may have none left.
class Decimal {
  public:
    template <typename Number>
    explicit Decimal(Number number)
        : end_(std::to_chars(text_, text_ + sizeof text_, number).ptr) {}

    std::string_view View() const { return {text_, end_}; }

  private:
    char text_[20];  // 2^64 - 1
    char* end_;
};

/// A file that could not even be named is entered without one.
std::string NameOf(const ZSBFile& file) {
    std::string name;
    if (file.HasName()) {
        file.CurrentFullName(name);
    }
    return name;
}

}  // namespace

bool ScanFileFacts::Valid() const {
    return this != &SFF_Unreferenced;
}

void ScanFileFacts::UpdateCRC(unsigned long newCrc) {
    crc.store(newCrc, std::memory_order_relaxed);
}

void ScanFileFacts::UpdateBlocksTotal(int count) {
    blocksTotal.fetch_add(static_cast<std::uint64_t>(count), std::memory_order_relaxed);
}

void ScanFileFacts::UpdateBlocksCurrent(int count) {
    blocksCurrent.fetch_add(static_cast<std::uint64_t>(count), std::memory_order_relaxed);
}

void ScanFileFacts::UpdateStatus(int newStatus) {
    status.store(newStatus, std::memory_order_relaxed);
}

std::ostream& operator<<(std::ostream& stream, const ScanFileFacts& facts) {
    // As text, so that the stream's number base is neither used nor changed.
    return stream << facts.name << '\t'
                  << Decimal(facts.status.load(std::memory_order_relaxed)).View() << '\t'
                  << Decimal(facts.crc.load(std::memory_order_relaxed)).View() << '\t'
                  << Decimal(facts.blocksTotal.load(std::memory_order_relaxed)).View() << '\t'
                  << Decimal(facts.blocksCurrent.load(std::memory_order_relaxed)).View();
}

void ScanFileList::LogTrackCreate(const ZSBFile& file, int status) {
    files_.Append(NameOf(file), status == 0 ? zFILE_BEING_WRITTEN : status);
}

void ScanFileList::LogTrackOpen(const ZSBFile& file, int status) {
    files_.Append(NameOf(file), status);
}

void ScanFileList::LogTrackUpdate(unsigned long crc) {
    ScanFileFactsLast().UpdateCRC(crc);
}

void ScanFileList::LogTrackUpdate(int status, unsigned long crc) {
    LogTrackUpdate(status);
    LogTrackUpdate(crc);
}

void ScanFileList::LogTrackUpdate(int status) {
    ScanFileFactsLast().UpdateStatus(status);
}

void ScanFileList::LogTrackUpdateBlockCounts(unsigned long long current, unsigned long long total) {
    ScanFileFacts& last = ScanFileFactsLast();
    last.blocksCurrent.fetch_add(current, std::memory_order_relaxed);
    last.blocksTotal.fetch_add(total, std::memory_order_relaxed);
}

ScanFileFacts& ScanFileList::ScanFileFactsLast() {
    const std::size_t count = files_.Size();
    return count > 0 ? files_[count - 1] : SFF_Unreferenced;
}

SFL_Key* ScanFileList::EnumerateOpen(int mode) const {
    auto key = std::make_unique<SFL_Key>(KeyAtNewest(mode));
    return key.release();
}

ScanFileFacts& ScanFileList::Enumerate(SFL_Key* key) {
    key->index = std::min(key->index, static_cast<int>(files_.Size()) - 1);
    if (key->index < 0) {
        return SFF_Unreferenced;
    }
    return files_[static_cast<std::size_t>(key->index--)];
}

void ScanFileList::EnumerateClose(SFL_Key* key) const {
    const std::unique_ptr<SFL_Key> closed(key);
}

void ScanFileList::DumpScanHistory() const {
    LogLine history;
    history << "\nCurrent Scan File History:\n";
    for (std::size_t index = 0; index < files_.Size(); ++index) {
        history << files_[index] << '\n';
    }
    history << '\n';
}
