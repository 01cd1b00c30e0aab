#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "util/common/scanFileList.h"
#include "util/ostrelscan/signalWatch.h"

class BlockSelector;
class ScanEngine;
class ScreenInterface;
struct DumpOptions;
struct RestoreOptions;
struct RunSettings;

/// A line of the table of block types, of a type that is taken or skipped: name and count.
extern const char* const SCAN_ColumnFormat;
extern const char* const SCAN_ColumnFormatSkip;

/// The status of a run whose dialogue failed with this.
int StatusOf(const std::exception& failure);

/// The operator dialogue of one run: starts the engine, repaints a full screen ten times a second
/// while it works, and writes the run's summary into the log. Used by the operator thread.
class UserInterface {
  public:
    /// `automatic`: no questions and no pauses. `signals` end the run before its time; null where
    /// nobody watches them. Takes the terminal; throws std::runtime_error when it cannot be had.
    explicit UserInterface(bool automatic, SignalWatch* signals = nullptr);
    ~UserInterface();
    UserInterface(const UserInterface&) = delete;
    UserInterface& operator=(const UserInterface&) = delete;

    /// Runs a save; returns 0 or the engine's status, or that of a screen that could not be painted
    /// while the engine worked.
    unsigned RunDump(const RunSettings& settings);
    /// The same, by its settings' names. `path` ends in "/"; `allBlocks` takes the "User" blocks
    /// too.
    unsigned RunDump(const char* path, const char* device, const char* poolName, bool allBlocks,
                     bool compress, bool bypass, bool validate);

    /// Runs a restore once the operator has agreed to it; returns 0, `zERR_BAD_PARAMETER_VALUE`
    /// when it was refused, or as `RunDump`.
    unsigned RunRestore(const RunSettings& settings);
    unsigned RunRestore(const char* path, const char* device, const char* poolName, bool allBlocks,
                        bool bypass, bool validate);

    /// Warns and asks for consent, then checks the scan files. Nothing of the pool is touched.
    bool RESTORE_Validate_Operation(const RestoreOptions& options);
    /// Whether the first scan file can be read and is one of the target pool, or the operator wants
    /// it all the same.
    bool RESTORE_Validate_File(const RestoreOptions& options);

    /// The first line of the screen; `blocks` is 0 until the device has been measured.
    void DisplayHeaderRestore(const char* poolName, const char* path);
    void DisplayHeaderDump(unsigned long long blocks, const char* poolName, const char* path,
                           bool compress);
    /// The progress line and the error counts. `total` is the range's number of blocks.
    void DisplayProgress(unsigned long long total, unsigned long long current,
                         unsigned long long done, unsigned long long readErrors,
                         unsigned long long writeErrors, bool final);
    /// The table of block types: three columns, filled one after the other.
    void DisplayCounts(BlockSelector* selector);
    /// Where entry `index` of the table stands.
    static void GetAbsoluteSBLocation(const BlockSelector* selector, int index, int* row,
                                      int* column);

    /// The last scan files, the newest at the bottom; mode 0 is a dump, 1 a restore.
    void DisplaySFL(ScanFileList& list, int mode);
    void DisplaySFF(const ScanFileFacts& facts, int mode);
    void DisplaySFFDump(const ScanFileFacts& facts);
    void DisplaySFFRestore(const ScanFileFacts& facts);

    /// Shows and logs an error that ends the run, and pauses. It returns to its caller.
    void FatalError(int code, const std::string& text, const char* where);
    /// Waits for a character of standard input unless the run is automatic or a signal has ended
    /// it.
    void LetUserView();
    /// Pauses nowhere: a place for a pause that no dialogue wants.
    void LetUserRead() {}

  private:
    void DisplayErrorCount(const char* what, unsigned long long count, int column);
    void DisplayFileState(const ScanFileFacts& facts, bool good);
    void DisplayDumpState(ScanEngine& engine, BlockSelector& selector, bool final);
    void WatchDump(ScanEngine& engine, BlockSelector& selector, const DumpOptions& options);
    void WatchRestore(ScanEngine& engine, BlockSelector& selector);
    /// Repaints with `show`, a reference so that nothing of this throws, until the pass has
    /// finished, and once more then, with true.
    void Watch(const ScanEngine& engine, const std::function<void(bool)>& show);
    void NoteUnpainted(const std::exception& failure);
    /// Logs the history of a finished pass, shows and logs its failure, and pauses; returns its
    /// result. `position` leads the failure in the log.
    int Report(ScanEngine& engine, const char* position);
    bool ReadPoolName(const char* path, std::string* poolName);
    bool AskToRestore();

    /// Whether a signal has asked the run to end.
    bool Stopped() const { return signals_ != nullptr && signals_->Taken(); }

    SignalWatch* signals_;
    TerminalHold terminal_;
    std::unique_ptr<ScreenInterface> screen_;  // ends before the terminal is let go
    bool automatic_;
    int unpainted_ = 0;  // the status of the first repaint that failed
};
