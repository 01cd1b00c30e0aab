#include "util/ostrelscan/scanEngine.h"

#include <pthread.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/poolLock.h"
#include "util/common/pvKey.h"
#include "util/common/signalMask.h"
#include "util/common/zsbFile.h"
#include "util/ostrelscan/blockSelector.h"

namespace {

constexpr unsigned kStateMaintenance = 3;
constexpr std::uint64_t kSuperblockNumber = 1;

constexpr const char* kPassFailure = "Exception while running a pass:  ";
constexpr const char* kSuperblockFailure = "OSTREL Pool superblock header validation error:  ";
constexpr const char* kBadSuperblock =
    "Pool's superblock did not validate (ensure that the correct device was given)";
constexpr const char* kFileObjectFailure =
    "Exception while attempting to create a ZSBFile Object:  ";

/// For a handler of every exception.
std::string CurrentExceptionText() {
    try {
        throw;
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "of no known type";
    }
}

/// For a handler of every exception. Where not even the log has memory, the status must do.
void LogPassFailure() {
    try {
        LogLine() << kPassFailure << CurrentExceptionText() << '\n';
    } catch (const std::bad_alloc&) {
        LogLine() << kPassFailure << '\n';
    }
}

struct ReadFailure {
    int status;
    unsigned line;
};

ReadFailure DescribeRead(const BlockTransfer& transfer) {
    switch (transfer.outcome) {
        case BlockTransfer::Outcome::Done:
            return {0, 0};
        case BlockTransfer::Outcome::SeekFailed:
            return {SystemErrorStatus(transfer.systemError), 1352};
        case BlockTransfer::Outcome::Failed:
            return {SystemErrorStatus(transfer.systemError), 1366};
        case BlockTransfer::Outcome::AtEnd:
            return {zERR_END_OF_FILE, 1375};
        case BlockTransfer::Outcome::Short:
            break;
    }
    return {zSHORT_DEVICE_READ, 1381};
}

}  // namespace

void TrackedErrors::Track(const char* operation, const char* detail, const TrackedError& error) {
    const std::uint64_t total = count.load(std::memory_order_relaxed) + 1;
    count.store(total, std::memory_order_relaxed);
    LogLine line;
    line << operation;
    if (total > kDetailed) {
        return;
    }
    line << detail << error.file << '[' << std::to_string(error.line) << "]  Block - " << std::hex
         << error.block << " Status - " << error.status << '\n';
    last = error;
}

int ScanThread::ST_ThreadId = 0;

ScanThread::ScanThread() : threadId_(ST_ThreadId++) {
    char title[128] = "";
    std::snprintf(title, sizeof title, "KUVO Pool Scan %03d", threadId_);
    title_ = title;
}

ScanEngine::ScanEngine(bool bypass, bool validate) : bypass_(bypass), validate_(validate) {
    Ostrel::LB_GUIDGenerate(&runGUID_);
}

ScanEngine::~ScanEngine() {
    ReleasePool();
}

int ScanEngine::RunDump(BlockSelector& selector, const DumpOptions& options) {
    if (running_.exchange(1) != 0) {
        return zERR_INVALID_STATE;
    }
    selector_ = &selector;
    dumpOptions_ = &options;
    return StartWorker(RunDumpThread);
}

int ScanEngine::RunRestore(BlockSelector& selector, const RestoreOptions& options) {
    if (running_.exchange(1) != 0) {
        return zERR_INVALID_STATE;
    }
    selector_ = &selector;
    restoreOptions_ = &options;
    return StartWorker(RunRestoreThread);
}

int ScanEngine::StartWorker(void* (*routine)(void*)) {
    SetFinished(false);
    const SignalsHeldOff fromTheWorker;  // and from the bus's thread, which begins there
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, routine, this);
    if (error != 0) {
        running_ = 0;
    }
    return error;
}

void* ScanEngine::RunDumpThread(void* engine) {
    static_cast<ScanEngine*>(engine)->FinishPass(&ScanEngine::RunDumpMain);
    return nullptr;
}

void* ScanEngine::RunRestoreThread(void* engine) {
    static_cast<ScanEngine*>(engine)->FinishPass(&ScanEngine::RunRestoreMain);
    return nullptr;
}

void ScanEngine::FinishPass(int (ScanEngine::*pass)()) {
    int status = 1;
    try {
        status = (this->*pass)();
    } catch (...) {
        ReleasePool();
        LogPassFailure();
        status = FailOfException();
    }
    NoteReads();
    running_ = 0;
    result_ = status;
    // The operator thread may destroy the engine from here on.
    SetFinished(true);
}

/// Runs the loop over a pass's files. Whatever it throws becomes a status, so that the device is
/// stored and closed as behind any other failure.
int ScanEngine::RunFiles(int (ScanEngine::*files)(ZSBFile&), ZSBFile& file) {
    try {
        return (this->*files)(file);
    } catch (...) {
        LogPassFailure();
        return zERR_GENERIC_OSTREL_ERROR;
    }
}

/// For a handler of every exception.
int ScanEngine::FailOfException() {
    constexpr const char* kLocation = "util/ostrelscan/scanEngine[402]";
    try {
        return Fail(1, kPassFailure + CurrentExceptionText() + "\n", kLocation);
    } catch (const std::bad_alloc&) {
        errorMessage_ = "No memory left\n";  // short enough to need none
        return 1;
    }
}

int ScanEngine::Fail(int status, std::string message, const char* location) {
    errorMessage_ = std::move(message);
    errorLocation_ = location;
    return status;
}

/// Both directions of a pass. The pool is held before its superblock is believed, and let go only
/// when no scan file is open any more. The device is closed behind that: storing a restore can take
/// minutes, and a change that is held does not wait for it.
int ScanEngine::RunPass(const Direction& way, const PassTarget& target) {
    LogLine() << way.start;
    if (!OpenDevice(way, target.device)) {
        return 1;
    }
    (this->*way.opened)();
    if (!Prepare(way, way.lockFailure, [&] { HoldPool(target.pool); }) ||
        !Prepare(way, kSuperblockFailure, [&] { CheckSuperblock(way); })) {
        return 1;
    }
    std::unique_ptr<ZSBFile> file = MakeFile(way);
    if (file == nullptr) {
        return 1;
    }
    int status = RunFiles(way.files, *file);
    file.reset();
    ReleasePool();
    status = (this->*way.closeDevice)(status);
    LogLine() << way.exit;
    return status == 0
               ? 0
               : Fail(status, way.incomplete + std::to_string(status) + "\n", way.incompleteAt);
}

bool ScanEngine::OpenDevice(const Direction& way, const char* path) {
    const int error = (device_.*way.open)(path);
    if (error == 0) {
        return true;
    }
    const std::string message = std::string("Unable to open device \"") + path + "\" for " +
                                way.access + " access - " + std::strerror(error) + "\n";
    LogLine() << message;
    Fail(1, message, way.unopenedAt);
    return false;
}

/// One step between the open device and the first file. The device stays open behind a failure; the
/// next pass or the engine's end closes it.
bool ScanEngine::Prepare(const Direction& way, const char* failed,
                         const std::function<void()>& step) {
    try {
        step();
        return true;
    } catch (const std::exception& failure) {
        const std::string message = std::string(failed) + failure.what() + "\n";
        LogLine() << message << way.unpreparedLoggedAt << '\n';
        ReleasePool();
        Fail(1, message, way.unpreparedAt);
        return false;
    }
}

void ScanEngine::CheckSuperblock(const Direction& way) {
    if (validate_ && (this->*way.checkSuperblock)() != 0) {
        throw std::runtime_error(kBadSuperblock);
    }
}

/// Nothing when the file object could not be made.
std::unique_ptr<ZSBFile> ScanEngine::MakeFile(const Direction& way) {
    try {
        return (this->*way.makeFile)();
    } catch (const std::exception& failure) {
        const std::string message = std::string(kFileObjectFailure) + failure.what() + "\n";
        LogLine() << message;
        ReleasePool();
        if (way.closesUnmade) {
            device_.Close();
        }
        Fail(1, message, way.unmadeAt);
        return nullptr;
    }
}

void ScanEngine::HoldPool(const char* poolName) {
    if (bypass_) {
        return;
    }
    poolKey_ = std::make_unique<PoolKey>(poolName);
    poolLock_ = std::make_unique<PoolLock>(poolKey_.get());
    const int status = poolLock_->Lock(kStateMaintenance, true);
    if (status == zERR_POOL_STATE_INCOMPATIBLE) {
        throw std::runtime_error("Pool is not in MAINTENANCE state");
    }
    if (status != 0) {
        throw std::runtime_error("Unable to ensure pool stays in requested state");
    }
}

void ScanEngine::ReleasePool() {
    poolLock_.reset();
    poolKey_.reset();
}

/// What a finished file's status is once a stop or a state change has been asked for; both are
/// answered here. Whoever closes a file as stopped ends it as stopped: the stop may come in
/// between.
int ScanEngine::EndFile(int status, bool stopped) {
    if (stopped) {
        ClearStopRequest();
        status = zERR_USER_ABORTED;
    } else if (StateChangeRequested()) {
        poolLock_->Unlock();
        status = zERR_VOLUME_STATE_CHANGE_REQUESTED;
    }
    history_.LogTrackUpdate(status);
    return status;
}

bool ScanEngine::StateChangeRequested() const {
    return poolLock_ != nullptr && poolLock_->CVSRequired.load(std::memory_order_relaxed);
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
int ScanEngine::GetStatistics(unsigned long long* current, unsigned long long* done,
                              unsigned long long* readErrors,
                              unsigned long long* writeErrors) const {
    *current = CurrentBlock();
    *done = blocksDone_.load(std::memory_order_relaxed);
    if (readErrors != nullptr) {
        *readErrors = readErrors_.count.load(std::memory_order_relaxed);
    }
    if (writeErrors != nullptr) {
        *writeErrors = writeErrors_.count.load(std::memory_order_relaxed);
    }
    return 0;
}

int ScanEngine::ReadPoolBlk(char* buf, unsigned long long block) {
    return DescribeRead(device_.Read(buf, block)).status;
}

const char* ScanEngine::ViewPoolBlk(unsigned long long block) {
    const BlockView view = device_.View(block);
    const ReadFailure failure = DescribeRead(view.transfer);
    if (failure.status != 0) {
        TrackReadErrorStats(kEngineSource, failure.line, failure.status, block);
    }
    return view.bytes;
}

const char* ScanEngine::ExaminePoolBlk(unsigned long long block) {
    const char* bytes = ViewPoolBlk(block);
    return bytes != nullptr && selector_->Account(bytes) != 0 ? bytes : nullptr;
}

int ScanEngine::ReadAndExaminePoolBlk(char* buf, unsigned long long block) {
    const char* bytes = ViewPoolBlk(block);
    if (bytes == nullptr) {
        return zERR_NO_FILES_FOUND;
    }
    std::memcpy(buf, bytes, kPoolBlockSize);
    return selector_->Account(bytes) != 0 ? 0 : zERR_NO_FILES_FOUND;
}

void ScanEngine::TrackReadErrorStats(const char* file, unsigned line, int status,
                                     unsigned long long block) {
    readErrors_.Track("TrackReadErrorStats\n", "  Read error recorded from ",
                      {file, line, status, block});
}

void ScanEngine::TrackWriteErrorStats(const char* file, unsigned line, int status,
                                      unsigned long long block) {
    writeErrors_.Track("TrackWriteErrorStats\n", "  Write error recorded from ",
                       {file, line, status, block});
}

int ScanEngine::ReadSuperblockMagic(std::uint32_t& magic) {
    char block[kPoolBlockSize];
    const int status = ReadPoolBlk(block, kSuperblockNumber);
    if (status != 0) {
        return status;
    }
    magic = ReadBlockWords(block).first;
    const bool known = magic == kMagicSuperblock32 || magic == kMagicSuperblock64;
    return known ? 0 : zERR_SUPERBLOCK_BAD_BLOCK_SIGNATURE;
}

int ScanEngine::ValidateSBHSimple() {
    std::uint32_t magic = 0;
    return ReadSuperblockMagic(magic);
}

int ScanEngine::ValidateSBHSimple(BlockSelector& selector) {
    std::uint32_t magic = 0;
    const int status = ReadSuperblockMagic(magic);
    if (status == 0) {
        // Blocks that look like leaves of the other format are no leaves of this pool.
        selector.SelectOff(magic == kMagicSuperblock32 ? kMagicLeaf64 : kMagicLeaf32);
    }
    return status;
}
