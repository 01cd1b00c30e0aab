#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "util/common/ascii.h"
#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/utf8.h"
#include "util/common/zsbFile.h"
#include "util/ostrelscan/blockSelector.h"
#include "util/ostrelscan/runSettings.h"
#include "util/ostrelscan/scanEngine.h"
#include "util/ostrelscan/scanUI.h"
#include "util/ostrelscan/screenInterface.h"
#include "util/ostrelscan/screenLayout.h"

namespace {

constexpr std::size_t kStoredNameSize = 128;
constexpr const char* kConsentQuestion = "Do you wish to restore the pool? ";

/// The name as it is shown: one that filled its buffer may have been cut inside a character.
std::string Shown(const std::string& storedName) {
    return storedName.size() + 1 < kStoredNameSize ? storedName
                                                   : std::string(WithoutTornEnd(storedName));
}

/// How the look at the first scan file failed; code 0 when it did not.
struct LookFailure {
    int code = 0;
    const char* text = "";
    const char* where = "";
};

/// Reads the pool's name from the first scan file, and logs what went wrong.
LookFailure LookAtFirstFile(const char* path, std::unique_ptr<ZSBFile>& file,
                            std::string& poolName) {
    try {
        file = ZSBFile::ForReading(path);
    } catch (const std::exception& failure) {
        LogLine() << "Exception while attempting to open a ZSBFile Object:  " << failure.what()
                  << '\n';
        return {zERR_GENERIC_OSTREL_ERROR, "Could not open ZRB file",
                "util/ostrelscan/scanUI[557]"};
    }
    const int openStatus = file->OpenNext(ZSBFile::kOpenAnyZRB);
    if (openStatus != 0) {
        LogLine() << "Could not open ZRB file:  " << openStatus << '\n';
        return {zERR_UNABLE_TO_OPEN_BEAST, "Could not open ZRB file",
                "util/ostrelscan/scanUI[565]"};
    }
    char stored[kStoredNameSize];
    file->SFHGet_PoolName(stored, sizeof stored);
    poolName = stored;
    const int closeStatus = file->OpenNextClose();
    if (closeStatus != 0) {
        LogLine() << "Could not close ZRB file:  " << closeStatus << '\n';
        return {zERR_GENERIC_OSTREL_ERROR, "Could not close ZRB file",
                "util/ostrelscan/scanUI[575]"};
    }
    return {};
}

}  // namespace

unsigned UserInterface::RunRestore(const char* path, const char* device, const char* poolName,
                                   bool allBlocks, bool bypass, bool validate) {
    return RunRestore({.path = path,
                       .allBlocks = allBlocks,
                       .bypass = bypass,
                       .validate = validate,
                       .poolName = poolName,
                       .device = device});
}

unsigned UserInterface::RunRestore(const RunSettings& settings) {
    const RestoreOptions options(settings.device, settings.poolName, settings.path.c_str());
    if (!RESTORE_Validate_Operation(options)) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    DisplayHeaderRestore(options.poolName, options.path);
    LogLine() << options << '\n';
    BlockSelector selector;
    if (!settings.allBlocks) {
        selector.SelectOff(kBlockTypes[kUserType].magic);
    }
    // Blocks of this type are never written back, even where all others are.
    selector.SelectOff(kMagicMSAP);
    DisplayCounts(&selector);
    ScanEngine engine(settings.bypass, settings.validate);
    const StoppedBySignals stopped(signals_, engine);
    if (Stopped()) {
        return zERR_USER_ABORTED;
    }
    int status = engine.RunRestore(selector, options);
    if (status != 0) {
        FatalError(status, "Could not start the restore thread", "util/ostrelscan/scanUI[689]");
    } else {
        WatchRestore(engine, selector);
        status = Report(engine, "util/ostrelscan/scanUI[727]");
    }
    return static_cast<unsigned>(status);
}

void UserInterface::WatchRestore(ScanEngine& engine, BlockSelector& selector) {
    const auto show = [&](bool /*final*/) {
        DisplayCounts(&selector);
        DisplaySFL(engine.History(), kModeRestore);
    };
    Watch(engine, std::ref(show));
}

void UserInterface::DisplayHeaderRestore(const char* poolName, const char* path) {
    screen_->PositionOutputCursor(0, 1);
    screen_->OutputToScreenWithAttribute(kLookHeader, "Restoring to pool %s from \"%s\".", poolName,
                                         path);
}

bool UserInterface::AskToRestore() {
    const bool agreed = screen_->PromptForYesOrNo(false, kConsentQuestion, true);
    screen_->ClearScreen();
    return agreed;
}

bool UserInterface::RESTORE_Validate_Operation(const RestoreOptions& options) {
    screen_->ClearScreen();
    if (automatic_) {
        return RESTORE_Validate_File(options);
    }
    screen_->PositionOutputCursor(kConsentRow, 0);
    screen_->OutputToScreenWithAttribute(
        kLookSelected, "The scan files located at %s will be restored onto pool %s.\n",
        options.path, options.poolName);
    for (const char* warning :
         {"  WARNING: Restoring causes the current contents of the pool to be lost.\n",
          "  WARNING: Restoring incorrect scan files will cause data loss.\n",
          "  WARNING: Restoring scan files to a pool that has been used since the original scan "
          "will cause data loss.\n"}) {
        screen_->OutputToScreenWithAttribute(kLookWarning, "%s", warning);
    }
    screen_->PositionOutputCursor(kParkedRow, 0);
    return AskToRestore() && RESTORE_Validate_File(options);
}

bool UserInterface::ReadPoolName(const char* path, std::string* poolName) {
    std::unique_ptr<ZSBFile> file;
    LookFailure failure;
    {
        const TerminalLetGo meanwhile(terminal_.Turn());  // a disk can be slow, or hang
        failure = LookAtFirstFile(path, file, *poolName);
    }
    if (failure.code != 0) {
        FatalError(failure.code, failure.text, failure.where);
    }
    return failure.code == 0;
}

bool UserInterface::RESTORE_Validate_File(const RestoreOptions& options) {
    std::string stored;
    if (!ReadPoolName(options.path, &stored)) {
        return false;
    }
    if (automatic_ || Ascii::EqualIgnoringCase(stored, options.poolName)) {
        return true;
    }
    screen_->ClearScreen();
    screen_->PositionOutputCursor(kConsentRow, 0);
    screen_->OutputToScreenWithAttribute(
        kLookFatal,
        "The scan files at %s are for a pool called %s.\n"
        "You have asked them to be restored to a pool called %s.\n",
        options.path, Shown(stored).c_str(), options.poolName);
    screen_->OutputToScreenWithAttribute(
        kLookWarning, " WARNING: Restoring incorrect scan files will cause data loss.\n");
    return AskToRestore();
}
