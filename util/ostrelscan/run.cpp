#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>

#include "util/common/clock.h"
#include "util/common/errors.h"
#include "util/common/fileDescriptor.h"
#include "util/common/heb.h"
#include "util/common/log.h"
#include "util/ostrelscan/commandLine.h"
#include "util/ostrelscan/programName.h"
#include "util/ostrelscan/scanUI.h"
#include "util/ostrelscan/signalWatch.h"

namespace {

constexpr const char* kLogName = "ostrelscan.log";

/// A standard stream that the caller closed would lend its number to the log or the device, and the
/// screen would be written there.
void OccupyStandardStreams() {
    FileDescriptor spare(open("/dev/null", O_RDWR | O_CLOEXEC));
    while (spare.IsOpen() && spare.Get() <= STDERR_FILENO) {
        spare.Release();
        spare = FileDescriptor(open("/dev/null", O_RDWR | O_CLOEXEC));
    }
}

/// A write that is too long or that nobody reads fails with its error instead of ending the run.
void IgnoreFailedWrites() {
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

/// Whether the log can be written; it is tried before anything is redirected to it.
bool ProbeLog() {
    std::FILE* log = std::fopen(kLogName, "a");
    return log != nullptr && std::fclose(log) == 0;
}

bool OpenLog(std::ofstream& log) {
    if (!ProbeLog()) {
        std::perror("  Log file error");
        std::cout << std::endl;
        return false;
    }
    log.open(kLogName, std::ios::app);
    if (!log.is_open()) {
        std::cout << "Unable to open error log file.\n" << std::endl;
        return false;
    }
    return true;
}

int ExitStatus(unsigned status) {
    return status == 0 ? 0 : 1;
}

void LogHeader(int argc, char** argv) {
    LogLine() << "<ostrelscan>\n"
              << kProgramName << " - KUVO Pool Scanner\n"
              << "  Version: " << kProgramVersion << '\n'
              << "  Build: " << __DATE__ << " at " << __TIME__ << '\n';
    LogLine arguments;
    arguments << "<CommandLine>\n";
    for (int i = 0; i < argc; ++i) {
        arguments << " <argv index=\"0x" << i << "\" argv=\"" << argv[i] << "\" />\n";
    }
    arguments << "</CommandLine>\n";
}

/// What fails outside of a pass ends here, with the terminal still to be given back.
unsigned RunAction(UserInterface& dialogue, const RunSettings& settings) {
    try {
        if (std::strcmp(settings.action, "save") == 0) {
            return dialogue.RunDump(settings);
        }
        if (std::strcmp(settings.action, "restore") == 0) {
            return dialogue.RunRestore(settings);
        }
    } catch (const std::exception& failure) {
        LogLine() << "The dialogue failed: " << failure.what() << '\n';
        return static_cast<unsigned>(StatusOf(failure));
    }
    return zERR_NOT_SUPPORTED;
}

struct LoggedRun {
    std::optional<unsigned> status;  ///< none when the dialogue could not be created
    bool logComplete;
};

/// Header, run and footer in the log. A dialogue that could not be created leaves its element open.
LoggedRun RunLogged(int argc, char** argv, const RunSettings& settings, std::ofstream& log,
                    SignalWatch& signals) {
    const LogRedirection redirection(*log.rdbuf());
    LogHeader(argc, argv);
    LogCurrentTime(false);
    const std::optional<unsigned> status = RunDialogue(settings, &signals);
    HEBConsumer::SilenceRetired();
    signals.CloseRecord();
    if (status) {
        LogCurrentTime(false);
        LogLine() << "</ostrelscan>\n";
    }
    return {status, !redirection.Failed()};
}

/// The operator is sent to the log for more details, and must know where it has none.
void TellLostLog(bool complete, std::ofstream& log) {
    log.close();
    if (!complete || log.fail()) {
        std::cout << '\n' << kLogName << " is not complete: it could not be written." << std::endl;
    } else if (access(kLogName, F_OK) != 0 && errno == ENOENT) {
        std::cout << '\n' << kLogName << " is not there any more." << std::endl;
    }
}

}  // namespace

std::optional<unsigned> RunDialogue(const RunSettings& settings, SignalWatch* signals) {
    if (signals != nullptr && signals->Taken()) {
        signals->SettleStatus(1);
        return zERR_USER_ABORTED;
    }
    std::unique_ptr<UserInterface> dialogue;
    try {
        dialogue = std::make_unique<UserInterface>(settings.automatic, signals);
    } catch (const std::exception& failure) {
        LogLine() << "Exception while attempting to create a UserInterface Object:  "
                  << failure.what() << "\nutil/ostrelscan/scanUI[1106]\n";
        return {};
    }
    const unsigned status = RunAction(*dialogue, settings);
    if (signals != nullptr) {
        signals->SettleStatus(ExitStatus(status));
    }
    return status;
}

int RunProgram(int argc, char** argv) {
    OccupyStandardStreams();
    RunSettings settings;
    if (const std::optional<int> ended = ParseCommandLine(argc, argv, settings)) {
        return *ended;
    }
    std::ofstream log;
    if (!OpenLog(log)) {
        return 1;
    }
    IgnoreFailedWrites();
    SignalWatch signals;
    const auto [status, logComplete] = RunLogged(argc, argv, settings, log, signals);
    TellLostLog(logComplete, log);
    if (!status) {
        std::cerr << kProgramName << ": the screen could not be obtained (see " << kLogName
                  << ").\n";
        return 1;
    }
    if (*status != 0) {
        std::cout << "\nScan failed (see " << kLogName << " for more details): " << *status
                  << std::endl;
    }
    return ExitStatus(*status);
}
