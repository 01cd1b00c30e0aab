#include <stdexcept>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/poolLock.h"
#include "util/common/pvKey.h"
#include "util/common/zsbFile.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/scanEngine.h"

namespace {

constexpr const char* kLockFailure = "Could not lock pool into MAINTENANCE state:  ";

}  // namespace

int ScanEngine::RunDumpMain() {
    LogLine() << "In RunDumpMain(start)\n";
    if (OpenDeviceForDump() != 0) {
        return 1;
    }
    MeasureDevice();
    const char* prefix = kLockFailure;
    try {
        HoldPool(dumpOptions_->poolName);
        prefix = kSuperblockFailure;
        CheckSuperblockForDump();
    } catch (const std::exception& failure) {
        // The device stays open, unlike below; the next pass or the engine's end closes it.
        return FailUnprepared(std::string(prefix) + failure.what(),
                              "util/ostrelscan/scanEngine[505]", "util/ostrelscan/scanEngine[524]");
    }
    std::unique_ptr<ZSBFile> writer;
    try {
        writer = MakeWriter();
    } catch (const std::exception& failure) {
        const std::string message = std::string(kFileObjectFailure) + failure.what() + "\n";
        LogLine() << message;
        ReleasePool();
        device_.Close();
        return Fail(1, message, "util/ostrelscan/scanEngine[557]");
    }
    SetDumpRange();
    const int status = RunFiles(&ScanEngine::RunDumpAll, *writer);
    writer.reset();
    ReleasePool();
    device_.Close();
    LogLine() << "In RunDumpMain(exit)\n";
    return status == 0
               ? 0
               : Fail(status, "Could not complete scan of pool - " + std::to_string(status) + "\n",
                      "util/ostrelscan/scanEngine[651]");
}

int ScanEngine::OpenDeviceForDump() {
    const int error = device_.OpenForReading(dumpOptions_->deviceName);
    return error == 0 ? 0
                      : FailToOpen(dumpOptions_->deviceName, "read", error,
                                   "util/ostrelscan/scanEngine[440]");
}

void ScanEngine::MeasureDevice() {
    const std::uint64_t blocks = PoolDevice::MeasureBlocks(dumpOptions_->deviceName);
    blocksInPool_.store(blocks, std::memory_order_relaxed);
    LogLine() << "Blocks in pool is " << std::to_string(blocks)
              << "\nutil/ostrelscan/scanEngine[470]\n";
}

void ScanEngine::CheckSuperblockForDump() {
    if (validate_ && ValidateSBHSimple(*selector_) != 0) {
        throw std::runtime_error(kBadSuperblock);
    }
}

std::unique_ptr<ZSBFile> ScanEngine::MakeWriter() {
    constexpr int kDefaultLevel = -1;
    const std::string poolName = dumpOptions_->poolName;
    compress_ = dumpOptions_->compress;
    return std::make_unique<ZSBFile>(dumpOptions_->path, &poolName, bypass_, &runGUID_, compress_,
                                     ThreadId(), BlocksInPool(), kDefaultLevel, kScanFileSizeLimit);
}

void ScanEngine::SetDumpRange() {
    const auto last = dumpOptions_->end != 0 ? dumpOptions_->end : BlocksInPool() - 1;
    firstBlock_.store(dumpOptions_->start, std::memory_order_relaxed);
    lastBlock_.store(last, std::memory_order_relaxed);
    currentBlock_.store(dumpOptions_->start, std::memory_order_relaxed);
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
    const int status =
        file.CreateClose(RangeExhausted(), StopRequested(), StateChangeRequested(), false, &crc);
    if (status != 0) {
        history_.LogTrackUpdate(status, crc);
        return status;
    }
    history_.LogTrackUpdate(crc);
    return EndFile(fillStatus);
}

int ScanEngine::RunDumpFillSingleZSBFile2(ZSBFile& file) {
    while (!RangeExhausted()) {
        const bool selected = ReadAndExaminePoolBlk(record_.block, CurrentBlock()) == 0;
        if (StopRequested()) {
            return zERR_USER_ABORTED;
        }
        if (StateChangeRequested()) {
            return zERR_VOLUME_STATE_CHANGE_REQUESTED;
        }
        if (selected) {
            const int status = AppendCurrentBlock(file);
            if (status != 0) {
                return status;
            }
        }
        currentBlock_.store(CurrentBlock() + 1, std::memory_order_relaxed);
        if (selected && file.CreateFull()) {
            return 0;
        }
    }
    return 0;
}

int ScanEngine::AppendCurrentBlock(ZSBFile& file) {
    record_.blockNumber = CurrentBlock();
    const int status = file.QuadAndBlockWrite(&record_);
    if (status == 0) {
        history_.LogTrackUpdateBlockCounts(1, 0);
        blocksDone_.fetch_add(1, std::memory_order_relaxed);
    }
    return status;
}
