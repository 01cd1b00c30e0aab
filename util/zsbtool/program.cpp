#include "util/zsbtool/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <iostream>
#include <new>
#include <streambuf>

#include "util/common/log.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/parser.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// Takes everything and keeps nothing.
class NullBuffer : public std::streambuf {
  protected:
    std::streamsize xsputn(const char* /*text*/, std::streamsize length) override { return length; }
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
};

/// A file that is opened must not become standard input or output because somebody closed those:
/// what stands in for them refuses to be written.
void FillStandardDescriptors() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDONLY);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        close(descriptor);
    }
}

int Execute(int argc, const char* const* argv, Output& out) {
    Settings settings;
    const Request request = ParseArguments(argc, argv, settings);
    ExitStatus status = ExitStatus::kGood;
    if (request.command != nullptr) {
        Outputs outputs;
        Frame frame{settings, out, outputs};
        status = request.command->Run(frame);
    } else {
        out << request.text;
    }
    out.Finish();
    return static_cast<int>(status);
}

/// Says why nothing came of it.
int Refuse(const char* why) {
    Complain(why);
    return static_cast<int>(ExitStatus::kCouldNotRun);
}

}  // namespace

int RunProgram(int argc, const char* const* argv) {
    FillStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN);  // a write then fails with its error
    std::signal(SIGXFSZ, SIG_IGN);
    std::setlocale(LC_CTYPE, "C.UTF-8");  // names are UTF-8, and tables need their width
    NullBuffer nowhere;
    const LogRedirection redirection(nowhere);
    Output out(STDOUT_FILENO);
    try {
        return Execute(argc, argv, out);
    } catch (const OutputFailure& failure) {
        // Whoever reads from a pipe may stop when it has seen enough.
        return failure.errorNumber == EPIPE ? static_cast<int>(ExitStatus::kCouldNotRun)
                                            : Refuse(failure.what());
    } catch (const std::bad_alloc&) {
        return Refuse("out of memory");
    } catch (const Failure& failure) {
        return Refuse(failure.what());
    } catch (const std::exception& failure) {
        return Refuse(Printable(failure.what()).c_str());
    }
}

}  // namespace zsbtool
