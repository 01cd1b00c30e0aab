#include <unistd.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "util/common/errors.h"
#include "util/common/hexDump.h"
#include "util/common/log.h"
#include "util/common/poolLock.h"
#include "util/common/pvKey.h"
#include "util/common/scanFileFit.h"
#include "util/common/zsbFile.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/scanEngine.h"

namespace {

/// Closing steps say errno as it is, unlike block transfers: support staff know them so.
int FirstFailure(int status, const char* what, int error) {
    if (error == 0) {
        return status;
    }
    LogLine() << what << std::to_string(error) << '\n';
    return status != 0 ? status : error;
}

/// Logs what of an open file does not fit.
void NoteMisfit(const ZSBFile& file, ScanFileFit& fit) {
    std::string path;
    file.CurrentFullName(path);
    ScanFileHeader_s header{};
    file.CopyZSBHeader(&header);
    const std::optional<std::string> next = NextScanFile(path);
    const bool nextBeside = next && access(next->c_str(), F_OK) == 0;
    const std::string note = fit.Judge(path, file.HeaderStatus(), header, nextBeside);
    if (!note.empty()) {
        LogLine() << note;
    }
}

/// What does not fit is restored all the same, and so is what there is no memory to judge.
void TryToNoteMisfit(const ZSBFile& file, ScanFileFit& fit) {
    try {
        NoteMisfit(file, fit);
    } catch (const std::bad_alloc&) {
        // A note less.
    }
}

}  // namespace

const ScanEngine::Direction ScanEngine::kRestore = {
    .start = "In RunRestoreMain(start)\n",
    .exit = "In RunRestoreMain(exit)\n",
    .access = "write",
    .lockFailure = "Pool state issue:  ",
    .incomplete = "Could not restore complete pool - ",
    .unopenedAt = "util/ostrelscan/scanEngine[728]",
    .unpreparedLoggedAt = "util/ostrelscan/scanEngine[774]",
    .unpreparedAt = "util/ostrelscan/scanEngine[793]",
    .unmadeAt = "util/ostrelscan/scanEngine[811]",
    .incompleteAt = "util/ostrelscan/scanEngine[873]",
    .open = &PoolDevice::OpenForWriting,
    .opened = &ScanEngine::LogRestoreDevice,
    .checkSuperblock = &ScanEngine::CheckSuperblockForRestore,
    .makeFile = &ScanEngine::MakeReader,
    .files = &ScanEngine::RunRestoreAll,
    .closeDevice = &ScanEngine::StoreDevice,
    .closesUnmade = false,
};

int ScanEngine::RunRestoreMain() {
    return RunPass(kRestore,
                   {.device = restoreOptions_->deviceName, .pool = restoreOptions_->poolName});
}

void ScanEngine::LogRestoreDevice() {
    LogLine() << "util/ostrelscan/scanEngine[738]\n";
}

int ScanEngine::CheckSuperblockForRestore() {
    const int status = ValidateSBHSimple();
    if (status != 0) {
        LogLine() << "Validation status - " << std::to_string(status) << '\n';
    }
    return status;
}

std::unique_ptr<ZSBFile> ScanEngine::MakeReader() {
    const std::string poolName = restoreOptions_->poolName;
    return ZSBFile::ForReading(restoreOptions_->path, &poolName);
}

/// Whatever was written reaches the device, also when the restore failed on the way.
int ScanEngine::StoreDevice(int status) {
    status = FirstFailure(status, "Unable to flush data to device - ", device_.Flush());
    status = FirstFailure(status, "Unable to sync data to device - ", device_.Sync());
    return FirstFailure(status, "Unable to close device - ", device_.Close());
}

int ScanEngine::RunRestoreAll(ZSBFile& file) {
    ScanFileFit fit;
    bool last = false;
    int status = 0;
    while (status == 0 && !last) {
        status = RestoreOneFile(file, fit, &last);
    }
    return status;
}

int ScanEngine::RestoreOneFile(ZSBFile& file, ScanFileFit& fit, bool* last) {
    const int openStatus = file.OpenNext(ZSBFile::kOpenAnyZRB);
    history_.LogTrackOpen(file, openStatus);
    if (openStatus != 0) {
        return openStatus;
    }
    TryToNoteMisfit(file, fit);
    history_.LogTrackUpdateBlockCounts(0, file.BlocksInFileGet());
    *last = file.LastFile() != 0;
    const int restoreStatus = RunRestoreRestoreSingleZSBFile(file);
    const int closeStatus = file.OpenNextClose();
    if (closeStatus != 0) {
        history_.LogTrackUpdate(closeStatus);
        return closeStatus;
    }
    return EndFile(restoreStatus, StopRequested());
}

int ScanEngine::RunRestoreRestoreSingleZSBFile(ZSBFile& file) {
    for (;;) {
        const int readStatus = file.QuadAndBlockRead(&record_, nullptr);
        if (readStatus == zERR_END_OF_FILE) {
            LogLine() << "util/ostrelscan/scanEngine[1041]ZRB EOF found\n";
            return 0;
        }
        if (readStatus != 0) {
            return readStatus;
        }
        history_.LogTrackUpdateBlockCounts(1, 0);
        if (selector_->Account(record_.block) == 0) {
            continue;
        }
        const int status = WritePoolBlk(record_.block, record_.blockNumber);
        if (status != 0) {
            LogLine() << "util/ostrelscan/scanEngine[1058] Write error to device during restore"
                      << std::to_string(status) << '\n';
            return status;
        }
    }
}

int ScanEngine::WritePoolBlk(const char* buf, unsigned long long block) {
    const BlockTransfer transfer = device_.Write(buf, block);
    int status = SystemErrorStatus(transfer.systemError);
    unsigned line = 0;
    switch (transfer.outcome) {
        case BlockTransfer::Outcome::Done:
            return 0;
        case BlockTransfer::Outcome::SeekFailed:
            LogLine() << "util/ostrelscan/scanEngine[1438] Seek error on device during restore - "
                      << transfer.systemError
                      << "\nutil/ostrelscan/scanEngine[1439]  Seek was to block - " << block
                      << '\n';
            line = 1441;
            break;
        case BlockTransfer::Outcome::Failed:
            LogLine() << "util/ostrelscan/scanEngine[1452] Write error to device during restore"
                      << transfer.systemError
                      << "\nutil/ostrelscan/scanEngine[1453]  Write was to block - " << block
                      << '\n';
            line = 1454;
            break;
        case BlockTransfer::Outcome::AtEnd:
            status = zERR_END_OF_FILE;
            line = 1462;
            break;
        case BlockTransfer::Outcome::Short:
            status = zSHORT_DEVICE_WRITE;
            line = 1467;
            break;
    }
    TrackWriteErrorStats(kEngineSource, line, status, block);
    return status;
}

int ScanEngine::ComparePoolBlk(const char* buf, unsigned long long block) {
    char onDevice[kPoolBlockSize];
    const int status = ReadAndExaminePoolBlk(onDevice, block);
    if (status != 0) {
        return status;
    }
    if (std::memcmp(buf, onDevice, kPoolBlockSize) != 0) {
        LogLine() << "Block mismatch at " << block << '\n';
        TrackReadErrorStats(kEngineSource, 1507, zERR_SUPERBLOCK_MISMATCH, block);
    } else if (block <= 1) {
        LogLine() << "Block0 Block0 Actual block is " << block << '\n';
        ZED_HexDump(onDevice, kPoolBlockSize, 1);
    }
    return 0;
}
