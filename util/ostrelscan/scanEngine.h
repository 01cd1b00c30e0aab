#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "util/common/guid.h"
#include "util/common/scanFileFormat.h"
#include "util/common/scanFileList.h"
#include "util/ostrelscan/poolDevice.h"
#include "util/ostrelscan/scanOptions.h"

class BlockSelector;
class PoolKey;
class PoolLock;
class ScanFileFit;
class ZSBFile;

/// What the operator thread and the worker of one pass share beyond the engine's own counters.
class ScanThread {
  public:
    ScanThread();
    virtual ~ScanThread() = default;
    ScanThread(const ScanThread&) = delete;
    ScanThread& operator=(const ScanThread&) = delete;

    const std::string& Title() const { return title_; }
    /// The ordinal of this engine in the process, from 0; also its scan files' set number.
    int ThreadId() const { return threadId_; }

    /// Asks the pass to end between two blocks or files. Any thread.
    void RequestStop() { stopRequest_.store(1, std::memory_order_relaxed); }
    /// True once the pass has ended: its result and texts can be read, and the engine destroyed.
    bool Finished() const { return finished_.load(std::memory_order_acquire) != 0; }

    static int ST_ThreadId;  ///< the ordinal of the next engine

  protected:
    bool StopRequested() const { return stopRequest_.load(std::memory_order_relaxed) != 0; }
    void ClearStopRequest() { stopRequest_.store(0, std::memory_order_relaxed); }
    void SetFinished(bool finished) {
        finished_.store(finished ? 1 : 0, std::memory_order_release);
    }

  private:
    int threadId_;
    std::string title_;
    std::atomic<unsigned char> stopRequest_{0};
    std::atomic<unsigned char> finished_{0};
};

struct TrackedError {
    const char* file = nullptr;  ///< the source that reported it
    unsigned line = 0;
    int status = 0;
    std::uint64_t block = 0;
};

/// The errors of one direction: how many, for any thread, and the last one, for the worker's.
struct TrackedErrors {
    /// Up to this one, errors are logged in detail and kept as the last one.
    static constexpr std::uint64_t kDetailed = 999;

    std::atomic<std::uint64_t> count{0};
    TrackedError last;

    /// Counts and logs an error; from the 1000th on, it leaves out the detail and the last error.
    void Track(const char* operation, const char* detail, const TrackedError& error);
};

/// Runs one save or restore pass over a pool's device on a worker thread of its own while the
/// operator thread shows progress.
///
/// The operator thread starts a pass, polls `Finished` and `GetStatistics`, walks `History`, and
/// reads the rest once the pass has finished. Everything from `RunDumpMain` on is the worker's, for
/// as long as a pass runs.
class ScanEngine : public ScanThread {
  public:
    /// `bypass`: the pool is neither locked nor watched. `validate`: the superblock header is
    /// checked before the pass.
    ScanEngine(bool bypass, bool validate);
    /// Lets go of the pool. It does not wait for a worker: never destroy a running engine.
    ~ScanEngine() override;

    /// Start a pass and return at once: 0, `zERR_INVALID_STATE` while one is running, or the error
    /// number of the thread's creation. Selector and options are borrowed until it has finished.
    int RunDump(BlockSelector& selector, const DumpOptions& options);

    int RunRestore(BlockSelector& selector, const RestoreOptions& options);

    /// The current block and the blocks done; the error counts only where asked for. Returns 0.
    int GetStatistics(unsigned long long* current, unsigned long long* done,
                      unsigned long long* readErrors, unsigned long long* writeErrors) const;
    unsigned long long FirstBlock() const { return firstBlock_.load(std::memory_order_relaxed); }
    unsigned long long LastBlock() const { return lastBlock_.load(std::memory_order_relaxed); }
    /// 0 until the device has been measured.
    unsigned long long BlocksInPool() const {
        return blocksInPool_.load(std::memory_order_relaxed);
    }
    ScanFileList& History() { return history_; }

    int Result() const { return result_; }
    const std::string& ErrorMessage() const { return errorMessage_; }
    const std::string& ErrorLocation() const { return errorLocation_; }
    const TrackedErrors& ReadErrors() const { return readErrors_; }
    const TrackedErrors& WriteErrors() const { return writeErrors_; }

    /// The whole save; returns its status, 1 for a failure told by message alone.
    int RunDumpMain();
    int RunDumpAll(ZSBFile& file);
    int RunDumpFillSingleZSBFile2(ZSBFile& file);
    /// The same operation under its older name.
    int RunDumpFillSingleZSBFile(ZSBFile& file) { return RunDumpFillSingleZSBFile2(file); }

    /// The whole restore; returns its status, 1 for a failure told by message alone.
    int RunRestoreMain();
    int RunRestoreAll(ZSBFile& file);
    int RunRestoreRestoreSingleZSBFile(ZSBFile& file);

    /// Writes a block of the open device from `buf` (4096 bytes). A failure is logged and tracked.
    int WritePoolBlk(const char* buf, unsigned long long block);
    /// Compares an image with the device's block. A difference is tracked as a read error; only a
    /// block that `ReadAndExaminePoolBlk` does not deliver gives a status.
    int ComparePoolBlk(const char* buf, unsigned long long block);

    /// Reads a block of the open device into `buf` (4096 bytes).
    int ReadPoolBlk(char* buf, unsigned long long block);
    /// Reads a block and counts it under its type. `zERR_NO_FILES_FOUND` for a block to skip: one
    /// of a type not selected, or one that could not be read, which is tracked.
    int ReadAndExaminePoolBlk(char* buf, unsigned long long block);

    void TrackReadErrorStats(const char* file, unsigned line, int status, unsigned long long block);
    void TrackWriteErrorStats(const char* file, unsigned line, int status,
                              unsigned long long block);

    /// Checks that block 1 is a superblock header: 0, a read failure's status, or
    /// `zERR_SUPERBLOCK_BAD_BLOCK_SIGNATURE`. With a selector the leaf type of the other superblock
    /// format is switched off.
    int ValidateSBHSimple();
    int ValidateSBHSimple(BlockSelector& selector);

  private:
    /// A block of the open device, where the device has put it; null, and tracked, when it cannot
    /// be read.
    const char* ViewPoolBlk(unsigned long long block);
    /// `ReadAndExaminePoolBlk` without a copy: null for a block to skip.
    const char* ExaminePoolBlk(unsigned long long block);

    static void* RunDumpThread(void* engine);
    static void* RunRestoreThread(void* engine);

    int StartWorker(void* (*routine)(void*));
    void FinishPass(int (ScanEngine::*pass)());
    int RunFiles(int (ScanEngine::*files)(ZSBFile&), ZSBFile& file);
    int FailOfException();
    int Fail(int status, std::string message, const char* location);
    void NoteReads();

    static constexpr const char* kEngineSource = "util/ostrelscan/scanEngine";

    /// What differs between the two directions of a pass: the texts and positions that support
    /// staff search for, and the steps.
    struct Direction {
        const char* start;
        const char* exit;
        const char* access;
        const char* lockFailure;
        const char* incomplete;
        const char* unopenedAt;
        const char* unpreparedLoggedAt;
        const char* unpreparedAt;
        const char* unmadeAt;
        const char* incompleteAt;
        int (PoolDevice::*open)(const char* path);
        void (ScanEngine::*opened)();
        int (ScanEngine::*checkSuperblock)();
        std::unique_ptr<ZSBFile> (ScanEngine::*makeFile)();
        int (ScanEngine::*files)(ZSBFile&);
        int (ScanEngine::*closeDevice)(int status);
        bool closesUnmade;  ///< whether the device is closed when the file object cannot be made
    };
    static const Direction kDump;
    static const Direction kRestore;

    struct PassTarget {
        const char* device;
        const char* pool;
    };

    int RunPass(const Direction& way, const PassTarget& target);
    bool OpenDevice(const Direction& way, const char* path);
    bool Prepare(const Direction& way, const char* failed, const std::function<void()>& step);
    void CheckSuperblock(const Direction& way);
    std::unique_ptr<ZSBFile> MakeFile(const Direction& way);

    /// Makes sure of the pool's maintenance state and holds it. Throws what the key and the lock
    /// throw, and std::runtime_error when the pool cannot be held.
    void HoldPool(const char* poolName);
    void ReleasePool();
    bool StateChangeRequested() const;
    int EndFile(int status, bool stopped);

    int ReadSuperblockMagic(std::uint32_t& magic);

    void MeasureDevice();
    int CheckSuperblockForDump();
    std::unique_ptr<ZSBFile> MakeWriter();
    void SetDumpRange();
    int CloseReadDevice(int status);
    int DumpOneFile(ZSBFile& file);
    int CloseDumpFile(ZSBFile& file, int fillStatus);
    int AppendCurrentBlock(ZSBFile& file, const char* block);

    void LogRestoreDevice();
    int CheckSuperblockForRestore();
    std::unique_ptr<ZSBFile> MakeReader();
    int StoreDevice(int status);
    int RestoreOneFile(ZSBFile& file, ScanFileFit& fit, bool* last);

    unsigned long long CurrentBlock() const {
        return currentBlock_.load(std::memory_order_relaxed);
    }
    bool RangeExhausted() const { return CurrentBlock() > LastBlock(); }

    std::atomic<unsigned char> running_{0};
    const bool bypass_;
    const bool validate_;
    PoolDevice device_;
    std::unique_ptr<PoolKey> poolKey_;
    std::unique_ptr<PoolLock> poolLock_;  // watches the key, so it goes first
    std::atomic<std::uint64_t> firstBlock_{0};
    std::atomic<std::uint64_t> lastBlock_{0};
    int result_ = 0;
    std::string errorMessage_ = "Scan engine is still running";
    std::string errorLocation_ = "util/ostrelscan/scanEngine[131]";
    const DumpOptions* dumpOptions_ = nullptr;
    const RestoreOptions* restoreOptions_ = nullptr;
    BlockSelector* selector_ = nullptr;
    std::atomic<std::uint64_t> blocksDone_{0};
    std::atomic<std::uint64_t> currentBlock_{0};
    GUID_t runGUID_{};
    std::atomic<std::uint64_t> blocksInPool_{0};
    bool compress_ = false;
    TrackedErrors readErrors_;
    TrackedErrors writeErrors_;
    std::uint64_t notedOmissions_ = 0;  // of the details of read errors
    ScanFileList history_;
    QuadAndBlock_s record_{};  // the block under examination, ready to be appended
};
