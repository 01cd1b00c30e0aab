#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "util/common/scanFileWalk.h"
#include "util/common/scanSetCheck.h"
#include "util/zsbtool/command.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/openSet.h"
#include "util/zsbtool/progress.h"
#include "util/zsbtool/setReport.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

namespace {

/// Whether a block is all zeros, and can be a hole.
bool IsEmpty(const char* block) {
    // A text that is the same as itself one place further is of one character.
    return block[0] == 0 && std::memcmp(block, block + 1, kPoolBlockSize - 1) == 0;
}

/// The image while it is written. Any number of threads may write at a time.
class Image {
  public:
    Image(int descriptor, std::string path, std::uint64_t poolBlocks)
        : descriptor_(descriptor), path_(std::move(path)), poolBlocks_(poolBlocks) {}

    std::uint64_t PoolBlocks() const { return poolBlocks_; }

    void WriteAt(std::uint64_t block, std::string_view bytes) const {
        auto offset = static_cast<off_t>(block * kPoolBlockSize);
        while (!bytes.empty()) {
            const ssize_t count = pwrite(descriptor_, bytes.data(), bytes.size(), offset);
            if (count < 0 && errno != EINTR) {
                throw Failure(Printable(path_), errno);
            }
            bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
            offset += count < 0 ? 0 : count;
        }
    }

    /// Makes the image as large as the pool.
    void Extend() const {
        if (ftruncate(descriptor_, static_cast<off_t>(poolBlocks_ * kPoolBlockSize)) != 0) {
            throw Failure(Printable(path_), errno);
        }
    }

  private:
    const int descriptor_;
    const std::string path_;
    const std::uint64_t poolBlocks_;
};

/// Blocks that stand behind each other, until they are written at once.
class BlockRun {
  public:
    explicit BlockRun(const Image& image) : image_(image) {
        bytes_.reserve(kMostBlocks * kPoolBlockSize);
    }

    /// Blocks of zeros are left out: a hole is as good.
    void Add(const QuadAndBlock_s& record) {
        if (record.blockNumber >= image_.PoolBlocks()) {
            return;
        }
        added_ += 1;
        if (!IsEmpty(record.block)) {
            Append(record);
        }
    }

    void Flush() {
        image_.WriteAt(first_, bytes_);
        bytes_.clear();
    }

    /// How many blocks there were inside the pool.
    std::uint64_t Added() const { return added_; }

  private:
    static constexpr std::size_t kMostBlocks = 256;

    void Append(const QuadAndBlock_s& record) {
        if (record.blockNumber != first_ + bytes_.size() / kPoolBlockSize ||
            bytes_.size() == kMostBlocks * kPoolBlockSize) {
            Flush();
            first_ = record.blockNumber;
        }
        bytes_.append(record.block, kPoolBlockSize);
    }

    const Image& image_;
    std::uint64_t first_ = 0;
    std::uint64_t added_ = 0;
    std::string bytes_;
};

/// Writes all blocks anew in the order of the set, so that of those that are there twice the last
/// one stays, as in a restore.
void WriteInOrder(const ScanSet& set, const Image& image) {
    for (const ScanSetFile& file : set.Files()) {
        ScanFileWalk walk(set.PathOf(file));
        QuadAndBlock_s record;
        while (walk.Next(&record)) {
            if (record.blockNumber < image.PoolBlocks()) {
                image.WriteAt(record.blockNumber, {record.block, kPoolBlockSize});
            }
        }
    }
}

bool HasTwice(const ScanSetReport& report) {
    return std::ranges::any_of(report.problems, [](const ScanProblem& problem) {
        return std::string_view(problem.code) == ScanCode::kBlockTwice;
    });
}

class ImageCommand final : public Command {
  public:
    void Declare(Arguments& arguments) override {
        arguments.Parallel();
        arguments.ChoosesSet();
        arguments.RequiredText("-o,--output", output_, "The image to make");
        arguments.Flag("--force", force_, "Make it of a set with problems, too");
        arguments.Required("SET", path_, "A folder with a set, or a file of it");
    }

    ExitStatus Run(Frame& frame) override {
        ScanSet set = OpenSet(frame.settings, path_);
        OutputFile file(frame.outputs, output_);
        const Image image(file.Descriptor(), output_, PoolBlocks(set));
        std::atomic<std::uint64_t> held = 0;
        ScanSetReport report = Write(frame.settings, set, image, held);
        const CheckedSet checked{std::move(set), std::move(report)};
        if (!checked.report.Restorable()) {
            PutCheckedSet(frame.out, Painter(frame.out), checked);
            if (!force_) {
                frame.out << "nothing was made; --force makes an image all the same\n";
                return ExitStatus::kFaults;
            }
        }
        if (HasTwice(checked.report)) {
            WriteInOrder(checked.set, image);
        }
        image.Extend();
        file.Commit();
        frame.out << Printable(output_) << ": " << ReadableSize(image.PoolBlocks() * kPoolBlockSize)
                  << ", " << Counted(held, "block") << " of " << std::to_string(image.PoolBlocks())
                  << "\n";
        return checked.report.Restorable() ? ExitStatus::kGood : ExitStatus::kFaults;
    }

  private:
    /// The set is checked while it is written: what was made of one with problems is dropped.
    /// Counts what it holds.
    static ScanSetReport Write(const Settings& settings, const ScanSet& set, const Image& image,
                               std::atomic<std::uint64_t>& held) {
        Progress progress(settings, "image", set.Bytes());
        const auto tell = [&progress](std::uint64_t bytes) { progress.Add(bytes); };
        return StudyAndCheckScanSet(set, settings.jobs, [&](const ScanSetFile& file) {
            BlockRun run(image);
            ScanFileStudy study =
                StudyScanFile(set.Listing().folder, file.name.Text(), tell,
                              [&run](const QuadAndBlock_s& record) { run.Add(record); });
            run.Flush();
            held += run.Added();
            return study;
        });
    }

    std::uint64_t PoolBlocks(const ScanSet& set) const {
        constexpr auto kMost =
            static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) / kPoolBlockSize;
        const ScanSetFile* model = set.Model();
        if (model == nullptr && force_) {
            throw Failure(Printable(path_) + ": no file tells the size of the pool");
        }
        if (model != nullptr && model->poolBlocks > kMost) {
            throw Failure(Printable(output_), EFBIG);
        }
        return model == nullptr ? 0 : model->poolBlocks;
    }

    std::string path_;
    std::string output_;
    bool force_ = false;
};

}  // namespace

extern const CommandRow kImageCommand;
const CommandRow kImageCommand{"image", "Make a sparse image of the pool from a set",
                               [] { return std::unique_ptr<Command>(new ImageCommand); }};

}  // namespace zsbtool
