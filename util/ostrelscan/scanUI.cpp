#include "util/ostrelscan/scanUI.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <new>
#include <stdexcept>

#include "util/common/clock.h"
#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/progress.h"
#include "util/ostrelscan/runSettings.h"
#include "util/ostrelscan/scanEngine.h"
#include "util/ostrelscan/screenInterface.h"
#include "util/ostrelscan/screenLayout.h"

// "L" is this system's older word for "ll", and these texts keep it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
const char* const SCAN_ColumnFormat = "%14s + %8Ld\n";
const char* const SCAN_ColumnFormatSkip = "%14s - %8Ld\n";
#pragma GCC diagnostic pop

namespace {

/// The progress display's clock, one for the process.
std::time_t progressStart = 0;
std::time_t progressLatest = 0;

/// Whole seconds since the first call. A clock that was set back counts as standing still.
unsigned ElapsedSeconds() {
    const std::time_t now = std::time(nullptr);
    if (progressStart == 0) {
        progressStart = now;
    }
    progressLatest = now;
    return static_cast<unsigned>(std::max(std::difftime(now, progressStart), 0.0));
}

}  // namespace

int StatusOf(const std::exception& failure) {
    const bool noMemory = dynamic_cast<const std::bad_alloc*>(&failure) != nullptr;
    return noMemory ? zERR_NO_MEMORY : zERR_GENERIC_OSTREL_ERROR;
}

UserInterface::UserInterface(bool automatic, SignalWatch* signals)
    : signals_(signals), terminal_(signals, [this] { screen_.reset(); }), automatic_(automatic) {
    try {
        const KeptInterrupts kept;
        screen_ = std::make_unique<ScreenInterface>();
    } catch (const std::runtime_error&) {
        throw std::runtime_error("Could not access SCAN screen via ScreenInterface");
    }
    if (signals_ != nullptr) {
        screen_->EndWaitsAt(signals_->Descriptor(), terminal_.Turn());
    }
}

UserInterface::~UserInterface() {
    if (screen_ != nullptr) {
        LogLine() << "deleting the UI_ScreenID object\n";
    }
}

unsigned UserInterface::RunDump(const char* path, const char* device, const char* poolName,
                                bool allBlocks, bool compress, bool bypass, bool validate) {
    return RunDump({.path = path,
                    .allBlocks = allBlocks,
                    .bypass = bypass,
                    .compress = compress,
                    .validate = validate,
                    .poolName = poolName,
                    .device = device});
}

unsigned UserInterface::RunDump(const RunSettings& settings) {
    const DumpOptions options(0, 0, settings.compress, settings.device, settings.poolName,
                              settings.path.c_str(), true);
    LogLine() << options << '\n';
    DisplayHeaderDump(0, options.poolName, options.path, options.compress);
    BlockSelector selector;
    if (!settings.allBlocks) {
        selector.SelectOff(kBlockTypes[kUserType].magic);
    }
    DisplayCounts(&selector);
    ScanEngine engine(settings.bypass, settings.validate);
    const StoppedBySignals stopped(signals_, engine);
    if (Stopped()) {
        return zERR_USER_ABORTED;
    }
    int status = engine.RunDump(selector, options);
    if (status != 0) {
        FatalError(status, "Could not start the scan thread", "util/ostrelscan/scanUI[449]");
    } else {
        WatchDump(engine, selector, options);
        status = Report(engine, "util/ostrelscan/scanUI[497]");
    }
    LogLine() << "util/ostrelscan/scanUI[506]Status is " << status << '\n';
    return static_cast<unsigned>(status);
}

void UserInterface::Watch(const ScanEngine& engine, const std::function<void(bool)>& show) {
    // Nobody leaves a pass that is under way: a repaint that fails is left out.
    const auto repaint = [&](bool final) {
        try {
            screen_->AtOnce([&] { show(final); });
        } catch (const std::exception& failure) {
            NoteUnpainted(failure);
        }
    };
    while (!engine.Finished()) {
        repaint(false);
        const TerminalLetGo meanwhile(terminal_.Turn());
        Ostrel::LB_delay(kPollMilliseconds);
    }
    repaint(true);
}

void UserInterface::NoteUnpainted(const std::exception& failure) {
    if (unpainted_ == 0) {
        unpainted_ = StatusOf(failure);
        LogLine() << "The screen could not be painted: " << failure.what() << '\n';
    }
}

void UserInterface::WatchDump(ScanEngine& engine, BlockSelector& selector,
                              const DumpOptions& options) {
    bool measured = false;
    const auto show = [&](bool final) {
        if (!measured && engine.BlocksInPool() != 0) {
            measured = true;
            DisplayHeaderDump(engine.BlocksInPool(), options.poolName, options.path,
                              options.compress);
        }
        DisplayDumpState(engine, selector, final);
    };
    Watch(engine, std::ref(show));
    unsigned long long current = 0;
    unsigned long long done = 0;
    engine.GetStatistics(&current, &done, nullptr, nullptr);
    LogLine() << "UI - " << current << " Dumped  " << done << '\n';
}

void UserInterface::DisplayDumpState(ScanEngine& engine, BlockSelector& selector, bool final) {
    unsigned long long current = 0;
    unsigned long long done = 0;
    unsigned long long readErrors = 0;
    unsigned long long writeErrors = 0;
    engine.GetStatistics(&current, &done, &readErrors, &writeErrors);
    DisplayCounts(&selector);
    DisplaySFL(engine.History(), kModeDump);
    DisplayProgress(engine.LastBlock() - engine.FirstBlock() + 1, current, done, readErrors,
                    writeErrors, final);
}

int UserInterface::Report(ScanEngine& engine, const char* position) {
    LogLine() << "Done \n";
    engine.History().DumpScanHistory();
    LogLine() << "DumpScanHistory Done \n";
    if (engine.Result() != 0) {
        const std::string& message = engine.ErrorMessage();  // with a line end of its own
        screen_->PositionOutputCursor(kErrorRow, 0);
        screen_->OutputToScreenWithAttribute(kLookBad, "%s", message.c_str());
        screen_->PositionOutputCursor(kParkedRow, 0);
        LogLine() << position << ' ' << message;
    }
    LetUserView();
    return engine.Result() != 0 ? engine.Result() : unpainted_;
}

void UserInterface::DisplayHeaderDump(unsigned long long blocks, const char* poolName,
                                      const char* path, bool /*compress*/) {
    screen_->PositionOutputCursor(0, 1);
    screen_->OutputToScreenWithAttribute(kLookHeader,
                                         "Scanning %lld blocks on %s.  Storing to \"%s\".",
                                         static_cast<long long>(blocks), poolName, path);
}

void UserInterface::DisplayProgress(
    unsigned long long total, unsigned long long current,
    // NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
    unsigned long long done, unsigned long long readErrors, unsigned long long writeErrors,
    bool /*final*/) {
    const unsigned elapsed = ElapsedSeconds();
    screen_->Redraw();
    const ProgressFigures figures = ComputeProgress(total, current, done, elapsed);
    screen_->PositionOutputCursor(kProgressRow, 0);
    screen_->OutputToScreenWithAttribute(
        kLookProgress,
        "Blk %lld(%lld dumped) in %d mins (%lld blks/sec).  \n"
        " %ld%% done (%ld mins left).  %ld ZSB files will be created.    \r",
        static_cast<long long>(current), static_cast<long long>(done),
        static_cast<int>(figures.minutes), static_cast<long long>(figures.rate),
        static_cast<long>(figures.percent), static_cast<long>(figures.minutesLeft),
        static_cast<long>(figures.files));
    DisplayErrorCount("Pool read errors", readErrors, 0);
    DisplayErrorCount("Pool write errors", writeErrors, readErrors != 0 ? kSecondErrorColumn : 0);
}

void UserInterface::DisplayErrorCount(const char* what, unsigned long long count, int column) {
    if (count != 0) {
        screen_->PositionOutputCursor(kErrorCountRow, column);
        screen_->OutputToScreenWithAttribute(kLookBad, "%s %lld", what,
                                             static_cast<long long>(count));
    }
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
void UserInterface::GetAbsoluteSBLocation(const BlockSelector* selector, int index, int* row,
                                          int* column) {
    const int rows = (static_cast<int>(selector->TypeCount()) + kTableColumns - 1) / kTableColumns;
    const int tableColumn = std::min(index / rows, kTableColumns - 1);
    *row = kTableRow + index - tableColumn * rows;
    *column = tableColumn * kTableColumnWidth;
}

void UserInterface::DisplayCounts(BlockSelector* selector) {
    BS_Key key(0);
    int index = 0;
    while (const BlockSelect_s* type = selector->Enumerate(&key)) {
        int row = 0;
        int column = 0;
        GetAbsoluteSBLocation(selector, index++, &row, &column);
        screen_->PositionOutputCursor(row, column);
        const bool selected = type->selected.load(std::memory_order_relaxed) != 0;
        const auto count = static_cast<long long>(type->count.load(std::memory_order_relaxed));
        screen_->OutputToScreenWithAttribute(selected ? kLookSelected : kLookBad,
                                             selected ? SCAN_ColumnFormat : SCAN_ColumnFormatSkip,
                                             type->name, count);
    }
}

void UserInterface::DisplaySFL(ScanFileList& list, int mode) {
    SFL_Key key = list.KeyAtNewest(mode);
    for (int row = kLastFileRow; row >= kFirstFileRow; --row) {
        const ScanFileFacts& facts = list.Enumerate(&key);
        if (!facts.Valid()) {
            break;
        }
        screen_->PositionOutputCursor(row, 1);
        DisplaySFF(facts, mode);
    }
}

void UserInterface::DisplaySFF(const ScanFileFacts& facts, int mode) {
    if (!facts.Valid()) {
        return;
    }
    if (mode == kModeDump) {
        DisplaySFFDump(facts);
    } else if (mode == kModeRestore) {
        DisplaySFFRestore(facts);
    }
}

void UserInterface::DisplaySFFDump(const ScanFileFacts& facts) {
    const int status = facts.status.load(std::memory_order_relaxed);
    DisplayFileState(facts, status == 0 || status == zFILE_BEING_WRITTEN);
}

void UserInterface::DisplaySFFRestore(const ScanFileFacts& facts) {
    DisplayFileState(facts, facts.status.load(std::memory_order_relaxed) == 0);
}

void UserInterface::DisplayFileState(const ScanFileFacts& facts, bool good) {
    if (good) {
        screen_->OutputToScreenWithAttribute(
            kLookProgress, "%s     %llu of %llu            ", facts.name.c_str(),
            static_cast<unsigned long long>(facts.blocksCurrent.load(std::memory_order_relaxed)),
            static_cast<unsigned long long>(facts.blocksTotal.load(std::memory_order_relaxed)));
    } else {
        screen_->OutputToScreenWithAttribute(kLookBad, "%s     Error(%d)            ",
                                             facts.name.c_str(),
                                             facts.status.load(std::memory_order_relaxed));
    }
}

void UserInterface::FatalError(int code, const std::string& text, const char* where) {
    screen_->PositionOutputCursor(kErrorRow, 0);
    screen_->OutputToScreenWithAttribute(kLookFatal, "%s - %d", text.c_str(), code);
    screen_->PositionOutputCursor(kParkedRow, 0);
    LogLine() << "util/ostrelscan/scanUI[532] " << where << ' ' << code << ' ' << text << '\n';
    LetUserView();
}

void UserInterface::LetUserView() {
    if (automatic_ || Stopped()) {
        return;
    }
    screen_->PositionOutputCursor(kPauseRow, 0);
    screen_->OutputToScreenWithAttribute(kLookSelected, "  Press any key to continue....");
    if (screen_->AwaitKey()) {
        std::getc(stdin);
    }
}
