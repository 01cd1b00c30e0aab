#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

#include "util/common/fileDescriptor.h"
#include "util/zsbtool/checkSet.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/madeSet.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// What else a link may be refused for where a copy may be had.
bool CopyHelps(int error) {
    constexpr std::array kRefusals = {EXDEV, EPERM, EMLINK, EOPNOTSUPP};
    return std::ranges::find(kRefusals, error) != kRefusals.end();
}

void Link(const std::string& from, const std::string& to) {
    // A link in the set is followed: another one to it may lead elsewhere from where it stands.
    if (linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), AT_SYMLINK_FOLLOW) != 0) {
        const Failure failure(Printable(from), errno);
        throw CopyHelps(errno)
            ? Failure(failure.what() + std::string("; --copy copies the files instead"))
            : failure;
    }
}

/// Copies files into a folder that the operator knows as `out`.
class Copier {
  public:
    Copier(std::string out, Progress& progress) : out_(std::move(out)), progress_(progress) {}

    void Copy(const std::string& from, const std::string& to) {
        const FileDescriptor source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
        if (!source.IsOpen()) {
            throw Failure(Printable(from), errno);
        }
        const FileDescriptor target(
            open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (!target.IsOpen()) {
            throw Failure(Printable(out_), errno);
        }
        while (const std::size_t size = Read(source, from)) {
            Write(target, {buffer_.data(), size});
            progress_.Add(size);
        }
    }

  private:
    /// 0 at the end of the file.
    std::size_t Read(const FileDescriptor& source, const std::string& from) {
        ssize_t count = -1;
        do {
            count = read(source.Get(), buffer_.data(), buffer_.size());
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            throw Failure(Printable(from), errno);
        }
        return static_cast<std::size_t>(count);
    }

    void Write(const FileDescriptor& target, std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t count = write(target.Get(), bytes.data(), bytes.size());
            if (count < 0 && errno != EINTR) {
                throw Failure(Printable(out_), errno);
            }
            bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
        }
    }

    static constexpr std::size_t kPiece = 1 << 20;

    const std::string out_;
    Progress& progress_;
    std::vector<char> buffer_ = std::vector<char>(kPiece);
};

class PrepareCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Reports();
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.Flag("--copy", copy_, "Copy the files instead of linking them");
        arguments.Flag("-f,--force", force_, "Also a set with problems");
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
        arguments.Required("OUT", out_, "A folder that is new or empty");
    }

    ExitStatus Run(Frame& frame) override {
        ScanSet opened = OpenSet(frame.settings, path_);
        OutputFolder folder(frame.outputs, out_);
        const CheckedSet checked = CheckSet(frame.settings, std::move(opened));
        const bool good = checked.report.Restorable();
        MadeSet made{out_, {}};
        if (good || force_) {
            Fill(frame.settings, checked.set, folder.Path());
            made.set = SetInFolder(folder.Path(), {checked.set.Listing().first.letter, true});
        }
        ReportMadeSet(frame, "prepare", checked.report, made);
        if (made.set) {
            folder.Commit();
        }
        return good ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    void Fill(const Settings& settings, const ScanSet& set, const std::string& folder) const {
        Progress progress(settings, "copy", set.Bytes());
        Copier copier(out_, progress);
        for (const ScanSetFile& file : set.Files()) {
            // A restore looks for set 0, whatever worker of a save wrote the files.
            ScanFileName name{file.name.letter, true, 0, file.name.fileNumber};
            if (copy_) {
                copier.Copy(set.PathOf(file), folder + name.Text());
            } else {
                Link(set.PathOf(file), folder + name.Text());
            }
        }
    }

    std::string path_;
    std::string out_;
    bool copy_ = false;
    bool force_ = false;
};

}  // namespace

extern const CommandRow kPrepareCommand;
const CommandRow kPrepareCommand{"prepare", "Check a set and put it where a restore can take it",
                                 [] { return std::unique_ptr<Command>(new PrepareCommand); }};

}  // namespace zsbtool
