#include <cstring>
#include <memory>
#include <string>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/poolLock.h"
#include "util/common/pvKey.h"
#include "util/common/zsbFile.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/scanEngine.h"

const ScanEngine::Direction ScanEngine::kDump = {
    .start = "In RunDumpMain(start)\n",
    .exit = "In RunDumpMain(exit)\n",
    .access = "read",
    .lockFailure = "Could not lock pool into MAINTENANCE state:  ",
    .incomplete = "Could not complete scan of pool - ",
    .unopenedAt = "util/ostrelscan/scanEngine[440]",
    .unpreparedLoggedAt = "util/ostrelscan/scanEngine[505]",
    .unpreparedAt = "util/ostrelscan/scanEngine[524]",
    .unmadeAt = "util/ostrelscan/scanEngine[557]",
    .incompleteAt = "util/ostrelscan/scanEngine[651]",
    .open = &PoolDevice::OpenForReading,
    .opened = &ScanEngine::MeasureDevice,
    .checkSuperblock = &ScanEngine::CheckSuperblockForDump,
    .makeFile = &ScanEngine::MakeWriter,
    .files = &ScanEngine::RunDumpAll,
    .closeDevice = &ScanEngine::CloseReadDevice,
    .closesUnmade = true,
};

int ScanEngine::RunDumpMain() {
    return RunPass(kDump, {.device = dumpOptions_->deviceName, .pool = dumpOptions_->poolName});
}

void ScanEngine::MeasureDevice() {
    const std::uint64_t blocks = PoolDevice::MeasureBlocks(dumpOptions_->deviceName);
    blocksInPool_.store(blocks, std::memory_order_relaxed);
    LogLine() << "Blocks in pool is " << std::to_string(blocks)
              << "\nutil/ostrelscan/scanEngine[470]\n";
}

int ScanEngine::CheckSuperblockForDump() {
    return ValidateSBHSimple(*selector_);
}

std::unique_ptr<ZSBFile> ScanEngine::MakeWriter() {
    constexpr int kDefaultLevel = -1;
    const std::string poolName = dumpOptions_->poolName;
    compress_ = dumpOptions_->compress;
    auto writer =
        std::make_unique<ZSBFile>(dumpOptions_->path, &poolName, bypass_, &runGUID_, compress_,
                                  ThreadId(), BlocksInPool(), kDefaultLevel, kScanFileSizeLimit);
    SetDumpRange();
    return writer;
}

void ScanEngine::SetDumpRange() {
    const auto last = dumpOptions_->end != 0 ? dumpOptions_->end : BlocksInPool() - 1;
    firstBlock_.store(dumpOptions_->start, std::memory_order_relaxed);
    lastBlock_.store(last, std::memory_order_relaxed);
    currentBlock_.store(dumpOptions_->start, std::memory_order_relaxed);
}

/// Nothing was written: that the device closes with an error changes no save's result.
int ScanEngine::CloseReadDevice(int status) {
    device_.Close();
    return status;
}

int ScanEngine::RunDumpAll(ZSBFile& file) {
    int status = 0;
    while (status == 0 && !RangeExhausted()) {
        status = DumpOneFile(file);
    }
    return status;
}

int ScanEngine::DumpOneFile(ZSBFile& file) {
    const int status = file.CreateNext(true);
    history_.LogTrackCreate(file, status);
    if (status != 0) {
        history_.LogTrackUpdate(status);
        return status;
    }
    history_.LogTrackUpdateBlockCounts(0, file.BlocksInFileEstimateGet());
    return CloseDumpFile(file, RunDumpFillSingleZSBFile2(file));
}

int ScanEngine::CloseDumpFile(ZSBFile& file, int fillStatus) {
    unsigned long crc = ScanFileFacts::kCrcUnknown;
    const bool stopped = StopRequested();
    const int status =
        file.CreateClose(RangeExhausted(), stopped, StateChangeRequested(), false, &crc);
    if (status != 0) {
        history_.LogTrackUpdate(status, crc);
        return status;
    }
    history_.LogTrackUpdate(crc);
    return EndFile(fillStatus, stopped);
}

int ScanEngine::RunDumpFillSingleZSBFile2(ZSBFile& file) {
    while (!RangeExhausted()) {
        const char* selected = ExaminePoolBlk(CurrentBlock());
        if (StopRequested()) {
            return zERR_USER_ABORTED;
        }
        if (StateChangeRequested()) {
            return zERR_VOLUME_STATE_CHANGE_REQUESTED;
        }
        if (selected != nullptr) {
            const int status = AppendCurrentBlock(file, selected);
            if (status != 0) {
                return status;
            }
        }
        currentBlock_.store(CurrentBlock() + 1, std::memory_order_relaxed);
        if (selected != nullptr && file.CreateFull()) {
            return 0;
        }
    }
    return 0;
}

int ScanEngine::AppendCurrentBlock(ZSBFile& file, const char* block) {
    record_.blockNumber = CurrentBlock();
    std::memcpy(record_.block, block, kPoolBlockSize);
    const int status = file.QuadAndBlockWrite(&record_);
    if (status == 0) {
        history_.LogTrackUpdateBlockCounts(1, 0);
        blocksDone_.fetch_add(1, std::memory_order_relaxed);
    }
    return status;
}
